// SPDX-License-Identifier: MIT
#include "mosaic/verdict/verdict_blame.h"

#include <gtest/gtest.h>

namespace panoval::mosaic::test
{

namespace
{

using Numbers = std::vector<std::size_t>;

Evidence bad(std::size_t first, std::size_t second)
{
    return {first, second, 1, 0, std::nullopt};
}

Evidence good(std::size_t first, std::size_t second)
{
    return {first, second, 0, 1, std::nullopt};
}

TEST(FindMisfits, NobodyWhereAllFit)
{
    EXPECT_EQ(find_misfits(3, {good(0, 1), good(1, 2)}), Numbers{});
}

TEST(FindMisfits, OneInTheMiddle)
{
    EXPECT_EQ(find_misfits(3, {bad(0, 1), bad(1, 2)}), Numbers{1});
}

TEST(FindMisfits, OneAtTheEnd)
{
    EXPECT_EQ(find_misfits(4, {good(0, 1), good(1, 2), bad(2, 3)}), Numbers{3});
}

TEST(FindMisfits, EitherOfTwoAreBoth)
{
    EXPECT_EQ(find_misfits(2, {bad(0, 1)}), (Numbers{0, 1}));
}

TEST(FindMisfits, TheSuspectOfTwo)
{
    EXPECT_EQ(find_misfits(2, {{0, 1, 1, 0, 0}}), Numbers{0});
}

TEST(FindMisfits, AWholeGroupThatIsDisplacedTogether)
{
    EXPECT_EQ(find_misfits(5, {good(0, 1), good(1, 2), bad(2, 3), good(3, 4)}), (Numbers{3, 4}));
}

TEST(FindMisfits, NoGroupOfPicturesThatHardlySeemToFit)
{
    const Evidence hardly{3, 4, 0, 0.29, std::nullopt};
    EXPECT_EQ(find_misfits(5, {good(0, 1), good(1, 2), bad(2, 3), hardly}), Numbers{3});
    const Evidence rather{3, 4, 0, 0.31, std::nullopt};
    EXPECT_EQ(find_misfits(5, {good(0, 1), good(1, 2), bad(2, 3), rather}), Numbers{3}) << "one is cheaper";
    const Evidence well{3, 4, 0, 0.5, std::nullopt};
    EXPECT_EQ(find_misfits(5, {good(0, 1), good(1, 2), bad(2, 3), well}), (Numbers{3, 4}));
    const Evidence disputed{3, 4, 0.4, 0.35, std::nullopt};
    EXPECT_EQ(find_misfits(5, {good(0, 1), good(1, 2), bad(2, 3), disputed}), Numbers{3});
}

TEST(FindMisfits, TwoThatChangedPlacesInAGrid)
{
    //  0 1 2
    //  3 4 5
    EXPECT_EQ(find_misfits(6, {bad(0, 1), bad(1, 2), good(0, 3), bad(1, 4), good(2, 5), bad(3, 4), bad(4, 5)}),
              (Numbers{1, 4}));
}

TEST(FindMisfits, NobodyWhereHardlyAnythingFits)
{
    std::vector<Evidence> all;
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t j = i + 1; j < 4; ++j)
            all.push_back(bad(i, j));
    EXPECT_EQ(find_misfits(4, all), Numbers{});
}

} // namespace

} // namespace panoval::mosaic::test
