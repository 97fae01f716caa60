// SPDX-License-Identifier: MIT
#include "panoval.h"
#include "tests/reference/small_ellipse.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <set>
#include <vector>

namespace
{

using panoval::test::for_each_failing_allocation;
using panoval::test::for_each_target;
using panoval::test::Guarded;
using panoval::test::Random;
using panoval::test::same_bits;

constexpr double kPi = 3.141592653589793;
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();

struct Picture {
    std::int32_t width, height;
    std::vector<std::uint8_t> pixels;

    Picture(std::int32_t w, std::int32_t h, std::uint8_t level)
        : width(w), height(h), pixels(static_cast<std::size_t>(w) * static_cast<std::size_t>(h), level)
    {
    }
    std::uint8_t& at(std::int32_t x, std::int32_t y)
    {
        return pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
    }
};

// What lies between two angles as seen from the picture's middle, at least 12 pixels away from it.
void paint_sector(Picture& picture, double from, double to, std::uint8_t level)
{
    for (std::int32_t y = 0; y < picture.height; ++y)
        for (std::int32_t x = 0; x < picture.width; ++x) {
            const double dx = x - picture.width / 2;
            const double dy = y - picture.height / 2;
            double angle = std::atan2(dy, dx);
            if (angle < from)
                angle += 2 * kPi;
            if (angle < to && std::hypot(dx, dy) > 12)
                picture.at(x, y) = level;
        }
}

struct Found {
    std::vector<EllipseRegion> records;
    std::vector<std::uint8_t> image;
    bool has_array = false;
};

Found find(const Picture& picture, const std::vector<double>& ellipse)
{
    Guarded<std::uint8_t> image(picture.pixels);
    const Guarded<double> parameters(ellipse);
    auto* regions = reinterpret_cast<EllipseRegion*>(&image); // anything but null
    const std::uint32_t count =
        find_small_ellipse(image.data(), picture.width, picture.height, parameters.data(), &regions);
    EXPECT_TRUE(image.intact() && parameters.intact());
    Found found = {{regions, regions + count}, image.values(), regions != nullptr};
    std::free(regions);
    return found;
}

// A circle of radius 20 around the middle of 101 x 101 pixels: 251 samples.
const std::vector<double> kCircle = {50, 50, 20, 20, 0};

// That the finder's records and picture equal the twin's; returns what the twin saw.
panoval::reference::SmallEllipseTrace expect_twin(const Picture& picture, const std::vector<double>& ellipse)
{
    const Found found = find(picture, ellipse);
    std::vector<std::uint8_t> image = picture.pixels;
    EllipseRegion* regions = nullptr;
    panoval::reference::SmallEllipseTrace trace;
    const std::uint32_t count = panoval::reference::find_small_ellipse(image.data(), picture.width, picture.height,
                                                                       ellipse.data(), &regions, &trace);
    EXPECT_EQ(found.has_array, regions != nullptr);
    EXPECT_EQ(found.records.size(), count);
    if (found.records.size() == count) {
        EXPECT_TRUE(same_bits(reinterpret_cast<const std::uint8_t*>(found.records.data()),
                              reinterpret_cast<const std::uint8_t*>(regions), count * sizeof(EllipseRegion)));
    }
    EXPECT_TRUE(same_bits(found.image, image));
    std::free(regions);
    return trace;
}

TEST(FindSmallEllipse, FindsABrightFeatureOnTheRing)
{
    Picture picture(101, 101, 50);
    paint_sector(picture, 0.8, 1.2, 200);
    const Found found = find(picture, kCircle);
    ASSERT_EQ(found.records.size(), 1u);
    const EllipseRegion& record = found.records[0];
    EXPECT_NEAR(record.cx, 50 + 20 * std::cos(1.0), 1.5);
    EXPECT_NEAR(record.cy, 50 + 20 * std::sin(1.0), 1.5);
    EXPECT_EQ(record.cx, std::floor(record.cx));
    EXPECT_NEAR(record.major, 0.4 / (2 * kPi) * 251 / 2, 1.0);
    EXPECT_EQ(record.minor, record.major);
}

TEST(FindSmallEllipse, LeavesTheOtherFieldsZero)
{
    Picture picture(101, 101, 50);
    paint_sector(picture, 0.8, 1.2, 200);
    const Found found = find(picture, kCircle);
    ASSERT_EQ(found.records.size(), 1u);
    EXPECT_EQ(found.records[0].angle, 0.0);
    EXPECT_EQ(found.records[0].pixel_count, 0);
    EXPECT_EQ(found.records[0].point_count, 0);
    EXPECT_EQ(found.records[0].points, nullptr);
    EXPECT_EQ(found.records[0].reserved[0], 0.0);
    EXPECT_EQ(found.records[0].reserved[1], 0.0);
    EXPECT_EQ(found.records[0].rms, 0.0);
}

TEST(FindSmallEllipse, GivesTwoRecordsForAWideFeature)
{
    Picture picture(101, 101, 50);
    paint_sector(picture, 1.0, 1.9, 200);
    const Found found = find(picture, kCircle);
    ASSERT_EQ(found.records.size(), 2u);
    // a quarter of the run away from its ends
    EXPECT_NEAR(std::atan2(found.records[0].cy - 50, found.records[0].cx - 50), 1.225, 0.08);
    EXPECT_NEAR(std::atan2(found.records[1].cy - 50, found.records[1].cx - 50), 1.675, 0.08);
    EXPECT_EQ(found.records[0].major, found.records[1].major);
    EXPECT_NEAR(found.records[0].major, 0.9 / (2 * kPi) * 251 / 4, 1.0);
}

TEST(FindSmallEllipse, IgnoresFeaturesThatAreTooSmallOrTooWide)
{
    for (const double extent : {0.1, 1.3, 2.5, 4.0}) {
        Picture picture(101, 101, 50);
        paint_sector(picture, 1.0, 1.0 + extent, 200);
        const Found found = find(picture, kCircle);
        EXPECT_TRUE(found.records.empty()) << extent << " radians";
        EXPECT_FALSE(found.has_array);
        EXPECT_NE(found.image, picture.pixels) << "the ring is painted all the same";
    }
}

TEST(FindSmallEllipse, DecidesByTheExtentAlone)
{
    Random random(1);
    for (int i = 0; i < 300; ++i) {
        Picture picture(101, 101, 50);
        const double from = random.real(-kPi, kPi);
        paint_sector(picture, from, from + random.real(0.15, 1.3), 200);
        const auto trace = expect_twin(picture, kCircle);
        ASSERT_EQ(trace.extents.size(), 1u);
        const double extent = trace.extents[0];
        const std::size_t expected = !(extent > 0.2 && extent < 1.2) ? 0 : extent > 0.6 ? 2 : 1;
        EXPECT_EQ(find(picture, kCircle).records.size(), expected) << extent << " radians";
    }
}

// The ring of an upright ellipse around the middle of 201 x 201 pixels, relative to that middle.
std::vector<std::pair<int, int>> upright_ring(double a, double b)
{
    const int n = static_cast<int>((2 * a - 2 * b) * 4 + 2 * b * 6.283185307179586);
    std::vector<std::pair<int, int>> ring;
    for (int i = 0; i < n; ++i) {
        const double phi = i * 6.283185307179586 / n;
        const double c = std::cos(phi);
        const double s = std::sin(phi);
        const int r = static_cast<int>(std::sqrt(1 / (c * c / (a * a) + s * s / (b * b))));
        ring.emplace_back(static_cast<int>(r * c), static_cast<int>(r * s));
    }
    return ring;
}

// The minor axis with which sample `end` has the given angle in the ellipse's frame to the last bit; 0 if none is
// found.
double minor_axis_for(double angle, double a, std::size_t end)
{
    double b = a * 0.8;
    for (int round = 0; round < 20; ++round) {
        const auto ring = upright_ring(a, b);
        if (ring.size() <= end || ring[end].first <= 0 || ring[end].second <= 0)
            return 0;
        const auto [x, y] = ring[end];
        b = a / (std::tan(angle) * x / y);
        for (int i = 0; i < 8; ++i)
            b = std::nextafter(b, 0.0);
        for (int i = 0; i < 16; ++i, b = std::nextafter(b, kInfinity))
            if (b < a && std::atan2(a / b * y, x) == angle && upright_ring(a, b)[end] == ring[end])
                return b;
        if (!(b > 1 && b < a))
            return 0;
    }
    return 0;
}

// How many records come of a run that starts at angle 0 and ends at sample `end`.
std::size_t records_of_run_up_to(std::size_t end, double a, double b)
{
    Picture picture(201, 201, 50);
    const auto ring = upright_ring(a, b);
    for (std::size_t i = 0; i <= end; ++i)
        if (ring[i].second > 0)
            picture.at(100 + ring[i].first, 100 + ring[i].second) = 200;
    const auto trace = expect_twin(picture, {100, 100, a, b, 0});
    EXPECT_EQ(trace.extents.size(), 1u);
    return find(picture, {100, 100, a, b, 0}).records.size();
}

// Runs of exactly some angle, and of the next one that their ring can have, above or below.
struct Limit {
    double angle;
    std::size_t first_end, last_end; // samples that may have the angle
    double towards;                  // where the minor axis goes for the next angle
    std::size_t records_at, records_beside;
};

void expect_limit(const Limit& limit)
{
    int tried = 0;
    for (double a = 30.3; a < 45 && tried < 5; a += 0.37)
        for (std::size_t end = limit.first_end; end < limit.last_end && tried < 5; ++end) {
            const double b = minor_axis_for(limit.angle, a, end);
            if (b == 0)
                continue;
            ++tried;
            EXPECT_EQ(records_of_run_up_to(end, a, b), limit.records_at) << a << ", " << b;
            const auto [x, y] = upright_ring(a, b)[end];
            double beside = b;
            while (std::atan2(a / beside * y, x) == limit.angle)
                beside = std::nextafter(beside, limit.towards);
            EXPECT_EQ(records_of_run_up_to(end, a, beside), limit.records_beside) << a << ", " << beside;
        }
    EXPECT_EQ(tried, 5);
}

TEST(FindSmallEllipse, GivesOneRecordFor06RadiansExactlyAndTwoJustAbove)
{
    expect_limit({0.6, 20, 45, 0.0, 1, 2});
}

TEST(FindSmallEllipse, GivesNoRecordFor02RadiansExactlyAndOneJustAbove)
{
    expect_limit({0.2, 4, 25, 0.0, 0, 1});
}

TEST(FindSmallEllipse, GivesNoRecordFor12RadiansExactlyAndTwoJustBelow)
{
    expect_limit({1.2, 40, 100, kInfinity, 0, 2});
}

TEST(FindSmallEllipse, PaintsTheRingAndNothingElse)
{
    Picture picture(101, 101, 50);
    paint_sector(picture, 0.8, 1.2, 200);
    const Found found = find(picture, kCircle);
    std::set<std::int32_t> ring;
    for (int i = 0; i < 251; ++i) {
        const double phi = i * 6.283185307179586 / 251;
        const int r = static_cast<int>(
            std::sqrt(1 / (std::cos(phi) * std::cos(phi) / 400 + std::sin(phi) * std::sin(phi) / 400)));
        ring.insert((50 + static_cast<int>(r * std::sin(phi))) * 101 + 50 + static_cast<int>(r * std::cos(phi)));
    }
    for (std::int32_t i = 0; i < 101 * 101; ++i) {
        const auto at = static_cast<std::size_t>(i);
        const bool is_bright = picture.pixels[at] == 200;
        EXPECT_EQ(found.image[at], ring.count(i) == 0 ? picture.pixels[at] : is_bright ? 0 : 255) << "pixel " << i;
    }
}

TEST(FindSmallEllipse, SamplesTheEllipseOfTwiceTheSize)
{
    // A and B are full axes of the ellipse, and semi-axes of the ring.
    Picture picture(201, 201, 50);
    paint_sector(picture, 0.3, 0.7, 200);
    const Found found = find(picture, {100, 100, 60, 30, 0});
    const auto painted = [&](std::int32_t x, std::int32_t y) {
        return found.image[static_cast<std::size_t>(y * 201 + x)] == 255;
    };
    EXPECT_TRUE(painted(160, 100) && painted(40, 100));
    EXPECT_TRUE(painted(100, 130) || painted(100, 129));
    EXPECT_FALSE(painted(130, 100) || painted(100, 115));
}

TEST(FindSmallEllipse, TurnsTheRingByTheOrientation)
{
    Picture picture(201, 201, 50);
    paint_sector(picture, 0.3, 0.7, 200);
    const Found found = find(picture, {100, 100, 60, 30, kPi / 2});
    EXPECT_EQ(found.image[160 * 201 + 100], 255);
    EXPECT_EQ(found.image[100 * 201 + 160], 50);
}

TEST(FindSmallEllipse, LeavesTheImageUntouchedWithoutTwoClasses)
{
    for (const int level : {0, 1, 128, 255}) {
        const Picture picture(101, 101, static_cast<std::uint8_t>(level));
        const Found found = find(picture, kCircle);
        EXPECT_TRUE(found.records.empty());
        EXPECT_FALSE(found.has_array);
        EXPECT_EQ(found.image, picture.pixels);
    }
}

TEST(FindSmallEllipse, LeavesTheImageUntouchedWithAThresholdOfZero)
{
    Picture picture(101, 101, 0);
    paint_sector(picture, 0.8, 1.2, 255);
    const Found found = find(picture, kCircle);
    EXPECT_FALSE(found.has_array);
    EXPECT_EQ(found.image, picture.pixels);
    std::replace(picture.pixels.begin(), picture.pixels.end(), std::uint8_t{0}, std::uint8_t{1});
    EXPECT_EQ(find(picture, kCircle).records.size(), 1u) << "of one it is above zero";
}

TEST(FindSmallEllipse, TakesNothingForBrightBelowThreeFifthsOfTheInside)
{
    // Ring levels 50 and 99. Inside 164: 0.6 * 164 = 98.4; inside 165: 99, which 99 does not exceed.
    for (const int inside : {164, 165}) {
        Picture picture(101, 101, static_cast<std::uint8_t>(inside));
        for (std::int32_t y = 0; y < 101; ++y)
            for (std::int32_t x = 0; x < 101; ++x)
                if (std::hypot(x - 50, y - 50) > 12)
                    picture.at(x, y) = 50;
        paint_sector(picture, 0.8, 1.2, 99);
        const auto trace = expect_twin(picture, kCircle);
        EXPECT_EQ(trace.inside_mean, inside);
        const Found found = find(picture, kCircle);
        EXPECT_EQ(found.records.size(), inside == 164 ? 1u : 0u);
        EXPECT_EQ(found.has_array, inside == 164);
        EXPECT_EQ(found.image[50 * 101 + 70], 255) << "painted either way";
    }
}

TEST(FindSmallEllipse, ReportsInRingOrderFromTheFirstRise)
{
    Picture picture(101, 101, 50);
    for (const double at : {-0.2, 1.0, 2.5, -2.0}) // the first of them covers the ring's origin
        paint_sector(picture, at, at + 0.4, 200);
    const Found found = find(picture, kCircle);
    ASSERT_EQ(found.records.size(), 4u);
    const double expected[] = {1.2, 2.7, -1.8, 0.0};
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_NEAR(std::atan2(found.records[i].cy - 50, found.records[i].cx - 50), expected[i], 0.08);
    EXPECT_NEAR(found.records[3].major, found.records[0].major, 1) << "a run over the origin is measured as any other";
}

TEST(FindSmallEllipse, MeasuresAnglesFromTheMiddleOfTheImage)
{
    // The same ring and feature, with the ellipse left of the middle: the run is seen under another angle.
    Picture centred(101, 101, 50);
    paint_sector(centred, -0.2, 0.2, 200);
    Picture wide(161, 101, 50);
    for (std::int32_t y = 0; y < 101; ++y)
        for (std::int32_t x = 0; x < 101; ++x)
            wide.at(x, y) = centred.at(x, y);
    const double seen_from_centre = expect_twin(centred, kCircle).extents.at(0);
    const double seen_from_aside = expect_twin(wide, kCircle).extents.at(0);
    EXPECT_NEAR(seen_from_centre, 0.4, 0.06);
    EXPECT_GT(seen_from_aside, 1.2) << "the feature lies opposite, and its angle runs backwards";
    EXPECT_EQ(find(centred, kCircle).records.size(), 1u);
    EXPECT_TRUE(find(wide, kCircle).records.empty());
}

TEST(FindSmallEllipse, TakesPositionsOutsideTheImageForBlackAndDoesNotPaintThem)
{
    Picture picture(101, 69, 90); // rows 69 and 70 of the ring are missing
    paint_sector(picture, -0.1, 0.5, 255);
    EXPECT_EQ(expect_twin(picture, kCircle).threshold, 90);
    EXPECT_EQ(find(picture, kCircle).image[50 * 101 + 70], 255);
    const Picture beside(40, 40, 90);
    const Found found = find(beside, {-500, -500, 20, 20, 0});
    EXPECT_FALSE(found.has_array);
    EXPECT_EQ(found.image, beside.pixels);
}

TEST(FindSmallEllipse, GoesOnInTheNextRowWhereTheRingLeavesARow)
{
    // Positions are one index into the buffer: beside a row lies its neighbour.
    Picture picture(60, 101, 50);
    paint_sector(picture, 0.45, 0.8, 200);
    EXPECT_EQ(expect_twin(picture, {50, 50, 20, 20, 0}).threshold, 50);
    const Found found = find(picture, {50, 50, 20, 20, 0});
    EXPECT_EQ(found.image[50 * 60 + 70], 255) << "x = 70 of row 50 is x = 10 of row 51";
}

TEST(FindSmallEllipse, GivesNothingWithoutSamples)
{
    Picture picture(101, 101, 50);
    paint_sector(picture, 0.8, 1.2, 200);
    const std::vector<std::vector<double>> degenerate = {
        {50, 50, 20, 0, 0},           {50, 50, 20, -0.0, 0},      {50, 50, 0, 0, 0},
        {50, 50, -20, -10, 0},        {50, 50, 0.05, 0.05, 0},    {50, 50, kNotANumber, 20, 0},
        {50, 50, 20, kNotANumber, 0}, {50, 50, kInfinity, 20, 0}, {50, 50, 20, kInfinity, 0},
        {50, 50, 1e300, 20, 0},       {50, 50, 20, -1e300, 0}};
    for (const auto& ellipse : degenerate) {
        const Found found = find(picture, ellipse);
        EXPECT_TRUE(found.records.empty());
        EXPECT_FALSE(found.has_array);
        EXPECT_EQ(found.image, picture.pixels);
    }
}

TEST(FindSmallEllipse, WithoutAMinorAxisIsNoneThoughItsSamplesHaveTwoLevels)
{
    // Upright, the one sample without a radius wraps to the pixel left of the centre, where all others lie.
    Picture picture(100, 100, 50);
    picture.at(49, 50) = 200;
    const Found found = find(picture, {50, 50, 20, 0, kPi / 2});
    EXPECT_FALSE(found.has_array);
    EXPECT_EQ(found.image, picture.pixels);
}

TEST(FindSmallEllipse, EqualsItsTwinWhereFociLieBesideTheImage)
{
    Random random(11);
    for (int i = 0; i < 600; ++i) {
        Picture picture(20, 20, 50);
        picture.pixels = panoval::test::picture(panoval::test::Content::Noise, 20, 20, static_cast<std::uint64_t>(i));
        const double a = random.real(4, 16);
        const double x = random.real(-4, 10);
        const double y = random.real(-4, 10);
        SCOPED_TRACE(i);
        expect_twin(picture, {x, y, a, a * random.real(0.2, 0.9), random.real(-kPi, kPi)});
    }
}

TEST(FindSmallEllipse, TruncatesTheNumberOfSamples)
{
    // (2A - 2B) * 4 + 2B * 2 pi = 1.0053 for A = B = 0.08, and 0.9927 for 0.079
    const Picture picture(11, 11, 50);
    EXPECT_EQ(expect_twin(picture, {5, 5, 0.08, 0.08, 0}).samples, 1);
    EXPECT_EQ(expect_twin(picture, {5, 5, 0.079, 0.079, 0}).samples, 0);
    EXPECT_EQ(expect_twin(picture, {5, 5, 3, 2, 0}).samples, 33);
}

TEST(FindSmallEllipse, TakesEveryPixelForInsideWhereBIsLongerThanA)
{
    Picture picture(101, 101, 50);
    paint_sector(picture, 0.8, 1.2, 200);
    const auto trace = expect_twin(picture, {50, 50, 15, 20, 0});
    std::int64_t sum = 0;
    for (const std::uint8_t pixel : picture.pixels)
        sum += pixel;
    EXPECT_EQ(trace.inside_mean, sum / (101 * 101));
    EXPECT_EQ(find(picture, {50, 50, 15, 20, 0}).records.size(), 1u);
}

TEST(FindSmallEllipse, StaysDefinedForOddCentresAnglesAndSizes)
{
    Picture picture(101, 101, 50);
    paint_sector(picture, 0.8, 1.2, 200);
    for_each_target([&] {
        for (const double odd :
             {kNotANumber, kInfinity, -kInfinity, 1e300, -1e300, 3e9, -3e9, 2147483647.0, 21474836.0}) {
            expect_twin(picture, {odd, 50, 20, 20, 0});
            expect_twin(picture, {50, odd, 20, 20, 0});
            expect_twin(picture, {50, 50, 20, 20, odd});
            expect_twin(picture, {50, 50, 20, 30, odd});
            expect_twin(picture, {odd, odd, 20, 30, odd});
        }
        expect_twin(picture, {50, 50, 0, 1, 0});
        expect_twin(picture, {50, 50, 10, -1, 0});
        expect_twin(picture, {50, 50, 1e-200, 5, 0});
        // Axes of 1e11 that nearly cancel in the number of samples: the radius leaves the integers.
        const double a = 1e11;
        const double b = -8 * a / (4 * 3.141592653589793 - 8) + 20;
        EXPECT_GT(expect_twin(picture, {50, 50, a, b, 0.3}).samples, 0);
    });
    for (const auto& [width, height] : {std::pair(0, 0), std::pair(0, 9), std::pair(-5, -5), std::pair(-5, 5)}) {
        EllipseRegion* regions = nullptr;
        EXPECT_EQ(find_small_ellipse(nullptr, width, height, kCircle.data(), &regions), 0u);
        EXPECT_EQ(regions, nullptr);
    }
}

TEST(FindSmallEllipse, EqualsItsTwinOnRandomPicturesAndEllipses)
{
    Random random(7);
    std::size_t records = 0;
    for (int i = 0; i < 400; ++i) {
        Picture picture(static_cast<std::int32_t>(random.integer(1, 160)),
                        static_cast<std::int32_t>(random.integer(1, 160)), 50);
        picture.pixels = panoval::test::picture(
            panoval::test::kAllContents[static_cast<std::size_t>(i) % panoval::test::kAllContents.size()],
            picture.width, picture.height, static_cast<std::uint64_t>(i));
        for (int k = 0; k < i % 6; ++k) {
            const double from = random.real(-kPi, kPi);
            paint_sector(picture, from, from + random.real(0.1, 1.0),
                         static_cast<std::uint8_t>(random.integer(0, 255)));
        }
        const double a = random.real(0.5, 70);
        SCOPED_TRACE(i);
        records +=
            expect_twin(picture, {picture.width / 2 + random.real(-20, 20), picture.height / 2 + random.real(-9, 9), a,
                                  a * random.real(0.2, 1.1), random.real(-kPi, kPi)})
                .extents.size();
    }
    EXPECT_GT(records, 1000u);
}

TEST(FindSmallEllipse, EqualsItsTwinOnEveryInstructionSet)
{
    for_each_target([] {
        Random random(8);
        for (int i = 0; i < 40; ++i) {
            Picture picture(120, 110, 50);
            paint_sector(picture, -0.5, 0.1, 180);
            paint_sector(picture, 2, 2.4, 120);
            expect_twin(picture, {random.real(55, 65), random.real(50, 60), random.real(20, 50), random.real(10, 50),
                                  random.real(-kPi, kPi)});
        }
    });
}

void expect_nothing_without_memory(const Picture& picture)
{
    for_each_failing_allocation([&](const auto& heap) {
        std::vector<std::uint8_t> image = picture.pixels;
        EllipseRegion* regions = nullptr;
        const std::uint32_t count = find_small_ellipse(image.data(), 101, 101, kCircle.data(), &regions);
        EXPECT_EQ(count == 0, heap.has_failed());
        EXPECT_EQ(regions == nullptr, heap.has_failed());
        EXPECT_EQ(heap.live_blocks(), regions == nullptr ? 0 : 1);
        std::free(regions);
    });
}

TEST(FindSmallEllipse, WithoutMemoryGivesNothing)
{
    Picture picture(101, 101, 50);
    for (int k = 0; k < 12; ++k) // more records than the first block holds
        paint_sector(picture, -kPi + 0.5 * k, -kPi + 0.5 * k + 0.3, 200);
    EXPECT_GT(find(picture, kCircle).records.size(), 8u);
    expect_nothing_without_memory(picture);
    Picture wide(101, 101, 50);
    paint_sector(wide, 1.0, 1.9, 200);
    EXPECT_EQ(find(wide, kCircle).records.size(), 2u);
    expect_nothing_without_memory(wide);
    Picture full(101, 101, 50); // the second record of a wide feature is the first that needs a larger block
    for (int k = 0; k < 7; ++k)
        paint_sector(full, (k < 5 ? 0.2 : 0.2 - 2 * kPi) + 0.6 * k, (k < 5 ? 0.5 : 0.5 - 2 * kPi) + 0.6 * k, 200);
    paint_sector(full, 4.6 - 2 * kPi, 5.5 - 2 * kPi, 200);
    EXPECT_EQ(find(full, kCircle).records.size(), 9u);
    expect_nothing_without_memory(full);
}

} // namespace
