// SPDX-License-Identifier: MIT
#include "mosaic/base/row_spans.h"

#include <algorithm>

namespace panoval::mosaic
{

namespace
{

// Rows of the coarser level that a band of a level's rows is told from.
void add_expanded_from(const RowSpans& fine, std::int64_t coarse_height, RowSpans& coarse)
{
    const Interval rows = fine.rows();
    for (std::int64_t y = rows.first; y < rows.end; ++y) {
        const Interval columns = expanded_from(fine.at(y));
        if (columns.is_empty())
            continue;
        for (std::int64_t row = half(y) - 1; row <= half(y) + 1; ++row)
            coarse.add(row < 0 ? std::min<std::int64_t>(1, coarse_height - 1) : std::min(row, coarse_height - 1),
                       columns);
    }
}

// Rows of the finer level that a level's rows are reduced from.
void add_reduced_from(const RowSpans& coarse, std::int64_t fine_height, RowSpans& fine)
{
    const Interval rows = coarse.rows();
    for (std::int64_t y = rows.first; y < rows.end; ++y) {
        const Interval columns = reduced_from(coarse.at(y));
        if (columns.is_empty())
            continue;
        for (std::int64_t row = 2 * y - 2; row <= 2 * y + 2; ++row)
            fine.add(mirrored(row, fine_height), columns);
    }
}

Interval within(Interval columns, std::int64_t width, bool is_even)
{
    return intersect(is_even ? to_even(columns) : columns, {0, width});
}

} // namespace

Window RowSpans::bounds() const
{
    Window bounds;
    for (std::int64_t y = rows_.first; y < rows_.end; ++y) {
        const Interval columns = at(y);
        if (columns.is_empty())
            continue;
        bounds.columns = bounding(bounds.columns, columns);
        bounds.rows = bounding(bounds.rows, {y, y + 1});
    }
    return bounds;
}

RowSpans RowSpans::cut(const Window& window) const
{
    RowSpans part(intersect(rows_, window.rows));
    for (std::int64_t y = part.rows_.first; y < part.rows_.end; ++y)
        part.add(y, intersect(at(y), window.columns));
    return part;
}

std::vector<RowSpans> picture_spans(const std::vector<RowSpans>& products, std::int64_t width, std::int64_t height)
{
    std::vector<Window> bounds;
    bounds.reserve(products.size());
    for (const RowSpans& level : products)
        bounds.push_back(level.bounds());
    const std::vector<Window> windows = picture_windows(bounds, width, height);
    std::vector<RowSpans> needed(products.size());
    for (std::size_t i = products.size(); i-- > 0;) {
        RowSpans spans(windows[i].rows);
        spans.add(products[i]);
        if (i > 0)
            add_expanded_from(products[i - 1], height >> i, spans);
        if (i + 1 < products.size())
            add_reduced_from(needed[i + 1], height >> i, spans);
        needed[i].reset(windows[i].rows);
        for (std::int64_t y = windows[i].rows.first; y < windows[i].rows.end; ++y)
            needed[i].add(y, within(spans.at(y), width >> i, i + 1 < products.size()));
    }
    return needed;
}

std::vector<RowSpans> collapse_spans(const std::vector<RowSpans>& sums, const std::vector<Window>& windows)
{
    std::vector<RowSpans> collapsed(sums.size());
    for (std::size_t i = sums.size(); i-- > 0;) {
        RowSpans& level = collapsed[i];
        level.reset(windows[i].rows);
        level.add(sums[i]);
        if (i + 1 == sums.size())
            continue;
        const RowSpans& coarser = collapsed[i + 1];
        for (std::int64_t y = coarser.rows().first; y < coarser.rows().end; ++y) {
            const Interval columns = intersect(reduced_from(coarser.at(y)), windows[i].columns);
            for (std::int64_t row = 2 * y - 2; row <= 2 * y + 2; ++row)
                level.add(row, columns);
        }
    }
    for (std::size_t i = 1; i < sums.size(); ++i) {
        RowSpans read(windows[i].rows);
        add_expanded_from(collapsed[i - 1], windows[i].rows.end, read);
        collapsed[i].add(read.cut(windows[i]));
    }
    return collapsed;
}

} // namespace panoval::mosaic
