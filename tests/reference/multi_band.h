// SPDX-License-Identifier: MIT
// Multi-band blending as it is defined: whole images, whole pyramids, one step after the other.
#pragma once

#include "core/elementary.h"
#include "panoval.h"
#include "tests/reference/pyramid.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace panoval::reference
{

struct MultiBand {
    Roi dst_roi{};
    Roi dst_roi_final{};
    int num_bands = 0;
    std::vector<Image> laplace;
    std::vector<Image> weights;
};

inline MultiBand multi_band_prepare(int requested_bands, int channels, Roi& dst_roi)
{
    MultiBand blender;
    blender.dst_roi_final = dst_roi;
    const double larger = std::max(dst_roi.width, dst_roi.height);
    blender.num_bands =
        std::min(requested_bands, static_cast<int>(std::ceil(panoval::log(larger) / panoval::log(2.0))));
    blender.num_bands = std::max(blender.num_bands, 1);
    const int u = 1 << blender.num_bands;
    dst_roi.width += (u - dst_roi.width % u) % u;
    dst_roi.height += (u - dst_roi.height % u) % u;
    blender.dst_roi = dst_roi;
    blender.laplace.push_back(Image(dst_roi.width, dst_roi.height, channels));
    blender.weights.push_back(Image(dst_roi.width, dst_roi.height, 1));
    for (int i = 1; i <= blender.num_bands; ++i) {
        blender.laplace.push_back(Image::reduced(blender.laplace.back()));
        blender.weights.push_back(Image::reduced(blender.weights.back()));
    }
    return blender;
}

// The part of an image that lies on the canvas, as floats; channels that the image lacks are 0.
inline Image clip_image(const Mat& img, int first_column, int first_row, int width, int height, int channels)
{
    Image part(width, height, channels);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < std::min(channels, img.channels); ++c) {
                const auto sample = (static_cast<std::size_t>(first_row + y) * static_cast<std::size_t>(img.width) +
                                     static_cast<std::size_t>(first_column + x)) *
                                        static_cast<std::size_t>(img.channels) +
                                    static_cast<std::size_t>(c);
                std::uint16_t wide = 0;
                if (img.elemSize == 1)
                    wide = img.data[sample];
                else
                    std::memcpy(&wide, img.data + 2 * sample, 2);
                part.row(y)[x * channels + c] = static_cast<float>(wide);
            }
    return part;
}

inline Image clip_weights(const Matb& mask, int first_column, int first_row, int width, int height)
{
    Image part(width, height, 1);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            part.row(y)[x] =
                static_cast<float>(
                    mask.data[static_cast<std::size_t>(first_row + y) * static_cast<std::size_t>(mask.width) +
                              static_cast<std::size_t>(first_column + x)]) /
                255.0f;
    return part;
}

inline const std::uint8_t* bytes_of(const Image& image)
{
    return reinterpret_cast<const std::uint8_t*>(image.data.data());
}

inline std::uint8_t* bytes_of(Image& image)
{
    return reinterpret_cast<std::uint8_t*>(image.data.data());
}

inline void multi_band_feed(MultiBand& blender, const Mat& img, const Matb& mask, Point tl)
{
    const Roi r = blender.dst_roi;
    const int b = blender.num_bands;
    const int u = 1 << b;
    const int gap = 3 << b;
    const int channels = blender.laplace[0].channels;
    const int x0 = std::max(r.x, tl.x);
    const int y0 = std::max(r.y, tl.y);
    const int cw = std::min(tl.x + img.width, r.x + r.width) - x0;
    const int ch = std::min(tl.y + img.height, r.y + r.height) - y0;
    if (cw <= 0 || ch <= 0 || (img.elemSize != 1 && img.elemSize != 2))
        return;
    const Image clipped = clip_image(img, x0 - tl.x, y0 - tl.y, cw, ch, channels);
    const Image clipped_weights = clip_weights(mask, x0 - tl.x, y0 - tl.y, cw, ch);

    Point tl2{r.x + (((std::max(r.x, x0 - gap) - r.x) >> b) << b), r.y + (((std::max(r.y, y0 - gap) - r.y) >> b) << b)};
    Point br2{std::min(r.x + r.width, x0 + cw + gap), std::min(r.y + r.height, y0 + ch + gap)};
    br2.x += (u - (br2.x - tl2.x) % u) % u;
    br2.y += (u - (br2.y - tl2.y) % u) % u;
    const int dx = std::max(br2.x - (r.x + r.width), 0);
    const int dy = std::max(br2.y - (r.y + r.height), 0);
    tl2 = {tl2.x - dx, tl2.y - dy};
    br2 = {br2.x - dx, br2.y - dy};
    const int top = y0 - tl2.y;
    const int left = x0 - tl2.x;

    Image bordered(br2.x - tl2.x, br2.y - tl2.y, channels);
    const Size size{bordered.width, bordered.height};
    copy_make_border(bytes_of(clipped), cw * channels * 4, {cw, ch}, bytes_of(bordered), size.width * channels * 4,
                     size, top, left, channels * 4, 2);
    const std::vector<Image> pyramid = create_laplace_pyr(bordered, b);
    std::vector<Image> weights(static_cast<std::size_t>(b) + 1);
    weights[0] = Image(size.width, size.height, 1);
    const std::uint8_t zero[4] = {};
    copy_make_const_border(bytes_of(clipped_weights), cw * 4, {cw, ch}, bytes_of(weights[0]), size.width * 4, size, top,
                           left, 4, zero);
    for (std::size_t i = 1; i < weights.size(); ++i) {
        weights[i] = Image::reduced(weights[i - 1]);
        pyr_down(weights[i - 1], weights[i], 4);
    }

    int x_tl = tl2.x - r.x;
    int y_tl = tl2.y - r.y;
    int x_br = br2.x - r.x;
    int y_br = br2.y - r.y;
    for (std::size_t i = 0; i < weights.size(); ++i) {
        for (int y = 0; y < y_br - y_tl; ++y)
            for (int x = 0; x < x_br - x_tl; ++x) {
                const float w = weights[i].row(y)[x];
                for (int c = 0; c < channels; ++c)
                    blender.laplace[i].row(y_tl + y)[(x_tl + x) * channels + c] +=
                        pyramid[i].row(y)[x * channels + c] * w;
                blender.weights[i].row(y_tl + y)[x_tl + x] += w;
            }
        x_tl /= 2;
        y_tl /= 2;
        x_br /= 2;
        y_br /= 2;
    }
}

// Whole numbers: floor(sum / (weight + 1e-5) + 0.5).
inline void normalize_level(const Image& weight, Image& sums)
{
    for (int y = 0; y < sums.height; ++y)
        for (int x = 0; x < sums.width; ++x)
            for (int c = 0; c < sums.channels; ++c) {
                float& sample = sums.row(y)[x * sums.channels + c];
                const float mean = sample / (weight.row(y)[x] + 1e-5f) + 0.5f;
                sample = static_cast<float>(std::floor(static_cast<double>(mean)));
            }
}

inline int clamp_and_floor(float value, int largest)
{
    if (value < 0)
        return 0;
    if (value > static_cast<float>(largest))
        return largest;
    return static_cast<int>(std::floor(static_cast<double>(value)));
}

// The samples of the panorama, elem_size bytes each; zeros for sizes other than 1 and 2.
inline std::vector<std::uint8_t> multi_band_blend(MultiBand& blender, int elem_size)
{
    for (std::size_t i = 0; i < blender.laplace.size(); ++i)
        normalize_level(blender.weights[i], blender.laplace[i]);
    for (std::size_t i = blender.laplace.size() - 1; i > 0; --i) {
        Image& finer = blender.laplace[i - 1];
        Image expanded(finer.width, finer.height, finer.channels);
        pyr_up(blender.laplace[i], expanded);
        for (std::size_t k = 0; k < finer.data.size(); ++k)
            finer.data[k] += expanded.data[k];
    }
    const Image& canvas = blender.laplace[0];
    const int row_samples = blender.dst_roi_final.width * canvas.channels;
    std::vector<std::uint8_t> out;
    for (int y = 0; y < blender.dst_roi_final.height; ++y)
        for (int i = 0; i < row_samples; ++i) {
            const int value = clamp_and_floor(canvas.row(y)[i], elem_size == 1 ? 255 : 65535);
            if (elem_size == 1) {
                out.push_back(static_cast<std::uint8_t>(value));
            } else if (elem_size == 2) {
                out.push_back(static_cast<std::uint8_t>(value & 255));
                out.push_back(static_cast<std::uint8_t>(value >> 8));
            } else {
                out.insert(out.end(), static_cast<std::size_t>(elem_size), 0);
            }
        }
    return out;
}

} // namespace panoval::reference
