// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_swap.h"

#include "mosaic/seams/seam_cost.h"
#include "mosaic/seams/seam_map.h"

#include <gtest/gtest.h>

#include <set>

namespace panoval::mosaic::test
{

namespace
{

using Labels = std::vector<std::int32_t>;

// The same costs for every pair, which is noted.
class RowCosts : public SwapCosts
{
public:
    explicit RowCosts(std::vector<std::int32_t> costs) : costs_(std::move(costs)) {}

    void fill(std::size_t first, std::size_t second, std::vector<std::int32_t>& out) override
    {
        asked.insert({first, second});
        out = costs_;
    }

    std::set<std::pair<std::size_t, std::size_t>> asked;

private:
    std::vector<std::int32_t> costs_;
};

// One row, all of which may change, between two labels that stay.
SwapWindow row_between(std::int32_t left, const Labels& labels, std::int32_t right)
{
    const auto width = static_cast<std::int64_t>(labels.size());
    SwapWindow window;
    window.reset(width, 1);
    window.label(-1, 0) = left;
    window.label(width, 0) = right;
    for (std::int64_t x = 0; x < width; ++x) {
        window.label(x, 0) = labels[static_cast<std::size_t>(x)];
        window.set_movable(x, 0, true);
    }
    return window;
}

Labels labels_of(const SwapWindow& window)
{
    Labels labels;
    for (std::int64_t x = 0; x < window.width(); ++x)
        labels.push_back(window.label(x, 0));
    return labels;
}

using Pairs = std::set<std::pair<std::size_t, std::size_t>>;

TEST(LabelSwapper, MovesABorderToWhereItCostsLeast)
{
    SwapWindow window = row_between(0, {0, 1, 1, 1, 1, 1}, 1);
    RowCosts costs({50, 50, 50, 1, 1, 50});
    LabelSwapper swapper;
    swapper.begin(window, costs);
    swapper.swap_all(4);
    EXPECT_EQ(labels_of(window), (Labels{0, 0, 0, 0, 1, 1}));
}

TEST(LabelSwapper, AsksForTheCostsOfPicturesThatTouch)
{
    // 2 and 0 touch, and 0 and 1; nobody's places, and what lies within one picture's, have no costs
    SwapWindow window = row_between(kNobody, {2, 2, 0, 0, 1, 1, kNobody}, kNobody);
    for (const std::int64_t x : {2, 3}) // or they would be given to the others, which touched then
        window.set_movable(x, 0, false);
    RowCosts costs({9, 9, 9, 9, 9, 9, 9});
    LabelSwapper swapper;
    swapper.begin(window, costs);
    swapper.swap_all(1);
    EXPECT_EQ(costs.asked, (Pairs{{0, 1}, {0, 2}}));
}

TEST(LabelSwapper, LeavesWhatNotBothCover)
{
    SwapWindow window = row_between(0, {0, 1, 1, 1}, 1);
    RowCosts costs({kNotShared, kNotShared, 1, 1});
    LabelSwapper swapper;
    swapper.begin(window, costs);
    swapper.swap_all(4);
    EXPECT_EQ(window.label(0, 0), 0);
    EXPECT_EQ(window.label(1, 0), 1);
}

TEST(LabelSwapper, TiesAndPullsOutweighWhatABorderCosts)
{
    const Labels before{0, 0, 1, 1};
    const std::vector<std::int32_t> flat{1, 1, 1, 1};
    {
        SwapWindow window = row_between(0, before, 1);
        RowCosts costs(flat);
        LabelSwapper swapper;
        swapper.begin(window, costs);
        EXPECT_TRUE(swapper.swap(0, 1, {}, {{3, 0, 100}}));
        EXPECT_EQ(labels_of(window), (Labels{0, 0, 0, 0}));
    }
    SwapWindow window = row_between(0, before, 1);
    window.set_movable(0, 0, false);
    RowCosts costs(flat);
    LabelSwapper swapper;
    swapper.begin(window, costs);
    EXPECT_TRUE(swapper.swap(0, 1, {{0, 3, 100}})); // to a place that stays
    EXPECT_EQ(labels_of(window), (Labels{0, 0, 0, 0}));
    EXPECT_FALSE(swapper.swap(0, 1, {{0, 3, 100}}));
    EXPECT_FALSE(swapper.swap(0, 1, {{3, 0, 100}}, {{2, 7, 100}})); // one to a picture that is not swapped
}

TEST(LabelSwapper, TiesDrawFromEitherEndAndBetweenPlacesThatChange)
{
    const auto swapped = [](const SwapTie& tie, bool is_first_fixed) {
        SwapWindow window = row_between(0, {0, 0, 1, 1}, 1);
        window.set_movable(0, 0, !is_first_fixed);
        RowCosts costs({1, 1, 1, 1});
        LabelSwapper swapper;
        swapper.begin(window, costs);
        static_cast<void>(swapper.swap(0, 1, {tie}));
        return labels_of(window);
    };
    EXPECT_EQ(swapped({3, 0, 100}, true), (Labels{0, 0, 0, 0}));
    const Labels either = swapped({3, 0, 100}, false);
    EXPECT_EQ(either[0], either[3]);
    EXPECT_NE(swapped({3, 0, 0}, false)[3], 0) << "a tie of no weight";
}

TEST(LabelSwapper, TiesAndPullsOfPlacesThatStayChangeNothing)
{
    SwapWindow window = row_between(0, {0, 0, 1, 1}, 1);
    for (const std::int64_t x : {0, 3})
        window.set_movable(x, 0, false);
    RowCosts costs({1, 1, 1, 1});
    LabelSwapper swapper;
    swapper.begin(window, costs);
    static_cast<void>(swapper.swap(0, 1));
    const Labels best = labels_of(window);
    EXPECT_FALSE(swapper.swap(0, 1, {{0, 3, 100}}, {{3, 0, 100}}));
    EXPECT_EQ(labels_of(window), best);
}

} // namespace

} // namespace panoval::mosaic::test
