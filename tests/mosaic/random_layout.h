// SPDX-License-Identifier: MIT
// Small panoramas of any kind for tests that compare whole results: pictures with noise, ragged masks, gaps, pictures
// within pictures, single pixels.
#pragma once

#include "mosaic/seams/seam_map.h"
#include "tests/mosaic/memory_reader.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <vector>

namespace panoval::mosaic::test
{

inline std::int64_t any_of(std::mt19937& random, std::int64_t least, std::int64_t most)
{
    return least + static_cast<std::int64_t>(random() % static_cast<std::uint32_t>(most - least + 1));
}

inline MemoryPicture noise_picture(std::mt19937& random, std::int64_t width, std::int64_t height, int channels,
                                   int bits)
{
    MemoryPicture picture = MemoryPicture::blank(width, height, channels, bits);
    const std::uint32_t levels = bits == 8 ? 256 : 65536;
    for (std::uint16_t& sample : picture.samples)
        sample = static_cast<std::uint16_t>(random() % levels);
    return picture;
}

// Of one to three covered rectangles; of single pixels with values of any height; or of nothing.
inline void give_mask(std::mt19937& random, MemoryPicture& picture)
{
    picture.mask.assign(static_cast<std::size_t>(picture.width * picture.height), 0);
    const std::int64_t kind = any_of(random, 0, 7);
    if (kind == 0)
        return;
    for (std::size_t i = 0; i < picture.mask.size() && kind <= 2; ++i)
        picture.mask[i] = random() % 4 == 0 ? std::uint8_t{0} : static_cast<std::uint8_t>(random() % 256);
    if (kind <= 2)
        return;
    for (std::int64_t count = any_of(random, 1, 3); count > 0; --count) {
        const std::int64_t x0 = any_of(random, 0, picture.width - 1), x1 = any_of(random, x0, picture.width - 1);
        const std::int64_t y0 = any_of(random, 0, picture.height - 1), y1 = any_of(random, y0, picture.height - 1);
        for (std::int64_t y = y0; y <= y1; ++y)
            for (std::int64_t x = x0; x <= x1; ++x)
                picture.mask[static_cast<std::size_t>(y * picture.width + x)] = 255;
    }
}

inline std::unique_ptr<MemoryReader> random_panorama(std::uint32_t seed)
{
    std::mt19937 random(seed);
    const std::int64_t width = any_of(random, 1, 150), height = any_of(random, 1, 120);
    const int channels = std::vector<int>{1, 3, 4}[random() % 3];
    const int bits = random() % 2 == 0 ? 8 : 16;
    auto reader = std::make_unique<MemoryReader>(width, height);
    for (std::int64_t count = any_of(random, 1, 6); count > 0; --count) {
        const std::int64_t x = any_of(random, 0, width - 1), y = any_of(random, 0, height - 1);
        auto picture =
            noise_picture(random, any_of(random, 1, width - x), any_of(random, 1, height - y), channels, bits);
        if (random() % 2 == 0)
            give_mask(random, picture);
        reader->add(x, y, std::move(picture));
    }
    return reader;
}

// Each covered pixel belongs to the picture whose middle is nearest, of those that cover it.
inline std::vector<std::int32_t> nearest_middle(const MemoryReader& reader)
{
    const Layout& layout = reader.layout;
    std::vector<std::int32_t> labels(static_cast<std::size_t>(layout.width * layout.height), kNobody);
    for (std::int64_t y = 0; y < layout.height; ++y)
        for (std::int64_t x = 0; x < layout.width; ++x) {
            std::int64_t least = std::numeric_limits<std::int64_t>::max();
            for (std::size_t k = 0; k < reader.pictures.size(); ++k) {
                const Rect& r = layout.pictures[k].rect;
                if (!r.contains(x, y) || !reader.pictures[k].is_covered(x - r.x, y - r.y))
                    continue;
                const std::int64_t dx = 2 * x - 2 * r.x - r.width, dy = 2 * y - 2 * r.y - r.height;
                if (dx * dx + dy * dy < least) {
                    least = dx * dx + dy * dy;
                    labels[static_cast<std::size_t>(y * layout.width + x)] = static_cast<std::int32_t>(k);
                }
            }
        }
    return labels;
}

inline SeamMap seam_map_of(const std::vector<std::int32_t>& labels, std::int64_t width)
{
    SeamMap map(width);
    for (std::size_t at = 0; at < labels.size(); at += static_cast<std::size_t>(width))
        map.add_row(std::span(labels).subspan(at, static_cast<std::size_t>(width)));
    return map;
}

} // namespace panoval::mosaic::test
