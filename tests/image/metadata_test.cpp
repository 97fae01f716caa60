// SPDX-License-Identifier: MIT
#include "image/metadata.h"

#include "image/exif.h"

#include <gtest/gtest.h>

#include <vector>

namespace panoval::image::test
{

namespace
{

Metadata shot(std::uint8_t profile, std::uint32_t exposure)
{
    Metadata metadata;
    metadata.profile = {profile};
    metadata.exif.model = "Model";
    metadata.exif.exposure_seconds = Rational{1, exposure};
    metadata.resolution = Resolution{72, 72};
    return metadata;
}

TEST(CommonMetadata, IsWhatAllPicturesAgreeIn)
{
    CommonMetadata common;
    common.add(shot(1, 100), "a");
    EXPECT_EQ(common.common(), shot(1, 100));
    common.add(shot(1, 200), "b");
    Metadata expected = shot(1, 100);
    expected.exif.exposure_seconds.reset();
    EXPECT_EQ(common.common(), expected);
    EXPECT_EQ(common.disagreement(), "");
    common.add(shot(1, 100), "c");
    EXPECT_EQ(common.common(), expected) << "what differed once stays away";
}

TEST(CommonMetadata, SaysWhichProfilesDiffer)
{
    CommonMetadata common;
    common.add(shot(1, 100), "a");
    common.add(shot(2, 100), "b");
    EXPECT_TRUE(common.common().profile.empty());
    EXPECT_EQ(common.disagreement(), "b: found another colour profile than in a; the panorama gets none");
}

TEST(CommonMetadata, OfNoPictureIsEmpty)
{
    EXPECT_EQ(CommonMetadata().common(), Metadata());
}

TEST(Exif, SurvivesItsBlock)
{
    const Exif exif = {"Maker", "M", "2001:01:01 00:00:00", Rational{1, 60}, Rational{56, 10}, 800};
    const std::vector<std::uint8_t> block = make_exif(exif);
    EXPECT_EQ(parse_exif(block.data(), block.size()).exif, exif);
    const std::vector<std::uint8_t> empty = make_exif({});
    EXPECT_TRUE(parse_exif(empty.data(), empty.size()).exif.is_empty());
    for (std::size_t size = 0; size < block.size(); ++size) { // cut anywhere
        const std::vector<std::uint8_t> part(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_LE(parse_exif(part.data(), part.size()).exif.make.size(), 5u);
    }
}

} // namespace

} // namespace panoval::image::test
