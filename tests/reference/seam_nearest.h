// SPDX-License-Identifier: MIT
// The seams half-way between edges as they are defined: of each pixel, the shortest way through a picture's covered
// pixels' distances to the outside, by repeated relaxation until nothing gets shorter.
#pragma once

#include "mosaic/seams/seam_nearest.h"
#include "tests/mosaic/seam_checks.h"

#include <cstdint>
#include <limits>
#include <vector>

namespace panoval::reference
{

// Chamfer distances of a picture, all of whose surroundings are uncovered.
inline std::vector<std::int32_t> edge_distances(const mosaic::test::MemoryPicture& picture)
{
    const std::int64_t width = picture.width + 2;
    const std::int64_t height = picture.height + 2;
    std::vector<std::int32_t> d(static_cast<std::size_t>(width * height), 0);
    for (std::int64_t y = 0; y < picture.height; ++y)
        for (std::int64_t x = 0; x < picture.width; ++x)
            d[static_cast<std::size_t>((y + 1) * width + x + 1)] = picture.is_covered(x, y) ? 1 << 28 : 0;
    for (bool has_changed = true; has_changed;) {
        has_changed = false;
        for (std::int64_t y = 1; y + 1 < height; ++y)
            for (std::int64_t x = 1; x + 1 < width; ++x)
                for (std::int64_t dy = -1; dy <= 1; ++dy)
                    for (std::int64_t dx = -1; dx <= 1; ++dx) {
                        const std::int32_t step = dx != 0 && dy != 0 ? mosaic::kDiagonalStep : mosaic::kStraightStep;
                        const std::int32_t way = d[static_cast<std::size_t>((y + dy) * width + x + dx)] + step;
                        std::int32_t& here = d[static_cast<std::size_t>(y * width + x)];
                        if ((dx != 0 || dy != 0) && way < here) {
                            here = way;
                            has_changed = true;
                        }
                    }
    }
    std::vector<std::int32_t> inside;
    for (std::int64_t y = 0; y < picture.height; ++y)
        for (std::int64_t x = 0; x < picture.width; ++x)
            inside.push_back(d[static_cast<std::size_t>((y + 1) * width + x + 1)]);
    return inside;
}

inline std::vector<std::int32_t> nearest_labels(const mosaic::test::SeamReader& reader)
{
    const mosaic::Layout& layout = reader.layout;
    const auto pixels = static_cast<std::size_t>(layout.width * layout.height);
    std::vector<std::int32_t> labels(pixels, mosaic::kNobody);
    std::vector<std::int32_t> farthest(pixels, 0);
    for (std::size_t i = 0; i < layout.pictures.size(); ++i) {
        const std::vector<std::int32_t> distances = edge_distances(reader.pictures[i]);
        for (std::int64_t y = 0; y < layout.height; ++y)
            for (std::int64_t x = 0; x < layout.width; ++x) {
                std::int64_t px = 0;
                std::int64_t py = 0;
                if (!reader.covers(i, x, y, px, py))
                    continue;
                const auto at = static_cast<std::size_t>(y * layout.width + x);
                const std::int32_t distance =
                    reader.is_kept(i, px, py) ? std::numeric_limits<std::int32_t>::max()
                                              : distances[static_cast<std::size_t>(py * reader.pictures[i].width + px)];
                if (distance > farthest[at]) {
                    farthest[at] = distance;
                    labels[at] = static_cast<std::int32_t>(i);
                }
            }
    }
    return labels;
}

} // namespace panoval::reference
