// SPDX-License-Identifier: MIT
#include "cli/stitch/output_tiles.h"

#include "cli/base/errors.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

namespace panoval::cli::test
{

namespace
{

using Numbers = std::vector<std::int64_t>;

TEST(OutputTiles, AListNamesTilesAndRanges)
{
    EXPECT_EQ(parse_tiles("7", 8), (Numbers{7}));
    EXPECT_EQ(parse_tiles("3,0-2,2-4", 8), (Numbers{0, 1, 2, 3, 4}));
    EXPECT_EQ(parse_tiles("0-0", 1), (Numbers{0}));
}

TEST(OutputTiles, PartsAreRunsThatTogetherAreAll)
{
    EXPECT_EQ(parse_tiles("0/3", 8), (Numbers{0, 1, 2}));
    EXPECT_EQ(parse_tiles("1/3", 8), (Numbers{3, 4, 5}));
    EXPECT_EQ(parse_tiles("2/3", 8), (Numbers{6, 7}));
    EXPECT_EQ(parse_tiles("0/1", 2), (Numbers{0, 1}));
    EXPECT_EQ(parse_tiles("7/8", 8), (Numbers{7}));
    for (std::int64_t parts = 1; parts <= 40; ++parts) {
        Numbers all;
        for (std::int64_t part = 0; part < parts; ++part)
            for (const std::int64_t tile : parse_tiles(std::to_string(part) + "/" + std::to_string(parts), 40))
                all.push_back(tile);
        EXPECT_EQ(all, parse_tiles("0-39", 40)) << parts;
    }
}

TEST(OutputTiles, WhatIsNoPartIsRefused)
{
    for (const std::string list : {"/", "1/", "/2", "2/2", "0/0", "-1/2", "0/9", "1/2/3", "0/2,1", "0-1/2", "x/2",
                                   "1/ 2", "0/99999999999999999999"})
        EXPECT_TRUE(contains(error_of([&] { parse_tiles(list, 8); }), "N from 1 to 8")) << list;
}

TEST(OutputTiles, WhatIsNoListIsRefused)
{
    for (const std::string list : {"", "x", "8", "-1", "3-", "3-1", "1,", ",1", "1-2-3", "1 2", "99999999999999999999"})
        EXPECT_TRUE(contains(error_of([&] { parse_tiles(list, 8); }), "expected numbers from 0 to 7")) << list;
    EXPECT_TRUE(contains(error_of([] { parse_tiles("0-99999999", 100000000); }), "--tile")) << "too long";
}

TEST(OutputTiles, ChunksDivideTiles)
{
    EXPECT_EQ(chunk_side(4096, 100000), 512);
    EXPECT_EQ(chunk_side(768, 100000), 256);
    EXPECT_EQ(chunk_side(1000, 100000), 1000);
    EXPECT_EQ(chunk_side(2000, 100000), 1000);
    EXPECT_EQ(chunk_side(96, 100000), 96);
    EXPECT_EQ(chunk_side(16, 100000), 16);
    EXPECT_EQ(chunk_side(2731, 100000), 2731) << "a prime number";
    EXPECT_EQ(chunk_side(5000, 5000), 512) << "nothing has to be divided";
    EXPECT_EQ(chunk_side(300, 200), 200);
}

TEST(OutputTiles, CoverTheRegionRowByRow)
{
    const OutputTiles tiles{{10, 20, 100, 50}, 64, 32};
    EXPECT_EQ(tiles.count(), 4);
    const auto rect = [&](std::int64_t tile) {
        const PanovalMosaicRect found = tiles.rect(tile);
        return Numbers{found.x, found.y, found.width, found.height};
    };
    EXPECT_EQ(rect(0), (Numbers{10, 20, 64, 32}));
    EXPECT_EQ(rect(1), (Numbers{74, 20, 36, 32}));
    EXPECT_EQ(rect(3), (Numbers{74, 52, 36, 18}));
}

} // namespace

} // namespace panoval::cli::test
