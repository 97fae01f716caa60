// SPDX-License-Identifier: MIT
// The multi-band blender: weighted sums of every image's bands on a pyramid of canvases, which blending divides by the
// weights and collapses (Burt and Adelson, A multiresolution spline with application to image mosaics, 1983).
#include "blend/band_region.h"
#include "blend/band_rows.h"
#include "blend/band_stream.h"
#include "blend/blender_settings.h"
#include "blend/expander.h"
#include "blend/level_rows.h"
#include "core/containers.h"
#include "core/heap.h"
#include "core/numbers.h"
#include "panoval.h"

#include <algorithm>
#include <limits>

namespace
{

using namespace panoval;

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

// ---------------------------------------------------------------------------------------------------- blending ----

// Divides the top left `size` pixels of level i by their weights and adds the expanded coarser level.
void collapse_level(const MultiBandBlender& blender, std::int32_t i, Expander& expander, Size size, std::uint8_t* out,
                    std::size_t out_row_bytes, std::size_t sample_bytes)
{
    const Matf& level = blender.dstPyrLaplace[i];
    const bool is_coarsest = i == blender.numBands;
    if (!is_coarsest)
        expander.start(blender.dstPyrLaplace[i + 1], level.width);
    for (std::int32_t y = 0; y < size.height; ++y) {
        CanvasRow row{};
        row.sums = row_of(level, y);
        row.weight_sums = row_of(blender.dstBandWeights[i], y);
        row.pixels = to_count(size.width);
        row.channels = to_count(level.channels);
        row.out = out + to_count(y) * out_row_bytes;
        row.sample_bytes = sample_bytes;
        if (!is_coarsest) {
            row.coarse.kind = y % 2 == 0 ? CoarseRows::Even : CoarseRows::Odd;
            const Expander::Rows around = expander.around(y);
            std::copy(around.row, around.row + 3, row.coarse.row);
        }
        collapse_row(row);
    }
}

// Collapses the levels above the finest one in place, and lets go of each as soon as the next has taken it in.
void collapse_coarser_levels(MultiBandBlender& blender, Expander& expander)
{
    for (std::int32_t i = blender.numBands; i > 0; --i) {
        const Matf& level = blender.dstPyrLaplace[i];
        collapse_level(blender, i, expander, {level.width, level.height}, reinterpret_cast<std::uint8_t*>(level.data),
                       row_length(level) * sizeof(float), sizeof(float));
        empty_container(blender.dstBandWeights[i]);
        free_levels(blender.dstPyrLaplace, i + 1, std::min(i + 1, blender.numBands));
    }
}

// The finest level goes straight into the panorama.
void write_panorama(MultiBandBlender& blender, Mat& dst, std::int32_t elem_size)
{
    const Roi& canvas = blender.dstRoiFinal;
    const Matf& finest = blender.dstPyrLaplace[0];
    const bool has_samples = row_length(finest) > 0 && finest.height > 0;
    const std::int64_t samples = std::int64_t{canvas.width} * canvas.height * finest.channels;
    Expander expander(row_length(finest));
    if (!expander.has_memory() || !fits_32_bits(samples * std::max(elem_size, 0))) {
        MatReset(&dst, 0, 0, 0, 0);
        return;
    }
    if (elem_size != 1 && elem_size != 2) {
        MatReset(&dst, canvas.width, canvas.height, finest.channels, elem_size);
        return;
    }
    if (has_samples)
        collapse_coarser_levels(blender, expander);
    if (reset_uncleared(dst, canvas.width, canvas.height, finest.channels, elem_size) && has_samples)
        collapse_level(blender, 0, expander, {canvas.width, canvas.height}, dst.data,
                       to_count(canvas.width) * to_count(finest.channels) * to_count(elem_size), to_count(elem_size));
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
    const std::int32_t num_bands = usable_bands(blender->requestedBands, std::max(final_roi.width, final_roi.height));
    const std::int64_t unit = std::int64_t{1} << num_bands;
    const std::int64_t width = round_up(final_roi.width, unit);
    const std::int64_t height = round_up(final_roi.height, unit);
    if (!fits_32_bits(width) || !fits_32_bits(height))
        return;
    const Roi padded{final_roi.x, final_roi.y, static_cast<std::int32_t>(width), static_cast<std::int32_t>(height)};
    *dst_roi = padded;
    if (channels < 0 || !fits_32_bits(width * height) || !fits_32_bits(width * height * std::max(channels, 1)))
        return;

    HeapArray<Matf> laplace = allocate_zeroed<Matf>(to_count(num_bands) + 1);
    HeapArray<Matf> weights = allocate_zeroed<Matf>(to_count(num_bands) + 1);
    if (laplace == nullptr || weights == nullptr)
        return;
    blender->numBands = num_bands;
    blender->dstRoi = padded;
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
    BandStream stream(*blender, *img, *mask, region);
    if (stream.has_memory())
        stream.run();
}

void multi_band_blender_blend(MultiBandBlender* blender, Mat* dst, std::int32_t elem_size)
{
    if (is_empty(*blender)) {
        if (dst != nullptr)
            MatReset(dst, 0, 0, 0, 0);
        return;
    }
    if (dst != nullptr)
        write_panorama(*blender, *dst, elem_size);
    free_all(*blender);
}

} // extern "C"
