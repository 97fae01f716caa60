// SPDX-License-Identifier: MIT
#include "image/metadata.h"

#include "image/base64.h"
#include "image/exif.h"
#include "image/metadata_json.h"

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

TEST(CommonMetadata, FractionsAgreeInTheirValue)
{
    Metadata first;
    first.exif.f_number = Rational{28, 10};
    Metadata second;
    second.exif.f_number = Rational{2800, 1000};
    CommonMetadata common;
    common.add(first, "a");
    common.add(second, "b");
    EXPECT_EQ(common.common(), first);
    second.exif.f_number = Rational{2801, 1000};
    common.add(second, "c");
    EXPECT_EQ(common.common(), Metadata());
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

TEST(Base64, IsThatOfTheStandard)
{
    const auto bytes = [](std::string_view text) { return std::vector<std::uint8_t>(text.begin(), text.end()); };
    for (const auto& [plain, coded] : {std::pair<const char*, const char*>{"", ""},
                                       {"f", "Zg=="},
                                       {"fo", "Zm8="},
                                       {"foo", "Zm9v"},
                                       {"foob", "Zm9vYg=="},
                                       {"fooba", "Zm9vYmE="},
                                       {"foobar", "Zm9vYmFy"}}) {
        EXPECT_EQ(base64_of(bytes(plain)), coded);
        EXPECT_EQ(bytes_of_base64(coded), bytes(plain));
    }
    for (const char* const text : {"Z", "Zg=", "Z===", "Zg==Zg==", "Zm9 ", "Zm9v\n"})
        EXPECT_EQ(bytes_of_base64(text), std::nullopt) << text;
    std::vector<std::uint8_t> all(256);
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i] = static_cast<std::uint8_t>(255 - i);
    EXPECT_EQ(bytes_of_base64(base64_of(all)), all);
}

TEST(MetadataJson, GivesBackWhatItTook)
{
    Metadata metadata = shot(7, 250);
    metadata.exif = {"Maker", "M", "2001:01:01 00:00:00", Rational{1, 60}, Rational{56, 10}, 800};
    metadata.resolution = Resolution{299.9994, 300};
    const std::string text = json_of(metadata).dump();
    EXPECT_EQ(metadata_of_json(nlohmann::json::parse(text)), metadata);
    EXPECT_EQ(json_of(Metadata()).dump(), "{}");
    EXPECT_EQ(metadata_of_json(nlohmann::json::object()), Metadata());
}

TEST(MetadataJson, HasOnlyWhatIsKnown)
{
    Metadata metadata;
    metadata.exif.model = "M";
    EXPECT_EQ(json_of(metadata).dump(), R"({"exif":{"model":"M"}})");
    metadata.exif = Exif();
    metadata.exif.iso = 100;
    EXPECT_EQ(json_of(metadata).dump(), R"({"exif":{"iso":100}})");
}

TEST(MetadataJson, LeavesOutWhatMakesNoSense)
{
    for (const char* const text :
         {"null", "7", "[]", R"({"profile": 3, "resolution": 72, "exif": []})", R"({"profile": "a"})",
          R"({"resolution": [72, -1]})", R"({"resolution": [1e300, 72]})", R"({"resolution": ["72", 72]})",
          R"({"resolution": [72, "72"]})", R"({"resolution": [72]})",
          R"({"exif": {"make": 1, "iso": -1, "f_number": [1], "exposure_seconds": [1, 4294967296]}})",
          R"({"exif": {"exposure_seconds": [1, 0]}})"})
        EXPECT_EQ(metadata_of_json(nlohmann::json::parse(text)), Metadata()) << text;
}

// Little end first, one directory of these entries.
std::vector<std::uint8_t> exif_block(const std::vector<std::vector<std::uint8_t>>& entries, std::size_t more = 0)
{
    std::vector<std::uint8_t> block = {'I', 'I', 42, 0, 8, 0, 0, 0, static_cast<std::uint8_t>(entries.size()), 0};
    for (const auto& entry : entries)
        block.insert(block.end(), entry.begin(), entry.end());
    block.insert(block.end(), 4 + more, 'y');
    return block;
}

TEST(Exif, TextsOfAnotherTypeOrWithoutEndAreLeftOut)
{
    const std::vector<std::uint8_t> make = {0x0F, 1, 2, 0, 3, 0, 0, 0, 'M', 'a', 0, 0};
    const std::vector<std::uint8_t> number = {0x0F, 1, 3, 0, 1, 0, 0, 0, 'M', 'a', 0, 0};
    const std::vector<std::uint8_t> endless = {0x0F, 1, 2, 0, 0xFF, 0xFF, 0xFF, 0x7F, 20, 0, 0, 0};
    const auto make_of = [](const std::vector<std::uint8_t>& entry) {
        const auto block = exif_block({entry}, 200'000);
        return parse_exif(block.data(), block.size()).exif.make;
    };
    EXPECT_EQ(make_of(make), "Ma");
    EXPECT_EQ(make_of(number), "");
    EXPECT_EQ(make_of(endless), "");
}

TEST(Exif, TheFirstDateCounts)
{
    const std::vector<std::uint8_t> first = {0x32, 1, 2, 0, 2, 0, 0, 0, '1', 0, 0, 0};
    const std::vector<std::uint8_t> second = {0x32, 1, 2, 0, 2, 0, 0, 0, '2', 0, 0, 0};
    const auto block = exif_block({first, second});
    EXPECT_EQ(parse_exif(block.data(), block.size()).exif.date, "1");
}

TEST(Exif, SurvivesItsBlock)
{
    const Exif exif = {"Maker", "M", "2001:01:01 00:00:00", Rational{1, 60}, Rational{56, 10}, 800};
    const std::vector<std::uint8_t> block = make_exif(exif);
    EXPECT_EQ(parse_exif(block.data(), block.size()).exif, exif);
    const Exif odd = {"Five", "Seven..", "", Rational{1, 60}, {}, {}}; // texts of odd lengths, their ends counted
    const std::vector<std::uint8_t> padded = make_exif(odd);
    EXPECT_EQ(parse_exif(padded.data(), padded.size()).exif, odd);
    const std::vector<std::uint8_t> empty = make_exif({});
    EXPECT_TRUE(parse_exif(empty.data(), empty.size()).exif.is_empty());
    for (std::size_t size = 0; size < block.size(); ++size) { // cut anywhere
        const std::vector<std::uint8_t> part(block.begin(), block.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_LE(parse_exif(part.data(), part.size()).exif.make.size(), 5u);
    }
}

} // namespace

} // namespace panoval::image::test
