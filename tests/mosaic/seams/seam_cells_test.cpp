// SPDX-License-Identifier: MIT
// Reduced pictures against plain sums over the pixels of their cells, with masks of all kinds.
#include "mosaic/seams/seam_cells.h"

#include "tests/mosaic/memory_reader.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>

namespace panoval::mosaic::test
{

namespace
{

using panoval::test::Random;

enum class Mask { None, Outline, Grains, Stripes };

bool is_inside(Mask mask, std::int64_t x, std::int64_t y, std::int64_t width, Random& random)
{
    switch (mask) {
    case Mask::None:
        return true;
    case Mask::Outline: // whole spans between holes at either side, and a hole within
        return x + y > 40 && 2 * x + y < 2 * width && (x - 90) * (x - 90) + (y - 60) * (y - 60) > 100;
    case Mask::Grains:
        return random.integer(0, 19) > 0;
    case Mask::Stripes:
        return x / 37 % 2 == 0;
    }
    return true;
}

MemoryPicture noise_picture(std::int64_t width, std::int64_t height, int channels, int bits, Mask mask, Random& random)
{
    MemoryPicture picture = MemoryPicture::blank(width, height, channels, bits);
    for (std::uint16_t& sample : picture.samples)
        sample = static_cast<std::uint16_t>(random.integer(0, (1 << bits) - 1));
    if (mask == Mask::None)
        return picture;
    for (std::int64_t y = 0; y < height; ++y)
        for (std::int64_t x = 0; x < width; ++x)
            picture.mask.push_back(
                static_cast<std::uint8_t>(is_inside(mask, x, y, width, random) ? random.integer(1, 255) : 0));
    return picture;
}

struct PlainCell {
    std::array<double, 4> sums{};
    double rough = 0;
    double differences = 0;
    double pixels = 0;
};

void add_difference(const MemoryPicture& picture, std::int64_t x, std::int64_t y, std::int64_t x2, std::int64_t y2,
                    PlainCell& cell)
{
    if (!picture.is_covered(x2, y2))
        return;
    for (int c = 0; c < picture.channels; ++c)
        cell.rough += std::abs(picture.at(x, y, c) - picture.at(x2, y2, c));
    ++cell.differences;
}

// part: of the picture, one cell; neighbours to the right may lie in the next one
PlainCell plain_cell(const MemoryPicture& picture, const Rect& part)
{
    PlainCell cell;
    for (std::int64_t y = part.y; y < part.bottom(); ++y)
        for (std::int64_t x = part.x; x < part.right(); ++x) {
            if (!picture.is_covered(x, y))
                continue;
            ++cell.pixels;
            for (int c = 0; c < picture.channels; ++c)
                cell.sums[static_cast<std::size_t>(c)] += picture.at(x, y, c);
            if (x + 1 < picture.width)
                add_difference(picture, x, y, x + 1, y, cell);
            if (y + 1 < part.bottom())
                add_difference(picture, x, y, x, y + 1, cell);
        }
    return cell;
}

Cover cover_of(const PlainCell& cell, const CellGrid& grid, std::int64_t column, std::int64_t row)
{
    const auto whole = static_cast<double>(grid.column_width(column) * grid.row_height(row));
    return cell.pixels == 0 ? Cover::None : cell.pixels == whole ? Cover::Wholly : Cover::Partly;
}

void expect_plain_cells(const MemoryPicture& picture, const Rect& rect, const CellGrid& grid, double scale,
                        const ReducedPicture& reduced)
{
    const auto feature = [](double value) { return static_cast<int>(value + 0.5); };
    for (std::int64_t row = reduced.cells().y; row < reduced.cells().bottom(); ++row)
        for (std::int64_t column = reduced.cells().x; column < reduced.cells().right(); ++column) {
            const Rect square{column * grid.cell - rect.x, row * grid.cell - rect.y, grid.cell, grid.cell};
            const PlainCell plain = plain_cell(picture, intersect(square, {0, 0, rect.width, rect.height}));
            const std::int64_t index = reduced.index(column, row);
            ASSERT_EQ(reduced.cover(index), cover_of(plain, grid, column, row)) << column << ' ' << row;
            if (plain.pixels == 0)
                continue;
            const std::uint16_t* const features = reduced.features(index);
            for (int c = 0; c < picture.channels; ++c)
                ASSERT_EQ(features[c], feature(plain.sums[static_cast<std::size_t>(c)] / plain.pixels * scale))
                    << column << ' ' << row << ' ' << c;
            const double differences = std::max(plain.differences, 1.0) * picture.channels;
            ASSERT_EQ(features[picture.channels], feature(plain.rough / differences * scale)) << column << ' ' << row;
        }
}

TEST(SeamCells, AreSumsOfWhatTheMaskCovers)
{
    Random random(5);
    for (const int channels : {1, 3, 4})
        for (const int bits : {8, 16})
            for (const std::int64_t cell : {2, 4, 16})
                for (const Mask mask : {Mask::None, Mask::Outline, Mask::Grains, Mask::Stripes}) {
                    SCOPED_TRACE(testing::Message() << channels << " channels, " << bits << " bits, cells of " << cell
                                                    << ", mask " << static_cast<int>(mask));
                    MemoryReader reader(240, 170);
                    reader.add(7, 5, noise_picture(211, 149, channels, bits, mask, random));
                    reader.add(7, 5, noise_picture(211, 149, channels, bits, Mask::Grains, random));
                    const CellGrid grid(reader.layout, cell);
                    NoProgress progress;
                    const std::vector<ReducedPicture> reduced =
                        reduce_pictures(reader.layout, find_overlaps(reader.layout), Corrections::none(reader.layout),
                                        grid, Features::OfShared, reader, 2, progress, 1);
                    for (std::size_t i = 0; i < 2; ++i)
                        expect_plain_cells(reader.pictures[i], reader.layout.pictures[i].rect, grid,
                                           feature_scale(reader.layout), reduced[i]);
                }
}

void expect_same_features(const ReducedPicture& whole, const ReducedPicture& reduced, const Rect& cells, int channels)
{
    for (std::int64_t row = cells.y; row < cells.bottom(); ++row)
        for (std::int64_t column = cells.x; column < cells.right(); ++column) {
            const std::int64_t index = (row - whole.cells().y) * whole.cells().width + column - whole.cells().x;
            for (int c = 0; c <= channels; ++c)
                ASSERT_EQ(reduced.features(index)[c], whole.features(index)[c]) << column << ' ' << row << ' ' << c;
        }
}

// What is reduced later on leaves cells beside it as they are. The second picture of the canvas that goes round ends in
// the cells in which it begins.
TEST(SeamCells, AreTheSameInPartsAndAtOnce)
{
    Random random(6);
    for (const bool wraps : {false, true})
        for (const std::int64_t cell : {2, 4, 16}) {
            SCOPED_TRACE(testing::Message() << (wraps ? "round, " : "flat, ") << "cells of " << cell);
            MemoryReader reader(240, 170);
            reader.layout.wraps = wraps;
            reader.add(wraps ? 107 : 7, 5, noise_picture(131, 149, 3, 8, Mask::None, random));
            reader.add(101, 9, noise_picture(wraps ? 239 : 139, 150, 3, 8, Mask::None, random));
            const CellGrid grid(reader.layout, cell);
            const std::vector<Overlap> overlaps = find_overlaps(reader.layout);
            const Corrections corrections = Corrections::none(reader.layout);
            NoProgress progress;
            const std::vector<ReducedPicture> whole =
                reduce_pictures(reader.layout, overlaps, corrections, grid, Features::OfAll, reader, 2, progress, 1);
            std::vector<ReducedPicture> reduced =
                reduce_pictures(reader.layout, overlaps, corrections, grid, Features::OfShared, reader, 2, progress, 1);
            std::vector<PicturePart> parts;
            for (std::size_t i = 0; i < 2; ++i) {
                const Rect& cells = whole[i].cells();
                parts.push_back({i, {cells.x + 1, cells.y + 2, cells.width / 5, cells.height / 3}});
                parts.push_back({i, {cells.x + cells.width / 2, cells.y + 1, cells.width / 5, cells.height / 2}});
            }
            reduce_parts(reader.layout, parts, corrections, grid, reader, 2, reduced);
            for (const PicturePart& part : parts)
                expect_same_features(whole[part.picture], reduced[part.picture], part.cells, 3);
            for (const Overlap& overlap : overlaps)
                for (const std::size_t picture : {overlap.first, overlap.second})
                    expect_same_features(whole[picture], reduced[picture],
                                         intersect(grid.cells_of(overlap.region), whole[picture].cells()), 3);
        }
}

// Whoever reads the pictures for their gains has them reduced on the way, with masks and without.
TEST(SeamCells, AreTheSameBeforeCorrectionsAreKnown)
{
    Random random(7);
    for (const int bits : {8, 16})
        for (const Mask mask : {Mask::None, Mask::Outline}) {
            SCOPED_TRACE(testing::Message() << bits << " bits, mask " << static_cast<int>(mask));
            MemoryReader reader(240, 170);
            reader.add(7, 5, noise_picture(131, 149, 3, bits, mask, random));
            reader.add(101, 9, noise_picture(139, 150, 3, bits, Mask::None, random));
            const CellGrid grid(reader.layout, 4);
            const std::vector<Overlap> overlaps = find_overlaps(reader.layout);
            Corrections corrections = Corrections::none(reader.layout);
            corrections.gains = {{0.8, 1.1, 1.3, 1}, {1.7, 0.9, 0.6, 1}};
            corrections.falloff = {{-0.2, 0.05, -0.01}};
            NoProgress progress;
            const std::vector<ReducedPicture> at_once =
                reduce_pictures(reader.layout, overlaps, corrections, grid, Features::OfAll, reader, 1, progress, 1);
            EarlyReduction early(reader.layout, overlaps, grid, reader);
            for (const std::size_t picture : {1U, 0U})
                early.reduce(picture);
            const std::vector<ReducedPicture> later = early.take(corrections, 2);
            ASSERT_EQ(later.size(), 2U);
            for (std::size_t i = 0; i < 2; ++i) {
                const Rect& cells = at_once[i].cells();
                expect_same_features(at_once[i], later[i], cells, 3);
                for (std::int64_t y = 0; y < cells.height; ++y)
                    for (std::int64_t x = 0; x < cells.width; ++x) {
                        ASSERT_EQ(later[i].cover(y * cells.width + x), at_once[i].cover(y * cells.width + x));
                        ASSERT_EQ(later[i].distance_at(x, y), at_once[i].distance_at(x, y));
                    }
            }
        }
}

} // namespace

} // namespace panoval::mosaic::test
