// SPDX-License-Identifier: MIT
#include "mosaic/tiles/library_blend.h"

#include "blend/blender_settings.h"
#include "blend/border.h"
#include "blend/feather_rows.h"
#include "core/heap.h"
#include "core/numbers.h"
#include "core/sample_depth.h"
#include "filter/distance_transform.h"
#include "mosaic/pictures/prepared_rows.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <vector>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kCoverageRowsAtOnce = 16;

void add_coverage(const LibraryJob& job, const Rect& part, const PixelBlock& block)
{
    for (std::int64_t y = 0; y < part.height; ++y) {
        const std::uint8_t* const mask = block.mask_row(y);
        std::uint8_t* const out =
            job.coverage + to_size(part.y + y - job.tile.y) * job.coverage_row_bytes + to_size(part.x - job.tile.x);
        for (std::size_t x = 0; x < to_size(part.width); ++x)
            out[x] = std::max(out[x], mask[x]);
    }
}

// The largest mask of any picture.
void put_coverage(const LibraryJob& job)
{
    if (job.coverage == nullptr)
        return;
    for (std::int64_t y = 0; y < job.tile.height; ++y)
        std::memset(job.coverage + to_size(y) * job.coverage_row_bytes, 0, to_size(job.tile.width));
    PixelBlock block;
    for (std::size_t i = 0; i < job.layout.pictures.size(); ++i) {
        const Rect& picture = job.layout.pictures[i].rect;
        Rect part = intersect(picture, job.tile);
        const std::int64_t bottom = part.bottom();
        for (; !part.is_empty() && part.y < bottom; part.y += part.height) {
            part.height = std::min(kCoverageRowsAtOnce, bottom - part.y);
            job.reader.read(i, part.moved(-picture.x, -picture.y), block);
            add_coverage(job, part, block);
        }
    }
}

// A row of whole samples of the pictures' depth, in the output's.
void convert_row(const LibraryJob& job, const std::uint8_t* samples, std::size_t count, std::uint8_t* out)
{
    const int bits = job.layout.bits;
    if (bits == job.output_bits)
        std::memcpy(out, samples, count * to_size(bits / 8));
    else if (bits == 8)
        widen_samples(samples, count, out);
    else
        narrow_samples(samples, count, out);
}

// ----------------------------------------------------------------------------------------------------- multi-band ----

// Columns or rows of the canvas that a picture's bands spread into.
Interval spread_of(std::int64_t begin, std::int64_t end, std::int64_t canvas, int bands)
{
    const std::int64_t unit = std::int64_t{1} << bands;
    const std::int64_t margin = 3 * unit;
    return {std::max<std::int64_t>(0, begin - margin) / unit * unit, round_up(std::min(canvas, end + margin), unit)};
}

// A picture's rows over the region that its bands spread into: its mirror image beyond its edges, without weight.
class MirroredRows : public PictureRows
{
public:
    MirroredRows(const LibraryJob& job, std::size_t picture, const Rect& region)
        : rows_(job.layout, job.corrections, job.reader, picture, true), size_(job.layout.pictures[picture].rect),
          left_(size_.x - region.x), top_(size_.y - region.y), channels_(job.layout.channels)
    {
        shown_.reserve(to_size(region.width));
        for (std::int64_t x = 0; x < region.width; ++x)
            shown_.push_back(mirrored(x - left_, size_.width));
    }

    void load(std::int64_t y, std::int64_t first, std::int64_t count, float* samples, float* weights) override
    {
        const std::int64_t row = mirrored(y - top_, size_.height);
        const Interval wanted{first, first + count};
        const Interval inner = intersect(wanted, {left_, left_ + size_.width});
        if (inner.length() == count)
            rows_.load_samples(row, first - left_, count, samples);
        else
            load_mirrored(row, wanted, inner, samples);
        std::fill_n(weights, count, 0.0f);
        if (row != y - top_ || inner.is_empty())
            return;
        mask_.resize(to_size(inner.length()));
        rows_.load_mask(row, inner.first - left_, inner.length(), mask_.data());
        load_weights(mask_.data(), mask_.size(), weights + (inner.first - first));
    }

private:
    static std::int64_t mirrored(std::int64_t at, std::int64_t length)
    {
        return border_interpolate(static_cast<std::int32_t>(at), static_cast<std::int32_t>(length), kBorderMirrorEdge);
    }

    // inner: the columns of the region, of those that are wanted, that lie inside the picture
    void load_mirrored(std::int64_t row, Interval wanted, Interval inner, float* samples)
    {
        const auto [least, most] = std::minmax_element(shown_.begin() + wanted.first, shown_.begin() + wanted.end);
        const std::int64_t seen = *least;
        seen_.resize(to_size((*most + 1 - seen) * channels_));
        rows_.load_samples(row, seen, *most + 1 - seen, seen_.data());
        const auto copy = [&](std::int64_t x, std::int64_t count) {
            std::copy_n(seen_.data() + (shown_[to_size(x)] - seen) * channels_, count * channels_,
                        samples + (x - wanted.first) * channels_);
        };
        if (!inner.is_empty())
            copy(inner.first, inner.length());
        for (std::int64_t x = wanted.first; x < wanted.end; ++x)
            if (x < inner.first || x >= inner.end)
                copy(x, 1);
    }

    PreparedRows rows_;
    const Rect size_;
    const std::int64_t left_;
    const std::int64_t top_;
    const std::int64_t channels_;
    std::vector<std::int64_t> shown_; // the picture's column that each column of the region shows
    std::vector<float> seen_;
    std::vector<std::uint8_t> mask_;
};

void collapse_coarser_levels(TileLevels& levels)
{
    for (int i = levels.bands(); i > 0; --i) {
        const Window& window = levels.windows()[to_size(i)];
        if (i == levels.bands()) {
            for (std::int64_t y = window.rows.first; y < window.rows.end; ++y)
                collapse_row({levels.sums(i, y),
                              levels.weights(i, y),
                              {CoarseRows::None, {}},
                              to_size(window.columns.length()),
                              to_size(levels.channels()),
                              levels.sums(i, y),
                              sizeof(float)});
            continue;
        }
        const RowSpans all(window);
        TileExpander expander(levels, i, all);
        for (std::int64_t y = window.rows.first; y < window.rows.end; ++y)
            collapse_row({levels.sums(i, y), levels.weights(i, y), expander.around(y), to_size(window.columns.length()),
                          to_size(levels.channels()), levels.sums(i, y), sizeof(float)});
    }
}

void write_tile(const LibraryJob& job, TileLevels& levels)
{
    collapse_coarser_levels(levels);
    const std::size_t count = to_size(job.tile.width * levels.channels());
    std::vector<std::uint8_t> row(count * to_size(job.layout.sample_bytes()));
    const RowSpans all(levels.windows()[0]);
    TileExpander expander(levels, 0, all);
    for (std::int64_t y = 0; y < job.tile.height; ++y) {
        const std::int64_t at = job.tile.y + y;
        collapse_row({levels.sums(0, at), levels.weights(0, at), expander.around(at), to_size(job.tile.width),
                      to_size(levels.channels()), row.data(), to_size(job.layout.sample_bytes())});
        convert_row(job, row.data(), count, job.samples + to_size(y) * job.row_bytes);
    }
}

// -------------------------------------------------------------------------------------------------------- feather ----

// The weights of a part of a picture's mask: they grow with the distance from its edge.
class FeatherWeights
{
public:
    // Rows come from the last to the first.
    FeatherWeights(const PixelBlock& block)
    {
        const auto width = static_cast<std::int32_t>(block.rect.width);
        const auto height = static_cast<std::int32_t>(block.rect.height);
        const Matb mask{width, height, 1, const_cast<std::uint8_t*>(block.mask_row(0))};
        pass_ = begin_distance_transform(mask, scratch_, kCityBlockSteps);
        if (pass_.frame == nullptr)
            throw std::bad_alloc();
    }
    FeatherWeights(const FeatherWeights&) = delete;
    FeatherWeights& operator=(const FeatherWeights&) = delete;
    ~FeatherWeights() { empty_container(scratch_); }

    void load(std::int64_t y, float* weights)
    {
        finish_distance_row(pass_, static_cast<std::int32_t>(y), weights);
        ramp_row(weights, to_size(pass_.width), kFeatherSharpness);
    }

private:
    Matf scratch_{};
    ChamferPass pass_;
};

struct FeatherSums {
    std::vector<float> sums;
    std::vector<float> weights;
};

void add_feathered(const LibraryJob& job, std::size_t picture, FeatherSums& sums)
{
    const Rect& place = job.layout.pictures[picture].rect;
    const Rect part = intersect(place, job.tile);
    if (part.is_empty())
        return;
    const Rect around = intersect(part.grown(kFullWeightFrom + 1), place).moved(-place.x, -place.y);
    PixelBlock block;
    job.reader.read(picture, around, block);
    FeatherWeights weights(block);
    PreparedRows rows(job.layout, job.corrections, job.reader, picture, false);
    std::vector<float> weight_row(to_size(around.width));
    const std::size_t channels = to_size(job.layout.channels);
    std::vector<float> samples(to_size(part.width) * channels);
    std::vector<std::uint16_t> whole(samples.size());
    for (std::int64_t y = around.height - 1; y >= 0; --y) {
        weights.load(y, weight_row.data());
        const std::int64_t row = around.y + y + place.y; // of the canvas
        if (row < part.y || row >= part.bottom())
            continue;
        rows.load_samples(around.y + y, part.x - place.x, part.width, samples.data());
        std::transform(samples.begin(), samples.end(), whole.begin(),
                       [](float sample) { return low_half(truncate_to_int(sample)); });
        const std::size_t pixel = to_size((row - job.tile.y) * job.tile.width + part.x - job.tile.x);
        add_weighted_row(whole.data(), weight_row.data() + (part.x - place.x - around.x),
                         sums.sums.data() + pixel * channels, sums.weights.data() + pixel, to_size(part.width),
                         channels);
    }
}

} // namespace

int library_bands(const Layout& layout, int requested)
{
    return usable_bands(requested, std::max(layout.width, layout.height));
}

Rect bands_reach(const Rect& tile, int bands)
{
    return tile.grown(farthest_reach(bands));
}

Rect feather_reach(const Rect& tile)
{
    return tile.grown(kFullWeightFrom + 1);
}

void blend_bands(const LibraryJob& job, LibraryScratch& scratch)
{
    const Layout& layout = job.layout;
    const std::int64_t unit = std::int64_t{1} << job.bands;
    const Rect frame{0, 0, round_up(layout.width, unit), round_up(layout.height, unit)};
    TileLevels& levels = scratch.levels;
    levels.reset(frame, window_of(job.tile), job.bands, layout.channels, true);
    levels.clear();
    BandWindow& bands = scratch.bands;
    const Rect reach = bands_reach(job.tile, job.bands);
    for (std::size_t i = 0; i < layout.pictures.size(); ++i) {
        const Rect& picture = layout.pictures[i].rect;
        if (intersect(picture, reach).is_empty()) // all its weights would be 0
            continue;
        const Interval columns = spread_of(picture.x, picture.right(), frame.width, job.bands);
        const Interval rows = spread_of(picture.y, picture.bottom(), frame.height, job.bands);
        const Rect region{columns.first, rows.first, columns.length(), rows.length()};
        bands.reset(levels, region, levels.windows());
        MirroredRows mirrored(job, i, region);
        bands.run(mirrored);
    }
    write_tile(job, levels);
    put_coverage(job);
}

void blend_feather(const LibraryJob& job)
{
    const std::size_t channels = to_size(job.layout.channels);
    const std::size_t pixels = to_size(job.tile.pixels());
    FeatherSums sums{std::vector<float>(pixels * channels), std::vector<float>(pixels)};
    for (std::size_t i = 0; i < job.layout.pictures.size(); ++i)
        add_feathered(job, i, sums);
    const std::size_t count = to_size(job.tile.width) * channels;
    std::vector<std::uint16_t> row(count);
    for (std::int64_t y = 0; y < job.tile.height; ++y) {
        const std::size_t pixel = to_size(y * job.tile.width);
        const float* const row_sums = sums.sums.data() + pixel * channels;
        const float* const row_weights = sums.weights.data() + pixel;
        auto* const bytes = reinterpret_cast<std::uint8_t*>(row.data());
        if (job.layout.bits == 8)
            store_means_row(row_sums, row_weights, bytes, to_size(job.tile.width), channels);
        else
            store_means_row(row_sums, row_weights, row.data(), to_size(job.tile.width), channels);
        convert_row(job, bytes, count, job.samples + to_size(y) * job.row_bytes);
    }
    put_coverage(job);
}

} // namespace panoval::mosaic
