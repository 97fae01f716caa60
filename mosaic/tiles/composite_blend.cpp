// SPDX-License-Identifier: MIT
// Away from the seams a tile is its owners' pixels, which go straight from the pictures to the output. Near them the
// composite is kept in floats, the pictures' differences from it go through their pyramids, and what these leave is
// added.
#include "mosaic/tiles/composite_blend.h"

#include "core/sample_depth.h"
#include "mosaic/seams/seam_zones.h"
#include "mosaic/tiles/composite_rows.h"
#include "mosaic/tiles/share_pixels.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace panoval::mosaic
{

namespace
{

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

// Spans of level 0 in pixels of the canvas.
RowSpans on_canvas(const RowSpans& spans, const Rect& frame)
{
    const Interval rows = spans.rows();
    RowSpans moved(Interval{rows.first + frame.y, rows.end + frame.y});
    for (std::int64_t y = rows.first; y < rows.end; ++y) {
        const Interval columns = spans.at(y);
        if (!columns.is_empty())
            moved.add(y + frame.y, {columns.first + frame.x, columns.end + frame.x});
    }
    return moved;
}

class TileWork
{
public:
    TileWork(const CompositeJob& job, CompositeScratch& scratch)
        : job_(job), labels_(scratch.labels), composite_(scratch.composite), levels_(scratch.levels),
          bands_(scratch.bands), covered_(scratch.covered), pixels_(job.layout, job.corrections, scratch.block),
          frame_(frame_around(job.tile, job.bands)), scale_(static_cast<float>(levels_per_byte(job.output_bits)) /
                                                            static_cast<float>(levels_per_byte(job.layout.bits)))
    {
    }

    void run()
    {
        read_labels();
        const std::vector<Share> shares = find_shares(job_.layout, labels_);
        levels_.reset(frame_, window_of(job_.tile.moved(-frame_.x, -frame_.y)), job_.bands, job_.layout.channels,
                      false);
        const std::vector<SeamZone> zones = find_zones(shares, levels_);
        lay_out(zones);
        put_nobody();
        for (const Share& share : shares)
            put_share(share);
        if (!zones.empty())
            correct(zones);
    }

private:
    Interval tile_columns() const { return {job_.tile.x, job_.tile.right()}; }
    std::size_t sample_bytes() const { return to_size(job_.output_bits / 8); }

    std::uint8_t* out(std::int64_t y, std::int64_t x) const
    {
        return job_.samples + to_size(y - job_.tile.y) * job_.row_bytes +
               to_size((x - job_.tile.x) * job_.layout.channels) * sample_bytes();
    }

    void read_labels()
    {
        const Layout& layout = job_.layout;
        const Rect reach = composite_reach(job_.tile, job_.bands);
        const Rect canvas = layout.wraps ? Rect{reach.x, 0, reach.width, layout.height} : layout.canvas();
        labels_.read(job_.seams, intersect(reach, canvas), layout.wraps);
    }

    // What is corrected, and where the composite is needed for that.
    void lay_out(const std::vector<SeamZone>& zones)
    {
        std::vector<RowSpans> sums;
        for (const Window& window : levels_.windows()) {
            RowSpans& level = sums.emplace_back(window.rows);
            for (const SeamZone& zone : zones)
                level.add(zone.products[sums.size() - 1]);
        }
        collapsed_ = collapse_spans(sums, levels_.windows());
        corrected_ = on_canvas(collapsed_[0], frame_);
        composed_.reset({labels_.rect().y, labels_.rect().bottom()});
        composed_.add(corrected_);
        for (const SeamZone& zone : zones)
            composed_.add(zone.shown);
        const Rect around = composed_.bounds().rect();
        composite_.reset(around, job_.layout.channels);
    }

    // ---- the composite ----

    // Calls take(columns) for the columns of a row of the tile that no seam reaches.
    template <class Take>
    void for_each_plain_part(std::int64_t y, Interval columns, const Take& take) const
    {
        if (y < job_.tile.y || y >= job_.tile.bottom())
            return;
        const Interval in_tile = intersect(columns, tile_columns());
        const Interval corrected = corrected_.at(y);
        const Interval before =
            corrected.is_empty() ? in_tile : Interval{in_tile.first, std::min(in_tile.end, corrected.first)};
        const Interval behind =
            corrected.is_empty() ? Interval{} : Interval{std::max(in_tile.first, corrected.end), in_tile.end};
        for (const Interval& part : {before, behind})
            if (!part.is_empty())
                take(part);
    }

    void put_nobody()
    {
        const std::int64_t channels = job_.layout.channels;
        for (std::int64_t y = labels_.rect().y; y < labels_.rect().bottom(); ++y)
            for (const LabelRun& run : labels_.row(y)) {
                if (run.label != kNobody)
                    continue;
                const Interval columns{run.first, run.end};
                const Interval composed = intersect(columns, composed_.at(y));
                if (!composed.is_empty())
                    std::fill_n(composite_.at(composed.first, y), composed.length() * channels, 0.0f);
                for_each_plain_part(y, columns, [&](Interval part) {
                    std::memset(out(y, part.first), 0, to_size(part.length() * channels) * sample_bytes());
                });
                put_coverage(y, columns, nullptr, 0);
            }
    }

    // mask: of the columns' first one on; null for the same everywhere
    void put_coverage(std::int64_t y, Interval columns, const std::uint8_t* mask, int value) const
    {
        const Interval part = intersect(columns, tile_columns());
        if (job_.coverage == nullptr || y < job_.tile.y || y >= job_.tile.bottom() || part.is_empty())
            return;
        std::uint8_t* const to =
            job_.coverage + to_size(y - job_.tile.y) * job_.coverage_row_bytes + to_size(part.first - job_.tile.x);
        if (mask != nullptr)
            std::memcpy(to, mask + (part.first - columns.first), to_size(part.length()));
        else
            std::memset(to, value, to_size(part.length()));
    }

    // What is looked at of a row of the canvas.
    Interval seen(std::int64_t y) const
    {
        const bool is_in_tile = y >= job_.tile.y && y < job_.tile.bottom();
        return bounding(composed_.at(y), is_in_tile ? tile_columns() : Interval{});
    }

    // Every pixel from its owner.
    void put_share(const Share& share)
    {
        const Interval rows = share.owned.rows();
        RowSpans wanted(rows);
        for (std::int64_t y = rows.first; y < rows.end; ++y)
            wanted.add(y, intersect(share.owned.at(y), seen(y)));
        const Rect part = wanted.bounds().rect();
        if (part.is_empty())
            return;
        pixels_.read(job_.reader, share, part);
        for (std::int64_t y = part.y; y < part.bottom(); ++y)
            for (const LabelRun& run : labels_.row(y, part.x, part.right())) {
                const Interval columns = intersect(Interval{run.first, run.end}, {part.x, part.right()});
                if (run.label == share.label())
                    put_run(y, columns);
            }
    }

    void put_run(std::int64_t y, Interval columns)
    {
        const Interval composed = intersect(columns, composed_.at(y));
        if (!composed.is_empty())
            pixels_.scaled(y, composed, composite_.at(composed.first, y));
        for_each_plain_part(
            y, columns, [&](Interval part) { pixels_.finished(y, part, scale_, out(y, part.first), sample_bytes()); });
        put_coverage(y, columns, pixels_.mask(y, columns.first), 255);
    }

    // ---- the correction ----

    // The picture's difference from the composite, and its own area.
    class DifferenceRows : public PictureRows
    {
    public:
        DifferenceRows(TileWork& work, const Share& share, const CoveredShare& covered)
            : work_(work), share_(share), covered_(covered)
        {
        }

        void load(std::int64_t y, std::int64_t first, std::int64_t count, float* samples, float* weights) override
        {
            const std::int64_t channels = work_.job_.layout.channels;
            const std::int64_t row = work_.frame_.y + y;
            const Rect& known = work_.labels_.rect();
            std::fill_n(samples, count * channels, 0.0f);
            std::fill_n(weights, count, 0.0f);
            const std::int64_t left = work_.frame_.x + first;
            const Interval all = intersect(Interval{left, left + count}, share_.columns());
            if (row < std::max(known.y, share_.rect.y) || row >= std::min(known.bottom(), share_.rect.bottom()) ||
                all.is_empty())
                return;
            for (const LabelRun& run : work_.labels_.row(row, all.first, all.end)) {
                const Interval columns = intersect(Interval{run.first, run.end}, all);
                if (run.label == share_.label())
                    std::fill_n(weights + (columns.first - left), columns.length(), 1.0f);
                else
                    show(row, columns, samples + (columns.first - left) * channels);
            }
        }

        void adjust(int level, std::int64_t y, std::int64_t first, std::int64_t count, float* samples,
                    float* weights) override
        {
            covered_.normalize(level, y, first, count, work_.job_.layout.channels, samples, weights);
        }

    private:
        void show(std::int64_t y, Interval columns, float* samples) const
        {
            work_.pixels_.difference(y, columns, work_.composite_.at(columns.first, y), samples);
            if (const std::uint8_t* const mask = work_.pixels_.mask(y, columns.first))
                clear_uncovered(mask, to_size(columns.length()), samples);
        }

        void clear_uncovered(const std::uint8_t* mask, std::size_t width, float* samples) const
        {
            const auto channels = to_size(work_.job_.layout.channels);
            const void* at = std::memchr(mask, 0, width);
            while (at != nullptr) {
                const auto x = to_size(static_cast<const std::uint8_t*>(at) - mask);
                std::fill_n(samples + x * channels, channels, 0.0f);
                at = std::memchr(mask + x + 1, 0, width - x - 1);
            }
        }

        TileWork& work_;
        const Share& share_;
        const CoveredShare& covered_;
    };

    // Of each level what all zones' bands span.
    static std::vector<Window> products_of(const std::vector<SeamZone>& zones)
    {
        std::vector<Window> products(zones.front().products.size());
        for (const SeamZone& zone : zones)
            for (std::size_t i = 0; i < products.size(); ++i) {
                const Window part = zone.products[i].bounds();
                products[i] = {bounding(products[i].columns, part.columns), bounding(products[i].rows, part.rows)};
            }
        return products;
    }

    void correct(const std::vector<SeamZone>& zones)
    {
        for (int i = 0; i <= levels_.bands(); ++i)
            levels_.clear(i, collapsed_[to_size(i)]);
        covered_.reset(labels_, levels_, products_of(zones));
        for (const SeamZone& zone : zones) {
            pixels_.read(job_.reader, *zone.share, zone.shown.bounds().rect());
            bands_.reset(levels_, {0, 0, frame_.width, frame_.height}, zone.products, zone.needed);
            DifferenceRows rows(*this, *zone.share, covered_);
            bands_.run(rows);
        }
        collapse();
        finish();
    }

    // Adds the levels up; level 0 holds the correction then.
    void collapse()
    {
        for (int i = levels_.bands() - 1; i >= 0; --i) {
            const Window& window = levels_.windows()[to_size(i)];
            const RowSpans& spans = collapsed_[to_size(i)];
            TileExpander expander(levels_, i, spans);
            for (std::int64_t y = spans.rows().first; y < spans.rows().end; ++y) {
                const Interval columns = spans.at(y);
                if (columns.is_empty())
                    continue;
                const std::int64_t skipped = (columns.first - window.columns.first) * levels_.channels();
                CoarseRows coarse = expander.around(y);
                for (const float*& row : coarse.row)
                    row += skipped;
                add_expanded_row(levels_.sums(i, y) + skipped, coarse, to_size(columns.length() * levels_.channels()));
            }
        }
    }

    void finish()
    {
        const Window& window = levels_.windows()[0];
        for (std::int64_t y = job_.tile.y; y < job_.tile.bottom(); ++y) {
            const Interval columns = corrected_.at(y);
            if (columns.is_empty())
                continue;
            const std::int64_t skipped = columns.first - frame_.x - window.columns.first;
            finish_row(composite_.at(columns.first, y), levels_.sums(0, y - frame_.y) + skipped * levels_.channels(),
                       scale_, to_size(columns.length() * levels_.channels()), out(y, columns.first), sample_bytes());
        }
    }

    const CompositeJob& job_;
    LabelRuns& labels_;
    Plane<float>& composite_;
    TileLevels& levels_;
    BandWindow& bands_;
    CoveredShare& covered_;
    SharePixels pixels_;
    const Rect frame_;
    const float scale_;
    std::vector<RowSpans> collapsed_; // what is not 0 of each level's sums
    RowSpans corrected_;              // of the tile
    RowSpans composed_;               // where the composite is needed
};

} // namespace

Rect composite_reach(const Rect& tile, int bands)
{
    const Rect frame = frame_around(tile, bands);
    const Window in_frame = window_of(tile.moved(-frame.x, -frame.y));
    const auto needed =
        picture_windows(collapse_windows(in_frame, bands, frame.width, frame.height), frame.width, frame.height);
    return needed[0].rect().moved(frame.x, frame.y);
}

void blend_composite(const CompositeJob& job, CompositeScratch& scratch)
{
    TileWork(job, scratch).run();
}

} // namespace panoval::mosaic
