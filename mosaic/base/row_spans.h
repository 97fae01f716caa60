// SPDX-License-Identifier: MIT
// Of each row of a level the columns that are of interest: what is near a seam, which winds. Of several pieces of a row
// it is what spans them.
#pragma once

#include "mosaic/base/level_windows.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

class RowSpans
{
public:
    RowSpans() = default;
    explicit RowSpans(Interval rows) { reset(rows); }
    // Each of the window's rows with all its columns.
    explicit RowSpans(const Window& window) : RowSpans(window.rows)
    {
        for (Interval& span : spans_)
            span = window.columns;
    }

    // Rows without any columns.
    void reset(Interval rows)
    {
        rows_ = rows.is_empty() ? Interval{} : rows;
        spans_.assign(static_cast<std::size_t>(rows_.length()), {});
    }

    Interval rows() const { return rows_; }

    // Empty outside of the rows.
    Interval at(std::int64_t y) const
    {
        return rows_.contains(y) ? spans_[static_cast<std::size_t>(y - rows_.first)] : Interval{};
    }

    // Nothing outside of the rows.
    void add(std::int64_t y, Interval columns)
    {
        if (!rows_.contains(y) || columns.is_empty())
            return;
        Interval& span = spans_[static_cast<std::size_t>(y - rows_.first)];
        span = bounding(span, columns);
    }

    void add(const RowSpans& other)
    {
        for (std::int64_t y = other.rows_.first; y < other.rows_.end; ++y)
            add(y, other.at(y));
    }

    Window bounds() const;
    RowSpans cut(const Window& window) const;

private:
    Interval rows_;
    std::vector<Interval> spans_;
};

// As picture_windows and collapse_windows, row by row.
//
// What has to be known of a picture on every level, so that its bands can be told where `products` wants them; a row's
// columns begin and end on even pixels on all levels but the coarsest. size: of level 0, multiples of 2 to the power of
// bands.
std::vector<RowSpans> picture_spans(const std::vector<RowSpans>& products, std::int64_t width, std::int64_t height);

// What of every level collapses to anything where only `sums` are not 0, and what is read for that; parts of the
// windows.
std::vector<RowSpans> collapse_spans(const std::vector<RowSpans>& sums, const std::vector<Window>& windows);

} // namespace panoval::mosaic
