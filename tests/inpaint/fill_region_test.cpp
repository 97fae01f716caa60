// SPDX-License-Identifier: MIT
#include "inpaint/fill_region.h"

#include "tests/reference/inpaint.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <vector>

namespace panoval::test
{

namespace
{

using reference::InpaintBytes;

// Marks, grown by one and by two, on the grid with its frame.
struct GrownMarks {
    InpaintBytes inside;
    InpaintBytes outer;

    GrownMarks(const std::vector<std::uint8_t>& marks, std::int32_t width, std::int32_t height)
        : inside(width + 2, height + 2, 0), outer(width + 2, height + 2, 0)
    {
        InpaintBytes grid(width + 2, height + 2, 0);
        for (std::int32_t r = 0; r < height; ++r)
            for (std::int32_t c = 0; c < width; ++c)
                grid(r + 1, c + 1) = marks[static_cast<std::size_t>(r * width + c)] != 0 ? 1 : 0;
        reference::inpaint_dilate(grid, inside);
        reference::inpaint_dilate(inside, outer);
    }
};

// Every cell of the window against the grown marks and the picture.
void expect_cells(const FillRegion& region, const GrownMarks& grown, const std::vector<std::uint8_t>& image)
{
    for (std::int32_t row = region.first_row; row < region.end_row; ++row)
        for (std::int32_t col = region.first_col; col < region.end_col; ++col) {
            SCOPED_TRACE(testing::Message() << "cell " << row << ", " << col);
            const std::size_t cell = region.index(row, col);
            if (row == 0 || col == 0 || row == region.grid_rows - 1 || col == region.grid_cols - 1) {
                ASSERT_EQ(region.known(cell), kFrame);
                continue;
            }
            const bool is_ring = grown.outer(row, col) != 0 && grown.inside(row, col) == 0;
            ASSERT_EQ(region.ring[cell], is_ring ? 1 : 0);
            ASSERT_EQ(region.distance(cell), is_ring ? 0.0f : kFarAway);
            ASSERT_EQ(region.known(cell), grown.inside(row, col) != 0 ? kInside : kPixel);
            const auto pixel = static_cast<std::size_t>(3 * ((row - 1) * (region.grid_cols - 2) + col - 1));
            ASSERT_EQ(region.colour(cell) & 0xFFFFFFu,
                      image[pixel] + 256u * image[pixel + 1] + 65536u * image[pixel + 2]);
        }
}

void compare(std::int32_t width, std::int32_t height, const std::vector<std::uint8_t>& marks, std::int32_t reach)
{
    const auto image = noise<std::uint8_t>(static_cast<std::size_t>(3 * width * height), 0, 255, 5);
    FillRegion region;
    ASSERT_TRUE(find_fill_region(region, {marks.data(), width, height, 1}, image.data(), width, height, reach));
    expect_cells(region, GrownMarks(marks, width, height), image);
}

std::vector<std::uint8_t> literally_dilated(const std::uint8_t* row, std::ptrdiff_t stride,
                                            const std::vector<std::uint8_t>& taken)
{
    std::vector<std::uint8_t> out(taken.size());
    for (std::size_t i = 0; i < out.size(); ++i) {
        unsigned bits = 0;
        for (std::ptrdiff_t y = -1; y <= 1; ++y)
            for (std::ptrdiff_t x = -1; x <= 1; ++x)
                bits |= row[y * stride + static_cast<std::ptrdiff_t>(i) + x];
        out[i] = static_cast<std::uint8_t>(bits & ~unsigned{taken[i]});
    }
    return out;
}

TEST(DilateRow, EqualsItsDefinitionForEveryTailAndOffset)
{
    for_each_target([] {
        for (std::size_t count = 0; count <= 131; ++count) {
            const std::size_t stride = count + 2; // a cell on either side
            // Mostly empty, so that each of the nine cells decides somewhere.
            auto cells = noise<std::uint8_t>(3 * stride, 0, 20, count);
            for (std::uint8_t& cell : cells)
                cell = cell == 0 ? 1 : 0;
            const Guarded<std::uint8_t> source(cells);
            const auto taken = noise<std::uint8_t>(count, 0, 1, count + 1000);
            const Guarded<std::uint8_t> in(taken);
            Guarded<std::uint8_t> out(count);
            const std::uint8_t* const row = source.data() + stride + 1;
            dilate_row(row, static_cast<std::ptrdiff_t>(stride), count, in.data(), out.data());
            EXPECT_TRUE(same_bits(out.values(), literally_dilated(row, static_cast<std::ptrdiff_t>(stride), taken)))
                << count;
            EXPECT_TRUE(out.intact());
        }
    });
}

TEST(DilateRow, KeepsEveryBitOfItsNineCells)
{
    for_each_target([] {
        for (std::size_t cell = 0; cell < 9; ++cell) {
            std::vector<std::uint8_t> cells(9, 0);
            cells[cell] = 0xF0;
            const std::uint8_t taken = 0x30;
            std::uint8_t out = 0;
            dilate_row(cells.data() + 4, 3, 1, &taken, &out);
            EXPECT_EQ(out, 0xC0) << cell;
        }
    });
}

TEST(FillRegion, HoldsTheGrownMarksAndTheirRing)
{
    for_each_target([] {
        for (std::int32_t width = 5; width <= 75; width += 7)
            for (const std::int32_t reach : {1, 3, 100}) {
                std::vector<std::uint8_t> marks(static_cast<std::size_t>(width * 20), 0);
                Random random(static_cast<std::uint64_t>(width));
                for (int n = 0; n < 3; ++n)
                    marks[static_cast<std::size_t>(random.integer(0, width * 20 - 1))] = 255;
                compare(width, 20, marks, reach);
            }
    });
}

TEST(FillRegion, IsNoneWithoutMarksOrWithoutKnownPixels)
{
    const std::vector<std::uint8_t> image(3 * 6 * 5);
    FillRegion region;
    EXPECT_FALSE(find_fill_region(region, {std::vector<std::uint8_t>(30, 0).data(), 6, 5, 1}, image.data(), 6, 5, 2));
    EXPECT_FALSE(find_fill_region(region, {std::vector<std::uint8_t>(30, 9).data(), 6, 5, 1}, image.data(), 6, 5, 2));
}

} // namespace

} // namespace panoval::test
