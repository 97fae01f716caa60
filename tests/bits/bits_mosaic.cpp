// SPDX-License-Identifier: MIT
// The panorama engine through its C interface: plans, gains, seams, verdicts, and pixels as tiles and as a whole.
#include "panoval_mosaic.h"
#include "tests/bits/bits.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace panoval::bits
{

namespace
{

constexpr std::int32_t kWidth = 150;
constexpr std::int32_t kHeight = 110;
constexpr int kColumns = 3;
constexpr int kPictures = 9;

// What a panorama is made of.
struct Case {
    std::int32_t channels = 3;
    std::int32_t bits = 8;
    bool has_masks = false;
    std::int64_t wrap = 0;
    PanovalMosaicOptions options = {};
    bool keeps_threads = false; // whatever engine_threads says
};

struct Picture {
    std::int64_t x = 0;
    std::int64_t y = 0;
    std::vector<std::uint8_t> samples; // of either depth
    std::vector<std::uint8_t> mask;
};

// A scene of soft blocks and lines, the same wherever a picture shows it; with wrap it repeats round the horizon.
int scene_at(std::int64_t x, std::int64_t y, int c, std::int64_t wrap)
{
    const std::int64_t u = (wrap > 0 ? x % wrap : x) + 40;
    const auto block = static_cast<std::uint64_t>(u / 11 * 977 + y / 9 * 131 + c);
    const auto shade = static_cast<int>((block * 0x9E3779B97F4A7C15u) >> 58);
    const int line = u % 23 == 0 || y % 31 == 0 ? 25 : 0;
    return 50 + shade + line + static_cast<int>(u % 60 / 2);
}

// Each with an exposure of its own, darker towards its corners, with noise, and a thing that is in no other.
Picture picture_of(const Case& c, int number, Random& random)
{
    Picture picture;
    picture.x = number % kColumns * (c.wrap > 0 ? 100 : 105) + 1000;
    picture.y = number / kColumns * 70 - 300;
    const std::int64_t x0 = picture.x - 1000;
    const std::int64_t y0 = picture.y + 300;
    for (std::int64_t y = 0; y < kHeight; ++y)
        for (std::int64_t x = 0; x < kWidth; ++x) {
            const std::int64_t r = (x - 75) * (x - 75) + (y - 55) * (y - 55);
            for (int channel = 0; channel < c.channels; ++channel) {
                std::int64_t value = scene_at(x0 + x, y0 + y, channel, c.wrap) * (1000 + 23 * number - r / 50);
                value = value * (1000 - 15 * channel * (number % 2)) / 10000 + random.integer(-20, 20);
                if (number == 4 && x > 100 && x < 125 && y > 60)
                    value += 400;
                const auto sample = static_cast<std::uint16_t>(
                    std::clamp<std::int64_t>(c.bits == 8 ? value / 10 : 25 * value, 0, c.bits == 8 ? 255 : 65535));
                picture.samples.push_back(static_cast<std::uint8_t>(sample));
                if (c.bits == 16)
                    picture.samples.push_back(static_cast<std::uint8_t>(sample >> 8));
            }
        }
    if (c.has_masks && number % 2 == 0)
        for (int i = 0; i < kWidth * kHeight; ++i)
            picture.mask.push_back(i % kWidth < 4 + number || i % 97 == 0 ? 0 : 255);
    return picture;
}

// What follows a call that fails would be a digest of nothing.
void require(std::int32_t code)
{
    if (code == PANOVAL_MOSAIC_OK)
        return;
    std::fprintf(stderr, "the engine fails with code %d\n", code);
    std::exit(3);
}

// A mosaic whose host has its pictures in memory.
class Mosaic
{
public:
    explicit Mosaic(const Case& c) : Mosaic(c, true) {}
    Mosaic(const Case& c, bool with_pictures)
    {
        Random random(11);
        for (int i = 0; i < kPictures; ++i)
            pictures_.push_back(picture_of(c, i, random));
        sample_bytes_ = static_cast<std::size_t>(c.channels * c.bits / 8);
        require(panoval_mosaic_create(&mosaic_));
        PanovalMosaicOptions options = c.options;
        options.wrap = c.wrap;
        if (engine_threads > 0 && !c.keeps_threads)
            options.threads = engine_threads;
        require(panoval_mosaic_set_options(mosaic_, &options));
        const PanovalMosaicHost host = {this, &Mosaic::read_rows, nullptr, nullptr};
        require(panoval_mosaic_set_host(mosaic_, &host));
        for (const Picture& picture : pictures_) {
            PanovalMosaicPicture record = {};
            record.x = picture.x;
            record.y = picture.y;
            record.width = kWidth;
            record.height = kHeight;
            record.channels = c.channels;
            record.bits = c.bits;
            record.has_mask = picture.mask.empty() ? 0 : 1;
            record.random_access = 1;
            if (with_pictures)
                require(panoval_mosaic_add_picture(mosaic_, &record));
        }
    }
    Mosaic(const Mosaic&) = delete;
    Mosaic& operator=(const Mosaic&) = delete;
    ~Mosaic() { panoval_mosaic_destroy(mosaic_); }

    PanovalMosaic* get() const { return mosaic_; }
    PanovalMosaicLayout layout() const
    {
        PanovalMosaicLayout layout = {};
        require(panoval_mosaic_layout(mosaic_, &layout));
        return layout;
    }

private:
    static std::int32_t read_rows(void* user, const PanovalMosaicRows* rows)
    {
        const Mosaic& mosaic = *static_cast<const Mosaic*>(user);
        const Picture& picture = mosaic.pictures_[static_cast<std::size_t>(rows->picture)];
        for (std::int32_t i = 0; i < rows->row_count; ++i) {
            const auto at = static_cast<std::size_t>(i);
            const auto y = static_cast<std::size_t>(rows->first_row + i);
            std::memcpy(static_cast<std::uint8_t*>(rows->samples) + at * rows->samples_stride,
                        &picture.samples[y * kWidth * mosaic.sample_bytes_], kWidth * mosaic.sample_bytes_);
            if (rows->mask != nullptr)
                std::memcpy(rows->mask + at * rows->mask_stride, &picture.mask[y * kWidth], kWidth);
        }
        return 0;
    }

    PanovalMosaic* mosaic_ = nullptr;
    std::vector<Picture> pictures_;
    std::size_t sample_bytes_ = 1;
};

// Channels, depths, masks and the horizon; the options as given.
std::vector<Case> cases(const PanovalMosaicOptions& options)
{
    std::vector<Case> all = {{1, 8, false, 0, options},
                             {3, 8, true, 0, options},
                             {3, 16, false, 300, options},
                             {4, 16, true, 0, options},
                             {1, 8, true, 300, options}};
    for (Case& c : all)
        c.options.threads = 2;
    return all;
}

void add_text(Digest& digest, const char* text, std::size_t size)
{
    digest.add(static_cast<std::uint64_t>(size));
    for (std::size_t i = 0; i < size; ++i)
        digest.add(static_cast<std::uint64_t>(static_cast<unsigned char>(text[i])), 1);
}

void add_rect(Digest& digest, const PanovalMosaicRect& rect)
{
    for (const std::int64_t value : {rect.x, rect.y, rect.width, rect.height})
        digest.add(value);
}

void plans(Digest& digest)
{
    PanovalMosaicOptions options = {};
    options.tile_size = 64;
    for (const Case& c : cases(options)) {
        const Mosaic mosaic(c);
        const PanovalMosaicLayout layout = mosaic.layout();
        for (const std::int64_t value : {layout.width, layout.height, layout.origin_x, layout.origin_y, layout.pictures,
                                         layout.overlaps, layout.tiles, layout.tile_columns, layout.tile_rows})
            digest.add(value);
        digest.add(layout.bands);
        for (std::int64_t i = 0; i < layout.overlaps; ++i) {
            PanovalMosaicOverlap overlap = {};
            require(panoval_mosaic_overlap(mosaic.get(), i, &overlap));
            digest.add(overlap.first);
            digest.add(overlap.second);
            add_rect(digest, overlap.region);
        }
        for (std::int64_t i = 0; i < layout.tiles; ++i) {
            PanovalMosaicRect rect = {};
            require(panoval_mosaic_tile(mosaic.get(), i, &rect));
            add_rect(digest, rect);
        }
        PanovalMosaicPicture picture = {};
        require(panoval_mosaic_picture(mosaic.get(), 8, &picture));
        digest.add(picture.x);
        PanovalMosaicEstimate estimate = {};
        require(panoval_mosaic_estimate(mosaic.get(), &estimate));
        digest.add(estimate.panorama_bytes);
        digest.add(estimate.seconds);
    }
}

// A stored plan, what another mosaic makes of it, and the pixels of a tile there.
void stored_plans(Digest& digest)
{
    for (Case c : cases({})) {
        c.keeps_threads = true; // the text names them
        const Mosaic mosaic(c);
        require(panoval_mosaic_measure(mosaic.get(), PANOVAL_MOSAIC_MEASURE_SEAMS));
        const char* text = nullptr;
        std::size_t size = 0;
        require(panoval_mosaic_save_plan(mosaic.get(), &text, &size));
        add_text(digest, text, size);
        const Mosaic other(c, false);
        require(panoval_mosaic_load_plan(other.get(), text, size));
        std::vector<std::uint8_t> samples(std::size_t{90} * 50 * 8);
        const PanovalMosaicRect rect = {71, 33, 90, 50};
        require(panoval_mosaic_blend(other.get(), &rect, samples.data(), std::size_t{90} * 8, nullptr, 0));
        digest.add(samples);
    }
}

void add_gains(Digest& digest, const Mosaic& mosaic)
{
    for (int i = 0; i < kPictures; ++i) {
        double values[4] = {};
        double falloff[3] = {};
        std::int32_t flags[2] = {};
        require(panoval_mosaic_gains(mosaic.get(), i, values, falloff, &flags[0], &flags[1]));
        digest.add(values, 4);
        digest.add(falloff, 3);
        digest.add(flags, 2);
    }
}

void gains(Digest& digest)
{
    for (const std::int32_t mode : {PANOVAL_MOSAIC_GAINS_AUTOMATIC, PANOVAL_MOSAIC_GAINS_PER_PICTURE,
                                    PANOVAL_MOSAIC_GAINS_PER_CHANNEL, PANOVAL_MOSAIC_GAINS_OFF})
        for (const std::int32_t vignetting : {0, 1}) {
            PanovalMosaicOptions options = {};
            options.gains = mode;
            options.vignetting = vignetting;
            options.anchor = vignetting == 0 ? 0 : 3;
            for (const Case& c : cases(options)) {
                const Mosaic mosaic(c);
                require(panoval_mosaic_measure(mosaic.get(), PANOVAL_MOSAIC_MEASURE_GAINS));
                add_gains(digest, mosaic);
            }
        }
}

void add_ratio(Digest& digest, const PanovalMosaicRatio& ratio)
{
    digest.add(ratio.value);
    digest.add(ratio.error);
    digest.add(ratio.is_known);
}

void add_statistics(Digest& digest, const PanovalMosaicStatistics& record)
{
    digest.add(record.pixels);
    digest.add(record.says);
    for (const PanovalMosaicRatio& ratio : record.channels)
        add_ratio(digest, ratio);
    add_ratio(digest, record.all);
    add_ratio(digest, record.seen);
    digest.add(record.spread);
    digest.add(record.correlation);
    digest.add(record.unevenness);
}

// What the overlaps say, and the gains of half of it.
void statistics(Digest& digest)
{
    for (const std::int32_t vignetting : {0, 1}) {
        PanovalMosaicOptions options = {};
        options.vignetting = vignetting;
        for (const Case& c : cases(options)) {
            const Mosaic mosaic(c);
            require(panoval_mosaic_measure(mosaic.get(), PANOVAL_MOSAIC_MEASURE_GAINS));
            std::vector<PanovalMosaicStatistics> all(static_cast<std::size_t>(mosaic.layout().overlaps));
            for (std::size_t i = 0; i < all.size(); ++i) {
                require(panoval_mosaic_statistics(mosaic.get(), static_cast<std::int64_t>(i), &all[i]));
                add_statistics(digest, all[i]);
            }
            for (std::size_t i = 0; i < all.size(); i += 2)
                all[i].all.value *= 0.5;
            require(panoval_mosaic_set_statistics(mosaic.get(), all.data(), mosaic.layout().overlaps, nullptr));
            add_gains(digest, mosaic);
        }
    }
}

void seam_rows(Digest& digest)
{
    for (const std::int32_t seams : {PANOVAL_MOSAIC_SEAMS_OPTIMAL, PANOVAL_MOSAIC_SEAMS_NEAREST}) {
        PanovalMosaicOptions options = {};
        options.seams = seams;
        for (const Case& c : cases(options)) {
            const Mosaic mosaic(c);
            const Mosaic other(c);
            require(panoval_mosaic_measure(mosaic.get(), PANOVAL_MOSAIC_MEASURE_SEAMS));
            const PanovalMosaicLayout layout = mosaic.layout();
            std::vector<std::int32_t> row(static_cast<std::size_t>(layout.width));
            for (std::int64_t y = 0; y < layout.height; ++y) {
                require(panoval_mosaic_seam_row(mosaic.get(), y, row.data()));
                digest.add(row);
                require(panoval_mosaic_set_seam_rows(other.get(), y, 1, row.data(), 4 * row.size()));
            }
            require(panoval_mosaic_seam_row(other.get(), layout.height / 2, row.data()));
            digest.add(row);
        }
    }
}

void verdicts(Digest& digest)
{
    for (const std::int32_t gains_mode : {PANOVAL_MOSAIC_GAINS_AUTOMATIC, PANOVAL_MOSAIC_GAINS_OFF}) {
        PanovalMosaicOptions options = {};
        options.gains = gains_mode;
        for (const Case& c : cases(options)) {
            const Mosaic mosaic(c);
            require(panoval_mosaic_measure(mosaic.get(), PANOVAL_MOSAIC_MEASURE_ALL));
            const char* text = nullptr;
            std::size_t size = 0;
            require(panoval_mosaic_verdict(mosaic.get(), 1, &text, &size));
            add_text(digest, text, size);
        }
    }
}

// Takes pixels of a panorama.
struct Sink {
    Digest& digest;
    std::size_t pixel_bytes;
};

std::int32_t add_piece(void* user, const PanovalMosaicRect* rect, const void* samples, std::size_t stride,
                       const std::uint8_t* coverage, std::size_t coverage_stride, char* /*message*/)
{
    Digest& digest = static_cast<const Sink*>(user)->digest;
    const auto width = static_cast<std::size_t>(rect->width);
    for (std::int64_t y = 0; y < rect->height; ++y) {
        const auto row = static_cast<std::size_t>(y);
        digest.add(static_cast<const std::uint8_t*>(samples) + row * stride,
                   width * static_cast<const Sink*>(user)->pixel_bytes);
        digest.add(coverage + row * coverage_stride, width);
    }
    return 0;
}

// All of it, by tiles and by rows; a rectangle across tiles; and with gains that the host has set.
void panoramas(Digest& digest)
{
    for (const std::int32_t seams :
         {PANOVAL_MOSAIC_SEAMS_OPTIMAL, PANOVAL_MOSAIC_SEAMS_NEAREST, PANOVAL_MOSAIC_SEAMS_NONE})
        for (const std::int32_t bands : {0, 1, 5}) {
            PanovalMosaicOptions options = {};
            options.seams = seams;
            options.bands = bands;
            options.blend = seams == PANOVAL_MOSAIC_SEAMS_NONE && bands == 1 ? PANOVAL_MOSAIC_FEATHER : 0;
            options.tile_size = 96;
            options.output_bits = bands == 5 ? 8 : 0;
            for (Case c : cases(options)) {
                if (seams == PANOVAL_MOSAIC_SEAMS_NONE)
                    c.wrap = 0; // edges meet with seams alone
                const Mosaic mosaic(c);
                if (bands == 1) {
                    std::vector<double> set;
                    for (int i = 0; i < 4 * kPictures; ++i)
                        set.push_back(1 + 0.01 * (i % 7));
                    const double falloff[3] = {-0.1, 0.02, 0};
                    require(panoval_mosaic_set_gains(mosaic.get(), set.data(), kPictures, falloff));
                }
                const PanovalMosaicLayout layout = mosaic.layout();
                Sink user = {digest, static_cast<std::size_t>(layout.channels * layout.bits / 8)};
                const PanovalMosaicSink sink = {&user, add_piece, bands == 0 ? 1 : 0, 1, {}};
                require(panoval_mosaic_run(mosaic.get(), &sink));
                PanovalMosaicCounts counts = {};
                require(panoval_mosaic_counts(mosaic.get(), &counts));
            }
        }
}

void messages(Digest& digest)
{
    Case c;
    c.options.bands = 31;
    const Mosaic mosaic({});
    digest.add(panoval_mosaic_set_options(mosaic.get(), &c.options));
    char text[PANOVAL_MOSAIC_MESSAGE_SIZE] = {};
    const std::size_t size = panoval_mosaic_error(mosaic.get(), text, sizeof text);
    add_text(digest, text, size);
}

} // namespace

std::vector<Section> mosaic_sections()
{
    return {{"panoval_mosaic_layout _picture _overlap _tile _estimate", plans},
            {"panoval_mosaic_save_plan _load_plan _blend", stored_plans},
            {"panoval_mosaic_gains", gains},
            {"panoval_mosaic_statistics _set_statistics", statistics},
            {"panoval_mosaic_seam_row _set_seam_rows", seam_rows},
            {"panoval_mosaic_verdict", verdicts},
            {"panoval_mosaic_run _set_gains _counts", panoramas},
            {"panoval_mosaic_create _destroy _error _set_options _set_host _add_picture", messages}};
}

} // namespace panoval::bits
