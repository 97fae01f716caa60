// SPDX-License-Identifier: MIT
#include "image/image_read.h"
#include "tests/cli/run_program.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace panoval::cli::test
{

namespace
{

using SceneGenerator = ScratchFolder;
using Json = nlohmann::json;

TEST_F(SceneGenerator, MakesOverlappingPicturesAndTheirLayout)
{
    const Outcome outcome = run_program("make_scene", {in_folder("s"), "--size", "small", "--pictures", "3"});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const Json layout = Json::parse(read_text("s/layout.json"));
    ASSERT_EQ(layout.size(), 3u);
    int right = 0;
    bool has_negative = false;
    for (const Json& entry : layout) {
        const ImageInfo info = probe_image(in_folder("s/" + entry["file"].get<std::string>())).at(0);
        const int x = entry["x"];
        has_negative |= x < 0;
        EXPECT_TRUE(right == 0 || x < right) << "there is no gap";
        right = x + info.width;
        EXPECT_EQ(info.channels, 3);
    }
    EXPECT_TRUE(has_negative);
    EXPECT_TRUE(layout[1].contains("mask") ||
                probe_image(in_folder("s/" + layout[1]["file"].get<std::string>())).at(0).has_alpha);
    EXPECT_EQ(Json::parse(read_text("s/truth.json"))["pictures"].size(), 3u);
}

TEST_F(SceneGenerator, GivesTheSameFilesEveryTime)
{
    for (const char* folder : {"a", "b"})
        ASSERT_EQ(run_program("make_scene", {in_folder(folder), "--size", "small", "--pictures", "1"}).exit_code, 0);
    const std::string picture = file_exists(in_folder("a/picture1.ppm")) ? "/picture1.ppm" : "/picture1.png";
    EXPECT_EQ(read_text("a" + picture), read_text("b" + picture));
}

TEST_F(SceneGenerator, ExplainsWhereItCannotWrite)
{
    const std::string file = write_text("file", "");
    EXPECT_NE(run_program("make_scene", {file + "/x", "--size", "small", "--pictures", "1"}).exit_code, 0);
    EXPECT_EQ(read_text("file"), "");
}

} // namespace

} // namespace panoval::cli::test
