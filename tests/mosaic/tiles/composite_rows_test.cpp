// SPDX-License-Identifier: MIT
#include "mosaic/tiles/composite_rows.h"

#include "tests/reference/band_rows.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/tails.h"
#include "tests/support/targets.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

using panoval::test::for_each_tail;
using panoval::test::for_each_target;
using panoval::test::noise;
using panoval::test::same_bits;

TEST(CompositeRows, DifferencesEqualTheirTwin)
{
    for_each_target([] {
        for_each_tail([](std::size_t offset, std::size_t count) {
            auto samples = noise<float>(offset + count + 8, -300.f, 300.f, 1);
            const auto composite = noise<float>(count, -300.f, 300.f, 2);
            auto expected = samples;
            for (std::size_t i = 0; i < count; ++i)
                expected[offset + i] -= composite[i];
            subtract_row(samples.data() + offset, composite.data(), count);
            EXPECT_TRUE(same_bits(samples, expected));
        });
    });
}

TEST(CompositeRows, ExpandedLevelsEqualTheirTwin)
{
    for_each_target([] {
        for_each_tail([](std::size_t offset, std::size_t count) {
            const auto rows = noise<float>(3 * count, -300.f, 300.f, 3);
            for (const CoarseRows::Kind kind : {CoarseRows::None, CoarseRows::Even, CoarseRows::Odd}) {
                const CoarseRows coarse = {kind, {rows.data(), rows.data() + count, rows.data() + 2 * count}};
                auto sums = noise<float>(offset + count + 8, 1.f, 300.f, 4);
                auto expected = sums;
                for (std::size_t i = 0; i < count; ++i)
                    expected[offset + i] += reference::expanded_sample(coarse, i);
                add_expanded_row(sums.data() + offset, coarse, count);
                EXPECT_TRUE(same_bits(sums, expected)) << "kind " << kind;
            }
        });
    });
}

template <class Sample>
void compare_finished(bool with_correction, float scale)
{
    constexpr auto kMost = static_cast<float>(std::numeric_limits<Sample>::max());
    for_each_tail([&](std::size_t offset, std::size_t count) {
        const auto composite = noise<float>(offset + count, -0.2f * kMost, 1.2f * kMost / scale, 5);
        const auto correction = noise<float>(count, -9.f, 9.f, 6);
        std::vector<Sample> actual(count + 8, 7);
        auto expected = actual;
        for (std::size_t i = 0; i < count; ++i) {
            const float sum = with_correction ? composite[offset + i] + correction[i] : composite[offset + i];
            const float rounded = std::floor(sum * scale + 0.5f);
            expected[i] = static_cast<Sample>(std::min(std::max(rounded, 0.f), kMost));
        }
        finish_row(composite.data() + offset, with_correction ? correction.data() : nullptr, scale, count,
                   actual.data(), sizeof(Sample));
        EXPECT_TRUE(same_bits(actual, expected));
    });
}

TEST(CompositeRows, FinishedSamplesEqualTheirTwin)
{
    for_each_target([] {
        for (const bool with_correction : {false, true})
            for (const float scale : {1.f, 257.f, 1.f / 257}) {
                compare_finished<std::uint8_t>(with_correction, scale);
                compare_finished<std::uint16_t>(with_correction, scale);
            }
    });
}

} // namespace

} // namespace panoval::mosaic::test
