// SPDX-License-Identifier: MIT
// Reading of raw PGM files. The header is taken line by line, in pieces of a fixed buffer, and a line that does not
// parse leaves its values alone: hosts rely on both.
#include "core/heap.h"
#include "core/numbers.h"
#include "io/open_file.h"
#include "panoval.h"

#include <cstdio>
#include <cstring>
#include <limits>

namespace
{

constexpr int kLineBytes = 260; // with the terminator

#ifdef _WIN32
// The system's own: MinGW's stand-in crashes when the heap is exhausted.
constexpr auto scan_text = __ms_sscanf;
#else
constexpr auto scan_text = std::sscanf;
#endif

// The next piece of the header. What cannot be read, be it a file's end or a folder, counts as an empty line, so that
// the header always ends.
void read_line(std::FILE* file, char (&line)[kLineBytes]) noexcept
{
    std::memset(line, 0, sizeof line);
    if (std::fgets(line, kLineBytes, file) == nullptr)
        line[0] = '\0';
}

// Reads up to and including the maximum value's line feed. Of the three lines only the size tells anything: every file
// is read as one byte per pixel.
void read_header(std::FILE* file, std::int32_t* width, std::int32_t* height) noexcept
{
    constexpr int kHeaderLines = 3;
    constexpr int kSizeLine = 2;
    int lines = 0;
    while (lines < kHeaderLines && std::feof(file) == 0) {
        char line[kLineBytes];
        read_line(file, line);
        if (line[0] == '#')
            continue;
        ++lines;
        if (lines == kSizeLine)
            (void)scan_text(line, "%d%d", width, height);
    }
}

// The pixels that follow; the ones that the file lacks are 0. Null for a size that no 32-bit host can hold.
std::uint8_t* read_pixels(std::FILE* file, std::int32_t width, std::int32_t height) noexcept
{
    const std::int64_t count = std::int64_t{width} * height;
    if (count < 0 || count > std::numeric_limits<std::int32_t>::max())
        return nullptr;
    auto pixels = panoval::allocate_zeroed<std::uint8_t>(panoval::to_count(count));
    if (pixels)
        (void)!std::fread(pixels.get(), 1, panoval::to_count(count), file);
    return pixels.release(); // the caller frees it
}

} // namespace

extern "C" void read_pgm(std::uint8_t** out_data, std::int32_t* width, std::int32_t* height, const char* name)
{
    const panoval::File file = panoval::open_file_utf8(name, "rb");
    if (!file)
        return;
    read_header(file.get(), width, height);
    *out_data = read_pixels(file.get(), *width, *height);
}
