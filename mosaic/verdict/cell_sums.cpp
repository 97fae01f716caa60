// SPDX-License-Identifier: MIT
#include "mosaic/verdict/cell_sums.h"

#include "mosaic/verdict/cell_rows.h"

#include <algorithm>

namespace panoval::mosaic
{

void CellSummer::add(const CellStrip& strip, std::uint64_t* sums, std::uint8_t* clipped, std::uint8_t bit)
{
    CellStrip part = strip;
    for (std::size_t done = 0; done < strip.rows.size(); done += part.rows.size()) {
        part.rows = strip.rows.subspan(done, std::min(kMostCellRows, strip.rows.size() - done));
        if (strip.sample_bytes == 1)
            add_rows(part, of_bytes_, sums, clipped, bit);
        else
            add_rows(part, of_words_, sums, clipped, bit);
    }
}

template <class Sample, class Sum>
void CellSummer::add_rows(const CellStrip& strip, Columns<Sample, Sum>& columns, std::uint64_t* sums,
                          std::uint8_t* clipped, std::uint8_t bit)
{
    const std::size_t channels = strip.channels;
    const std::size_t samples = strip.width * channels;
    columns.sums.assign(samples, 0);
    columns.most.assign(samples, 0);
    for (const std::uint8_t* const row : strip.rows)
        sum_cell_row(reinterpret_cast<const Sample*>(row), samples, columns.sums.data(), columns.most.data());

    std::size_t folded = 1; // columns that each sum stands for
    const auto add_to = [&](std::size_t cell, std::size_t first, std::size_t end) {
        Sample largest = 0;
        for (std::size_t x = first; x < end; x += folded)
            for (std::size_t c = 0; c < channels; ++c) {
                sums[cell * channels + c] += columns.sums[x * channels + c];
                largest = std::max(largest, columns.most[x * channels + c]);
            }
        if (largest == static_cast<Sample>(~Sample{0}))
            clipped[cell] = static_cast<std::uint8_t>(clipped[cell] | bit);
    };
    const std::size_t whole = strip.width / strip.step;
    if (whole * strip.step < strip.width)
        add_to(whole, whole * strip.step, strip.width);
    for (; folded < std::min(strip.step, kMostFolded); folded *= 2)
        fold_cell_columns(samples, folded * channels, columns.sums.data(), columns.most.data());
    for (std::size_t cell = 0; cell < whole; ++cell)
        add_to(cell, cell * strip.step, (cell + 1) * strip.step);
}

} // namespace panoval::mosaic
