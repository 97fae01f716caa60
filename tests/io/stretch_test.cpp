// SPDX-License-Identifier: MIT
// The kernels of the stretch against their twins.
#include "io/stretch.h"

#include "tests/reference/stretch.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace
{

using panoval::test::for_each_target;
using panoval::test::Guarded;
using panoval::test::noise;
using panoval::test::Random;
using panoval::test::same_bits;
namespace reference = panoval::reference;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

std::vector<std::size_t> counts()
{
    std::vector<std::size_t> result;
    for (std::size_t count = 0; count <= 67; ++count)
        result.push_back(count);
    for (const std::size_t count : {1023u, 1024u, 1025u, 2100u})
        result.push_back(count);
    return result;
}

// Values of all magnitudes; with_odd: also infinities and what is not a number.
std::vector<float> floats(std::size_t count, std::uint64_t seed, bool with_odd)
{
    Random random(seed);
    std::vector<float> values(count);
    for (float& v : values) {
        const double magnitude = std::pow(10.0, random.real(-40, 38));
        v = static_cast<float>(random.real(-1, 1) * magnitude);
        if (with_odd && random.integer(0, 9) == 0)
            v = std::vector{kNan, kInf, -kInf, 0.0f, -0.0f}[static_cast<std::size_t>(random.integer(0, 4))];
    }
    return values;
}

// Widens a range that starts at each of the given bounds.
template <class Sample>
void expect_same_range(const std::vector<Sample>& values, Sample low, Sample high)
{
    const Guarded<Sample> in(values);
    Sample actual[] = {low, high};
    Sample expected[] = {low, high};
    panoval::widen_range(in.data(), values.size(), actual[0], actual[1]);
    reference::widen_range(in.data(), values.size(), expected[0], expected[1]);
    if constexpr (std::is_floating_point_v<Sample>) {
        if (actual[0] == 0 && expected[0] == 0)
            actual[0] = expected[0]; // the zeros' signs do not matter
        if (actual[1] == 0 && expected[1] == 0)
            actual[1] = expected[1];
    }
    ASSERT_TRUE(same_bits(actual, expected, 2)) << values.size() << " values";
}

TEST(WidenRange, EqualsItsTwinForFloats)
{
    for_each_target([] {
        for (const std::size_t count : counts())
            for (const bool with_odd : {false, true}) {
                const auto values = floats(count, count, with_odd);
                expect_same_range(values, 1e10f, 0.0f);
                expect_same_range(values, kNan, kNan);
                if (count > 0)
                    expect_same_range(values, values[0], values[0]);
            }
    });
}

TEST(WidenRange, EqualsItsTwinForShorts)
{
    for_each_target([] {
        for (const std::size_t count : counts()) {
            const auto values = noise<std::int16_t>(count, -32768, 32767, count);
            expect_same_range<std::int16_t>(values, 0, 0);
            expect_same_range<std::int16_t>(values, 32767, -32768);
        }
    });
}

TEST(WidenRange, FindsAnExtremeAtEveryPlace)
{
    for_each_target([] {
        for (std::size_t place = 0; place < 67; ++place) {
            std::vector<float> values(67, 1.0f);
            values[place] = -3.0f;
            expect_same_range(values, 1.0f, 1.0f);
            values[place] = 5.0f;
            expect_same_range(values, 1.0f, 1.0f);
        }
    });
}

template <class Sample>
void expect_same_stretch(const std::vector<Sample>& values)
{
    Sample low = values.empty() ? Sample{} : values[0];
    Sample high = low;
    reference::widen_range(values.data(), values.size(), low, high);
    const double scale = 255.0 / (static_cast<double>(high) - static_cast<double>(low));
    const Guarded<Sample> in(values);
    Guarded<std::uint8_t> actual(values.size());
    std::vector<std::uint8_t> expected(values.size());
    panoval::stretch(in.data(), values.size(), low, scale, actual.data());
    reference::stretch(in.data(), values.size(), static_cast<double>(low), scale, expected.data());
    ASSERT_TRUE(same_bits(actual.values(), expected));
    ASSERT_TRUE(actual.intact());
}

TEST(Stretch, EqualsItsTwinForFloats)
{
    for_each_target([] {
        for (const std::size_t count : counts()) {
            expect_same_stretch(noise(count, -1000.0f, 1000.0f, count));
            expect_same_stretch(noise(count, 1e-42f, 3e-42f, count));
            expect_same_stretch(noise(count, 1.0f, 1.0000005f, count));
            expect_same_stretch(floats(count, count, false));
            expect_same_stretch(floats(count, count, true));
        }
    });
}

TEST(Stretch, EqualsItsTwinForShorts)
{
    for_each_target([] {
        for (const std::size_t count : counts())
            for (const int top : {0, 1, 2, 255, 256, 32767}) {
                const auto bottom = static_cast<std::int16_t>(-1 - top);
                expect_same_stretch(noise(count, bottom, static_cast<std::int16_t>(top), count));
            }
    });
}

TEST(Stretch, EqualsItsTwinForEveryShort)
{
    for_each_target([] {
        std::vector<std::int16_t> values;
        for (std::int32_t v = -32768; v <= 32767; ++v)
            values.push_back(static_cast<std::int16_t>(v));
        for (const std::size_t count : {65536u, 65535u, 51000u, 4096u, 3001u, 511u, 256u, 255u, 7u, 2u}) {
            values.resize(count);
            expect_same_stretch(values);
        }
    });
}

TEST(StretchSingle, EqualsItsTwin)
{
    for_each_target([] {
        for (const std::size_t count : counts())
            for (int kind = 0; kind < 5; ++kind) {
                const auto values = kind == 0   ? noise(count, -1000.0f, 1000.0f, count)
                                    : kind == 1 ? noise(count, -3.0f, -1.0f, count)
                                    : kind == 2 ? noise(count, 1e-45f, 5e-45f, count)
                                                : floats(count, count, kind == 4);
                float low = 1e10f;
                float high = 0.0f;
                reference::widen_range(values.data(), count, low, high);
                const Guarded<float> in(values);
                Guarded<std::uint8_t> actual(count);
                std::vector<std::uint8_t> expected(count);
                panoval::stretch_single(in.data(), count, low, 255.0f / (high - low), actual.data());
                reference::stretch_single(in.data(), count, low, 255.0f / (high - low), expected.data());
                ASSERT_TRUE(same_bits(actual.values(), expected)) << "kind " << kind << ", count " << count;
                ASSERT_TRUE(actual.intact());
            }
    });
}

TEST(StretchGrey, EqualsItsTwin)
{
    for_each_target([] {
        for (const std::size_t count : counts())
            for (int kind = 0; kind < 4; ++kind) {
                const auto pixels = kind == 0   ? noise(3 * count, -1.0f, 255.0f, count)
                                    : kind == 1 ? noise(3 * count, -5e-45f, 5e-45f, count)
                                                : floats(3 * count, count, kind == 3);
                std::vector<float> grey(count);
                reference::mix_grey(pixels.data(), count, grey.data());
                float low = 1e10f;
                float high = 0.0f;
                reference::widen_range(grey.data(), count, low, high);
                const float scale = 255.0f / (high - low);
                const Guarded<float> in(pixels);
                Guarded<std::uint8_t> actual(count);
                std::vector<std::uint8_t> expected(count);
                panoval::stretch_grey(in.data(), count, low, scale, actual.data());
                reference::stretch_single(grey.data(), count, low, scale, expected.data());
                ASSERT_TRUE(same_bits(actual.values(), expected)) << "kind " << kind << ", count " << count;
                ASSERT_TRUE(actual.intact());
            }
    });
}

TEST(WidenGreyRange, EqualsItsTwin)
{
    for_each_target([] {
        for (const std::size_t count : counts())
            for (const bool with_odd : {false, true}) {
                const auto pixels = floats(3 * count, count, with_odd);
                std::vector<float> grey(count);
                reference::mix_grey(pixels.data(), count, grey.data());
                const Guarded<float> in(pixels);
                float actual[] = {1e10f, 0.0f};
                float expected[] = {1e10f, 0.0f};
                panoval::widen_grey_range(in.data(), count, actual[0], actual[1]);
                reference::widen_range(grey.data(), count, expected[0], expected[1]);
                ASSERT_TRUE(same_bits(actual, expected, 2)) << "count " << count;
            }
    });
}

} // namespace
