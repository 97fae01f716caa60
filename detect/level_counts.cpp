// SPDX-License-Identifier: MIT
// Counting in several tables at once. Neighbouring pixels are often equal: eight of them in a row have a table each, so
// that no counter waits for the one before it.
#include "detect/level_counts.h"

#include <cstring>
#include <utility>

namespace panoval
{
namespace
{

// The padding keeps counters of one level in different tables from sharing the low 12 bits of their addresses, by which
// processors take one for the other.
constexpr std::size_t kTables = 8;
constexpr std::size_t kPadding = 16;
constexpr std::size_t kStep = 16;

struct Counters {
    std::uint32_t table[kTables][kGreyLevels + kPadding];
};

// Written out pixel by pixel: as a loop it is only half as fast.
template <std::size_t... Pixel>
inline void count_step(const std::uint8_t* pixels, Counters& counters, std::index_sequence<Pixel...>)
{
    (++counters.table[Pixel % kTables][pixels[Pixel]], ...);
}

void count_row(const std::uint8_t* pixels, std::size_t count, Counters& counters)
{
    std::size_t i = 0;
    for (; i + kStep <= count; i += kStep)
        count_step(pixels + i, counters, std::make_index_sequence<kStep>());
    for (; i < count; ++i)
        ++counters.table[i % kTables][pixels[i]];
}

} // namespace

void count_levels(const std::uint8_t* pixels, std::size_t stride, std::size_t width, std::size_t rows,
                  std::uint32_t* counts)
{
    Counters counters;
    std::memset(&counters, 0, sizeof counters);
    for (std::size_t y = 0; y < rows; ++y)
        count_row(pixels + y * stride, width, counters);
    const auto& t = counters.table;
    static_assert(kTables == 8);
    for (std::size_t i = 0; i < kGreyLevels; ++i) // in one expression, which compilers turn into vectors
        counts[i] = t[0][i] + t[1][i] + t[2][i] + t[3][i] + t[4][i] + t[5][i] + t[6][i] + t[7][i];
}

} // namespace panoval
