// SPDX-License-Identifier: MIT
#include "cli/stitch/panorama_plan.h"

#include "cli/stitch/layer_rows.h"
#include "image/image_write.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

namespace panoval::cli::test
{

namespace
{

class Plan : public ScratchFolder
{
protected:
    std::string picture(const std::string& name, std::int32_t width, std::int32_t height, int channels = 1,
                        int bits = 8)
    {
        write_image(in_folder(name), test_picture(width, height, channels, bits));
        return in_folder(name);
    }

    // All rows of a layer, whose size with its frame is given.
    static Image rows_of_layer(const PlacedLayer& layer, int bits, std::int32_t width, std::int32_t height)
    {
        Image image = make_image(width, height, layer.info.channels, bits, "test");
        ensure_mask(image, "test");
        LayerRows(layer, bits).read(0, height, image::rows_of(image));
        return image;
    }

    static std::string refusal(const std::vector<PlacedInput>& inputs)
    {
        return error_of([&] { (void)plan_panorama(inputs); });
    }
};

TEST_F(Plan, TakesPicturesOfMoreBytesThanTheLibrary)
{
    const PanoramaPlan plan = plan_panorama({{write_text("large.ppm", "P3\n30000 33000\n65535\n1"), Offset{0, 0}, ""}});
    EXPECT_EQ(plan.width, 30000);
    EXPECT_EQ(plan.height, 33000);
}

TEST_F(Plan, TheCanvasIsWhatThePicturesSpan)
{
    const std::string a = picture("a.pgm", 30, 20);
    const std::string b = picture("b.pgm", 10, 40, 1, 16);
    const PanoramaPlan plan = plan_panorama({{a, Offset{-5, 7}, ""}, {b, Offset{20, -3}, ""}});
    EXPECT_EQ(plan.origin, (Offset{-5, -3}));
    EXPECT_EQ(plan.width, 35);
    EXPECT_EQ(plan.height, 40);
    EXPECT_EQ(plan.channels, 1);
    EXPECT_EQ(plan.bits, 16);
    EXPECT_EQ(plan.layers[0].corner.x, 0);
    EXPECT_EQ(plan.layers[0].corner.y, 10);
    EXPECT_EQ(plan.layers[1].corner.x, 25);
    EXPECT_EQ(plan.layers[1].corner.y, 0);
}

TEST_F(Plan, PicturesThatDoNotGoTogetherAreNamed)
{
    const std::string grey = picture("grey.pgm", 4, 4);
    const std::string colour = picture("colour.ppm", 4, 4, 3);
    EXPECT_EQ(refusal({{grey, Offset{}, ""}, {colour, Offset{}, ""}}),
              colour + ": found 3 channels; expected 1, as in " + grey);
    EXPECT_EQ(refusal({{grey, std::nullopt, ""}}),
              grey + ": found no position in the file; expected one: FILE@X,Y, or x and y in a layout");
    EXPECT_TRUE(contains(refusal({{in_folder("none.pgm"), Offset{}, ""}}), "none.pgm: found no such file"));
}

TEST_F(Plan, ALayoutIsHeldToWhatItTellsAndNoMore)
{
    const std::string grey = picture("grey.pgm", 4, 3);
    PlacedInput input{grey, Offset{}, ""};
    input.told = ImageInfo{};
    input.told->width = 4;
    input.told->height = 3;
    input.told->channels = 3; // which is a guess
    EXPECT_EQ(refusal({input}), "no error") << "the size alone was told";
    input.tells_channels = true;
    EXPECT_EQ(refusal({input}), grey +
                                    ": found 4 x 3 pixels, 1 channel, 8 bit; expected 4 x 3 pixels, 3 channels, 8 bit "
                                    "as the layout says");
    input.tells_channels = false;
    input.told->bits = 16;
    EXPECT_EQ(refusal({input}), "no error");
    input.tells_bits = true;
    EXPECT_TRUE(contains(refusal({input}), "expected 4 x 3 pixels, 1 channel, 16 bit as the layout says"));
    input.tells_bits = false;
    input.told->height = 4;
    EXPECT_TRUE(contains(refusal({input}), "expected 4 x 4 pixels, 1 channel, 8 bit as the layout says"));
}

TEST_F(Plan, AMaskOfAnotherSizeOrKindIsNamed)
{
    const std::string grey = picture("grey.pgm", 4, 4);
    const std::string mask = picture("mask.pgm", 4, 5);
    const std::string colour = picture("colour.ppm", 4, 4, 3);
    EXPECT_EQ(refusal({{grey, Offset{}, mask}}),
              mask + ": found a mask of 4 x 5 pixels; expected 4 x 4, the size of " + grey);
    EXPECT_EQ(refusal({{grey, Offset{}, colour}}),
              colour + ": found 4 x 4 pixels, 3 channels, 8 bit; expected a mask of one grey channel");
    EXPECT_TRUE(contains(refusal({{grey, Offset{}, in_folder("none.pgm")}}), "none.pgm: found no such file"));
}

TEST_F(Plan, TooLongACanvasIsRefusedWithThePictureThatMakesItSo)
{
    const std::string a = picture("a.pgm", 10, 10);
    const auto at = [&](std::int64_t x) {
        return refusal({{a, Offset{-1'200'000'000, 0}, ""}, {a, Offset{x, 0}, ""}});
    };
    EXPECT_EQ(at(947'483'637), "no error");
    EXPECT_EQ(at(947'483'638), a + ": found at 947483638,0 a canvas of 2147483648 x 10 pixels; "
                                   "expected at most 2^31 - 1 on a side");
}

TEST_F(Plan, BordersBehindWhichAnotherPictureGoesOnGetAFrame)
{
    const std::string a = picture("a.pgm", 10, 10);
    const auto sides = [&](Offset other) {
        PanoramaPlan plan = plan_panorama({{a, Offset{0, 0}, ""}, {a, other, ""}});
        frame_inner_sides(plan);
        return plan.layers[0].frame;
    };
    EXPECT_EQ(sides({5, 0}), (Sides{false, false, true, false}));
    EXPECT_EQ(sides({5, 3}), (Sides{false, false, true, true}));
    EXPECT_EQ(sides({-5, -3}), (Sides{true, true, false, false}));
    EXPECT_EQ(sides({0, 0}), Sides{}) << "equal borders end together";
    EXPECT_EQ(sides({10, 0}), Sides{}) << "they only touch";
    EXPECT_EQ(sides({5, 50}), Sides{}) << "they do not meet";
}

TEST_F(Plan, AlphaAndMaskFileCoverTogether)
{
    Image image = test_picture(3, 1, 1, 8, true);
    const std::uint8_t alpha[] = {255, 200, 0};
    std::memcpy(image.mask.get(), alpha, 3);
    write_image(in_folder("a.pam"), image);
    Image mask = make_image(3, 1, 1, 8, "test");
    const std::uint8_t values[] = {7, 255, 255};
    std::memcpy(mask.data.get(), values, 3);
    write_image(in_folder("m.pgm"), mask);
    const PanoramaPlan plan = plan_panorama({{in_folder("a.pam"), Offset{}, in_folder("m.pgm")}});
    const Image loaded = rows_of_layer(plan.layers[0], 16, 3, 1);
    EXPECT_EQ(loaded.bits, 16);
    const std::uint8_t expected[] = {7, 200, 0};
    EXPECT_EQ(std::memcmp(loaded.mask.get(), expected, 3), 0);
}

TEST_F(Plan, WhatIsExcludedIsNotCovered)
{
    write_image(in_folder("a.pgm"), test_picture(3, 1, 1, 8));
    Image mask = make_image(3, 1, 1, 8, "test");
    const std::uint8_t values[] = {0, 1, 255};
    std::memcpy(mask.data.get(), values, 3);
    write_image(in_folder("e.pgm"), mask);
    const PanoramaPlan plan = plan_panorama({{in_folder("a.pgm"), Offset{}, "", "", in_folder("e.pgm")}});
    const Image loaded = rows_of_layer(plan.layers[0], 8, 3, 1);
    const std::uint8_t expected[] = {255, 0, 0};
    EXPECT_EQ(std::memcmp(loaded.mask.get(), expected, 3), 0);
}

TEST_F(Plan, AFrameIsAddedOnTheGivenSidesAlone)
{
    const Image image = test_picture(2, 2, 3, 16, true);
    write_image(in_folder("a.tif"), image);
    PanoramaPlan plan = plan_panorama({{in_folder("a.tif"), Offset{}, ""}});
    plan.layers[0].frame = {true, false, false, true};
    const Image framed = rows_of_layer(plan.layers[0], 16, 3, 3);
    EXPECT_EQ(std::memcmp(framed.row(1) + 6, image.row(1), 12), 0);
    EXPECT_EQ(framed.mask[0], 0);
    EXPECT_EQ(framed.mask[1], image.mask[0]);
    EXPECT_EQ(framed.mask[4], image.mask[2]);
    EXPECT_EQ(framed.mask[7], 0);
}

TEST_F(Plan, RowsOfALayerMayComeInAnyOrder)
{
    const Image image = test_picture(5, 40, 3, 8, true);
    const Image mask = test_picture(5, 40, 1, 16);
    for (const char* const name : {"a.png", "a.tif", "a.pam"}) {
        write_image(in_folder(name), image);
        write_image(in_folder("m.png"), mask);
        const PanoramaPlan plan = plan_panorama({{in_folder(name), Offset{}, in_folder("m.png")}});
        const Image whole = rows_of_layer(plan.layers[0], 16, 5, 40);
        LayerRows rows(plan.layers[0], 16);
        for (const std::int32_t y : {39, 3, 4, 5, 0, 22}) {
            std::uint8_t samples[30], covered[5];
            rows.read(y, 1, {samples, sizeof samples, covered, sizeof covered});
            EXPECT_EQ(std::memcmp(samples, whole.row(y), sizeof samples), 0) << name << ", row " << y;
            EXPECT_EQ(std::memcmp(covered, whole.mask.get() + 5 * y, sizeof covered), 0) << name << ", row " << y;
        }
        for (std::size_t i = 0; i < 5 * 40 * 3; ++i) {
            std::uint16_t wide = 0;
            std::memcpy(&wide, whole.data.get() + 2 * i, 2);
            ASSERT_EQ(wide, image.data[i] * 257) << name;
        }
    }
}

} // namespace

} // namespace panoval::cli::test
