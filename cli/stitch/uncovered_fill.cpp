// SPDX-License-Identifier: MIT
#include "cli/stitch/uncovered_fill.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace panoval::cli
{

namespace
{

// Pixels first to last (excluded) of one row, between the covered pixels before and after them, if there are any.
template <class Sample>
void fill_run(Sample* row, std::size_t channels, std::size_t width, std::size_t first, std::size_t last)
{
    const bool has_left = first > 0;
    const bool has_right = last < width;
    for (std::size_t c = 0; c < channels; ++c) {
        const Sample left = has_left ? row[(first - 1) * channels + c] : row[last * channels + c];
        const Sample right = has_right ? row[last * channels + c] : left;
        const auto steps = static_cast<std::int64_t>(last - first + 1);
        for (std::size_t x = first; x < last; ++x) {
            const auto step = static_cast<std::int64_t>(x - first + 1);
            row[x * channels + c] =
                static_cast<Sample>((std::int64_t{left} * (steps - step) + std::int64_t{right} * step) / steps);
        }
    }
}

const std::uint8_t* find_uncovered(const std::uint8_t* begin, const std::uint8_t* end)
{
    const void* const at = std::memchr(begin, 0, static_cast<std::size_t>(end - begin));
    return at != nullptr ? static_cast<const std::uint8_t*>(at) : end;
}

// False where the row has no covered pixel.
template <class Sample>
bool fill_row(Sample* row, const std::uint8_t* mask, std::size_t channels, std::size_t width)
{
    const auto is_covered = [](std::uint8_t value) { return value != 0; };
    const std::uint8_t* const end = mask + width;
    const std::uint8_t* at = find_uncovered(mask, end);
    while (at != end) {
        const std::uint8_t* const next = std::find_if(at, end, is_covered);
        if (at == mask && next == end)
            return false;
        fill_run(row, channels, width, static_cast<std::size_t>(at - mask), static_cast<std::size_t>(next - mask));
        at = find_uncovered(next, end);
    }
    return true;
}

bool fill_row_of(Image& image, std::int32_t y)
{
    const auto width = static_cast<std::size_t>(image.width);
    const auto channels = static_cast<std::size_t>(image.channels);
    const std::uint8_t* const mask = image.mask.get() + static_cast<std::size_t>(y) * width;
    if (image.bits == 16)
        return fill_row(reinterpret_cast<std::uint16_t*>(image.row(y)), mask, channels, width);
    return fill_row(image.row(y), mask, channels, width);
}

} // namespace

void fill_uncovered(Image& image)
{
    if (image.mask == nullptr)
        return;
    std::vector<std::int32_t> filled; // rows with colours, from the top
    for (std::int32_t y = 0; y < image.height; ++y)
        if (fill_row_of(image, y))
            filled.push_back(y);
    if (filled.empty())
        return;
    auto below = filled.begin(); // the first filled row at y or further down
    for (std::int32_t y = 0; y < image.height; ++y) {
        below = std::find_if(below, filled.end(), [y](std::int32_t row) { return row >= y; });
        if (below != filled.end() && *below == y)
            continue;
        const bool has_above = below != filled.begin();
        const bool has_below = below != filled.end();
        const std::int32_t nearest =
            !has_below || (has_above && y - *(below - 1) <= *below - y) ? *(below - 1) : *below;
        std::memcpy(image.row(y), image.row(nearest), image.row_bytes());
    }
}

} // namespace panoval::cli
