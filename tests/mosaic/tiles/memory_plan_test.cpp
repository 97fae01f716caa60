// SPDX-License-Identifier: MIT
#include "mosaic/tiles/memory_plan.h"

#include "mosaic/pictures/store_blocks.h"
#include "panoval_mosaic.h"

#include <gtest/gtest.h>

namespace panoval::mosaic::test
{

namespace
{

struct Case {
    Layout layout;
    std::vector<PictureTraits> traits;

    Case(std::int64_t width, std::int64_t height, int pictures)
    {
        layout.width = width;
        layout.height = height;
        layout.channels = 3;
        layout.bits = 8;
        for (int i = 0; i < pictures; ++i)
            layout.pictures.push_back({{0, 0, 3000, 2000}, false, ""});
        traits.resize(layout.pictures.size());
    }

    // A tile takes 20 bytes for each pixel within 124 of it.
    MemoryNeeds needs() const
    {
        MemoryNeeds needs{layout, traits, {}, {}, 4, 1000};
        needs.seen = [](std::int64_t width, std::int64_t height) {
            return static_cast<std::uint64_t>((width + 248) * (height + 248));
        };
        needs.scratch = [](std::int64_t width, std::int64_t height) {
            return static_cast<std::uint64_t>((width + 248) * (height + 248) * 20);
        };
        return needs;
    }
};

TEST(ChooseGrid, ASmallCanvasIsOneTileForOneThread)
{
    const Case made(300, 200, 2);
    const TileGrid grid = choose_grid(made.needs(), Delivery::Rows, PANOVAL_MOSAIC_DEFAULT_MEMORY, 1, 0).value();
    EXPECT_EQ(grid.count(), 1);
}

TEST(ChooseGrid, TwoThreadsGetTheSameToDo)
{
    const Case made(4000, 2500, 2);
    const TileGrid grid = choose_grid(made.needs(), Delivery::Rows, PANOVAL_MOSAIC_DEFAULT_MEMORY, 2, 0).value();
    EXPECT_EQ(grid.count() % 2, 0) << grid.columns() << " x " << grid.rows();
}

TEST(ChooseGrid, StaysWithinTheBudgetWhateverTheCanvas)
{
    for (const std::int64_t side : {100, 3000, 20000, 200000})
        for (const std::uint64_t megabytes : {40u, 100u, 512u, 4000u}) {
            const Case made(side, side, 60);
            const std::uint64_t budget = megabytes << 20;
            const Delivery delivery = side < 100000 ? Delivery::Rows : Delivery::Tiles;
            const TileGrid grid = choose_grid(made.needs(), delivery, budget, 4, 0).value();
            const auto shares = share_memory(made.needs(), grid, delivery, budget, 4);
            ASSERT_TRUE(shares);
            EXPECT_LE(shares->all(), budget);
            EXPECT_GE(shares->store_bytes, least_store_bytes(made.layout, made.traits, shares->threads));
        }
}

TEST(ChooseGrid, TheHostsTileSizeCounts)
{
    const Case made(5000, 3000, 2);
    const TileGrid grid = choose_grid(made.needs(), Delivery::Tiles, PANOVAL_MOSAIC_DEFAULT_MEMORY, 2, 256).value();
    EXPECT_EQ(grid, (TileGrid{5000, 3000, 256, 256}));
    EXPECT_EQ(grid.count(), 20 * 12);
    EXPECT_EQ(grid.tile(grid.count() - 1), (Rect{19 * 256, 11 * 256, 5000 - 19 * 256, 3000 - 11 * 256}));
}

TEST(ChooseGrid, WorksWithTheLeastBudgetAndNoLess)
{
    const Case made(5000, 3000, 2);
    for (const Delivery delivery : {Delivery::Rows, Delivery::Tiles})
        for (const std::int64_t tile_size : {0, 512}) {
            const std::uint64_t least = least_memory(made.needs(), delivery, tile_size);
            EXPECT_TRUE(choose_grid(made.needs(), delivery, least, 2, tile_size));
            EXPECT_FALSE(choose_grid(made.needs(), delivery, least - 1, 2, tile_size));
        }
}

TEST(ShareMemory, GivesFewerThreadsWhereTheBudgetFeedsNoMore)
{
    const Case made(20000, 20000, 2);
    const TileGrid grid{20000, 20000, 1024, 64};
    const std::uint64_t least = least_memory(made.needs(), grid, Delivery::Rows);
    EXPECT_FALSE(share_memory(made.needs(), grid, Delivery::Rows, least - 1, 8));
    EXPECT_EQ(share_memory(made.needs(), grid, Delivery::Rows, least, 8)->threads, 1u);
    EXPECT_EQ(share_memory(made.needs(), grid, Delivery::Rows, 8 * least, 8)->threads, 8u);
}

} // namespace

} // namespace panoval::mosaic::test
