// SPDX-License-Identifier: MIT
// The C interface: checks pointers, turns exceptions into codes and texts, and leaves the rest to the engine.
#include "panoval_mosaic.h"

#include "mosaic/base/errors.h"
#include "mosaic/engine.h"
#include "mosaic/plan_json.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <exception>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

using panoval::mosaic::Engine;
using panoval::mosaic::Error;
using panoval::mosaic::fail;
using panoval::mosaic::Failure;
using panoval::mosaic::Gains;
using panoval::mosaic::GainStatistics;
using panoval::mosaic::Layout;
using panoval::mosaic::LogRatio;
using panoval::mosaic::Overlap;
using panoval::mosaic::OverlapStatistics;
using panoval::mosaic::Plan;
using panoval::mosaic::Rect;

static_assert(sizeof(PanovalMosaicOptions) == 96 && offsetof(PanovalMosaicOptions, reserved) == 52);
static_assert(sizeof(PanovalMosaicPicture) == 72 && offsetof(PanovalMosaicPicture, name) == 64);
static_assert(sizeof(PanovalMosaicRect) == 32 && sizeof(PanovalMosaicLayout) == 104);
static_assert(sizeof(PanovalMosaicOverlap) == 80 && sizeof(PanovalMosaicEstimate) == 64);
static_assert(sizeof(PanovalMosaicCounts) == 32 && sizeof(PanovalMosaicNeeds) == 32);
static_assert(sizeof(PanovalMosaicRatio) == 24 && sizeof(PanovalMosaicStatistics) == 184);
static_assert(static_cast<int>(OverlapStatistics::Says::SecondBlank) == PANOVAL_MOSAIC_SAYS_SECOND_BLANK);
static_assert(static_cast<int>(Failure::Internal) == PANOVAL_MOSAIC_INTERNAL);

struct PanovalMosaic {
    Engine engine;
    std::string plan_text;
    std::string verdict_text;

    mutable std::mutex error_mutex;
    std::string error;

    std::int32_t fail_with(Failure failure, const char* text) noexcept
    {
        const std::lock_guard lock(error_mutex);
        try {
            error = text;
        } catch (const std::bad_alloc&) {
            error.clear();
        }
        return static_cast<std::int32_t>(failure);
    }
};

namespace
{

// Nothing that is thrown leaves the library.
template <class Work>
std::int32_t guarded(PanovalMosaic* mosaic, const Work& work) noexcept
{
    if (mosaic == nullptr)
        return PANOVAL_MOSAIC_ARGUMENT;
    try {
        work();
        return PANOVAL_MOSAIC_OK;
    } catch (const Error& error) {
        return mosaic->fail_with(error.failure(), error.what());
    } catch (const std::bad_alloc&) {
        return mosaic->fail_with(Failure::Memory, "the heap is exhausted");
    } catch (const std::exception& error) {
        return mosaic->fail_with(Failure::Internal, error.what());
    } catch (...) {
        return mosaic->fail_with(Failure::Internal, "something unknown was thrown");
    }
}

void require(const void* pointer, const char* name)
{
    if (pointer == nullptr)
        fail(Failure::Argument, "found null as ", name, "; expected a pointer");
}

void require_index(std::int64_t index, std::size_t count, const char* what)
{
    if (index < 0 || static_cast<std::uint64_t>(index) >= count)
        fail(Failure::Argument, "found ", what, " ", index, "; expected 0 to ", static_cast<std::int64_t>(count) - 1);
}

PanovalMosaicRect record_of(const Rect& rect)
{
    return {rect.x, rect.y, rect.width, rect.height};
}

PanovalMosaicLayout layout_record(const Plan& plan, std::size_t overlaps)
{
    const bool has_bands = plan.settings.blend == panoval::mosaic::BlendMode::MultiBand;
    PanovalMosaicLayout record{};
    record.width = plan.layout.width;
    record.height = plan.layout.height;
    record.origin_x = plan.layout.origin_x;
    record.origin_y = plan.layout.origin_y;
    record.pictures = static_cast<std::int64_t>(plan.layout.pictures.size());
    record.overlaps = static_cast<std::int64_t>(overlaps);
    record.tiles = plan.grid.count();
    record.tile_columns = plan.grid.columns();
    record.tile_rows = plan.grid.rows();
    record.tile_width = plan.grid.tile_width;
    record.tile_height = plan.grid.tile_height;
    record.channels = plan.layout.channels;
    record.bits = plan.output_bits;
    record.bands = has_bands ? plan.bands : 0;
    record.wraps = plan.layout.wraps ? 1 : 0;
    return record;
}

PanovalMosaicPicture picture_record(const Plan& plan, std::size_t index)
{
    const panoval::mosaic::PlacedPicture& picture = plan.layout.pictures[index];
    PanovalMosaicPicture record{};
    record.x = picture.rect.x + plan.layout.origin_x;
    record.y = picture.rect.y + plan.layout.origin_y;
    record.width = static_cast<std::int32_t>(picture.rect.width);
    record.height = static_cast<std::int32_t>(picture.rect.height);
    record.channels = plan.layout.channels;
    record.bits = plan.layout.bits;
    record.has_mask = picture.has_mask ? 1 : 0;
    record.has_keep = plan.traits[index].has_keep ? 1 : 0;
    record.random_access = plan.traits[index].random_access ? 1 : 0;
    record.name = picture.name.c_str();
    return record;
}

PanovalMosaicOverlap record_of(const Overlap& overlap, const Layout& layout)
{
    const Rect first = overlap.in_first(layout);
    const Rect second = overlap.in_second(layout);
    return {static_cast<std::int64_t>(overlap.first),
            static_cast<std::int64_t>(overlap.second),
            record_of(overlap.region),
            first.x,
            first.y,
            second.x,
            second.y};
}

PanovalMosaicRatio record_of(const LogRatio& ratio)
{
    return {ratio.value, ratio.error, ratio.is_known ? 1 : 0, 0};
}

PanovalMosaicStatistics record_of(const OverlapStatistics& overlap)
{
    PanovalMosaicStatistics record{};
    record.pixels = static_cast<std::int64_t>(overlap.shared);
    record.says = static_cast<std::int32_t>(overlap.says);
    for (std::size_t c = 0; c < overlap.channels.size(); ++c)
        record.channels[c] = record_of(overlap.channels[c]);
    record.all = record_of(overlap.all);
    record.seen = record_of(overlap.seen);
    record.spread = overlap.spread;
    record.correlation = overlap.correlation;
    record.unevenness = overlap.unevenness;
    return record;
}

LogRatio ratio_of(const PanovalMosaicRatio& record)
{
    if (record.reserved != 0 || (record.is_known != 0 && record.is_known != 1))
        fail(Failure::Argument, "found is_known ", record.is_known, " and reserved ", record.reserved,
             " in a ratio; expected 0 or 1, and 0");
    return record.is_known == 0 ? LogRatio{} : LogRatio{record.value, record.error, true};
}

OverlapStatistics statistics_of(const PanovalMosaicStatistics& record)
{
    if (record.reserved != 0 || record.pixels < 0)
        fail(Failure::Argument, "found ", record.pixels, " pixels and reserved ", record.reserved,
             " in statistics; expected 0 or more, and 0");
    OverlapStatistics overlap;
    overlap.shared = static_cast<std::uint64_t>(record.pixels);
    overlap.says = static_cast<OverlapStatistics::Says>(record.says);
    for (std::size_t c = 0; c < overlap.channels.size(); ++c)
        overlap.channels[c] = ratio_of(record.channels[c]);
    overlap.all = ratio_of(record.all);
    overlap.seen = ratio_of(record.seen);
    overlap.spread = record.spread;
    overlap.correlation = record.correlation;
    overlap.unevenness = record.unevenness;
    return overlap;
}

void give_text(const std::string& text, const char** out, std::size_t* size)
{
    *out = text.c_str();
    if (size != nullptr)
        *size = text.size();
}

} // namespace

extern "C" {

PANOVAL_MOSAIC_API int32_t panoval_mosaic_version(void)
{
    return PANOVAL_MOSAIC_VERSION_MAJOR * 10000 + PANOVAL_MOSAIC_VERSION_MINOR * 100 + PANOVAL_MOSAIC_VERSION_PATCH;
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_create(PanovalMosaic** mosaic)
{
    if (mosaic == nullptr)
        return PANOVAL_MOSAIC_ARGUMENT;
    *mosaic = nullptr;
    try {
        *mosaic = std::make_unique<PanovalMosaic>().release(); // panoval_mosaic_destroy deletes it
        return PANOVAL_MOSAIC_OK;
    } catch (...) {
        return PANOVAL_MOSAIC_MEMORY;
    }
}

PANOVAL_MOSAIC_API void panoval_mosaic_destroy(PanovalMosaic* mosaic)
{
    const std::unique_ptr<PanovalMosaic> owned(mosaic);
}

PANOVAL_MOSAIC_API size_t panoval_mosaic_error(const PanovalMosaic* mosaic, char* text, size_t size)
{
    if (text == nullptr)
        size = 0;
    if (size > 0)
        text[0] = 0;
    if (mosaic == nullptr)
        return 0;
    const std::lock_guard lock(mosaic->error_mutex);
    if (size > 0) {
        const std::size_t length = std::min(size - 1, mosaic->error.size());
        std::memcpy(text, mosaic->error.data(), length);
        text[length] = 0;
    }
    return mosaic->error.size();
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_set_options(PanovalMosaic* mosaic, const PanovalMosaicOptions* options)
{
    return guarded(mosaic, [&] {
        require(options, "options");
        mosaic->engine.set_options(*options);
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_set_host(PanovalMosaic* mosaic, const PanovalMosaicHost* host)
{
    return guarded(mosaic, [&] {
        require(host, "host");
        mosaic->engine.set_host(*host);
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_add_picture(PanovalMosaic* mosaic, const PanovalMosaicPicture* picture)
{
    return guarded(mosaic, [&] {
        require(picture, "picture");
        mosaic->engine.add_picture(*picture);
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_layout(PanovalMosaic* mosaic, PanovalMosaicLayout* layout)
{
    return guarded(mosaic, [&] {
        require(layout, "layout");
        const Plan& plan = mosaic->engine.plan();
        *layout = layout_record(plan, mosaic->engine.overlaps().size());
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_picture(PanovalMosaic* mosaic, int64_t index, PanovalMosaicPicture* picture)
{
    return guarded(mosaic, [&] {
        require(picture, "picture");
        const Plan& plan = mosaic->engine.plan();
        require_index(index, plan.layout.pictures.size(), "picture");
        *picture = picture_record(plan, static_cast<std::size_t>(index));
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_overlap(PanovalMosaic* mosaic, int64_t index, PanovalMosaicOverlap* overlap)
{
    return guarded(mosaic, [&] {
        require(overlap, "overlap");
        const auto& overlaps = mosaic->engine.overlaps();
        require_index(index, overlaps.size(), "overlap");
        *overlap = record_of(overlaps[static_cast<std::size_t>(index)], mosaic->engine.plan().layout);
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_estimate(PanovalMosaic* mosaic, PanovalMosaicEstimate* estimate)
{
    return guarded(mosaic, [&] {
        require(estimate, "estimate");
        *estimate = mosaic->engine.estimate();
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_needs(PanovalMosaic* mosaic, PanovalMosaicNeeds* needs)
{
    return guarded(mosaic, [&] {
        require(needs, "needs");
        *needs = mosaic->engine.least_needs();
    });
}

PANOVAL_MOSAIC_API int64_t panoval_mosaic_reach(int32_t bands)
{
    return panoval::mosaic::farthest_reach(std::clamp(bands, 0, PANOVAL_MOSAIC_MOST_BANDS));
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_save_plan(PanovalMosaic* mosaic, const char** text, size_t* size)
{
    return guarded(mosaic, [&] {
        require(text, "text");
        mosaic->plan_text = panoval::mosaic::plan_to_json(mosaic->engine.plan());
        give_text(mosaic->plan_text, text, size);
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_load_plan(PanovalMosaic* mosaic, const char* text, size_t size)
{
    return guarded(mosaic, [&] {
        require(text, "text");
        mosaic->engine.load_plan(text, size);
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_measure(PanovalMosaic* mosaic, int32_t parts)
{
    return guarded(mosaic, [&] { mosaic->engine.measure(parts); });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_gains(PanovalMosaic* mosaic, int64_t index, double gains[4],
                                                double falloff[3], int32_t* per_channel, int32_t* is_outlier)
{
    return guarded(mosaic, [&] {
        require(gains, "gains");
        const Gains& known = mosaic->engine.gains();
        require_index(index, known.corrections.gains.size(), "picture");
        const auto picture = static_cast<std::size_t>(index);
        std::copy_n(known.corrections.gains[picture].begin(), 4, gains);
        if (falloff != nullptr)
            std::copy_n(known.corrections.falloff.c.begin(), 3, falloff);
        if (per_channel != nullptr)
            *per_channel = known.per_channel ? 1 : 0;
        if (is_outlier != nullptr)
            *is_outlier = std::binary_search(known.outliers.begin(), known.outliers.end(), picture) ? 1 : 0;
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_set_gains(PanovalMosaic* mosaic, const double* gains, int64_t pictures,
                                                    const double falloff[3])
{
    return guarded(mosaic, [&] {
        require(gains, "gains");
        mosaic->engine.set_gains(gains, pictures, falloff);
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_statistics(PanovalMosaic* mosaic, int64_t index,
                                                     PanovalMosaicStatistics* statistics)
{
    return guarded(mosaic, [&] {
        require(statistics, "statistics");
        const std::vector<OverlapStatistics>& known = mosaic->engine.statistics().overlaps;
        require_index(index, known.size(), "overlap");
        *statistics = record_of(known[static_cast<std::size_t>(index)]);
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_set_statistics(PanovalMosaic* mosaic,
                                                         const PanovalMosaicStatistics* statistics, int64_t overlaps,
                                                         const double falloff[3])
{
    return guarded(mosaic, [&] {
        const std::size_t expected = mosaic->engine.overlaps().size();
        if (overlaps < 0 || static_cast<std::uint64_t>(overlaps) != expected)
            fail(Failure::Argument, "found statistics of ", overlaps, " overlaps; expected ", expected);
        if (overlaps > 0)
            require(statistics, "statistics");
        GainStatistics taken;
        for (std::int64_t i = 0; i < overlaps; ++i)
            taken.overlaps.push_back(statistics_of(statistics[i]));
        if (falloff != nullptr)
            std::copy_n(falloff, 3, taken.falloff.c.begin());
        mosaic->engine.set_statistics(std::move(taken));
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_seam_row(PanovalMosaic* mosaic, int64_t row, int32_t* labels)
{
    return guarded(mosaic, [&] {
        require(labels, "labels");
        const panoval::mosaic::SeamMap& seams = mosaic->engine.seams();
        require_index(row, static_cast<std::size_t>(seams.height()), "row");
        seams.read(row, 0, seams.width(), false, labels);
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_set_seam_rows(PanovalMosaic* mosaic, int64_t first_row, int64_t rows,
                                                        const int32_t* labels, size_t stride)
{
    return guarded(mosaic, [&] {
        require(labels, "labels");
        mosaic->engine.set_seam_rows(first_row, rows, labels, stride);
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_verdict(PanovalMosaic* mosaic, int32_t with_distributions, const char** text,
                                                  size_t* size)
{
    return guarded(mosaic, [&] {
        require(text, "text");
        mosaic->verdict_text = mosaic->engine.verdict(with_distributions);
        give_text(mosaic->verdict_text, text, size);
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_tile(PanovalMosaic* mosaic, int64_t tile, PanovalMosaicRect* rect)
{
    return guarded(mosaic, [&] {
        require(rect, "rect");
        const Plan& plan = mosaic->engine.plan();
        require_index(tile, static_cast<std::size_t>(plan.grid.count()), "tile");
        *rect = record_of(plan.grid.tile(tile));
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_blend(PanovalMosaic* mosaic, const PanovalMosaicRect* rect, void* samples,
                                                size_t samples_stride, uint8_t* coverage, size_t coverage_stride)
{
    return guarded(mosaic, [&] {
        require(rect, "rect");
        require(samples, "samples");
        mosaic->engine.blend({rect->x, rect->y, rect->width, rect->height}, static_cast<std::uint8_t*>(samples),
                             samples_stride, coverage, coverage_stride);
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_run(PanovalMosaic* mosaic, const PanovalMosaicSink* sink)
{
    return guarded(mosaic, [&] {
        require(sink, "sink");
        mosaic->engine.run(*sink);
    });
}

PANOVAL_MOSAIC_API int32_t panoval_mosaic_counts(const PanovalMosaic* mosaic, PanovalMosaicCounts* counts)
{
    if (mosaic == nullptr || counts == nullptr)
        return PANOVAL_MOSAIC_ARGUMENT;
    *counts = mosaic->engine.counts();
    return PANOVAL_MOSAIC_OK;
}

} // extern "C"
