// SPDX-License-Identifier: MIT
// The multi-band blender: weighted sums of every image's bands on a pyramid of canvases, which blending divides by the
// weights and collapses (Burt and Adelson, A multiresolution spline with application to image mosaics, 1983).
#include "blend/band_region.h"
#include "blend/border.h"
#include "blend/normalize.h"
#include "blend/pyramid.h"
#include "core/heap.h"
#include "core/numbers.h"
#include "panoval.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace
{

using namespace panoval;

// The larger side allows that many bands, at least one.
std::int32_t bands_for(const Roi& canvas, std::int32_t requested)
{
    const double larger = std::max(canvas.width, canvas.height);
    const std::int32_t possible = truncate_to_int(std::ceil(std::log(larger) / std::log(2.0)));
    return std::max(std::min(requested, possible), 1);
}

std::int64_t round_up(std::int64_t size, std::int64_t unit)
{
    return size + (unit - size % unit) % unit;
}

bool fits_32_bits(std::int64_t size)
{
    return size >= 0 && size <= std::numeric_limits<std::int32_t>::max();
}

std::size_t sample_count(Size size, std::int32_t channels)
{
    return to_count(size.width) * to_count(size.height) * to_count(channels);
}

// A level without samples needs no block.
bool open_level(Matf& level, Size size, std::int32_t channels)
{
    MatfReset(&level, size.width, size.height, channels);
    return level.data != nullptr || sample_count(size, channels) == 0;
}

bool open_levels(MultiBandBlender& blender, std::int32_t channels)
{
    Size size{blender.dstRoi.width, blender.dstRoi.height};
    for (std::int32_t i = 0; i <= blender.numBands; ++i) {
        if (!open_level(blender.dstPyrLaplace[i], size, channels) || !open_level(blender.dstBandWeights[i], size, 1))
            return false;
        size = {(size.width + 1) / 2, (size.height + 1) / 2};
    }
    return true;
}

void free_levels(Matf* levels, std::int32_t first, std::int32_t last)
{
    for (std::int32_t i = first; i <= last; ++i)
        empty_container(levels[i]);
}

// All but the requested bands is zero then; feeding does nothing and blending gives an empty image.
void make_empty(MultiBandBlender& blender)
{
    const std::int32_t requested = blender.requestedBands;
    blender = MultiBandBlender{};
    blender.requestedBands = requested;
}

bool is_empty(const MultiBandBlender& blender)
{
    return blender.dstPyrLaplace == nullptr;
}

std::size_t row_length(const Matf& m)
{
    return to_count(m.width) * to_count(m.channels);
}

float* row_of(const Matf& m, std::int32_t y)
{
    return m.data + to_count(y) * row_length(m);
}

// ---- feeding

template <class Sample>
void clip_image(const Mat& img, const Roi& part, Matf& out)
{
    const std::int32_t common = std::min(img.channels, out.channels);
    for (std::int32_t y = 0; y < part.height; ++y)
        for (std::int32_t x = 0; x < part.width; ++x) {
            const std::size_t pixel = to_count(part.y + y) * to_count(img.width) + to_count(part.x + x);
            for (std::int32_t c = 0; c < common; ++c) {
                Sample sample;
                std::memcpy(&sample, img.data + (pixel * to_count(img.channels) + to_count(c)) * sizeof(Sample),
                            sizeof(Sample));
                row_of(out, y)[to_count(x) * to_count(out.channels) + to_count(c)] = static_cast<float>(sample);
            }
        }
}

void clip_weights(const Matb& mask, const Roi& part, Matf& out)
{
    for (std::int32_t y = 0; y < part.height; ++y)
        for (std::int32_t x = 0; x < part.width; ++x)
            row_of(out, y)[x] =
                static_cast<float>(mask.data[to_count(part.y + y) * to_count(mask.width) + to_count(part.x + x)]) /
                255.0f;
}

std::uint8_t* bytes_of(const Matf& m)
{
    return reinterpret_cast<std::uint8_t*>(m.data);
}

// Two pyramids of levels that free themselves.
struct FedPyramids {
    FedPyramids() = default;
    FedPyramids(const FedPyramids&) = delete;
    FedPyramids& operator=(const FedPyramids&) = delete;
    ~FedPyramids()
    {
        free_levels(laplace, 0, 30);
        free_levels(weights, 0, 30);
        for (Matf* m : {&clipped, &clipped_weights, &bordered})
            empty_container(*m);
    }
    Matf laplace[31] = {};
    Matf weights[31] = {};
    Matf clipped{}, clipped_weights{}, bordered{};
};

bool build(const Mat& img, const Matb& mask, const BandRegion& region, std::int32_t num_bands, std::int32_t channels,
           FedPyramids& fed)
{
    const Size visible{region.image.width, region.image.height};
    const Size size{region.canvas.width, region.canvas.height};
    if (!open_level(fed.clipped, visible, channels) || !open_level(fed.clipped_weights, visible, 1) ||
        !open_level(fed.bordered, size, channels) || !open_level(fed.weights[0], size, 1))
        return false;
    if (img.elemSize == 1)
        clip_image<std::uint8_t>(img, region.image, fed.clipped);
    else
        clip_image<std::uint16_t>(img, region.image, fed.clipped);
    clip_weights(mask, region.image, fed.clipped_weights);
    copy_make_border(bytes_of(fed.clipped), row_length(fed.clipped) * 4, visible, bytes_of(fed.bordered),
                     row_length(fed.bordered) * 4, size, region.top, region.left, channels * 4, kBorderMirrorEdge);
    const std::uint8_t zero[4] = {};
    copy_make_const_border(bytes_of(fed.clipped_weights), row_length(fed.clipped_weights) * 4, visible,
                           bytes_of(fed.weights[0]), row_length(fed.weights[0]) * 4, size, region.top, region.left, 4,
                           zero);
    create_laplace_pyr(&fed.bordered, num_bands, fed.laplace);
    if (fed.laplace[0].data == nullptr)
        return false;
    for (std::int32_t i = 1; i <= num_bands; ++i) {
        if (!open_level(fed.weights[i], {fed.laplace[i].width, fed.laplace[i].height}, 1))
            return false;
        pyr_down(&fed.weights[i - 1], &fed.weights[i], kBorderMirrorInner);
        if (fed.weights[i].data == nullptr)
            return false;
    }
    return true;
}

void accumulate(const Matf& band, const Matf& weight, std::int32_t x0, std::int32_t y0, Matf& sums, Matf& weights)
{
    const std::size_t channels = to_count(band.channels);
    for (std::int32_t y = 0; y < band.height; ++y) {
        float* const sum_row = row_of(sums, y0 + y) + to_count(x0) * channels;
        float* const weight_row = row_of(weights, y0 + y) + x0;
        for (std::size_t x = 0; x < to_count(band.width); ++x) {
            const float w = row_of(weight, y)[x];
            for (std::size_t c = 0; c < channels; ++c)
                sum_row[x * channels + c] += row_of(band, y)[x * channels + c] * w;
            weight_row[x] += w;
        }
    }
}

// ---- blending

// Adds the expanded coarser level to the finer one. False without memory.
bool add_expanded(Matf& finer, const Matf& coarser)
{
    Matf expanded{};
    if (!open_level(expanded, {finer.width, finer.height}, finer.channels))
        return false;
    if (expanded.data != nullptr)
        pyr_up(&coarser, &expanded);
    const bool done = expanded.data != nullptr;
    for (std::size_t i = 0; done && i < row_length(finer) * to_count(finer.height); ++i)
        finer.data[i] += expanded.data[i];
    empty_container(expanded);
    return done;
}

// Clamps and floors. The casts are in range by then.
template <class Sample>
void write_samples(const float* row, std::size_t count, std::uint8_t* out)
{
    constexpr auto largest = static_cast<float>(std::numeric_limits<Sample>::max());
    for (std::size_t i = 0; i < count; ++i) {
        const auto sample = static_cast<Sample>(truncate_to_int(std::floor(std::min(std::max(row[i], 0.0f), largest))));
        std::memcpy(out + i * sizeof(Sample), &sample, sizeof(Sample));
    }
}

bool collapse(MultiBandBlender& blender)
{
    if (row_length(blender.dstPyrLaplace[0]) == 0 || blender.dstPyrLaplace[0].height == 0)
        return true;
    for (std::int32_t i = 0; i <= blender.numBands; ++i)
        normalize_by_weight(blender.dstBandWeights[i], blender.dstPyrLaplace[i]);
    for (std::int32_t i = blender.numBands; i > 0; --i)
        if (!add_expanded(blender.dstPyrLaplace[i - 1], blender.dstPyrLaplace[i]))
            return false;
    return true;
}

void write_panorama(const MultiBandBlender& blender, Mat& dst)
{
    const Matf& canvas = blender.dstPyrLaplace[0];
    const std::size_t count = to_count(dst.width) * to_count(dst.channels);
    for (std::int32_t y = 0; y < dst.height; ++y) {
        std::uint8_t* const out = dst.data + to_count(y) * count * to_count(dst.elemSize);
        if (dst.elemSize == 1)
            write_samples<std::uint8_t>(row_of(canvas, y), count, out);
        else if (dst.elemSize == 2)
            write_samples<std::uint16_t>(row_of(canvas, y), count, out);
    }
}

void free_all(MultiBandBlender& blender)
{
    free_levels(blender.dstPyrLaplace, 0, blender.numBands);
    free_levels(blender.dstBandWeights, 0, blender.numBands);
    std::free(blender.dstPyrLaplace);
    std::free(blender.dstBandWeights);
}

} // namespace

extern "C" {

void multi_band_blender_setbands(MultiBandBlender* blender, std::int32_t bands)
{
    blender->requestedBands = bands;
}

void multi_band_blender_prepare(MultiBandBlender* blender, std::int32_t channels, Roi* dst_roi)
{
    const Roi final_roi = *dst_roi;
    make_empty(*blender);
    const std::int32_t num_bands = bands_for(final_roi, blender->requestedBands);
    const std::int64_t unit = std::int64_t{1} << num_bands;
    const std::int64_t width = round_up(final_roi.width, unit);
    const std::int64_t height = round_up(final_roi.height, unit);
    if (!fits_32_bits(width) || !fits_32_bits(height))
        return;
    dst_roi->width = static_cast<std::int32_t>(width);
    dst_roi->height = static_cast<std::int32_t>(height);
    if (channels < 0 || !fits_32_bits(width * height) || !fits_32_bits(width * height * std::max(channels, 1)))
        return;

    HeapArray<Matf> laplace = allocate_zeroed<Matf>(to_count(num_bands) + 1);
    HeapArray<Matf> weights = allocate_zeroed<Matf>(to_count(num_bands) + 1);
    if (laplace == nullptr || weights == nullptr)
        return;
    blender->numBands = num_bands;
    blender->dstRoi = *dst_roi;
    blender->dstRoiFinal = final_roi;
    blender->dstPyrLaplace = laplace.release();
    blender->dstBandWeights = weights.release();
    if (!open_levels(*blender, channels)) {
        free_all(*blender);
        make_empty(*blender);
    }
}

void multi_band_blender_feed(MultiBandBlender* blender, const Mat* img, const Matb* mask, Point tl)
{
    if (is_empty(*blender) || (img->elemSize != 1 && img->elemSize != 2))
        return;
    const BandRegion region = find_band_region(blender->dstRoi, blender->numBands, tl, Size{img->width, img->height});
    const std::int32_t channels = blender->dstPyrLaplace[0].channels;
    if (region.image.width < 1 || region.image.height < 1 || channels < 1)
        return;
    FedPyramids fed;
    if (!build(*img, *mask, region, blender->numBands, channels, fed))
        return;
    for (std::int32_t i = 0; i <= blender->numBands; ++i)
        accumulate(fed.laplace[i], fed.weights[i], region.canvas.x >> i, region.canvas.y >> i,
                   blender->dstPyrLaplace[i], blender->dstBandWeights[i]);
}

void multi_band_blender_blend(MultiBandBlender* blender, Mat* dst, std::int32_t elem_size)
{
    if (is_empty(*blender)) {
        if (dst != nullptr)
            MatReset(dst, 0, 0, 0, 0);
        return;
    }
    if (dst != nullptr) {
        const bool collapsed = collapse(*blender);
        free_levels(blender->dstPyrLaplace, 1, blender->numBands);
        free_levels(blender->dstBandWeights, 0, blender->numBands);
        if (collapsed)
            MatReset(dst, blender->dstRoiFinal.width, blender->dstRoiFinal.height, blender->dstPyrLaplace[0].channels,
                     elem_size);
        else
            MatReset(dst, 0, 0, 0, 0);
        if (dst->data != nullptr)
            write_panorama(*blender, *dst);
    }
    free_all(*blender);
}

} // extern "C"
