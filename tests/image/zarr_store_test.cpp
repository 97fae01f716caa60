// SPDX-License-Identifier: MIT
#include "image/zarr_store.h"

#include "image/output_file.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace panoval::image::test
{

namespace
{

namespace fs = std::filesystem;

class Zarr : public ScratchFolder
{
protected:
    static StorePicture picture(int channels, int bits, std::string plan = "plan 1")
    {
        StorePicture picture;
        picture.array = {100, 70, channels, bits, 32, 16, true};
        picture.origin = {-5, 7};
        picture.plan = std::move(plan);
        picture.tiles = 3;
        return picture;
    }
    ZarrStore begin(const StorePicture& picture) const
    {
        return ZarrStore::begin(in_folder("a.zarr"), path_from_utf8(in_folder("a.zarr")), picture);
    }
    ZarrStore open() const { return ZarrStore::open(in_folder("a.zarr")); }
    std::string begin_error(const StorePicture& picture) const
    {
        return error_of([&] { begin(picture); });
    }
};

// All chunks of a level as a picture.
Image read_level(const ZarrStore& store, std::size_t level)
{
    const ImageInfo info = store.info(level);
    const ZarrArray& array = store.array(level);
    Image image = make_image(info.width, info.height, info.channels, info.bits, "test");
    if (info.has_alpha)
        ensure_mask(image, "test");
    image.has_alpha = info.has_alpha;
    Chunk chunk;
    const std::size_t pixel = static_cast<std::size_t>(info.channels) * info.sample_bytes();
    for (std::int32_t y = 0; y < info.height; y += array.chunk_height)
        for (std::int32_t x = 0; x < info.width; x += array.chunk_width) {
            store.read_chunk(level, y / array.chunk_height, x / array.chunk_width, chunk);
            Rows to = rows_of(image, y);
            to.samples += static_cast<std::size_t>(x) * pixel;
            to.mask += to.mask != nullptr ? x : 0;
            get_pixels(array, chunk, std::min(array.chunk_width, info.width - x),
                       std::min(array.chunk_height, info.height - y), to);
        }
    return image;
}

TEST_F(Zarr, NamesOfStoresEndInZarr)
{
    EXPECT_TRUE(is_store_name("a.zarr"));
    EXPECT_TRUE(is_store_name("b/A.ZARR/"));
    EXPECT_FALSE(is_store_name(".zarr"));
    EXPECT_FALSE(is_store_name("a.zarr.tif"));
}

TEST_F(Zarr, EveryKindOfPictureIsReadBack)
{
    for (const int channels : {1, 3})
        for (const int bits : {8, 16})
            for (const bool has_mask : {false, true})
                for (const bool is_compressed : {false, true}) {
                    StorePicture stored = picture(channels + (has_mask ? 1 : 0), bits);
                    stored.array.is_compressed = is_compressed;
                    Image image = test_picture(100, 70, channels, bits, has_mask);
                    image.has_alpha = has_mask;
                    fs::remove_all(path_from_utf8(in_folder("a.zarr")));
                    begin(stored).write_pixels(0, 0, 0, 100, 70, rows_of(std::as_const(image)));
                    const ZarrStore store = open();
                    EXPECT_EQ(store.picture().array, stored.array);
                    EXPECT_EQ(store.picture().origin, (Offset{-5, 7}));
                    expect_same_picture(read_level(store, 0), image);
                }
}

TEST_F(Zarr, SamplesOfSixteenBitHaveTheirLittleEndFirst)
{
    StorePicture stored = picture(1, 16);
    stored.array.is_compressed = false;
    Image image = test_picture(100, 70, 1, 16);
    const std::uint16_t first = 0x1234;
    std::memcpy(image.data.get(), &first, 2);
    begin(stored).write_pixels(0, 0, 0, 100, 70, rows_of(std::as_const(image)));
    const std::string chunk = read_text("a.zarr/0/0/0/0");
    EXPECT_EQ(chunk.size(), 32u * 16 * 2) << "padded to a whole chunk";
    EXPECT_EQ(chunk.substr(0, 2), "\x34\x12");
}

TEST_F(Zarr, AChunkOfZerosHasNoFile)
{
    const ZarrStore store = begin(picture(1, 8));
    Image image = test_picture(100, 70, 1, 8);
    std::fill_n(image.data.get(), 100 * 16, std::uint8_t{0}); // the first row of chunks
    const ChunkSizes sizes = store.write_pixels(0, 0, 0, 100, 70, rows_of(std::as_const(image)));
    ASSERT_EQ(sizes.size(), 20u);
    EXPECT_EQ(sizes[3], (std::pair<std::string, std::uint64_t>{"0/0/3", 0}));
    EXPECT_FALSE(file_exists(in_folder("a.zarr/0/0/0/3")));
    EXPECT_EQ(sizes[4].second, read_text("a.zarr/0/0/1/0").size());
    expect_same_picture(read_level(open(), 0), image);
}

TEST_F(Zarr, ATileIsDoneWhenItsMarkAndAllItsChunksAreThere)
{
    const ZarrStore store = begin(picture(1, 8));
    const Image image = test_picture(100, 70, 1, 8);
    const ChunkSizes sizes = store.write_pixels(0, 0, 0, 64, 16, rows_of(image));
    EXPECT_FALSE(store.has_tile(0)) << "not marked";
    store.mark_tile(0, sizes);
    EXPECT_TRUE(store.has_tile(0));
    EXPECT_TRUE(begin(picture(1, 8)).has_tile(0)) << "in another process";
    EXPECT_EQ(store.first_missing_tile(), 1);
    const std::string whole = read_text("a.zarr/0/0/0/1");
    write_text("a.zarr/0/0/0/1", whole.substr(1));
    EXPECT_FALSE(store.has_tile(0)) << "a chunk that was cut off";
    write_text("a.zarr/0/0/0/1", whole);
    EXPECT_TRUE(store.has_tile(0));
    const std::string mark = read_text("a.zarr/.panoval/tiles/0");
    write_text("a.zarr/.panoval/tiles/0", mark.substr(0, mark.size() / 2));
    EXPECT_FALSE(store.has_tile(0)) << "half a mark";
    write_text("a.zarr/.panoval/tiles/1", mark);
    fs::remove(path_from_utf8(in_folder("a.zarr/0/0/0/0")));
    EXPECT_FALSE(store.has_tile(1)) << "a chunk that is gone";
}

TEST_F(Zarr, AStoreOfAnotherPlanIsRefused)
{
    begin(picture(1, 8));
    EXPECT_TRUE(
        contains(begin_error(picture(1, 8, "plan 2")), "a.zarr: found a store that another plan began (plan 1)"));
    EXPECT_TRUE(contains(begin_error(picture(2, 8)), "a store of other channels, chunks or compression"));
    write_text("a.zarr/.zattrs", "{\"panoval\": {\"version\": 99, \"plan\": \"plan 1\"}}");
    EXPECT_TRUE(contains(begin_error(picture(1, 8)), "another program or version"));
}

TEST_F(Zarr, AFolderOfSomebodyElseIsLeftAlone)
{
    fs::create_directory(path_from_utf8(in_folder("a.zarr")));
    write_text("a.zarr/letters.txt", "mine");
    EXPECT_TRUE(contains(begin_error(picture(1, 8)), "a.zarr: found a folder with letters.txt in it"));
    fs::remove(path_from_utf8(in_folder("a.zarr/letters.txt")));
    write_text("a.zarr/.zgroup", "{}"); // somebody begins it at the same time
    EXPECT_EQ(begin_error(picture(1, 8)), "no error");
}

TEST_F(Zarr, BeginningTwiceChangesNothing)
{
    begin(picture(4, 16));
    const std::string attributes = read_text("a.zarr/.zattrs");
    begin(picture(4, 16));
    EXPECT_EQ(read_text("a.zarr/.zattrs"), attributes);
    EXPECT_EQ(names(), std::vector<std::string>{"a.zarr"});
}

TEST_F(Zarr, ArraysOfOtherKindsAreRefusedByName)
{
    const std::string good = json_of(picture(3, 8).array);
    const auto with = [&](const std::string& from, const std::string& to) {
        std::string text = good;
        text.replace(text.find(from), from.size(), to);
        return error_of([&] { parse_zarr_array("x/.zarray", text); });
    };
    EXPECT_EQ(parse_zarr_array("x", good), picture(3, 8).array);
    EXPECT_TRUE(contains(with("|u1", "<f4"), "x/.zarray: found an array with another \"dtype\""));
    EXPECT_TRUE(contains(with("\"zlib\"", "\"blosc\""), "another compressor"));
    EXPECT_TRUE(contains(with("\"zarr_format\": 2", "\"zarr_format\": 3"), "\"zarr_format\""));
    EXPECT_TRUE(contains(with("\"order\": \"C\"", "\"order\": \"F\""), "another order"));
    EXPECT_TRUE(contains(with("\"/\"", "\".\""), "other names of chunks"));
    EXPECT_TRUE(contains(with("  100\n", "  0\n"), "0 in \"shape\""));
    EXPECT_TRUE(contains(with("  100\n", "  1e300\n"), "no three numbers \"shape\""));
    EXPECT_TRUE(contains(with("\"fill_value\": 0", "\"fill_value\": null"), "\"fill_value\""));
    EXPECT_TRUE(contains(with("}", ""), "no valid JSON"));
    for (std::size_t size = 0; size < good.size() - 1; ++size)
        EXPECT_NE(error_of([&] { parse_zarr_array("x", good.substr(0, size)); }), "no error") << size;
}

TEST_F(Zarr, ADamagedChunkIsNamed)
{
    const ZarrStore store = begin(picture(1, 8));
    const Image image = test_picture(100, 70, 1, 8);
    store.write_pixels(0, 0, 0, 100, 70, rows_of(image));
    const std::string whole = read_text("a.zarr/0/0/2/1");
    for (const std::string& bytes : {whole.substr(0, 9), std::string("x"), whole.substr(0, whole.size() - 1)}) {
        write_text("a.zarr/0/0/2/1", bytes);
        Chunk chunk;
        const std::string error = error_of([&] { store.read_chunk(0, 2, 1, chunk); });
        EXPECT_TRUE(contains(error, "found a truncated or damaged chunk")) << error;
        EXPECT_TRUE(contains(error, "1: found")) << error;
    }
}

} // namespace

} // namespace panoval::image::test
