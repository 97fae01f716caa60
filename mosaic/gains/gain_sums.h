// SPDX-License-Identifier: MIT
// What two pictures show of the same pixels, summed down the columns of a few rows: the whole arithmetic that the gains
// need of every sample. Sums are exact integers, so their order does not matter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// One row of samples that both pictures have, channels interleaved.
template <class Sample>
struct GainRow {
    const Sample* first;
    const Sample* second;
    const Sample* mask; // not 0 where both pictures are covered; one for each sample
    std::size_t count;  // of samples
    Sample bound;       // a sample counts if it is below that in both pictures
};

// How often one of the pictures alone is at or above the bound where both are covered.
struct BoundCounts {
    std::uint64_t first = 0;
    std::uint64_t second = 0;
    friend bool operator==(const BoundCounts&, const BoundCounts&) = default;
};

// Sums of each column since the last clear(). At most kRows rows fit.
template <class Sum>
struct ColumnSums {
    static constexpr std::size_t kRows = 255;

    std::vector<Sum> first;
    std::vector<Sum> second;
    std::vector<Sum> used; // number of samples that count
    BoundCounts bright;

    void clear(std::size_t count)
    {
        first.assign(count, 0);
        second.assign(count, 0);
        used.assign(count, 0);
        bright = {};
    }
};

using ColumnSums8 = ColumnSums<std::uint16_t>;
using ColumnSums16 = ColumnSums<std::uint32_t>;

void add_gain_row(const GainRow<std::uint8_t>& row, ColumnSums8& sums);
void add_gain_row(const GainRow<std::uint16_t>& row, ColumnSums16& sums);

} // namespace panoval::mosaic
