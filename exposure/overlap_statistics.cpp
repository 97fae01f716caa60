// SPDX-License-Identifier: MIT
// The overlap is read in place, in segments of rows whose norms fit the first-level cache. The sums are ordered, so
// their additions wait for each other; what hides that is that several sums run side by side: those of the two images
// and, where each row has its own, those of four rows.
#include "exposure/overlap_statistics.h"

#include "core/heap.h"
#include "core/numbers.h"
#include "exposure/pixel_norms.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace panoval
{
namespace
{

constexpr std::size_t kSegment = 256; // pixels
constexpr std::size_t kRows = 4;      // rows whose sums run side by side

// The part of the overlap that lies inside a picture, as columns and rows of the overlap. It is the whole overlap
// unless positions leave 32 bits or a mask has another size than its image.
struct Extent {
    std::int64_t left, top, right, bottom;
};

Extent inside(const Roi& overlap, Point corner, std::int32_t width, std::int32_t height)
{
    const std::int64_t x = wrapping_sub(overlap.x, corner.x);
    const std::int64_t y = wrapping_sub(overlap.y, corner.y);
    return {std::max<std::int64_t>(0, -x), std::max<std::int64_t>(0, -y),
            std::min<std::int64_t>(overlap.width, width - x), std::min<std::int64_t>(overlap.height, height - y)};
}

Extent common(const Extent& a, const Extent& b)
{
    return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right), std::min(a.bottom, b.bottom)};
}

// Where pixel (0, 0) of the overlap lies in a picture, and how far its rows are apart; both in pixels.
struct View {
    const std::uint8_t* data;
    std::int64_t origin;
    std::int64_t stride;

    std::int64_t at(std::int64_t x, std::int64_t y) const { return origin + y * stride + x; }
};

View view_of(const std::uint8_t* data, const Roi& overlap, Point corner, std::int32_t width)
{
    const std::int64_t x = wrapping_sub(overlap.x, corner.x);
    const std::int64_t y = wrapping_sub(overlap.y, corner.y);
    return {data, y * width + x, width};
}

struct Pair {
    Extent extent;
    View image_i, image_j, mask_i, mask_j;
    std::size_t channels;
    bool same_pixels; // an image with itself: one sum serves both
};

struct Sums {
    double i = 0;
    double j = 0;
};

// The norms of a segment of one row of both images.
struct Norms {
    std::array<double, kSegment> i;
    std::array<double, kSegment> j;
};

template <class Sample>
const Sample* samples_at(const View& view, std::size_t channels, std::int64_t x, std::int64_t y)
{
    return reinterpret_cast<const Sample*>(view.data) + static_cast<std::size_t>(view.at(x, y)) * channels;
}

// covered[k] = 1 where both masks are nonzero, else 0. Returns how many are. Eight pixels at a time where both masks
// are full, as most are.
std::int32_t find_covered(const std::uint8_t* mask_i, const std::uint8_t* mask_j, std::size_t count,
                          std::uint8_t* covered)
{
    constexpr std::uint64_t kEightOnes = 0x0101010101010101;
    std::int32_t pixels = 0;
    const auto find_some = [&](std::size_t begin, std::size_t end) {
        for (std::size_t k = begin; k < end; ++k) {
            covered[k] = static_cast<std::uint8_t>((mask_i[k] != 0) & (mask_j[k] != 0));
            pixels += covered[k];
        }
    };
    std::size_t k = 0;
    for (; k + 8 <= count; k += 8) {
        std::uint64_t i = 0;
        std::uint64_t j = 0;
        std::memcpy(&i, mask_i + k, 8);
        std::memcpy(&j, mask_j + k, 8);
        if ((i & j) == ~std::uint64_t{0}) {
            std::memcpy(covered + k, &kEightOnes, 8);
            pixels += 8;
        } else {
            find_some(k, k + 8);
        }
    }
    find_some(k, count);
    return pixels;
}

// Returns the number of pixels of the segment that both masks cover. Their norms are stored in place; others are 0.
template <class Sample>
std::int32_t norms_of_segment(const Pair& pair, std::int64_t x, std::int64_t y, std::size_t count, Norms& norms)
{
    std::array<std::uint8_t, kSegment> covered;
    const std::uint8_t* const mask_i = pair.mask_i.data + pair.mask_i.at(x, y);
    const std::uint8_t* const mask_j = pair.mask_j.data + pair.mask_j.at(x, y);
    const std::int32_t pixels = find_covered(mask_i, mask_j, count, covered.data());
    if (pixels == 0) {
        std::fill_n(norms.i.data(), count, 0.0);
        std::fill_n(norms.j.data(), count, 0.0);
        return 0;
    }
    pixel_norms(samples_at<Sample>(pair.image_i, pair.channels, x, y), pair.channels, covered.data(), count,
                norms.i.data());
    if (!pair.same_pixels)
        pixel_norms(samples_at<Sample>(pair.image_j, pair.channels, x, y), pair.channels, covered.data(), count,
                    norms.j.data());
    return pixels;
}

// Adding the 0 of an uncovered pixel changes no sum: sums start at +0 and never become -0.
void add_in_order(const Norms& norms, std::size_t count, bool same_pixels, Sums& sums)
{
    double sum_i = sums.i;
    double sum_j = sums.j;
    if (same_pixels) {
        for (std::size_t k = 0; k < count; ++k)
            sum_i += norms.i[k];
        sum_j = sum_i;
    } else {
        for (std::size_t k = 0; k < count; ++k) {
            sum_i += norms.i[k];
            sum_j += norms.j[k];
        }
    }
    sums = {sum_i, sum_j};
}

// Four rows at a time.
void add_in_order(const std::array<Norms, kRows>& norms, std::size_t count, std::array<Sums, kRows>& sums)
{
    auto s = sums;
    for (std::size_t k = 0; k < count; ++k)
        for (std::size_t row = 0; row < kRows; ++row) {
            s[row].i += norms[row].i[k];
            s[row].j += norms[row].j[k];
        }
    sums = s;
}

template <class Sample>
std::int32_t sum_pixel_by_pixel(const Pair& pair, Sums& sums)
{
    Norms norms;
    std::int32_t pixels = 0;
    for (std::int64_t y = pair.extent.top; y < pair.extent.bottom; ++y)
        for (std::int64_t x = pair.extent.left; x < pair.extent.right; x += kSegment) {
            const auto count = static_cast<std::size_t>(std::min<std::int64_t>(kSegment, pair.extent.right - x));
            const std::int32_t covered = norms_of_segment<Sample>(pair, x, y, count, norms);
            pixels = wrapping_add(pixels, covered);
            if (covered != 0)
                add_in_order(norms, count, pair.same_pixels, sums);
        }
    return pixels;
}

template <class Sample>
std::int32_t sum_row_by_row(const Pair& pair, Sums& sums)
{
    std::array<Norms, kRows> norms;
    std::int32_t pixels = 0;
    for (std::int64_t top = pair.extent.top; top < pair.extent.bottom; top += kRows) {
        const auto rows = static_cast<std::size_t>(std::min<std::int64_t>(kRows, pair.extent.bottom - top));
        std::array<Sums, kRows> row_sums;
        for (std::int64_t x = pair.extent.left; x < pair.extent.right; x += kSegment) {
            const auto count = static_cast<std::size_t>(std::min<std::int64_t>(kSegment, pair.extent.right - x));
            for (std::size_t row = 0; row < rows; ++row) {
                const std::int64_t y = top + static_cast<std::int64_t>(row);
                pixels = wrapping_add(pixels, norms_of_segment<Sample>(pair, x, y, count, norms[row]));
            }
            if (rows == kRows && !pair.same_pixels)
                add_in_order(norms, count, row_sums);
            else
                for (std::size_t row = 0; row < rows; ++row)
                    add_in_order(norms[row], count, pair.same_pixels, row_sums[row]);
        }
        for (std::size_t row = 0; row < rows; ++row) {
            sums.i += row_sums[row].i;
            sums.j += row_sums[row].j;
        }
    }
    return pixels;
}

template <class Sample>
std::int32_t sum_norms(const Pair& pair, SumOrder order, Sums& sums)
{
    return order == SumOrder::PixelByPixel ? sum_pixel_by_pixel<Sample>(pair, sums)
                                           : sum_row_by_row<Sample>(pair, sums);
}

std::int32_t count_covered(const Pair& pair)
{
    std::int32_t pixels = 0;
    for (std::int64_t y = pair.extent.top; y < pair.extent.bottom; ++y)
        for (std::int64_t x = pair.extent.left; x < pair.extent.right; ++x)
            if (pair.mask_i.data[pair.mask_i.at(x, y)] != 0 && pair.mask_j.data[pair.mask_j.at(x, y)] != 0)
                pixels = wrapping_add(pixels, 1);
    return pixels;
}

// A copy of image j's overlap that image i's format can be read from: packed rows, and zeros where i's pixels would
// reach behind j's last sample.
HeapArray<std::uint8_t> repack_for(const Mat& image_i, const PlacedImage& j, const Roi& overlap)
{
    const std::size_t pixels = to_count(overlap.width) * to_count(overlap.height);
    const std::size_t pixel_bytes_i = to_count(image_i.channels) * to_count(image_i.elemSize);
    const std::size_t stride_j = to_count(j.image->channels);
    const std::size_t wanted = pixels * pixel_bytes_i;
    auto packed = allocate_zeroed<std::uint8_t>(wanted);
    Mat cut;
    MatInit(&cut);
    const Roi roi = {wrapping_sub(overlap.x, j.corner.x), wrapping_sub(overlap.y, j.corner.y), overlap.width,
                     overlap.height};
    get_sub_image(j.image, &roi, &cut);
    const bool has_memory = cut.width == overlap.width; // a cut of pixels without bytes has no block either
    if (packed && has_memory) {
        const std::size_t have = to_count(cut.size);
        const std::size_t step = stride_j * to_count(image_i.elemSize); // j's own channel count is its pixel stride
        for (std::size_t p = 0; p < pixels && p * step < have; ++p)
            std::memcpy(packed.get() + p * pixel_bytes_i, cut.data + p * step,
                        std::min(pixel_bytes_i, have - p * step));
    } else {
        packed.reset();
    }
    MatDestroy(&cut);
    return packed;
}

} // namespace

OverlapStatistics measure_overlap(const PlacedImage& i, const PlacedImage& j, SumOrder order)
{
    const Mat& image_i = *i.image;
    const Mat& image_j = *j.image;
    Roi overlap;
    if (overlapRoi(i.corner, j.corner, {image_i.width, image_i.height}, {image_j.width, image_j.height}, &overlap) == 0)
        return {};

    Pair pair;
    pair.extent = common(common(inside(overlap, i.corner, image_i.width, image_i.height),
                                inside(overlap, j.corner, image_j.width, image_j.height)),
                         common(inside(overlap, i.corner, i.mask->width, i.mask->height),
                                inside(overlap, j.corner, j.mask->width, j.mask->height)));
    pair.image_i = view_of(image_i.data, overlap, i.corner, image_i.width);
    pair.image_j = view_of(image_j.data, overlap, j.corner, image_j.width);
    pair.mask_i = view_of(i.mask->data, overlap, i.corner, i.mask->width);
    pair.mask_j = view_of(j.mask->data, overlap, j.corner, j.mask->width);
    pair.channels = to_count(image_i.channels);

    HeapArray<std::uint8_t> packed;
    const bool is_summed = image_i.elemSize == 1 || image_i.elemSize == 2;
    if (is_summed && (image_i.channels != image_j.channels || image_i.elemSize != image_j.elemSize)) {
        packed = repack_for(image_i, j, overlap);
        if (!packed)
            return {Overlap::NoMemory};
        pair.image_j = {packed.get(), 0, overlap.width};
    }
    pair.same_pixels = pair.image_i.data == pair.image_j.data && pair.image_i.origin == pair.image_j.origin;

    Sums sums;
    std::int32_t count = 0;
    if (image_i.elemSize == 1)
        count = sum_norms<std::uint8_t>(pair, order, sums);
    else if (image_i.elemSize == 2)
        count = sum_norms<std::uint16_t>(pair, order, sums);
    else
        count = count_covered(pair);
    count = std::max(count, 1);
    return {Overlap::Measured, count, sums.i / count, sums.j / count};
}

} // namespace panoval
