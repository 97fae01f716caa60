// SPDX-License-Identifier: MIT
// The coarsest level pulls: a row of a level needs finer rows, which are produced first. A finished row is filtered
// both ways at once, towards the coarser level and back to the finer one, whose band then has what it needs.
#include "blend/band_stream.h"

#include "blend/border.h"
#include "blend/pyramid_rows.h"
#include "core/numbers.h"

#include <algorithm>
#include <cstring>

namespace panoval
{
namespace
{

// Hands out parts of a block, or only counts them.
class Carver
{
public:
    explicit Carver(float* block) : block_(block) {}
    float* take(std::size_t rows, std::size_t row_length)
    {
        float* const part = block_ != nullptr ? block_ + used_ : nullptr;
        used_ += (rows * row_length + 15) / 16 * 16;
        return part;
    }
    std::size_t used() const { return used_; }

private:
    float* block_;
    std::size_t used_ = 0;
};

float* slot(float* ring, std::size_t slots, std::size_t length, std::int32_t y)
{
    return ring + to_count(y) % slots * length;
}

std::uint8_t* bytes_of(float* row)
{
    return reinterpret_cast<std::uint8_t*>(row);
}

} // namespace

BandStream::BandStream(const MultiBandBlender& blender, const Mat& img, const Matb& mask,
                       const BandRegion& region) noexcept
    : blender_(blender), img_(img), mask_(mask), region_(region), channels_(blender.dstPyrLaplace[0].channels)
{
    block_ = allocate<float>(lay_out(nullptr));
    if (block_ != nullptr)
        lay_out(block_.get());
}

// Returns the floats needed.
std::size_t BandStream::lay_out(float* block) noexcept
{
    Carver carver(block);
    const auto lay_out_rows = [&](Rows& rows, std::int32_t channels, std::int32_t i) {
        rows.channels = channels;
        rows.length = to_count(levels_[i].width) * to_count(channels);
        rows.reduced_length = to_count(levels_[i].width / 2) * to_count(channels);
        rows.full = carver.take(i == 0 ? 1 : kReducedRows, rows.length);
        rows.reduced = carver.take(i == blender_.numBands ? 0 : kReducedRows, rows.reduced_length);
    };
    for (std::int32_t i = 0; i <= blender_.numBands; ++i) {
        Level& level = levels_[i];
        level.width = region_.canvas.width >> i; // a multiple of the coarsest level's pixel
        level.height = region_.canvas.height >> i;
        level.next = 0;
        lay_out_rows(level.samples, channels_, i);
        lay_out_rows(level.weights, 1, i);
        level.expanded = carver.take(i == blender_.numBands ? 0 : kExpandedRows, level.samples.length);
    }
    const std::size_t matched_bytes = to_count(region_.image.width) * to_count(channels_) * to_count(img_.elemSize);
    float* const matched = carver.take(1, img_.channels == channels_ ? 0 : matched_bytes / sizeof(float) + 1);
    matched_ = reinterpret_cast<std::uint8_t*>(matched);
    return carver.used();
}

void BandStream::run() noexcept
{
    const Level& coarsest = levels_[blender_.numBands];
    while (coarsest.next < coarsest.height)
        produce_row(blender_.numBands);
}

// One more row of level i, and all that it makes possible.
void BandStream::produce_row(std::int32_t i) noexcept
{
    Level& level = levels_[i];
    const std::int32_t y = level.next++;
    if (i == 0) {
        load_row(y);
    } else {
        Level& finer = levels_[i - 1];
        while (finer.next <= std::min(2 * y + 2, finer.height - 1))
            produce_row(i - 1);
        reduce_from_finer(i, y);
        expand_to_finer(i, y);
    }
    if (i < blender_.numBands)
        reduce_for_coarser(i, y);
    else
        add_row(i, y);
}

// ------------------------------------------------------------------------------------------------------ level 0 ----

// Row y of the visible part, with as many channels as the canvas has.
const std::uint8_t* BandStream::visible_samples(std::int32_t y) noexcept
{
    const std::size_t first_pixel = to_count(region_.image.y + y) * to_count(img_.width) + to_count(region_.image.x);
    const std::size_t elem = to_count(img_.elemSize);
    const std::size_t pixel_bytes = to_count(img_.channels) * elem;
    const std::uint8_t* const row = img_.data + first_pixel * pixel_bytes;
    if (img_.channels == channels_)
        return row;
    const std::size_t matched_bytes = to_count(channels_) * elem;
    const std::size_t common = std::min(pixel_bytes, matched_bytes);
    for (std::size_t x = 0; x < to_count(region_.image.width); ++x) {
        std::memcpy(matched_ + x * matched_bytes, row + x * pixel_bytes, common);
        std::memset(matched_ + x * matched_bytes + common, 0, matched_bytes - common);
    }
    return matched_;
}

const std::uint8_t* BandStream::visible_mask(std::int32_t y) const noexcept
{
    return mask_.data + to_count(region_.image.y + y) * to_count(mask_.width) + to_count(region_.image.x);
}

// Samples go on beyond the visible part as its mirror image, weights as 0.
void BandStream::load_row(std::int32_t y) noexcept
{
    const Level& level = levels_[0];
    const Roi& visible = region_.image;
    const std::size_t pixel = to_count(channels_);
    float* const inner = level.samples.full + to_count(region_.left) * pixel;
    const std::int32_t row = border_interpolate(y - region_.top, visible.height, kBorderMirrorEdge);
    load_samples(visible_samples(row), to_count(img_.elemSize), to_count(visible.width) * pixel, inner);
    copy_make_border(bytes_of(inner), 0, {visible.width, 1}, bytes_of(level.samples.full), 0, {level.width, 1}, 0,
                     region_.left, channels_ * static_cast<std::int32_t>(sizeof(float)), kBorderMirrorEdge);

    if (row != y - region_.top) {
        std::fill_n(level.weights.full, level.weights.length, 0.0f);
        return;
    }
    constexpr std::uint8_t kNoWeight[sizeof(float)] = {};
    float* const inner_weights = level.weights.full + region_.left;
    load_weights(visible_mask(row), to_count(visible.width), inner_weights);
    copy_make_const_border(bytes_of(inner_weights), 0, {visible.width, 1}, bytes_of(level.weights.full), 0,
                           {level.width, 1}, 0, region_.left, sizeof(float), kNoWeight);
}

// ------------------------------------------------------------------------------------------- from level to level ----

void BandStream::reduce_from_finer(std::int32_t i, std::int32_t y) noexcept
{
    const Level& finer = levels_[i - 1];
    const auto reduce = [&](const Rows& from, const Rows& to) {
        const float* rows[5];
        for (std::int32_t k = 0; k < 5; ++k)
            rows[k] = slot(from.reduced, kReducedRows, from.reduced_length,
                           border_interpolate(2 * y - 2 + k, finer.height, kBorderMirrorInner));
        reduce_down(rows, to.length, slot(to.full, kReducedRows, to.length, y));
    };
    reduce(finer.samples, levels_[i].samples);
    reduce(finer.weights, levels_[i].weights);
}

void BandStream::reduce_for_coarser(std::int32_t i, std::int32_t y) noexcept
{
    const Level& level = levels_[i];
    for (const Rows* rows : {&level.samples, &level.weights}) {
        const float* const full = i == 0 ? rows->full : slot(rows->full, kReducedRows, rows->length, y);
        reduce_across(full, level.width, rows->channels, kBorderMirrorInner,
                      slot(rows->reduced, kReducedRows, rows->reduced_length, y), level.width / 2);
    }
}

// With row y of level i, the finer rows around row y - 1 are complete; with the last one, the last finer rows.
void BandStream::expand_to_finer(std::int32_t i, std::int32_t y) noexcept
{
    const Level& level = levels_[i];
    const Level& finer = levels_[i - 1];
    const Rows& samples = level.samples;
    expand_across(slot(samples.full, kReducedRows, samples.length, y), level.width, channels_,
                  slot(finer.expanded, kExpandedRows, finer.samples.length, y), finer.width);
    const std::int32_t first = std::max(2 * y - 2, 0);
    const std::int32_t end = y == level.height - 1 ? finer.height : 2 * y;
    for (std::int32_t row = first; row < end; ++row)
        add_row(i - 1, row);
}

// ---------------------------------------------------------------------------------------------------- to canvas ----

// The rows of the coarser level that row y of level i is expanded from, from column `first` on.
CoarseRows BandStream::coarse_rows(std::int32_t i, std::int32_t y, std::size_t first) const noexcept
{
    if (i == blender_.numBands)
        return {CoarseRows::None, {}};
    const Level& level = levels_[i];
    const std::int32_t last = levels_[i + 1].height - 1;
    const std::int32_t at = y / 2;
    // Mirrored at twice the size, as Expander does it.
    const std::int32_t around[3] = {at > 0 ? at - 1 : std::min(1, last), at, std::min(at + 1, last)};
    CoarseRows coarse{y % 2 == 0 ? CoarseRows::Even : CoarseRows::Odd, {}};
    for (std::size_t k = 0; k < 3; ++k)
        coarse.row[k] = slot(level.expanded, kExpandedRows, level.samples.length, around[k]) + first;
    return coarse;
}

// `pixels` of row y of level i, from column `first` of the region on. What they are made of is the caller's to fill in.
BandRow BandStream::canvas_row(std::int32_t i, std::int32_t y, std::int32_t first, std::int32_t pixels) const noexcept
{
    const Matf& sums = blender_.dstPyrLaplace[i];
    const std::size_t canvas_pixel =
        to_count((region_.canvas.y >> i) + y) * to_count(sums.width) + to_count((region_.canvas.x >> i) + first);
    const std::size_t channels = to_count(channels_);
    BandRow band{};
    band.coarse = coarse_rows(i, y, to_count(first) * channels);
    band.pixels = to_count(pixels);
    band.channels = channels;
    band.sums = sums.data + canvas_pixel * channels;
    band.weight_sums = blender_.dstBandWeights[i].data + canvas_pixel;
    return band;
}

// Of the image itself only the visible part has weight.
void BandStream::add_image_row(std::int32_t y) noexcept
{
    const std::int32_t row = y - region_.top;
    const std::int32_t width = region_.image.width;
    if (row < 0 || row >= region_.image.height)
        return;
    float* const weight = levels_[0].weights.full; // its latest row is filtered by now
    load_weights(visible_mask(row), to_count(width), weight);
    BandRow band = canvas_row(0, y, region_.left, width);
    band.fine = visible_samples(row);
    band.sample_bytes = to_count(img_.elemSize);
    band.weight = weight;
    add_band(band);
}

void BandStream::add_row(std::int32_t i, std::int32_t y) noexcept
{
    if (i == 0) {
        add_image_row(y);
        return;
    }
    const Level& level = levels_[i];
    BandRow band = canvas_row(i, y, 0, level.width);
    band.fine = slot(level.samples.full, kReducedRows, level.samples.length, y);
    band.sample_bytes = sizeof(float);
    band.weight = slot(level.weights.full, kReducedRows, level.weights.length, y);
    add_band(band);
}

} // namespace panoval
