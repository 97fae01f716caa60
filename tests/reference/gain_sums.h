// SPDX-License-Identifier: MIT
// Column sums of two pictures' common samples, as plain as they can be written.
#pragma once

#include "mosaic/gains/gain_sums.h"

#include <cstddef>

namespace panoval::reference
{

template <class Sample, class Sum>
void add_gain_row(const mosaic::GainRow<Sample>& row, mosaic::ColumnSums<Sum>& sums)
{
    for (std::size_t i = 0; i < row.count; ++i) {
        if (row.mask[i] == 0)
            continue;
        const bool is_first_bright = row.first[i] >= row.bound;
        const bool is_second_bright = row.second[i] >= row.bound;
        sums.bright.first += is_first_bright ? 1 : 0;
        sums.bright.second += is_second_bright ? 1 : 0;
        if (is_first_bright || is_second_bright)
            continue;
        sums.first[i] = static_cast<Sum>(sums.first[i] + row.first[i]);
        sums.second[i] = static_cast<Sum>(sums.second[i] + row.second[i]);
        sums.used[i] = static_cast<Sum>(sums.used[i] + 1);
    }
}

} // namespace panoval::reference
