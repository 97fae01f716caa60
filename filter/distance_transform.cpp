// SPDX-License-Identifier: MIT
// Chamfer distances in two raster passes (Borgefors, Distance transformations in digital images, 1986), in fixed-point
// integers. Costs of whole pixels, as the city block's, take the forward pass in 16-bit keys.
#include "filter/distance_transform.h"

#include "core/containers.h"
#include "core/numbers.h"

#include <algorithm>
#include <cmath>

namespace panoval
{
namespace
{

std::size_t pitch_of(const ChamferPass& pass) noexcept
{
    return to_count(pass.width) + 2;
}

// The 32-bit cells of row y, -1 to height; the first and the last are frame.
std::int32_t* cells_of(const ChamferPass& pass, std::int32_t y) noexcept
{
    return pass.frame + (std::ptrdiff_t{y} + 1) * static_cast<std::ptrdiff_t>(pitch_of(pass));
}

// Keys live in the scratch, too, until its cells take their place. Those of the forward pass fill the first half of
// their own row's cells.
std::int16_t* keys_of(const ChamferPass& pass, std::int32_t y) noexcept
{
    return reinterpret_cast<std::int16_t*>(cells_of(pass, y));
}

// Final keys of row y, needed for row y - 1: in the second half of row y - 2, which is still in keys then. Nobody needs
// those of row 0; they go over the keys of the frame.
std::int16_t* finished_keys_of(const ChamferPass& pass, std::int32_t y) noexcept
{
    return y > 0 ? keys_of(pass, y - 2) + pitch_of(pass) : keys_of(pass, -1);
}

// Rounded to the nearest unit: the product in single precision, the rounding in double.
std::int32_t fixed_point_cost(float pixels) noexcept
{
    const double units = static_cast<double>(pixels * 65536.0f);
    return truncate_to_int(std::floor(units + 0.5));
}

// Decides how the rows are computed.
void plan(ChamferPass& pass) noexcept
{
    const ChamferSteps<std::int32_t>& steps = pass.steps;
    const std::int32_t smaller_side = std::min(pass.width, pass.height);
    pass.exact = is_scan_exact<std::int32_t>(smaller_side, steps.far_away, steps.straight, steps.diagonal);
    const std::int64_t straight = 2 * (std::int64_t{steps.straight} / 65536);
    const std::int64_t diagonal = 2 * (std::int64_t{steps.diagonal} / 65536);
    const bool whole_pixels = steps.straight % 65536 == 0 && steps.diagonal % 65536 == 0;
    pass.in_keys =
        whole_pixels && smaller_side > 0 && is_scan_exact<std::int16_t>(smaller_side, kFarKey, straight, diagonal);
    if (pass.in_keys)
        pass.key_steps = {kFarKey, static_cast<std::int16_t>(straight), static_cast<std::int16_t>(diagonal)};
}

void run_forward(const ChamferPass& pass, const std::uint8_t* src) noexcept
{
    const std::size_t width = to_count(pass.width);
    if (!pass.in_keys) {
        std::fill_n(cells_of(pass, -1), pitch_of(pass), kFarAway);
        for (std::int32_t y = 0; y < pass.height; ++y)
            forward_row(src + to_count(y) * width, cells_of(pass, y - 1), cells_of(pass, y), width, pass.steps,
                        pass.exact);
    } else {
        std::fill_n(keys_of(pass, -1), pitch_of(pass), kFarKey);
        for (std::int32_t y = 0; y < pass.height; ++y)
            forward_key_row(src + to_count(y) * width, keys_of(pass, y - 1), keys_of(pass, y), width, pass.key_steps);
        std::fill_n(finished_keys_of(pass, pass.height), pitch_of(pass), kFarKey);
    }
    std::fill_n(cells_of(pass, pass.height), pitch_of(pass), kFarAway);
}

} // namespace

ChamferPass begin_distance_transform(const Matb& src, Matf& scratch, const float* metrics) noexcept
{
    ChamferPass pass;
    pass.steps = {kFarAway, fixed_point_cost(metrics[0]), fixed_point_cost(metrics[1])};
    const std::int32_t frame_width = wrapping_add(src.width, 2);
    const std::int32_t frame_height = wrapping_add(src.height, 2);
    if (!is_addressable(frame_width, frame_height, 1)) {
        MatfReset(&scratch, frame_width, frame_height, 1);
        return pass;
    }
    if (!reset_uncleared(scratch, frame_width, frame_height, 1) || scratch.data == nullptr)
        return pass;

    // The scratch is a container of floats by its type alone; nobody reads a float from it.
    pass.frame = reinterpret_cast<std::int32_t*>(scratch.data);
    if (src.width < 0 || src.height < 0) { // a single column or row, all of it frame
        std::fill_n(pass.frame, to_count(frame_width) * to_count(frame_height), kFarAway);
        return pass;
    }
    pass.width = src.width;
    pass.height = src.height;
    plan(pass);
    run_forward(pass, src.data);
    return pass;
}

void finish_distance_row(const ChamferPass& pass, std::int32_t y, float* distances) noexcept
{
    const std::size_t width = to_count(pass.width);
    if (!pass.in_keys) {
        backward_row(cells_of(pass, y + 1), cells_of(pass, y), width, pass.steps, pass.exact, distances);
        return;
    }
    backward_key_row(finished_keys_of(pass, y + 1), cells_of(pass, y), finished_keys_of(pass, y), width, pass.key_steps,
                     distances);
    if (y == 0) // the last row to be finished: nothing needs the frame's keys any more
        std::fill_n(cells_of(pass, -1), pitch_of(pass), kFarAway);
}

} // namespace panoval

extern "C" void distanceTransform_3x3(const Matb* src, Matf* scratch, Matf* dist, const float* metrics)
{
    const panoval::ChamferPass pass = panoval::begin_distance_transform(*src, *scratch, metrics);
    const std::ptrdiff_t stride = dist->width;
    for (std::int32_t y = pass.height - 1; y >= 0 && pass.width > 0; --y)
        panoval::finish_distance_row(pass, y, dist->data + y * stride);
}
