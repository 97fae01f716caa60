// SPDX-License-Identifier: MIT
// Everything that differs from the composite lies near seams: a picture is sent through its pyramids only where its own
// area and what it shows of others' areas come so near to each other that the bands of a level see both.
#include "mosaic/composite_blend.h"

#include "mosaic/band_window.h"
#include "mosaic/composite_rows.h"
#include "mosaic/covered_share.h"
#include "mosaic/plane.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace panoval::mosaic
{

namespace
{

std::size_t to_size(std::int64_t value)
{
    return static_cast<std::size_t>(value);
}

std::int64_t round_down(std::int64_t value, std::int64_t unit)
{
    const std::int64_t rest = value % unit;
    return value - (rest < 0 ? rest + unit : rest);
}

// The smallest rectangle around the tile that levels can count from and no window leaves. Sides are multiples of four
// coarsest pixels, so that the filters sum all samples in one order.
Rect frame_around(const Rect& tile, int bands)
{
    const std::int64_t unit = std::int64_t{4} << bands;
    const Rect grown = tile.grown(2 * unit);
    const std::int64_t x = round_down(grown.x, unit);
    const std::int64_t y = round_down(grown.y, unit);
    return {x, y, round_down(grown.right() + unit - 1, unit) - x, round_down(grown.bottom() + unit - 1, unit) - y};
}

Window window_of(const Rect& rect)
{
    return {{rect.x, rect.right()}, {rect.y, rect.bottom()}};
}

// An appearance of a picture within reach of the tile.
struct Share {
    std::size_t picture;
    Rect rect;   // on the canvas
    Rect owned;  // around its own pixels
    Rect others; // around those of its pixels that are not its own

    std::int32_t label() const { return static_cast<std::int32_t>(picture); }
};

Plane<std::int32_t> read_labels(const CompositeJob& job, const Rect& rect)
{
    Plane<std::int32_t> labels(rect, 1);
    for (std::int64_t y = rect.y; y < rect.bottom(); ++y)
        job.seams.read(y, rect.x, rect.width, job.layout.wraps, labels.at(rect.x, y));
    return labels;
}

void grow_to(Rect& rect, std::int64_t first, std::int64_t end, std::int64_t y)
{
    if (first < end)
        rect = bounding(rect, {first, y, end - first, 1});
}

// Looks where the share's own pixels are, and where others' are.
void look_at_row(Share& share, const Rect& part, const std::int32_t* labels, std::int64_t y)
{
    const std::int32_t* const end = labels + part.width;
    const std::int32_t own = share.label();
    const auto is_own = [own](std::int32_t label) { return label == own; };
    const auto column = [&](const std::int32_t* at) { return part.x + (at - labels); };
    const std::int32_t* const first_own = std::find(labels, end, own);
    const std::int32_t* const first_other = std::find_if_not(labels, end, is_own);
    const std::int32_t* last_own = end;
    while (last_own != first_own && last_own[-1] != own)
        --last_own;
    const std::int32_t* last_other = end;
    while (last_other != first_other && last_other[-1] == own)
        --last_other;
    grow_to(share.owned, column(first_own), column(last_own), y);
    grow_to(share.others, column(first_other), column(last_other), y);
}

// How often the canvas is to be laid beside itself on either side.
std::int64_t turns_of(const CompositeJob& job, const Rect& rect)
{
    return job.layout.wraps ? rect.width / job.layout.width + 2 : 0;
}

std::vector<Share> find_shares(const CompositeJob& job, const Plane<std::int32_t>& labels)
{
    std::vector<Share> shares;
    const std::int64_t turns = turns_of(job, labels.rect);
    for (std::size_t i = 0; i < job.layout.pictures.size(); ++i)
        for (std::int64_t turn = -turns; turn <= turns; ++turn) {
            Share share{i, job.layout.pictures[i].rect.moved(turn * job.layout.width, 0), {}, {}};
            const Rect part = intersect(share.rect, labels.rect);
            for (std::int64_t y = part.y; y < part.bottom(); ++y)
                look_at_row(share, part, labels.at(part.x, y), y);
            if (!share.owned.is_empty())
                shares.push_back(share);
        }
    return shares;
}

void read_block(const CompositeJob& job, const Share& share, const Rect& part, PixelBlock& block)
{
    job.reader.read(share.picture, part.moved(-share.rect.x, -share.rect.y), block);
}

void correct(const CompositeJob& job, const Share& share, const PixelBlock& block, std::int64_t y, float* row)
{
    const Rect& picture = job.layout.pictures[share.picture].rect;
    correct_row(job.corrections, share.picture, {0, 0, picture.width, picture.height}, block, y, row);
}

// --------------------------------------------------------------------------------------------------- the composite
// ----

// Calls body(first, end) for each run of a label.
template <class Body>
void for_each_run(const std::int32_t* labels, std::int64_t count, std::int32_t label, const Body& body)
{
    const std::int32_t* const end = labels + count;
    for (const std::int32_t* at = std::find(labels, end, label); at != end;) {
        const std::int32_t* const behind =
            std::find_if(at, end, [label](std::int32_t other) { return other != label; });
        body(at - labels, behind - labels);
        at = std::find(behind, end, label);
    }
}

void put_coverage(const CompositeJob& job, const Share& share, const PixelBlock& block, const Rect& part,
                  const Plane<std::int32_t>& labels)
{
    const Rect in_tile = intersect(part, job.tile);
    for (std::int64_t y = in_tile.y; y < in_tile.bottom(); ++y) {
        const std::uint8_t* const mask = block.mask_row(y - part.y) + (in_tile.x - part.x);
        std::uint8_t* const out =
            job.coverage + to_size(y - job.tile.y) * job.coverage_row_bytes + to_size(in_tile.x - job.tile.x);
        for_each_run(labels.at(in_tile.x, y), in_tile.width, share.label(), [&](std::int64_t first, std::int64_t end) {
            std::memcpy(out + first, mask + first, to_size(end - first));
        });
    }
}

// Every pixel from its owner.
Plane<float> compose(const CompositeJob& job, const std::vector<Share>& shares, const Plane<std::int32_t>& labels,
                     const Rect& rect, PixelBlock& block)
{
    const std::int64_t channels = job.layout.channels;
    Plane<float> composite(rect, channels);
    std::vector<float> row;
    for (const Share& share : shares) {
        const Rect part = intersect(share.owned, rect);
        if (part.is_empty())
            continue;
        read_block(job, share, part, block);
        row.resize(to_size(part.width * channels));
        for (std::int64_t y = part.y; y < part.bottom(); ++y) {
            correct(job, share, block, y - part.y, row.data());
            float* const out = composite.at(part.x, y);
            for_each_run(labels.at(part.x, y), part.width, share.label(), [&](std::int64_t first, std::int64_t end) {
                std::copy(row.data() + first * channels, row.data() + end * channels, out + first * channels);
            });
        }
        if (job.coverage != nullptr)
            put_coverage(job, share, block, part, labels);
    }
    return composite;
}

// -------------------------------------------------------------------------------------------------- the correction
// ----

// Where the blurred area of a picture and its difference from the composite meet, on each level. Pixel X of level i is
// made of level 0 up to 2 (2^i - 1) pixels away; its band sees three times as far.
std::vector<Window> products_of(const Share& share, const TileLevels& levels)
{
    std::vector<Window> products;
    for (std::size_t i = 0; i < levels.windows().size(); ++i) {
        const std::int64_t unit = std::int64_t{1} << i;
        const Rect met = intersect(share.owned.grown(2 * unit), share.others.grown(6 * unit))
                             .moved(-levels.frame().x, -levels.frame().y);
        const Window part{{met.x >> i, (met.right() >> i) + 1}, {met.y >> i, (met.bottom() >> i) + 1}};
        products.push_back(met.is_empty() ? Window{} : intersect(part, levels.windows()[i]));
    }
    return products;
}

// The picture's difference from the composite, and its own area.
class DifferenceRows : public PictureRows
{
public:
    DifferenceRows(const CompositeJob& job, const Share& share, const Plane<std::int32_t>& labels,
                   const CoveredShare& covered, const Plane<float>& composite, const Rect& frame,
                   const PixelBlock& block, const Rect& part)
        : job_(job), share_(share), labels_(labels), covered_(covered), composite_(composite), frame_(frame),
          block_(block), part_(part)
    {
    }

    void load(std::int64_t y, std::int64_t first, std::int64_t count, float* samples, float* weights) override
    {
        const std::int64_t channels = composite_.channels;
        const std::int64_t row = frame_.y + y;
        const std::int64_t before = part_.x - (frame_.x + first); // the part has these columns at most
        std::fill_n(weights, count, 0.0f);
        if (row < part_.y || row >= part_.bottom()) {
            std::fill_n(samples, count * channels, 0.0f);
            return;
        }
        std::fill_n(samples, before * channels, 0.0f);
        float* const inner = samples + before * channels;
        correct(job_, share_, block_, row - part_.y, inner);
        subtract_row(inner, composite_.at(part_.x, row), to_size(part_.width * channels));
        clear_uncovered(block_.mask_row(row - part_.y), inner);
        own_row(labels_.at(part_.x, row), share_.label(), to_size(part_.width), weights + before);
        std::fill_n(inner + part_.width * channels, (count - before - part_.width) * channels, 0.0f);
    }

    void adjust(int level, std::int64_t y, std::int64_t first, std::int64_t count, float* samples,
                float* weights) override
    {
        covered_.normalize(level, y, first, count, job_.layout.channels, samples, weights);
    }

private:
    void clear_uncovered(const std::uint8_t* mask, float* samples) const
    {
        const auto width = to_size(part_.width);
        const auto channels = to_size(composite_.channels);
        const void* at = std::memchr(mask, 0, width);
        while (at != nullptr) {
            const auto x = to_size(static_cast<const std::uint8_t*>(at) - mask);
            std::fill_n(samples + x * channels, channels, 0.0f);
            at = std::memchr(mask + x + 1, 0, width - x - 1);
        }
    }

    const CompositeJob& job_;
    const Share& share_;
    const Plane<std::int32_t>& labels_;
    const CoveredShare& covered_;
    const Plane<float>& composite_;
    const Rect frame_;
    const PixelBlock& block_;
    const Rect part_;
};

// A share that needs a correction.
struct Seam {
    const Share* share;
    std::vector<Window> products;
    Rect part; // of the picture, on the canvas, that its bands are made of
};

std::vector<Seam> find_seams(const std::vector<Share>& shares, TileLevels& levels)
{
    std::vector<Seam> seams;
    for (const Share& share : shares) {
        if (share.others.is_empty())
            continue;
        Seam seam{&share, products_of(share, levels), {}};
        const std::vector<Window> needed = picture_windows(seam.products, levels.frame().width, levels.frame().height);
        if (needed[0].is_empty())
            continue;
        seam.part = intersect(needed[0].rect().moved(levels.frame().x, levels.frame().y), share.rect);
        if (!seam.part.is_empty())
            seams.push_back(std::move(seam));
    }
    return seams;
}

void add_differences(const CompositeJob& job, const Seam& seam, const Plane<std::int32_t>& labels,
                     const CoveredShare& covered, const Plane<float>& composite, TileLevels& levels, PixelBlock& block)
{
    const Rect whole{0, 0, levels.frame().width, levels.frame().height};
    BandWindow bands(levels, whole, seam.products);
    read_block(job, *seam.share, seam.part, block);
    DifferenceRows rows(job, *seam.share, labels, covered, composite, levels.frame(), block, seam.part);
    bands.run(rows);
}

// Adds the levels up; level 0 holds the correction then.
void collapse(TileLevels& levels)
{
    for (int i = levels.bands() - 1; i >= 0; --i) {
        const Window& window = levels.windows()[static_cast<std::size_t>(i)];
        TileExpander expander(levels, i);
        for (std::int64_t y = window.rows.first; y < window.rows.end; ++y)
            add_expanded_row(levels.sums(i, y), expander.around(y),
                             to_size(window.columns.length() * levels.channels()));
    }
}

void finish(const CompositeJob& job, const Plane<float>& composite, TileLevels* levels)
{
    const std::size_t count = to_size(job.tile.width * job.layout.channels);
    const float scale = job.output_bits == job.layout.bits ? 1.0f : job.output_bits == 16 ? 257.0f : 1.0f / 257.0f;
    const std::int64_t first = levels != nullptr ? levels->windows()[0].rows.first : 0;
    for (std::int64_t y = 0; y < job.tile.height; ++y)
        finish_row(composite.at(job.tile.x, job.tile.y + y), levels != nullptr ? levels->sums(0, first + y) : nullptr,
                   scale, count, job.samples + to_size(y) * job.row_bytes, to_size(job.output_bits / 8));
}

} // namespace

Rect composite_reach(const Rect& tile, int bands)
{
    const Rect frame = frame_around(tile, bands);
    const Window in_frame = window_of(tile.moved(-frame.x, -frame.y));
    const auto needed =
        picture_windows(collapse_windows(in_frame, bands, frame.width, frame.height), frame.width, frame.height);
    return needed[0].rect().moved(frame.x, frame.y);
}

void blend_composite(const CompositeJob& job)
{
    const Layout& layout = job.layout;
    if (job.coverage != nullptr)
        for (std::int64_t y = 0; y < job.tile.height; ++y)
            std::memset(job.coverage + to_size(y) * job.coverage_row_bytes, 0, to_size(job.tile.width));
    const Rect reach = composite_reach(job.tile, job.bands);
    const Rect canvas = layout.wraps ? Rect{reach.x, 0, reach.width, layout.height} : layout.canvas();
    const Plane<std::int32_t> labels = read_labels(job, intersect(reach, canvas));
    const std::vector<Share> shares = find_shares(job, labels);

    const Rect frame = frame_around(job.tile, job.bands);
    TileLevels levels(frame, window_of(job.tile.moved(-frame.x, -frame.y)), job.bands, layout.channels, false);
    const std::vector<Seam> seams = find_seams(shares, levels);
    Rect composed = job.tile;
    for (const Seam& seam : seams)
        composed = bounding(composed, seam.part);

    PixelBlock block;
    const Plane<float> composite = compose(job, shares, labels, intersect(composed, labels.rect), block);
    if (!seams.empty()) {
        const CoveredShare covered(labels, levels);
        for (const Seam& seam : seams)
            add_differences(job, seam, labels, covered, composite, levels, block);
        collapse(levels);
    }
    finish(job, composite, seams.empty() ? nullptr : &levels);
}

} // namespace panoval::mosaic
