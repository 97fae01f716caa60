// SPDX-License-Identifier: MIT
// A panorama with seams, literally: whole planes of all levels, one picture after the other, beyond the canvas zeros.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/pictures/corrections.h"
#include "mosaic/pictures/pixel_block.h"

#include <cmath>
#include <cstdint>
#include <vector>

namespace panoval::reference
{

// One channel of one level; positions may be negative.
struct CompositePlane {
    std::int64_t x0 = 0, y0 = 0, width = 0, height = 0;
    std::vector<float> data;

    CompositePlane(std::int64_t left, std::int64_t top, std::int64_t w, std::int64_t h)
        : x0(left), y0(top), width(w), height(h), data(static_cast<std::size_t>(w * h))
    {
    }
    float get(std::int64_t x, std::int64_t y) const
    {
        const bool is_inside = x >= x0 && x < x0 + width && y >= y0 && y < y0 + height;
        return is_inside ? data[static_cast<std::size_t>((y - y0) * width + x - x0)] : 0.0f;
    }
    float& at(std::int64_t x, std::int64_t y) { return data[static_cast<std::size_t>((y - y0) * width + x - x0)]; }
};

inline float reduced_across(const CompositePlane& p, std::int64_t x, std::int64_t y)
{
    const float odd = 4.0f * (p.get(2 * x - 1, y) + p.get(2 * x + 1, y));
    return odd + 6.0f * p.get(2 * x, y) + p.get(2 * x - 2, y) + p.get(2 * x + 2, y);
}

inline CompositePlane reduced(const CompositePlane& p)
{
    CompositePlane half(p.x0 / 2, p.y0 / 2, p.width / 2, p.height / 2);
    for (std::int64_t y = half.y0; y < half.y0 + half.height; ++y)
        for (std::int64_t x = half.x0; x < half.x0 + half.width; ++x) {
            float r[5];
            for (int k = 0; k < 5; ++k)
                r[k] = reduced_across(p, x, 2 * y - 2 + k);
            half.at(x, y) = (4.0f * (r[1] + r[3] + r[2]) + (r[0] + r[4] + (r[2] + r[2]))) * (1.0f / 256);
        }
    return half;
}

inline float expanded_across(const CompositePlane& half, std::int64_t x, std::int64_t y)
{
    const std::int64_t at = (x - (x & 1)) / 2;
    if ((x & 1) == 0)
        return half.get(at - 1, y) + 6.0f * half.get(at, y) + half.get(at + 1, y);
    return 4.0f * (half.get(at, y) + half.get(at + 1, y));
}

inline float expanded(const CompositePlane& half, std::int64_t x, std::int64_t y)
{
    const std::int64_t at = (y - (y & 1)) / 2;
    if ((y & 1) == 0)
        return (expanded_across(half, x, at - 1) + 6.0f * expanded_across(half, x, at) +
                expanded_across(half, x, at + 1)) *
               (1.0f / 64);
    return (expanded_across(half, x, at) + expanded_across(half, x, at + 1)) * (4.0f / 64);
}

// Means of the covered part alone.
inline CompositePlane normalized(const CompositePlane& p, const CompositePlane& covered)
{
    CompositePlane mean = p;
    for (std::size_t i = 0; i < p.data.size(); ++i)
        mean.data[i] = covered.data[i] > 0 ? p.data[i] / covered.data[i] : 0.0f;
    return mean;
}

// labels: of the whole canvas. Returns width * height * channels samples. The canvas does not wrap.
inline std::vector<std::uint16_t> composite_blend(const mosaic::Layout& layout, const mosaic::Corrections& corrections,
                                                  const std::vector<std::int32_t>& labels,
                                                  mosaic::PictureReader& reader, int bands)
{
    const std::int64_t margin = std::int64_t{16} << bands;
    const auto up = [&](std::int64_t size) { return (size + 3 * margin - 1) / margin * margin; };
    const auto plane = [&] { return CompositePlane(-margin, -margin, up(layout.width), up(layout.height)); };
    const auto label_at = [&](std::int64_t x, std::int64_t y) {
        return labels[static_cast<std::size_t>(y * layout.width + x)];
    };
    const auto n = static_cast<std::size_t>(layout.channels);
    std::vector<CompositePlane> composite(n, plane());
    std::vector<std::vector<CompositePlane>> corrected(layout.pictures.size(), {n, plane()});
    std::vector<std::vector<std::uint8_t>> masks;
    for (std::size_t k = 0; k < layout.pictures.size(); ++k) {
        const mosaic::Rect& rect = layout.pictures[k].rect;
        const mosaic::Rect whole{0, 0, rect.width, rect.height};
        mosaic::PixelBlock block;
        reader.read(k, whole, block);
        masks.emplace_back(block.mask_row(0), block.mask_row(0) + rect.pixels());
        std::vector<float> row(static_cast<std::size_t>(rect.width) * n);
        for (std::int64_t y = 0; y < rect.height; ++y) {
            mosaic::correct_row(corrections, k, whole, block, y, row.data());
            for (std::int64_t x = 0; x < rect.width; ++x)
                for (std::size_t c = 0; c < n; ++c) {
                    const float value = row[static_cast<std::size_t>(x) * n + c];
                    corrected[k][c].at(rect.x + x, rect.y + y) = value;
                    if (label_at(rect.x + x, rect.y + y) == static_cast<std::int32_t>(k))
                        composite[c].at(rect.x + x, rect.y + y) = value;
                }
        }
    }

    std::vector<std::uint16_t> out(static_cast<std::size_t>(layout.width * layout.height) * n);
    for (std::size_t c = 0; c < n; ++c) {
        std::vector<CompositePlane> sums;
        for (std::size_t k = 0; k < layout.pictures.size(); ++k) {
            const mosaic::Rect& rect = layout.pictures[k].rect;
            CompositePlane difference = plane();
            CompositePlane own = plane();
            CompositePlane covered = plane();
            for (std::int64_t y = 0; y < layout.height; ++y)
                for (std::int64_t x = 0; x < layout.width; ++x)
                    covered.at(x, y) = label_at(x, y) >= 0 ? 1.0f : 0.0f;
            for (std::int64_t y = 0; y < rect.height; ++y)
                for (std::int64_t x = 0; x < rect.width; ++x) {
                    const std::int64_t at_x = rect.x + x, at_y = rect.y + y;
                    if (masks[k][static_cast<std::size_t>(y * rect.width + x)] != 0)
                        difference.at(at_x, at_y) = corrected[k][c].get(at_x, at_y) - composite[c].get(at_x, at_y);
                    if (label_at(at_x, at_y) == static_cast<std::int32_t>(k))
                        own.at(at_x, at_y) = 1.0f;
                }
            for (int i = 0; i <= bands; ++i) {
                if (k == 0)
                    sums.emplace_back(own.x0, own.y0, own.width, own.height);
                const bool is_last = i == bands;
                const CompositePlane coarser = is_last ? difference : reduced(difference);
                const CompositePlane coarser_covered = is_last ? covered : reduced(covered);
                const CompositePlane mean = normalized(difference, covered);
                const CompositePlane coarser_mean = normalized(coarser, coarser_covered);
                const CompositePlane weight = normalized(own, covered);
                CompositePlane& sum = sums[static_cast<std::size_t>(i)];
                for (std::int64_t y = own.y0; y < own.y0 + own.height; ++y)
                    for (std::int64_t x = own.x0; x < own.x0 + own.width; ++x) {
                        const float band = is_last ? mean.get(x, y) : mean.get(x, y) - expanded(coarser_mean, x, y);
                        sum.at(x, y) += band * weight.get(x, y);
                    }
                if (!is_last)
                    own = reduced(own);
                difference = coarser;
                covered = coarser_covered;
            }
        }
        for (std::size_t i = sums.size() - 1; i-- > 0;) {
            CompositePlane& sum = sums[i];
            for (std::int64_t y = sum.y0; y < sum.y0 + sum.height; ++y)
                for (std::int64_t x = sum.x0; x < sum.x0 + sum.width; ++x)
                    sum.at(x, y) += expanded(sums[i + 1], x, y);
        }
        const auto largest = static_cast<float>(layout.largest_sample());
        for (std::int64_t y = 0; y < layout.height; ++y)
            for (std::int64_t x = 0; x < layout.width; ++x) {
                const float value = std::floor(composite[c].get(x, y) + sums[0].get(x, y) + 0.5f);
                out[static_cast<std::size_t>(y * layout.width + x) * n + c] =
                    static_cast<std::uint16_t>(std::fmin(std::fmax(value, 0.0f), largest));
            }
    }
    return out;
}

} // namespace panoval::reference
