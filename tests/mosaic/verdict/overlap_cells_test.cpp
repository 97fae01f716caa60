// SPDX-License-Identifier: MIT
// Cells against plain sums over their pixels, with masks of all kinds.
#include "mosaic/verdict/overlap_cells.h"

#include "tests/mosaic/memory_reader.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace panoval::mosaic::test
{

namespace
{

using panoval::test::Random;

enum class Mask { None, Outline, Grains };

MemoryPicture noise_picture(std::int64_t width, std::int64_t height, int channels, int bits, Mask mask, Random& random)
{
    MemoryPicture picture = MemoryPicture::blank(width, height, channels, bits);
    const int largest = (1 << bits) - 1;
    for (std::uint16_t& sample : picture.samples)
        sample = static_cast<std::uint16_t>(
            std::min(static_cast<int>(random.integer(0, largest + largest / 8)), largest)); // some clipped
    if (mask == Mask::None)
        return picture;
    picture.mask.resize(static_cast<std::size_t>(width * height));
    for (std::int64_t y = 0; y < height; ++y)
        for (std::int64_t x = 0; x < width; ++x) {
            const bool is_inside =
                mask == Mask::Grains ? random.integer(0, 9) > 0 : x + y > 30 && 3 * x + y < 3 * width;
            picture.mask[static_cast<std::size_t>(y * width + x)] =
                static_cast<std::uint8_t>(is_inside ? random.integer(1, 255) : 0);
        }
    return picture;
}

// What a cell holds, pixel by pixel.
struct PlainCell {
    double first[4] = {};
    double second[4] = {};
    std::int64_t count = 0;
    std::int64_t pixels = 0;
    int clipped = 0;
};

PlainCell plain_cell(const MemoryReader& reader, const Overlap& overlap, const Rect& part)
{
    const Rect& a = reader.layout.pictures[overlap.first].rect;
    const Rect& b = reader.layout.pictures[overlap.second].rect;
    const MemoryPicture& first = reader.pictures[overlap.first];
    const MemoryPicture& second = reader.pictures[overlap.second];
    PlainCell cell;
    cell.pixels = part.pixels();
    for (std::int64_t y = part.y; y < part.bottom(); ++y)
        for (std::int64_t x = part.x; x < part.right(); ++x) {
            if (!first.is_covered(x - a.x, y - a.y) || !second.is_covered(x - b.x, y - b.y))
                continue;
            ++cell.count;
            for (int c = 0; c < first.channels; ++c) {
                cell.first[c] += first.at(x - a.x, y - a.y, c);
                cell.second[c] += second.at(x - b.x, y - b.y, c);
                cell.clipped |= first.at(x - a.x, y - a.y, c) == reader.layout.largest_sample() ? 1 : 0;
                cell.clipped |= second.at(x - b.x, y - b.y, c) == reader.layout.largest_sample() ? 2 : 0;
            }
        }
    return cell;
}

void expect_plain_cells(MemoryReader& reader)
{
    const Corrections corrections = Corrections::none(reader.layout);
    const PictureSource source{reader.layout, corrections, reader};
    const Overlap overlap = find_overlaps(reader.layout).at(0);
    const OverlapCells cells = read_cells(source, overlap);
    std::uint64_t shared = 0;
    for (std::size_t y = 0; y < cells.height; ++y)
        for (std::size_t x = 0; x < cells.width; ++x) {
            const Rect square{overlap.region.x + static_cast<std::int64_t>(x) * cells.step,
                              overlap.region.y + static_cast<std::int64_t>(y) * cells.step, cells.step, cells.step};
            const PlainCell plain = plain_cell(reader, overlap, intersect(square, overlap.region));
            shared += static_cast<std::uint64_t>(plain.count);
            const std::size_t cell = y * cells.width + x;
            ASSERT_EQ(cells.known[cell], plain.count > 0 && 2 * plain.count >= plain.pixels ? 1 : 0) << x << ' ' << y;
            if (cells.known[cell] == 0)
                continue;
            ASSERT_EQ(cells.clipped[cell], plain.clipped) << x << ' ' << y;
            const double factor = source.levels_per_sample() / static_cast<double>(plain.count);
            for (std::size_t c = 0; c < cells.channels; ++c) {
                ASSERT_EQ(cells.first[cell * cells.channels + c], static_cast<float>(plain.first[c] * factor));
                ASSERT_EQ(cells.second[cell * cells.channels + c], static_cast<float>(plain.second[c] * factor));
            }
        }
    EXPECT_EQ(cells.shared_pixels, shared);
}

TEST(OverlapCells, AreSumsOfWhatBothMasksCover)
{
    Random random(11);
    for (const int channels : {1, 3, 4})
        for (const int bits : {8, 16})
            for (const Mask first : {Mask::None, Mask::Outline, Mask::Grains})
                for (const Mask second : {Mask::None, Mask::Outline, Mask::Grains}) {
                    SCOPED_TRACE(testing::Message() << channels << " channels, " << bits << " bits, masks "
                                                    << static_cast<int>(first) << ' ' << static_cast<int>(second));
                    MemoryReader reader(300, 230);
                    reader.add(0, 0, noise_picture(251, 203, channels, bits, first, random));
                    reader.add(49, 17, noise_picture(249, 211, channels, bits, second, random));
                    expect_plain_cells(reader);
                }
}

// Overlaps of more than 65536 cells of 2 pixels have larger ones.
TEST(OverlapCells, OfLargeOverlapsAreLarger)
{
    Random random(12);
    for (const std::int64_t side : {600, 1200}) {
        MemoryReader reader(side + 3, side);
        reader.add(0, 0, noise_picture(side, side, 1, 8, Mask::None, random));
        reader.add(3, 0, noise_picture(side, side, 1, 8, Mask::Outline, random));
        const Corrections corrections = Corrections::none(reader.layout);
        EXPECT_EQ(read_cells({reader.layout, corrections, reader}, find_overlaps(reader.layout).at(0)).step,
                  side == 600 ? 4 : 8);
        expect_plain_cells(reader);
    }
}

// Two pictures at one place with this sample everywhere.
std::unique_ptr<MemoryReader> even_pictures(std::int64_t width, std::int64_t height, std::uint16_t sample)
{
    auto reader = std::make_unique<MemoryReader>(width, height);
    for (int i = 0; i < 2; ++i) {
        MemoryPicture picture = MemoryPicture::blank(width, height, 1, 8);
        std::fill(picture.samples.begin(), picture.samples.end(), sample);
        reader->add(0, 0, std::move(picture));
    }
    return reader;
}

OverlapCells cells_of(MemoryReader& reader, const Corrections& corrections)
{
    return read_cells({reader.layout, corrections, reader}, find_overlaps(reader.layout).at(0));
}

TEST(OverlapCells, AreWithoutTheLensesFalloff)
{
    const auto owned = even_pictures(21, 17, 70);
    MemoryReader& reader = *owned;
    Corrections corrections = Corrections::none(reader.layout);
    corrections.falloff.c = {-0.3, 0, 0};
    const OverlapCells cells = cells_of(reader, corrections);
    ASSERT_EQ(cells.step, 1);
    EXPECT_FLOAT_EQ(cells.first[8 * 21 + 10], 70) << "in the middle";
    EXPECT_FLOAT_EQ(cells.first[0], 100) << "in the corner 0.7 of the light are left";
    EXPECT_FLOAT_EQ(cells.second[16 * 21 + 20], 100);
    EXPECT_FLOAT_EQ(cells.second[8 * 21], static_cast<float>(70 / (1 - 0.3 * 100 / 164))) << "10 of 10 and 8 pixels";
}

TEST(OverlapCells, OfOnePixelHaveNoFalloff)
{
    const auto owned = even_pictures(1, 1, 70);
    MemoryReader& reader = *owned;
    Corrections corrections = Corrections::none(reader.layout);
    corrections.falloff.c = {-0.3, 0, 0};
    EXPECT_FLOAT_EQ(cells_of(reader, corrections).first[0], 70);
}

TEST(OverlapCells, AreOfNothingWhereMasksShareNothing)
{
    const auto owned = even_pictures(16, 6, 70);
    MemoryReader& reader = *owned;
    for (std::size_t i = 0; i < 2; ++i) {
        reader.layout.pictures[i].has_mask = true;
        reader.pictures[i].mask.assign(16 * 6, 0);
        for (std::size_t k = 0; k < 16 * 3; ++k)
            reader.pictures[i].mask[16 * 3 * i + k] = 255;
    }
    const OverlapCells cells = cells_of(reader, Corrections::none(reader.layout));
    EXPECT_EQ(cells.shared_pixels, 0u);
    EXPECT_EQ(cells.after.mean, 0);
    EXPECT_EQ(cells.after.median, 0);
}

TEST(OverlapCells, LeaveOutOneColumnWhereverItIs)
{
    for (std::size_t column = 0; column < 16; ++column) {
        const auto owned = even_pictures(16, 6, 70);
        MemoryReader& reader = *owned;
        reader.layout.pictures[1].has_mask = true;
        reader.pictures[1].mask.assign(16 * 6, 255);
        for (std::size_t y = 0; y < 6; ++y)
            reader.pictures[1].mask[16 * y + column] = 0;
        const OverlapCells cells = cells_of(reader, Corrections::none(reader.layout));
        EXPECT_EQ(cells.shared_pixels, 15u * 6u);
        for (std::size_t x = 0; x < 16; ++x)
            EXPECT_EQ(cells.known[x], x == column ? 0 : 1) << x << " of " << column;
    }
}

} // namespace

} // namespace panoval::mosaic::test
