// SPDX-License-Identifier: MIT
// Sums and maxima down the columns of rows, and across, as they are defined.
#pragma once

#include <algorithm>
#include <cstddef>

namespace panoval::reference
{

template <class Sample, class Sum>
void sum_cell_row(const Sample* row, std::size_t count, Sum* sums, Sample* most)
{
    for (std::size_t i = 0; i < count; ++i) {
        sums[i] = static_cast<Sum>(sums[i] + row[i]);
        most[i] = std::max(most[i], row[i]);
    }
}

template <class Sum, class Sample>
void fold_cell_columns(std::size_t count, std::size_t distance, Sum* sums, Sample* most)
{
    for (std::size_t i = 0; i + distance < count; ++i) {
        sums[i] = static_cast<Sum>(sums[i] + sums[i + distance]);
        most[i] = std::max(most[i], most[i + distance]);
    }
}

} // namespace panoval::reference
