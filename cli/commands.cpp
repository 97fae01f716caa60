// SPDX-License-Identifier: MIT
#include "cli/commands.h"

namespace panoval::cli
{

void add_commands(CLI::App&) {}

} // namespace panoval::cli
