// SPDX-License-Identifier: MIT
// The inner loops of the edge detector's smoothing and hysteresis, each against its definition.
#include "core/numbers.h"
#include "filter/canny.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

namespace
{

using namespace panoval;
using namespace panoval::test;

constexpr std::size_t kMostCols = 67; // two blocks of the widest vectors, and any rest

TEST(CannyWidenRow, KeepsEveryGreyValueForEveryTailAndOffset)
{
    for_each_target([] {
        for (std::size_t cols = 0; cols <= kMostCols; ++cols) {
            const auto grey = noise<std::uint8_t>(cols, 0, 255, cols);
            const Guarded<std::uint8_t> in(grey);
            Guarded<double> out(cols);
            canny_widen_row(in.data(), cols, out.data());
            EXPECT_TRUE(same_bits(out.values(), std::vector<double>(grey.begin(), grey.end()))) << cols;
            EXPECT_TRUE(out.intact());
        }
    });
}

TEST(CannySmoothXRow, SumsInTheOrderOfTheTapsForEveryTail)
{
    for_each_target([] {
        for (const std::size_t taps : {1u, 2u, 3u, 7u, 11u})
            for (std::size_t cols = 0; cols <= kMostCols; ++cols) {
                const Guarded<double> line(noise<double>(cols + taps - 1, 0, 255, cols));
                const auto weights = noise<double>(taps, 0, 1, taps);
                const Guarded<double> sums(noise<double>(cols, 0.5, 3, cols + 500));
                std::vector<double> expected(cols);
                for (std::size_t x = 0; x < cols; ++x) {
                    double sum = 0;
                    for (std::size_t t = 0; t < taps; ++t)
                        sum += line.data()[x + t] * weights[t];
                    expected[x] = sum / sums.data()[x];
                }
                Guarded<double> out(cols);
                canny_smooth_x_row(line.data(), weights.data(), taps, sums.data(), cols, out.data());
                EXPECT_TRUE(same_bits(out.values(), expected)) << taps << " taps, " << cols << " columns";
                EXPECT_TRUE(out.intact());
            }
    });
}

TEST(CannySmoothYRow, SumsInTheOrderOfTheTapsForEveryTail)
{
    for_each_target([] {
        for (const std::size_t taps : {1u, 2u, 5u, 9u})
            for (std::size_t cols = 0; cols <= kMostCols; ++cols) {
                const auto rows = noise<double>(taps * cols, 0, 255, cols + 1);
                const auto weights = noise<double>(taps, 0.1, 1, taps);
                std::vector<const double*> pointers;
                double sum = 0;
                for (std::size_t t = 0; t < taps; ++t) {
                    pointers.push_back(rows.data() + t * cols);
                    sum += weights[t];
                }
                std::vector<std::int16_t> expected(cols);
                for (std::size_t x = 0; x < cols; ++x) {
                    double dot = 0;
                    for (std::size_t t = 0; t < taps; ++t)
                        dot += pointers[t][x] * weights[t];
                    expected[x] = static_cast<std::int16_t>(truncate_to_int(dot * 90.0 / sum + 0.5));
                }
                Guarded<std::int16_t> out(cols);
                canny_smooth_y_row(pointers.data(), weights.data(), taps, sum, cols, out.data());
                EXPECT_TRUE(same_bits(out.values(), expected)) << taps << " taps, " << cols << " columns";
                EXPECT_TRUE(out.intact());
            }
    });
}

TEST(CannySmoothYRow, RoundsHalvesUpAndReaches22950)
{
    for_each_target([] {
        const std::vector<double> row = {0, 255, 0.5 / 90, 0.49 / 90, 1.5 / 90};
        const double* const taps[] = {row.data()};
        const double weight = 1;
        std::vector<std::int16_t> out(row.size());
        canny_smooth_y_row(taps, &weight, 1, 1, row.size(), out.data());
        EXPECT_EQ(out, (std::vector<std::int16_t>{0, 22950, 1, 0, 2}));
    });
}

std::uint8_t class_of(std::uint8_t mark, std::int16_t magnitude, CannyThresholds thresholds)
{
    if (mark != kCandidate || (magnitude <= thresholds.low && magnitude < thresholds.high))
        return kNeither;
    return static_cast<std::uint8_t>((magnitude > thresholds.low ? kFollower : 0) |
                                     (magnitude >= thresholds.high ? kSeed : 0));
}

TEST(CannyClassifyPixels, TellsSeedsAndFollowersForEveryTail)
{
    const CannyThresholds cases[] = {{10, 5}, {10, 20}, {1, 0}, {1, -9}, {kMagnitudes - 1, -25536}, {15, 14}};
    for_each_target([&] {
        for (const CannyThresholds& thresholds : cases)
            for (std::size_t count = 0; count <= kMostCols; ++count) {
                auto magnitude = noise<std::int16_t>(count, 0, 25, count);
                if (count > 3)
                    magnitude[3] = kMagnitudes - 1;
                auto marks = noise<std::uint8_t>(count, 0, 2, count + 9);
                std::vector<std::uint8_t> expected(count);
                for (std::size_t i = 0; i < count; ++i) {
                    marks[i] = marks[i] == 0 ? kNoEdge : kCandidate;
                    expected[i] = class_of(marks[i], magnitude[i], thresholds);
                }
                const Guarded<std::int16_t> in(magnitude);
                Guarded<std::uint8_t> edge(marks);
                canny_classify_pixels(in.data(), count, thresholds, edge.data());
                EXPECT_TRUE(same_bits(edge.values(), expected)) << thresholds.high << ", " << count;
                EXPECT_TRUE(edge.intact());
            }
    });
}

TEST(CannyFinishPixels, KeepsEdgesAloneForEveryTail)
{
    for_each_target([] {
        for (std::size_t count = 0; count <= 2 * kMostCols; ++count) {
            auto marks = noise<std::uint8_t>(count, 0, 3, count);
            std::vector<std::uint8_t> expected(count);
            for (std::size_t i = 0; i < count; ++i) {
                marks[i] = marks[i] == 3 ? kNeither : marks[i];
                expected[i] = marks[i] == kEdge ? kEdge : kNoEdge;
            }
            Guarded<std::uint8_t> edge(marks);
            canny_finish_pixels(edge.data(), count);
            EXPECT_TRUE(same_bits(edge.values(), expected)) << count;
            EXPECT_TRUE(edge.intact());
        }
    });
}

} // namespace
