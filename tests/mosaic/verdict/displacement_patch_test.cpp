// SPDX-License-Identifier: MIT
#include "mosaic/verdict/displacement_patch.h"

#include "tests/mosaic/mosaic_scene.h"

#include <gtest/gtest.h>

#include <cmath>

namespace panoval::mosaic::test
{

namespace
{

// Brightness of all of a picture.
Patch patch_of(const MemoryPicture& picture, const Corrections* corrections = nullptr)
{
    MemoryReader reader(picture.width, picture.height);
    reader.add(0, 0, picture);
    const Corrections none = Corrections::none(reader.layout);
    return read_brightness({reader.layout, corrections != nullptr ? *corrections : none, reader}, 0,
                           {0, 0, picture.width, picture.height});
}

MemoryPicture noise_picture(std::int64_t width, std::int64_t height, double deviation)
{
    MemoryPicture picture = MemoryPicture::blank(width, height, 1, 16);
    Random random = seeded(5);
    for (std::uint16_t& sample : picture.samples)
        sample = static_cast<std::uint16_t>(257 * (120 + deviation * scene_detail::normal(random)));
    return picture;
}

TEST(ReadBrightness, IsInLevelsOf255AndMostlyGreen)
{
    MemoryPicture picture = MemoryPicture::blank(2, 1, 3, 16);
    picture.at(1, 0, 0) = 4 * 257;
    picture.at(1, 0, 1) = 100 * 257;
    picture.at(1, 0, 2) = 8 * 257;
    EXPECT_EQ(patch_of(picture).value, (std::vector<float>{0, 53}));
    MemoryPicture grey = MemoryPicture::blank(2, 1, 1, 8);
    grey.at(0, 0) = 77;
    EXPECT_EQ(patch_of(grey).value, (std::vector<float>{77, 0}));
}

TEST(ReadBrightness, IsCorrected)
{
    MemoryPicture grey = MemoryPicture::blank(2, 1, 1, 8);
    grey.at(0, 0) = 40;
    MemoryReader reader(2, 1);
    reader.add(0, 0, grey);
    Corrections corrections = Corrections::none(reader.layout);
    corrections.gains[0].fill(1.5);
    EXPECT_EQ(patch_of(grey, &corrections).value, (std::vector<float>{60, 0}));
}

TEST(ReadBrightness, IsNotKnownWhereThePictureCoversNothing)
{
    MemoryPicture picture = MemoryPicture::blank(3, 1, 1, 8);
    std::fill(picture.samples.begin(), picture.samples.end(), std::uint16_t{9});
    picture.mask = {255, 0, 1};
    const Patch patch = patch_of(picture);
    EXPECT_EQ(patch.known, (std::vector<std::uint8_t>{1, 0, 1}));
    EXPECT_EQ(patch.value, (std::vector<float>{9, 0, 9}));
}

TEST(ReadBrightness, MeasuresTheNoiseOfCalmPlaces)
{
    MemoryPicture picture = noise_picture(130, 130, 3);
    EXPECT_NEAR(patch_of(picture).noise, 9, 1.5);
    for (std::int64_t y = 0; y < 60; ++y) // texture that is no noise, on almost half of it
        for (std::int64_t x = 0; x < 130; ++x)
            picture.at(x, y) = static_cast<std::uint16_t>(257 * (60 + 120 * ((x * 7 + y * 13) % 5 / 2)));
    EXPECT_NEAR(patch_of(picture).noise, 9, 2.5);
}

TEST(ReadBrightness, MeasuresNoiseWhereAllOfAWindowIsKnown)
{
    MemoryPicture picture = noise_picture(50, 34, 3); // 6 x 4 windows
    picture.mask.assign(picture.samples.size(), 255);
    for (std::int64_t x = 0; x < 50; ++x) // a row in each window of the lower half
        picture.mask[static_cast<std::size_t>(20 * 50 + x)] = picture.mask[static_cast<std::size_t>(30 * 50 + x)] = 0;
    EXPECT_EQ(patch_of(picture).noise, patch_of(noise_picture(50, 18, 3)).noise);
    EXPECT_NE(patch_of(picture).noise, patch_of(noise_picture(50, 34, 3)).noise);
    std::fill(picture.mask.begin(), picture.mask.end(), std::uint8_t{0});
    EXPECT_EQ(patch_of(picture).noise, 0);
}

TEST(ReadBrightness, KnowsNoNoiseOfWhatIsSmallerThanAWindow)
{
    EXPECT_EQ(patch_of(noise_picture(9, 40, 3)).noise, 0);
    EXPECT_EQ(patch_of(noise_picture(40, 9, 3)).noise, 0);
    EXPECT_GT(patch_of(noise_picture(10, 10, 3)).noise, 0);
}

// A patch that is all known, of value_at(x, y).
template <class ValueAt>
Patch made_patch(std::int64_t width, std::int64_t height, const ValueAt& value_at)
{
    Patch patch;
    patch.rect = {0, 0, width, height};
    for (std::int64_t y = 0; y < height; ++y)
        for (std::int64_t x = 0; x < width; ++x)
            patch.value.push_back(static_cast<float>(value_at(x, y)));
    patch.known.assign(patch.value.size(), 1);
    return patch;
}

TEST(PreparePatch, LeavesNothingOfOneValueNorOfASlopeInTheMiddle)
{
    Patch patch = made_patch(21, 21, [](std::int64_t x, std::int64_t y) { return 50 + 2 * x + 4 * y; });
    prepare_patch(patch, 4, patch.rect);
    EXPECT_EQ(patch.known[0], 0) << "no neighbours to smooth it with";
    EXPECT_EQ(patch.value[0], 0);
    const std::size_t middle = 10 * 21 + 10;
    EXPECT_EQ(patch.known[middle], 1);
    EXPECT_EQ(patch.smoothed[middle], 110);
    EXPECT_EQ(patch.value[middle], 0);
    // of row 1 the window reaches from row 1 to row 5
    EXPECT_EQ(patch.value[21 + 10], -8);
}

TEST(PreparePatch, CountsForSlowChangesWhatLiesInTheArea)
{
    const auto edge = [](std::int64_t x, std::int64_t) { return x < 12 ? 10.0 : 90.0; };
    Patch all = made_patch(24, 24, edge);
    prepare_patch(all, 6, all.rect);
    Patch left = made_patch(24, 24, edge);
    prepare_patch(left, 6, {-5, 0, 15, 24});
    const std::size_t place = 12 * 24 + 8;
    EXPECT_LT(all.value[place], -10) << "brighter ones are near";
    EXPECT_EQ(left.value[place], 0) << "of columns 2 to 9";
    EXPECT_EQ(left.known[12 * 24 + 20], 0) << "nothing of the area is near";
}

// Rows of windows alike give the same sums, whether they are added up again or not.
TEST(PreparePatch, AgainLeavesOutWhatHasBecomeUnknown)
{
    const auto thing = [](std::int64_t x, std::int64_t y) { return x > 8 && x < 14 && y > 8 && y < 14 ? 200.0 : 40.0; };
    Patch patch = made_patch(30, 30, thing);
    prepare_patch(patch, 8, patch.rect);
    EXPECT_LT(patch.value[11 * 30 + 5], -5);
    for (std::size_t y = 7; y < 16; ++y)
        std::fill_n(patch.known.begin() + static_cast<std::ptrdiff_t>(y * 30 + 7), 9, std::uint8_t{0});
    prepare_again(patch, 8);
    EXPECT_EQ(patch.value[11 * 30 + 5], 0);
    EXPECT_EQ(patch.value[11 * 30 + 11], 0) << "not known";
    EXPECT_EQ(patch.known[11 * 30 + 5], 1);
}

TEST(SeenBeyondNoise, IsTheCovarianceOfPixelsThatNoiseDoesNotReach)
{
    Patch noise = patch_of(noise_picture(200, 200, 3));
    prepare_patch(noise, 16, noise.rect);
    EXPECT_LT(seen_beyond_noise(noise), 0.05);
    Patch waves = made_patch(200, 200, [](std::int64_t x, std::int64_t y) {
        return 10 * std::sin(0.2 * static_cast<double>(x)) + 10 * std::sin(0.2 * static_cast<double>(y));
    });
    // of 50 + 50 the wave across goes with itself by the cosine of 0.6 three pixels farther right, and wholly below
    EXPECT_NEAR(seen_beyond_noise(waves), 50 + 50 * std::cos(0.6), 3);
    std::fill(waves.known.begin(), waves.known.end(), std::uint8_t{0});
    EXPECT_EQ(seen_beyond_noise(waves), 0);
}

TEST(ShowsCoding, OfSquaresOfEightAlone)
{
    const auto squares_of = [](std::int64_t side) {
        return made_patch(96, 80, [side](std::int64_t x, std::int64_t y) {
            return static_cast<double>((x / side * 5 + y / side * 3) % 7);
        });
    };
    EXPECT_TRUE(shows_coding(squares_of(8)));
    EXPECT_FALSE(shows_coding(squares_of(5)));
    EXPECT_FALSE(shows_coding(squares_of(7)));
    EXPECT_TRUE(shows_coding(made_patch(96, 80, [](std::int64_t x, std::int64_t) { return (x / 8) % 3; })));
    EXPECT_TRUE(shows_coding(made_patch(96, 80, [](std::int64_t, std::int64_t y) { return (y / 8) % 3; })));
    EXPECT_FALSE(shows_coding(patch_of(noise_picture(96, 80, 3))));
    Patch unknown = squares_of(8);
    std::fill(unknown.known.begin(), unknown.known.end(), std::uint8_t{0});
    EXPECT_FALSE(shows_coding(unknown));
}

// One star changes much in a line or two, wherever those lie.
TEST(ShowsCoding, IsNotMisledByAStar)
{
    Patch star = patch_of(noise_picture(96, 80, 1));
    EXPECT_FALSE(shows_coding(star));
    star.value[40 * 96 + 40] += 200;
    EXPECT_FALSE(shows_coding(star));
}

} // namespace

} // namespace panoval::mosaic::test
