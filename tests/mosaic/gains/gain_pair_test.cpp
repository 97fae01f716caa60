// SPDX-License-Identifier: MIT
// Blocks of an overlap, the ratio that they give, and whether two pictures agree.
#include "mosaic/gains/gain_agreement.h"
#include "mosaic/gains/gain_pair.h"

#include "tests/mosaic/mosaic_scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

// The first overlap, summed in so many parts.
GainBlocks sum_overlap(MemoryReader& reader, std::size_t most, std::size_t parts = 1)
{
    const Overlap overlap = find_overlaps(reader.layout)[0];
    GainBlocks blocks = lay_out_blocks(overlap.region, most);
    GainStrips strips;
    for (std::size_t k = parts; k-- > 0;)
        add_totals(sum_blocks(reader.layout, overlap, blocks.rows * k / parts, blocks.rows * (k + 1) / parts, reader,
                              strips, blocks),
                   blocks);
    return blocks;
}

// Two pictures of 160 x 120 that overlap by 80 columns.
struct Two {
    MemoryReader reader{240, 120};

    Two(const SceneOptions& options, const Cut& first, const Cut& second)
    {
        const Scene scene = make_scene(240, 120, options);
        add(scene, first, 0);
        add(scene, second, 80);
    }
    void add(const Scene& scene, Cut cut, std::int64_t x)
    {
        cut.rect = {x, 0, 160, 120};
        reader.add(x, 0, take_picture(scene, cut));
    }
    GainBlocks blocks(std::size_t most = 640) { return sum_overlap(reader, most); }
    BlockLevels levels() { return block_levels(blocks(), kAllChannels, reader.layout.channels, reader.layout.bits); }
};

// By its definition: sorted, the first value up to which there is half of the weight.
double median_by_sorting(std::vector<Weighted> values)
{
    std::sort(values.begin(), values.end(), [](const Weighted& a, const Weighted& b) {
        return std::pair(a.value, a.weight) < std::pair(b.value, b.weight);
    });
    double total = 0;
    for (const Weighted& value : values)
        total += value.weight;
    double sum = 0;
    for (const Weighted& value : values) {
        sum += value.weight;
        if (2 * sum >= total)
            return value.value;
    }
    return 0;
}

TEST(WeightedMedian, IsThatOfSortedValues)
{
    std::mt19937 random(5);
    for (int i = 0; i < 2000; ++i) {
        std::vector<Weighted> values(random() % 40);
        const auto kinds = 1 + random() % 30; // few: equal values, and weights that add up to exact halves
        for (Weighted& value : values) {
            value.value = static_cast<double>(random() % kinds) - 7;
            value.weight = static_cast<double>(random() % kinds) / (i % 2 == 0 ? 1.0 : 10.0);
        }
        const double expected = median_by_sorting(values);
        EXPECT_EQ(weighted_median(values), expected) << "case " << i;
    }
}

TEST(GainBlocks, HoldEachSharedSampleOnce)
{
    Two two({.channels = 3}, {}, {.gain = 0.8});
    for (const std::size_t most : {1u, 64u, 640u}) {
        const GainBlocks blocks = two.blocks(most);
        EXPECT_LE(blocks.blocks.size(), most);
        EXPECT_EQ(blocks.shared, 80u * 120u);
        std::uint64_t sum = 0;
        for (const GainBlock& block : blocks.blocks)
            sum += block.second[1];
        std::uint64_t expected = 0;
        for (std::int64_t y = 0; y < 120; ++y)
            for (std::int64_t x = 0; x < 80; ++x)
                if (two.reader.pictures[0].at(80 + x, y, 1) < 250 && two.reader.pictures[1].at(x, y, 1) < 250)
                    expected += two.reader.pictures[1].at(x, y, 1);
        EXPECT_EQ(sum, expected) << most;
    }
}

TEST(GainBlocks, PartsHaveTheSumsOfTheWhole)
{
    Two two({.channels = 3}, {.noise = 6}, {.gain = 1.4});
    const GainBlocks whole = two.blocks(100);
    for (const std::size_t parts : {2u, 3u, 7u}) {
        const GainBlocks summed = sum_overlap(two.reader, 100, parts);
        EXPECT_EQ(summed.shared, whole.shared);
        EXPECT_EQ(summed.first_saturated, whole.first_saturated);
        EXPECT_EQ(summed.second_saturated, whole.second_saturated);
        for (std::size_t i = 0; i < whole.blocks.size(); ++i) {
            EXPECT_EQ(summed.blocks[i].first, whole.blocks[i].first) << i;
            EXPECT_EQ(summed.blocks[i].second, whole.blocks[i].second) << i;
            EXPECT_EQ(summed.blocks[i].used, whole.blocks[i].used) << i;
            EXPECT_EQ(summed.blocks[i].shared, whole.blocks[i].shared) << i;
        }
    }
}

TEST(GainBlocks, ALongNarrowOverlapIsOneColumn)
{
    MemoryReader reader(100, 3000);
    reader.add(0, 0, MemoryPicture::blank(50, 3000, 1, 8));
    reader.add(44, 0, MemoryPicture::blank(56, 3000, 1, 8));
    const GainBlocks blocks = sum_overlap(reader, 100);
    EXPECT_EQ(blocks.columns, 1u);
    EXPECT_LE(blocks.rows, 100u);
    EXPECT_EQ(blocks.shared, 6u * 3000u);
}

// More rows than are summed at once, in blocks of as many as that and of one more.
TEST(GainBlocks, HaveAnyNumberOfRows)
{
    for (const std::int64_t height : {255, 256, 700}) {
        MemoryReader reader(9, height);
        std::uint64_t sums[2] = {};
        for (std::uint16_t number = 0; number < 2; ++number) {
            MemoryPicture picture = MemoryPicture::blank(9, height, 1, 8);
            for (std::size_t i = 0; i < picture.samples.size(); ++i)
                picture.samples[i] = static_cast<std::uint16_t>((i * 37 + i / 9 * 11 + 5u * number) % 250);
            for (const std::uint16_t sample : picture.samples)
                sums[number] += sample;
            reader.add(0, 0, std::move(picture));
        }
        const GainBlocks blocks = sum_overlap(reader, 1);
        ASSERT_EQ(blocks.blocks.size(), 1u);
        EXPECT_EQ(blocks.blocks[0].first[0], sums[0]);
        EXPECT_EQ(blocks.blocks[0].second[0], sums[1]);
        EXPECT_EQ(blocks.blocks[0].used[0], 9u * static_cast<std::uint32_t>(height));
    }
}

TEST(EstimateRatio, OfDarkPicturesIsNotBiasedByNoiseOrRounding)
{
    double sum = 0;
    for (std::uint64_t seed = 1; seed <= 12; ++seed) {
        Two two({.channels = 3, .mean = 0.05, .seed = seed}, {.gain = 1.3, .noise = 2, .seed = 2 * seed},
                {.gain = 0.8, .noise = 2, .seed = 2 * seed + 1});
        sum += estimate_ratio(two.levels()).log_ratio;
    }
    EXPECT_NEAR(sum / 12, std::log(1.3 / 0.8), 0.0015);
}

TEST(EstimateRatio, KnowsHowWellItIsKnown)
{
    double square = 0;
    double promised = 0;
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        Two two({.channels = 1, .seed = seed}, {.noise = 8, .seed = 2 * seed}, {.noise = 8, .seed = 2 * seed + 1});
        const RatioEstimate ratio = estimate_ratio(two.levels());
        square += ratio.log_ratio * ratio.log_ratio / 20;
        promised += ratio.error * ratio.error / 20;
    }
    EXPECT_GT(std::sqrt(promised / square), 0.6);
    EXPECT_LT(std::sqrt(promised / square), 2.0);
}

TEST(EstimateRatio, SaysWhichPictureIsBlack)
{
    Two two({.channels = 1}, {}, {});
    two.reader.pictures[1] = MemoryPicture::blank(160, 120, 1, 8);
    EXPECT_EQ(estimate_ratio(two.levels()).kind, RatioEstimate::Kind::SecondBlack);
    two.reader.pictures[0] = MemoryPicture::blank(160, 120, 1, 8);
    EXPECT_EQ(estimate_ratio(two.levels()).kind, RatioEstimate::Kind::Nothing);
}

bool agree(const SceneOptions& options, const Cut& first, const Cut& second)
{
    Two two(options, first, second);
    const BlockLevels levels = two.levels();
    return judge_agreement(levels, estimate_ratio(levels)).agrees;
}

// Blocks in a row of 100 samples each, of which levels below 1 tell nothing.
BlockLevels blocks_of(const std::vector<std::pair<double, double>>& levels)
{
    BlockLevels row;
    row.columns = levels.size();
    row.rows = 1;
    for (const auto& [first, second] : levels) {
        BlockLevel block;
        block.first = first;
        block.second = second;
        block.weight = 100;
        block.x = 2 * (static_cast<double>(row.blocks.size()) + 0.5) / static_cast<double>(levels.size()) - 1;
        row.blocks.push_back(block);
    }
    return row;
}

TEST(EstimateRatio, OfDarkBlocksIsKnownUnlessTheOtherPictureIsFarBrighter)
{
    using Kind = RatioEstimate::Kind;
    const auto kind_of = [](double first, double second) {
        return estimate_ratio(blocks_of({{first, second}, {first, second}})).kind;
    };
    EXPECT_EQ(kind_of(0.5, 8), Kind::Known) << "8 times the least level";
    EXPECT_EQ(kind_of(0.5, 8.1), Kind::FirstBlack);
    EXPECT_EQ(kind_of(8, 0.5), Kind::Known);
    EXPECT_EQ(kind_of(8.1, 0.5), Kind::SecondBlack);
    EXPECT_EQ(kind_of(0, 5), Kind::Nothing);
    EXPECT_EQ(kind_of(5, 0), Kind::Nothing);
    EXPECT_EQ(kind_of(0.9, 0.9), Kind::Nothing);
    EXPECT_NEAR(estimate_ratio(blocks_of({{0.5, 2}, {0.5, 2}})).log_ratio, std::log(0.25), 1e-6);
}

TEST(EstimateRatio, IsNotKnownWhereEachBlockHasLightInOnePictureAlone)
{
    EXPECT_EQ(estimate_ratio(blocks_of({{20, 0}, {0, 20}})).kind, RatioEstimate::Kind::Nothing);
    // The nine are too dark to count, the tenth is black in the second picture.
    std::vector<std::pair<double, double>> levels(9, {0.2, 1.5});
    levels.emplace_back(20, 0);
    EXPECT_EQ(estimate_ratio(blocks_of(levels)).kind, RatioEstimate::Kind::Nothing);
}

TEST(EstimateRatio, IsNotKnownBeyondAMillion)
{
    BlockLevels levels = blocks_of({{250, 0.0002}, {250, 0.0002}});
    levels.darkest = 0.0001;
    EXPECT_NEAR(estimate_ratio(blocks_of({{250, 50}, {250, 50}})).log_ratio, std::log(5), 1e-6);
    EXPECT_EQ(estimate_ratio(levels).kind, RatioEstimate::Kind::Nothing) << "1.25 million times";
}

TEST(EstimateRatio, TakesABlockThatIsBlackInOnePictureForAnotherThing)
{
    std::vector<std::pair<double, double>> levels(12, {40, 20});
    levels[5] = {0, 20};
    const RatioEstimate estimate = estimate_ratio(blocks_of(levels));
    EXPECT_NEAR(estimate.log_ratio, std::log(2), 1e-6);
    EXPECT_EQ(estimate.is_apart[5], 1);
    EXPECT_EQ(std::count(estimate.is_apart.begin(), estimate.is_apart.end(), 1), 1);
}

TEST(JudgeAgreement, APictureWithoutAnyStructureCorrelatesWithNothing)
{
    std::vector<std::pair<double, double>> levels;
    for (int i = 0; i < 30; ++i)
        levels.emplace_back(20 + i * 7 % 11, 1); // its logarithm is 0 exactly
    const BlockLevels blocks = blocks_of(levels);
    EXPECT_EQ(judge_agreement(blocks, estimate_ratio(blocks)).correlation, 0);
}

// A row of blocks of one level, which differ in each picture by a tenth, each so many of them alike.
BlockLevels uneven_blocks(std::size_t count, std::size_t alike, std::uint64_t seed)
{
    Random random = seeded(seed);
    std::vector<std::pair<double, double>> levels;
    double first = 0;
    double second = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (i % alike == 0) {
            first = 100 * (1 + random.real(-0.1, 0.1));
            second = 100 * (1 + random.real(-0.1, 0.1));
        }
        levels.emplace_back(first, second);
    }
    return blocks_of(levels);
}

bool agree(const BlockLevels& blocks)
{
    return judge_agreement(blocks, estimate_ratio(blocks)).agrees;
}

TEST(JudgeAgreement, DifferencesOfSingleBlocksAreNoiseAndThoseOfManyAreNot)
{
    for (std::uint64_t seed = 1; seed <= 5; ++seed) {
        EXPECT_TRUE(agree(uneven_blocks(200, 1, seed))) << seed;
        EXPECT_FALSE(agree(uneven_blocks(200, 8, seed))) << seed;
    }
}

TEST(JudgeAgreement, BlocksThatAreBlackInOnePictureSayNothing)
{
    BlockLevels blocks = uneven_blocks(200, 1, 3);
    for (std::size_t i = 0; i < 200; ++i)
        if (i / 8 % 6 == 1) // whole parts
            blocks.blocks[i].second = 0;
    EXPECT_TRUE(agree(blocks));
    for (BlockLevel& block : blocks.blocks)
        if (block.second == 0)
            block.weight = 0;
    EXPECT_TRUE(agree(blocks));
}

// Nothing that is the same lies in the same block; it does a block farther on. With twenty times the light of the other
// picture nothing but that speaks for them.
TEST(JudgeAgreement, PicturesAgreeThatAreABlockApart)
{
    Random random = seeded(9);
    std::vector<std::pair<double, double>> levels;
    double last = 100;
    for (std::size_t i = 0; i < 100; ++i) {
        const double next = 100 * (1 + random.real(-0.5, 0.5));
        levels.emplace_back(last, next / 20);
        last = next;
    }
    BlockLevels blocks = blocks_of(levels);
    blocks.step_x = 14;
    EXPECT_TRUE(agree(blocks));
    blocks.step_x = 15;
    EXPECT_FALSE(agree(blocks)) << "pictures are not displaced so far";
}

TEST(JudgeAgreement, PicturesOfOneSceneAgreeInSpiteOfTheirFaults)
{
    const SceneOptions plain{.channels = 3};
    EXPECT_TRUE(agree(plain, {}, {.gain = 0.4}));
    EXPECT_TRUE(agree(plain, {.noise = 12, .seed = 1}, {.noise = 12, .seed = 2}));
    EXPECT_TRUE(agree(plain, {}, {.gamma = 0.6}));
    EXPECT_TRUE(agree(plain, {}, {.blur = 4}));
    EXPECT_TRUE(agree(plain, {}, {.shift_x = 6, .shift_y = -4}));
    EXPECT_TRUE(agree(plain, {.falloff = {{-0.4, 0, 0}}}, {.falloff = {{-0.4, 0, 0}}}));
}

TEST(JudgeAgreement, NoisyPicturesOfSomethingFlatAgree)
{
    for (std::uint64_t seed = 1; seed <= 20; ++seed)
        EXPECT_TRUE(agree({.channels = 1, .mean = 0.05, .texture = 0, .contrast = 0.02, .edges = 0},
                          {.noise = 5, .seed = 2 * seed}, {.noise = 5, .seed = 2 * seed + 1}))
            << seed;
}

TEST(JudgeAgreement, FlatPicturesAgreeUnlessOneHasManyTimesTheLightOfTheOther)
{
    const SceneOptions flat{.channels = 1, .mean = 0.8, .texture = 0, .contrast = 0.02, .edges = 0};
    EXPECT_TRUE(agree(flat, {.noise = 3, .seed = 1}, {.gain = 0.1, .noise = 3, .seed = 2}));
    EXPECT_FALSE(agree(flat, {.noise = 3, .seed = 1}, {.gain = 0.04, .noise = 3, .seed = 2})) << "25 times";
}

TEST(JudgeAgreement, PicturesOfOtherPlacesDoNot)
{
    for (std::uint64_t seed = 1; seed <= 10; ++seed)
        EXPECT_FALSE(agree({.channels = 3, .seed = seed}, {}, {.shift_x = 100, .shift_y = 40})) << seed;
}

} // namespace

} // namespace panoval::mosaic::test
