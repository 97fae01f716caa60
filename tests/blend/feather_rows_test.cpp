// SPDX-License-Identifier: MIT
#include "blend/feather_rows.h"

#include "tests/reference/feather_blender.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/tails.h"
#include "tests/support/targets.h"

#include <cmath>
#include <limits>
#include <vector>

namespace panoval::test
{

namespace
{

TEST(FeatherRows, RampsGrowToOne)
{
    for_each_target([] {
        for_each_tail([](std::size_t offset, std::size_t count) {
            auto weights = noise<float>(offset + count + 8, 0.f, 80.f, count);
            auto expected = weights;
            for (std::size_t i = offset; i < offset + count; ++i)
                expected[i] = expected[i] * 0.02f > 1.f ? 1.f : expected[i] * 0.02f;
            ramp_row(weights.data() + offset, count, 0.02f);
            EXPECT_TRUE(same_bits(weights, expected));
        });
    });
}

template <class Sample>
void compare_weighted(std::size_t channels)
{
    for_each_tail([&](std::size_t offset, std::size_t count) {
        const auto samples = noise<Sample>(count * channels, 0, std::numeric_limits<Sample>::max(), count);
        auto weights = noise<float>(offset + count, 0.f, 1.f, 1);
        for (std::size_t i = 0; i < weights.size() / 2; ++i)
            weights[i] = 0; // whole vectors of it, too
        auto sums = noise<float>(count * channels + 8, 0.f, 900.f, 2);
        auto weight_sums = noise<float>(count + 8, 0.f, 2.f, 3);
        auto expected_sums = sums;
        auto expected_weight_sums = weight_sums;
        for (std::size_t i = 0; i < count; ++i) {
            for (std::size_t c = 0; c < channels; ++c)
                expected_sums[i * channels + c] += static_cast<float>(samples[i * channels + c]) * weights[offset + i];
            expected_weight_sums[i] += weights[offset + i];
        }
        add_weighted_row(samples.data(), weights.data() + offset, sums.data(), weight_sums.data(), count, channels);
        EXPECT_TRUE(same_bits(sums, expected_sums)) << channels << " channels";
        EXPECT_TRUE(same_bits(weight_sums, expected_weight_sums)) << channels << " channels";
    });
}

template <class Sample>
Sample mean_as_defined(float sum, float weight)
{
    const float mean = std::floor(sum / (weight + 1e-5f) + 0.5f);
    const auto bits = static_cast<std::uint32_t>(reference::feather_sample(mean));
    return weight > 1e-5f ? static_cast<Sample>(bits) : Sample{0};
}

template <class Sample>
void compare_means(std::size_t channels)
{
    for_each_tail([&](std::size_t offset, std::size_t count) {
        auto sums = noise<float>((offset + count) * channels, -300.f, 99000.f, count);
        const auto weights = noise<float>(offset + count, -0.2f, 1.5f, 4);
        if (!sums.empty())
            sums.back() = 5e9f; // more than 32 bits hold
        std::vector<Sample> actual(count * channels + 8, 7);
        auto expected = actual;
        const float* const own = sums.data() + offset * channels;
        for (std::size_t i = 0; i < count * channels; ++i)
            expected[i] = mean_as_defined<Sample>(own[i], weights[offset + i / channels]);
        store_means_row(own, weights.data() + offset, actual.data(), count, channels);
        EXPECT_TRUE(same_bits(actual, expected)) << channels << " channels";
    });
}

TEST(FeatherRows, WeightedSumsEqualTheirTwin)
{
    for_each_target([] {
        for (const std::size_t channels : {1u, 2u, 3u, 4u}) {
            compare_weighted<std::uint8_t>(channels);
            compare_weighted<std::uint16_t>(channels);
        }
    });
}

template <class Sample>
void compare_extreme_means(float weight)
{
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr float kMost = std::numeric_limits<float>::max();
    const std::vector<float> sums = {0.f,       -0.f,    0.5f,      -0.5f,        0.49999997f, 8388607.5f,
                                     8388609.f, 1e10f,   -1e10f,    2147483648.f, kMost,       -kMost,
                                     1e-40f,    -1e-40f, kInfinity, -kInfinity};
    const std::vector<float> weights(sums.size(), weight);
    std::vector<Sample> actual(sums.size(), 7);
    std::vector<Sample> expected;
    for (const float sum : sums)
        expected.push_back(mean_as_defined<Sample>(sum, weight));
    store_means_row(sums.data(), weights.data(), actual.data(), sums.size(), 1);
    EXPECT_EQ(actual, expected) << weight;
}

TEST(FeatherRows, MeansOfExtremeSumsEqualTheirTwin)
{
    for_each_target([] {
        for (const float weight : {0.f, 1e-5f, 2e-5f, 0.02f, 1.f, 1e20f}) {
            compare_extreme_means<std::uint8_t>(weight);
            compare_extreme_means<std::uint16_t>(weight);
        }
    });
}

TEST(FeatherRows, MeansEqualTheirTwin)
{
    for_each_target([] {
        for (const std::size_t channels : {1u, 2u, 3u, 4u}) {
            compare_means<std::uint8_t>(channels);
            compare_means<std::uint16_t>(channels);
        }
    });
}

} // namespace

} // namespace panoval::test
