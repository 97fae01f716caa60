// SPDX-License-Identifier: MIT
#include "panoval.h"
#include "tests/reference/pgm.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace
{

using panoval::test::FailingHeap;
using panoval::test::for_each_target;
using panoval::test::Guarded;
using panoval::test::noise;
using panoval::test::path_of;
using panoval::test::read_file;
using panoval::test::TemporaryFolder;
using panoval::test::write_file;
namespace reference = panoval::reference;
using namespace std::string_literals;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kMax = std::numeric_limits<float>::max();

using Floats = std::vector<float>;
using Shorts = std::vector<std::int16_t>;

// What write(name) writes.
template <class Write>
std::string written_by(const Write& write)
{
    const TemporaryFolder folder;
    write(folder.name("out.pgm").c_str());
    return read_file(folder.path() / "out.pgm");
}

// The pixels behind the header of a picture of one row.
std::string pixels_of(const std::string& file, std::size_t width)
{
    const std::string header = "P5\n" + std::to_string(width) + "\n1\n255\n";
    EXPECT_EQ(file.substr(0, header.size()), header);
    return file.substr(header.size());
}

std::string bytes(const std::vector<int>& values)
{
    return std::string(values.begin(), values.end());
}

std::string row_of(const Floats& values)
{
    return pixels_of(written_by([&](const char* name) {
                         write_pgm_float(values.data(), static_cast<std::int32_t>(values.size()), 1, name);
                     }),
                     values.size());
}

std::string row_of(const Shorts& values)
{
    return pixels_of(written_by([&](const char* name) {
                         write_pgm_short(values.data(), static_cast<std::int32_t>(values.size()), 1, name);
                     }),
                     values.size());
}

std::string row_of_image(Floats values, std::int32_t channels)
{
    const auto width = static_cast<std::int32_t>(values.size()) / channels;
    const Matf image = {width, 1, channels, values.data()};
    return pixels_of(written_by([&](const char* name) { write_fpgm(&image, name); }), static_cast<std::size_t>(width));
}

TEST(WritePgm, WritesTheHeaderOnFourLinesAndTheBytesAsTheyAre)
{
    const std::uint8_t pixels[] = {0, 10, 13, 26, 128, 255};
    const std::string file = written_by([&](const char* name) { write_pgm(pixels, 3, 2, name); });
    EXPECT_EQ(file, "P5\n3\n2\n255\n" + bytes({0, 10, 13, 26, 128, 255}));
}

TEST(WritePgm, WritesALargePicture)
{
    const auto pixels = noise<std::uint8_t>(1021 * 517, 0, 255, 1);
    const std::string file = written_by([&](const char* name) { write_pgm(pixels.data(), 1021, 517, name); });
    EXPECT_EQ(file, "P5\n1021\n517\n255\n" + std::string(pixels.begin(), pixels.end()));
}

TEST(Writers, ReplaceALongerFile)
{
    const TemporaryFolder folder;
    write_file(folder.path() / "a", std::string(1000, 'x'));
    const std::uint8_t pixel = 7;
    write_pgm(&pixel, 1, 1, folder.name("a").c_str());
    EXPECT_EQ(read_file(folder.path() / "a"), "P5\n1\n1\n255\n\7");
}

TEST(Writers, WriteTheHeaderAloneOfAPictureWithoutPixels)
{
    for (const std::int32_t width : {0, -4, 65536}) {
        const std::int32_t height = width == 65536 ? 65536 : 5; // the product wraps to 0
        const std::string header = "P5\n" + std::to_string(width) + "\n" + std::to_string(height) + "\n255\n";
        const Matf image = {width, height, 3, nullptr};
        EXPECT_EQ(written_by([&](const char* name) { write_pgm(nullptr, width, height, name); }), header);
        EXPECT_EQ(written_by([&](const char* name) { write_pgm_float(nullptr, width, height, name); }), header);
        EXPECT_EQ(written_by([&](const char* name) { write_pgm_short(nullptr, width, height, name); }), header);
        EXPECT_EQ(written_by([&](const char* name) { write_fpgm(&image, name); }), header);
    }
}

TEST(Writers, TakeTheProductOfTwoNegativeSizes)
{
    const std::string expected = "P5\n-2\n-1\n255\n" + bytes({0, 255});
    const std::uint8_t pixels[] = {0, 255};
    const std::int16_t samples[] = {3, 4};
    float values[] = {3, 4};
    const Matf image = {-2, -1, 1, values};
    EXPECT_EQ(written_by([&](const char* name) { write_pgm(pixels, -2, -1, name); }), expected);
    EXPECT_EQ(written_by([&](const char* name) { write_pgm_short(samples, -2, -1, name); }), expected);
    EXPECT_EQ(written_by([&](const char* name) { write_pgm_float(values, -2, -1, name); }), expected);
    EXPECT_EQ(written_by([&](const char* name) { write_fpgm(&image, name); }), expected);
}

TEST(Writers, DoNothingWhenTheFileDoesNotOpen)
{
    const TemporaryFolder folder;
    const std::string missing = folder.name("none/none.pgm");
    const std::uint8_t byte = 1;
    const std::int16_t sample = 1;
    float value = 1;
    const Matf image = {1, 1, 1, &value};
    for (const char* const name : {missing.c_str(), "", static_cast<const char*>(nullptr)}) {
        write_pgm(&byte, 1, 1, name);
        write_pgm_float(&value, 1, 1, name);
        write_pgm_short(&sample, 1, 1, name);
        write_fpgm(&image, name);
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(Writers, TakeNamesOfThreeScripts)
{
    const TemporaryFolder folder;
    const std::string name = folder.name("größe εικόνα 全景.pgm");
    const auto written = [&] { return read_file(folder.path() / path_of("größe εικόνα 全景.pgm")); };
    const std::uint8_t byte = 9;
    const std::int16_t samples[] = {1, 2};
    float values[] = {1, 2, 3};
    const Matf image = {4, 0, 1, nullptr};
    write_pgm(&byte, 1, 1, name.c_str());
    EXPECT_EQ(written(), "P5\n1\n1\n255\n\t");
    write_pgm_short(samples, 2, 1, name.c_str());
    EXPECT_EQ(written(), "P5\n2\n1\n255\n" + bytes({0, 255}));
    write_pgm_float(values, 3, 1, name.c_str());
    EXPECT_EQ(written(), "P5\n3\n1\n255\n" + bytes({0, 127, 255}));
    write_fpgm(&image, name.c_str());
    EXPECT_EQ(written(), "P5\n4\n0\n255\n");
}

TEST(Writers, NeedNoMemoryForPixels)
{
    const TemporaryFolder folder;
    const std::string name = folder.name("a");
    Floats values(300 * 300, 1.0f);
    const Matf image = {100, 300, 3, values.data()};
    panoval::test::for_each_failing_allocation([&](FailingHeap& heap) {
        write_pgm_float(values.data(), 300, 300, name.c_str());
        write_fpgm(&image, name.c_str());
        EXPECT_EQ(heap.live_blocks(), 0);
        EXPECT_LT(heap.largest(), 4096u); // a name at most
    });
}

TEST(WritePgmFloat, StretchesTheSmallestTo0AndTheLargestTo255)
{
    EXPECT_EQ(row_of(Floats{-1, 3, 1, 2.99f}), bytes({0, 255, 127, 254}));
}

TEST(WritePgmFloat, FloorsTheLargestTo254WhereTheProductFallsBelow255)
{
    for (const int top : {1, 2, 3, 10, 255})
        EXPECT_EQ(row_of(Floats{0, static_cast<float>(top)}), bytes({0, 255})) << top;
    for (const int top : {25, 29, 50, 53}) {
        ASSERT_LT(top * (255.0 / top), 255.0);
        EXPECT_EQ(row_of(Floats{0, static_cast<float>(top)}), bytes({0, 254})) << top;
    }
}

TEST(WritePgmFloat, WritesAConstantImageAsZeros)
{
    EXPECT_EQ(row_of(Floats{5, 5, 5}), bytes({0, 0, 0}));
    EXPECT_EQ(row_of(Floats{5}), bytes({0}));
    EXPECT_EQ(row_of(Floats{0, -0.0f}), bytes({0, 0}));
}

TEST(WritePgmFloat, ComputesInDoublePrecision)
{
    // In single precision the range of the largest values would be infinite.
    EXPECT_EQ(row_of(Floats{-kMax, 0, kMax}), bytes({0, 127, 255}));
}

TEST(WritePgmFloat, WritesWhatIsNotANumberAs0)
{
    EXPECT_EQ(row_of(Floats{0, kNan, 2, 1}), bytes({0, 0, 255, 127}));
    EXPECT_EQ(row_of(Floats{kNan, 1, 2}), bytes({0, 0, 0})); // the first sample starts the range
    EXPECT_EQ(row_of(Floats{0, kInf, 1}), bytes({0, 0, 0}));
    EXPECT_EQ(row_of(Floats{0, -kInf, 1}), bytes({0, 0, 0}));
}

TEST(WritePgmShort, ReadsSamplesAsSigned)
{
    EXPECT_EQ(row_of(Shorts{-5, 0, 5}), bytes({0, 127, 255}));
    EXPECT_EQ(row_of(Shorts{-32768, 32767, 0}), bytes({0, 255, 127}));
}

TEST(WritePgmShort, WritesAConstantImageAsZeros)
{
    EXPECT_EQ(row_of(Shorts{-9, -9}), bytes({0, 0}));
}

TEST(WriteFpgm, StretchesOneChannel)
{
    EXPECT_EQ(row_of_image({1, 3, 2}, 1), bytes({0, 255, 127}));
}

TEST(WriteFpgm, StretchesNegativeValuesAgainst0)
{
    EXPECT_EQ(row_of_image({-1, -3}, 1), bytes({170, 0}));
}

TEST(WriteFpgm, StartsItsMinimumAtTenToTheTenth)
{
    // 3e10 is the maximum, 1e10 the minimum, although no value is that small.
    EXPECT_EQ(row_of_image({2e10f, 3e10f}, 1), bytes({127, 255}));
}

TEST(WriteFpgm, MixesThreeChannelsToGrey)
{
    // 29.9, 58.7, 11.4 and the full 100, of 100
    EXPECT_EQ(row_of_image({100, 0, 0, 0, 100, 0, 0, 0, 100, 100, 100, 100, 0, 0, 0}, 3), bytes({76, 149, 29, 255, 0}));
}

TEST(WriteFpgm, WritesZerosForAnyOtherChannelCount)
{
    EXPECT_EQ(row_of_image({1, 2, 3, 4}, 2), bytes({0, 0}));
    EXPECT_EQ(row_of_image({1, 2, 3, 4}, 4), bytes({0}));
    const Matf image = {2, 1, 0, nullptr};
    EXPECT_EQ(pixels_of(written_by([&](const char* name) { write_fpgm(&image, name); }), 2), bytes({0, 0}));
}

TEST(WriteFpgm, WritesAConstantImageAsZeros)
{
    EXPECT_EQ(row_of_image({5, 5}, 1), bytes({0, 0}));
    EXPECT_EQ(row_of_image({0, 0}, 1), bytes({0, 0}));
}

TEST(WriteFpgm, WritesWhatIsNotANumberAs0)
{
    EXPECT_EQ(row_of_image({kNan, 1, 3, 2}, 1), bytes({0, 0, 255, 127})); // unlike write_pgm_float
    EXPECT_EQ(row_of_image({kNan, kNan}, 1), bytes({0, 0}));
    EXPECT_EQ(row_of_image({0, kInf}, 1), bytes({0, 0}));
    EXPECT_EQ(row_of_image({-kMax, kMax}, 1), bytes({0, 0})); // the range is infinite in single precision
    EXPECT_EQ(row_of_image({0, 1e-45f}, 1), bytes({0, 0}));   // and here the scale
}

// Both writers' files of one picture.
template <class Write, class Twin>
void expect_same_file(const TemporaryFolder& folder, const Write& write, const Twin& twin)
{
    write(folder.name("fast").c_str());
    twin(folder.name("twin").c_str());
    ASSERT_EQ(read_file(folder.path() / "fast"), read_file(folder.path() / "twin"));
}

TEST(Writers, EqualTheirTwins)
{
    const TemporaryFolder folder;
    for_each_target([&] {
        for (const auto& size : {std::pair{1, 1}, {1, 67}, {67, 1}, {31, 33}, {128, 128}, {257, 193}}) {
            const int width = size.first; // named: a lambda captures no structured binding
            const int height = size.second;
            const auto count = static_cast<std::size_t>(width * height);
            const auto seed = static_cast<std::uint64_t>(width);
            const Guarded<float> floats(noise(3 * count, -70.0f, 1000.0f, seed));
            const Guarded<std::int16_t> shorts(noise<std::int16_t>(count, -3000, 32767, seed));
            SCOPED_TRACE(testing::Message() << width << " x " << height);
            expect_same_file(
                folder, [&](const char* name) { write_pgm_float(floats.data(), width, height, name); },
                [&](const char* name) { reference::write_stretched(floats.data(), width, height, name); });
            expect_same_file(
                folder, [&](const char* name) { write_pgm_short(shorts.data(), width, height, name); },
                [&](const char* name) { reference::write_stretched(shorts.data(), width, height, name); });
            for (const std::int32_t channels : {1, 2, 3}) {
                Matf image = {width, height, channels, const_cast<float*>(floats.data())};
                expect_same_file(
                    folder, [&](const char* name) { write_fpgm(&image, name); },
                    [&](const char* name) { reference::write_fpgm(image, name); });
            }
        }
    });
}

} // namespace
