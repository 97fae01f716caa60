// SPDX-License-Identifier: MIT
#include "cli/base/exhausted_heap.h"

#include "cli/base/errors.h"
#include "image/interruption.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cxxabi.h>
#include <exception>
#include <new>
#include <typeinfo>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace panoval::cli
{

namespace
{

std::atomic<bool> end_means_no_memory{false};

[[noreturn]] void end_without_memory()
{
    image::remove_unfinished_outputs();
    std::fprintf(stderr, "panoval: %s\n", kNoMemory);
    std::_Exit(static_cast<int>(ExitCode::Memory));
}

// An exhausted heap may not even hold the exception.
bool is_out_of_memory()
{
    if (const std::type_info* const type = abi::__cxa_current_exception_type())
        return *type == typeid(std::bad_alloc);
    constexpr std::size_t kExceptionBytes = 1024;
    void* const block = std::malloc(kExceptionBytes);
    std::free(block);
    return block == nullptr;
}

void on_terminate()
{
    if (is_out_of_memory())
        end_without_memory();
    std::abort();
}

// Each library has a C++ run-time library of its own, whose end of the process is this signal. The JSON library's
// destructors, for one, ask for memory. Memory that was asked for in vain has left its mark in errno.
extern "C" void on_abort(int number)
{
    if (errno != ENOMEM) {
        std::signal(number, SIG_DFL);
        return; // abort goes on
    }
    image::remove_unfinished_outputs();
    constexpr char kLine[] = "panoval: not enough memory\n";
    (void)!write(2, kLine, sizeof kLine - 1);
    std::_Exit(static_cast<int>(ExitCode::Memory));
}

void on_exit()
{
    if (end_means_no_memory)
        end_without_memory();
}

// Before the constructors of other files, which need memory, too.
struct FromTheStart {
    FromTheStart()
    {
        std::set_terminate(on_terminate);
        std::signal(SIGABRT, on_abort);
        if (std::atexit(on_exit) != 0)
            end_without_memory();
    }
};
__attribute__((init_priority(101))) const FromTheStart from_the_start;

} // namespace

HeapWatch::HeapWatch()
{
    errno = 0;
}

bool HeapWatch::has_failed() const
{
    return errno == ENOMEM;
}

EndMeansNoMemory::EndMeansNoMemory()
{
    end_means_no_memory = true;
}

EndMeansNoMemory::~EndMeansNoMemory()
{
    end_means_no_memory = false;
}

} // namespace panoval::cli
