// SPDX-License-Identifier: MIT
// The coarsest level pulls: a row of a level needs finer rows, which are produced first. A finished row is filtered
// both ways at once, towards the coarser level and back to the finer one, whose band then has what it needs. At a cut
// side of a window the outermost pixels of a filtered row are not those of the whole picture; windows are wide enough
// that nobody looks at them.
#include "mosaic/band_window.h"

#include "blend/border.h"
#include "blend/pyramid_rows.h"

#include <algorithm>

namespace panoval::mosaic
{

namespace
{

std::int32_t to_int(std::int64_t value)
{
    return static_cast<std::int32_t>(value);
}

std::size_t to_size(std::int64_t value)
{
    return static_cast<std::size_t>(value);
}

Interval moved(Interval interval, std::int64_t by)
{
    return interval.is_empty() ? Interval{} : Interval{interval.first + by, interval.end + by};
}

std::int64_t mirrored(std::int64_t at, std::int64_t length)
{
    return border_interpolate(to_int(at), to_int(length), kBorderMirrorInner);
}

// count floats from float `offset` of a whole row of `whole` floats on. The filter sums the last up to three floats of
// the whole row in another order than those before.
void reduce_part_down(const float* const rows[5], std::size_t offset, std::size_t count, std::size_t whole, float* dst)
{
    const std::size_t in_fours = whole / 4 * 4;
    const std::size_t fours = in_fours > offset ? std::min(in_fours - offset, count) : 0;
    reduce_down(rows, (fours + 3) / 4 * 4, dst);
    if (fours == count)
        return;
    const float* rest[5];
    for (std::size_t k = 0; k < 5; ++k)
        rest[k] = rows[k] + fours;
    reduce_down(rest, count - fours, dst + fours);
}

} // namespace

// ------------------------------------------------------------------------------------------------------- the tile ----

TileLevels::TileLevels(const Rect& frame, const Window& tile, int bands, int channels, bool has_weights)
    : frame_(frame), channels_(channels), has_weights_(has_weights),
      windows_(collapse_windows(tile, bands, frame.width, frame.height))
{
    for (const Window& window : windows_) {
        const std::size_t pixels = to_size(window.columns.length() * window.rows.length());
        sums_.emplace_back(pixels * static_cast<std::size_t>(channels));
        weights_.emplace_back(has_weights ? pixels : 0);
    }
}

float* TileLevels::sums(int i, std::int64_t y)
{
    const auto level = static_cast<std::size_t>(i);
    const Window& window = windows_[level];
    return sums_[level].data() + to_size((y - window.rows.first) * window.columns.length() * channels_);
}

float* TileLevels::weights(int i, std::int64_t y)
{
    const auto level = static_cast<std::size_t>(i);
    const Window& window = windows_[level];
    return weights_[level].data() + to_size((y - window.rows.first) * window.columns.length());
}

std::size_t TileLevels::bytes(std::int64_t width, std::int64_t height, int channels, bool has_weights)
{
    std::size_t pixels = 0;
    for (; width > 3 || height > 3; width = width / 2 + 3, height = height / 2 + 3) {
        pixels += to_size(width * height);
        if (width <= 6 && height <= 6)
            break;
    }
    return pixels * sizeof(float) * static_cast<std::size_t>(channels + (has_weights ? 1 : 0));
}

// ---------------------------------------------------------------------------------------------------- one picture ----

BandWindow::BandWindow(TileLevels& levels, const Rect& region, const std::vector<Window>& products)
    : tile_(levels), region_(region), levels_(products.size())
{
    std::vector<Window> in_region;
    for (std::size_t i = 0; i < products.size(); ++i) {
        const Window whole{{0, region.width >> i}, {0, region.height >> i}};
        const Window& product = products[i];
        const Window part =
            intersect(Window{moved(product.columns, -(region.x >> i)), moved(product.rows, -(region.y >> i))}, whole);
        in_region.push_back(part.is_empty() ? Window{} : part);
    }
    const std::vector<Window> needed = picture_windows(in_region, region.width, region.height);
    for (std::size_t i = 0; i < levels_.size(); ++i) {
        Level& level = levels_[i];
        level.width = region.width >> i;
        level.height = region.height >> i;
        level.product = in_region[i];
        level.needed = needed[i];
        level.next = needed[i].rows.first;
        if (!needed[i].is_empty())
            top_ = i;
    }
    if (!needed[0].is_empty())
        lay_out_levels();
}

void BandWindow::lay_out(Rows& rows, const Level& level, std::int32_t channels, bool is_reduced)
{
    rows.channels = channels;
    rows.stride = to_size(level.needed.columns.length() * channels) + kSlack;
    rows.reduced_stride = to_size(level.needed.columns.length() / 2 * channels) + kSlack;
    rows.full.resize(kRing * rows.stride);
    rows.reduced.resize(is_reduced ? kRing * rows.reduced_stride : 0);
}

void BandWindow::lay_out_levels()
{
    std::size_t widest = 0;
    for (std::size_t i = 0; i <= top_; ++i) {
        Level& level = levels_[i];
        lay_out(level.samples, level, tile_.channels(), i < top_);
        lay_out(level.weights, level, 1, i < top_);
        if (i < top_) {
            level.expanded_stride = to_size(2 * levels_[i + 1].needed.columns.length() * tile_.channels()) + kSlack;
            level.expanded.resize(kExpandedRing * level.expanded_stride);
        }
        widest = std::max(widest, to_size(level.product.columns.length()));
    }
    if (!tile_.has_weights())
        no_weights_.resize(widest);
}

void BandWindow::run(PictureRows& rows)
{
    if (needed().is_empty())
        return;
    for (std::size_t i = top_ + 1; i-- > 0;)
        while (levels_[i].next < levels_[i].needed.rows.end)
            produce_row(i, rows);
}

// One more row of level i, and all that it makes possible.
void BandWindow::produce_row(std::size_t i, PictureRows& rows)
{
    Level& level = levels_[i];
    const std::int64_t y = level.next++;
    const Interval& columns = level.needed.columns;
    if (i == 0) {
        rows.load(y, columns.first, columns.length(), level.samples.row(y), level.weights.row(y));
    } else {
        Level& finer = levels_[i - 1];
        while (finer.next <= std::min(2 * y + 2, finer.needed.rows.end - 1))
            produce_row(i - 1, rows);
        reduce_from_finer(i, y);
    }
    if (i < top_)
        reduce_for_coarser(i, y);
    if (i > 0) {
        rows.adjust(static_cast<int>(i), y, columns.first, columns.length(), level.samples.row(y),
                    level.weights.row(y));
        expand_to_finer(i, y);
    }
    if (i == top_ && i + 1 == levels_.size() && level.product.rows.contains(y))
        add_row(i, y);
}

void BandWindow::reduce_down_from(Rows& from, Rows& to, std::size_t i, std::int64_t y)
{
    const Level& finer = levels_[i - 1];
    const Level& level = levels_[i];
    const std::int64_t first = level.needed.columns.first;
    const std::size_t skipped = to_size((first - finer.needed.columns.first / 2) * from.channels);
    const float* rows[5];
    for (std::int64_t k = 0; k < 5; ++k)
        rows[k] = from.reduced_row(mirrored(2 * y - 2 + k, finer.height)) + skipped;
    reduce_part_down(rows, to_size(first * to.channels), to_size(level.needed.columns.length() * to.channels),
                     to_size(level.width * to.channels), to.row(y));
}

void BandWindow::reduce_from_finer(std::size_t i, std::int64_t y)
{
    reduce_down_from(levels_[i - 1].samples, levels_[i].samples, i, y);
    reduce_down_from(levels_[i - 1].weights, levels_[i].weights, i, y);
}

void BandWindow::reduce_for_coarser(std::size_t i, std::int64_t y)
{
    Level& level = levels_[i];
    const std::int32_t width = to_int(level.needed.columns.length());
    for (Rows* rows : {&level.samples, &level.weights})
        reduce_across(rows->row(y), width, rows->channels, kBorderMirrorInner, rows->reduced_row(y), width / 2);
}

// With row y of level i, the finer rows around row y - 1 are complete; with the last one, the last finer rows.
void BandWindow::expand_to_finer(std::size_t i, std::int64_t y)
{
    Level& level = levels_[i];
    Level& finer = levels_[i - 1];
    if (finer.product.is_empty())
        return;
    const std::int32_t width = to_int(level.needed.columns.length());
    expand_across(level.samples.row(y), width, tile_.channels(), finer.expanded_row(y), 2 * width);
    const Interval ready{2 * y - 2, y == level.height - 1 ? finer.height : 2 * y};
    const Interval rows = intersect(ready, finer.product.rows);
    for (std::int64_t row = rows.first; row < rows.end; ++row)
        add_row(i - 1, row);
}

// The rows of the coarser level that row y of level i is expanded from, from the product's first column on.
CoarseRows BandWindow::coarse_rows(std::size_t i, std::int64_t y)
{
    if (i + 1 == levels_.size())
        return {CoarseRows::None, {}};
    Level& level = levels_[i];
    const Level& coarser = levels_[i + 1];
    const std::int64_t last = coarser.height - 1;
    const std::int64_t at = y / 2;
    // Mirrored at twice the size.
    const std::int64_t around[3] = {at > 0 ? at - 1 : std::min<std::int64_t>(1, last), at, std::min(at + 1, last)};
    const std::size_t skipped =
        to_size((level.product.columns.first - 2 * coarser.needed.columns.first) * tile_.channels());
    CoarseRows coarse{y % 2 == 0 ? CoarseRows::Even : CoarseRows::Odd, {}};
    for (std::size_t k = 0; k < 3; ++k)
        coarse.row[k] = level.expanded_row(around[k]) + skipped;
    return coarse;
}

void BandWindow::add_row(std::size_t i, std::int64_t y)
{
    Level& level = levels_[i];
    const int number = static_cast<int>(i);
    const Window& sums = tile_.windows()[i];
    const Interval& columns = level.product.columns;
    const std::size_t in_row = to_size(columns.first - level.needed.columns.first);
    const std::size_t in_sums = to_size(columns.first + (region_.x >> i) - sums.columns.first);
    const std::int64_t row = y + (region_.y >> i);
    BandRow band{};
    band.fine = level.samples.row(y) + in_row * to_size(tile_.channels());
    band.sample_bytes = sizeof(float);
    band.coarse = coarse_rows(i, y);
    band.weight = level.weights.row(y) + in_row;
    band.pixels = to_size(columns.length());
    band.channels = to_size(tile_.channels());
    band.sums = tile_.sums(number, row) + in_sums * to_size(tile_.channels());
    band.weight_sums = tile_.has_weights() ? tile_.weights(number, row) + in_sums : no_weights_.data();
    add_band(band);
}

// ------------------------------------------------------------------------------------------------------- collapse ----

TileExpander::TileExpander(TileLevels& levels, int level) : levels_(levels), level_(level)
{
    const Window& fine = levels.windows()[static_cast<std::size_t>(level)];
    const Window& coarse = levels.windows()[static_cast<std::size_t>(level) + 1];
    coarse_height_ = levels.frame().height >> (level + 1);
    stride_ = to_size(2 * coarse.columns.length() * levels.channels());
    offset_ = to_size((fine.columns.first - 2 * coarse.columns.first) * levels.channels());
    done_ = coarse.rows.first;
    ring_.resize(kRows * stride_);
}

const float* TileExpander::across(std::int64_t y)
{
    const Window& coarse = levels_.windows()[static_cast<std::size_t>(level_) + 1];
    const std::int32_t width = to_int(coarse.columns.length());
    const std::int64_t inside = y < 0 ? std::min<std::int64_t>(1, coarse_height_ - 1) : std::min(y, coarse_height_ - 1);
    for (; done_ <= inside; ++done_)
        expand_across(levels_.sums(level_ + 1, done_), width, levels_.channels(),
                      ring_.data() + to_size(done_) % kRows * stride_, 2 * width);
    return ring_.data() + to_size(inside) % kRows * stride_ + offset_;
}

CoarseRows TileExpander::around(std::int64_t y)
{
    const std::int64_t middle = y / 2;
    const Window& coarse = levels_.windows()[static_cast<std::size_t>(level_) + 1];
    CoarseRows rows{y % 2 == 0 ? CoarseRows::Even : CoarseRows::Odd, {}};
    // An odd row does not look above; what is there may lie outside the tile.
    rows.row[0] = middle - 1 >= coarse.rows.first || middle == 0 ? across(middle - 1) : nullptr;
    rows.row[1] = across(middle);
    rows.row[2] = across(middle + 1);
    return rows;
}

} // namespace panoval::mosaic
