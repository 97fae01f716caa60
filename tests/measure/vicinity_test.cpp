// SPDX-License-Identifier: MIT
#include "measure/vicinity.h"

#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace
{

using panoval::measure::Disk;
using panoval::measure::Vicinity;
using panoval::test::Random;

using Indices = std::vector<std::size_t>;

TEST(Vicinity, IsEmptyAtFirst)
{
    EXPECT_EQ(Vicinity().near({0, 0, 1e6}), Indices());
}

TEST(Vicinity, HasThoseThatTouch)
{
    Vicinity vicinity;
    vicinity.put(0, {100, 100, 10});
    vicinity.put(1, {300, 100, 10});
    vicinity.put(2, {300, 300, 250});
    EXPECT_EQ(vicinity.near({115, 100, 5}), (Indices{0, 2})) << "the large one comes near, by its cell";
    EXPECT_EQ(vicinity.near({290, 110, 0}), (Indices{1, 2}));
    EXPECT_EQ(vicinity.near({2000, 2000, 10}), Indices());
    EXPECT_EQ(vicinity.near({-700, 100, 790}), (Indices{0, 2}));
}

TEST(Vicinity, FollowsWhatMovesAndChangesItsSize)
{
    Vicinity vicinity;
    vicinity.put(1, {100, 100, 10});
    vicinity.put(0, {100, 100, 10});
    vicinity.put(1, {900, 100, 10});
    EXPECT_EQ(vicinity.near({100, 100, 20}), Indices{0});
    EXPECT_EQ(vicinity.near({900, 100, 20}), Indices{1});
    vicinity.put(1, {900, 100, 800});
    EXPECT_EQ(vicinity.near({100, 100, 20}), (Indices{0, 1}));
    vicinity.put(1, {900, 100, 1});
    EXPECT_EQ(vicinity.near({100, 100, 20}), Indices{0});
}

TEST(Vicinity, TakesWhatIsNoNumberForNear)
{
    Vicinity vicinity;
    vicinity.put(0, {NAN, 100, 10});
    vicinity.put(1, {100, -HUGE_VAL, 10});
    vicinity.put(2, {100, 100, NAN});
    vicinity.put(3, {100, 100, 10});
    EXPECT_EQ(vicinity.near({5000, 5000, 1}), (Indices{0, 1, 2}));
    EXPECT_EQ(vicinity.near({NAN, 5000, 1}), (Indices{0, 1, 2, 3}));
    EXPECT_EQ(vicinity.near({5000, 5000, HUGE_VAL}), (Indices{0, 1, 2, 3}));
    vicinity.put(0, {200, 100, 10});
    EXPECT_EQ(vicinity.near({5000, 5000, 1}), (Indices{1, 2}));
}

TEST(Vicinity, HasCellsForPlacesFarAway)
{
    Vicinity vicinity;
    vicinity.put(0, {1e9, -1e9, 0.5});
    vicinity.put(1, {-1e9, 1e9, 0.5});
    EXPECT_EQ(vicinity.near({1e9, -1e9, 3}), Indices{0});
    EXPECT_EQ(vicinity.near({1e9, -1e9, 1e9}), Indices{0});
    vicinity.put(2, {0, 0, 1e9});
    EXPECT_EQ(vicinity.near({-1e9, 1e9, 3}), (Indices{1, 2})) << "the cell beside";
}

bool do_touch(const Disk& one, const Disk& other)
{
    return std::hypot(one.x - other.x, one.y - other.y) <= one.radius + other.radius;
}

// Radii from far below a pixel to hundreds.
Disk random_disk(Random& random)
{
    const double x = random.real(-50, 1000);
    const double y = random.real(-50, 700);
    const double size = random.real(-4, 9);
    return {x, y, std::exp2(size)};
}

TEST(Vicinity, LeavesNoneOutOfManyThatMove)
{
    Random random(11);
    std::vector<Disk> disks;
    Vicinity vicinity;
    for (int step = 0; step < 3000; ++step) {
        const Disk disk = random_disk(random);
        const auto index = static_cast<std::size_t>(random.integer(0, 400));
        disks.resize(std::max(disks.size(), index + 1), {NAN, NAN, 0});
        disks[index] = disk;
        vicinity.put(index, disk);
        const Disk place = random_disk(random);
        const Indices near = vicinity.near(place);
        EXPECT_TRUE(std::is_sorted(near.begin(), near.end()));
        EXPECT_EQ(std::adjacent_find(near.begin(), near.end()), near.end()) << "none twice";
        for (std::size_t k = 0; k < disks.size(); ++k)
            EXPECT_TRUE(!do_touch(place, disks[k]) || std::binary_search(near.begin(), near.end(), k))
                << "step " << step << ", disk " << k;
    }
}

TEST(Vicinity, LooksAtFewOfMany)
{
    Vicinity vicinity;
    for (std::size_t i = 0; i < 10000; ++i)
        vicinity.put(i, {10.0 * static_cast<double>(i % 100), 10.0 * static_cast<double>(i / 100), 4});
    EXPECT_LE(vicinity.near({500, 500, 4}).size(), 9u);
}

} // namespace
