// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_moves.h"

#include "mosaic/seams/seam_cost.h"
#include "mosaic/seams/seam_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace panoval::mosaic::test
{

namespace
{

constexpr std::int64_t kSide = 64;
constexpr std::int64_t kBorder = 32; // picture 0 left of it, 1 from it on

using CostAt = std::function<std::int32_t(std::int64_t x, std::int64_t y)>; // of the tile

// The same costs for every pair.
class PartCosts : public SwapCosts
{
public:
    PartCosts(const Rect& part, CostAt cost_at) : part_(part), cost_at_(std::move(cost_at)) {}

    void fill(std::size_t, std::size_t, std::vector<std::int32_t>& out) override
    {
        ++fills;
        for (std::int64_t y = 0; y < part_.height; ++y)
            for (std::int64_t x = 0; x < part_.width; ++x)
                out[static_cast<std::size_t>(y * part_.width + x)] = cost_at_(part_.x + x, part_.y + y);
    }

    int fills = 0;

private:
    const Rect part_;
    const CostAt cost_at_;
};

// A tile of the two pictures with more of both around it.
SwapWindow tile_of_two()
{
    SwapWindow tile;
    tile.reset(kSide, kSide);
    for (std::int64_t y = -1; y <= kSide; ++y)
        for (std::int64_t x = -1; x <= kSide; ++x)
            if (y < 0 || y == kSide)
                tile.label(x, y) = kNobody;
            else
                tile.label(x, y) = x < kBorder ? 0 : 1;
    for (std::int64_t y = 0; y < kSide; ++y)
        for (std::int64_t x = 0; x < kSide; ++x)
            tile.set_movable(x, y, true);
    return tile;
}

Rect move(SwapWindow& tile, std::int64_t cell, const CostAt& cost_at)
{
    SeamMoveScratch scratch;
    return move_seams(
        tile, cell, [&](const Rect& part) { return std::make_unique<PartCosts>(part, cost_at); }, scratch);
}

// Where picture 1 begins in a row.
std::int64_t border(const SwapWindow& tile, std::int64_t y)
{
    std::int64_t x = 0;
    while (x < kSide && tile.label(x, y) == 0)
        ++x;
    return x;
}

// All but the pixels on either side of the border before `x` cost much.
CostAt cheap_before(std::int64_t x)
{
    return [x](std::int64_t at, std::int64_t) { return at == x || at == x - 1 ? 1 : 100; };
}

TEST(SeamMoves, GoAsFarAsACellAndTwoPixels)
{
    for (const std::int64_t cell : {4, 8, 16, 28}) {
        for (const std::int64_t way : {std::int64_t{0}, std::int64_t{3}, cell / 2, cell - 4, cell}) {
            SwapWindow tile = tile_of_two();
            const Rect part = move(tile, cell, cheap_before(kBorder - way));
            EXPECT_EQ(part, (Rect{kBorder - 1 - cell - 2, 0, 2 * (cell + 2 + 1), kSide}));
            for (std::int64_t y = 0; y < kSide; ++y)
                ASSERT_EQ(border(tile, y), kBorder - way) << "cells of " << cell << ", " << way << " pixels, row " << y;
        }
        SwapWindow tile = tile_of_two();
        move(tile, cell, [cell](std::int64_t x, std::int64_t y) {
            return std::min(cheap_before(kBorder - cell - 8)(x, y), cheap_before(kBorder)(x, y) + 50);
        });
        EXPECT_EQ(border(tile, kSide / 2), kBorder) << "what is cheaper lies beyond";
    }
}

TEST(SeamMoves, FollowWhatIsCheapFromPixelToPixel)
{
    // Twenty pixels from the border, and to and fro by one: blocks alone could not follow.
    const auto place = [](std::int64_t y) { return kBorder - 20 + (y / 8) % 2; };
    SwapWindow tile = tile_of_two();
    move(tile, 28, [&](std::int64_t x, std::int64_t y) { return cheap_before(place(y))(x, y); });
    for (std::int64_t y = 2; y < kSide - 2; ++y)
        EXPECT_EQ(border(tile, y), place(y)) << "row " << y;
}

TEST(SeamMoves, LeaveWhatMayNotMove)
{
    for (const std::int64_t cell : {8, 16}) {
        SwapWindow tile = tile_of_two();
        for (std::int64_t x = 0; x < kSide; ++x)
            tile.set_movable(x, 30, false);
        move(tile, cell, cheap_before(kBorder - 7));
        EXPECT_EQ(border(tile, 30), kBorder) << "cells of " << cell;
        EXPECT_EQ(border(tile, 10), kBorder - 7);
        EXPECT_EQ(border(tile, 50), kBorder - 7);
    }
}

TEST(SeamMoves, StayWhereBothPicturesAre)
{
    // Picture 1 begins at 26: the cheap place before it is not shared, nor is part of the blocks' column from 24 on.
    for (const std::int64_t cell : {8, 16}) {
        SwapWindow tile = tile_of_two();
        move(tile, cell, [](std::int64_t x, std::int64_t) { return x < 26 ? kNotShared : x == 26 ? 50 : 100; });
        for (std::int64_t y = 0; y < kSide; ++y)
            EXPECT_GE(border(tile, y), 26) << "cells of " << cell;
    }
}

TEST(SeamMoves, AskForNothingWhereThereIsNoSeam)
{
    SwapWindow tile;
    tile.reset(kSide, kSide);
    SeamMoveScratch scratch;
    const Rect part = move_seams(
        tile, 16,
        [](const Rect&) -> std::unique_ptr<SwapCosts> {
            ADD_FAILURE() << "costs were made";
            return nullptr;
        },
        scratch);
    EXPECT_TRUE(part.is_empty());
}

TEST(KnownCosts, AreWorkedOutOnce)
{
    PartCosts costs({0, 0, 2, 1}, [](std::int64_t x, std::int64_t) { return static_cast<std::int32_t>(7 + x); });
    KnownCosts known;
    known.begin(costs);
    for (const std::size_t second : {1u, 2u, 1u, 2u}) {
        std::vector<std::int32_t> out(2);
        known.fill(0, second, out);
        EXPECT_EQ(out, (std::vector<std::int32_t>{7, 8}));
    }
    EXPECT_EQ(costs.fills, 2) << "of two pairs";

    PartCosts others({0, 0, 2, 1}, [](std::int64_t, std::int64_t) { return 3; });
    known.begin(others);
    std::vector<std::int32_t> out(2);
    known.fill(0, 1, out);
    EXPECT_EQ(out, (std::vector<std::int32_t>{3, 3})) << "of another window";
}

} // namespace

} // namespace panoval::mosaic::test
