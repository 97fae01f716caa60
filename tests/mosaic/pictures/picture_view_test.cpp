// SPDX-License-Identifier: MIT
#include "mosaic/pictures/picture_view.h"

#include "tests/mosaic/random_layout.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>

namespace panoval::mosaic::test
{

namespace
{

// Has all rows in memory and lets others hold them.
class HoldingReader : public PictureReader
{
public:
    explicit HoldingReader(MemoryReader& reader) : reader_(reader) {}

    void read(std::size_t picture, const Rect& rect, PixelBlock& block) override { reader_.read(picture, rect, block); }

    bool hold(std::size_t picture, const Rect& rect, HeldRows& rows) override
    {
        rows.clear();
        const auto block = std::make_shared<PixelBlock>();
        reader_.read(picture, rect, *block);
        for (std::int64_t y = 0; y < rect.height; ++y) {
            rows.samples.push_back(block->row(y));
            if (reader_.layout.pictures[picture].has_mask)
                rows.masks.push_back(block->mask_row(y));
        }
        rows.holders.emplace_back(block, block->row(0));
        return true;
    }

private:
    MemoryReader& reader_;
};

TEST(PictureView, ShowsHeldRowsAndCopiesAlike)
{
    for (std::uint32_t seed = 0; seed < 20; ++seed) {
        const auto reader = random_panorama(seed);
        const Layout& layout = reader->layout;
        HoldingReader holding(*reader);
        PictureView copied;
        PictureView held;
        for (std::size_t i = 0; i < layout.pictures.size(); ++i) {
            const Rect& size = layout.pictures[i].rect;
            const Rect part{size.width / 3, size.height / 4, size.width - size.width / 3,
                            size.height - size.height / 4};
            copied.read(*reader, i, part, layout.channels, layout.sample_bytes());
            held.read(holding, i, part, layout.channels, layout.sample_bytes());
            ASSERT_EQ(held.rect(), copied.rect());
            const auto width = static_cast<std::size_t>(part.width);
            const std::size_t row_bytes = width * static_cast<std::size_t>(layout.pixel_bytes());
            for (std::int64_t y = 0; y < part.height; ++y) {
                ASSERT_EQ(std::memcmp(held.row(y), copied.row(y), row_bytes), 0) << seed;
                ASSERT_EQ(std::memcmp(held.mask_row(y), copied.mask_row(y), width), 0) << seed;
            }
        }
    }
}

} // namespace

} // namespace panoval::mosaic::test
