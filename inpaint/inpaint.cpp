// SPDX-License-Identifier: MIT
// Inpainting by fast marching (Telea, An image inpainting technique based on the fast marching method, 2004): a front
// runs from the known pixels into the unknown ones, nearest first, and each pixel that it reaches gets a weighted mean
// of the known ones around it.
#include "core/numbers.h"
#include "inpaint/fill_region.h"
#include "inpaint/narrow_band.h"
#include "inpaint/neighbourhood.h"
#include "panoval.h"

#include <algorithm>
#include <limits>

namespace panoval
{
namespace
{

// Clears the runs of marks that touch the border: of each column from the top and from the bottom, of each row from the
// left. On the right only the last byte of a row goes. No column is marked as a whole once its top has been cleared.
void clear_border_runs(std::uint8_t* mask, std::int32_t width, std::int32_t height)
{
    const auto at = [&](std::int32_t row, std::int32_t col) -> std::uint8_t& {
        return mask[static_cast<std::size_t>(row) * static_cast<std::size_t>(width) + static_cast<std::size_t>(col)];
    };
    for (std::int32_t col = 0; col < width; ++col)
        for (std::int32_t row = 0; row < height && at(row, col) != 0; ++row)
            at(row, col) = 0;
    for (std::int32_t col = 0; col < width; ++col)
        for (std::int32_t row = height - 1; at(row, col) != 0; --row)
            at(row, col) = 0;
    for (std::int32_t row = 0; row < height; ++row)
        for (std::int32_t col = 0; col < width && at(row, col) != 0; ++col)
            at(row, col) = 0;
    for (std::int32_t row = 0; row < height; ++row)
        at(row, width - 1) = 0;
}

bool push_ring(NarrowBand& band, const FillRegion& region)
{
    if (!narrow_band_init(band, region.band_capacity))
        return false;
    for (std::int32_t row = region.first_row; row < region.end_row; ++row)
        for (std::int32_t col = region.first_col; col < region.end_col; ++col)
            if (region.ring[region.index(row, col)] != 0)
                narrow_band_push(band, row, col, 0.0f);
    return true;
}

// The front never enters the frame, nor the picture's first row and column.
bool is_to_be_filled(const FillRegion& region, std::int32_t row, std::int32_t col)
{
    return row >= 2 && col >= 2 && region.known(region.index(row, col)) == kInside;
}

void write_pixel(Mat& image, std::int32_t row, std::int32_t col, std::uint32_t colour)
{
    std::uint8_t* const pixel =
        image.data +
        3 * (static_cast<std::size_t>(row) * static_cast<std::size_t>(image.width) + static_cast<std::size_t>(col));
    for (unsigned c = 0; c < 3; ++c)
        pixel[c] = static_cast<std::uint8_t>(colour >> (8 * c) & 0xFFu);
}

void march(FillRegion& region, NarrowBand& band, const Neighbourhood& neighbourhood, Mat& image)
{
    std::int32_t i = 0;
    std::int32_t j = 0;
    while (narrow_band_pop(band, i, j)) {
        const std::int32_t neighbours[4][2] = {{i - 1, j}, {i, j - 1}, {i + 1, j}, {i, j + 1}};
        for (const auto& [row, col] : neighbours) {
            if (!is_to_be_filled(region, row, col))
                continue;
            fill_cell(region, neighbourhood, row, col);
            const std::size_t cell = region.index(row, col);
            write_pixel(image, row - 1, col - 1, region.colour(cell));
            narrow_band_push(band, row, col, region.distance(cell));
        }
    }
}

void fill(Mat& image, const Marks& marks, std::int32_t range)
{
    const std::int32_t larger_side = std::max(image.width, image.height);
    if (larger_side > std::numeric_limits<std::int32_t>::max() - 2) // no room for the frame
        return;
    FillRegion region;
    const std::int32_t reach = std::clamp(range, 1, larger_side + 2);
    if (!find_fill_region(region, marks, image.data, image.width, image.height, reach))
        return;
    NarrowBand band;
    Neighbourhood neighbourhood;
    if (push_ring(band, region) && neighbourhood_init(neighbourhood, range, region.grid_rows, region.grid_cols))
        march(region, band, neighbourhood, image);
}

bool has_pixels(const Mat& m)
{
    return m.width > 0 && m.height > 0 && m.channels > 0 && m.data != nullptr;
}

} // namespace
} // namespace panoval

extern "C" void inpaint(Mat* image, Mat* mask, std::int32_t range)
{
    if (!panoval::has_pixels(*mask))
        return;
    panoval::clear_border_runs(mask->data, mask->width, mask->height);
    if (panoval::has_pixels(*image) && image->channels == 3)
        panoval::fill(*image, {mask->data, mask->width, mask->height, mask->channels}, range);
}
