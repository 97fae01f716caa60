// SPDX-License-Identifier: MIT
#include "mosaic/base/row_spans.h"

#include "mosaic/seams/label_runs.h"

#include <gtest/gtest.h>

#include <random>

namespace panoval::mosaic::test
{

namespace
{

constexpr std::int64_t kSide = 64;

std::vector<RowSpans> random_spans(std::mt19937& random, int levels)
{
    std::vector<RowSpans> spans;
    for (int i = 0; i < levels; ++i) {
        const std::int64_t side = kSide >> i;
        RowSpans& level = spans.emplace_back(Interval{0, side});
        for (int k = 0; k < 3; ++k) {
            const auto at = [&] { return static_cast<std::int64_t>(random() % static_cast<std::uint32_t>(side)); };
            const std::int64_t x = at();
            level.add(at(), {x, std::min(x + 1 + at() / 4, side)});
        }
    }
    return spans;
}

bool contains(Interval outer, Interval inner)
{
    return inner.is_empty() || (outer.first <= inner.first && inner.end <= outer.end);
}

TEST(RowSpans, PiecesOfARowAreSpanned)
{
    RowSpans spans(Interval{2, 5});
    spans.add(3, {4, 6});
    spans.add(3, {9, 10});
    spans.add(5, {0, 1}); // behind the rows
    EXPECT_EQ(spans.at(3), (Interval{4, 10}));
    EXPECT_TRUE(spans.at(2).is_empty());
    EXPECT_TRUE(spans.at(5).is_empty());
    EXPECT_EQ(spans.bounds().rows, (Interval{3, 4}));
    EXPECT_EQ(spans.bounds().columns, (Interval{4, 10}));
    EXPECT_EQ(spans.cut({{0, 7}, {0, 4}}).at(3), (Interval{4, 7}));
}

// Rows first to last hold these columns, as far as there are such pixels.
void expect_rows(const RowSpans& spans, std::int64_t first, std::int64_t last, Interval columns, std::int64_t side)
{
    const Interval inside = intersect(columns, {0, side});
    for (std::int64_t y = std::max<std::int64_t>(first, 0); y <= std::min(last, side - 1); ++y)
        EXPECT_TRUE(contains(spans.at(y), inside)) << "row " << y;
}

// Whatever a needed pixel is made of, and whatever its band is told from, is needed as well.
TEST(RowSpans, WhatIsNeededIsComplete)
{
    std::mt19937 random(1);
    for (int round = 0; round < 50; ++round) {
        const std::vector<RowSpans> products = random_spans(random, 4);
        const std::vector<RowSpans> needed = picture_spans(products, kSide, kSide);
        for (std::size_t i = 0; i < needed.size(); ++i)
            for (std::int64_t y = 0; y < kSide >> i; ++y) {
                const Interval own = needed[i].at(y);
                EXPECT_TRUE(contains(own, products[i].at(y)));
                EXPECT_TRUE(contains({0, kSide >> i}, own));
                if (i > 0)
                    expect_rows(needed[i - 1], 2 * y - 2, 2 * y + 2, reduced_from(own), kSide >> (i - 1));
                if (i + 1 == needed.size())
                    continue;
                expect_rows(needed[i + 1], y / 2 - 1, y / 2 + 1, expanded_from(products[i].at(y)), kSide >> (i + 1));
                EXPECT_EQ(own.first % 2, 0);
                EXPECT_EQ(own.end % 2, 0);
            }
    }
}

TEST(LabelRuns, GoRoundWhereTheCanvasDoes)
{
    SeamMap seams(10);
    seams.add_row(std::vector<SeamMap::Run>{{4, 0}, {7, kNobody}, {10, 1}});
    LabelRuns labels;
    labels.read(seams, {-5, 0, 27, 1}, true);
    std::vector<std::int32_t> expected(27), found;
    seams.read(0, -5, 27, true, expected.data());
    std::int64_t x = -5;
    for (const LabelRun& run : labels.row(0)) {
        EXPECT_EQ(run.first, x);
        for (; x < run.end; ++x)
            found.push_back(run.label);
    }
    EXPECT_EQ(found, expected);
    EXPECT_EQ(labels.row(0, 4, 7).size(), 1u);
    EXPECT_EQ(labels.row(0, 3, 8).size(), 3u);
    EXPECT_EQ(labels.row(0, 4, 4).size(), 0u);
}

} // namespace

} // namespace panoval::mosaic::test
