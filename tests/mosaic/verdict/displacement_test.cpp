// SPDX-License-Identifier: MIT
// The vote on a displacement, of blocks that say whatever a test wants.
#include "mosaic/verdict/displacement.h"

#include <gtest/gtest.h>

#include <cmath>

namespace panoval::mosaic::test
{

namespace
{

constexpr KnownNoise kLittleNoise{0.1, 0.1};

// A block of 128 x 128 pixels that shows much, and is found at (x, y).
BlockShift found_at(double x, double y)
{
    BlockShift block;
    block.rect = {0, 0, 128, 128};
    block.fit.is_valid = true;
    block.fit.x = x;
    block.fit.y = y;
    block.fit.correlation = 0.95;
    block.fit.count = 128.0 * 128;
    block.fit.variance_first = 20;
    block.fit.variance_second = 20;
    block.fit.information = {1e4, 0, 1e4};
    block.fit.gradients = {5, 0, 5};
    block.chance = 0.01;
    block.noise_first = 0.1;
    block.noise_second = 0.1;
    block.agreeing = 20;
    return block;
}

// One whose contents are nowhere in the other picture.
BlockShift found_nowhere()
{
    BlockShift block = found_at(0, 0);
    block.fit.correlation = 0.02;
    block.agreeing = 0;
    block.strange = 20;
    return block;
}

// All of an overlap in cells of four pixels; x and y in pixels.
BlockShift reduced(const BlockShift& block)
{
    BlockShift cells = block;
    cells.step = 4;
    cells.fit.x /= 4;
    cells.fit.y /= 4;
    cells.rect = {0, 0, 512, 512};
    return cells;
}

ShiftVote vote_of(const std::vector<BlockShift>& blocks, const EmptySides& empty_sides = {}, double unevenness = 0)
{
    return vote(blocks, kLittleNoise, empty_sides, unevenness);
}

TEST(ShiftVote, OfBlocksThatAgreeIsTheirDisplacement)
{
    const ShiftVote found = vote_of({found_at(1.5, -2), found_at(1.5, -2), found_at(1.5, -2)});
    ASSERT_TRUE(found.displacement);
    EXPECT_NEAR(found.displacement->x, 1.5, 0.01);
    EXPECT_NEAR(found.displacement->y, -2, 0.01);
    EXPECT_GT(found.displacement->confidence, 0.95);
    EXPECT_NEAR(found.displaced_by, 2.5, 0.01);
    EXPECT_NEAR(found.uncertainty, std::sqrt(0.05 * 0.05 / 3 + 1e-4), 0.001) << "no block is believed any better";
    EXPECT_NEAR(found.weight, 3 / 3.5, 0.01);
    EXPECT_EQ(found.mismatch, 0);
    EXPECT_FALSE(found.empty);
}

TEST(ShiftVote, GoesToTheLargestParty)
{
    const ShiftVote found = vote_of({found_at(9, 0), found_at(0, 0), found_at(0.2, 0), found_at(0, 0.2)});
    ASSERT_TRUE(found.displacement);
    EXPECT_NEAR(found.displacement->x, 0.07, 0.02);
    EXPECT_NEAR(found.displacement->y, 0.07, 0.02);
    EXPECT_NEAR(found.displacement->confidence, 0.75, 0.02) << "the fourth one is against it";
    EXPECT_LT(found.displaced_by, 0.15);
}

TEST(ShiftVote, WithoutAMajorityTellsTheMiddleLength)
{
    const ShiftVote three = vote_of({found_at(6, 0), found_at(0, 0), found_at(0, -3)});
    EXPECT_TRUE(three.displacement) << "a third of the blocks";
    EXPECT_NEAR(three.displaced_by, 3, 1e-9);
    const ShiftVote four = vote_of({found_at(9, 0), found_at(6, 0), found_at(0, 0), found_at(0, -3)});
    EXPECT_FALSE(four.displacement) << "a quarter of them";
    EXPECT_NEAR(four.displaced_by, 3, 1e-9);
}

TEST(ShiftVote, CountsLengthsThatMayAsWellBeNoneAsNone)
{
    BlockShift right = found_at(0.86, 0);
    right.fit.information = {11.9, 0, 11.9}; // 0.29 pixels, a third of it
    BlockShift left = right;
    left.fit.x = -0.86;
    EXPECT_EQ(vote_of({left, found_at(6, 0), right}).displaced_by, 0);
    left.fit.information = right.fit.information = {13, 0, 13};
    EXPECT_NEAR(vote_of({left, found_at(6, 0), right}).displaced_by, 0.86, 1e-9);
}

TEST(ShiftVote, IsAMismatchWhereBlocksAreFoundNowhere)
{
    const ShiftVote all = vote_of({found_nowhere(), found_nowhere()});
    EXPECT_EQ(all.mismatch, 1);
    EXPECT_FALSE(all.displacement);
    EXPECT_NEAR(all.weight, 0.8, 1e-9) << "of two blocks";
    const ShiftVote half = vote_of({found_nowhere(), found_at(1, 0)});
    EXPECT_NEAR(half.mismatch, 0.5, 0.01);
    ASSERT_TRUE(half.displacement);
    EXPECT_NEAR(half.displacement->confidence, 0.5, 0.03);
}

TEST(ShiftVote, ReducedCopiesCountHalfAmongBlocks)
{
    EXPECT_NEAR(vote_of({reduced(found_nowhere())}).weight, 1 / 1.5, 1e-9);
    EXPECT_NEAR(vote_of({reduced(found_nowhere()), found_nowhere()}).weight, 2 / 2.5, 1e-9);
    EXPECT_NEAR(vote_of({reduced(found_nowhere()), found_nowhere(), found_nowhere()}).weight, 2.5 / 3, 1e-9);
}

// Squares of coding leave little in common where the whole overlap fits.
TEST(ShiftVote, AsksMoreOfBlocksWhereTheWholeFits)
{
    BlockShift faint = found_nowhere();
    faint.fit.variance_first = faint.fit.variance_second = 2;
    EXPECT_GT(vote_of({faint, found_at(0, 0)}).mismatch, 0.4);
    EXPECT_EQ(vote_of({faint, reduced(found_at(0, 0))}).mismatch, 0);
    EXPECT_GT(vote_of({faint, reduced(found_at(4, 0))}).mismatch, 0.4) << "it does not fit where it lies";
}

TEST(ShiftVote, HasNoWeightWhereNothingIsKnown)
{
    const auto expect_nothing = [](const ShiftVote& found) {
        EXPECT_EQ(found.weight, 0);
        EXPECT_EQ(found.displaced_by, 0);
        EXPECT_FALSE(found.displacement);
    };
    expect_nothing(vote_of({}));
    expect_nothing(vote_of({BlockShift{}})); // without a fit
    BlockShift faint = found_at(1, 0);
    faint.fit.variance_first = faint.fit.variance_second = 0.2;
    expect_nothing(vote_of({faint}));
    BlockShift flat = found_at(0, 0);
    flat.fit.variance_first = 0;
    expect_nothing(vote_of({flat}));
    BlockShift apart = found_at(1, 0); // gradients that do not go together
    apart.fit.information = {1e4, 5e4, 1e4};
    expect_nothing(vote_of({apart}));
    BlockShift gentle = found_at(1, 0); // slopes that say nothing about places
    gentle.fit.gradients = {0.01, 0, 0.01};
    expect_nothing(vote_of({gentle}));
    BlockShift noisy = found_at(1, 0); // less than chance alone may make of its noise
    noisy.fit.variance_first = noisy.fit.variance_second = 4.2;
    noisy.noise_first = noisy.noise_second = 4;
    expect_nothing(vote({noisy}, {4, 4}, {}, 0));
}

TEST(ShiftVote, HasNothingOfBlocksThatHardlyCorrelate)
{
    BlockShift hardly = found_at(1, 0); // as much of their area agrees as differs from nothing
    hardly.fit.correlation = 0.29;
    EXPECT_EQ(vote_of({hardly}).weight, 0);
    hardly.fit.correlation = 0.31;
    EXPECT_GT(vote_of({hardly}).weight, 0.6);
}

TEST(ShiftVote, LeavesSquaresOfCodingOut)
{
    BlockShift squares = found_nowhere();
    squares.fit.variance_first = 2.9;
    EXPECT_GT(vote_of({squares}).weight, 0);
    squares.is_coded = true;
    EXPECT_TRUE(is_coding_alone(squares));
    EXPECT_EQ(vote_of({squares}).weight, 0);
    squares.fit.variance_first = 3.1;
    EXPECT_FALSE(is_coding_alone(squares)) << "coding is fainter";
    squares.fit.variance_first = 2.9;
    squares.fit.correlation = 0.91;
    EXPECT_FALSE(is_coding_alone(squares)) << "they begin at the same places";
}

TEST(ShiftVote, IsLessCertainInUnevenLight)
{
    BlockShift soft = found_at(1, 0);
    soft.fit.gradients = {0.1, 0, 0.1};
    const ShiftVote even = vote_of({soft, soft});
    const ShiftVote uneven = vote_of({soft, soft}, {}, 20);
    EXPECT_GT(uneven.uncertainty, 3 * even.uncertainty);
    BlockShift against = soft; // one direction's gradients are of opposite sign: light is not what moves them
    against.fit.gradients = {0.2, 0, -0.05};
    EXPECT_EQ(vote_of({against, against}, {}, 20).uncertainty, vote_of({against, against}).uncertainty);
}

// Shows nothing where the other picture shows something.
BlockShift with_nothing_in(bool is_second)
{
    BlockShift block = found_nowhere();
    (is_second ? block.fit.variance_second : block.fit.variance_first) = 0.1;
    return block;
}

TEST(ShiftVote, NamesAPictureThatMayBeEmptyIfMostBlocksSaySo)
{
    for (const bool is_second : {false, true}) {
        EmptySides sides;
        (is_second ? sides.second : sides.first) = Emptiness::Possible;
        const BlockShift nothing = with_nothing_in(is_second);
        EXPECT_EQ(vote_of({nothing, nothing}, sides).empty, is_second);
        EXPECT_FALSE(vote_of({nothing, found_at(0, 0)}, sides).empty) << "half of the blocks";
        EXPECT_FALSE(vote_of({nothing, nothing}).empty) << "what their cells show is needed, too";
        (is_second ? sides.second : sides.first) = Emptiness::Certain;
        EXPECT_EQ(vote_of({nothing, found_at(0, 0)}, sides).empty, is_second);
    }
}

// What fine detail there is beyond what is certainly no noise counts up to as much again.
TEST(ShiftVote, BelievesOfABlockWhatIsNoNoise)
{
    BlockShift noise = found_nowhere();
    noise.seen_first = noise.seen_second = 0.05;
    EXPECT_EQ(vote_of({noise}).mismatch, 0);
    noise.seen_first = noise.seen_second = 10;
    EXPECT_EQ(vote_of({noise}).mismatch, 1);
}

// A row of windows goes together with another one somewhere.
TEST(ShiftVote, IsAMismatchWhereMostSquaresDiffer)
{
    BlockShift windows = found_at(3, 0);
    windows.fit.correlation = 0.5;
    windows.agreeing = 7;
    windows.strange = 9;
    EXPECT_EQ(vote_of({windows}).mismatch, 0);
    windows.agreeing = 4; // too few for a match
    EXPECT_EQ(vote_of({windows}).mismatch, 1);
    windows.strange = 5;
    windows.agreeing = 2;
    EXPECT_EQ(vote_of({windows}).mismatch, 1) << "the correlation alone is far less than expected";
    windows.chance = 0.13;
    EXPECT_EQ(vote_of({windows}).mismatch, 0) << "as chance may have it; too few squares";
    windows.strange = 6;
    EXPECT_EQ(vote_of({windows}).mismatch, 1);
    windows.fit.correlation = 0.61;
    EXPECT_EQ(vote_of({windows}).mismatch, 0) << "as much as is expected of most of it";
    windows.fit.count = 8000; // half of its pixels
    EXPECT_EQ(vote_of({windows}).mismatch, 1);
    BlockShift copy = reduced(windows);
    EXPECT_EQ(vote_of({copy}).mismatch, 0) << "of reduced copies nobody can tell";
}

TEST(BlockShift, ChanceIsLargerOfAPart)
{
    BlockShift block = found_at(0, 0);
    EXPECT_EQ(chance_at(block), 0.01);
    block.fit.count = 128.0 * 32;
    EXPECT_EQ(chance_at(block), 0.02);
    EXPECT_TRUE(is_of_a_part(block));
    block.fit.count = 128.0 * 64;
    EXPECT_FALSE(is_of_a_part(block));
    block = reduced(block); // of 128 x 128 cells
    block.fit.count = 128.0 * 32;
    EXPECT_FALSE(is_of_a_part(block)) << "of reduced copies nobody can tell";
    EXPECT_EQ(chance_at(block), 0.02);
}

TEST(BlockShift, IsMatchedWhereItCorrelatesBeyondChanceAndEnoughOfItsAreaAgrees)
{
    BlockShift block = found_at(0, 0);
    EXPECT_TRUE(is_matched(block));
    block.strange = 40;
    EXPECT_TRUE(is_matched(block)) << "a third of the area";
    block.strange = 41;
    EXPECT_FALSE(is_matched(block));
    block.strange = 20;
    block.fit.count = 8000; // a part may be a chosen one
    EXPECT_TRUE(is_matched(block));
    block.strange = 21;
    EXPECT_FALSE(is_matched(block));
    block = found_at(0, 0);
    block.fit.correlation = 0.1;
    EXPECT_FALSE(is_matched(block));
    block.fit.correlation = 0.101;
    EXPECT_TRUE(is_matched(block));
    block.chance = 0.1; // the hyperbolic tangent of 4.5 times it
    block.fit.correlation = 0.42;
    EXPECT_FALSE(is_matched(block));
    block.fit.correlation = 0.423;
    EXPECT_TRUE(is_matched(block));
    block.fit.is_valid = false;
    EXPECT_FALSE(is_matched(block));
}

// Cells of which the first half of each row is unknown, and whose values are brightness(x, y) in the first and in the
// second picture.
template <class First, class Second>
OverlapCells cells_of(const First& first, const Second& second)
{
    OverlapCells cells;
    cells.width = 40;
    cells.height = 30;
    cells.channels = 1;
    for (std::size_t y = 0; y < cells.height; ++y)
        for (std::size_t x = 0; x < cells.width; ++x) {
            const bool is_known = x >= 20;
            cells.first.push_back(is_known ? static_cast<float>(first(x, y)) : 0.f);
            cells.second.push_back(is_known ? static_cast<float>(second(x, y)) : 0.f);
            cells.known.push_back(is_known ? 1 : 0);
        }
    cells.clipped.assign(cells.cells(), 0);
    return cells;
}

double slope(std::size_t x, std::size_t y)
{
    return 20.0 + 2.0 * static_cast<double>(x + y);
}

TEST(FindEmpty, IsCertainOfOneValueThatDiffers)
{
    const auto grey = [](std::size_t, std::size_t) { return 30.0; };
    EXPECT_EQ(find_empty(cells_of(grey, slope)).first, Emptiness::Certain);
    EXPECT_EQ(find_empty(cells_of(grey, slope)).second, Emptiness::No);
    EXPECT_EQ(find_empty(cells_of(slope, grey)).second, Emptiness::Certain);
    EXPECT_EQ(find_empty(cells_of(slope, slope)).first, Emptiness::No);
}

// A sky that is white in one picture only differs by no more than the end of the range explains.
TEST(FindEmpty, IsNotCertainWhereTheRangeEnds)
{
    const auto white = [](std::size_t, std::size_t) { return 255.0; };
    OverlapCells cells = cells_of(white, slope);
    EXPECT_EQ(find_empty(cells).first, Emptiness::Certain);
    cells = cells_of(slope, white);
    cells.clipped.assign(cells.cells(), 2); // the second one is brighter than it can tell
    EXPECT_EQ(find_empty(cells).second, Emptiness::Certain) << "which makes it no darker";
    cells = cells_of(white, [](std::size_t x, std::size_t y) { return 258.0 + 2 * slope(x, y); });
    cells.clipped.assign(cells.cells(), 1); // and what is brighter still is no difference
    EXPECT_EQ(find_empty(cells).first, Emptiness::Possible);
}

TEST(FindEmpty, IsPossibleWhereOnePictureHardlyVaries)
{
    const auto tenth = [](std::size_t x, std::size_t y) { return 50 + 0.1 * slope(x, y); };
    const auto third = [](std::size_t x, std::size_t y) { return 50 + 0.3 * slope(x, y); };
    const auto hardly = [](std::size_t x, std::size_t y) { return 50 + 0.01 * slope(x, y); };
    const auto nearly_nothing = [](std::size_t x, std::size_t y) { return 50 + 0.002 * slope(x, y); };
    EXPECT_EQ(find_empty(cells_of(tenth, slope)).first, Emptiness::Possible);
    EXPECT_EQ(find_empty(cells_of(third, slope)).first, Emptiness::No);
    EXPECT_EQ(find_empty(cells_of(tenth, hardly)).second, Emptiness::Possible);
    EXPECT_EQ(find_empty(cells_of([](std::size_t, std::size_t) { return 50.0; }, nearly_nothing)).first, Emptiness::No)
        << "the other one hardly shows anything either";
}

TEST(FindEmpty, KnowsNothingOfAFewCells)
{
    OverlapCells cells = cells_of([](std::size_t, std::size_t) { return 30.0; }, slope);
    std::fill(cells.known.begin() + 25, cells.known.end(), std::uint8_t{0}); // five are left
    EXPECT_NE(find_empty(cells).first, Emptiness::Certain);
}

} // namespace

} // namespace panoval::mosaic::test
