// SPDX-License-Identifier: MIT
// Pictures for tests of the seams, some of whose pixels are to be kept, and what holds for seams of every kind.
#pragma once

#include "mosaic/seams/seam_map.h"
#include "tests/mosaic/memory_reader.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <utility>

namespace panoval::mosaic::test
{

// A reader that also tells which pixels to keep.
class SeamReader : public MemoryReader
{
public:
    using MemoryReader::MemoryReader;
    SeamReader(SeamReader&& other) noexcept : MemoryReader(other.layout.width, other.layout.height, other.layout.wraps)
    {
        layout = std::move(other.layout);
        pictures = std::move(other.pictures);
        keep_ = std::move(other.keep_);
    }

    // Rect in the picture's own pixels.
    void keep_rect(std::size_t picture, const Rect& rect)
    {
        const MemoryPicture& from = pictures[picture];
        std::vector<std::uint8_t>& keep = keep_[picture];
        keep.resize(static_cast<std::size_t>(from.width * from.height));
        for (std::int64_t y = rect.y; y < rect.bottom(); ++y)
            for (std::int64_t x = rect.x; x < rect.right(); ++x)
                keep[static_cast<std::size_t>(y * from.width + x)] = 1;
    }

    bool is_kept(std::size_t picture, std::int64_t x, std::int64_t y) const
    {
        const auto at = keep_.find(picture);
        return at != keep_.end() && at->second[static_cast<std::size_t>(y * pictures[picture].width + x)] != 0;
    }

    bool read_keep(std::size_t picture, const Rect& rect, std::uint8_t* out) override
    {
        if (keep_.find(picture) == keep_.end())
            return false;
        for (std::int64_t y = rect.y; y < rect.bottom(); ++y)
            for (std::int64_t x = rect.x; x < rect.right(); ++x)
                *out++ = is_kept(picture, x, y) ? 1 : 0;
        return true;
    }

    // Whether a picture covers a pixel of the canvas, and where that lies in the picture.
    bool covers(std::size_t picture, std::int64_t x_canvas, std::int64_t y_canvas, std::int64_t& x,
                std::int64_t& y) const
    {
        const Rect& rect = layout.pictures[picture].rect;
        x = x_canvas - rect.x;
        if (layout.wraps)
            x = (x % layout.width + layout.width) % layout.width;
        y = y_canvas - rect.y;
        return x >= 0 && x < rect.width && y >= 0 && y < rect.height && pictures[picture].is_covered(x, y);
    }
    bool covers(std::size_t picture, std::int64_t x_canvas, std::int64_t y_canvas) const
    {
        std::int64_t x = 0;
        std::int64_t y = 0;
        return covers(picture, x_canvas, y_canvas, x, y);
    }

private:
    std::map<std::size_t, std::vector<std::uint8_t>> keep_;
};

inline std::vector<std::int32_t> all_labels(const SeamMap& map)
{
    std::vector<std::int32_t> labels(static_cast<std::size_t>(map.width() * map.height()));
    for (std::int64_t y = 0; y < map.height(); ++y)
        map.read(y, 0, map.width(), false, labels.data() + y * map.width());
    return labels;
}

// Every pixel that a picture covers belongs to one that covers it, the others to nobody; what must be kept is kept.
inline void expect_owned_by_who_covers(const SeamReader& reader, const SeamMap& map, const std::string& what)
{
    const Layout& layout = reader.layout;
    ASSERT_EQ(map.width(), layout.width) << what;
    ASSERT_EQ(map.height(), layout.height) << what;
    const std::vector<std::int32_t> labels = all_labels(map);
    for (std::int64_t y = 0; y < layout.height; ++y)
        for (std::int64_t x = 0; x < layout.width; ++x) {
            const std::int32_t label = labels[static_cast<std::size_t>(y * layout.width + x)];
            bool is_covered = false;
            std::int32_t keeper = kNobody;
            for (std::size_t i = 0; i < layout.pictures.size(); ++i) {
                std::int64_t px = 0;
                std::int64_t py = 0;
                if (!reader.covers(i, x, y, px, py))
                    continue;
                is_covered = true;
                if (keeper == kNobody && reader.is_kept(i, px, py))
                    keeper = static_cast<std::int32_t>(i);
            }
            if (is_covered) {
                ASSERT_NE(label, kNobody) << what << " at " << x << ',' << y;
                ASSERT_TRUE(reader.covers(static_cast<std::size_t>(label), x, y)) << what << " at " << x << ',' << y;
            } else {
                ASSERT_EQ(label, kNobody) << what << " at " << x << ',' << y;
            }
            if (keeper != kNobody) {
                ASSERT_EQ(label, keeper) << what << " at " << x << ',' << y;
            }
        }
}

// Pictures of every kind on one canvas: tiny ones, some inside others, masks with holes and of noise, nothing covered
// at all, across the edge of a canvas that goes round.
inline SeamReader scattered_pictures(std::uint64_t seed)
{
    panoval::test::Random random(seed + 77);
    const bool wraps = seed % 3 == 0;
    SeamReader reader(random.integer(20, 150), random.integer(1, 200), wraps);
    const int channels = seed % 2 == 0 ? 1 : 3;
    const int bits = seed % 5 == 0 ? 16 : 8;
    const std::int64_t count = random.integer(1, 9);
    for (std::int64_t i = 0; i < count; ++i) {
        const std::int64_t most = random.integer(0, 2) == 0 ? 3 : reader.layout.width;
        const std::int64_t width = random.integer(1, std::min(most, reader.layout.width));
        const std::int64_t height = random.integer(1, std::min<std::int64_t>(most, reader.layout.height));
        MemoryPicture picture = MemoryPicture::blank(width, height, channels, bits);
        for (std::uint16_t& sample : picture.samples)
            sample = static_cast<std::uint16_t>(random.integer(0, bits == 8 ? 255 : 65535));
        if (const std::int64_t kind = random.integer(0, 3); kind > 0) {
            picture.mask.resize(static_cast<std::size_t>(width * height), 255);
            const std::int64_t holes = kind == 1 ? 0 : random.integer(1, 4);
            for (std::int64_t hole = 0; hole < holes; ++hole) {
                const std::int64_t x0 = random.integer(0, width - 1);
                const std::int64_t y0 = random.integer(0, height - 1);
                for (std::int64_t y = y0; y < std::min(height, y0 + 12); ++y)
                    for (std::int64_t x = x0; x < std::min(width, x0 + 20); ++x)
                        if (kind != 3 || random.integer(0, 1) == 0)
                            picture.mask[static_cast<std::size_t>(y * width + x)] = 0;
            }
        }
        reader.add(random.integer(0, reader.layout.width - (wraps ? 1 : width)),
                   random.integer(0, reader.layout.height - height), std::move(picture));
    }
    return reader;
}

} // namespace panoval::mosaic::test
