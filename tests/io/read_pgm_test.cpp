// SPDX-License-Identifier: MIT
#include "panoval.h"
#include "tests/reference/pgm.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{

using panoval::test::FailingHeap;
using panoval::test::path_of;
using panoval::test::read_file;
using panoval::test::TemporaryFolder;
using panoval::test::write_file;
namespace reference = panoval::reference;
using namespace std::string_literals;

constexpr std::int32_t kUnset = -7;

struct Read {
    std::int32_t width = kUnset;
    std::int32_t height = kUnset;
    bool has_pixels = false;
    std::string pixels = {};
};

Read read_named(const std::string& name, std::int32_t width = kUnset, std::int32_t height = kUnset)
{
    std::uint8_t* data = nullptr;
    read_pgm(&data, &width, &height, name.c_str());
    Read result{width, height, data != nullptr};
    if (data != nullptr)
        result.pixels.assign(reinterpret_cast<const char*>(data), static_cast<std::size_t>(width * height));
    std::free(data);
    return result;
}

Read read_bytes(const std::string& bytes, std::int32_t width = kUnset, std::int32_t height = kUnset)
{
    const TemporaryFolder folder;
    write_file(folder.path() / "in.pgm", bytes);
    return read_named(folder.name("in.pgm"), width, height);
}

TEST(ReadPgm, ReadsThreeHeaderLinesAndThePixelsRightBehindThem)
{
    const Read read = read_bytes("P5\n3 2\n255\n\n#cdef");
    EXPECT_EQ(read.width, 3);
    EXPECT_EQ(read.height, 2);
    EXPECT_EQ(read.pixels, "\n#cdef");
}

TEST(ReadPgm, KeepsEveryByteValue)
{
    std::string pixels;
    for (int value = 0; value < 256; ++value)
        pixels.push_back(static_cast<char>(value));
    EXPECT_EQ(read_bytes("P5\n16 16\n255\n" + pixels).pixels, pixels);
}

TEST(ReadPgm, SkipsCommentLinesWhereverTheyStand)
{
    for (const char* const header :
         {"#c\nP5\n2 1\n255\n", "P5\n# 9 9\n2 1\n255\n", "P5\n2 1\n#\n255\n", "#\n#\nP5\n#\n#\n2 1\n#\n#\n255\n"})
        EXPECT_EQ(read_bytes(header + "ab"s).pixels, "ab") << header;
}

TEST(ReadPgm, TakesACommentBehindTheMaximumForPixels)
{
    EXPECT_EQ(read_bytes("P5\n2 1\n255\n#x\nab").pixels, "#x");
}

TEST(ReadPgm, KnowsACommentOnlyInTheFirstColumn)
{
    const Read read = read_bytes("P5\n #\n2 1\n255\nab"); // " #" is the size, "2 1" the maximum
    EXPECT_EQ(read.width, kUnset);
    EXPECT_EQ(read.height, kUnset);
    EXPECT_EQ(read.pixels.substr(0, 6), "255\nab");
}

TEST(ReadPgm, ReadsThroughACommentBehindValuesOnTheirLine)
{
    const Read read = read_bytes("P5 # magic\n2 1 # size\n255 # maximum\nab");
    EXPECT_EQ(read.width, 2);
    EXPECT_EQ(read.height, 1);
    EXPECT_EQ(read.pixels, "ab");
}

TEST(ReadPgm, CountsAnEmptyLineAsAHeaderLine)
{
    const Read read = read_bytes("\n2 1\n255\nab");
    EXPECT_EQ(read.pixels, "ab");
    EXPECT_EQ(read_bytes("P5\n\n2 1\n", 3, 1).pixels, "\0\0\0"s); // "2 1" is the maximum
}

TEST(ReadPgm, DoesNotUnderstandAHeaderOnOneLine)
{
    const Read read = read_bytes("P5 2 1 255\nab");
    EXPECT_EQ(read.width, kUnset);
    EXPECT_EQ(read.height, kUnset);
}

TEST(ReadPgm, DoesNotUnderstandASizeOnTwoLines)
{
    const Read read = read_bytes("P5\n2\n1\n255\nab", kUnset, 3);
    EXPECT_EQ(read.width, 2);
    EXPECT_EQ(read.height, 3); // "1" was the maximum
    EXPECT_EQ(read.pixels, "255\nab");
}

TEST(ReadPgm, DoesNotUnderstandTheWritersOwnFiles)
{
    const TemporaryFolder folder;
    const std::uint8_t pixels[] = {1, 2, 3, 4, 5, 6};
    write_pgm(pixels, 3, 2, folder.name("a.pgm").c_str());
    const Read read = read_named(folder.name("a.pgm"));
    EXPECT_EQ(read.width, 3);
    EXPECT_EQ(read.height, kUnset);
}

TEST(ReadPgm, LeavesValuesThatDoNotParseAsTheCallerSetThem)
{
    const Read read = read_bytes("P5\nwide high\n255\nabcdef", 2, 3);
    EXPECT_EQ(read.width, 2);
    EXPECT_EQ(read.height, 3);
    EXPECT_EQ(read.pixels, "abcdef");
}

TEST(ReadPgm, TestsNeitherTheMagicNumberNorTheMaximum)
{
    for (const char* const header : {"P5\n2 1\n255\n", "P2\n2 1\n255\n", "PX\n2 1\n255\n", "BM\n2 1\n255\n",
                                     "P5\n2 1\n65535\n", "P5\n2 1\nmax\n", "P5\n2 1\n-1\n"})
        EXPECT_EQ(read_bytes(header + "ab"s).pixels, "ab") << header;
}

TEST(ReadPgm, ReadsAPlainTextFilesDigitsAsPixels)
{
    EXPECT_EQ(read_bytes("P2\n2 2\n255\n10 20\n30 40\n").pixels, "10 2");
}

TEST(ReadPgm, ReadsOneBytePerPixelOf16BitFiles)
{
    EXPECT_EQ(read_bytes("P5\n2 2\n65535\nABCDEFGH").pixels, "ABCD");
}

TEST(ReadPgm, FillsThePixelsThatAFileLacksWithZero)
{
    EXPECT_EQ(read_bytes("P5\n3 2\n255\nab").pixels, "ab\0\0\0\0"s);
    EXPECT_EQ(read_bytes("P5\n3 2\n255\n").pixels, "\0\0\0\0\0\0"s);
    EXPECT_EQ(read_bytes("P5\n3 2").pixels, "\0\0\0\0\0\0"s);
}

TEST(ReadPgm, IgnoresWhatFollowsThePixels)
{
    EXPECT_EQ(read_bytes("P5\n2 1\n255\nabcdef").pixels, "ab");
}

TEST(ReadPgm, TakesTheTailOfALongCommentForALine)
{
    // 259 characters are the comment, the rest of its line is the magic number
    EXPECT_EQ(read_bytes("#" + std::string(258, 'c') + "P5\n2 1\n255\nab").pixels, "ab");
    EXPECT_EQ(read_bytes("#" + std::string(258, 'c') + "\n2 1\n255\nab").pixels, "ab"); // the line feed alone
    EXPECT_EQ(read_bytes("#" + std::string(257, 'c') + "\nP5\n2 1\n255\nab").pixels, "ab");
    EXPECT_EQ(read_bytes("#" + std::string(258, 'c') + "#\nP5\n2 1\n255\nab").pixels, "ab"); // a second comment
}

TEST(ReadPgm, CountsEveryPieceOfALongLineAsALine)
{
    const std::string blanks(257, ' ');
    const Read read = read_bytes("P5" + blanks + "2 1\n255\nab"); // "P5 ...", "2 1", "255"
    EXPECT_EQ(read.width, 2);
    EXPECT_EQ(read.pixels, "ab");
    EXPECT_EQ(read_bytes("P5\n2 1\n" + std::string(259, '2') + "ab").pixels, "ab"); // no line feed is waited for
}

TEST(ReadPgm, EndsALinesTextAtANullByte)
{
    const Read read = read_bytes("P5\n2\0 1\n255\nab"s, kUnset, 1);
    EXPECT_EQ(read.width, 2);
    EXPECT_EQ(read.height, 1);
    EXPECT_EQ(read.pixels, "ab");
}

TEST(ReadPgm, ReadsLinesThatEndWithACarriageReturn)
{
    EXPECT_EQ(read_bytes("P5\r\n2 1\r\n255\r\nab").pixels, "ab");
}

TEST(ReadPgm, OfAnEmptyFileGivesZerosOfTheCallersSize)
{
    const Read read = read_bytes("", 2, 2);
    EXPECT_EQ(read.width, 2);
    EXPECT_EQ(read.height, 2);
    EXPECT_EQ(read.pixels, "\0\0\0\0"s);
}

TEST(ReadPgm, OfNoPixelsGivesABlockAllTheSame)
{
    const Read read = read_bytes("P5\n0 4\n255\n");
    EXPECT_EQ(read.width, 0);
    EXPECT_EQ(read.height, 4);
    EXPECT_TRUE(read.has_pixels);
}

TEST(ReadPgm, StoresNullForASizeThatIsNegativeOrLeaves32Bits)
{
    for (const char* const size : {"-2 3", "2 -3", "65536 65536", "65536 32768", "2147483647 2", "-1 2147483647"}) {
        const TemporaryFolder folder;
        write_file(folder.path() / "a", "P5\n"s + size + "\n255\nabcdef");
        std::uint8_t placeholder = 0;
        std::uint8_t* data = &placeholder;
        std::int32_t width = kUnset;
        std::int32_t height = kUnset;
        read_pgm(&data, &width, &height, folder.name("a").c_str());
        EXPECT_EQ(data, nullptr) << size;
        EXPECT_NE(width, kUnset);
        EXPECT_NE(height, kUnset);
    }
}

TEST(ReadPgm, TakesTheProductOfTwoNegativeSizes)
{
    const Read read = read_bytes("P5\n-2 -3\n255\nabcdefgh");
    EXPECT_EQ(read.width, -2);
    EXPECT_EQ(read.height, -3);
    EXPECT_EQ(read.pixels, "abcdef");
}

TEST(ReadPgm, WritesNothingWhenTheFileDoesNotOpen)
{
    const TemporaryFolder folder;
    const std::string missing = folder.name("none.pgm");
    for (const char* const name : {missing.c_str(), "", static_cast<const char*>(nullptr)}) {
        std::uint8_t placeholder = 0;
        std::uint8_t* data = &placeholder;
        std::int32_t width = 5;
        std::int32_t height = 6;
        read_pgm(&data, &width, &height, name);
        EXPECT_EQ(data, &placeholder);
        EXPECT_EQ(width, 5);
        EXPECT_EQ(height, 6);
    }
}

TEST(ReadPgm, OfAFolderEnds)
{
    const TemporaryFolder folder;
    const Read read = read_named(folder.name("."), 2, 2);
    EXPECT_EQ(read.width, 2);
    EXPECT_EQ(read.height, 2);
    EXPECT_EQ(read.pixels, read.has_pixels ? "\0\0\0\0"s : ""s); // some systems open folders, others do not
}

TEST(ReadPgm, ReadsAFileOfANameInThreeScripts)
{
    const TemporaryFolder folder;
    write_file(folder.path() / path_of("größe εικόνα 全景.pgm"), "P5\n2 1\n255\nab");
    EXPECT_EQ(read_named(folder.name("größe εικόνα 全景.pgm")).pixels, "ab");
}

TEST(ReadPgm, GivesNoPixelsWhenTheHeapIsExhausted)
{
    const TemporaryFolder folder;
    const std::string name = folder.name("a");
    write_file(folder.path() / "a", "P5\n2 1\n255\nab");
    panoval::test::for_each_failing_allocation([&](FailingHeap& heap) {
        std::uint8_t* data = nullptr;
        std::int32_t width = kUnset;
        std::int32_t height = kUnset;
        read_pgm(&data, &width, &height, name.c_str());
        EXPECT_EQ(data == nullptr, heap.has_failed());
        std::free(data);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

TEST(ReadPgm, ReadsALargePicture)
{
    const auto pixels = panoval::test::picture(panoval::test::Content::Noise, 1021, 517, 1);
    const std::string text(pixels.begin(), pixels.end());
    EXPECT_EQ(read_bytes("P5\n1021 517\n255\n" + text).pixels, text);
}

// The twin reads the same bytes with the same values set before.
void expect_as_twin(const std::string& bytes, const std::string& what)
{
    constexpr std::int64_t kMaxPixels = 1 << 20;
    const reference::ReadPgm expected = reference::read_pgm(bytes, 3, 5, kMaxPixels);
    if (std::int64_t{expected.width} * expected.height > kMaxPixels && expected.has_pixels)
        return; // too large for every machine to hold
    const TemporaryFolder folder;
    write_file(folder.path() / "a", bytes);
    std::uint8_t* data = nullptr;
    std::int32_t width = 3;
    std::int32_t height = 5;
    read_pgm(&data, &width, &height, folder.name("a").c_str());
    ASSERT_EQ(width, expected.width) << what;
    ASSERT_EQ(height, expected.height) << what;
    ASSERT_EQ(data != nullptr, expected.has_pixels) << what;
    if (data != nullptr) {
        ASSERT_TRUE(panoval::test::same_bits(data, expected.pixels.data(), expected.pixels.size())) << what;
    }
    std::free(data);
}

TEST(ReadPgm, ReadsTheFuzzersCorpusAsItsTwinDoes)
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(path_of(PANOVAL_CORPUS "/read_pgm")))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    ASSERT_GE(files.size(), 20u);
    for (const auto& file : files)
        expect_as_twin(read_file(file), panoval::test::utf8_of(file));
}

TEST(ReadPgm, ReadsRandomHeadersAsItsTwinDoes)
{
    const std::string pieces[] = {
        "P5",  "\n", "\n", "\n", " ",     "#",    "2", "7",  "255", "-1",   "x",  "\r",   "\t",
        "\0"s, "P2", "99", "0",  "2 3\n", "P5\n", "P", "+5", "##",  "\n\n", ".5", "0x1F", std::string(259, ' ')};
    panoval::test::Random random(1);
    for (int round = 0; round < 400; ++round) {
        std::string bytes;
        for (std::int64_t left = random.integer(0, 16); left > 0; --left)
            bytes += pieces[static_cast<std::size_t>(random.integer(0, std::ssize(pieces) - 1))];
        expect_as_twin(bytes, "round " + std::to_string(round) + ": " + bytes);
    }
}

} // namespace
