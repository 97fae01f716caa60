// SPDX-License-Identifier: MIT
#include "cli/output_file.h"
#include "cli/program.h"
#include "cli/utf8.h"

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#endif

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace
{

// Pictures come and go, all of them large. Their memory goes back to the system at once, so that the most in use at any
// time is what the canvas and one picture need; by default the C library keeps freed blocks of up to 32 MB.
void return_freed_pictures()
{
#ifdef __GLIBC__
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
#endif
}

} // namespace

int main(int argc, char** argv)
{
    return_freed_pictures();
#ifdef _WIN32
    SetConsoleOutputCP(CP_UTF8);
#endif
    panoval::cli::remove_outputs_on_interruption();
    return panoval::cli::run_program(panoval::cli::utf8_arguments(argc, argv));
}
