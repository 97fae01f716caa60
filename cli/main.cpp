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

// Pictures come and go, all of them large: their pages are kept for the next one instead of going back to the system,
// whose fresh pages cost more than the work on them.
void keep_freed_pages()
{
#ifdef __GLIBC__
    mallopt(M_MMAP_THRESHOLD, 1 << 30);
    mallopt(M_TRIM_THRESHOLD, 2'000'000'000);
#endif
}

} // namespace

int main(int argc, char** argv)
{
    keep_freed_pages();
#ifdef _WIN32
    SetConsoleOutputCP(CP_UTF8);
#endif
    panoval::cli::remove_outputs_on_interruption();
    return panoval::cli::run_program(panoval::cli::utf8_arguments(argc, argv));
}
