// SPDX-License-Identifier: MIT
#include "mosaic/base/level_windows.h"

#include <cstddef>

namespace panoval::mosaic
{

namespace
{

std::int64_t level_size(std::int64_t size, std::size_t level)
{
    return size >> level;
}

std::vector<Interval> picture_intervals(std::vector<Interval> products, std::int64_t size)
{
    std::vector<Interval> needed(products.size());
    for (std::size_t i = products.size(); i-- > 0;) {
        Interval interval = products[i];
        if (i > 0)
            interval = bounding(interval, expanded_from(products[i - 1]));
        if (i + 1 < products.size())
            interval = to_even(bounding(interval, reduced_from(needed[i + 1])));
        needed[i] = intersect(interval, {0, level_size(size, i)});
    }
    return needed;
}

} // namespace

std::vector<Window> collapse_windows(const Window& tile, int bands, std::int64_t width, std::int64_t height)
{
    std::vector<Window> windows{tile};
    for (int i = 1; i <= bands; ++i) {
        const auto level = static_cast<std::size_t>(i);
        windows.push_back({intersect(expanded_from(windows.back().columns), {0, level_size(width, level)}),
                           intersect(expanded_from(windows.back().rows), {0, level_size(height, level)})});
    }
    return windows;
}

std::vector<Window> picture_windows(const std::vector<Window>& products, std::int64_t width, std::int64_t height)
{
    std::vector<Interval> columns;
    std::vector<Interval> rows;
    for (const Window& window : products) {
        columns.push_back(window.is_empty() ? Interval{} : window.columns);
        rows.push_back(window.is_empty() ? Interval{} : window.rows);
    }
    columns = picture_intervals(std::move(columns), width);
    rows = picture_intervals(std::move(rows), height);
    std::vector<Window> windows;
    for (std::size_t i = 0; i < products.size(); ++i)
        windows.push_back({columns[i], rows[i]});
    return windows;
}

} // namespace panoval::mosaic
