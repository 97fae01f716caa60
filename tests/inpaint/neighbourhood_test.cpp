// SPDX-License-Identifier: MIT
#include "inpaint/neighbourhood.h"

#include "tests/reference/inpaint.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <vector>

namespace panoval::test
{

namespace
{

constexpr std::int32_t kWidth = 43;
constexpr std::int32_t kHeight = 29;

// A picture with holes in both forms: the region that the kernel works on, and the grids of the definition.
struct Hole {
    std::vector<std::uint8_t> image = noise<std::uint8_t>(3 * kWidth * kHeight, 0, 255, 8);
    FillRegion region;
    reference::InpaintBytes flags{kWidth + 2, kHeight + 2, 0}; // 2: to be filled
    reference::InpaintFloats distances{kWidth + 2, kHeight + 2, 1000000.0f};

    explicit Hole(std::uint64_t seed)
    {
        std::vector<std::uint8_t> marks(kWidth * kHeight, 0);
        Random random(seed);
        for (int n = 0; n < 12; ++n)
            marks[static_cast<std::size_t>(random.integer(0, kWidth * kHeight - 1))] = 1;
        EXPECT_TRUE(
            find_fill_region(region, {marks.data(), kWidth, kHeight, 1}, image.data(), kWidth, kHeight, kWidth));
        for (std::int32_t row = region.first_row; row < region.end_row; ++row)
            for (std::int32_t col = region.first_col; col < region.end_col; ++col) {
                const std::size_t cell = region.index(row, col);
                flags(row, col) = region.known(cell) == kInside ? 2 : 0;
                distances(row, col) = region.distance(cell);
            }
    }

    std::uint8_t& sample(std::int32_t row, std::int32_t col, int channel)
    {
        return image[static_cast<std::size_t>(3 * (row * kWidth + col) + channel)];
    }

    // What the definition makes of a cell: its distance and its three channels.
    void fill(std::int32_t row, std::int32_t col, std::int32_t radius)
    {
        distances(row, col) = reference::inpaint_distance(flags, distances, row, col);
        const auto slope = reference::inpaint_gradient_of_distance(flags, distances, row, col);
        for (int c = 0; c < 3; ++c) {
            const auto at = [&](std::int32_t r, std::int32_t k) { return int{sample(r, k, c)}; };
            sample(row - 1, col - 1, c) = reference::inpaint_value(flags, distances, row, col, radius, slope, at);
        }
        flags(row, col) = 0;
    }
};

void expect_the_same_cell(Hole& hole, std::int32_t row, std::int32_t col)
{
    const std::size_t cell = hole.region.index(row, col);
    ASSERT_EQ(hole.region.distance(cell), hole.distances(row, col));
    ASSERT_EQ(hole.region.known(cell), kPixel);
    for (int c = 0; c < 3; ++c)
        ASSERT_EQ((hole.region.colour(cell) >> (8 * c)) & 255u, hole.sample(row - 1, col - 1, c)) << "channel " << c;
}

// Row by row, each cell on top of those before it.
TEST(Neighbourhood, FillsCellsAsTheirDefinition)
{
    for_each_target([] {
        for (const std::int32_t radius : {1, 2, 3, 5, 12, 60})
            for (std::uint64_t seed = 1; seed <= 3; ++seed) {
                Hole hole(seed);
                Neighbourhood n;
                ASSERT_TRUE(neighbourhood_init(n, radius, kHeight + 2, kWidth + 2));
                for (std::int32_t row = 1; row <= kHeight; ++row)
                    for (std::int32_t col = 1; col <= kWidth; ++col) {
                        if (hole.flags(row, col) != 2)
                            continue;
                        SCOPED_TRACE(testing::Message() << "radius " << radius << ", cell " << row << ", " << col);
                        fill_cell(hole.region, n, row, col);
                        hole.fill(row, col, radius);
                        expect_the_same_cell(hole, row, col);
                    }
            }
    });
}

TEST(Neighbourhood, WithoutARadiusHasNoCell)
{
    Neighbourhood n;
    EXPECT_TRUE(neighbourhood_init(n, 0, 10, 10));
    EXPECT_EQ(n.rows, -1);
}

} // namespace

} // namespace panoval::test
