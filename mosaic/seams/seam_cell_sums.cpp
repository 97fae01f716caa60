// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_cell_sums.h"

#include "mosaic/seams/seam_rows.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <type_traits>
#include <utility>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kShortSpan = 32; // columns, for which vectors do not pay

// Calls work(first, end, cell) for the columns of a part of the picture, first and end counted from its own.
template <class Work>
void for_each_cell(const std::vector<CellColumn>& columns, const Rect& part, const Work& work)
{
    auto at = std::partition_point(columns.begin(), columns.end(),
                                   [&](const CellColumn& column) { return column.end <= part.x; });
    for (; at != columns.end() && at->first < part.right(); ++at)
        work(std::max(at->first - part.x, std::int64_t{0}), std::min(at->end, part.right()) - part.x, at->cell);
}

template <std::size_t kChannels, class Sample>
void add_difference(const Sample* a, const Sample* b, CellSums& sums)
{
    for (std::size_t c = 0; c < kChannels; ++c)
        sums.rough += std::abs(std::int32_t{a[c]} - b[c]);
    ++sums.differences;
}

// What a span of a view's columns holds of whole cells, or of all that the view has of them.
Span whole_cells(const std::vector<CellColumn>& columns, const Rect& block, const Span& span)
{
    const auto first_of = [&](const CellColumn& column) { return std::max(column.first - block.x, std::int64_t{0}); };
    const auto end_of = [&](const CellColumn& column) { return std::min(column.end - block.x, block.width); };
    const auto first = std::partition_point(columns.begin(), columns.end(),
                                            [&](const CellColumn& column) { return first_of(column) < span.first; });
    const auto end = std::partition_point(first, columns.end(),
                                          [&](const CellColumn& column) { return end_of(column) <= span.end; });
    return first == end ? Span{span.first, span.first} : Span{first_of(*first), end_of(*(end - 1))};
}

// The columns of the picture that these ones of a view are.
Rect part_of(const PictureView& view, const Span& columns)
{
    return {view.rect().x + columns.first, view.rect().y, columns.end - columns.first, view.rect().height};
}

void sum_samples(const std::uint8_t* row, const std::uint8_t* below, std::size_t count, std::size_t step,
                 std::uint16_t* sums, std::uint16_t* rough)
{
    sum_row(row, below, count, step, sums, rough);
}
void sum_samples(const std::uint16_t* row, const std::uint16_t* below, std::size_t count, std::size_t step,
                 std::uint32_t* sums, std::uint32_t* rough)
{
    const auto distance = [](std::uint32_t a, std::uint32_t b) { return a > b ? a - b : b - a; };
    for (std::size_t i = 0; i < count; ++i)
        sums[i] += row[i];
    for (std::size_t i = 0; i + step < count; ++i)
        rough[i] += distance(row[i], row[i + step]);
    for (std::size_t i = 0; below != nullptr && i < count; ++i)
        rough[i] += distance(row[i], below[i]);
}

// Samples begin to stop - 1 of the rows' sums, sizeof...(C) a pixel.
template <std::size_t... C, class Sum>
void add_columns(std::index_sequence<C...>, const Sum* samples, const Sum* rough, std::size_t begin, std::size_t stop,
                 CellSums& to)
{
    std::array<std::int64_t, sizeof...(C)> sum{};
    std::array<std::int64_t, sizeof...(C)> rough_sum{};
    for (std::size_t i = begin; i < stop; i += sizeof...(C))
        ((sum[C] += samples[i + C], rough_sum[C] += rough[i + C]), ...); // no loop, so that sums stay in registers
    ((to.samples[C] += sum[C], to.rough += rough_sum[C]), ...);
}

// Whole cells that are covered throughout.
template <class Sample, std::size_t kChannels, class Sum>
void add_rows(const PictureView& view, const Span& rows, const Span& part, std::vector<Sum>& samples,
              std::vector<Sum>& rough, CellRow& scratch)
{
    const auto samples_of = [&](std::int64_t y) {
        return reinterpret_cast<const Sample*>(view.row(y)) + static_cast<std::size_t>(part.first) * kChannels;
    };
    const std::int64_t width = part.end - part.first;
    const auto count = static_cast<std::size_t>(width) * kChannels;
    samples.assign(count, 0);
    rough.assign(count, 0);
    for (std::int64_t y = rows.first; y < rows.end; ++y)
        sum_samples(samples_of(y), y + 1 < rows.end ? samples_of(y + 1) : nullptr, count, kChannels, samples.data(),
                    rough.data());
    const std::int64_t height = rows.end - rows.first;
    for_each_cell(scratch.columns, part_of(view, part), [&](std::int64_t first, std::int64_t end, std::size_t cell) {
        CellSums& to = scratch.cells[cell];
        add_columns(std::make_index_sequence<kChannels>(), samples.data(), rough.data(),
                    static_cast<std::size_t>(first) * kChannels, static_cast<std::size_t>(end) * kChannels, to);
        to.pixels += (end - first) * height;
        const std::int64_t across = end < width ? end - first : end - first - 1;
        to.differences += across * height + (end - first) * (height - 1);
        if (end == width && part.end < view.rect().width)
            for (std::int64_t y = rows.first; y < rows.end; ++y)
                if (const Sample* const beyond = samples_of(y) + count; view.mask_row(y)[part.end] != 0)
                    add_difference<kChannels>(beyond - kChannels, beyond, to);
    });
}

// Columns some of whose pixels are not covered.
template <class Sample, std::size_t kChannels>
void add_pixels(const PictureView& view, const Span& rows, const Span& part, CellRow& scratch)
{
    for (std::int64_t y = rows.first; y < rows.end && part.first < part.end; ++y) {
        const bool has_below = y + 1 < rows.end;
        const std::uint8_t* const mask = view.mask_row(y);
        const std::uint8_t* const mask_below = view.mask_row(has_below ? y + 1 : y);
        const auto* const row = reinterpret_cast<const Sample*>(view.row(y));
        const auto* const below = reinterpret_cast<const Sample*>(view.row(has_below ? y + 1 : y));
        for_each_cell(scratch.columns, part_of(view, part),
                      [&](std::int64_t first, std::int64_t end, std::size_t cell) {
                          CellSums& to = scratch.cells[cell];
                          for (std::int64_t x = part.first + first; x < part.first + end; ++x) {
                              if (mask[x] == 0)
                                  continue;
                              const Sample* const at = row + static_cast<std::size_t>(x) * kChannels;
                              for (std::size_t c = 0; c < kChannels; ++c)
                                  to.samples[c] += at[c];
                              ++to.pixels;
                              if (x + 1 < view.rect().width && mask[x + 1] != 0)
                                  add_difference<kChannels>(at, at + kChannels, to);
                              if (has_below && mask_below[x] != 0)
                                  add_difference<kChannels>(at, below + static_cast<std::size_t>(x) * kChannels, to);
                          }
                      });
    }
}

template <class Sample, class Sum>
void add_samples(const PictureView& view, const Span& rows, std::vector<Sum>& samples, std::vector<Sum>& rough,
                 std::size_t channel_count, CellRow& scratch)
{
    const auto add = [&](auto channels) {
        constexpr std::size_t kChannels = decltype(channels)::value;
        std::int64_t done = 0;
        for (const Span& span : scratch.covered_spans) {
            const Span part = whole_cells(scratch.columns, view.rect(), span);
            if (part.end - part.first < kShortSpan && part.end - part.first < view.rect().width)
                continue;
            add_pixels<Sample, kChannels>(view, rows, {done, part.first}, scratch);
            add_rows<Sample, kChannels>(view, rows, part, samples, rough, scratch);
            done = part.end;
        }
        add_pixels<Sample, kChannels>(view, rows, {done, view.rect().width}, scratch);
    };
    if (channel_count == 1)
        add(std::integral_constant<std::size_t, 1>());
    else if (channel_count == 3)
        add(std::integral_constant<std::size_t, 3>());
    else
        add(std::integral_constant<std::size_t, 4>());
}

} // namespace

void keep_covered(const std::uint8_t* mask, CellRow& row)
{
    std::swap(row.covered_spans, row.earlier_spans);
    row.covered_spans.clear();
    for (const Span& span : row.earlier_spans) {
        const std::uint8_t* const stop = mask + span.end;
        const auto covers = [](std::uint8_t value) { return value != 0; };
        for (const std::uint8_t* at = std::find_if(mask + span.first, stop, covers); at != stop;) {
            const void* const hole = std::memchr(at, 0, static_cast<std::size_t>(stop - at));
            const std::uint8_t* const end = hole != nullptr ? static_cast<const std::uint8_t*>(hole) : stop;
            row.covered_spans.push_back({at - mask, end - mask});
            at = std::find_if(end, stop, covers);
        }
    }
}

void add_to_cells(const PictureView& view, const Span& rows, bool has_mask, std::size_t channels, CellRow& row)
{
    row.covered_spans.assign(1, {0, view.rect().width});
    if (has_mask)
        for (std::int64_t y = rows.first; y < rows.end; ++y)
            keep_covered(view.mask_row(y), row);
    if (view.sample_bytes() == 1)
        add_samples<std::uint8_t>(view, rows, row.sums, row.rough, channels, row);
    else
        add_samples<std::uint16_t>(view, rows, row.wide_sums, row.wide_rough, channels, row);
}

} // namespace panoval::mosaic
