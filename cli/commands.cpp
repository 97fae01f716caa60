// SPDX-License-Identifier: MIT
#include "cli/commands.h"

#include "cli/ellipses/command_ellipses.h"
#include "cli/filters/command_inpaint.h"
#include "cli/filters/command_pictures.h"
#include "cli/pyramid/command_pyramid.h"
#include "cli/stitch/command_stitch.h"

namespace panoval::cli
{

void add_commands(CLI::App& program)
{
    add_stitch_command(program);
    add_pyramid_command(program);
    add_ellipses_command(program);
    add_edges_command(program);
    add_inpaint_command(program);
    add_smooth_command(program);
    add_gradient_command(program);
    add_distance_command(program);
    add_threshold_command(program);
}

} // namespace panoval::cli
