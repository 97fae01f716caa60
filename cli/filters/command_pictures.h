// SPDX-License-Identifier: MIT
// The commands that make one picture of another, for the list of commands (cli/commands.h).
#pragma once

namespace CLI
{
class App;
}

namespace panoval::cli
{

void add_edges_command(CLI::App& program);
void add_smooth_command(CLI::App& program);
void add_gradient_command(CLI::App& program);
void add_distance_command(CLI::App& program);
void add_threshold_command(CLI::App& program);

} // namespace panoval::cli
