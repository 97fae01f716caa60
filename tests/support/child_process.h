// SPDX-License-Identifier: MIT
// What would end or change a test's process happens to a child of it. Not on Windows.
#pragma once

#include <csignal>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" void __gcov_dump() __attribute__((weak)); // there in a build that counts

namespace panoval::test
{

// A file system that takes no more than this many bytes.
inline void limit_file_size(rlim_t bytes)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = bytes == RLIM_INFINITY ? limit.rlim_max : bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
}

// The end of a child.
[[noreturn]] inline void leave(int code)
{
    limit_file_size(RLIM_INFINITY);
    if (__gcov_dump != nullptr)
        __gcov_dump();
    _exit(code);
}

// What waitpid says about a child that runs this.
template <class Body>
int status_of_child(const Body& body)
{
    const pid_t child = fork();
    if (child == 0) {
        body();
        leave(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

} // namespace panoval::test
