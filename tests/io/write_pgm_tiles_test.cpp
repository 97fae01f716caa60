// SPDX-License-Identifier: MIT
// Pictures of more pixels than the writers make at a time, against the twins' files.
#include "panoval.h"
#include "tests/reference/pgm.h"
#include "tests/support/noise.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using panoval::test::noise;
using panoval::test::read_file;
using panoval::test::TemporaryFolder;
namespace reference = panoval::reference;

struct Shape {
    std::int32_t width;
    std::int32_t height;
};
// Around the 65536 pixels that are made at a time, and two times and a half as many.
constexpr Shape kShapes[] = {{256, 256}, {65537, 1}, {321, 511}};

std::size_t pixels_of(const Shape& shape)
{
    return static_cast<std::size_t>(shape.width) * static_cast<std::size_t>(shape.height);
}

template <class Write, class Twin>
void expect_same_file(const Write& write, const Twin& twin)
{
    const TemporaryFolder folder;
    write(folder.name("out.pgm").c_str());
    twin(folder.name("expected.pgm").c_str());
    EXPECT_TRUE(read_file(folder.path() / "out.pgm") == read_file(folder.path() / "expected.pgm"));
}

TEST(WritePgmTiles, OfFloatsFollowEachOther)
{
    for (const auto& [width, height] : kShapes) {
        const auto values = noise<float>(pixels_of({width, height}), -100, 500, 1);
        expect_same_file(
            [&, w = width, h = height](const char* name) { write_pgm_float(values.data(), w, h, name); },
            [&, w = width, h = height](const char* name) { reference::write_stretched(values.data(), w, h, name); });
    }
}

TEST(WritePgmTiles, OfShortsFollowEachOther)
{
    for (const auto& [width, height] : kShapes) {
        const auto values = noise<std::int16_t>(pixels_of({width, height}), -3000, 9000, 2);
        expect_same_file(
            [&, w = width, h = height](const char* name) { write_pgm_short(values.data(), w, h, name); },
            [&, w = width, h = height](const char* name) { reference::write_stretched(values.data(), w, h, name); });
    }
}

TEST(WritePgmTiles, OfRecordsOfOneAndThreeChannelsFollowEachOther)
{
    for (const auto& [width, height] : kShapes)
        for (const std::int32_t channels : {1, 3, 2}) {
            auto values = noise<float>(3 * pixels_of({width, height}), 0, 900, 3);
            const Matf record{width, height, channels, values.data()};
            expect_same_file([&](const char* name) { write_fpgm(&record, name); },
                             [&](const char* name) { reference::write_fpgm(record, name); });
        }
}

} // namespace
