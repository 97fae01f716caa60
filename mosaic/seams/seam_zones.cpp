// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_zones.h"

#include <algorithm>
#include <utility>

namespace panoval::mosaic
{

namespace
{

// How often the canvas is to be laid beside itself on either side.
std::int64_t turns_of(const Layout& layout, const Rect& rect)
{
    return layout.wraps ? rect.width / layout.width + 2 : 0;
}

void look_at_row(Share& share, const Rect& part, const LabelRuns& labels, std::int64_t y)
{
    for (const LabelRun& run : labels.row(y, part.x, part.right())) {
        const Interval columns = intersect(Interval{run.first, run.end}, {part.x, part.right()});
        (run.label == share.label() ? share.owned : share.others).add(y, columns);
    }
}

// Rows of blocks of 2^i pixels; columns stay pixels. There is a row at least.
RowSpans rows_of_blocks(const RowSpans& pixels, std::int64_t top, int i)
{
    const Interval rows = pixels.rows();
    RowSpans blocks(Interval{(rows.first - top) >> i, ((rows.end - 1 - top) >> i) + 1});
    for (std::int64_t y = rows.first; y < rows.end; ++y)
        blocks.add((y - top) >> i, pixels.at(y));
    return blocks;
}

// Of row y of level i, the columns whose pixels see any of the blocks: up to `reach` pixels away.
Interval columns_that_see(const RowSpans& blocks, std::int64_t y, int i, std::int64_t left, std::int64_t reach)
{
    const std::int64_t at = y << i;
    Interval seen;
    for (std::int64_t row = (at - reach) >> i; row <= (at + reach) >> i; ++row)
        seen = bounding(seen, blocks.at(row));
    if (seen.is_empty())
        return {};
    return {(seen.first - left - reach) >> i, ((seen.end - left + reach) >> i) + 1};
}

// Pixel X of level i is made of level 0 up to 2 (2^i - 1) pixels away; its band sees the coarser level on either side.
std::vector<RowSpans> products_of(const Share& share, const TileLevels& levels)
{
    const Rect& frame = levels.frame();
    std::vector<RowSpans> products;
    for (int i = 0; i <= levels.bands(); ++i) {
        const Window& window = levels.windows()[static_cast<std::size_t>(i)];
        const std::int64_t unit = std::int64_t{1} << i;
        const std::int64_t own_reach = 2 * unit - 2;
        const std::int64_t band_reach = i < levels.bands() ? 6 * unit - 2 : own_reach;
        const RowSpans owned = rows_of_blocks(share.owned, frame.y, i);
        const RowSpans others = rows_of_blocks(share.others, frame.y, i);
        RowSpans& met = products.emplace_back(window.rows);
        for (std::int64_t y = window.rows.first; y < window.rows.end; ++y)
            met.add(y, intersect(intersect(columns_that_see(owned, y, i, frame.x, own_reach),
                                           columns_that_see(others, y, i, frame.x, band_reach)),
                                 window.columns));
    }
    return products;
}

RowSpans shown_in(const RowSpans& needed, const Rect& frame, const RowSpans& others)
{
    RowSpans shown(others.rows());
    for (std::int64_t y = others.rows().first; y < others.rows().end; ++y) {
        const Interval columns = needed.at(y - frame.y);
        if (!columns.is_empty())
            shown.add(y, intersect(Interval{columns.first + frame.x, columns.end + frame.x}, others.at(y)));
    }
    return shown;
}

} // namespace

std::vector<Share> find_shares(const Layout& layout, const LabelRuns& labels)
{
    std::vector<Share> shares;
    const std::int64_t turns = turns_of(layout, labels.rect());
    for (std::size_t i = 0; i < layout.pictures.size(); ++i)
        for (std::int64_t turn = -turns; turn <= turns; ++turn) {
            const Rect rect = layout.pictures[i].rect.moved(turn * layout.width, 0);
            const Rect part = intersect(rect, labels.rect());
            if (part.is_empty())
                continue;
            const Interval rows{part.y, part.bottom()};
            Share share{i, rect, RowSpans(rows), RowSpans(rows)};
            for (std::int64_t y = part.y; y < part.bottom(); ++y)
                look_at_row(share, part, labels, y);
            if (!share.owned.bounds().is_empty())
                shares.push_back(std::move(share));
        }
    return shares;
}

std::vector<SeamZone> find_zones(const std::vector<Share>& shares, const TileLevels& levels)
{
    std::vector<SeamZone> zones;
    const Rect& frame = levels.frame();
    for (const Share& share : shares) {
        if (share.others.bounds().is_empty())
            continue;
        SeamZone zone{&share, products_of(share, levels), {}, {}};
        zone.needed = picture_spans(zone.products, frame.width, frame.height);
        zone.shown = shown_in(zone.needed[0], frame, share.others);
        if (!zone.shown.bounds().is_empty())
            zones.push_back(std::move(zone));
    }
    return zones;
}

} // namespace panoval::mosaic
