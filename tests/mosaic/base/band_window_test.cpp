// SPDX-License-Identifier: MIT
// Which levels of a tile a picture adds to. That all of them are right is what the whole blenders' tests say.
#include "mosaic/base/band_window.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

constexpr std::int64_t kSide = 32;
constexpr int kBands = 2;
constexpr Rect kFrame{0, 0, kSide, kSide};

// Samples of one channel that differ from pixel to pixel, and weights of 1.
class Pattern : public PictureRows
{
public:
    int rows = 0;

    void load(std::int64_t y, std::int64_t first, std::int64_t count, float* samples, float* weights) override
    {
        ++rows;
        for (std::int64_t i = 0; i < count; ++i)
            samples[i] = static_cast<float>((7 * (first + i) * (first + i) + 13 * y * (first + i + 3)) % 251);
        std::fill_n(weights, count, 1.0f);
    }
};

struct Sums {
    TileLevels levels;
    int rows_loaded = 0;

    std::vector<float> of(int level)
    {
        const Window& window = levels.windows()[static_cast<std::size_t>(level)];
        std::vector<float> all;
        for (std::int64_t y = window.rows.first; y < window.rows.end; ++y) {
            const float* const row = levels.sums(level, y);
            all.insert(all.end(), row, row + window.columns.length());
        }
        return all;
    }
};

// The picture fills the frame; its bands are wanted on the levels that are named.
void add_picture(const std::vector<bool>& wanted, Sums& sums)
{
    sums.levels.reset(kFrame, window_of(kFrame), kBands, 1, true);
    sums.levels.clear();
    std::vector<Window> products = sums.levels.windows();
    for (std::size_t i = 0; i < products.size(); ++i)
        if (!wanted[i])
            products[i] = {};
    BandWindow window;
    window.reset(sums.levels, kFrame, products);
    Pattern pattern;
    window.run(pattern);
    sums.rows_loaded = pattern.rows;
}

bool is_nothing(const std::vector<float>& sums)
{
    return std::all_of(sums.begin(), sums.end(), [](float sum) { return sum == 0; });
}

TEST(BandWindow, ABandAloneIsTheOneAmongAll)
{
    Sums all;
    add_picture({true, true, true}, all);
    EXPECT_EQ(all.rows_loaded, kSide);
    for (int level = 0; level <= kBands; ++level) {
        std::vector<bool> wanted(kBands + 1, false);
        wanted[static_cast<std::size_t>(level)] = true;
        Sums one;
        add_picture(wanted, one);
        EXPECT_FALSE(is_nothing(all.of(level)));
        for (int i = 0; i <= kBands; ++i)
            EXPECT_TRUE(i == level ? one.of(i) == all.of(i) : is_nothing(one.of(i))) << level << ", " << i;
    }
}

TEST(BandWindow, NothingIsReadWhereNothingIsWanted)
{
    Sums sums;
    add_picture({false, false, false}, sums);
    EXPECT_EQ(sums.rows_loaded, 0);
    for (int level = 0; level <= kBands; ++level)
        EXPECT_TRUE(is_nothing(sums.of(level)));
}

} // namespace

} // namespace panoval::mosaic::test
