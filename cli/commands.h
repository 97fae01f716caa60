// SPDX-License-Identifier: MIT
// The list of commands. Each adds its subcommand with its options, and a callback that does the work and returns
// nothing: it throws Failure or UsageError to end with a message, or ExitCode to end quietly with a code.
#pragma once

namespace CLI
{
class App;
}

namespace panoval::cli
{

// In the order in which --help lists them.
void add_commands(CLI::App& program);

} // namespace panoval::cli
