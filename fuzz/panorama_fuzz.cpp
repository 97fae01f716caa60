// SPDX-License-Identifier: MIT
// Panoramas of random layouts, options, masks and hosts: whatever their host does, the engine answers with a code and a
// text, and a panorama has the same bits as a whole, by tiles of any size, from a stored plan, and on any budget.
#include "fuzz/input.h"
#include "panoval_mosaic.h"

#include <algorithm>
#include <string>

namespace
{

using namespace panoval::fuzz;

struct Picture {
    PanovalMosaicPicture record = {};
    std::vector<std::uint8_t> samples;
    std::vector<std::uint8_t> mask;
    std::vector<std::uint8_t> keep;
};

// What the input says: pictures, options, and when the host gives up.
struct Case {
    std::vector<Picture> pictures;
    PanovalMosaicOptions options = {};
    int calls_to_failure = -1;
    int reports_to_cancel = -1;
};

constexpr std::int32_t kWidest = 90;

std::vector<std::uint8_t> samples_of(Input& input, const PanovalMosaicPicture& record)
{
    const auto count = area(record.width, record.height) * static_cast<std::size_t>(record.channels * record.bits / 8);
    std::vector<std::uint8_t> samples = input.samples(count);
    if (input.flag())
        return samples;
    // A scene that neighbours share, so that there is something to measure.
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t pixel = i / static_cast<std::size_t>(record.channels * record.bits / 8);
        const auto x = record.x + static_cast<std::int64_t>(pixel % static_cast<std::size_t>(record.width));
        const auto y = record.y + static_cast<std::int64_t>(pixel / static_cast<std::size_t>(record.width));
        samples[i] = static_cast<std::uint8_t>(60 + ((x + 500) / 7 * 31 + (y + 500) / 5 * 17) % 90 + samples[i] % 16);
    }
    return samples;
}

Picture picture_of(Input& input, std::int32_t channels, std::int32_t bits)
{
    Picture picture;
    picture.record.x = input.number(-60, 60);
    picture.record.y = input.number(-40, 40);
    picture.record.width = input.number(1, kWidest);
    picture.record.height = input.number(1, 60);
    picture.record.channels = channels;
    picture.record.bits = bits;
    picture.record.random_access = input.flag() ? 1 : 0;
    picture.samples = samples_of(input, picture.record);
    const std::size_t pixels = area(picture.record.width, picture.record.height);
    if (input.number(0, 2) == 0)
        picture.mask = input.mask(pixels);
    if (input.number(0, 4) == 0)
        picture.keep = input.mask(pixels);
    picture.record.has_mask = picture.mask.empty() ? 0 : 1;
    picture.record.has_keep = picture.keep.empty() ? 0 : 1;
    return picture;
}

Case case_of(Input& input)
{
    Case made;
    const std::int32_t depths[] = {8, 16};
    const std::int32_t channel_counts[] = {1, 3, 4};
    const std::int32_t bits = depths[input.number(0, 1)];
    const std::int32_t channels = channel_counts[input.number(0, 2)];
    PanovalMosaicOptions& options = made.options;
    options.bands = input.number(0, 7);
    options.blend = input.number(0, 4) == 0 ? PANOVAL_MOSAIC_FEATHER : PANOVAL_MOSAIC_MULTIBAND;
    options.seams = input.number(0, 2);
    options.gains = input.number(0, 3);
    options.vignetting = input.flag() ? 1 : 0;
    options.output_bits = input.number(0, 2) * 8;
    options.wrap = input.number(0, 4) == 0 ? input.number(kWidest, 200) : 0;
    options.threads = input.number(1, 3);
    options.tile_size = input.flag() ? input.number(16, 90) : 0;
    options.memory = input.flag() ? input.number<std::uint64_t>(1u << 20, 1u << 23) : 0;
    if (input.number(0, 7) == 0)
        made.calls_to_failure = input.number(0, 20);
    if (input.number(0, 7) == 0)
        made.reports_to_cancel = input.number(0, 20);
    const int count = input.number(1, 5);
    options.anchor = input.flag() ? input.number(1, count) : 0;
    for (int i = 0; i < count; ++i)
        made.pictures.push_back(picture_of(input, channels, bits));
    return made;
}

void copy_rows(const std::vector<std::uint8_t>& from, std::size_t row_bytes, const PanovalMosaicRows& rows, void* to,
               std::size_t stride)
{
    for (std::int32_t i = 0; i < rows.row_count; ++i)
        std::memcpy(static_cast<std::uint8_t*>(to) + static_cast<std::size_t>(i) * stride,
                    &from[static_cast<std::size_t>(rows.first_row + i) * row_bytes], row_bytes);
}

class Mosaic
{
public:
    // gives_up: the host does what the input says; otherwise it never fails
    Mosaic(const Case& made, bool gives_up) : case_(made), gives_up_(gives_up)
    {
        require(panoval_mosaic_create(&mosaic_) == PANOVAL_MOSAIC_OK);
        const PanovalMosaicHost host = {this, &Mosaic::read_rows, nullptr, &Mosaic::report};
        require(panoval_mosaic_set_host(mosaic_, &host) == PANOVAL_MOSAIC_OK);
    }
    Mosaic(const Mosaic&) = delete;
    Mosaic& operator=(const Mosaic&) = delete;
    ~Mosaic() { panoval_mosaic_destroy(mosaic_); }

    PanovalMosaic* get() const { return mosaic_; }

    // Whether the layout is one; otherwise there is a text.
    bool set_up(const PanovalMosaicOptions& options) const
    {
        if (!is_done(panoval_mosaic_set_options(mosaic_, &options)))
            return false;
        for (const Picture& picture : case_.pictures)
            if (!is_done(panoval_mosaic_add_picture(mosaic_, &picture.record)))
                return false;
        PanovalMosaicLayout layout = {};
        return is_done(panoval_mosaic_layout(mosaic_, &layout));
    }

    bool is_done(std::int32_t code) const
    {
        require(code >= PANOVAL_MOSAIC_OK && code < PANOVAL_MOSAIC_INTERNAL);
        require(code == PANOVAL_MOSAIC_OK || panoval_mosaic_error(mosaic_, nullptr, 0) > 0);
        return code == PANOVAL_MOSAIC_OK;
    }

private:
    static std::int32_t read_rows(void* user, const PanovalMosaicRows* rows)
    {
        const Mosaic& mosaic = *static_cast<const Mosaic*>(user);
        const Picture& picture = mosaic.case_.pictures[static_cast<std::size_t>(rows->picture)];
        require(rows->first_row >= 0 && rows->row_count > 0 &&
                rows->first_row + rows->row_count <= picture.record.height);
        const auto width = static_cast<std::size_t>(picture.record.width);
        const auto height = static_cast<std::size_t>(picture.record.height);
        copy_rows(picture.samples, picture.samples.size() / height, *rows, rows->samples, rows->samples_stride);
        if (!picture.mask.empty())
            copy_rows(picture.mask, width, *rows, rows->mask, rows->mask_stride);
        if (!picture.keep.empty())
            copy_rows(picture.keep, width, *rows, rows->keep, rows->keep_stride);
        return mosaic.gives_up_ && mosaic.case_.calls_to_failure == rows->first_row ? 1 : 0;
    }
    static std::int32_t report(void* user, std::int32_t, double fraction)
    {
        auto& mosaic = *static_cast<Mosaic*>(user);
        require(fraction >= 0 && fraction <= 1);
        return mosaic.gives_up_ && mosaic.reports_++ == mosaic.case_.reports_to_cancel ? 1 : 0;
    }

    const Case& case_;
    const bool gives_up_;
    int reports_ = 0;
    PanovalMosaic* mosaic_ = nullptr;
};

struct Panorama {
    std::vector<std::uint8_t> samples;
    std::vector<std::uint8_t> coverage;
    std::size_t width = 0;
    std::size_t pixel_bytes = 0;

    explicit Panorama(const PanovalMosaicLayout& layout)
        : width(static_cast<std::size_t>(layout.width)),
          pixel_bytes(static_cast<std::size_t>(layout.channels * layout.bits / 8))
    {
        const std::size_t pixels = width * static_cast<std::size_t>(layout.height);
        samples.assign(pixels * pixel_bytes, 7);
        coverage.assign(pixels, 7);
    }
    std::size_t at(std::int64_t x, std::int64_t y) const
    {
        return static_cast<std::size_t>(y) * width + static_cast<std::size_t>(x);
    }
    friend bool operator==(const Panorama&, const Panorama&) = default;
};

std::int32_t take_piece(void* user, const PanovalMosaicRect* rect, const void* samples, std::size_t stride,
                        const std::uint8_t* coverage, std::size_t coverage_stride, char*)
{
    auto& panorama = *static_cast<Panorama*>(user);
    const auto count = static_cast<std::size_t>(rect->width);
    for (std::int64_t y = 0; y < rect->height; ++y) {
        const std::size_t to = panorama.at(rect->x, rect->y + y);
        const auto row = static_cast<std::size_t>(y);
        std::memcpy(&panorama.samples[to * panorama.pixel_bytes],
                    static_cast<const std::uint8_t*>(samples) + row * stride, count * panorama.pixel_bytes);
        std::memcpy(&panorama.coverage[to], coverage + row * coverage_stride, count);
    }
    return 0;
}

PanovalMosaicLayout layout_of(const Mosaic& mosaic)
{
    PanovalMosaicLayout layout = {};
    require(panoval_mosaic_layout(mosaic.get(), &layout) == PANOVAL_MOSAIC_OK);
    return layout;
}

// Measures and blends everything; false where the host or the budget did not let it.
bool run(const Mosaic& mosaic, bool by_tiles, Panorama& panorama)
{
    const PanovalMosaicSink sink = {&panorama, take_piece, by_tiles ? 1 : 0, 1, {}};
    return mosaic.is_done(panoval_mosaic_measure(mosaic.get(), PANOVAL_MOSAIC_MEASURE_ALL)) &&
           mosaic.is_done(panoval_mosaic_run(mosaic.get(), &sink));
}

// Two rectangles of the canvas from the plan of another mosaic.
void blend_parts(const Mosaic& measured, const Case& made, Input& input, const Panorama& whole)
{
    const char* text = nullptr;
    std::size_t size = 0;
    require(panoval_mosaic_save_plan(measured.get(), &text, &size) == PANOVAL_MOSAIC_OK);
    const Mosaic other(made, false);
    require(panoval_mosaic_load_plan(other.get(), text, size) == PANOVAL_MOSAIC_OK);
    const PanovalMosaicLayout layout = layout_of(other);
    for (int n = 0; n < 2; ++n) {
        PanovalMosaicRect rect = {};
        rect.x = input.number<std::int64_t>(0, layout.width - 1);
        rect.y = input.number<std::int64_t>(0, layout.height - 1);
        rect.width = input.number<std::int64_t>(1, layout.width - rect.x);
        rect.height = input.number<std::int64_t>(1, layout.height - rect.y);
        const auto width = static_cast<std::size_t>(rect.width);
        std::vector<std::uint8_t> samples(width * static_cast<std::size_t>(rect.height) * whole.pixel_bytes, 9);
        std::vector<std::uint8_t> coverage(width * static_cast<std::size_t>(rect.height), 9);
        require(other.is_done(panoval_mosaic_blend(other.get(), &rect, samples.data(), width * whole.pixel_bytes,
                                                   coverage.data(), width)));
        for (std::int64_t y = 0; y < rect.height; ++y) {
            const std::size_t row = static_cast<std::size_t>(y) * width;
            const std::size_t at = whole.at(rect.x, rect.y + y);
            require(same_bits(&samples[row * whole.pixel_bytes], &whole.samples[at * whole.pixel_bytes],
                              width * whole.pixel_bytes));
            require(same_bits(&coverage[row], &whole.coverage[at], width));
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const Case made = case_of(input);
    const Mosaic first(made, true);
    if (!first.set_up(made.options))
        return 0;
    Panorama whole(layout_of(first));
    const bool is_whole = run(first, input.flag(), whole);

    // Once more with everything that must not matter changed, on the slowest instruction set.
    hwy::SetSupportedTargetsForTest(hwy::SupportedAndGeneratedTargets().back());
    PanovalMosaicOptions options = made.options;
    options.threads = 4 - options.threads;
    options.tile_size = input.number(16, 120);
    options.memory = 0;
    const Mosaic second(made, false);
    require(second.set_up(options));
    Panorama again(layout_of(second));
    require(run(second, input.flag(), again));
    require(!is_whole || again == whole);
    blend_parts(second, made, input, again);
    return 0;
}
