// SPDX-License-Identifier: MIT
// A distance needs the whole mask, above the pixel and below it, and yet no mask is ever held as a whole: the canvas is
// cut into strips. One pass down the pictures keeps the forward distances of the last row above each strip; a second
// one goes up strip by strip, repeats the forward pass inside the strip and finishes it from the strip below.
#include "mosaic/seams/seam_nearest.h"

#include "filter/chamfer_rows.h"
#include "mosaic/base/parallel.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <span>

namespace panoval::mosaic
{

namespace
{

constexpr ChamferSteps<std::int32_t> kSteps{kFarAway, kStraightStep, kDiagonalStep};
constexpr std::int32_t kMustBelong = std::numeric_limits<std::int32_t>::max(); // farther than any pixel can lie
constexpr std::size_t kBytesOfStrip = std::size_t{16} << 20;
constexpr std::size_t kFewestRows = 16; // of a strip
constexpr std::size_t kMostRows = 128;
constexpr double kPartOfFirstPass = 0.3; // of the time, for the progress

using Cells = std::vector<std::int32_t>;

// The rows of one picture inside a strip, and each pixel's distance.
struct PictureRows {
    std::size_t picture = 0;
    std::int64_t first = 0; // row of the picture
    std::int64_t count = 0;
    std::size_t pitch = 0;
    Cells cells;                    // of a picture with a mask
    std::vector<std::uint8_t> keep; // empty: nothing to keep

    // The distance of the picture's column 0.
    const std::int32_t* row(std::int64_t y) const { return cells.data() + static_cast<std::size_t>(y) * pitch + 2; }
};

// What the passes know of a picture with a mask. Rows of cells have a column of uncovered pixels and one of frame at
// either end.
class MaskDistance
{
public:
    MaskDistance(const Layout& layout, std::size_t picture)
        : picture_(picture), width_(layout.pictures[picture].rect.width), below_(pitch()),
          mask_(static_cast<std::size_t>(width_ + 2)), distances_(mask_.size())
    {
        above_.emplace_back(pitch());
    }

    std::size_t pitch() const { return static_cast<std::size_t>(width_ + 4); }

    // Of the rows, which follow those of the call before, keeps what the next ones need.
    void pass_down(PictureReader& reader, PixelBlock& block, std::int64_t first, std::int64_t count)
    {
        Cells cells = forward(reader, block, above_.back(), first, count);
        above_.emplace_back(cells.end() - static_cast<std::ptrdiff_t>(pitch()), cells.end());
    }

    // Distances of the rows, which lie above those of the call before; the first call has the lowest rows.
    // strip: counted from the picture's first one
    Cells pass_up(PictureReader& reader, PixelBlock& block, std::size_t strip, std::int64_t first, std::int64_t count)
    {
        Cells cells = forward(reader, block, above_[strip], first, count);
        for (std::int64_t y = count - 1; y >= 0; --y) {
            std::int32_t* const row = cells.data() + static_cast<std::size_t>(y) * pitch();
            const std::int32_t* const below = y + 1 < count ? row + pitch() : below_.data();
            backward_row(below, row, mask_.size(), kSteps, true, distances_.data());
        }
        std::copy_n(cells.begin(), pitch(), below_.begin());
        return cells;
    }

private:
    Cells forward(PictureReader& reader, PixelBlock& block, const Cells& above, std::int64_t first, std::int64_t count)
    {
        Cells cells(pitch() * static_cast<std::size_t>(count));
        reader.read(picture_, {0, first, width_, count}, block);
        const std::int32_t* before = above.data();
        for (std::int64_t y = 0; y < count; ++y) {
            std::copy_n(block.mask_row(y), width_, mask_.begin() + 1);
            std::int32_t* const row = cells.data() + static_cast<std::size_t>(y) * pitch();
            forward_row(mask_.data(), before, row, mask_.size(), kSteps, true);
            before = row;
        }
        return cells;
    }

    std::size_t picture_;
    std::int64_t width_;
    std::vector<Cells> above_; // forward distances of the row above each strip
    Cells below_;              // distances of the row below the strip
    std::vector<std::uint8_t> mask_;
    std::vector<float> distances_;
};

// The picture in which each pixel of a row lies farthest from the edge, of those that have been laid over it.
class OwnerRow
{
public:
    explicit OwnerRow(std::int64_t width)
        : farthest_(static_cast<std::size_t>(width)), labels_(static_cast<std::size_t>(width), kNobody)
    {
    }

    // Pictures come in ascending order, so that equals stay with the lower number.
    void lay(std::int64_t x_canvas, std::span<const std::int32_t> distances, std::size_t picture)
    {
        const auto width = static_cast<std::int64_t>(labels_.size());
        const auto count = static_cast<std::int64_t>(distances.size());
        const std::int64_t before_edge = std::min(count, width - x_canvas);
        lay_inside(x_canvas, distances.first(static_cast<std::size_t>(before_edge)), picture);
        lay_inside(0, distances.subspan(static_cast<std::size_t>(before_edge)), picture);
    }

    std::span<const std::int32_t> labels() const { return labels_; }

private:
    void lay_inside(std::int64_t first, std::span<const std::int32_t> distances, std::size_t picture)
    {
        std::int32_t* const farthest = farthest_.data() + first;
        std::int32_t* const labels = labels_.data() + first;
        const auto label = static_cast<std::int32_t>(picture);
        for (std::size_t x = 0; x < distances.size(); ++x) {
            labels[x] = distances[x] > farthest[x] ? label : labels[x];
            farthest[x] = std::max(distances[x], farthest[x]);
        }
    }

    Cells farthest_;
    std::vector<std::int32_t> labels_;
};

// Bytes of one row: the cells and keep masks of all pictures that may lie side by side and over each other in it.
std::size_t bytes_of_row(const Layout& layout)
{
    return static_cast<std::size_t>(std::max<std::int64_t>(layout.width, 1)) * 4 * (sizeof(std::int32_t) + 1);
}

std::int64_t choose_strip_rows(const Layout& layout)
{
    return static_cast<std::int64_t>(
        std::clamp<std::size_t>(kBytesOfStrip / bytes_of_row(layout), kFewestRows, kMostRows));
}

class NearestSearch
{
public:
    NearestSearch(const Layout& layout, PictureReader& reader, std::size_t threads, Progress& progress)
        : layout_(layout), reader_(reader), threads_(threads), progress_(progress),
          strip_rows_(choose_strip_rows(layout))
    {
        masks_.resize(layout.pictures.size());
    }

    SeamMap run()
    {
        pass_down();
        std::vector<SeamMap> strips(strip_count());
        for (std::size_t strip = strip_count(); strip-- > 0;) {
            strips[strip] = find_owners(strip);
            const double done = 1.0 - static_cast<double>(strip) / static_cast<double>(strip_count());
            progress_.report(Phase::Seams, kPartOfFirstPass + (1 - kPartOfFirstPass) * done);
        }
        SeamMap map(layout_.width);
        for (SeamMap& strip : strips) {
            for (std::int64_t y = 0; y < strip.height(); ++y)
                map.add_row(strip.runs(y));
            strip = {};
        }
        return map;
    }

private:
    std::size_t strip_count() const
    {
        return static_cast<std::size_t>((layout_.height + strip_rows_ - 1) / strip_rows_);
    }
    std::size_t first_strip(const Rect& rect) const { return static_cast<std::size_t>(rect.y / strip_rows_); }
    std::size_t end_strip(const Rect& rect) const
    {
        return rect.is_empty() ? first_strip(rect) : static_cast<std::size_t>((rect.bottom() - 1) / strip_rows_ + 1);
    }

    // The part of a picture inside a strip, in the picture's own rows.
    PictureRows rows_inside(std::size_t picture, std::size_t strip) const
    {
        const Rect& rect = layout_.pictures[picture].rect;
        const std::int64_t top = static_cast<std::int64_t>(strip) * strip_rows_;
        const std::int64_t first = std::max(top, rect.y);
        const std::int64_t end = std::min(top + strip_rows_, rect.bottom());
        return {picture, first - rect.y, end - first, 0, {}, {}};
    }

    void pass_down()
    {
        std::vector<std::size_t> with_mask;
        for (std::size_t i = 0; i < layout_.pictures.size(); ++i)
            if (layout_.pictures[i].has_mask && !layout_.pictures[i].rect.is_empty())
                with_mask.push_back(i);
        run_in_parallel(with_mask.size(), threads_, [&](std::size_t i) {
            progress_.report(Phase::Seams,
                             kPartOfFirstPass * static_cast<double>(i) / static_cast<double>(with_mask.size()));
            pass_down(with_mask[i]);
        });
    }

    void pass_down(std::size_t picture)
    {
        const Rect& rect = layout_.pictures[picture].rect;
        masks_[picture] = std::make_unique<MaskDistance>(layout_, picture);
        PixelBlock block;
        for (std::size_t strip = first_strip(rect); strip + 1 < end_strip(rect); ++strip) {
            const PictureRows rows = rows_inside(picture, strip);
            masks_[picture]->pass_down(reader_, block, rows.first, rows.count);
        }
    }

    void measure_distances(std::size_t strip, PictureRows& rows)
    {
        const Rect& rect = layout_.pictures[rows.picture].rect;
        PixelBlock block;
        if (MaskDistance* const mask = masks_[rows.picture].get(); mask != nullptr) {
            rows.pitch = mask->pitch();
            rows.cells = mask->pass_up(reader_, block, strip - first_strip(rect), rows.first, rows.count);
            if (strip == first_strip(rect))
                masks_[rows.picture].reset();
        }
        rows.keep.resize(static_cast<std::size_t>(rect.width * rows.count));
        if (!reader_.read_keep(rows.picture, {0, rows.first, rect.width, rows.count}, rows.keep.data()))
            rows.keep.clear();
    }

    SeamMap find_owners(std::size_t strip)
    {
        std::vector<PictureRows> pictures;
        for (std::size_t i = 0; i < layout_.pictures.size(); ++i)
            if (const Rect& rect = layout_.pictures[i].rect; strip >= first_strip(rect) && strip < end_strip(rect))
                pictures.push_back(rows_inside(i, strip));
        run_in_parallel(pictures.size(), threads_, [&](std::size_t i) { measure_distances(strip, pictures[i]); });

        const std::int64_t top = static_cast<std::int64_t>(strip) * strip_rows_;
        const auto height = static_cast<std::size_t>(std::min(strip_rows_, layout_.height - top));
        std::vector<SeamMap> rows(height, SeamMap(layout_.width));
        run_in_parallel(height, threads_, [&](std::size_t y) {
            OwnerRow owners(layout_.width);
            for (const PictureRows& picture : pictures)
                lay(picture, top + static_cast<std::int64_t>(y), owners);
            rows[y].add_row(owners.labels());
        });
        SeamMap map(layout_.width);
        for (const SeamMap& row : rows)
            map.add_row(row.runs(0));
        return map;
    }

    void lay(const PictureRows& picture, std::int64_t y_canvas, OwnerRow& owners) const
    {
        const Rect& rect = layout_.pictures[picture.picture].rect;
        const std::int64_t y = y_canvas - rect.y;
        if (y < picture.first || y >= picture.first + picture.count)
            return;
        Cells distances(static_cast<std::size_t>(rect.width));
        if (picture.cells.empty())
            measure_rectangle(rect, y, distances);
        else
            std::copy_n(picture.row(y - picture.first), distances.size(), distances.begin());
        if (!picture.keep.empty()) {
            const std::uint8_t* const keep =
                picture.keep.data() + static_cast<std::size_t>(y - picture.first) * distances.size();
            for (std::size_t x = 0; x < distances.size(); ++x)
                distances[x] = keep[x] != 0 && distances[x] > 0 ? kMustBelong : distances[x];
        }
        owners.lay(rect.x, distances, picture.picture);
    }

    // Of a picture that covers all of its rectangle, the straight way to the nearest side is the shortest.
    static void measure_rectangle(const Rect& rect, std::int64_t y, Cells& distances)
    {
        const auto count = static_cast<std::int32_t>(rect.width);
        const auto down = static_cast<std::int32_t>(std::min(y + 1, rect.height - y));
        for (std::int32_t x = 0; x < count; ++x)
            distances[static_cast<std::size_t>(x)] = kStraightStep * std::min(down, std::min(x + 1, count - x));
    }

    const Layout& layout_;
    PictureReader& reader_;
    const std::size_t threads_;
    Progress& progress_;
    const std::int64_t strip_rows_;
    std::vector<std::unique_ptr<MaskDistance>> masks_; // of pictures that have one, while it is needed
};

} // namespace

std::size_t nearest_search_bytes(const Layout& layout)
{
    const auto rows = static_cast<std::size_t>(choose_strip_rows(layout));
    std::size_t bytes = std::min(rows, static_cast<std::size_t>(layout.height)) * bytes_of_row(layout);
    for (const PlacedPicture& picture : layout.pictures)
        if (picture.has_mask)
            bytes += static_cast<std::size_t>(picture.rect.pixels()) / rows * sizeof(std::int32_t);
    return bytes;
}

SeamMap find_nearest_seams(const Layout& layout, PictureReader& reader, std::size_t threads, Progress& progress)
{
    return NearestSearch(layout, reader, threads, progress).run();
}

} // namespace panoval::mosaic
