// SPDX-License-Identifier: MIT
#include "blend/normalize.h"
#include "tests/reference/normalize.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace
{

using namespace panoval::test;

TEST(Normalize, RoundsAnOverlapOf10And13Down)
{
    for_each_target([] {
        float sum = 10.f + 13.f;
        const float weight = 2.f;
        panoval::normalize_row(&sum, &weight, 1, 1);
        EXPECT_EQ(sum, 11.f);
    });
}

TEST(Normalize, RoundsAFullWeightOf255To255AndASmallOneDown)
{
    for_each_target([] {
        std::vector<float> sums = {255.f, 255.f * 0.02f, 51.f * 0.02f};
        const std::vector<float> weight = {1.f, 0.02f, 0.02f};
        panoval::normalize_row(sums.data(), weight.data(), 3, 1);
        EXPECT_EQ(sums, (std::vector<float>{255.f, 255.f, 51.f})); // 5.1 / 0.02001 is 254.87, 1.02 / 0.02001 is 50.97
    });
}

TEST(Normalize, TakesOneOff16BitSamplesAbove50000)
{
    for_each_target([] {
        std::vector<float> sums = {49000.f, 51000.f, 65535.f};
        const std::vector<float> weight = {1.f, 1.f, 1.f};
        panoval::normalize_row(sums.data(), weight.data(), 3, 1);
        EXPECT_EQ(sums, (std::vector<float>{49000.f, 50999.f, 65534.f}));
    });
}

TEST(Normalize, GivesZeroWithoutWeightAndDividesWhatIsThereByTheEpsilon)
{
    for_each_target([] {
        std::vector<float> sums = {0.f, 1.f, -1.f};
        const std::vector<float> weight = {0.f, 0.f, 0.f};
        panoval::normalize_row(sums.data(), weight.data(), 3, 1);
        EXPECT_EQ(sums, (std::vector<float>{0.f, 100000.f, -100000.f}));
    });
}

TEST(Normalize, FloorsNegativeMeansToo)
{
    for_each_target([] {
        std::vector<float> sums = {-0.4f, -0.6f, -7.4f, -7.6f};
        const std::vector<float> weight = {1.f, 1.f, 1.f, 1.f};
        panoval::normalize_row(sums.data(), weight.data(), 4, 1);
        EXPECT_EQ(sums, (std::vector<float>{0.f, -1.f, -7.f, -8.f}));
    });
}

TEST(Normalize, OfNothingDoesNothing)
{
    Matf weight{};
    Matf sums{};
    panoval::normalize_by_weight(weight, sums);
    sums = {5, 0, 3, nullptr};
    panoval::normalize_by_weight(weight, sums);
    sums = {0, 5, 3, nullptr};
    panoval::normalize_by_weight(weight, sums);
    sums = {-3, -5, 1, nullptr};
    panoval::normalize_by_weight(weight, sums);
}

// Sums and weights of every magnitude, exact zeros among the weights.
void expect_equal_to_twin(int width, int height, int channels)
{
    const auto pixels = static_cast<std::size_t>(width * height);
    const auto seed = static_cast<std::uint64_t>(width * 1000 + height * 10 + channels);
    Guarded<float> weights(noise(pixels, -0.5f, 3.f, seed));
    for (std::size_t i = 0; i < pixels; ++i)
        if (weights[i] < 0.f)
            weights[i] = 0.f;
    Guarded<float> actual(noise(pixels * static_cast<std::size_t>(channels), -300.f, 70000.f, seed + 1));
    Guarded<float> expected(actual.values());
    const Matf weight{width, height, 1, weights.data()};
    Matf sums{width, height, channels, actual.data()};
    panoval::normalize_by_weight(weight, sums);
    sums.data = expected.data();
    panoval::reference::normalize_by_weight(&weight, &sums);
    EXPECT_TRUE(same_bits(actual.values(), expected.values())) << width << " x " << height << " x " << channels;
    EXPECT_TRUE(actual.intact() && weights.intact());
}

TEST(Normalize, EqualsItsTwinForEverySmallSizeAndChannelCount)
{
    for_each_target([] {
        for (int channels = 0; channels <= 9; ++channels)
            for (int width = 0; width <= 67; ++width)
                expect_equal_to_twin(width, 1 + width % 3, channels);
        for (int height = 0; height <= 67; ++height)
            expect_equal_to_twin(height % 5, height, 3);
    });
}

TEST(Normalize, EqualsItsTwinForEveryTailAndOffset)
{
    for_each_target([] {
        for (std::size_t offset = 0; offset < 8; ++offset)
            for (std::size_t count = 0; count <= 40; ++count) {
                const auto weight = noise(offset + count, 0.f, 4.f, 1);
                auto actual = noise(offset + 3 * count + 8, 0.f, 1020.f, 2);
                auto expected = actual;
                const Matf map{static_cast<int>(count), 1, 1, const_cast<float*>(weight.data()) + offset};
                Matf sums{static_cast<int>(count), 1, 3, expected.data() + offset};
                panoval::reference::normalize_by_weight(&map, &sums);
                panoval::normalize_row(actual.data() + offset, weight.data() + offset, count, 3);
                EXPECT_TRUE(same_bits(actual, expected)) << "offset " << offset << ", count " << count;
            }
    });
}

TEST(Normalize, EqualsItsTwinForExtremeSums)
{
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr float kMost = std::numeric_limits<float>::max();
    const std::vector<float> extremes = {0.f,       -0.f,    0.5f,      -0.5f,        0.49999997f, 8388607.5f,
                                         8388609.f, 1e10f,   -1e10f,    2147483648.f, kMost,       -kMost,
                                         1e-40f,    -1e-40f, kInfinity, -kInfinity};
    for_each_target([&] {
        for (const float w : {0.f, 1e-5f, 0.02f, 1.f, 1e20f}) {
            auto actual = extremes;
            auto expected = extremes;
            std::vector<float> weight(extremes.size(), w);
            const auto width = static_cast<int>(extremes.size());
            const Matf map{width, 1, 1, weight.data()};
            Matf sums{width, 1, 1, expected.data()};
            panoval::reference::normalize_by_weight(&map, &sums);
            panoval::normalize_row(actual.data(), weight.data(), weight.size(), 1);
            EXPECT_TRUE(same_bits(actual, expected)) << w;
        }
    });
}

} // namespace
