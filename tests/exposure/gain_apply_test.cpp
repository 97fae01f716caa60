// SPDX-License-Identifier: MIT
#include "exposure/gain_apply.h"

#include "tests/reference/gain_compensator.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/tails.h"
#include "tests/support/targets.h"

#include <limits>

namespace panoval::test
{

namespace
{

template <class Sample>
std::vector<Sample> gained(double gain, std::vector<Sample> samples)
{
    apply_gain(samples.data(), samples.size(), gain);
    return samples;
}

TEST(GainApply, RoundsHalvesUpAndClamps)
{
    for_each_target([] {
        EXPECT_EQ(gained<std::uint8_t>(0.5, {1, 2, 3, 255}), (std::vector<std::uint8_t>{1, 1, 2, 128}));
        EXPECT_EQ(gained<std::uint8_t>(2, {1, 127, 128, 255}), (std::vector<std::uint8_t>{2, 254, 255, 255}));
        EXPECT_EQ(gained<std::uint16_t>(0.5, {1, 2, 3, 65535}), (std::vector<std::uint16_t>{1, 1, 2, 32768}));
        EXPECT_EQ(gained<std::uint16_t>(40000, {0, 1, 2, 53688}), (std::vector<std::uint16_t>{0, 40000, 65535, 0}));
    });
}

template <class Sample>
void compare_with_twin(double gain)
{
    constexpr int kMost = std::numeric_limits<Sample>::max();
    for_each_tail([&](std::size_t offset, std::size_t count) {
        auto samples = noise<Sample>(offset + count + 8, 0, kMost, count);
        auto expected = samples;
        for (std::size_t i = offset; i < offset + count; ++i)
            expected[i] = static_cast<Sample>(reference::gained_sample(samples[i], gain, kMost));
        apply_gain(samples.data() + offset, count, gain);
        EXPECT_TRUE(same_bits(samples, expected)) << "gain " << gain;
    });
}

TEST(GainApply, EqualsItsTwinForEveryTailAndOffset)
{
    constexpr double kGains[] = {0,
                                 0.5,
                                 1,
                                 1.0 / 3,
                                 0.9999999,
                                 1.37,
                                 100,
                                 1e6,
                                 1e7,
                                 1e9,
                                 -1,
                                 -0.0,
                                 std::numeric_limits<double>::infinity(),
                                 std::numeric_limits<double>::quiet_NaN()};
    for_each_target([&] {
        for (const double gain : kGains) {
            compare_with_twin<std::uint8_t>(gain);
            compare_with_twin<std::uint16_t>(gain);
        }
    });
}

} // namespace

} // namespace panoval::test
