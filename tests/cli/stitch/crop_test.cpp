// SPDX-License-Identifier: MIT
#include "cli/stitch/crop.h"

#include "image/image_read.h"
#include "image/image_write.h"
#include "image/zarr_store.h"
#include "tests/cli/run_program.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <random>
#include <tuple>

namespace panoval::cli::test
{

namespace
{

using Json = nlohmann::json;
using Rows = std::vector<std::vector<std::int32_t>>;
using Numbers = std::vector<std::int64_t>;

Numbers largest(const Rows& rows)
{
    LargestRectangle found(static_cast<std::int64_t>(rows[0].size()));
    for (const auto& row : rows)
        found.add_row(row.data());
    const PanovalMosaicRect& rect = found.found();
    return {rect.x, rect.y, rect.width, rect.height};
}

// Every rectangle is tried.
Numbers largest_of_all(const Rows& rows)
{
    const auto height = static_cast<std::int64_t>(rows.size());
    const auto width = static_cast<std::int64_t>(rows[0].size());
    auto best = std::tuple<std::int64_t, std::int64_t, std::int64_t, std::int64_t>(0, 0, 0, 0); // -area, y, x, -width
    for (std::int64_t y = 0; y < height; ++y)
        for (std::int64_t x = 0; x < width; ++x) {
            std::int64_t room = width - x;
            for (std::int64_t end = y; end < height; ++end) {
                std::int64_t run = 0;
                const auto& row = rows[static_cast<std::size_t>(end)];
                while (run < room && row[static_cast<std::size_t>(x + run)] >= 0)
                    ++run;
                room = run;
                if (room > 0)
                    best = std::min(best, std::tuple(-room * (end - y + 1), y, x, -room));
            }
        }
    const auto [area, y, x, wide] = best;
    return area == 0 ? Numbers{0, 0, 0, 0} : Numbers{x, y, -wide, area / wide};
}

TEST(Crop, FindsTheLargestRectangleOfAnyMask)
{
    std::mt19937 random(7);
    for (int round = 0; round < 3000; ++round) {
        Rows rows(1 + random() % 9, std::vector<std::int32_t>(1 + random() % 9));
        const auto gaps = random() % 6;
        for (auto& row : rows)
            for (std::int32_t& label : row)
                label = random() % 8 < gaps ? -1 : static_cast<std::int32_t>(random() % 3);
        ASSERT_EQ(largest(rows), largest_of_all(rows)) << "round " << round;
    }
}

TEST(Crop, OfEqualOnesTheTopmostThenTheLeftmostCounts)
{
    EXPECT_EQ(largest({{0, -1, 0}, {-1, 0, -1}}), (Numbers{0, 0, 1, 1}));
    EXPECT_EQ(largest({{-1, 0}, {0, -1}}), (Numbers{1, 0, 1, 1}));
    EXPECT_EQ(largest({{0, 0}, {0, -1}}), (Numbers{0, 0, 2, 1})) << "the widest";
    EXPECT_EQ(largest({{-1, -1}}), (Numbers{0, 0, 0, 0}));
}

class StitchCrop : public ScratchFolder
{
protected:
    std::string shoot(const std::string& name, int x, int y, int seed)
    {
        write_image(in_folder(name), test_picture(120 + seed, 90, 3, 8));
        return concat(in_folder(name), "@", x, ",", y);
    }
    Json told(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "stitch");
        arguments.push_back("--json");
        const Outcome outcome = run_panoval(arguments);
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        return outcome.exit_code == 0 ? Json::parse(outcome.out) : Json();
    }
    std::vector<std::string> with(std::vector<std::string> more)
    {
        std::vector<std::string> arguments = {shoot("a.ppm", 100, 50, 0), shoot("b.ppm", 180, 57, 1),
                                              shoot("c.ppm", 260, 46, 2)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }
};

// The rectangle 0..282 x 11..93 of the canvas: rows that all three cover.
constexpr int kTop = 11;
constexpr int kRows = 79;

TEST_F(StitchCrop, EveryFormatHasTheCoveredPart)
{
    for (const std::string how : {"--seams=optimal", "--seams=none", "--blend=feather"}) {
        told(with({how, "-o", in_folder("whole.ppm")}));
        const Image whole = read_image(in_folder("whole.ppm"));
        ASSERT_EQ(whole.height, 101);
        for (const std::string name : {"c.tif", "c.png", "c.pam"}) {
            const Json json = told(with({how, "--crop", "--alpha", "-o", in_folder(name)}));
            EXPECT_EQ(json["y"], 46 + kTop) << how;
            EXPECT_EQ(json["x"], 100);
            EXPECT_EQ(json["height"], kRows);
            const Image cropped = read_image(in_folder(name));
            ASSERT_EQ(cropped.height, kRows) << how;
            ASSERT_EQ(cropped.width, whole.width);
            for (int y = 0; y < kRows; ++y)
                ASSERT_EQ(std::memcmp(cropped.row(y), whole.row(y + kTop), whole.row_bytes()), 0) << name << y;
            for (std::size_t i = 0; i < cropped.pixels(); ++i)
                ASSERT_EQ(cropped.mask[i], 255) << how << " has an uncovered pixel";
        }
        EXPECT_EQ(probe_image(in_folder("c.tif")).at(0).position, (Offset{100, 46 + kTop}));
    }
    told(with({"--crop", "-o", in_folder("c.dzi"), "--save-seams", in_folder("seams.pgm")}));
    EXPECT_TRUE(contains(read_text("c.dzi"), "Height=\"79\""));
    EXPECT_EQ(probe_image(in_folder("seams.pgm")).at(0).height, kRows);
}

TEST_F(StitchCrop, APlanKeepsItForItsTiles)
{
    told(with({"--crop", "-o", in_folder("plan.json"), "--plan-only", "--tile-size", "64"}));
    told(with({"--crop", "-o", in_folder("whole.ppm")}));
    const Image whole = read_image(in_folder("whole.ppm"));
    const Json json = told({"--plan", in_folder("plan.json"), "-o", in_folder("a.zarr"), "--tile", "0-9"});
    EXPECT_EQ(json["tiles"], 10) << "5 x 2 of the cropped part";
    const auto store = image::ZarrStore::open(in_folder("a.zarr"));
    EXPECT_EQ(store.picture().origin, (Offset{100, 46 + kTop}));
    EXPECT_EQ(store.array(0).height, kRows);
    EXPECT_EQ(store.first_missing_tile(), -1);
    ASSERT_EQ(run_panoval({"pyramid", in_folder("a.zarr"), "-o", in_folder("again.ppm")}).exit_code, 0);
    expect_same_picture(read_image(in_folder("again.ppm")), whole);
    told({"--plan", in_folder("plan.json"), "-o", in_folder("rows.ppm")});
    expect_same_picture(read_image(in_folder("rows.ppm")), whole);
}

TEST_F(StitchCrop, MasksCountWithAndWithoutSeams)
{
    Image mask = make_image(120, 90, 1, 8, "test");
    std::fill_n(mask.data.get(), mask.bytes(), std::uint8_t{255});
    for (int y = 40; y < 90; ++y)
        std::fill_n(mask.row(y), 30, std::uint8_t{0});
    write_image(in_folder("mask.pgm"), mask);
    const std::string picture = shoot("a.ppm", 0, 0, 0) + ":" + in_folder("mask.pgm");
    for (const std::string how : {"optimal", "none"}) {
        const Json json = told({picture, "--crop", "--seams", how, "-o", in_folder("a.png")});
        EXPECT_EQ(json["x"], 30) << how; // 90 x 90 rather than 120 x 40
        EXPECT_EQ(json["width"], 90);
        EXPECT_EQ(json["height"], 90);
    }
}

} // namespace

} // namespace panoval::cli::test
