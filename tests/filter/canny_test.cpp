// SPDX-License-Identifier: MIT
// The edge detector as a caller sees it.
#include "panoval.h"
#include "tests/reference/canny.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <tuple>

namespace
{

using namespace panoval;
using namespace panoval::test;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Settings {
    double sigma = 1.0;
    double tlow = 0.5;
    double thigh = 0.9;
};

struct Result {
    std::vector<std::uint8_t> edge;
    std::vector<std::int16_t> delta_x;
    std::vector<std::int16_t> delta_y;
};

Result detected(const std::vector<std::uint8_t>& image, int rows, int cols, Settings s = {})
{
    const Guarded<std::uint8_t> input(image);
    Guarded<std::uint8_t> edge(image.size());
    std::int16_t* x = nullptr;
    std::int16_t* y = nullptr;
    canny(input.data(), rows, cols, edge.data(), s.sigma, s.tlow, s.thigh, &x, &y);
    EXPECT_TRUE(edge.intact());
    Result result{edge.values(), {x, x + image.size()}, {y, y + image.size()}};
    std::free(x);
    std::free(y);
    return result;
}

void expect_twin(const std::vector<std::uint8_t>& image, int rows, int cols, Settings s)
{
    const auto expected = reference::canny(image.data(), rows, cols, s.sigma, s.tlow, s.thigh);
    const Result actual = detected(image, rows, cols, s);
    EXPECT_TRUE(same_bits(actual.edge, expected.edge));
    EXPECT_TRUE(same_bits(actual.delta_x, expected.delta_x));
    EXPECT_TRUE(same_bits(actual.delta_y, expected.delta_y));

    // Rings in place of the difference images change nothing.
    std::vector<std::uint8_t> edge(image.size());
    canny(image.data(), rows, cols, edge.data(), s.sigma, s.tlow, s.thigh, nullptr, nullptr);
    EXPECT_TRUE(same_bits(edge, expected.edge));
}

TEST(Canny, EqualsItsTwinOnEveryContentAndSize)
{
    for_each_target([] {
        for (const Content content : kAllContents)
            for (const auto& [rows, cols] :
                 {std::pair{3, 3}, {3, 40}, {40, 3}, {4, 4}, {4, 5}, {5, 36}, {37, 53}, {48, 64}})
                for (const double sigma : {0.6, 1.0, 2.2}) {
                    SCOPED_TRACE(testing::Message()
                                 << name_of(content) << " " << cols << " x " << rows << " " << sigma);
                    expect_twin(picture(content, cols, rows, 9), rows, cols, {sigma, 0.5, 0.8});
                }
    });
}

TEST(Canny, EqualsItsTwinOnTexturesFullOfTies)
{
    for_each_target([] {
        for (int period = 1; period <= 6; ++period)
            for (const double sigma : {0.4, 1.0, 1.7}) {
                constexpr int kSide = 50;
                std::vector<std::uint8_t> checks(kSide * kSide);
                std::vector<std::uint8_t> rings(kSide * kSide); // symmetric about the centre
                for (int i = 0; i < kSide * kSide; ++i) {
                    const int x = i % kSide;
                    const int y = i / kSide;
                    const int u = std::abs(2 * x - kSide + 1);
                    const int v = std::abs(2 * y - kSide + 1);
                    checks[static_cast<std::size_t>(i)] = (x / period + y / period) % 2 != 0 ? 255 : 0;
                    rings[static_cast<std::size_t>(i)] = (u * u + v * v) / (40 * period) % 2 != 0 ? 250 : 10;
                }
                SCOPED_TRACE(testing::Message() << "period " << period << ", sigma " << sigma);
                expect_twin(checks, kSide, kSide, {sigma, 0.4, 0.7});
                expect_twin(rings, kSide, kSide, {sigma, 0.4, 0.7});
            }
    });
}

TEST(Canny, EqualsItsTwinWhereTheLowThresholdIsNegativeInItsSixteenBits)
{
    for_each_target([] {
        for (const Content content : {Content::Flat, Content::TwoLevel, Content::Photograph, Content::Ramp})
            for (const double tlow : {-0.001, -1.0, -40.0, 5.0, 20.0, 70.0, -1e9, 1e30, kNan, kInfinity}) {
                SCOPED_TRACE(testing::Message() << name_of(content) << ", tlow " << tlow);
                expect_twin(picture(content, 60, 40, 4), 40, 60, {1.0, tlow, 0.6});
            }
    });
}

TEST(Canny, EqualsItsTwinWhereALowFractionJustAboveOneWrapsTheSteepestEdge)
{
    // Diagonal steps of 255, hardly smoothed, have the magnitude 32456; 1.02 of it leaves 16 bits. Many pixels
    // between them are flat.
    auto image = noise<std::uint8_t>(61 * 43, 0, 1, 5);
    for (std::uint8_t& pixel : image)
        pixel = pixel == 0 ? 0 : 255;
    for (const double tlow : {1.0, 1.005, 1.02, 1.05})
        expect_twin(image, 43, 61, {0.1, tlow, 0.9});
}

TEST(Canny, FlatPixelsBecomeEdgesOnlyWhereTheLowThresholdIsNegative)
{
    // Sparse points of one grey level, hardly smoothed: pixels without gradient lie between their slopes.
    std::vector<std::uint8_t> image = noise<std::uint8_t>(64 * 48, 0, 3, 1);
    for (std::uint8_t& pixel : image)
        pixel /= 3;
    const auto count_flat_edges = [&](double tlow) {
        const auto expected = reference::canny(image.data(), 48, 64, 0.3, tlow, 0.5);
        const Result actual = detected(image, 48, 64, {0.3, tlow, 0.5});
        EXPECT_EQ(actual.edge, expected.edge);
        int flat = 0;
        for (std::size_t i = 0; i < image.size(); ++i)
            flat += actual.edge[i] == 0 && expected.magnitude[i] == 0 ? 1 : 0;
        return flat;
    };
    EXPECT_EQ(count_flat_edges(0.5), 0);
    EXPECT_EQ(count_flat_edges(0.0), 0);
    EXPECT_GT(count_flat_edges(-1.0), 0);
}

TEST(Canny, EqualsItsTwinForFractionsOutOfRange)
{
    const auto image = picture(Content::Photograph, 61, 33, 8);
    for (const double thigh : {-1.0, 0.0, 1e-9, 0.999, 1.0, 7.0, 1e12, kNan, kInfinity, -kInfinity})
        for (const double tlow : {0.0, 0.3, 1.0, 1.5}) {
            SCOPED_TRACE(testing::Message() << "tlow " << tlow << ", thigh " << thigh);
            expect_twin(image, 33, 61, {1.2, tlow, thigh});
        }
}

TEST(Canny, EqualsItsTwinForKernelsOfOneTapAndOfMoreThanTheImage)
{
    const auto image = picture(Content::Noise, 23, 17, 8);
    for (const double sigma : {-0.39, 1e-160, 0.01, 0.39, 0.41, 9.0, 300.0}) {
        SCOPED_TRACE(sigma);
        expect_twin(image, 17, 23, {sigma, 0.5, 0.8});
    }
}

TEST(Canny, FindsNothingWithoutAGradient)
{
    for (const Content content : {Content::Flat, Content::Black, Content::White}) {
        const auto image = picture(content, 30, 20, 1);
        EXPECT_EQ(detected(image, 20, 30).edge, std::vector<std::uint8_t>(600, 255)) << name_of(content);
    }
}

TEST(Canny, FindsNothingWithASigmaOfZero)
{
    const auto image = picture(Content::Noise, 30, 20, 1);
    for (const double sigma : {0.0, -0.0, 1e-300}) {
        const Result result = detected(image, 20, 30, {sigma});
        EXPECT_EQ(result.edge, std::vector<std::uint8_t>(600, 255));
        EXPECT_EQ(result.delta_x, std::vector<std::int16_t>(600, 0));
        EXPECT_EQ(result.delta_y, std::vector<std::int16_t>(600, 0));
    }
}

TEST(Canny, MarksEdgesWith0AndTheRestWith255AndNothingOnTheFrame)
{
    constexpr int kRows = 41;
    constexpr int kCols = 52;
    const Result result = detected(picture(Content::Noise, kCols, kRows, 6), kRows, kCols, {0.8, 0.1, 0.1});
    EXPECT_GT(std::count(result.edge.begin(), result.edge.end(), 0), 100);
    for (int r = 0; r < kRows; ++r)
        for (int c = 0; c < kCols; ++c) {
            const auto mark = result.edge[static_cast<std::size_t>(r * kCols + c)];
            const bool visited = r >= 1 && r <= kRows - 3 && c >= 1 && c <= kCols - 3;
            EXPECT_TRUE(mark == 255 || (mark == 0 && visited)) << c << ", " << r << ": " << int{mark};
        }
}

TEST(Canny, WithAHighFractionOf0KeepsEveryCandidateThatHasAMagnitude)
{
    const auto image = picture(Content::Photograph, 64, 48, 2);
    const auto expected = reference::canny(image.data(), 48, 64, 1.0, 0.5, 0.0);
    const Result result = detected(image, 48, 64, {1.0, 0.5, 0.0});
    for (std::size_t i = 0; i < image.size(); ++i)
        EXPECT_EQ(result.edge[i], expected.map[i] == 128 && expected.magnitude[i] >= 1 ? 0 : 255) << i;
}

TEST(Canny, SmoothsOverSevenPixelsWithASigmaOf1)
{
    std::vector<std::uint8_t> image(21 * 21, 0);
    image[10 * 21 + 10] = 255;
    const Result result = detected(image, 21, 21);
    for (int c = 0; c < 21; ++c) // three taps on either side, and the difference reaches one further
        EXPECT_EQ(result.delta_x[static_cast<std::size_t>(10 * 21 + c)] != 0, c >= 6 && c <= 14 && c != 10) << c;
    EXPECT_EQ(result.delta_x[10 * 21 + 6], -result.delta_x[10 * 21 + 14]);
}

TEST(Canny, GivesNinetyTimesTheGreyDifferenceOfTwoNeighboursOnARamp)
{
    std::vector<std::uint8_t> image(20 * 20);
    for (std::size_t i = 0; i < image.size(); ++i)
        image[i] = static_cast<std::uint8_t>(10 * (i % 20));
    const Result result = detected(image, 20, 20);
    for (int c = 4; c < 16; ++c) {
        EXPECT_EQ(result.delta_x[static_cast<std::size_t>(10 * 20 + c)], 1800);
        EXPECT_EQ(result.delta_y[static_cast<std::size_t>(10 * 20 + c)], 0);
    }
    const auto turned = [&] {
        std::vector<std::uint8_t> t(image.size());
        for (std::size_t i = 0; i < t.size(); ++i)
            t[i] = image[i % 20 * 20 + i / 20];
        return detected(t, 20, 20);
    }();
    EXPECT_EQ(turned.delta_y[10 * 20 + 7], 1800);
    EXPECT_EQ(turned.delta_x[10 * 20 + 7], 0);
}

// A disc of 200 on 50, its rim smoothed over a pixel.
std::vector<std::uint8_t> disc(int side, double centre, double radius)
{
    std::vector<std::uint8_t> image(static_cast<std::size_t>(side * side));
    for (int i = 0; i < side * side; ++i) {
        const double inside = radius - std::hypot(i % side - centre, i / side - centre);
        image[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(50 + 150 * std::clamp(inside + 0.5, 0.0, 1.0));
    }
    return image;
}

TEST(Canny, DrawsAClosedLineAroundADiscAndNothingElse)
{
    constexpr int kSide = 120;
    constexpr double kCentre = 59.3;
    constexpr double kRadius = 37.6;
    const Result result = detected(disc(kSide, kCentre, kRadius), kSide, kSide, {1.4, 0.4, 0.3});
    std::vector<bool> seen(360, false);
    for (int i = 0; i < kSide * kSide; ++i)
        if (result.edge[static_cast<std::size_t>(i)] == 0) {
            const double x = i % kSide - kCentre;
            const double y = i / kSide - kCentre;
            EXPECT_NEAR(std::hypot(x, y), kRadius, 1.0);
            const double degrees = (std::atan2(y, x) + 3.14159265358979) * 180 / 3.14159265358979;
            for (int near = -2; near <= 2; ++near) // a pixel covers about 1.5 degrees
                seen[static_cast<std::size_t>((static_cast<int>(degrees) + near + 360) % 360)] = true;
        }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), true), 360);
}

TEST(Canny, DrawsTheSidesOfARectangleBetweenItsPixels)
{
    constexpr int kSide = 60;
    std::vector<std::uint8_t> image(kSide * kSide, 40);
    for (int y = 20; y < 40; ++y)
        for (int x = 15; x < 45; ++x)
            image[static_cast<std::size_t>(y * kSide + x)] = 210;
    const Result result = detected(image, kSide, kSide, {1.0, 0.5, 0.2});
    int wrong = 0;
    for (int y = 25; y < 35; ++y) // away from the corners: the columns on either side of 14.5 and of 44.5
        for (int x = 0; x < kSide; ++x) {
            const bool near = x == 14 || x == 15 || x == 44 || x == 45;
            wrong += result.edge[static_cast<std::size_t>(y * kSide + x)] == 0 && !near ? 1 : 0;
        }
    EXPECT_EQ(wrong, 0);
    for (int y = 25; y < 35; ++y) {
        const auto* const row = result.edge.data() + y * kSide;
        EXPECT_EQ(std::count(row, row + kSide, 0), 2) << y;
    }
}

TEST(Canny, BelowThreePixelsFindsNothing)
{
    for (int rows = 0; rows <= 4; ++rows)
        for (int cols = 0; cols <= 4; ++cols) {
            if (rows >= 3 && cols >= 3)
                continue;
            const auto count = static_cast<std::size_t>(rows * cols);
            const Result result = detected(noise<std::uint8_t>(count, 0, 255, 3), rows, cols);
            EXPECT_EQ(result.edge, std::vector<std::uint8_t>(count, 255));
            EXPECT_EQ(result.delta_x, std::vector<std::int16_t>(count, 0));
            EXPECT_EQ(result.delta_y, std::vector<std::int16_t>(count, 0));
        }
}

TEST(Canny, OfTooSmallAnImageHandsOutNothingThatNobodyAsksFor)
{
    const std::uint8_t image[] = {0, 255, 255, 0};
    std::uint8_t edge[] = {7, 7, 7, 7};
    canny(image, 2, 2, edge, 1.0, 0.5, 0.9, nullptr, nullptr);
    for (const std::uint8_t mark : edge)
        EXPECT_EQ(mark, 255);
}

TEST(Canny, OfNegativeSizesWritesNothingAndHandsOutEmptyBlocks)
{
    for (const auto& [rows, cols] : {std::pair{-1, 5}, {5, -1}, {-3, -3}, {0, -2147483647}}) {
        std::int16_t* x = nullptr;
        std::int16_t* y = nullptr;
        canny(nullptr, rows, cols, nullptr, 1.0, 0.5, 0.9, &x, &y);
        EXPECT_NE(x, nullptr);
        EXPECT_NE(y, nullptr);
        std::free(x);
        std::free(y);
    }
}

TEST(Canny, LeavesNoAllocationBehind)
{
    const auto image = picture(Content::Photograph, 60, 50, 2);
    std::vector<std::uint8_t> edge(image.size());
    FailingHeap heap;
    canny(image.data(), 50, 60, edge.data(), 1.0, 0.5, 0.7, nullptr, nullptr);
    EXPECT_GT(heap.allocations(), 9u);
    EXPECT_EQ(heap.live_blocks(), 0);
    std::int16_t* x = nullptr;
    canny(image.data(), 50, 60, edge.data(), 1.0, 0.5, 0.7, &x, nullptr);
    EXPECT_EQ(heap.live_blocks(), 1);
    std::free(x);
    EXPECT_EQ(heap.live_blocks(), 0);
}

TEST(Canny, HandsOutEitherDifferenceAlone)
{
    const auto image = picture(Content::Photograph, 60, 50, 2);
    const Result both = detected(image, 50, 60);
    for (const double tlow : {0.5, -0.5}) { // a negative one keeps both images inside
        std::vector<std::uint8_t> edge(image.size());
        std::int16_t* x = nullptr;
        std::int16_t* y = nullptr;
        FailingHeap heap;
        canny(image.data(), 50, 60, edge.data(), 1.0, tlow, 0.9, &x, nullptr);
        canny(image.data(), 50, 60, edge.data(), 1.0, tlow, 0.9, nullptr, &y);
        EXPECT_EQ(heap.live_blocks(), 2);
        EXPECT_TRUE(same_bits(x, both.delta_x.data(), image.size()));
        EXPECT_TRUE(same_bits(y, both.delta_y.data(), image.size()));
        std::free(x);
        std::free(y);
    }
}

TEST(Canny, KeepsNoImageOfDoubles)
{
    constexpr int kSide = 400;
    const auto image = picture(Content::Photograph, kSide, kSide, 2);
    std::vector<std::uint8_t> edge(image.size());
    FailingHeap heap;
    canny(image.data(), kSide, kSide, edge.data(), 1.0, 0.5, 0.9, nullptr, nullptr);
    EXPECT_LT(heap.peak_bytes(), std::size_t{kSide} * kSide * 3);
}

TEST(Canny, WithoutMemoryForTheQueueLeavesEdgesIncomplete)
{
    // A step that is highest in the middle, where the only seed is: the edge leaves it in two directions. The first ten
    // allocations are the images; the rest belong to the queue and are not acted upon.
    std::vector<std::uint8_t> image(80 * 80, 50);
    for (int y = 0; y < 80; ++y)
        std::fill_n(image.begin() + y * 80 + 40, 40, static_cast<std::uint8_t>(200 - 2 * std::abs(y - 40)));
    const Result whole = detected(image, 80, 80, {1.4, 0.1, 1.0});
    const auto count_edges = [](const std::vector<std::uint8_t>& edge) {
        return std::count(edge.begin(), edge.end(), 0);
    };
    bool made_a_difference = false;
    std::size_t fail_at = 10;
    for (;; ++fail_at) {
        std::vector<std::uint8_t> edge(image.size());
        const FailingHeap heap(fail_at, true);
        canny(image.data(), 80, 80, edge.data(), 1.4, 0.1, 1.0, nullptr, nullptr);
        EXPECT_EQ(heap.live_blocks(), 0);
        if (!heap.has_failed())
            break;
        for (std::size_t i = 0; i < edge.size(); ++i)
            EXPECT_TRUE(edge[i] == 255 || (edge[i] == 0 && whole.edge[i] == 0));
        EXPECT_GT(count_edges(edge), 0); // seeds at least
        made_a_difference = made_a_difference || count_edges(edge) < count_edges(whole.edge);
    }
    EXPECT_TRUE(made_a_difference);
    EXPECT_GE(fail_at, 12u);
}

// Runs the detector with one allocation failing and expects it to end the process with the message.
void expect_end(std::size_t fail_at, const char* message)
{
    static const auto image = picture(Content::Noise, 20, 10, 1);
    static std::vector<std::uint8_t> edge(image.size());
    const auto run = [fail_at] {
        const FailingHeap heap(fail_at);
        std::int16_t* x = nullptr;
        std::int16_t* y = nullptr;
        canny(image.data(), 10, 20, edge.data(), 1.0, 0.5, 0.9, &x, &y);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(1), testing::Eq(std::string(message))) << "allocation " << fail_at;
}

TEST(CannyDeathTest, WithoutMemoryForAnImageEndsTheProcessWithItsMessage)
{
    expect_end(0, "Error callocing the gaussian kernel array.\n");
    for (std::size_t fail_at = 1; fail_at <= 4; ++fail_at) // the ring of rows and what belongs to it
        expect_end(fail_at, "Error allocating the buffer image.\n");
    expect_end(5, "Error allocating the smoothed image.\n");
    expect_end(6, "Error allocating the delta_x image.\n");
    expect_end(7, "Error allocating the delta_x image.\n"); // of delta_y, with the same text
    expect_end(8, "Error allocating the magnitude image.\n");
    expect_end(9, "Error allocating the nms image.\n");
}

TEST(CannyDeathTest, WithASigmaThatHasNoKernelEndsTheProcessAsWithoutMemoryForIt)
{
    for (const double sigma : {-0.4, -3.0, 1e12, kNan, kInfinity, -kInfinity}) {
        const auto image = picture(Content::Noise, 20, 10, 1);
        std::vector<std::uint8_t> edge(image.size());
        EXPECT_EXIT(canny(image.data(), 10, 20, edge.data(), sigma, 0.5, 0.9, nullptr, nullptr),
                    testing::ExitedWithCode(1),
                    testing::Eq(std::string("Error callocing the gaussian kernel array.\n")))
            << sigma;
    }
}

TEST(CannyDeathTest, OfAnImageTooSmallEndsTheProcessOnlyWithoutMemoryForTheDifferences)
{
    const auto run = [] {
        const FailingHeap heap(1);
        std::uint8_t edge[4];
        std::int16_t* x = nullptr;
        std::int16_t* y = nullptr;
        canny(edge, 2, 2, edge, -5.0, 0.5, 0.9, &x, &y);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(1), testing::Eq(std::string("Error allocating the delta_x image.\n")));
}

} // namespace
