// SPDX-License-Identifier: MIT
#include "cli/base/arguments.h"
#include "cli/base/system_info.h"
#include "cli/program.h"
#include "image/interruption.h"
#include "image/standard_streams.h"

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#endif

int main(int argc, char** argv)
{
    panoval::image::reserve_standard_streams();
    panoval::cli::prepare_heap();
#ifdef _WIN32
    SetConsoleOutputCP(CP_UTF8);
#endif
    panoval::image::remove_outputs_on_interruption();
    return panoval::cli::run_program([=] { return panoval::cli::utf8_arguments(argc, argv); });
}
