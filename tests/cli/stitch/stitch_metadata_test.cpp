// SPDX-License-Identifier: MIT
// What panoval stitch keeps of what cameras wrote: what all pictures agree in, and nothing else.
#include "image/image_read.h"
#include "image/image_write.h"
#include "tests/cli/run_program.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

namespace panoval::cli::test
{

namespace
{

class StitchMetadata : public ScratchFolder
{
protected:
    // A picture of such a shot, and where it lies.
    std::string shoot(const std::string& name, int x, const image::Exif& exif) const
    {
        Image image = test_picture(60, 40, 3, 8);
        image.metadata.exif = exif;
        image.metadata.resolution = image::Resolution{300, 300};
        write_image(in_folder(name), image);
        return concat(in_folder(name), "@", x, ",0");
    }

    image::Metadata stitched(const std::vector<std::string>& inputs, const std::string& name) const
    {
        std::vector<std::string> arguments = {"stitch", "-q", "-o", in_folder(name)};
        arguments.insert(arguments.end(), inputs.begin(), inputs.end());
        const Outcome outcome = run_panoval(arguments);
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        return read_image(in_folder(name)).metadata;
    }
};

const image::Exif kShot = {"Maker", "Model X", "2024:02:29 12:34:56", image::Rational{1, 250}, image::Rational{28, 10},
                           400};

TEST_F(StitchMetadata, IsKeptWhereThePicturesAgree)
{
    for (const std::string from : {".jpg", ".tif", ".png"}) {
        const std::vector<std::string> inputs = {shoot("a" + from, 0, kShot), shoot("b" + from, 40, kShot)};
        for (const std::string to : {".tif", ".jpg", ".png"}) {
            const image::Metadata told = stitched(inputs, "out" + to);
            EXPECT_EQ(told.exif, kShot) << from << " to " << to;
            ASSERT_TRUE(told.resolution) << from << " to " << to;
            EXPECT_NEAR(told.resolution->x, 300, 0.01);
        }
    }
}

TEST_F(StitchMetadata, IsLeftOutWhereTheyDiffer)
{
    image::Exif other = kShot;
    other.model = "Model Y";
    other.date = "2024:02:29 12:34:59";
    other.exposure_seconds = image::Rational{1, 60};
    image::Exif expected = kShot;
    expected.model.clear();
    expected.date.clear();
    expected.exposure_seconds.reset();
    for (const std::string ending : {".tif", ".jpg", ".png"}) {
        const std::vector<std::string> inputs = {shoot("a" + ending, 0, kShot), shoot("b" + ending, 40, other),
                                                 shoot("c" + ending, 80, kShot)};
        EXPECT_EQ(stitched(inputs, "out" + ending).exif, expected) << ending;
    }
}

TEST_F(StitchMetadata, IsLeftOutWhereOnePictureHasNone)
{
    const std::vector<std::string> inputs = {shoot("a.jpg", 0, kShot), shoot("b.jpg", 40, {})};
    EXPECT_TRUE(stitched(inputs, "out.tif").exif.is_empty());
}

// A plan has it, too, and the tile that another process makes of it.
TEST_F(StitchMetadata, GoesThroughAPlan)
{
    const std::vector<std::string> inputs = {shoot("a.jpg", 0, kShot), shoot("b.jpg", 40, kShot)};
    std::vector<std::string> arguments = {"stitch", "-q", "--plan-only", "-o", in_folder("plan.json")};
    arguments.insert(arguments.end(), inputs.begin(), inputs.end());
    ASSERT_EQ(run_panoval(arguments).exit_code, 0);
    EXPECT_EQ(stitched({"--plan", in_folder("plan.json")}, "out.tif").exif, kShot);
    EXPECT_EQ(stitched({"--plan", in_folder("plan.json"), "--tile", "0"}, "tile.jpg").exif, kShot);
}

} // namespace

} // namespace panoval::cli::test
