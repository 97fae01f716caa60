// SPDX-License-Identifier: MIT
// Feeds files of any bytes to the PGM reader and compares what it reads with its twin. The file lives in memory and is
// opened by its descriptor's name.
#include "panoval.h"
#include "tests/reference/pgm.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include <sys/mman.h>
#include <unistd.h>

namespace
{

constexpr std::int64_t kMaxPixels = 1 << 16; // larger blocks would take all the time

void require(bool condition)
{
    if (!condition)
        std::abort();
}

// Makes the memory file hold the bytes, and gives its name.
const char* file_of(std::string_view bytes)
{
    static const int descriptor = memfd_create("input", 0);
    static const std::string name = "/proc/self/fd/" + std::to_string(descriptor);
    require(descriptor >= 0);
    require(ftruncate(descriptor, static_cast<off_t>(bytes.size())) == 0);
    require(pwrite(descriptor, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    return name.c_str();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const auto expected = panoval::reference::read_pgm(bytes, 3, 5, kMaxPixels);
    if (expected.has_pixels && std::int64_t{expected.width} * expected.height > kMaxPixels)
        return 0;
    std::uint8_t* pixels = nullptr;
    std::int32_t width = 3;
    std::int32_t height = 5;
    read_pgm(&pixels, &width, &height, file_of(bytes));
    require(width == expected.width && height == expected.height);
    require((pixels != nullptr) == expected.has_pixels);
    if (!expected.pixels.empty())
        require(std::memcmp(pixels, expected.pixels.data(), expected.pixels.size()) == 0);
    std::free(pixels);
    return 0;
}
