// SPDX-License-Identifier: MIT
// A file of the input's bytes that is in memory alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

namespace panoval::fuzz
{

// Makes the memory file hold the bytes, and gives its name.
inline const std::string& file_of(const std::uint8_t* data, std::size_t size)
{
    static const int descriptor = memfd_create("input", 0);
    static const std::string name = "/proc/self/fd/" + std::to_string(descriptor);
    if (ftruncate(descriptor, static_cast<off_t>(size)) != 0 ||
        pwrite(descriptor, data, size, 0) != static_cast<ssize_t>(size))
        std::abort();
    return name;
}

} // namespace panoval::fuzz
