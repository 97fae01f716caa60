// SPDX-License-Identifier: MIT
#include "measure/picture.h"
#include "panoval_measure.h"
#include "panoval_version.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace
{

TEST(Version, IsTheHeaders)
{
    EXPECT_EQ(panoval_measure_version(), PANOVAL_MEASURE_VERSION_MAJOR * 10000 + PANOVAL_MEASURE_VERSION_MINOR * 100 +
                                             PANOVAL_MEASURE_VERSION_PATCH);
}

TEST(Version, IsThatOfAllLibraries)
{
    EXPECT_EQ(panoval_version(), PANOVAL_VERSION_NUMBER);
}

TEST(ErrorText, IsAnotherForEveryCode)
{
    std::set<std::string> texts;
    for (int code = PANOVAL_MEASURE_OK; code <= PANOVAL_MEASURE_NO_GRID; ++code)
        texts.insert(panoval_measure_error_text(code));
    EXPECT_EQ(texts.size(), 17u);
    EXPECT_EQ(texts.count("unknown code"), 0u);
    for (const int code : {-1, PANOVAL_MEASURE_NO_GRID + 1, 1 << 30})
        EXPECT_STREQ(panoval_measure_error_text(code), "unknown code");
}

TEST(CheckImage, NamesWhatIsWrong)
{
    const unsigned char byte = 7;
    const PanovalMeasureImage good = {&byte, 1, 1, 1, PANOVAL_MEASURE_U8, 0};
    EXPECT_EQ(panoval::measure::check_image(&good), PANOVAL_MEASURE_OK);
    EXPECT_EQ(panoval::measure::check_image(nullptr), PANOVAL_MEASURE_NULL_ARGUMENT);
    const auto code_of = [&](auto change) {
        PanovalMeasureImage image = good;
        change(image);
        return panoval::measure::check_image(&image);
    };
    EXPECT_EQ(code_of([](auto& i) { i.data = nullptr; }), PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(code_of([](auto& i) { i.width = 0; }), PANOVAL_MEASURE_BAD_IMAGE);
    EXPECT_EQ(code_of([](auto& i) { i.height = -1; }), PANOVAL_MEASURE_BAD_IMAGE);
    EXPECT_EQ(code_of([](auto& i) { i.stride = 0; }), PANOVAL_MEASURE_BAD_IMAGE);
    EXPECT_EQ(code_of([](auto& i) { i.sample_type = 0; }), PANOVAL_MEASURE_BAD_SAMPLE_TYPE);
    EXPECT_EQ(code_of([](auto& i) { i.sample_type = 4; }), PANOVAL_MEASURE_BAD_SAMPLE_TYPE);
    EXPECT_EQ(code_of([](auto& i) { i.sample_type = PANOVAL_MEASURE_U16; }), PANOVAL_MEASURE_BAD_IMAGE) << "stride";
}

template <class Sample>
std::vector<double> second_row(std::int32_t type, const std::vector<Sample>& samples)
{
    // One byte in front: the samples lie at odd addresses.
    std::vector<unsigned char> bytes(1 + samples.size() * sizeof(Sample));
    std::memcpy(bytes.data() + 1, samples.data(), samples.size() * sizeof(Sample));
    const PanovalMeasureImage image = {bytes.data() + 1, 3, 2, static_cast<std::int64_t>(4 * sizeof(Sample)), type, 0};
    std::vector<double> read(2);
    panoval::measure::read_samples(image, 1, 1, 2, read.data());
    return read;
}

TEST(ReadSamples, ReadsEveryTypeAtAnyAddress)
{
    using Row = std::vector<double>;
    EXPECT_EQ(second_row<std::uint8_t>(PANOVAL_MEASURE_U8, {0, 1, 2, 99, 3, 4, 255}), (Row{4, 255}));
    EXPECT_EQ(second_row<std::uint16_t>(PANOVAL_MEASURE_U16, {0, 1, 2, 99, 3, 40000, 65535}), (Row{40000, 65535}));
    EXPECT_EQ(second_row<float>(PANOVAL_MEASURE_F32, {0, 1, 2, 99, 3, 0.25f, -7.5f}), (Row{0.25, -7.5}));
}

} // namespace
