// SPDX-License-Identifier: MIT
#include "blend/pyramid_rows.h"

#include "tests/reference/pyramid.h"
#include "tests/support/buffers.h"
#include "tests/support/fenced.h"
#include "tests/support/noise.h"
#include "tests/support/tails.h"
#include "tests/support/targets.h"

#include <vector>

namespace panoval::test
{

namespace
{

constexpr int kReflected = 4; // the border rule of all pyramids

std::vector<float> floats(int count, std::uint64_t seed)
{
    return noise<float>(static_cast<std::size_t>(count), -300.f, 300.f, seed);
}

// Every width with vectors, left-over pixels and borders alone; 8 floats behind the row must stay.
template <class Body>
void for_each_row(const Body& body)
{
    for_each_target([&] {
        for (const int channels : {1, 2, 3, 4, 5})
            for (int width = 1; width <= 41; ++width) {
                SCOPED_TRACE(testing::Message() << width << " pixels of " << channels << " channels");
                body(width, channels);
            }
    });
}

TEST(PyramidRows, ReducedAcrossEqualTheirTwin)
{
    for_each_row([](int width, int channels) {
        const auto src = floats(width * channels, 1);
        const int half = (width + 1) / 2;
        auto actual = floats(half * channels + 8, 2);
        auto expected = actual;
        reduce_across(src.data(), width, channels, kReflected, actual.data(), half);
        reference::reduce_across(src.data(), width, channels, kReflected, expected.data(), half);
        EXPECT_TRUE(same_bits(actual, expected));
    });
}

TEST(PyramidRows, ReduceNothingBehindTheSource)
{
    for_each_row([](int width, int channels) {
        Fenced<float> src(Place::BeforeFence, floats(width * channels, 1));
        const int half = (width + 1) / 2;
        std::vector<float> actual(static_cast<std::size_t>(half * channels));
        std::vector<float> expected(actual.size());
        reduce_across(src.data(), width, channels, kReflected, actual.data(), half);
        reference::reduce_across(src.data(), width, channels, kReflected, expected.data(), half);
        EXPECT_TRUE(same_bits(actual, expected));
    });
}

TEST(PyramidRows, ExpandedAcrossEqualTheirTwin)
{
    for_each_row([](int width, int channels) {
        const auto src = floats(width * channels, 3);
        std::vector<float> whole(static_cast<std::size_t>(2 * width * channels));
        reference::expand_across(src.data(), width, channels, whole.data());
        for (const int finer : {2 * width, 2 * width - 1}) {
            auto actual = floats(finer * channels + 8, 4);
            auto expected = actual;
            std::copy_n(whole.begin(), finer * channels, expected.begin());
            expand_across(src.data(), width, channels, actual.data(), finer);
            EXPECT_TRUE(same_bits(actual, expected)) << "to " << finer;
        }
    });
}

// body(rows, count, actual, expected) with five rows of any floats.
template <class Body>
void compare_down(const Body& body)
{
    for_each_target([&] {
        for_each_tail([&](std::size_t offset, std::size_t count) {
            std::vector<std::vector<float>> blocks;
            const float* rows[5];
            for (std::size_t k = 0; k < 5; ++k) {
                blocks.push_back(floats(static_cast<int>(offset + count), count + k));
                rows[k] = blocks[k].data() + offset;
            }
            auto actual = floats(static_cast<int>(offset + count + 8), 9);
            auto expected = actual;
            body(rows, count, actual.data() + offset, expected.data() + offset);
            EXPECT_TRUE(same_bits(actual, expected));
        });
    });
}

TEST(PyramidRows, ReducedDownEqualTheirTwin)
{
    compare_down([](const float* const* rows, std::size_t count, float* actual, float* expected) {
        reduce_down(rows, count, actual);
        reference::reduce_down(rows, static_cast<int>(count), expected);
    });
}

TEST(PyramidRows, ExpandedDownEqualTheirTwins)
{
    compare_down([](const float* const* rows, std::size_t count, float* actual, float* expected) {
        expand_down_even(rows, count, actual);
        for (std::size_t i = 0; i < count; ++i)
            expected[i] = ((rows[0][i] + 6.0f * rows[1][i]) + rows[2][i]) * 0.015625f;
    });
    compare_down([](const float* const* rows, std::size_t count, float* actual, float* expected) {
        expand_down_odd(rows, count, actual);
        for (std::size_t i = 0; i < count; ++i)
            expected[i] = (4.0f * (rows[0][i] + rows[1][i])) * 0.015625f;
    });
}

} // namespace

} // namespace panoval::test
