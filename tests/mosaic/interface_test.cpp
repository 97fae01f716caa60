// SPDX-License-Identifier: MIT
// What the C interface refuses, and what it tells.
#include "tests/mosaic/memory_host.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

constexpr PanovalMosaicPicture kPicture = {.x = 0,
                                           .y = 0,
                                           .width = 40,
                                           .height = 30,
                                           .channels = 3,
                                           .bits = 8,
                                           .has_mask = 0,
                                           .has_keep = 0,
                                           .random_access = 0,
                                           .reserved = {},
                                           .name = nullptr};

TEST(Interface, HasTheHeadersVersion)
{
    EXPECT_EQ(panoval_mosaic_version(),
              PANOVAL_MOSAIC_VERSION_MAJOR * 10000 + PANOVAL_MOSAIC_VERSION_MINOR * 100 + PANOVAL_MOSAIC_VERSION_PATCH);
}

TEST(Interface, TheReachFollowsFromTheBands)
{
    EXPECT_EQ(panoval_mosaic_reach(0), 0);
    EXPECT_EQ(panoval_mosaic_reach(1), 5);
    EXPECT_EQ(panoval_mosaic_reach(5), 155);
    EXPECT_EQ(panoval_mosaic_reach(-7), 0);
    EXPECT_EQ(panoval_mosaic_reach(31), panoval_mosaic_reach(PANOVAL_MOSAIC_MOST_BANDS));
}

TEST(Interface, NullIsNeverFollowed)
{
    EXPECT_EQ(panoval_mosaic_create(nullptr), PANOVAL_MOSAIC_ARGUMENT);
    panoval_mosaic_destroy(nullptr);
    EXPECT_EQ(panoval_mosaic_error(nullptr, nullptr, 10), 0u);
    EXPECT_EQ(panoval_mosaic_layout(nullptr, nullptr), PANOVAL_MOSAIC_ARGUMENT);
    EXPECT_EQ(panoval_mosaic_counts(nullptr, nullptr), PANOVAL_MOSAIC_ARGUMENT);
    Mosaic mosaic;
    EXPECT_EQ(panoval_mosaic_add_picture(mosaic.get(), &kPicture), PANOVAL_MOSAIC_OK);
    const std::vector<std::int32_t> codes = {
        panoval_mosaic_set_options(mosaic.get(), nullptr),
        panoval_mosaic_set_host(mosaic.get(), nullptr),
        panoval_mosaic_add_picture(mosaic.get(), nullptr),
        panoval_mosaic_layout(mosaic.get(), nullptr),
        panoval_mosaic_picture(mosaic.get(), 0, nullptr),
        panoval_mosaic_overlap(mosaic.get(), 0, nullptr),
        panoval_mosaic_estimate(mosaic.get(), nullptr),
        panoval_mosaic_needs(mosaic.get(), nullptr),
        panoval_mosaic_save_plan(mosaic.get(), nullptr, nullptr),
        panoval_mosaic_load_plan(mosaic.get(), nullptr, 0),
        panoval_mosaic_gains(mosaic.get(), 0, nullptr, nullptr, nullptr, nullptr),
        panoval_mosaic_set_gains(mosaic.get(), nullptr, 1, nullptr),
        panoval_mosaic_seam_row(mosaic.get(), 0, nullptr),
        panoval_mosaic_set_seam_rows(mosaic.get(), 0, 1, nullptr, 0),
        panoval_mosaic_verdict(mosaic.get(), 0, nullptr, nullptr),
        panoval_mosaic_tile(mosaic.get(), 0, nullptr),
        panoval_mosaic_blend(mosaic.get(), nullptr, nullptr, 0, nullptr, 0),
        panoval_mosaic_run(mosaic.get(), nullptr),
        panoval_mosaic_counts(mosaic.get(), nullptr),
    };
    for (std::size_t i = 0; i < codes.size(); ++i)
        EXPECT_EQ(codes[i], PANOVAL_MOSAIC_ARGUMENT) << i;
    EXPECT_EQ(mosaic.error(), "found null as sink; expected a pointer");
}

TEST(Interface, ErrorTextsAreCutToTheBuffer)
{
    Mosaic mosaic;
    EXPECT_EQ(panoval_mosaic_set_host(mosaic.get(), nullptr), PANOVAL_MOSAIC_ARGUMENT);
    char text[6] = "xxxxx";
    EXPECT_EQ(panoval_mosaic_error(mosaic.get(), text, 6),
              std::string("found null as host; expected a pointer").size());
    EXPECT_STREQ(text, "found");
}

template <class Change>
std::string refusal_of_options(const Change& change)
{
    Mosaic mosaic;
    PanovalMosaicOptions options{};
    EXPECT_EQ(panoval_mosaic_set_options(mosaic.get(), &options), PANOVAL_MOSAIC_OK);
    change(options);
    return panoval_mosaic_set_options(mosaic.get(), &options) == PANOVAL_MOSAIC_ARGUMENT ? mosaic.error() : "";
}

TEST(Interface, OptionsOutsideTheirRangesAreNamed)
{
    const auto names = [](const std::string& text, const char* value) { return text.find(value) != std::string::npos; };
    EXPECT_TRUE(names(refusal_of_options([](auto& o) { o.memory = 1000; }), "1000"));
    EXPECT_TRUE(names(refusal_of_options([](auto& o) { o.wrap = -3; }), "-3"));
    EXPECT_TRUE(names(refusal_of_options([](auto& o) { o.wrap = std::int64_t{1} << 31; }), "2147483648"));
    EXPECT_TRUE(names(refusal_of_options([](auto& o) {
                          o.wrap = 300;
                          o.seams = PANOVAL_MOSAIC_SEAMS_NONE;
                      }),
                      "300 without seams"));
    EXPECT_TRUE(names(refusal_of_options([](auto& o) {
                          o.wrap = 300;
                          o.blend = PANOVAL_MOSAIC_FEATHER;
                      }),
                      "300 with feathering"));
    EXPECT_TRUE(names(refusal_of_options([](auto& o) { o.threads = -1; }), "-1"));
    EXPECT_TRUE(names(refusal_of_options([](auto& o) { o.bands = 31; }), "31"));
    EXPECT_TRUE(names(refusal_of_options([](auto& o) { o.blend = 2; }), "2"));
    EXPECT_TRUE(names(refusal_of_options([](auto& o) { o.seams = -7; }), "-7"));
    EXPECT_TRUE(names(refusal_of_options([](auto& o) { o.gains = 4; }), "4"));
    EXPECT_TRUE(names(refusal_of_options([](auto& o) { o.vignetting = 5; }), "5"));
    EXPECT_TRUE(names(refusal_of_options([](auto& o) { o.anchor = -2; }), "-2"));
    EXPECT_TRUE(names(refusal_of_options([](auto& o) { o.tile_size = 15; }), "15"));
    EXPECT_TRUE(names(refusal_of_options([](auto& o) { o.output_bits = 12; }), "12"));
    EXPECT_TRUE(names(refusal_of_options([](auto& o) { o.reserved[10] = 99; }), "99"));
}

template <class Change>
std::string refusal_of_picture(const Change& change)
{
    Mosaic mosaic;
    PanovalMosaicPicture picture = kPicture;
    EXPECT_EQ(panoval_mosaic_add_picture(mosaic.get(), &picture), PANOVAL_MOSAIC_OK);
    change(picture);
    if (panoval_mosaic_add_picture(mosaic.get(), &picture) == PANOVAL_MOSAIC_ARGUMENT)
        return mosaic.error();
    PanovalMosaicLayout layout{};
    return panoval_mosaic_layout(mosaic.get(), &layout) == PANOVAL_MOSAIC_ARGUMENT ? mosaic.error() : "";
}

TEST(Interface, PicturesThatCannotBeAreNamed)
{
    const auto names = [](const std::string& text) { return text.find("picture 1") != std::string::npos; };
    EXPECT_TRUE(names(refusal_of_picture([](auto& p) { p.width = 0; })));
    EXPECT_TRUE(names(refusal_of_picture([](auto& p) { p.height = -1; })));
    EXPECT_TRUE(names(refusal_of_picture([](auto& p) { p.channels = 2; })));
    EXPECT_TRUE(names(refusal_of_picture([](auto& p) { p.channels = 4; }))) << "the first one has 3";
    EXPECT_TRUE(names(refusal_of_picture([](auto& p) { p.bits = 16; }))) << "the first one has 8";
    EXPECT_TRUE(names(refusal_of_picture([](auto& p) { p.x = std::int64_t{1} << 41; })));
    EXPECT_NE(refusal_of_picture([](auto& p) { p.x = 1000000000000; }), "") << "a canvas that is too wide";
    EXPECT_NE(refusal_of_picture([](auto& p) { p.has_mask = 7; }), "");
    EXPECT_NE(refusal_of_picture([](auto& p) { p.reserved[0] = 7; }), "");
}

TEST(Interface, TellsLayoutPicturesAndOverlaps)
{
    Mosaic mosaic;
    PanovalMosaicPicture picture = kPicture;
    picture.x = -10;
    picture.y = 5;
    picture.name = "left";
    ASSERT_EQ(panoval_mosaic_add_picture(mosaic.get(), &picture), PANOVAL_MOSAIC_OK);
    picture.x = 25;
    picture.y = 0;
    picture.name = nullptr;
    ASSERT_EQ(panoval_mosaic_add_picture(mosaic.get(), &picture), PANOVAL_MOSAIC_OK);
    const PanovalMosaicLayout layout = mosaic.layout();
    EXPECT_EQ(layout.width, 75);
    EXPECT_EQ(layout.height, 35);
    EXPECT_EQ(layout.origin_x, -10);
    EXPECT_EQ(layout.origin_y, 0);
    EXPECT_EQ(layout.pictures, 2);
    EXPECT_EQ(layout.overlaps, 1);
    EXPECT_EQ(layout.bits, 8);
    PanovalMosaicPicture told{};
    ASSERT_EQ(panoval_mosaic_picture(mosaic.get(), 1, &told), PANOVAL_MOSAIC_OK);
    EXPECT_STREQ(told.name, "picture 1");
    EXPECT_EQ(told.x, 25);
    EXPECT_EQ(panoval_mosaic_picture(mosaic.get(), 2, &told), PANOVAL_MOSAIC_ARGUMENT);
    PanovalMosaicOverlap overlap{};
    ASSERT_EQ(panoval_mosaic_overlap(mosaic.get(), 0, &overlap), PANOVAL_MOSAIC_OK);
    EXPECT_EQ(overlap.region.x, 35);
    EXPECT_EQ(overlap.region.y, 5);
    EXPECT_EQ(overlap.region.width, 5);
    EXPECT_EQ(overlap.region.height, 25);
    EXPECT_EQ(overlap.first_x, 35);
    EXPECT_EQ(overlap.second_y, 5);
    EXPECT_EQ(panoval_mosaic_overlap(mosaic.get(), 1, &overlap), PANOVAL_MOSAIC_ARGUMENT);
    EXPECT_EQ(panoval_mosaic_add_picture(mosaic.get(), &kPicture), PANOVAL_MOSAIC_ARGUMENT) << "the plan is made";
}

TEST(Interface, TellsHowPicturesAreGivenAndWhatIsWritten)
{
    Mosaic mosaic;
    PanovalMosaicOptions options{};
    options.output_bits = 16;
    ASSERT_EQ(panoval_mosaic_set_options(mosaic.get(), &options), PANOVAL_MOSAIC_OK);
    for (const int given : {0, 1, 2, 3}) {
        PanovalMosaicPicture picture = kPicture;
        picture.has_mask = given == 1 ? 1 : 0;
        picture.has_keep = given == 2 ? 1 : 0;
        picture.random_access = given == 3 ? 1 : 0;
        ASSERT_EQ(panoval_mosaic_add_picture(mosaic.get(), &picture), PANOVAL_MOSAIC_OK);
    }
    for (const int given : {0, 1, 2, 3}) {
        PanovalMosaicPicture told{};
        ASSERT_EQ(panoval_mosaic_picture(mosaic.get(), given, &told), PANOVAL_MOSAIC_OK);
        EXPECT_EQ(told.has_mask, given == 1 ? 1 : 0);
        EXPECT_EQ(told.has_keep, given == 2 ? 1 : 0);
        EXPECT_EQ(told.random_access, given == 3 ? 1 : 0);
        EXPECT_EQ(told.bits, 8);
    }
    EXPECT_EQ(mosaic.layout().bits, 16);
}

// Statistics of three pictures in a row of which the last one shows nothing.
TEST(Interface, TellsWhichPicturesDoNotFit)
{
    Mosaic mosaic;
    for (const std::int64_t x : {0, 30, 60}) {
        PanovalMosaicPicture picture = kPicture;
        picture.x = x;
        ASSERT_EQ(panoval_mosaic_add_picture(mosaic.get(), &picture), PANOVAL_MOSAIC_OK);
    }
    std::vector<PanovalMosaicStatistics> statistics(2);
    for (PanovalMosaicStatistics& overlap : statistics) {
        overlap.pixels = 300;
        overlap.says = PANOVAL_MOSAIC_SAYS_AGREE;
        overlap.all = overlap.seen = {0, 0.01, 1, 0};
    }
    statistics[1].says = PANOVAL_MOSAIC_SAYS_SECOND_BLANK;
    ASSERT_EQ(panoval_mosaic_set_statistics(mosaic.get(), statistics.data(), 2, nullptr), PANOVAL_MOSAIC_OK);
    for (const std::int64_t i : {0, 1, 2}) {
        double gains[4];
        std::int32_t per_channel = 7;
        std::int32_t is_outlier = 7;
        ASSERT_EQ(panoval_mosaic_gains(mosaic.get(), i, gains, nullptr, &per_channel, &is_outlier), PANOVAL_MOSAIC_OK);
        EXPECT_EQ(per_channel, 0);
        EXPECT_EQ(is_outlier, i == 2 ? 1 : 0);
    }
}

TEST(Interface, CallsOutOfOrderAreNamed)
{
    Mosaic mosaic;
    PanovalMosaicLayout layout{};
    EXPECT_EQ(panoval_mosaic_layout(mosaic.get(), &layout), PANOVAL_MOSAIC_ARGUMENT);
    EXPECT_EQ(mosaic.error(), "there are no pictures; expected one or more");
    ASSERT_EQ(panoval_mosaic_add_picture(mosaic.get(), &kPicture), PANOVAL_MOSAIC_OK);
    EXPECT_EQ(panoval_mosaic_measure(mosaic.get(), PANOVAL_MOSAIC_MEASURE_ALL), PANOVAL_MOSAIC_ARGUMENT);
    EXPECT_NE(mosaic.error().find("host"), std::string::npos);
    EXPECT_EQ(panoval_mosaic_measure(mosaic.get(), 0), PANOVAL_MOSAIC_ARGUMENT);
    EXPECT_EQ(panoval_mosaic_measure(mosaic.get(), 8), PANOVAL_MOSAIC_ARGUMENT);
    double gains[4];
    EXPECT_EQ(panoval_mosaic_gains(mosaic.get(), 0, gains, nullptr, nullptr, nullptr), PANOVAL_MOSAIC_ARGUMENT);
    const char* text = nullptr;
    EXPECT_EQ(panoval_mosaic_verdict(mosaic.get(), 0, &text, nullptr), PANOVAL_MOSAIC_ARGUMENT);
    std::vector<std::int32_t> labels(40);
    EXPECT_EQ(panoval_mosaic_seam_row(mosaic.get(), 0, labels.data()), PANOVAL_MOSAIC_ARGUMENT);
    std::vector<std::uint8_t> samples(3600);
    PanovalMosaicRect rect = {0, 0, 40, 30};
    EXPECT_EQ(panoval_mosaic_blend(mosaic.get(), &rect, samples.data(), 120, nullptr, 0), PANOVAL_MOSAIC_ARGUMENT);
    EXPECT_EQ(panoval_mosaic_blend(mosaic.get(), &rect, samples.data(), 119, nullptr, 0), PANOVAL_MOSAIC_ARGUMENT);
    rect.x = 1;
    EXPECT_EQ(panoval_mosaic_blend(mosaic.get(), &rect, samples.data(), 120, nullptr, 0), PANOVAL_MOSAIC_ARGUMENT);
    EXPECT_NE(mosaic.error().find("rectangle"), std::string::npos);
    EXPECT_EQ(panoval_mosaic_load_plan(mosaic.get(), "{}", 2), PANOVAL_MOSAIC_ARGUMENT) << "there is a picture";
}

TEST(Interface, GainsAreCheckedAndTold)
{
    Mosaic mosaic;
    ASSERT_EQ(panoval_mosaic_add_picture(mosaic.get(), &kPicture), PANOVAL_MOSAIC_OK);
    double gains[4] = {1.5, 1.25, 0.75, 1};
    double falloff[3] = {-0.25, 0.5, 0};
    EXPECT_EQ(panoval_mosaic_set_gains(mosaic.get(), gains, 2, falloff), PANOVAL_MOSAIC_ARGUMENT);
    ASSERT_EQ(panoval_mosaic_set_gains(mosaic.get(), gains, 1, falloff), PANOVAL_MOSAIC_OK);
    double told[4] = {};
    double told_falloff[3] = {};
    std::int32_t per_channel = 0;
    std::int32_t is_outlier = 7;
    ASSERT_EQ(panoval_mosaic_gains(mosaic.get(), 0, told, told_falloff, &per_channel, &is_outlier), PANOVAL_MOSAIC_OK);
    EXPECT_EQ(told[1], 1.25);
    EXPECT_EQ(told_falloff[1], 0.5);
    EXPECT_EQ(per_channel, 1);
    EXPECT_EQ(is_outlier, 0);
    gains[2] = 0;
    EXPECT_EQ(panoval_mosaic_set_gains(mosaic.get(), gains, 1, falloff), PANOVAL_MOSAIC_ARGUMENT);
    EXPECT_NE(mosaic.error().find("picture 0"), std::string::npos) << mosaic.error();
}

TEST(Interface, ThreadsAndMemoryMayChangeWithAPlan)
{
    Mosaic mosaic;
    ASSERT_EQ(panoval_mosaic_add_picture(mosaic.get(), &kPicture), PANOVAL_MOSAIC_OK);
    const PanovalMosaicLayout before = mosaic.layout();
    PanovalMosaicOptions options{};
    options.threads = 1;
    options.memory = 100 << 20;
    options.output_bits = 16;
    EXPECT_EQ(panoval_mosaic_set_options(mosaic.get(), &options), PANOVAL_MOSAIC_OK);
    EXPECT_EQ(mosaic.layout().bits, before.bits) << "belongs to the plan";
    PanovalMosaicEstimate estimate{};
    ASSERT_EQ(panoval_mosaic_estimate(mosaic.get(), &estimate), PANOVAL_MOSAIC_OK);
    EXPECT_EQ(estimate.panorama_bytes, 3600u);
    EXPECT_EQ(estimate.threads, 1);
    EXPECT_LE(estimate.memory, options.memory);
}

} // namespace

} // namespace panoval::mosaic::test
