// SPDX-License-Identifier: MIT
// Gains of pictures cut from scenes with known exposures: what is left of the steps between neighbours.
#include "mosaic/gains/gain_measure.h"

#include "tests/mosaic/mosaic_scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <functional>
#include <string>

namespace panoval::mosaic::test
{

namespace
{

// Pictures in columns and rows with equal overlaps, every other one exposed more by a factor.
struct Set {
    std::int64_t columns = 4;
    std::int64_t rows = 1;
    std::int64_t width = 240; // of a picture
    std::int64_t height = 200;
    std::int64_t overlap = 48;
    int bits = 8;
    double step = 1.62;
    bool wraps = false;
    SceneOptions scene{};
    std::function<void(std::size_t, Cut&)> tweak{};

    Rect rect(std::size_t i) const
    {
        const auto n = static_cast<std::int64_t>(i);
        return {n % columns * (width - overlap), n / columns * (height - overlap), width, height};
    }
    Cut cut(std::size_t i) const
    {
        const bool is_bright =
            (static_cast<std::int64_t>(i) % columns + static_cast<std::int64_t>(i) / columns) % 2 == 0;
        Cut result{.rect = rect(i), .bits = bits, .gain = is_bright ? std::sqrt(step) : 1 / std::sqrt(step)};
        result.seed = 10 * scene.seed + i;
        if (tweak)
            tweak(i, result);
        return result;
    }
    std::size_t count() const { return static_cast<std::size_t>(columns * rows); }
};

struct Taken {
    MemoryReader reader;
    std::vector<Cut> cuts;

    explicit Taken(const Set& set)
        : reader(set.columns * (set.width - set.overlap) + (set.wraps ? 0 : set.overlap),
                 set.rows * (set.height - set.overlap) + set.overlap, set.wraps)
    {
        const Scene scene = make_scene(reader.layout.width, reader.layout.height, set.scene);
        for (std::size_t i = 0; i < set.count(); ++i) {
            cuts.push_back(set.cut(i));
            reader.add(cuts[i].rect.x, cuts[i].rect.y, take_picture(scene, cuts[i]));
        }
    }

    std::vector<Overlap> overlaps() const { return find_overlaps(reader.layout); }

    GainResult measure(const GainOptions& options = {})
    {
        NoProgress progress;
        return solve_gains(reader.layout, overlaps(),
                           measure_overlaps(reader.layout, overlaps(), reader, options, progress), options);
    }

    double brightness(std::size_t i, int c, const GainResult& result) const
    {
        const auto channel = static_cast<std::size_t>(c);
        return cuts[i].gain * cuts[i].white[channel] * result.corrections.gains[i][channel];
    }

    // The largest step between neighbours that gains leave, relative; pictures in `but` do not count.
    double step_left(const GainResult& result, const std::vector<std::size_t>& but = {}) const
    {
        double largest = 0;
        for (const Overlap& overlap : overlaps()) {
            if (std::count(but.begin(), but.end(), overlap.first) + std::count(but.begin(), but.end(), overlap.second))
                continue;
            for (int c = 0; c < reader.layout.channels; ++c)
                largest = std::max(largest, std::fabs(std::log(brightness(overlap.first, c, result) /
                                                               brightness(overlap.second, c, result))));
        }
        return largest;
    }

    // The largest step in levels of 255 over all overlaps, where the scene has level 200: what gains and falloff leave.
    double levels_left(const GainResult& result) const
    {
        double largest = 0;
        for (const Overlap& overlap : overlaps())
            for (std::int64_t y = overlap.region.y; y < overlap.region.bottom(); y += 7)
                for (std::int64_t x = overlap.region.x; x < overlap.region.right(); x += 3)
                    for (int c = 0; c < reader.layout.channels; ++c)
                        largest = std::max(
                            largest, 200 * std::fabs(std::log(
                                               corrected(overlap.first, x, y, c, result) /
                                               corrected(overlap.second, x - overlap.second_shift_x, y, c, result))));
        return largest;
    }

    double corrected(std::size_t i, std::int64_t x, std::int64_t y, int c, const GainResult& result) const
    {
        const Rect& rect = cuts[i].rect;
        const double middle_x = 0.5 * static_cast<double>(rect.width - 1);
        const double middle_y = 0.5 * static_cast<double>(rect.height - 1);
        const double dx = static_cast<double>(x - rect.x) - middle_x;
        const double dy = static_cast<double>(y - rect.y) - middle_y;
        const double q = (dx * dx + dy * dy) / (middle_x * middle_x + middle_y * middle_y);
        return brightness(i, c, result) * cuts[i].falloff.at(q) / result.corrections.falloff.at(q);
    }
};

constexpr double kGoal = 0.005;

TEST(MeasureGains, TakesOutExposureStepsWhateverTheDepthAndBrightness)
{
    for (const int bits : {8, 16})
        for (const int channels : {1, 3})
            for (const double mean : {0.4, 0.06, 0.04})
                for (const std::int64_t overlap : {48, 10}) {
                    Taken set({.overlap = overlap, .bits = bits, .scene = {.channels = channels, .mean = mean}});
                    const GainResult result = set.measure();
                    EXPECT_LT(set.step_left(result), kGoal)
                        << bits << " bit, " << channels << " channels, mean " << 255 * mean << ", overlap " << overlap;
                    EXPECT_TRUE(result.outliers.empty());
                    EXPECT_FALSE(result.per_channel);
                }
}

// Every one, that without an overlap as well, and before the overlaps with later ones.
TEST(MeasureGains, VisitEachPictureOnce)
{
    for (const std::size_t threads : {1u, 4u}) {
        Taken set({.columns = 4});
        set.reader.add(0, 0, MemoryPicture::blank(3, 2, set.reader.layout.channels, set.reader.layout.bits));
        std::vector<std::atomic<int>> visits(set.reader.pictures.size());
        NoProgress progress;
        GainOptions options;
        options.threads = threads;
        const std::vector<Overlap> overlaps = set.overlaps();
        const GainStatistics plain = measure_overlaps(set.reader.layout, overlaps, set.reader, options, progress);
        const GainStatistics visited = measure_overlaps(set.reader.layout, overlaps, set.reader, options, progress,
                                                        [&](std::size_t picture) { ++visits[picture]; });
        for (const std::atomic<int>& count : visits)
            EXPECT_EQ(count, 1);
        ASSERT_EQ(visited.overlaps.size(), plain.overlaps.size());
        for (std::size_t i = 0; i < plain.overlaps.size(); ++i)
            EXPECT_EQ(visited.overlaps[i].all, plain.overlaps[i].all);
    }
}

// What noise and rounding of that many samples allow for is 0.2 and 0.4 %, standard deviation. Sums alone are 0.7 and
// 3 % off.
TEST(MeasureGains, AreNotMovedByNoiseThatIsCutOffAtBlack)
{
    for (const double noise : {1.0, 2.0}) {
        Taken set({.scene = {.mean = 4 / 255.0}, .tweak = [&](std::size_t, Cut& cut) { cut.noise = noise; }});
        const GainResult result = set.measure();
        EXPECT_LT(set.step_left(result), noise * 0.006) << "noise of " << noise << " levels";
        EXPECT_TRUE(result.outliers.empty());
    }
}

TEST(MeasureGains, HoldAlongAChainOf24)
{
    for (const double mean : {0.4, 0.06}) {
        Taken set({.columns = 24, .width = 120, .overlap = 10, .scene = {.channels = 3, .mean = mean}});
        const GainResult result = set.measure();
        EXPECT_LT(set.step_left(result), kGoal) << mean;
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(set.brightness(0, c, result) / set.brightness(23, c, result), 1, kGoal)
                << "from end to end, mean " << mean;
    }
}

TEST(MeasureGains, StandNoiseCodingAndBlur)
{
    const auto left = [](const std::function<void(std::size_t, Cut&)>& tweak) {
        Taken set({.columns = 3, .rows = 2, .tweak = tweak});
        return set.step_left(set.measure());
    };
    EXPECT_LT(left([](std::size_t, Cut& cut) { cut.noise = 12; }), kGoal);
    EXPECT_LT(left([](std::size_t, Cut& cut) { cut.coding = 6; }), kGoal);
    EXPECT_LT(left([](std::size_t i, Cut& cut) { cut.blur = i % 2 == 0 ? 2 : 0; }), kGoal);
}

TEST(MeasureGains, AreNotMovedByShiftsOfSomePixels)
{
    for (const double shift : {1.0, 2.0, 3.0}) {
        Taken set({.columns = 4, .tweak = [&](std::size_t i, Cut& cut) {
                       cut.shift_x = i % 2 == 0 ? shift : 0;
                       cut.shift_y = i % 2 == 0 ? 0 : shift;
                   }});
        const GainResult result = set.measure();
        EXPECT_LT(set.step_left(result), kGoal) << shift << " pixels";
        EXPECT_TRUE(result.outliers.empty());
    }
}

TEST(MeasureGains, IgnoreThingsThatMoved)
{
    Taken set({.columns = 4, .tweak = [](std::size_t i, Cut& cut) {
                   cut.things = {{{cut.rect.x + 205, 40 + 20 * static_cast<std::int64_t>(i), 24, 90}, 0.9}};
               }});
    EXPECT_LT(set.step_left(set.measure()), kGoal);
}

TEST(MeasureGains, StandAThingThatCoversNearlyHalfOfANarrowOverlap)
{
    Taken set({.columns = 4, .overlap = 10, .tweak = [](std::size_t i, Cut& cut) {
                   if (i % 2 == 1)
                       cut.things = {{{cut.rect.x, 40, 24, 90}, 0.5}};
               }});
    const GainResult result = set.measure();
    EXPECT_LT(set.step_left(result), kGoal);
    EXPECT_TRUE(result.outliers.empty());
}

TEST(MeasureGains, DoNotCountBlackCornersWithoutAMask)
{
    Taken set({.columns = 4});
    for (MemoryPicture& picture : set.reader.pictures)
        for (std::int64_t y = 0; y < picture.height; ++y)
            for (std::int64_t x = 0; x < y / 8; ++x)
                for (int c = 0; c < 3; ++c)
                    picture.at(x, y, c) = 0;
    const GainResult result = set.measure();
    EXPECT_LT(set.step_left(result), kGoal);
    EXPECT_TRUE(result.outliers.empty());
}

TEST(MeasureGains, DoNotCountSaturatedPixels)
{
    Taken set({.columns = 4, .scene = {.mean = 0.75}, .tweak = [](std::size_t, Cut& cut) { cut.noise = 2; }});
    const GainResult result = set.measure();
    EXPECT_LT(set.step_left(result), kGoal);
    EXPECT_TRUE(result.outliers.empty());
}

TEST(MeasureGains, SeeOnlyWhatMasksCover)
{
    Set set{.columns = 4, .overlap = 60};
    Taken taken(set);
    for (std::size_t i = 0; i < taken.reader.pictures.size(); ++i) {
        MemoryPicture& picture = taken.reader.pictures[i];
        give_ragged_mask(picture, i);
        taken.reader.layout.pictures[i].has_mask = true;
        for (std::size_t k = 0; k < picture.mask.size(); ++k)
            if (picture.mask[k] == 0)
                for (std::size_t c = 0; c < 3; ++c)
                    picture.samples[3 * k + c] = 200; // nonsense that must not count
    }
    EXPECT_LT(taken.step_left(taken.measure()), kGoal);
}

TEST(MeasureGains, GoRoundTheHorizon)
{
    Taken set({.columns = 6, .wraps = true});
    ASSERT_EQ(set.overlaps().size(), 6u);
    EXPECT_LT(set.step_left(set.measure()), kGoal);
}

TEST(MeasureGains, OfAllPicturesHaveTheMeanOne)
{
    Taken set({.columns = 5});
    const GainResult result = set.measure();
    double sum = 0;
    for (const ChannelGains& gains : result.corrections.gains) {
        sum += std::log(gains[0]);
        EXPECT_EQ(gains[0], gains[1]);
        EXPECT_EQ(gains[3], 1) << "there is no fourth channel";
    }
    EXPECT_NEAR(sum, 0, 1e-12);
}

TEST(MeasureGains, LeaveTheAnchorAsItIs)
{
    Taken set({.columns = 5});
    const GainResult result = set.measure({.anchor = 3});
    EXPECT_EQ(result.corrections.gains[3], (ChannelGains{1, 1, 1, 1}));
    EXPECT_LT(set.step_left(result), kGoal);
}

TEST(MeasureGains, RefuseAnAnchorThatIsNoPicture)
{
    Taken set({.columns = 2});
    try {
        set.measure({.anchor = 2});
        FAIL();
    } catch (const Error& error) {
        EXPECT_STREQ(error.what(), "anchor 2: there are 2 pictures");
        EXPECT_EQ(error.failure(), Failure::Argument);
    }
}

TEST(MeasureGains, EachGroupHasItsOwnMean)
{
    Set set{.columns = 6};
    Taken taken(set);
    for (std::size_t i = 3; i < 6; ++i) {
        taken.reader.layout.pictures[i].rect.x += 500; // a gap
        taken.cuts[i].rect.x += 500;
    }
    taken.reader.layout.width += 500;
    const GainResult result = taken.measure();
    EXPECT_EQ(result.groups, (std::vector<std::size_t>{0, 0, 0, 1, 1, 1}));
    EXPECT_LT(taken.step_left(result), kGoal);
    for (const std::size_t first : {0u, 3u})
        EXPECT_NEAR(result.corrections.gains[first][0] * result.corrections.gains[first + 1][0] *
                        result.corrections.gains[first + 2][0],
                    1, 1e-12);
}

TEST(MeasureGains, APictureAloneStaysAsItIs)
{
    Taken set({.columns = 1});
    const GainResult result = set.measure();
    EXPECT_EQ(result.corrections, Corrections::none(set.reader.layout));
    EXPECT_TRUE(result.outliers.empty());
}

TEST(MeasureGains, OneBadPictureIsNamedAndMovesNoOther)
{
    const std::vector<std::pair<std::string, std::function<void(MemoryPicture&)>>> faults{
        {"black", [](MemoryPicture& p) { std::fill(p.samples.begin(), p.samples.end(), std::uint16_t{0}); }},
        {"white", [](MemoryPicture& p) { std::fill(p.samples.begin(), p.samples.end(), std::uint16_t{255}); }},
        {"grey", [](MemoryPicture& p) { std::fill(p.samples.begin(), p.samples.end(), std::uint16_t{90}); }},
        {"turned", [](MemoryPicture& p) { p.turn(); }},
        {"negative",
         [](MemoryPicture& p) {
             for (std::uint16_t& sample : p.samples)
                 sample = static_cast<std::uint16_t>(255 - sample);
         }},
    };
    for (const auto& [name, fault] : faults) {
        Taken set({.columns = 4, .rows = 3, .width = 160, .height = 140});
        fault(set.reader.pictures[5]);
        const GainResult result = set.measure();
        EXPECT_EQ(result.outliers, (std::vector<std::size_t>{5})) << name;
        EXPECT_LT(set.step_left(result, {5}), kGoal) << name;
        EXPECT_EQ(result.corrections.gains[5][0], 1) << name;
    }
}

TEST(MeasureGains, MisplacedAndSwappedPicturesAreNamed)
{
    Taken misplaced({.columns = 4, .rows = 3, .width = 160, .height = 140, .tweak = [](std::size_t i, Cut& cut) {
                         if (i == 6) {
                             cut.shift_x = 70;
                             cut.shift_y = -50;
                         }
                     }});
    const GainResult result = misplaced.measure();
    EXPECT_EQ(result.outliers, (std::vector<std::size_t>{6}));
    EXPECT_LT(misplaced.step_left(result, {6}), kGoal);

    Taken swapped({.columns = 4, .rows = 3, .width = 160, .height = 140});
    std::swap(swapped.reader.pictures[1], swapped.reader.pictures[10]);
    const GainResult after = swapped.measure();
    EXPECT_EQ(after.outliers, (std::vector<std::size_t>{1, 10}));
    EXPECT_LT(swapped.step_left(after, {1, 10}), kGoal);
}

TEST(MeasureGains, ABadPictureInAChainIsNamed)
{
    Taken set({.columns = 5});
    std::fill(set.reader.pictures[2].samples.begin(), set.reader.pictures[2].samples.end(), std::uint16_t{0});
    const GainResult result = set.measure();
    EXPECT_EQ(result.outliers, (std::vector<std::size_t>{2}));
    EXPECT_EQ(result.groups, (std::vector<std::size_t>{0, 0, 1, 2, 2}));
    EXPECT_LT(set.step_left(result, {2}), kGoal);
    EXPECT_EQ(result.statistics.overlaps[1].says, OverlapStatistics::Says::SecondBlank);
}

TEST(MeasureGains, FollowTheWhiteBalanceWhereItDiffersClearly)
{
    for (const std::int64_t overlap : {48, 10}) {
        Taken set({.columns = 3, .rows = 2, .overlap = overlap, .tweak = [](std::size_t i, Cut& cut) {
                       Random random = seeded(i);
                       for (std::size_t c = 0; c < 3; ++c)
                           cut.white[c] = random.real(0.9, 1.1);
                       cut.noise = 1;
                   }});
        const GainResult result = set.measure();
        EXPECT_TRUE(result.per_channel);
        EXPECT_LT(set.levels_left(result), 1);
    }
}

TEST(MeasureGains, PerPictureAndPerChannelAreDoneWhenAskedFor)
{
    const auto tint = [](std::size_t i, Cut& cut) { cut.white = {i % 2 == 0 ? 1.1 : 1.0, 1, 1, 1}; };
    Taken set({.columns = 3, .tweak = tint});
    const GainResult picture = set.measure({.per = GainOptions::Per::Picture});
    EXPECT_FALSE(picture.per_channel);
    EXPECT_EQ(picture.corrections.gains[0][0], picture.corrections.gains[0][2]);

    Taken plain({.columns = 3});
    const GainResult channel = plain.measure({.per = GainOptions::Per::Channel});
    EXPECT_TRUE(channel.per_channel);
    EXPECT_LT(plain.step_left(channel), kGoal);
}

TEST(MeasureGains, TakeOutVignettingOfEveryShape)
{
    // 1 - v q; close to the fourth power of a cosine; late and steep.
    for (const Falloff& falloff :
         {Falloff{{-0.35, 0, 0}}, Falloff{{-0.2, 0, 0}}, Falloff{{-0.46, 0.14, -0.03}}, Falloff{{0, -0.1, -0.2}}})
        for (const std::int64_t rows : {1, 2}) {
            Taken set({.columns = 4, .rows = rows, .tweak = [&](std::size_t, Cut& cut) {
                           cut.falloff = falloff;
                           cut.noise = 1;
                       }});
            const GainResult result = set.measure({.vignetting = true});
            EXPECT_LT(set.levels_left(result), 1) << falloff.c[0] << " " << falloff.c[1] << ", rows " << rows;
            EXPECT_NEAR(result.corrections.falloff.at(1), falloff.at(1), 0.03);
        }
}

TEST(MeasureGains, LeaveTheFalloffFlatWhereOverlapsCannotTell)
{
    Taken set({.columns = 1, .tweak = [](std::size_t, Cut& cut) { cut.falloff.c[0] = -0.3; }});
    const GainResult result = set.measure({.vignetting = true});
    EXPECT_TRUE(result.corrections.falloff.is_flat());
}

TEST(MeasureGains, OverlapsSayWhatTheyShow)
{
    Taken set({.columns = 2});
    const GainResult result = set.measure();
    ASSERT_EQ(result.statistics.overlaps.size(), 1u);
    const OverlapStatistics& overlap = result.statistics.overlaps[0];
    EXPECT_EQ(overlap.says, OverlapStatistics::Says::Agree);
    EXPECT_EQ(overlap.shared, 48u * 200u);
    for (const LogRatio& ratio : {overlap.channels[0], overlap.channels[1], overlap.channels[2], overlap.all}) {
        EXPECT_TRUE(ratio.is_known);
        EXPECT_NEAR(ratio.value, std::log(1.62), 0.003);
    }
    EXPECT_FALSE(overlap.channels[3].is_known);
    EXPECT_EQ(overlap.seen, overlap.all) << "there is no falloff";
    EXPECT_GT(overlap.correlation, 0.99);
}

TEST(MeasureGains, AreTheSameForAnyNumberOfThreads)
{
    Taken set({.columns = 4, .rows = 3, .width = 120, .height = 100, .overlap = 30});
    const GainResult one = set.measure({.vignetting = true, .threads = 1});
    for (const std::size_t threads : {2u, 5u}) {
        const GainResult many = set.measure({.vignetting = true, .threads = threads});
        EXPECT_EQ(many.corrections, one.corrections);
    }
}

// Samples of the scene come without any elementary function, so they are the same everywhere, too.
TEST(MeasureGains, AreTheSameOnEverySystem)
{
    Taken set({.columns = 4,
               .rows = 3,
               .width = 120,
               .height = 100,
               .overlap = 30,
               .step = 1.44,
               .tweak = [](std::size_t i, Cut& cut) {
                   cut.noise = 2;
                   cut.falloff.c[0] = -0.25;
                   cut.white[i % 3] = 1.0625;
               }});
    const GainResult result = set.measure({.vignetting = true});
    std::uint64_t sum = 14695981039346656037u;
    const auto add = [&](double value) { sum = (sum ^ std::bit_cast<std::uint64_t>(value)) * 1099511628211u; };
    for (const ChannelGains& gains : result.corrections.gains)
        std::for_each(gains.begin(), gains.end(), add);
    std::for_each(result.corrections.falloff.c.begin(), result.corrections.falloff.c.end(), add);
    EXPECT_EQ(sum, 18075490736508457539u);
}

TEST(MeasureGains, ReadEachOverlapOnce)
{
    Taken set({.columns = 4, .rows = 3, .width = 120, .height = 100, .overlap = 30});
    std::int64_t pixels = 0;
    for (const Overlap& overlap : set.overlaps())
        pixels += 2 * overlap.region.pixels();
    set.measure();
    EXPECT_EQ(set.reader.pixels_read, pixels);
}

TEST(MeasureGains, TakeTinyPicturesAndPicturesWithinPictures)
{
    const Scene scene = make_scene(200, 160, {.channels = 3});
    MemoryReader reader(200, 160);
    reader.add(0, 0, take_picture(scene, {.rect = {0, 0, 200, 160}, .bits = 16}));
    reader.add(50, 40, take_picture(scene, {.rect = {50, 40, 60, 50}, .bits = 16, .gain = 0.5}));
    reader.add(120, 20, take_picture(scene, {.rect = {120, 20, 3, 2}, .bits = 16, .gain = 1.3}));
    reader.add(150, 90, take_picture(scene, {.rect = {150, 90, 1, 1}, .bits = 16, .gain = 0.8}));
    NoProgress progress;
    const std::vector<Overlap> overlaps = find_overlaps(reader.layout);
    const GainOptions options{.anchor = 0};
    const GainResult result = solve_gains(
        reader.layout, overlaps, measure_overlaps(reader.layout, overlaps, reader, options, progress), options);
    EXPECT_NEAR(result.corrections.gains[1][0], 2, 0.002);
    EXPECT_NEAR(result.corrections.gains[2][0], 1 / 1.3, 0.002);
    EXPECT_NEAR(result.corrections.gains[3][0], 1.25, 0.002);
}

} // namespace

} // namespace panoval::mosaic::test
