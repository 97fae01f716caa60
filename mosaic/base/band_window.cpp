// SPDX-License-Identifier: MIT
// The coarsest level pulls: a row of a level needs finer rows, which are produced first. A finished row is filtered
// both ways at once, towards the coarser level and back to the finer one, whose band then has what it needs. At a cut
// side of a window the outermost pixels of a filtered row are not those of the whole picture; windows are wide enough
// that nobody looks at them.
#include "mosaic/base/band_window.h"

#include "blend/border.h"
#include "blend/pyramid_rows.h"

#include <algorithm>
#include <utility>

namespace panoval::mosaic
{

namespace
{

std::int32_t to_int(std::int64_t value)
{
    return static_cast<std::int32_t>(value);
}

Interval moved(Interval interval, std::int64_t by)
{
    return {interval.first + by, interval.end + by};
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

void TileLevels::reset(const Rect& frame, const Window& tile, int bands, int channels, bool has_weights)
{
    frame_ = frame;
    channels_ = channels;
    has_weights_ = has_weights;
    windows_ = collapse_windows(tile, bands, frame.width, frame.height);
    sums_.resize(windows_.size());
    weights_.resize(windows_.size());
    for (std::size_t i = 0; i < windows_.size(); ++i) {
        const std::size_t pixels = to_size(windows_[i].columns.length() * windows_[i].rows.length());
        resize_unset(sums_[i], pixels * static_cast<std::size_t>(channels));
        resize_unset(weights_[i], has_weights ? pixels : 0);
    }
}

void TileLevels::clear()
{
    for (std::vector<UnsetVector<float>>* const all : {&sums_, &weights_})
        for (UnsetVector<float>& level : *all)
            std::fill(level.begin(), level.end(), 0.0f);
}

void TileLevels::clear(int i, const RowSpans& spans)
{
    const Interval all = windows_[static_cast<std::size_t>(i)].columns;
    const Interval rows = spans.rows();
    for (std::int64_t y = rows.first; y < rows.end; ++y) {
        const Interval columns = spans.at(y);
        if (columns.is_empty())
            continue;
        std::fill_n(sums(i, y) + (columns.first - all.first) * channels_, columns.length() * channels_, 0.0f);
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

// ---------------------------------------------------------------------------------------------------- one picture ----

void BandWindow::reset(TileLevels& levels, const Rect& region, const std::vector<Window>& products)
{
    std::vector<RowSpans> in_region;
    for (std::size_t i = 0; i < products.size(); ++i) {
        const Window whole{{0, region.width >> i}, {0, region.height >> i}};
        const Window& product = products[i];
        const Window part =
            intersect(Window{moved(product.columns, -(region.x >> i)), moved(product.rows, -(region.y >> i))}, whole);
        in_region.emplace_back(part.is_empty() ? Window{} : part);
    }
    std::vector<RowSpans> needed = picture_spans(in_region, region.width, region.height);
    reset(levels, region, std::move(in_region), std::move(needed));
}

void BandWindow::reset(TileLevels& levels, const Rect& region, std::vector<RowSpans> products,
                       std::vector<RowSpans> needed)
{
    tile_ = &levels;
    region_ = region;
    top_ = 0;
    levels_.resize(products.size());
    has_any_ = !needed[0].rows().is_empty();
    for (std::size_t i = 0; i < levels_.size(); ++i) {
        Level& level = levels_[i];
        level.width = region.width >> i;
        level.height = region.height >> i;
        level.product = std::move(products[i]);
        level.needed = std::move(needed[i]);
        level.columns = level.needed.bounds().columns;
        level.next = level.needed.rows().first;
        if (!level.columns.is_empty())
            top_ = i;
    }
    if (has_any_)
        lay_out_levels();
}

void BandWindow::lay_out(Rows& rows, const Level& level, std::int32_t channels, bool is_reduced)
{
    rows.channels = channels;
    rows.stride = to_size(level.columns.length() * channels) + kSlack;
    rows.reduced_stride = to_size(level.columns.length() / 2 * channels) + kSlack;
    rows.full.resize(kReducedRows * rows.stride);
    rows.reduced.resize(is_reduced ? kReducedRows * rows.reduced_stride : 0);
}

void BandWindow::lay_out_levels()
{
    std::size_t widest = 0;
    for (std::size_t i = 0; i <= top_; ++i) {
        Level& level = levels_[i];
        lay_out(level.samples, level, tile_->channels(), i < top_);
        lay_out(level.weights, level, 1, i < top_);
        if (i < top_) {
            level.expanded_stride = to_size(2 * levels_[i + 1].columns.length() * tile_->channels()) + kSlack;
            level.expanded.resize(kExpandedRows * level.expanded_stride);
        }
        widest = std::max(widest, to_size(level.columns.length()));
    }
    if (!tile_->has_weights())
        no_weights_.resize(widest);
}

void BandWindow::run(PictureRows& rows)
{
    if (!has_any_)
        return;
    for (std::size_t i = top_ + 1; i-- > 0;)
        while (levels_[i].next < levels_[i].needed.rows().end)
            produce_row(i, rows);
}

// One more row of level i, and all that it makes possible.
void BandWindow::produce_row(std::size_t i, PictureRows& rows)
{
    Level& level = levels_[i];
    const std::int64_t y = level.next++;
    const Interval columns = level.needed.at(y);
    if (i > 0) {
        Level& finer = levels_[i - 1];
        while (finer.next <= std::min(2 * y + 2, finer.needed.rows().end - 1))
            produce_row(i - 1, rows);
    }
    if (!columns.is_empty())
        make_row(i, y, columns, rows);
    if (i > 0)
        tell_finer_bands(i, y);
    if (i == top_ && i + 1 == levels_.size())
        add_row(i, y);
}

void BandWindow::make_row(std::size_t i, std::int64_t y, Interval columns, PictureRows& rows)
{
    Level& level = levels_[i];
    const std::int64_t skipped = columns.first - level.columns.first;
    float* const samples = level.samples.row(y) + skipped * level.samples.channels;
    float* const weights = level.weights.row(y) + skipped;
    if (i == 0)
        rows.load(y, columns.first, columns.length(), samples, weights);
    else
        reduce_from_finer(i, y);
    if (i < top_)
        reduce_for_coarser(i, y);
    if (i == 0)
        return;
    rows.adjust(static_cast<int>(i), y, columns.first, columns.length(), samples, weights);
    if (!levels_[i - 1].product.rows().is_empty())
        expand_across(samples, to_int(columns.length()), tile_->channels(),
                      levels_[i - 1].expanded_row(y) + 2 * skipped * tile_->channels(), to_int(2 * columns.length()));
}

void BandWindow::reduce_down_from(Rows& from, Rows& to, std::size_t i, std::int64_t y)
{
    const Level& finer = levels_[i - 1];
    const Level& level = levels_[i];
    const Interval columns = level.needed.at(y);
    const std::size_t skipped = to_size((columns.first - finer.columns.first / 2) * from.channels);
    const float* rows[5];
    for (std::int64_t k = 0; k < 5; ++k)
        rows[k] = from.reduced_row(mirrored(2 * y - 2 + k, finer.height)) + skipped;
    reduce_part_down(rows, to_size(columns.first * to.channels), to_size(columns.length() * to.channels),
                     to_size(level.width * to.channels),
                     to.row(y) + to_size((columns.first - level.columns.first) * to.channels));
}

void BandWindow::reduce_from_finer(std::size_t i, std::int64_t y)
{
    reduce_down_from(levels_[i - 1].samples, levels_[i].samples, i, y);
    reduce_down_from(levels_[i - 1].weights, levels_[i].weights, i, y);
}

void BandWindow::reduce_for_coarser(std::size_t i, std::int64_t y)
{
    Level& level = levels_[i];
    const Interval columns = level.needed.at(y);
    const std::int64_t skipped = columns.first - level.columns.first; // even, as all columns begin
    const std::int32_t width = to_int(columns.length());
    for (Rows* rows : {&level.samples, &level.weights})
        reduce_across(rows->row(y) + skipped * rows->channels, width, rows->channels, kBorderMirrorInner,
                      rows->reduced_row(y) + skipped / 2 * rows->channels, width / 2);
}

// With row y of level i, the finer rows around row y - 1 are complete; with the last one, the last finer rows.
void BandWindow::tell_finer_bands(std::size_t i, std::int64_t y)
{
    const Level& finer = levels_[i - 1];
    const Interval ready{2 * y - 2, y == levels_[i].height - 1 ? finer.height : 2 * y};
    const Interval rows = intersect(ready, finer.product.rows());
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
    const std::size_t skipped = to_size((level.product.at(y).first - 2 * coarser.columns.first) * tile_->channels());
    CoarseRows coarse{y % 2 == 0 ? CoarseRows::Even : CoarseRows::Odd, {}};
    for (std::size_t k = 0; k < 3; ++k)
        coarse.row[k] = level.expanded_row(around[k]) + skipped;
    return coarse;
}

void BandWindow::add_row(std::size_t i, std::int64_t y)
{
    Level& level = levels_[i];
    const Interval columns = level.product.at(y);
    if (columns.is_empty())
        return;
    const int number = static_cast<int>(i);
    const Window& sums = tile_->windows()[i];
    const std::size_t in_row = to_size(columns.first - level.columns.first);
    const std::size_t in_sums = to_size(columns.first + (region_.x >> i) - sums.columns.first);
    const std::int64_t row = y + (region_.y >> i);
    BandRow band{};
    band.fine = level.samples.row(y) + in_row * to_size(tile_->channels());
    band.sample_bytes = sizeof(float);
    band.coarse = coarse_rows(i, y);
    band.weight = level.weights.row(y) + in_row;
    band.pixels = to_size(columns.length());
    band.channels = to_size(tile_->channels());
    band.sums = tile_->sums(number, row) + in_sums * to_size(tile_->channels());
    band.weight_sums = tile_->has_weights() ? tile_->weights(number, row) + in_sums : no_weights_.data();
    add_band(band);
}

// ------------------------------------------------------------------------------------------------------- collapse ----

TileExpander::TileExpander(TileLevels& levels, int level, const RowSpans& fine)
    : levels_(levels), level_(level), fine_(fine)
{
    const Window& window = levels.windows()[static_cast<std::size_t>(level)];
    const Window& coarse = levels.windows()[static_cast<std::size_t>(level) + 1];
    coarse_height_ = levels.frame().height >> (level + 1);
    stride_ = to_size(2 * coarse.columns.length() * levels.channels());
    offset_ = to_size((window.columns.first - 2 * coarse.columns.first) * levels.channels());
    done_ = std::max(coarse.rows.first, half(fine.rows().first) - 1);
    ring_.resize(kRows * stride_);
}

// The columns that the finer rows around see.
void TileExpander::expand(std::int64_t y)
{
    const Window& coarse = levels_.windows()[static_cast<std::size_t>(level_) + 1];
    Interval seen;
    for (std::int64_t row = 2 * y - 2; row <= 2 * y + 2; ++row)
        seen = bounding(seen, fine_.at(row));
    const Interval columns = intersect(expanded_from(seen), coarse.columns);
    if (columns.is_empty())
        return;
    const std::int64_t skipped = (columns.first - coarse.columns.first) * levels_.channels();
    expand_across(levels_.sums(level_ + 1, y) + skipped, to_int(columns.length()), levels_.channels(),
                  ring_.data() + to_size(y) % kRows * stride_ + 2 * skipped, to_int(2 * columns.length()));
}

const float* TileExpander::across(std::int64_t y)
{
    const std::int64_t inside = y < 0 ? std::min<std::int64_t>(1, coarse_height_ - 1) : std::min(y, coarse_height_ - 1);
    for (; done_ <= inside; ++done_)
        expand(done_);
    return ring_.data() + to_size(inside) % kRows * stride_ + offset_;
}

CoarseRows TileExpander::around(std::int64_t y)
{
    const std::int64_t middle = y / 2;
    CoarseRows rows{y % 2 == 0 ? CoarseRows::Even : CoarseRows::Odd, {}};
    rows.row[0] = across(middle - 1);
    rows.row[1] = across(middle);
    rows.row[2] = across(middle + 1);
    return rows;
}

} // namespace panoval::mosaic
