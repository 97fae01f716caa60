// SPDX-License-Identifier: MIT
// Verdicts on scenes of which most places look like others, or like nothing: lines of text, a few things before a plain
// wall, stars.
#include "mosaic/verdict/verdict.h"

#include "tests/mosaic/verdict/verdict_cases.h"

#include <gtest/gtest.h>

#include <cmath>

namespace panoval::mosaic::test
{

namespace
{

using Numbers = std::vector<std::size_t>;

Scene plain_scene(std::int64_t width, std::int64_t height, float light)
{
    Scene scene{width, height, 1, {}};
    scene.light.assign(static_cast<std::size_t>(width * height), light);
    return scene;
}

void fill(Scene& scene, const Rect& rect, float light)
{
    const Rect inside = intersect(rect, {0, 0, scene.width, scene.height});
    for (std::int64_t y = inside.y; y < inside.bottom(); ++y)
        for (std::int64_t x = inside.x; x < inside.right(); ++x)
            scene.at(x, y, 0) = light;
}

// Letters of two or three strokes each, in lines.
Scene make_page(std::int64_t width, std::int64_t height, std::uint64_t seed)
{
    Scene scene = plain_scene(width, height, 0.92f);
    Random random = seeded(seed);
    for (std::int64_t y = 6; y < height; y += 18)
        for (std::int64_t x = 4; x < width; x += 9) {
            if (random.integer(0, 5) == 0)
                continue; // between words
            fill(scene, {x + random.integer(0, 5), y, 1, 10}, 0.2f);
            fill(scene, {x, y + random.integer(0, 9), 6, 1}, 0.2f);
        }
    scene_detail::blur(scene, 0.6);
    return scene;
}

// Bright discs, some of them shaded, before a plain wall.
Scene make_faces(std::int64_t width, std::int64_t height, std::uint64_t seed)
{
    Scene scene = plain_scene(width, height, 0.35f);
    Random random = seeded(seed);
    for (std::int64_t left = 0; left + 100 < width; left += 150) {
        const std::int64_t centre_x = left + random.integer(50, 90);
        const std::int64_t centre_y = random.integer(60, height - 60);
        for (std::int64_t y = 0; y < height; ++y)
            for (std::int64_t x = 0; x < width; ++x) {
                const std::int64_t d = (x - centre_x) * (x - centre_x) + (y - centre_y) * (y - centre_y);
                if (d < 45 * 45)
                    scene.at(x, y, 0) = 0.75f - 0.0001f * static_cast<float>(d);
            }
    }
    scene_detail::blur(scene, 2.5);
    return scene;
}

Scene make_stars(std::int64_t width, std::int64_t height, std::uint64_t seed)
{
    Scene scene = plain_scene(width, height, 0.f);
    Random random = seeded(seed);
    for (std::int64_t k = 0; k < width * height / 700; ++k) {
        const std::int64_t x = random.integer(0, width - 1);
        const std::int64_t y = random.integer(0, height - 1);
        scene.at(x, y, 0) = static_cast<float>(0.1 + 0.5 * random.unit());
    }
    scene_detail::blur(scene, 1);
    for (float& light : scene.light)
        light += 0.03f;
    return scene;
}

// Four pictures of 250 x 220 in a row, 70 pixels shared.
constexpr std::int64_t kApart = 180;
constexpr std::int64_t kRowWidth = 3 * kApart + 250;

std::vector<MemoryPicture> take_row(const Scene& scene, std::vector<Cut> changed = {})
{
    std::vector<MemoryPicture> pictures;
    for (std::size_t i = 0; i < 4; ++i) {
        Cut cut = changed.empty() ? Cut{} : changed[i];
        cut.rect = {static_cast<std::int64_t>(i) * kApart, 0, 250, 220};
        cut.noise = 1;
        cut.seed = i + 1;
        pictures.push_back(take_picture(scene, cut));
    }
    return pictures;
}

Verdict judge_row(const std::vector<MemoryPicture>& pictures)
{
    VerdictCase made{"row", "", std::make_shared<MemoryReader>(kRowWidth, 220), {}, 0, 0, {}};
    for (std::size_t i = 0; i < pictures.size(); ++i)
        made.reader->add(static_cast<std::int64_t>(i) * kApart, 0, pictures[i]);
    return judge_case(made);
}

TEST(VerdictScenes, NamesAPageThatIsThereTwice)
{
    for (const std::uint64_t seed : {1u, 2u, 3u}) {
        std::vector<MemoryPicture> pictures = take_row(make_page(kRowWidth, 220, seed));
        EXPECT_EQ(judge_row(pictures).word, Word::Good);
        pictures[1] = pictures[2];
        const Verdict verdict = judge_row(pictures);
        EXPECT_EQ(verdict.word, Word::Bad);
        EXPECT_EQ(verdict.misfits, Numbers{1});
    }
}

TEST(VerdictScenes, NamesATurnedPage)
{
    for (const std::uint64_t seed : {1u, 2u, 3u}) {
        std::vector<MemoryPicture> pictures = take_row(make_page(kRowWidth, 220, seed));
        pictures[2].turn();
        const Verdict verdict = judge_row(pictures);
        EXPECT_EQ(verdict.word, Word::Bad);
        EXPECT_EQ(verdict.misfits, Numbers{2});
    }
}

TEST(VerdictScenes, NamesABlankPictureOfAPlainScene)
{
    for (const std::uint64_t seed : {1u, 2u, 3u}) {
        std::vector<MemoryPicture> pictures = take_row(make_faces(kRowWidth, 220, seed));
        EXPECT_EQ(judge_row(pictures).word, Word::Good);
        std::fill(pictures[1].samples.begin(), pictures[1].samples.end(), std::uint16_t{128});
        const Verdict verdict = judge_row(pictures);
        EXPECT_EQ(verdict.word, Word::Bad);
        EXPECT_EQ(verdict.misfits, Numbers{1});
    }
}

// Its plain places lie where neighbours show something, and the other way round: none of them is to blame.
TEST(VerdictScenes, NamesATurnedPictureOfAPlainSceneAlone)
{
    for (const std::uint64_t seed : {1u, 2u, 3u}) {
        std::vector<MemoryPicture> pictures = take_row(make_faces(kRowWidth, 220, seed));
        pictures[1].turn();
        const Verdict verdict = judge_row(pictures);
        EXPECT_EQ(verdict.word, Word::Bad);
        EXPECT_EQ(verdict.misfits, Numbers{1});
    }
}

TEST(VerdictScenes, MeasuresAShiftOfStars)
{
    for (const std::uint64_t seed : {1u, 2u, 3u}) {
        std::vector<Cut> cuts(4);
        cuts[1].shift_y = -3;
        const Verdict verdict = judge_row(take_row(make_stars(kRowWidth, 220, seed), cuts));
        EXPECT_EQ(verdict.word, Word::Bad);
        EXPECT_EQ(verdict.misfits, Numbers{1});
        ASSERT_TRUE(verdict.overlaps[0].displacement);
        EXPECT_NEAR(verdict.overlaps[0].displacement->y, -3, 0.2);
    }
}

// Where four pictures meet two of them share a corner, where a lens is darkest.
TEST(VerdictScenes, OfALensThatDarkensCornersAreNotBad)
{
    for (const std::uint64_t seed : {1u, 2u, 3u}) {
        const Scene scene =
            make_scene(420, 370, {.channels = 1, .mean = 0.75, .contrast = 0.1, .edges = 5, .seed = seed});
        VerdictCase made{"grid", "vignetting", std::make_shared<MemoryReader>(420, 370), {}, 0, 0, {}};
        for (std::int64_t i = 0; i < 4; ++i) {
            Cut cut{.rect = {170 * (i % 2), 150 * (i / 2), 250, 220}, .noise = 1};
            cut.falloff.c = {-0.35, 0, 0};
            made.reader->add(cut.rect.x, cut.rect.y, take_picture(scene, cut));
        }
        const Verdict verdict = judge_case(made);
        EXPECT_EQ(verdict.word, Word::Look);
        EXPECT_EQ(verdict.misfits, Numbers{});
    }
}

// Two pictures of 16 bit that share 110 columns, the second one without the grain of the first; of so many levels of
// 255.
OverlapVerdict judge_grain(double levels)
{
    constexpr std::int64_t kSide = 160;
    constexpr std::int64_t kStep = 50;
    VerdictCase made{"grain", "", std::make_shared<MemoryReader>(kSide + kStep, kSide), {}, 0, 0, {}};
    for (std::int64_t i = 0; i < 2; ++i) {
        MemoryPicture picture = MemoryPicture::blank(kSide, kSide, 1, 16);
        for (std::int64_t y = 0; y < kSide; ++y)
            for (std::int64_t x = 0; x < kSide; ++x) {
                const double hill =
                    20 * std::sin(0.05 * static_cast<double>(x + i * kStep)) * std::cos(0.07 * static_cast<double>(y));
                const double grain =
                    (i == 0 ? levels : 0.4 * levels) * ((((x + i * kStep) / 4 + y / 4) % 2 == 0) ? 1 : -1);
                picture.at(x, y) = static_cast<std::uint16_t>(std::lround(257 * (128 + std::round(hill) + grain)));
            }
        made.reader->add(i * kStep, 0, std::move(picture));
    }
    return judge_case(made).overlaps.at(0);
}

TEST(VerdictScenes, GrainThatNobodySeesIsNoSharpness)
{
    EXPECT_TRUE(judge_grain(4).is_sharpness_known);
    EXPECT_LT(judge_grain(4).sharpness, 0.5);
    EXPECT_FALSE(judge_grain(0.3).is_sharpness_known);
}

} // namespace

} // namespace panoval::mosaic::test
