// SPDX-License-Identifier: MIT
#include "image/zarr_store.h"

#include "image/output_file.h"
#include "image/row_halver.h"
#include "image/zarr_rows.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#include <chrono>
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
    EXPECT_TRUE(is_store_name("a.zarr\\"));
    EXPECT_FALSE(is_store_name("/"));
    EXPECT_FALSE(is_store_name(""));
    EXPECT_FALSE(is_store_name("a.{arr")) << "the letter after z";
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

TEST_F(Zarr, TheLastChunkMayReachBeyondThePicture)
{
    const ZarrArray array = picture(3, 8).array; // 100 x 70 in chunks of 32 x 16
    EXPECT_EQ(array.chunk_columns(), 4);
    EXPECT_EQ(array.chunk_rows(), 5);
    EXPECT_EQ((ZarrArray{96, 64, 1, 8, 32, 16, true}.chunk_columns()), 3);
    EXPECT_EQ((ZarrArray{96, 64, 1, 8, 32, 16, true}.chunk_rows()), 4);
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
    write_text("a.zarr/.panoval/tiles/0", R"({"plan": "plan 1", "chunks": []})");
    EXPECT_FALSE(store.has_tile(0)) << "no sizes";
    write_text("a.zarr/.panoval/tiles/0", R"({"plan": "plan 1", "chunks": {"0/0/1": "7"}})");
    EXPECT_FALSE(store.has_tile(0)) << "a text for a size";
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
    write_text("a.zarr/.zattrs", "{\"panoval\": {\"version\": 1, \"plan\": 7}}");
    EXPECT_TRUE(contains(begin_error(picture(1, 8)), "another program or version"));
    write_text("a.zarr/.zattrs", "{");
    EXPECT_TRUE(contains(begin_error(picture(1, 8)), "found no valid JSON object"));
}

TEST_F(Zarr, AStoreWhoseArrayIsGoneIsRefused)
{
    begin(picture(1, 8));
    fs::remove(path_from_utf8(in_folder("a.zarr/0/.zarray")));
    EXPECT_TRUE(contains(begin_error(picture(1, 8)), "a store of other channels, chunks or compression"));
}

TEST_F(Zarr, ABeginningOfAnotherProcessIsTakenOver)
{
    for (const char* const name : {".zgroup", "0", ".panoval", "x.part1"})
        fs::create_directories(path_from_utf8(in_folder(std::string("a.zarr/") + name)));
    fs::remove(path_from_utf8(in_folder("a.zarr/.zgroup")));
    EXPECT_EQ(begin_error(picture(1, 8)), "no error");
    EXPECT_EQ(open().picture().array, picture(1, 8).array);
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

// Another process may be reading what has its text already.
TEST_F(Zarr, BeginningLeavesFilesAloneThatAreAsTheyShallBe)
{
    begin(picture(1, 8));
    const fs::path array = path_from_utf8(in_folder("a.zarr/0/.zarray"));
    const fs::path group = path_from_utf8(in_folder("a.zarr/.zgroup"));
    const auto long_ago = fs::last_write_time(array) - std::chrono::hours(24);
    fs::last_write_time(array, long_ago);
    fs::last_write_time(group, long_ago);
    write_text("a.zarr/.zgroup", "another text");
    fs::last_write_time(group, long_ago);
    fs::remove(path_from_utf8(in_folder("a.zarr/.zattrs")));
    begin(picture(1, 8));
    EXPECT_EQ(fs::last_write_time(array), long_ago);
    EXPECT_NE(fs::last_write_time(group), long_ago);
    EXPECT_TRUE(contains(read_text("a.zarr/.zgroup"), "zarr_format"));
}

TEST_F(Zarr, MetadataAreKept)
{
    StorePicture stored = picture(1, 8);
    stored.metadata.exif.model = "Model";
    stored.metadata.exif.iso = 200;
    begin(stored);
    EXPECT_EQ(open().picture().metadata, stored.metadata);
}

TEST_F(Zarr, MoreThan32LevelsAreRefused)
{
    begin(picture(1, 8));
    std::string datasets = "{\"path\": \"0\"}";
    for (int level = 1; level <= 32; ++level)
        datasets += ", {\"path\": \"" + std::to_string(level) + "\"}";
    write_text("a.zarr/.zattrs", "{\"multiscales\": [{\"datasets\": [" + datasets + "]}]}");
    EXPECT_TRUE(contains(error_of([&] { open(); }), "found no list of datasets in \"multiscales\"; expected 1 to 32"));
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
    EXPECT_TRUE(contains(with("  3,\n  70", "  5,\n  70"), "5 channels"));
    EXPECT_TRUE(contains(with("  3,\n  16", "  1,\n  16"), "channels in chunks of their own"));
    EXPECT_TRUE(contains(with("  16,\n  32", "  20000,\n  20000"), "chunks of 20000 x 20000 pixels"));
    EXPECT_TRUE(contains(with("}", ""), "no valid JSON"));
    EXPECT_TRUE(contains(with("\"chunks\"", "\"chunk\""), "no three numbers \"chunks\""));
    EXPECT_TRUE(contains(with("[\n  3,\n  16,\n  32\n ]", "[3, 16]"), "no three numbers \"chunks\""));
    EXPECT_TRUE(contains(with("[\n  3,\n  16,\n  32\n ]", "{}"), "no three numbers \"chunks\""));
    EXPECT_TRUE(contains(with("  100\n", "  2147483648\n"), "2147483648 in \"shape\""));
    EXPECT_TRUE(contains(with("\"|u1\"", "1"), "another \"dtype\""));
    EXPECT_TRUE(contains(with("\"order\"", "\"orders\""), "another order"));
    EXPECT_TRUE(contains(with("\"filters\": null", "\"filters\": []"), "or filters"));
    EXPECT_TRUE(contains(with("\"filters\": null", "\"filter\": null"), "or filters"));
    EXPECT_TRUE(contains(with("\"compressor\"", "\"packer\""), "another compressor"));
    EXPECT_TRUE(contains(with("\"compressor\": {", "\"compressor\": 7, \"x\": {"), "another compressor"));
    EXPECT_TRUE(contains(error_of([] { parse_zarr_array("x", "[]"); }), "no valid JSON object"));
    for (std::size_t size = 0; size < good.size() - 1; ++size)
        EXPECT_NE(error_of([&] { parse_zarr_array("x", good.substr(0, size)); }), "no error") << size;
}

TEST_F(Zarr, AStoreWithoutItsFilesIsRefusedByName)
{
    const std::string none = in_folder("none.zarr");
    EXPECT_TRUE(contains(error_of([&] { ZarrStore::open(none); }), "none.zarr: found no file .zattrs in it"));
    begin(picture(1, 8));
    const auto with_attributes = [&](const std::string& text) {
        write_text("a.zarr/.zattrs", text);
        return error_of([&] { open(); });
    };
    for (const char* const text : {"{}", R"({"multiscales": []})", R"({"multiscales": [{"datasets": []}]})",
                                   R"({"multiscales": 7, "datasets": 3})"})
        EXPECT_TRUE(contains(with_attributes(text), "found no list of datasets in \"multiscales\"")) << text;
    EXPECT_TRUE(contains(with_attributes("[]"), "found no valid JSON object"));
    EXPECT_TRUE(contains(with_attributes(R"({"multiscales": [{"datasets": [{"path": "7"}]}]})"), "another path"));
    const std::string two = R"({"multiscales": [{"datasets": [{"path": "0"}, {"path": "1"}]}]})";
    EXPECT_TRUE(contains(with_attributes(two), "found no file 1/.zarray in it"));
    std::string spaces;
    spaces.resize(100'000'000, ' ');
    EXPECT_TRUE(contains(with_attributes(spaces), "found 100000000 bytes; expected a text"));
    fs::remove_all(path_from_utf8(in_folder("a.zarr")));
    write_text("a.zarr", "a file");
    EXPECT_TRUE(contains(begin_error(picture(1, 8)), "a.zarr: found a file; expected a folder"))
        << begin_error(picture(1, 8));
}

#ifndef _WIN32

TEST_F(Zarr, FilesThatCannotBeReadAreNamed)
{
    begin(picture(1, 8));
    fs::remove(in_folder("a.zarr/.zattrs"));
    fs::create_symlink(in_folder("a.zarr/.zattrs"), in_folder("a.zarr/.zattrs"));
    EXPECT_TRUE(contains(error_of([&] { open(); }), ".zattrs: found Too many levels of symbolic links"));
    fs::remove(in_folder("a.zarr/.zattrs"));
    fs::create_directory(in_folder("a.zarr/.zattrs"));
    EXPECT_TRUE(contains(error_of([&] { open(); }), ".zattrs: found a file that cannot be read: Is a directory"));
}

#endif

TEST_F(Zarr, AFolderThatCannotBeMadeIsExplained)
{
    fs::create_directory(path_from_utf8(in_folder("a.zarr")));
    write_text("a.zarr/.panoval", "a file");
    EXPECT_TRUE(contains(begin_error(picture(1, 8)), "a.zarr: found a folder "));
    EXPECT_TRUE(contains(begin_error(picture(1, 8)), " that cannot be made: "));
}

TEST_F(Zarr, PublishedLevelsBelongToThePicture)
{
    ZarrStore store = begin(picture(3, 8));
    store.add_level();
    EXPECT_EQ(open().levels(), 1u) << "not published";
    store.publish_levels();
    const ZarrStore read = open();
    ASSERT_EQ(read.levels(), 2u);
    EXPECT_EQ(read.array(1).width, 50);
    EXPECT_EQ(read.array(1).height, 35);
    EXPECT_FALSE(read.info(1).position) << "only the full picture has a place";
    store.drop_levels();
    store.publish_levels();
    EXPECT_EQ(open().levels(), 1u);
}

TEST_F(Zarr, AStoreOfAnotherProgramHasNoPlan)
{
    begin(picture(1, 8));
    write_text("a.zarr/.zattrs",
               R"({"multiscales": [{"datasets": [{"path": "0"}]}], "panoval": {"x": "7", "plan": 3}})");
    const StorePicture read = open().picture();
    EXPECT_EQ(read.plan, "");
    EXPECT_EQ(read.tiles, 0);
    EXPECT_EQ(read.origin, (Offset{0, 0}));
    EXPECT_EQ(open().first_missing_tile(), -1) << "none is to be there";
}

TEST_F(Zarr, AnUncompressedChunkHasItsSize)
{
    StorePicture stored = picture(1, 8);
    stored.array.is_compressed = false;
    const ZarrStore store = begin(stored);
    store.write_pixels(0, 0, 0, 100, 70, rows_of(test_picture(100, 70, 1, 8)));
    write_text("a.zarr/0/0/2/1", "short");
    Chunk chunk;
    EXPECT_TRUE(
        contains(error_of([&] { store.read_chunk(0, 2, 1, chunk); }), "found a chunk of 5 bytes; expected 512"));
}

TEST_F(Zarr, RowsAreThoseOfThePicture)
{
    for (const int bits : {8, 16})
        for (const bool has_mask : {false, true}) {
            Image image = test_picture(100, 70, 3, bits, has_mask);
            image.has_alpha = has_mask;
            fs::remove_all(path_from_utf8(in_folder("a.zarr")));
            begin(picture(has_mask ? 4 : 3, bits)).write_pixels(0, 0, 0, 100, 70, rows_of(std::as_const(image)));
            const auto reader = open_store_rows(open());
            EXPECT_EQ(reader->held_bytes(), image.row_bytes() * 16 + (has_mask ? 1600u : 0u)) << "a row of chunks";
            Image read = test_picture(100, 70, 3, bits, true);
            for (const std::int32_t first : {60, 0, 15, 10, 35})
                reader->read_rows(first, std::min(25, 70 - first), rows_of(read, first));
            EXPECT_EQ(std::memcmp(read.data.get(), image.data.get(), image.bytes()), 0);
            for (std::size_t i = 0; i < image.pixels(); ++i)
                ASSERT_EQ(read.mask[i], has_mask ? image.mask[i] : 255);
            std::vector<std::uint8_t> samples(image.row_bytes());
            reader->read_rows(33, 1, {samples.data(), samples.size(), nullptr, 0});
            EXPECT_EQ(std::memcmp(samples.data(), image.row(33), samples.size()), 0) << "without a mask";
        }
}

TEST_F(Zarr, AHalvedChunkHasTheMeansOfItsPixels)
{
    for (const bool has_mask : {false, true}) {
        Image image = test_picture(100, 70, 1, 8, has_mask);
        image.has_alpha = has_mask;
        std::fill_n(image.data.get(), 32 * 100, std::uint8_t{0}); // the first two rows of chunks
        if (has_mask)
            std::fill_n(image.mask.get(), 32 * 100, std::uint8_t{0});
        fs::remove_all(path_from_utf8(in_folder("a.zarr")));
        ZarrStore store = begin(picture(has_mask ? 2 : 1, 8));
        store.write_pixels(0, 0, 0, 100, 70, rows_of(std::as_const(image)));
        store.add_level();
        for (std::int64_t row = 0; row < 3; ++row)
            for (std::int64_t column = 0; column < 2; ++column)
                write_halved_chunk(store, 1, row, column);
        const Image half = read_level(store, 1);
        std::int32_t y = 0;
        RowHalver halver(image, [&](const ConstRows& row) {
            EXPECT_EQ(std::memcmp(row.samples, half.row(y), 50), 0) << y;
            if (has_mask) {
                EXPECT_EQ(std::memcmp(row.mask, half.mask.get() + 50 * y, 50), 0) << y;
            }
            ++y;
        });
        for (std::int32_t row = 0; row < 70; ++row)
            halver.add(rows_of(std::as_const(image), row));
        halver.finish();
        EXPECT_EQ(y, 35);
        EXPECT_FALSE(file_exists(in_folder("a.zarr/1/0/0/0"))) << "nothing but zeros";
    }
}

TEST_F(Zarr, AChunkOfAnotherSizeIsNamed)
{
    StorePicture smaller = picture(1, 8);
    smaller.array.chunk_width = 16;
    const Image image = test_picture(100, 70, 1, 8);
    ZarrStore::begin(in_folder("b.zarr"), path_from_utf8(in_folder("b.zarr")), smaller)
        .write_pixels(0, 0, 0, 100, 70, rows_of(image));
    const ZarrStore store = begin(picture(1, 8));
    store.write_pixels(0, 0, 0, 100, 70, rows_of(image));
    write_text("a.zarr/0/0/2/1", read_text("b.zarr/0/0/2/1"));
    Chunk chunk;
    const std::string error = error_of([&] { store.read_chunk(0, 2, 1, chunk); });
    EXPECT_TRUE(contains(error, "found a truncated or damaged chunk; expected zlib of 512 bytes")) << error;
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
