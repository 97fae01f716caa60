// SPDX-License-Identifier: MIT
#include "mosaic/verdict/verdict_words.h"

#include "mosaic/verdict/verdict_faults.h"

#include <gtest/gtest.h>

namespace panoval::mosaic::test
{

namespace
{

using Numbers = std::vector<std::size_t>;

Layout pictures(std::size_t count)
{
    Layout layout;
    layout.pictures.resize(count);
    return layout;
}

OverlapVerdict fitting(std::size_t first, std::size_t second)
{
    OverlapVerdict overlap;
    overlap.first = first;
    overlap.second = second;
    overlap.displacement = Displacement{0, 0, 0.95};
    overlap.evidence = 0.9;
    overlap.noise = 0.7;
    overlap.after.mean = 0.8;
    return overlap;
}

OverlapVerdict of_other_things(std::size_t first, std::size_t second)
{
    OverlapVerdict overlap = fitting(first, second);
    overlap.displacement.reset();
    overlap.is_mismatch = true;
    overlap.after.mean = 20;
    return overlap;
}

// Shows too little to tell places.
OverlapVerdict plain(std::size_t first, std::size_t second, double differs_by)
{
    OverlapVerdict overlap = fitting(first, second);
    overlap.displacement.reset();
    overlap.evidence = 0;
    overlap.after.mean = differs_by;
    return overlap;
}

OverlapVerdict of_curves(std::size_t first, std::size_t second, double tone, double unevenness)
{
    OverlapVerdict overlap = fitting(first, second);
    overlap.tone = tone;
    overlap.unevenness = unevenness;
    return overlap;
}

bool is_displaced_by(double displaced_by, double uncertainty)
{
    OverlapVerdict overlap = fitting(0, 1);
    overlap.displaced_by = displaced_by;
    overlap.uncertainty = uncertainty;
    return is_displaced(overlap, kDisplacedLook);
}

TEST(VerdictFaults, BelieveADisplacementBeyondItsUncertainty)
{
    EXPECT_TRUE(is_displaced_by(0.7, 0));
    EXPECT_FALSE(is_displaced_by(0.69, 0));
    EXPECT_TRUE(is_displaced_by(0.7, 0.1));   // 0.45 of it, 2.5 deviations less, is still 0.6 of the limit
    EXPECT_FALSE(is_displaced_by(0.8, 0.11)); // where little is shared beyond noise: 4 deviations
    EXPECT_TRUE(is_displaced_by(0.87, 0.11));
    EXPECT_FALSE(is_displaced_by(1.2, 0.2));
    EXPECT_TRUE(is_displaced_by(2, 0.25));
}

Word word_of_step(double step, double unevenness, const ToneLimits& limits)
{
    OverlapVerdict overlap = fitting(0, 1);
    overlap.step = step;
    overlap.unevenness = unevenness;
    describe(pictures(2), limits, overlap);
    return overlap.word;
}

TEST(VerdictFaults, AStepIsBadWhereLightIsAsUnevenAsInNoOtherOverlap)
{
    EXPECT_EQ(word_of_step(4, 0, {3, {}, true}), Word::Good);
    EXPECT_EQ(word_of_step(4.1, 0, {3, {}, true}), Word::Look);
    EXPECT_EQ(word_of_step(16, 0, {3, {}, true}), Word::Look);
    EXPECT_EQ(word_of_step(16.1, 0, {3, {}, true}), Word::Bad) << "of few overlaps nobody knows";
    EXPECT_EQ(word_of_step(16.1, 3.9, {3, 4, true}), Word::Look) << "a lens";
    EXPECT_EQ(word_of_step(16.1, 4, {3, 4, true}), Word::Bad);
}

TEST(VerdictWords, HaveNames)
{
    EXPECT_STREQ(name_of(Word::Good), "good");
    EXPECT_STREQ(name_of(Word::Look), "look");
    EXPECT_STREQ(name_of(Word::Bad), "bad");
}

Numbers misfits_of(std::size_t count, std::vector<OverlapVerdict> overlaps)
{
    Verdict verdict;
    verdict.overlaps = std::move(overlaps);
    put_into_words(pictures(count), verdict);
    return verdict.misfits;
}

TEST(Blame, OfTwoGoesToTheOneThatDiffersElsewhereToo)
{
    EXPECT_EQ(misfits_of(3, {plain(0, 1, 0.8), of_other_things(1, 2)}), (Numbers{1, 2}));
    EXPECT_EQ(misfits_of(3, {plain(0, 1, 9), of_other_things(1, 2)}), Numbers{1});
}

TEST(Blame, IsNotForDifferencesAlone)
{
    std::vector<OverlapVerdict> around;
    for (std::size_t other = 1; other < 9; ++other)
        around.push_back(plain(0, other, 20));
    EXPECT_EQ(misfits_of(9, around), Numbers{});
}

TEST(Blame, ForACurveIsItsPictures)
{
    EXPECT_EQ(misfits_of(4, {of_curves(0, 1, 6, 1), of_curves(1, 2, 6, 1), of_curves(2, 3, 0, 0)}), Numbers{1});
}

TEST(Blame, ForACurveIsItsPicturesWhereThereAreNoOthers)
{
    EXPECT_EQ(misfits_of(3, {of_curves(0, 1, 6, 1), of_curves(1, 2, 6, 1)}), Numbers{1});
}

// What is known of brightness and sharpness then says nothing either.
TEST(Blame, IsNobodysWhereNothingFits)
{
    std::vector<OverlapVerdict> all;
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t j = i + 1; j < 4; ++j) {
            OverlapVerdict& overlap = all.emplace_back(of_other_things(i, j));
            overlap.tone = i == 0 ? 20 : 0;
            overlap.is_sharpness_known = true;
            overlap.sharpness = i == 0 ? 5 : 1;
        }
    EXPECT_EQ(misfits_of(4, all), Numbers{});
    for (OverlapVerdict& overlap : all) {
        overlap.is_mismatch = false;
        overlap.empty = overlap.second;
    }
    all[0].empty = 0; // whoever is empty here shows something there
    EXPECT_EQ(misfits_of(4, all), Numbers{});
    for (OverlapVerdict& overlap : all) {
        overlap.empty.reset();
        overlap.displaced_by = 5;
        overlap.sharpness = 1;
    }
    EXPECT_EQ(misfits_of(4, all), Numbers{}) << "displaced, all of them";
}

TEST(Blame, ForACurveIsNobodysWhereAllAreUneven)
{
    EXPECT_EQ(misfits_of(4, {of_curves(0, 1, 6, 4), of_curves(1, 2, 6, 4), of_curves(2, 3, 0, 5)}), Numbers{});
}

TEST(Blame, ForUnevenLightIsItsPicturesWhereOthersAreNot)
{
    EXPECT_EQ(misfits_of(5, {of_curves(0, 1, 0, 15), of_curves(1, 2, 0, 12), of_curves(2, 3, 0, 0.2),
                             of_curves(3, 4, 0, 0.3)}),
              Numbers{1});
}

OverlapVerdict of_sharpness(std::size_t first, std::size_t second, double sharpness)
{
    OverlapVerdict overlap = fitting(first, second);
    overlap.is_sharpness_known = true;
    overlap.sharpness = sharpness;
    return overlap;
}

TEST(Blame, ForSoftnessIsWhereOneOverlapShowsItClearly)
{
    // sharpness is that of the second picture relative to the first one
    EXPECT_EQ(misfits_of(4, {of_sharpness(0, 1, 0.5), of_sharpness(1, 2, 1 / 0.65), of_sharpness(2, 3, 1)}),
              Numbers{1});
    EXPECT_EQ(misfits_of(4, {of_sharpness(0, 1, 0.65), of_sharpness(1, 2, 1 / 0.65), of_sharpness(2, 3, 1)}),
              Numbers{});
}

// Measured with it, gains of the others are wrong.
TEST(Blame, ForBrightnessIsNotWhereAPictureIsMisplaced)
{
    OverlapVerdict darker = fitting(0, 1);
    darker.offset = 20;
    EXPECT_EQ(misfits_of(4, {darker, of_other_things(0, 3), of_other_things(1, 3), of_other_things(2, 3)}), Numbers{3});
}

OverlapVerdict with_ghost(std::size_t first, std::size_t second, std::int64_t x)
{
    OverlapVerdict overlap = plain(first, second, 5);
    overlap.ghosts.push_back({{x, 0, 20, 40}, 30, true});
    return overlap;
}

TEST(Blame, ForThingsInEveryOverlapIsTheirPictures)
{
    EXPECT_EQ(misfits_of(4, {with_ghost(0, 1, 0), with_ghost(1, 2, 200), fitting(2, 3)}), Numbers{1});
    EXPECT_EQ(misfits_of(4, {with_ghost(0, 1, 0), with_ghost(1, 2, 10), fitting(2, 3)}), Numbers{}) << "one thing";
}

TEST(Blame, ForSharpnessIsTheSofterOnes)
{
    OverlapVerdict unknown = fitting(0, 1);
    OverlapVerdict soft = fitting(1, 2);
    soft.is_sharpness_known = true;
    soft.sharpness = 3;
    EXPECT_EQ(misfits_of(3, {unknown, soft}), Numbers{1});
}

TEST(Blame, ForOneFaultIsNotSaidTwice)
{
    OverlapVerdict empty = of_other_things(1, 2);
    empty.is_mismatch = false;
    empty.empty = 1;
    OverlapVerdict uneven = plain(0, 1, 50);
    uneven.offset = 50;
    EXPECT_EQ(misfits_of(3, {uneven, empty}), Numbers{1});
}

} // namespace

} // namespace panoval::mosaic::test
