// SPDX-License-Identifier: MIT
#include "mosaic/tiles/tile_run.h"

#include "tests/mosaic/memory_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

constexpr std::int64_t kWidth = 130;
constexpr std::int64_t kHeight = 90;
constexpr std::int64_t kTileWidth = 40;
constexpr std::int64_t kTileHeight = 30;

// One picture that fills the canvas. Tiles at the left come late, so that their neighbours are done before them.
class LateReader : public MemoryReader
{
public:
    std::optional<std::int64_t> failing_y; // a row that cannot be read

    LateReader() : MemoryReader(kWidth, kHeight)
    {
        MemoryPicture picture = MemoryPicture::blank(kWidth, kHeight, 1, 8);
        for (std::size_t i = 0; i < picture.samples.size(); ++i)
            picture.samples[i] = static_cast<std::uint16_t>(i % 251);
        add(0, 0, std::move(picture));
    }

    void read(std::size_t picture, const Rect& rect, PixelBlock& block) override
    {
        if (rect.x == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (failing_y && rect.y <= *failing_y && *failing_y < rect.bottom())
            fail(Failure::Picture, "no rows");
        MemoryReader::read(picture, rect, block);
    }
};

struct Taker : TileSink {
    std::vector<Rect> rects;
    std::vector<std::uint8_t> samples = std::vector<std::uint8_t>(kWidth * kHeight);
    std::size_t failing_piece = 1000;

    void take(const Piece& piece) override
    {
        if (rects.size() == failing_piece)
            fail(Failure::Sink, "the disk is full");
        rects.push_back(piece.rect);
        for (std::int64_t y = 0; y < piece.rect.height; ++y)
            std::copy_n(piece.samples + static_cast<std::size_t>(y) * piece.samples_stride, piece.rect.width,
                        samples.begin() + (piece.rect.y + y) * kWidth + piece.rect.x);
    }
};

void run(LateReader& reader, Delivery delivery, std::size_t threads, Taker& taker)
{
    const Corrections none = Corrections::none(reader.layout);
    const TileBlender blender(reader.layout, none, nullptr, {BlendMode::Feather, 1, 8}, reader);
    MemoryMeter meter;
    NoProgress progress;
    run_tiles({kWidth, kHeight, kTileWidth, kTileHeight}, blender, {delivery, false, threads, 1}, meter, progress,
              taker);
    EXPECT_EQ(meter.now(), 0u);
}

std::vector<Rect> expected_pieces(Delivery delivery)
{
    const TileGrid grid{kWidth, kHeight, kTileWidth, kTileHeight};
    std::vector<Rect> pieces;
    for (std::int64_t i = 0; delivery == Delivery::Rows && i < grid.rows(); ++i)
        pieces.push_back(grid.strip(i));
    for (std::int64_t i = 0; delivery == Delivery::Tiles && i < grid.count(); ++i)
        pieces.push_back(grid.tile(i));
    return pieces;
}

TEST(RunTiles, GivesPiecesInOrderWhicheverAreDoneFirst)
{
    for (const Delivery delivery : {Delivery::Rows, Delivery::Tiles})
        for (std::size_t threads = 1; threads <= 4; ++threads) {
            LateReader reader;
            Taker taker;
            run(reader, delivery, threads, taker);
            EXPECT_EQ(taker.rects, expected_pieces(delivery)) << threads;
            const std::vector<std::uint16_t>& expected = reader.pictures[0].samples;
            EXPECT_TRUE(std::equal(taker.samples.begin(), taker.samples.end(), expected.begin(), expected.end()));
        }
}

TEST(RunTiles, EndsWithASinkThatThrows)
{
    for (const Delivery delivery : {Delivery::Rows, Delivery::Tiles})
        for (std::size_t threads = 1; threads <= 4; ++threads) {
            LateReader reader;
            Taker taker;
            taker.failing_piece = 1;
            EXPECT_THROW(run(reader, delivery, threads, taker), Error);
            EXPECT_EQ(taker.rects.size(), 1u) << "nothing comes behind what failed";
        }
}

TEST(RunTiles, EndsWithAPictureThatCannotBeRead)
{
    for (std::size_t threads = 1; threads <= 4; ++threads) {
        LateReader reader;
        reader.failing_y = 65;
        Taker taker;
        EXPECT_THROW(run(reader, Delivery::Rows, threads, taker), Error);
        EXPECT_LE(taker.rects.size(), 2u);
        const std::vector<Rect> expected = expected_pieces(Delivery::Rows);
        EXPECT_TRUE(std::equal(taker.rects.begin(), taker.rects.end(), expected.begin()));
    }
}

} // namespace

} // namespace panoval::mosaic::test
