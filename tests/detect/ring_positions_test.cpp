// SPDX-License-Identifier: MIT
#include "detect/ring_positions.h"

#include "core/elementary.h"
#include "core/numbers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <cmath>
#include <vector>

namespace panoval::test
{

namespace
{

struct Place {
    std::int32_t x;
    std::int32_t y;
    friend bool operator==(const Place&, const Place&) = default;
};

// Sample i of a ring, as it is defined.
Place place_of(const RingShape& shape, std::int32_t i, std::int32_t all)
{
    const double phi = (i * 6.283185307179586) / all;
    const double c = panoval::cos(phi);
    const double s = panoval::sin(phi);
    const double sum = (c * c) / (shape.a * shape.a) + (s * s) / (shape.b * shape.b);
    const double radius = truncate_to_int(std::sqrt(1.0 / sum));
    const double dx = truncate_to_int(radius * c);
    const double dy = truncate_to_int(radius * s);
    return {truncate_to_int((dx * shape.cosine - dy * shape.sine) + shape.x),
            truncate_to_int((dy * shape.cosine + dx * shape.sine) + shape.y)};
}

void compare(const RingShape& shape, std::int32_t all)
{
    for (std::int32_t first = 0; first < all; first += kRingBatch) {
        const std::int32_t count = std::min(kRingBatch, all - first);
        std::int32_t x[kRingBatch];
        std::int32_t y[kRingBatch];
        ring_positions(shape, first, count, all, x, y);
        for (std::int32_t i = 0; i < count; ++i)
            ASSERT_EQ((Place{x[i], y[i]}), place_of(shape, first + i, all)) << "sample " << first + i << " of " << all;
    }
}

TEST(RingPositions, OfACircleTruncateTowardsZero)
{
    for_each_target([] {
        std::int32_t x[kRingBatch];
        std::int32_t y[kRingBatch];
        ring_positions({10.5, 20.5, 5.9, 5.9, 1, 0}, 0, 4, 4, x, y);
        EXPECT_EQ((Place{x[0], y[0]}), (Place{15, 20})) << "a radius of 5";
        EXPECT_EQ((Place{x[1], y[1]}), (Place{10, 25}));
        EXPECT_EQ((Place{x[2], y[2]}), (Place{5, 20}));
        EXPECT_EQ((Place{x[3], y[3]}), (Place{10, 15}));
    });
}

TEST(RingPositions, EqualTheirTwinForEveryCount)
{
    for_each_target([] {
        Random random(3);
        for (const std::int32_t all : {1, 2, 3, 7, 8, 9, 63, 127, 128, 129, 300})
            for (int n = 0; n < 20; ++n) {
                const double angle = random.real(-4, 4);
                compare({random.real(-50, 900), random.real(-50, 900), random.real(0.3, 80), random.real(0.3, 80),
                         panoval::cos(angle), panoval::sin(angle)},
                        all);
            }
    });
}

TEST(RingPositions, OutOfTheRangeAreTheMostNegativeNumber)
{
    for_each_target([] {
        compare({3e9, -3e9, 10, 5, 1, 0}, 20);
        compare({0, 0, 1e300, 1e200, 1, 0}, 20);
        compare({0, 0, 0, 5, 1, 0}, 20);
        compare({-100, -100, 2147483648.0, 2147483648.0, 1, 0}, 4); // a radius of 2^31, one more than there is
    });
}

} // namespace

} // namespace panoval::test
