// SPDX-License-Identifier: MIT
#include "mosaic/tiles/tile_scratch.h"

#include "blend/blender_settings.h"
#include "blend/pyramid_rows.h"
#include "mosaic/base/level_windows.h"
#include "mosaic/pictures/prepared_rows.h"
#include "mosaic/seams/label_runs.h"
#include "mosaic/tiles/library_blend.h"

#include <algorithm>
#include <cmath>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kFloatBytes = sizeof(float);
constexpr std::int64_t kSpanBytes = sizeof(Interval);
constexpr std::int64_t kRunBytes = sizeof(LabelRun);

// Rows of each level that BandWindow keeps, counted in whole ones of samples and weights: as they are, filtered to half
// the width, expanded from the coarser level; and a row for weights that nobody keeps.
constexpr std::int64_t kBandRows = (3 * kReducedRows + 1) / 2 + kExpandedRows + 1;

// A vector that grows by itself has up to twice the room that it needs.
constexpr std::int64_t kGrowing = 2;

// RowSpans over all rows that are seen, those of all levels together counting as two: of a share what it owns and shows
// of others, products, what these need, and what is shown there; besides, of the level sums what is collapsed, what is
// corrected and composed, a picture's products and needs once more, and what is on the way to them.
constexpr std::int64_t kSpansOfShare = 7;
constexpr std::int64_t kSpansOfTile = 10;

// The coarser level's part that a side of so many pixels is expanded from, see expanded_from.
std::int64_t expanded_side(std::int64_t side)
{
    return side / 2 + 3;
}

} // namespace

TileScratch::TileScratch(const Layout& layout, int bands) : layout_(layout), bands_(bands)
{
    for (const PlacedPicture& picture : layout.pictures) {
        const Rect& rect = picture.rect;
        if (picture.has_mask)
            filled_row_ = std::max(filled_row_, rect.width);
        widest_ = std::max(widest_, rect.width);
        highest_ = std::max(highest_, rect.height);
        picture_widths_ += static_cast<double>(rect.width);
        picture_heights_ += static_cast<double>(rect.height);
        picture_pixels_ += static_cast<double>(rect.pixels());
    }
}

// Pictures that meet a rectangle of this size: twice as many as on average over all of its places, and a few. Where
// pictures lie one above the other here and there only, it may be more; each takes little.
std::int64_t TileScratch::shares_near(const Rect& seen) const
{
    constexpr std::int64_t kFew = 2;
    const auto pictures = static_cast<double>(layout_.pictures.size());
    const auto width = static_cast<double>(seen.width);
    const auto height = static_cast<double>(seen.height);
    const double places = static_cast<double>(layout_.width) * static_cast<double>(layout_.height);
    const double meetings =
        picture_pixels_ + picture_widths_ * height + picture_heights_ * width + pictures * width * height;
    const double usual = std::min(meetings / std::max(places, 1.0), pictures);
    const double turns = layout_.wraps ? 3 : 1; // of the canvas, each with all pictures
    return static_cast<std::int64_t>(std::min(std::floor(2 * usual) + kFew, pictures * turns));
}

std::size_t TileScratch::composite_bytes(std::int64_t width, std::int64_t height) const
{
    const std::int64_t channels = layout_.channels;
    const std::int64_t reach = farthest_reach(bands_);
    const Rect around{0, 0, width + 2 * reach, height + 2 * reach};
    // A canvas that goes round is laid beside itself.
    const Rect seen{0, 0, layout_.wraps ? around.width : std::min(around.width, layout_.width),
                    std::min(around.height, layout_.height)};
    const std::int64_t shares = shares_near(seen);
    const std::int64_t composite = seen.pixels() * channels * kFloatBytes;
    const std::int64_t block = seen.pixels() * (layout_.pixel_bytes() + 1);
    // Of each level how much is covered: a third more than the finest; half of that, filtered across.
    const std::int64_t covered = (around.pixels() * 4 / 3 + around.pixels() / 2) * kFloatBytes;
    const std::int64_t spans = around.height * (shares * kSpansOfShare + kSpansOfTile) * kSpanBytes;
    const std::int64_t labels =
        kGrowing * seen.height * (std::int64_t{sizeof(std::size_t)} + (2 * shares + 1) * kRunBytes);
    // Of corrected samples, and of the coarser level on its way to the finest one.
    const std::int64_t rows = (1 + std::int64_t{kExpandedRows}) * around.width * channels * kFloatBytes;
    std::int64_t bytes = composite + block + covered + spans + labels + rows;
    for (int i = 0; i <= bands_; ++i) {
        bytes += width * height * channels * kFloatBytes;
        bytes += kBandRows * (around.width >> i) * (channels + 1) * kFloatBytes;
        width = expanded_side(width);
        height = expanded_side(height);
    }
    return to_size(bytes);
}

std::size_t TileScratch::bands_bytes(std::int64_t width, std::int64_t height) const
{
    constexpr std::int64_t kSpansBytes = 4 * kSpanBytes; // of each row
    const std::int64_t unit = std::int64_t{1} << bands_;
    const std::int64_t pixel_bytes = (layout_.channels + 1) * kFloatBytes;
    const std::int64_t reach = farthest_reach(bands_);
    Rect frame{0, 0, round_up(layout_.width, unit), round_up(layout_.height, unit)};
    Rect seen = intersect(frame, {0, 0, width + 2 * reach, height + 2 * reach});
    const std::int64_t of_row = kPreparedRowsAtOnce * (layout_.pixel_bytes() + 1) + 3 * kFloatBytes * layout_.channels;
    std::int64_t bytes = std::max(seen.width, filled_row_) * of_row;
    for (int i = 0; i <= bands_; ++i) {
        const Rect sums = intersect(frame, {0, 0, width, height});
        bytes += (sums.pixels() + kBandRows * seen.width) * pixel_bytes + seen.height * kSpansBytes;
        width = expanded_side(sums.width);
        height = expanded_side(sums.height);
        seen = {0, 0, seen.width / 2, seen.height / 2};
        frame = {0, 0, frame.width / 2, frame.height / 2};
    }
    return to_size(bytes);
}

std::size_t TileScratch::feather_bytes(std::int64_t width, std::int64_t height) const
{
    const std::int64_t channels = layout_.channels;
    const Rect reach = feather_reach({0, 0, width, height});
    // Of a picture, with its mask and the frame of its distances.
    const Rect seen{0, 0, std::min(reach.width, widest_), std::min(reach.height, highest_)};
    const std::int64_t pixel_bytes = layout_.pixel_bytes() + 1;
    const std::int64_t sums = width * height * (channels + 1) * kFloatBytes;
    const std::int64_t block = seen.pixels() * pixel_bytes;
    const std::int64_t distances = (seen.width + 2) * (seen.height + 2) * kFloatBytes;
    // As they are, corrected, rounded, for the sums, and of weights.
    const std::int64_t rows =
        width * (kPreparedRowsAtOnce * pixel_bytes + channels * 4 * kFloatBytes) + seen.width * kFloatBytes;
    return to_size(sums + block + distances + rows);
}

} // namespace panoval::mosaic
