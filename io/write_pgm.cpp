// SPDX-License-Identifier: MIT
// Writing of raw PGM files: bytes as they are, floats and 16-bit samples stretched. Stretched pixels are made in tiles
// on the stack and written while they are in the cache, so no writer needs the heap.
#include "core/numbers.h"
#include "io/open_file.h"
#include "io/stretch.h"
#include "panoval.h"

#include <algorithm>
#include <cstdio>

namespace
{

using panoval::File;
using panoval::open_file_utf8;
using panoval::to_count;
using panoval::wrapping_mul;

constexpr std::size_t kTilePixels = 65536; // smaller tiles cost more calls of the system

// Without a buffer of the stream's own: pixels come in large runs, which it would copy in part.
void write_header(std::FILE* file, std::int32_t width, std::int32_t height) noexcept
{
    std::setvbuf(file, nullptr, _IONBF, 0);
    std::fprintf(file, "P5\n%d\n%d\n%d\n", width, height, 255);
}

// fill(first, count, out) makes the bytes of count pixels from the first one on.
template <class Fill>
void write_in_tiles(std::FILE* file, std::size_t pixels, const Fill& fill) noexcept
{
    std::uint8_t tile[kTilePixels];
    for (std::size_t first = 0; first < pixels; first += kTilePixels) {
        const std::size_t count = std::min(kTilePixels, pixels - first);
        fill(first, count, tile);
        std::fwrite(tile, 1, count, file);
    }
}

template <class Sample>
void write_stretched(const Sample* data, std::int32_t width, std::int32_t height, const char* name) noexcept
{
    const File file = open_file_utf8(name, "wb");
    if (!file)
        return;
    write_header(file.get(), width, height);
    const std::size_t pixels = to_count(wrapping_mul(width, height));
    if (pixels == 0)
        return;
    Sample low = data[0];
    Sample high = data[0];
    panoval::widen_range(data, pixels, low, high);
    const double scale = 255.0 / (static_cast<double>(high) - static_cast<double>(low));
    write_in_tiles(file.get(), pixels, [&](std::size_t first, std::size_t count, std::uint8_t* out) {
        panoval::stretch(data + first, count, low, scale, out);
    });
}

// Widens a range to the grey values of a picture.
void widen_to_grey(const Matf& img, std::size_t pixels, float& low, float& high) noexcept
{
    if (img.channels == 1)
        panoval::widen_range(img.data, pixels, low, high);
    else if (img.channels == 3)
        panoval::widen_grey_range(img.data, pixels, low, high);
}

// The bytes of count pixels from the first one on. Of any other number of channels the grey values are all 0.
void stretch_to_bytes(const Matf& img, std::size_t first, std::size_t count, float low, float scale,
                      std::uint8_t* out) noexcept
{
    if (img.channels == 1)
        panoval::stretch_single(img.data + first, count, low, scale, out);
    else if (img.channels == 3)
        panoval::stretch_grey(img.data + 3 * first, count, low, scale, out);
    else
        std::fill_n(out, count, std::uint8_t{0});
}

} // namespace

extern "C" {

void write_pgm(const std::uint8_t* data, std::int32_t width, std::int32_t height, const char* name)
{
    const File file = open_file_utf8(name, "wb");
    if (!file)
        return;
    write_header(file.get(), width, height);
    const std::size_t pixels = to_count(wrapping_mul(width, height));
    if (pixels > 0)
        std::fwrite(data, 1, pixels, file.get());
}

void write_pgm_float(const float* data, std::int32_t width, std::int32_t height, const char* name)
{
    write_stretched(data, width, height, name);
}

void write_pgm_short(const std::int16_t* data, std::int32_t width, std::int32_t height, const char* name)
{
    write_stretched(data, width, height, name);
}

void write_fpgm(const Matf* img, const char* name)
{
    const File file = open_file_utf8(name, "wb");
    if (!file)
        return;
    write_header(file.get(), img->width, img->height);
    const std::size_t pixels = to_count(wrapping_mul(img->width, img->height));
    float low = 1e10f;
    float high = 0.0f; // never below: negative pictures are stretched against 0 on purpose
    widen_to_grey(*img, pixels, low, high);
    const float scale = 255.0f / (high - low);
    write_in_tiles(file.get(), pixels, [&](std::size_t first, std::size_t count, std::uint8_t* out) {
        stretch_to_bytes(*img, first, count, low, scale, out);
    });
}

} // extern "C"
