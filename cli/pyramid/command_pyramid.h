// SPDX-License-Identifier: MIT
// panoval pyramid, for the list of commands (cli/commands.h).
#pragma once

namespace CLI
{
class App;
}

namespace panoval::cli
{

void add_pyramid_command(CLI::App& program);

} // namespace panoval::cli
