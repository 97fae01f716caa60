// SPDX-License-Identifier: MIT
// What a detection finds, what it leaves out, and what it says about it.
#include "panoval_measure.h"
#include "tests/scenes/scene_kinds.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace panoval::test
{

namespace
{

// The options with their defaults.
struct Wish {
    std::int32_t polarity = 0;
    std::int32_t max_count = 0;
    double min_radius = 0;
    double max_radius = 0;
    double min_aspect = 0;
    double min_quality = 0;

    PanovalMeasureDetectOptions options() const
    {
        return {polarity, max_count, min_radius, max_radius, min_aspect, min_quality, {}};
    }
};

class Detected
{
public:
    explicit Detected(const PanovalMeasureImage& image, const Wish& wish = {})
    {
        const PanovalMeasureDetectOptions options = wish.options();
        code = panoval_measure_detect(&image, &options, &result);
    }
    Detected(const std::vector<std::uint8_t>& pixels, std::int32_t width, std::int32_t height, const Wish& wish = {})
        : Detected({pixels.data(), width, height, width, PANOVAL_MEASURE_U8, 0}, wish)
    {
    }
    Detected(const Detected&) = delete;
    Detected& operator=(const Detected&) = delete;
    ~Detected() { panoval_measure_free(&result); }

    const PanovalMeasureTarget& operator[](int i) const { return result.targets[i]; }
    int count() const { return result.count; }

    std::int32_t code = -1;
    PanovalMeasureDetection result = {};
};

Detected detected(const TargetScene& scene, const Wish& wish = {})
{
    return Detected(render_8_bit(scene), scene.width, scene.height, wish);
}

bool is_at(const PanovalMeasureTarget& found, const TrueTarget& target)
{
    const double near = std::max(1.0, 0.1 * target.b);
    return std::hypot(found.ellipse.x - target.x, found.ellipse.y - target.y) < near &&
           std::fabs(found.ellipse.semi_major - target.a) < near &&
           std::fabs(found.ellipse.semi_minor - target.b) < near &&
           (found.polarity == PANOVAL_MEASURE_DARK) == (target.inside < target.outside);
}

struct Score {
    int targets = 0;
    int found = 0;
    int records = 0;
    int wrong = 0;

    void add(const TargetScene& scene)
    {
        const Detected detection = detected(scene);
        ASSERT_EQ(detection.code, PANOVAL_MEASURE_OK);
        std::vector<bool> is_right(static_cast<std::size_t>(detection.count()));
        for (const TrueTarget& target : scene.targets) {
            bool is_found = false;
            for (int i = 0; i < detection.count(); ++i)
                if (is_at(detection[i], target))
                    is_right[static_cast<std::size_t>(i)] = is_found = true;
            targets += !target.is_hard;
            found += !target.is_hard && is_found;
        }
        records += detection.count();
        wrong += static_cast<int>(std::count(is_right.begin(), is_right.end(), false));
    }
};

TargetScene two_targets()
{
    TargetScene scene{.width = 160, .height = 120, .shapes = {}, .targets = {}, .noise = 2};
    add_target(scene, 40.3, 60.7, 15, 11, 0.5, 60, 200);
    add_target(scene, 110.6, 50.2, 7, 7, 0, 250, 200);
    return scene;
}

TEST(Detect, FindsDarkAndBrightTargetsInOneCall)
{
    const TargetScene scene = two_targets();
    const Detected both = detected(scene);
    ASSERT_EQ(both.code, PANOVAL_MEASURE_OK);
    ASSERT_EQ(both.count(), 2);
    EXPECT_TRUE(is_at(both[0], scene.targets[1])) << "sorted by rows";
    EXPECT_TRUE(is_at(both[1], scene.targets[0]));
    EXPECT_NEAR(both[1].ellipse.x, 40.3, 0.02);
    EXPECT_GT(both[1].quality, 0.9);
}

TEST(Detect, CountsTheOtherPolarity)
{
    const TargetScene scene = two_targets();
    const Detected dark = detected(scene, {.polarity = PANOVAL_MEASURE_DARK});
    ASSERT_EQ(dark.count(), 1);
    EXPECT_TRUE(is_at(dark[0], scene.targets[0]));
    EXPECT_EQ(dark.result.other_polarity, 1);
    const Detected bright = detected(scene, {.polarity = PANOVAL_MEASURE_BRIGHT});
    ASSERT_EQ(bright.count(), 1);
    EXPECT_TRUE(is_at(bright[0], scene.targets[1]));
}

TEST(Detect, KeepsTheBestOfTooMany)
{
    const Detected best = detected(two_targets(), {.max_count = 1});
    ASSERT_EQ(best.count(), 1);
    EXPECT_EQ(best[0].polarity, PANOVAL_MEASURE_DARK) << "the one of more contrast";
    EXPECT_EQ(detected(two_targets(), {.max_count = 3}).count(), 2) << "all there are";
}

TEST(Detect, PassesOverWhatIsWiderThanThePicture)
{
    TargetScene scene{.width = 100, .height = 120, .shapes = {}, .targets = {}, .noise = 1};
    add_target(scene, 56.3, 60.2, 54, 45, 0, 60, 200);
    const Detected wide = detected(scene, {.max_radius = 90});
    EXPECT_EQ(wide.code, PANOVAL_MEASURE_OK);
    EXPECT_EQ(wide.count(), 0);
    scene.width = 130;
    EXPECT_EQ(detected(scene, {.max_radius = 90}).count(), 1);
}

TEST(Detect, SaysWhatItHasLeftOut)
{
    const TargetScene scene = two_targets();
    EXPECT_EQ(detected(scene, {.min_radius = 9}).count(), 1);
    EXPECT_GE(detected(scene, {.min_radius = 9}).result.too_small, 1);
    EXPECT_EQ(detected(scene, {.max_radius = 9}).count(), 1);
    EXPECT_GE(detected(scene, {.max_radius = 9}).result.too_large, 1);
    EXPECT_EQ(detected(scene, {.max_radius = 14}).count(), 1) << "measured, as its candidate is not far beyond";
    EXPECT_EQ(detected(scene, {.max_radius = 14}).result.too_large, 1);
    EXPECT_EQ(detected(scene, {.min_aspect = 0.9}).count(), 1);
    EXPECT_GE(detected(scene, {.min_aspect = 0.9}).result.not_oval, 1);
    EXPECT_EQ(detected(scene, {.min_quality = 1}).count(), 0);
    EXPECT_EQ(detected(scene, {.min_quality = 1}).result.below_quality, 2);
}

TEST(Detect, FindsEverySizeInOneCall)
{
    TargetScene scene{.width = 700, .height = 500, .shapes = {}, .targets = {}, .noise = 3};
    const double radii[] = {2.6, 3.5, 6, 15, 45, 160};
    const double places[][2] = {{30.4, 30.2}, {60.7, 60.1}, {30.1, 90.6}, {80.3, 140.9}, {90.2, 320.5}, {420.3, 260.8}};
    for (std::size_t i = 0; i < 6; ++i)
        add_target(scene, places[i][0], places[i][1], radii[i], radii[i], 0, 60, 200);
    const Detected all = detected(scene);
    EXPECT_EQ(all.count(), 6);
    for (const TrueTarget& target : scene.targets)
        EXPECT_TRUE(std::any_of(all.result.targets, all.result.targets + all.count(),
                                [&](const PanovalMeasureTarget& found) { return is_at(found, target); }))
            << target.a;
}

TEST(Detect, TakesEverySampleTypeAndStride)
{
    const TargetScene scene = two_targets();
    std::vector<double> samples = render_exact(scene);
    add_noise(scene, samples);
    std::vector<std::uint16_t> deep(170 * 120);
    std::vector<float> real(170 * 120);
    for (std::size_t y = 0; y < 120; ++y)
        for (std::size_t x = 0; x < 160; ++x) {
            deep[y * 170 + x] = static_cast<std::uint16_t>(samples[y * 160 + x] * 16 + 0.5);
            real[y * 170 + x] = static_cast<float>(samples[y * 160 + x] / 1000 - 5);
        }
    const Detected of_deep({deep.data(), 160, 120, 340, PANOVAL_MEASURE_U16, 0});
    const Detected of_real({real.data(), 160, 120, 680, PANOVAL_MEASURE_F32, 0});
    for (const Detected* const found : {&of_deep, &of_real}) {
        ASSERT_EQ(found->code, PANOVAL_MEASURE_OK);
        ASSERT_EQ(found->count(), 2);
        EXPECT_TRUE(is_at((*found)[0], scene.targets[1]));
        EXPECT_TRUE(is_at((*found)[1], scene.targets[0]));
    }
}

TEST(Detect, PassesOverSamplesThatAreNoNumbers)
{
    const TargetScene scene = two_targets();
    const std::vector<double> samples = render_exact(scene);
    std::vector<float> real(samples.begin(), samples.end());
    real[5] = std::numeric_limits<float>::quiet_NaN();
    real[900] = std::numeric_limits<float>::infinity();
    real[17000] = -std::numeric_limits<float>::infinity();
    EXPECT_EQ(Detected({real.data(), 160, 120, 640, PANOVAL_MEASURE_F32, 0}).count(), 2);
    std::fill(real.begin(), real.end(), std::numeric_limits<float>::quiet_NaN());
    const Detected nothing({real.data(), 160, 120, 640, PANOVAL_MEASURE_F32, 0});
    EXPECT_EQ(nothing.code, PANOVAL_MEASURE_OK);
    EXPECT_EQ(nothing.count(), 0);
}

TEST(Detect, FlagsRings)
{
    TargetScene scene{.width = 160, .height = 160, .shapes = {}, .targets = {}, .noise = 1};
    add_target(scene, 80.2, 80.6, 40, 36, 0.3, 60, 200);
    add_target(scene, 80.2, 80.6, 20, 18, 0.3, 200, 60);
    const Detected rings = detected(scene);
    ASSERT_EQ(rings.count(), 2);
    EXPECT_NE(rings[0].polarity, rings[1].polarity);
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(rings[i].flags & PANOVAL_MEASURE_RING);
    EXPECT_FALSE(detected(two_targets())[0].flags & PANOVAL_MEASURE_RING);
}

// A ring of 2 pixels and less, whose outer edge the rays across the inner one meet as soon as that. The inner one is
// measured in a picture without the outer one.
TEST(Detect, FindsBothOutlinesOfNarrowRings)
{
    int found = 0;
    for (std::uint64_t seed = 1; seed <= 40; ++seed) {
        TargetScene scene{.width = 80, .height = 80, .shapes = {}, .targets = {}, .blur = 0.8, .noise = 5.1};
        scene.seed = seed;
        add_target(scene, 40.2, 39.7, 8, 6.4, 0.5, 159, 200);
        add_target(scene, 40.2, 39.7, 5.5, 4.4, 0.5, 200, 159);
        const Detected rings = detected(scene);
        EXPECT_LE(rings.count(), 2);
        for (const TrueTarget& target : scene.targets)
            for (int i = 0; i < rings.count(); ++i)
                found += is_at(rings[i], target);
    }
    EXPECT_GE(found, 79);
}

TEST(Detect, TellsTouchingTargetsApart)
{
    const SceneConditions conditions = {.least_radius = 8, .most_radius = 25};
    for (const double gap : {1.0, 3.0}) {
        Score apart;
        apart.add(pair_scene(conditions, 12, gap, 4));
        EXPECT_EQ(apart.targets, 24);
        EXPECT_GE(apart.found, 23) << "gap " << gap;
    }
    Score touching; // the larger one of a pair shows nearly all of its outline, the smaller one less
    touching.add(pair_scene(conditions, 12, 0, 4));
    EXPECT_GE(touching.found, 20);
}

// Boards, scatters, rings and clutter; contrasts down to 8 deviations of a noise of 2 per cent; changing light.
TEST(Detect, FindsNearlyAllTargetsAndNearlyNothingElse)
{
    const SceneConditions all[] = {
        {}, {.contrast = 41, .noise = 5.1}, {.contrast = 100, .noise = 5.1, .light = 0.5, .is_bright = true}};
    Score score;
    for (const SceneConditions& conditions : all)
        for (std::uint64_t seed = 1; seed <= 2; ++seed) {
            Random random(seed);
            score.add(board_scene(conditions, random_view(random), seed));
            score.add(scatter_scene(conditions, 30, seed));
            score.add(ring_scene(conditions, 15, seed));
            for (const Clutter clutter : kAllClutter)
                score.add(cluttered_scene(conditions, 20, clutter, seed));
        }
    EXPECT_GT(score.targets, 1000);
    EXPECT_GE(score.found, 0.995 * score.targets) << score.targets;
    EXPECT_LE(score.wrong, 0.005 * score.records) << score.records;
}

// Contrast of eight deviations: noise bends the outlines of such dots, and blurs them.
TEST(Detect, FindsDotsOfThreePixelsOnADenseBoard)
{
    constexpr int kSide = 30;
    Random random(12);
    Score score;
    for (const double step : {10.0, 14.0}) {
        TargetScene scene{.shapes = {}, .targets = {}, .noise = 5};
        scene.width = scene.height = static_cast<std::int32_t>(step) * kSide + 20;
        scene.background = 190;
        scene.blur = 0.7;
        for (int n = 0; n < kSide * kSide; ++n)
            add_target(scene, 15 + step * (n % kSide) + random.real(-0.3, 0.3),
                       15 + step * (n / kSide) + random.real(-0.3, 0.3), 3, 3, 0, 150, 190);
        score.add(scene);
    }
    EXPECT_GE(score.found, 0.995 * score.targets);
    EXPECT_LE(score.wrong, 0.005 * score.records);
}

// The blur of the next dots' edges reaches each dot's own; it is taken away once they are known.
TEST(Detect, FindsDotsWhoseEdgesReachEachOther)
{
    Score score;
    TargetScene scene{.width = 220, .height = 160, .shapes = {}, .targets = {}, .blur = 0.9, .noise = 5.1};
    for (int n = 0; n < 17 * 17; ++n)
        add_target(scene, 15.3 + 11.7 * (n % 17), 14.2 + 8.2 * (n / 17), 4.5, 3.15, 0, 159, 200);
    score.add(scene);
    EXPECT_GE(score.found, 0.99 * score.targets);
    EXPECT_LE(score.wrong, 0.005 * score.records);
}

// Dark lines that cross leave bright meshes, which blur makes round.
TargetScene crossing_lines(double pitch, double width, double blur, double contrast, double noise = 5.1)
{
    TargetScene scene{.width = 110, .height = 90, .shapes = {}, .targets = {}, .blur = blur, .noise = noise};
    for (const double angle : {0.4, 1.9})
        for (int n = -15; n <= 15; ++n)
            scene.shapes.push_back({Shape::Kind::Rectangle, 55.3 - n * pitch * std::sin(angle),
                                    45.2 + n * pitch * std::cos(angle), 200, width / 2, angle, 200 - contrast});
    return scene;
}

TEST(Detect, TakesNoMeshesOfCrossingLinesForTargets)
{
    EXPECT_LE(detected(crossing_lines(8, 2.5, 1, 150)).count(), 2);
    EXPECT_LE(detected(crossing_lines(9, 3, 0.9, 41)).count(), 2);
    EXPECT_LE(detected(crossing_lines(10.5, 3.7, 1, 41)).count(), 2);
    EXPECT_LE(detected(crossing_lines(8, 1.3, 1.05, 150)).count(), 2);
}

// Their residuals make deviations large, but what is smaller than the limit is not so by chance.
TEST(Detect, LeavesOutMeshesThatAreTooSmall)
{
    EXPECT_LE(detected(crossing_lines(6.2, 1.2, 0.9, 150, 2)).count(), 2);
    EXPECT_LE(detected(crossing_lines(6, 1.2, 0.9, 150, 2)).count(), 25);
}

TEST(Detect, FindsNothingWhereNothingIs)
{
    const std::vector<std::uint8_t> flat(90 * 70, 77);
    EXPECT_EQ(Detected(flat, 90, 70).count(), 0);
    EXPECT_EQ(Detected(flat, 90, 70).result.targets, nullptr);
    for (int seed = 1; seed <= 4; ++seed) {
        const TargetScene noise{.width = 500,
                                .height = 400,
                                .shapes = {},
                                .targets = {},
                                .light_x = 0.2,
                                .noise = 5.0 * seed,
                                .seed = static_cast<std::uint64_t>(seed)};
        EXPECT_EQ(detected(noise).count(), 0) << seed;
    }
    const std::vector<std::uint8_t> few = {1, 200, 3, 250, 9, 30};
    for (const std::int32_t width : {1, 2, 3, 6})
        EXPECT_EQ(Detected(few, width, 6 / width).code, PANOVAL_MEASURE_OK) << width;
}

constexpr int kTextureSide = 200;

// Means along rows, turned, so that two calls smooth both ways; the picture repeats itself.
std::vector<double> smoothed_and_turned(const std::vector<double>& values, int reach)
{
    std::vector<double> result(values.size());
    for (int y = 0; y < kTextureSide; ++y)
        for (int x = 0; x < kTextureSide; ++x) {
            double sum = 0;
            for (int k = x - reach; k <= x + reach; ++k)
                sum += values[static_cast<std::size_t>(y * kTextureSide + (k + kTextureSide) % kTextureSide)];
            result[static_cast<std::size_t>(x * kTextureSide + y)] = sum / (2 * reach + 1);
        }
    return result;
}

// Grains of some pixels, dark and bright, in noise of 2.
std::vector<std::uint8_t> grains(std::uint64_t seed)
{
    Random random(seed);
    std::vector<double> noise(kTextureSide * kTextureSide);
    for (double& value : noise)
        value = normal_value(random);
    std::vector<double> fine = noise, coarse = noise;
    for (int pass = 0; pass < 6; ++pass) {
        fine = smoothed_and_turned(fine, 2);
        coarse = smoothed_and_turned(coarse, 4);
    }
    std::vector<std::uint8_t> pixels;
    for (std::size_t i = 0; i < fine.size(); ++i)
        pixels.push_back(static_cast<std::uint8_t>(
            std::clamp(120 + 90 * (fine[i] - coarse[i]) + 2 * normal_value(random), 0.0, 255.0)));
    return pixels;
}

TEST(Detect, GivesUpGrainsThatDoNotSettle)
{
    for (const std::uint64_t seed : {1u, 2u, 3u}) {
        const std::vector<std::uint8_t> pixels = grains(seed);
        const Detected all(pixels, kTextureSide, kTextureSide, {.min_quality = -1});
        EXPECT_GT(all.result.candidates, 500);
        int unsettled = 0;
        for (int i = 0; i < all.count(); ++i)
            unsettled += all[i].iterations >= 20 && all[i].noise > 3 && all[i].ellipse.semi_minor < 8;
        EXPECT_EQ(unsettled, 0) << seed;
    }
}

TEST(Detect, GivesTheSameBytesAgain)
{
    const TargetScene scene = board_scene({.noise = 5}, {}, 3);
    const Detected one = detected(scene);
    const Detected two = detected(scene);
    ASSERT_EQ(one.count(), two.count());
    EXPECT_EQ(std::memcmp(one.result.targets, two.result.targets,
                          sizeof(PanovalMeasureTarget) * static_cast<std::size_t>(one.count())),
              0);
}

TEST(Detect, NamesWhatIsWrong)
{
    const std::vector<std::uint8_t> flat(100, 9);
    const PanovalMeasureImage image = {flat.data(), 10, 10, 10, PANOVAL_MEASURE_U8, 0};
    PanovalMeasureDetection out = {};
    EXPECT_EQ(panoval_measure_detect(nullptr, nullptr, &out), PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(panoval_measure_detect(&image, nullptr, nullptr), PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(panoval_measure_detect(&image, nullptr, &out), PANOVAL_MEASURE_OK);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const auto code_of = [&](const Wish& wish) {
        const PanovalMeasureDetectOptions options = wish.options();
        return panoval_measure_detect(&image, &options, &out);
    };
    EXPECT_EQ(code_of({.polarity = 3}), PANOVAL_MEASURE_BAD_OPTION);
    EXPECT_EQ(code_of({.polarity = -1}), PANOVAL_MEASURE_BAD_OPTION);
    EXPECT_EQ(code_of({.max_count = -1}), PANOVAL_MEASURE_BAD_OPTION);
    EXPECT_EQ(code_of({.min_radius = -1}), PANOVAL_MEASURE_BAD_OPTION);
    EXPECT_EQ(code_of({.max_radius = nan}), PANOVAL_MEASURE_BAD_OPTION);
    EXPECT_EQ(code_of({.min_aspect = 1.5}), PANOVAL_MEASURE_BAD_OPTION);
    EXPECT_EQ(code_of({.min_quality = 1.5}), PANOVAL_MEASURE_BAD_OPTION);
    EXPECT_EQ(code_of({.min_quality = nan}), PANOVAL_MEASURE_BAD_OPTION);
    panoval_measure_free(nullptr);
}

} // namespace

} // namespace panoval::test
