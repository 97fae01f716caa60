// SPDX-License-Identifier: MIT
// Where the sizes and places of pictures and of the canvas end.
#include "mosaic/plan.h"

#include "mosaic/base/errors.h"

#include <gtest/gtest.h>

#include <string>

namespace panoval::mosaic::test
{

namespace
{

constexpr std::int64_t kTooLong = std::int64_t{1} << 31;

template <class Work>
std::string message_of(const Work& work)
{
    try {
        work();
    } catch (const Error& error) {
        EXPECT_EQ(error.failure(), Failure::Argument);
        return error.what();
    }
    return "";
}

PlacementWish wish()
{
    return {0, 0, 40, 30, 3, 8, false, {}, "a"};
}

std::string refusal_of(const PlacementWish& picture)
{
    return message_of([&] { check_picture(picture); });
}

TEST(CheckPicture, RefusesSidesBeyond31Bits)
{
    PlacementWish picture = wish();
    picture.width = kTooLong - 1;
    picture.height = kTooLong - 1;
    EXPECT_EQ(refusal_of(picture), "");
    picture.width = kTooLong;
    EXPECT_EQ(refusal_of(picture), "a: found a width of 2147483648; expected 1 or more");
    picture.width = 40;
    picture.height = kTooLong;
    EXPECT_EQ(refusal_of(picture), "a: found a height of 2147483648; expected 1 or more");
}

TEST(CheckPicture, RefusesPlacesFartherThan2To40)
{
    constexpr std::int64_t kFar = std::int64_t{1} << 40;
    for (std::int64_t PlacementWish::*side : {&PlacementWish::x, &PlacementWish::y}) {
        PlacementWish picture = wish();
        picture.*side = kFar;
        EXPECT_EQ(refusal_of(picture), "");
        picture.*side = -kFar;
        EXPECT_EQ(refusal_of(picture), "");
        picture.*side = kFar + 1;
        EXPECT_NE(refusal_of(picture).find("1099511627777; expected at most 2^40 from 0"), std::string::npos);
        picture.*side = -kFar - 1;
        EXPECT_NE(refusal_of(picture).find("-1099511627777; expected at most 2^40 from 0"), std::string::npos);
    }
}

TEST(CheckSettings, RefusesTilesLongerThanACanvasCanBe)
{
    Settings settings;
    settings.tile_size = kTooLong - 1;
    EXPECT_EQ(message_of([&] { check_settings(settings, 1); }), "");
    settings.tile_size = kTooLong;
    EXPECT_EQ(message_of([&] { check_settings(settings, 1); }),
              "found a tile size of 2147483648; expected 0, or 16 or more pixels");
}

TEST(CheckSettings, TakesSamplesOf8And16BitAndThoseOfThePictures)
{
    Settings settings;
    for (const int bits : {0, 8, 16}) {
        settings.output_bits = bits;
        EXPECT_EQ(message_of([&] { check_settings(settings, 1); }), "");
    }
    settings.output_bits = 12;
    EXPECT_EQ(message_of([&] { check_settings(settings, 1); }), "found output bits 12; expected 0, 8 or 16");
}

TEST(MakeLayout, NamesThePictureThatDoesNotGoWithTheOthers)
{
    PlacementWish grey = wish();
    grey.channels = 1;
    grey.name = name_or_number("", 1);
    EXPECT_EQ(message_of([&] {
                  (void)make_layout({wish(), grey}, 0);
              }),
              "picture 1: found 1 x 8 bit; expected 3 x 8 bit as in a");
    EXPECT_EQ(message_of([&] { (void)make_layout({wish()}, 39); }),
              "a: found a width of 40; expected at most that of the canvas that goes round, 39");
}

TEST(MakeLayout, RefusesACanvasThatIsTooHigh)
{
    PlacementWish low = wish();
    low.y = kTooLong - 31;
    EXPECT_EQ(make_layout({wish(), low}, 0).height, kTooLong - 1);
    low.y += 1;
    EXPECT_EQ(message_of([&] {
                  (void)make_layout({wish(), low}, 0);
              }),
              "found a canvas of 40 x 2147483648 pixels; expected at most 2147483647 on a side");
}

} // namespace

} // namespace panoval::mosaic::test
