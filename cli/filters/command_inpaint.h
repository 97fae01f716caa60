// SPDX-License-Identifier: MIT
// panoval inpaint, for the list of commands (cli/commands.h).
#pragma once

namespace CLI
{
class App;
}

namespace panoval::cli
{

void add_inpaint_command(CLI::App& program);

} // namespace panoval::cli
