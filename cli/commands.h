// SPDX-License-Identifier: MIT
// The list of commands. Each adds its subcommand with its options, and a callback that does the work and returns
// nothing: it throws UserError to end with a message, or ExitCode to end quietly with a code.
#pragma once

namespace CLI
{
class App;
}

namespace panoval::cli
{

// In the order in which --help lists them.
void add_commands(CLI::App& program);

void add_stitch_command(CLI::App& program);
void add_ellipses_command(CLI::App& program);
void add_edges_command(CLI::App& program);
void add_inpaint_command(CLI::App& program);
void add_smooth_command(CLI::App& program);
void add_gradient_command(CLI::App& program);
void add_distance_command(CLI::App& program);
void add_threshold_command(CLI::App& program);

} // namespace panoval::cli
