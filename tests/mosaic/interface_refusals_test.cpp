// SPDX-License-Identifier: MIT
// Every refusal of the C interface with its code and its text, and what a host gets to know when it fails itself.
#include "tests/mosaic/memory_host.h"

#include "mosaic/plan_json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

PanovalMosaicPicture picture_at(std::int64_t x)
{
    PanovalMosaicPicture picture{};
    picture.x = x;
    picture.width = 40;
    picture.height = 30;
    picture.channels = 1;
    picture.bits = 8;
    return picture;
}

// Two pictures of 40 x 30 that share ten columns; the canvas has 70 x 30 pixels.
class InterfaceRefusals : public testing::Test
{
protected:
    Mosaic mosaic;

    void add_pictures(const PanovalMosaicOptions& options = {})
    {
        ASSERT_EQ(panoval_mosaic_set_options(mosaic.get(), &options), PANOVAL_MOSAIC_OK) << mosaic.error();
        for (const std::int64_t x : {0, 30}) {
            const PanovalMosaicPicture picture = picture_at(x);
            ASSERT_EQ(panoval_mosaic_add_picture(mosaic.get(), &picture), PANOVAL_MOSAIC_OK) << mosaic.error();
        }
    }
    // The text of a refusal for an argument; empty for any other outcome.
    std::string refused(std::int32_t code) const { return code == PANOVAL_MOSAIC_ARGUMENT ? mosaic.error() : ""; }
};

PanovalMosaicOptions without_gains()
{
    PanovalMosaicOptions options{};
    options.gains = PANOVAL_MOSAIC_GAINS_OFF;
    return options;
}

TEST_F(InterfaceRefusals, OfOptions)
{
    PanovalMosaicOptions options{};
    options.threads = PANOVAL_MOSAIC_MOST_THREADS + 1;
    EXPECT_EQ(refused(panoval_mosaic_set_options(mosaic.get(), &options)),
              "found " + std::to_string(PANOVAL_MOSAIC_MOST_THREADS + 1) + " threads; expected 0 to " +
                  std::to_string(PANOVAL_MOSAIC_MOST_THREADS));
    options.threads = PANOVAL_MOSAIC_MOST_THREADS;
    EXPECT_EQ(panoval_mosaic_set_options(mosaic.get(), &options), PANOVAL_MOSAIC_OK);
}

TEST_F(InterfaceRefusals, OfAnAnchorThatThereIsNot)
{
    PanovalMosaicOptions options{};
    options.anchor = 3;
    add_pictures(options);
    PanovalMosaicLayout layout{};
    EXPECT_EQ(refused(panoval_mosaic_layout(mosaic.get(), &layout)),
              "found picture 3 of 2 as anchor; expected one that there is");
    options.anchor = 2;
    ASSERT_EQ(panoval_mosaic_set_options(mosaic.get(), &options), PANOVAL_MOSAIC_OK);
    EXPECT_EQ(panoval_mosaic_layout(mosaic.get(), &layout), PANOVAL_MOSAIC_OK) << mosaic.error();
}

TEST_F(InterfaceRefusals, OfAHostThatReadsNothing)
{
    const PanovalMosaicHost host{};
    EXPECT_EQ(refused(panoval_mosaic_set_host(mosaic.get(), &host)),
              "found no read_rows in the host; expected a function");
}

TEST_F(InterfaceRefusals, OfPicturesAndOverlapsThatThereAreNot)
{
    add_pictures();
    PanovalMosaicPicture picture{};
    EXPECT_EQ(refused(panoval_mosaic_picture(mosaic.get(), -1, &picture)), "found picture -1; expected 0 to 1");
    EXPECT_EQ(refused(panoval_mosaic_picture(mosaic.get(), 2, &picture)), "found picture 2; expected 0 to 1");
    PanovalMosaicOverlap overlap{};
    EXPECT_EQ(refused(panoval_mosaic_overlap(mosaic.get(), -1, &overlap)), "found overlap -1; expected 0 to 0");
}

TEST_F(InterfaceRefusals, OfASecondPlan)
{
    add_pictures();
    const char* text = nullptr;
    std::size_t size = 0;
    ASSERT_EQ(panoval_mosaic_save_plan(mosaic.get(), &text, &size), PANOVAL_MOSAIC_OK);
    Mosaic loaded;
    ASSERT_EQ(panoval_mosaic_load_plan(loaded.get(), text, size), PANOVAL_MOSAIC_OK) << loaded.error();
    EXPECT_EQ(panoval_mosaic_load_plan(loaded.get(), text, size), PANOVAL_MOSAIC_ARGUMENT);
    EXPECT_EQ(loaded.error(), "a plan comes to a mosaic that has pictures; expected one without");
}

TEST_F(InterfaceRefusals, OfAPlanBesidePictures)
{
    add_pictures();
    EXPECT_EQ(panoval_mosaic_load_plan(mosaic.get(), "{}", 2), PANOVAL_MOSAIC_ARGUMENT);
    EXPECT_EQ(mosaic.error(), "a plan comes to a mosaic that has pictures; expected one without");
}

// Statistics of no overlap, where the pictures have one.
TEST_F(InterfaceRefusals, OfAPlanWithStatisticsOfOtherOverlaps)
{
    Plan plan;
    plan.layout = make_layout({{0, 0, 40, 30, 1, 8, false, {}, "left"}, {30, 0, 40, 30, 1, 8, false, {}, "right"}}, 0);
    plan.traits.resize(2);
    plan.grid = {70, 30, 70, 30};
    plan.statistics.emplace();
    const std::string text = plan_to_json(plan);
    EXPECT_EQ(panoval_mosaic_load_plan(mosaic.get(), text.data(), text.size()), PANOVAL_MOSAIC_PLAN);
    EXPECT_EQ(mosaic.error(), "found statistics of 0 overlaps in the plan; expected 1");
}

TEST_F(InterfaceRefusals, OfPartsToMeasureAndOfMeasuringWithoutAHost)
{
    add_pictures();
    EXPECT_EQ(refused(panoval_mosaic_measure(mosaic.get(), 0)), "found parts 0 to measure; expected 1 to 7");
    EXPECT_EQ(refused(panoval_mosaic_measure(mosaic.get(), 8)), "found parts 8 to measure; expected 1 to 7");
    EXPECT_EQ(refused(panoval_mosaic_measure(mosaic.get(), PANOVAL_MOSAIC_MEASURE_ALL)),
              "there is no host to give pixels; expected panoval_mosaic_set_host before");
}

TEST_F(InterfaceRefusals, OfGains)
{
    add_pictures();
    std::vector<double> gains(8, 1.0);
    EXPECT_EQ(refused(panoval_mosaic_set_gains(mosaic.get(), gains.data(), 1, nullptr)),
              "found gains of 1 pictures; expected 2");
    const std::string expected = "; expected 0.000001 to 1000000";
    for (const auto& [gain, text] : {std::pair(2e6, "2e+06"), std::pair(1e-7, "1e-07"), std::pair(0.0, "0")}) {
        gains[5] = gain;
        EXPECT_EQ(refused(panoval_mosaic_set_gains(mosaic.get(), gains.data(), 2, nullptr)),
                  std::string("picture 1: found a gain of ") + text + expected);
    }
    gains[5] = std::nan("");
    EXPECT_NE(refused(panoval_mosaic_set_gains(mosaic.get(), gains.data(), 2, nullptr)), "");
    double told[4] = {};
    EXPECT_EQ(refused(panoval_mosaic_gains(mosaic.get(), 0, told, nullptr, nullptr, nullptr)),
              "gains are not known; expected panoval_mosaic_measure or _set_gains before");
}

TEST_F(InterfaceRefusals, OfStatistics)
{
    add_pictures();
    PanovalMosaicStatistics statistics{};
    const auto set = [&](std::int64_t count) {
        return refused(panoval_mosaic_set_statistics(mosaic.get(), &statistics, count, nullptr));
    };
    EXPECT_EQ(set(-1), "found statistics of -1 overlaps; expected 1");
    EXPECT_EQ(set(2), "found statistics of 2 overlaps; expected 1");
    statistics.pixels = -300;
    EXPECT_EQ(set(1), "found -300 pixels and reserved 0 in statistics; expected 0 or more, and 0");
    statistics.pixels = 300;
    statistics.reserved = 4;
    EXPECT_EQ(set(1), "found 300 pixels and reserved 4 in statistics; expected 0 or more, and 0");
    statistics.reserved = 0;
    statistics.says = -1;
    EXPECT_EQ(set(1), "overlap 0: found says -1; expected 0 to 4");
    statistics.says = 0;
    statistics.all.is_known = 2;
    EXPECT_EQ(set(1), "found is_known 2 and reserved 0 in a ratio; expected 0 or 1, and 0");
    statistics.all.is_known = 1;
    statistics.all.reserved = 5;
    EXPECT_EQ(set(1), "found is_known 1 and reserved 5 in a ratio; expected 0 or 1, and 0");
}

TEST_F(InterfaceRefusals, OfStatisticsWhereThereAreNoGains)
{
    add_pictures(without_gains());
    const PanovalMosaicStatistics statistics{};
    EXPECT_EQ(refused(panoval_mosaic_set_statistics(mosaic.get(), &statistics, 1, nullptr)),
              "the options say that there are no gains; expected statistics with other options alone");
}

TEST_F(InterfaceRefusals, OfSeams)
{
    add_pictures();
    std::vector<std::int32_t> labels(70 * 30, 0);
    for (std::size_t i = 0; i < labels.size(); ++i)
        labels[i] = i % 70 < 35 ? 0 : 1;
    const auto set = [&](std::int64_t first, std::int64_t rows, std::size_t stride = 280) {
        return refused(panoval_mosaic_set_seam_rows(mosaic.get(), first, rows, labels.data(), stride));
    };
    EXPECT_EQ(set(1, 1), "found row 1 of seams; expected 0 or 0");
    EXPECT_EQ(set(0, 0), "found 0 rows of seams; expected 1 to 30");
    EXPECT_EQ(set(0, 31), "found 31 rows of seams; expected 1 to 30");
    EXPECT_EQ(set(0, 30, 279), "found 279 bytes from row to row of labels; expected 280 or more");
    EXPECT_EQ(set(0, 10), "");
    EXPECT_EQ(set(11, 1), "found row 11 of seams; expected 0 or 10");
    std::vector<std::int32_t> row(70);
    EXPECT_EQ(refused(panoval_mosaic_seam_row(mosaic.get(), 0, row.data())),
              "seams are not known; expected panoval_mosaic_measure or _set_seam_rows before");
    EXPECT_EQ(set(10, 20), "");
    EXPECT_EQ(refused(panoval_mosaic_seam_row(mosaic.get(), 30, row.data())), "found row 30; expected 0 to 29");
}

TEST_F(InterfaceRefusals, OfLabelsOfNoPictureThere)
{
    add_pictures();
    std::vector<std::int32_t> labels(70, -1); // nobody's
    const auto set = [&](std::size_t x, std::int32_t label) {
        std::vector<std::int32_t> row = labels;
        row[x] = label;
        return refused(panoval_mosaic_set_seam_rows(mosaic.get(), 0, 1, row.data(), 0));
    };
    const std::string expected = "; expected -1 or the number of a picture that lies there";
    EXPECT_EQ(set(5, -2), "found label -2 at 5,0" + expected);
    EXPECT_EQ(set(5, 2), "found label 2 at 5,0" + expected);
    EXPECT_EQ(set(29, 1), "found label 1 at 29,0" + expected) << "left of it";
    EXPECT_EQ(set(40, 0), "found label 0 at 40,0" + expected) << "right of it";
    EXPECT_EQ(set(39, 0), "");
    EXPECT_EQ(set(30, 1), "");
}

// A picture of the rows 0 to 29, and one of the rows 20 to 49.
TEST_F(InterfaceRefusals, OfLabelsAboveAndBelowAPicture)
{
    PanovalMosaicPicture picture = picture_at(0);
    ASSERT_EQ(panoval_mosaic_add_picture(mosaic.get(), &picture), PANOVAL_MOSAIC_OK);
    picture.y = 20;
    ASSERT_EQ(panoval_mosaic_add_picture(mosaic.get(), &picture), PANOVAL_MOSAIC_OK);
    const auto set = [&](std::size_t y, std::int32_t label) {
        std::vector<std::int32_t> labels(40 * 50, -1);
        labels[40 * y] = label;
        return refused(panoval_mosaic_set_seam_rows(mosaic.get(), 0, 50, labels.data(), 160));
    };
    const std::string expected = "; expected -1 or the number of a picture that lies there";
    EXPECT_EQ(set(19, 1), "found label 1 at 0,19" + expected);
    EXPECT_EQ(set(30, 0), "found label 0 at 0,30" + expected);
    EXPECT_EQ(set(20, 1), "");
    EXPECT_EQ(set(29, 0), "");
}

// A circle of 70 pixels; the second picture has the columns 50 to 69, and 0 to 19.
TEST_F(InterfaceRefusals, OfLabelsRoundTheHorizon)
{
    PanovalMosaicOptions options{};
    options.wrap = 70;
    ASSERT_EQ(panoval_mosaic_set_options(mosaic.get(), &options), PANOVAL_MOSAIC_OK);
    for (const std::int64_t x : {0, 50}) {
        const PanovalMosaicPicture picture = picture_at(x);
        ASSERT_EQ(panoval_mosaic_add_picture(mosaic.get(), &picture), PANOVAL_MOSAIC_OK);
    }
    EXPECT_EQ(mosaic.layout().wraps, 1);
    const auto set = [&](std::size_t x, std::int32_t label) {
        std::vector<std::int32_t> row(70, -1);
        row[x] = label;
        return refused(panoval_mosaic_set_seam_rows(mosaic.get(), 0, 1, row.data(), 0));
    };
    EXPECT_EQ(set(19, 1), "");
    EXPECT_EQ(set(20, 1), "found label 1 at 20,0; expected -1 or the number of a picture that lies there");
    EXPECT_EQ(set(49, 1), "found label 1 at 49,0; expected -1 or the number of a picture that lies there");
    EXPECT_EQ(set(50, 1), "");
}

TEST_F(InterfaceRefusals, OfSeamsWhereThereAreNone)
{
    PanovalMosaicOptions options{};
    options.seams = PANOVAL_MOSAIC_SEAMS_NONE;
    add_pictures(options);
    std::vector<std::int32_t> labels(70, 0);
    const std::string expected = "the options say that there are no seams; expected optimal or nearest ones";
    EXPECT_EQ(refused(panoval_mosaic_seam_row(mosaic.get(), 0, labels.data())), expected);
    EXPECT_EQ(refused(panoval_mosaic_set_seam_rows(mosaic.get(), 0, 1, labels.data(), 0)), expected);
}

TEST_F(InterfaceRefusals, OfVerdicts)
{
    add_pictures();
    const char* text = nullptr;
    EXPECT_EQ(refused(panoval_mosaic_verdict(mosaic.get(), 2, &text, nullptr)),
              "found with_distributions 2; expected 0 or 1");
    EXPECT_EQ(refused(panoval_mosaic_verdict(mosaic.get(), -1, &text, nullptr)),
              "found with_distributions -1; expected 0 or 1");
    EXPECT_EQ(refused(panoval_mosaic_verdict(mosaic.get(), 1, &text, nullptr)),
              "the verdict is not known; expected panoval_mosaic_measure before");
}

TEST_F(InterfaceRefusals, OfRectanglesThatLeaveTheCanvas)
{
    add_pictures();
    std::vector<std::uint8_t> samples(70 * 30);
    for (const PanovalMosaicRect& rect :
         {PanovalMosaicRect{0, 0, 0, 1}, PanovalMosaicRect{0, 0, 1, 0}, PanovalMosaicRect{-1, 0, 1, 1},
          PanovalMosaicRect{0, -1, 1, 1}, PanovalMosaicRect{1, 0, 70, 1}, PanovalMosaicRect{0, 1, 1, 30}}) {
        const auto said = [](std::int64_t value) { return std::to_string(value); };
        EXPECT_EQ(refused(panoval_mosaic_blend(mosaic.get(), &rect, samples.data(), 70, nullptr, 0)),
                  "found " + said(rect.width) + " x " + said(rect.height) + " pixels at " + said(rect.x) + "," +
                      said(rect.y) + "; expected a rectangle on the canvas of 70 x 30");
    }
}

TEST_F(InterfaceRefusals, OfRowsThatOverlapInMemory)
{
    add_pictures();
    std::vector<std::uint8_t> samples(70 * 30);
    std::vector<std::uint8_t> coverage(70 * 30);
    const PanovalMosaicRect rect = {0, 0, 70, 2};
    EXPECT_EQ(refused(panoval_mosaic_blend(mosaic.get(), &rect, samples.data(), 69, nullptr, 0)),
              "found 69 bytes from row to row of samples; expected 70 or more");
    EXPECT_EQ(refused(panoval_mosaic_blend(mosaic.get(), &rect, samples.data(), 70, coverage.data(), 69)),
              "found 69 bytes from row to row of coverage; expected 70 or more");
}

TEST_F(InterfaceRefusals, OfBlendingBeforeGainsAndSeamsAreKnown)
{
    add_pictures();
    std::vector<std::uint8_t> samples(70);
    const PanovalMosaicRect rect = {0, 0, 70, 1};
    const auto blend = [&] {
        return refused(panoval_mosaic_blend(mosaic.get(), &rect, samples.data(), 0, nullptr, 0));
    };
    EXPECT_EQ(blend(), "gains are not known; expected panoval_mosaic_measure or _set_gains before");
    const std::vector<double> gains(8, 1.0);
    ASSERT_EQ(panoval_mosaic_set_gains(mosaic.get(), gains.data(), 2, nullptr), PANOVAL_MOSAIC_OK);
    EXPECT_EQ(blend(), "seams are not known; expected panoval_mosaic_measure or _set_seam_rows before");
    std::vector<std::int32_t> labels(70 * 30, 0);
    for (std::size_t i = 0; i < labels.size(); ++i)
        labels[i] = i % 70 < 35 ? 0 : 1;
    ASSERT_EQ(panoval_mosaic_set_seam_rows(mosaic.get(), 0, 30, labels.data(), 280), PANOVAL_MOSAIC_OK);
    EXPECT_EQ(blend(), "there is no host to give pixels; expected panoval_mosaic_set_host before");
}

std::int32_t take_nothing(void*, const PanovalMosaicRect*, const void*, std::size_t, const std::uint8_t*, std::size_t,
                          char*)
{
    return 1;
}

TEST_F(InterfaceRefusals, OfSinks)
{
    add_pictures();
    const PanovalMosaicSink good = {nullptr, take_nothing, 0, 0, {}};
    const auto run = [&](const PanovalMosaicSink& sink) { return refused(panoval_mosaic_run(mosaic.get(), &sink)); };
    PanovalMosaicSink sink = good;
    sink.by_tiles = 2;
    EXPECT_EQ(run(sink), "found by_tiles 2; expected 0 or 1");
    sink = good;
    sink.wants_coverage = -1;
    EXPECT_EQ(run(sink), "found wants_coverage -1; expected 0 or 1");
    sink = good;
    sink.reserved[5] = 3;
    EXPECT_EQ(run(sink), "found 3 in a reserved field of the sink; expected 0");
    sink = good;
    sink.write = nullptr;
    EXPECT_EQ(run(sink), "found no write in the sink; expected a function");
    EXPECT_EQ(run(good), "there is no host to give pixels; expected panoval_mosaic_set_host before");
}

// What goes wrong in the host.
enum class Trouble : int { None, WithoutAReason, ThrownError, ThrownNumber };

struct TroubledHost {
    Trouble trouble = Trouble::None;
    std::vector<int> released;

    PanovalMosaicHost record() { return {this, read_rows, release, nullptr}; }

    static std::int32_t read_rows(void* user, const PanovalMosaicRows* rows)
    {
        const auto* const host = static_cast<TroubledHost*>(user);
        if (host->trouble == Trouble::ThrownError)
            throw std::runtime_error("the host's own error");
        if (host->trouble == Trouble::ThrownNumber)
            throw 5;
        for (std::int32_t y = 0; y < rows->row_count; ++y)
            std::memset(static_cast<std::uint8_t*>(rows->samples) + static_cast<std::size_t>(y) * rows->samples_stride,
                        100, 40);
        return host->trouble == Trouble::WithoutAReason ? 1 : 0;
    }
    static void release(void* user, std::int32_t picture)
    {
        static_cast<TroubledHost*>(user)->released.push_back(picture);
    }
};

TEST_F(InterfaceRefusals, NameThePictureWhereTheHostGivesNoReason)
{
    add_pictures();
    TroubledHost host{Trouble::WithoutAReason, {}};
    const PanovalMosaicHost record = host.record();
    ASSERT_EQ(panoval_mosaic_set_host(mosaic.get(), &record), PANOVAL_MOSAIC_OK);
    EXPECT_EQ(panoval_mosaic_measure(mosaic.get(), PANOVAL_MOSAIC_MEASURE_GAINS), PANOVAL_MOSAIC_PICTURE);
    EXPECT_EQ(mosaic.error(), "picture 0: its rows could not be read; the host gives no reason");
}

TEST_F(InterfaceRefusals, SayThatASinkGivesNoReason)
{
    add_pictures();
    TroubledHost host;
    const PanovalMosaicHost record = host.record();
    ASSERT_EQ(panoval_mosaic_set_host(mosaic.get(), &record), PANOVAL_MOSAIC_OK);
    const PanovalMosaicSink sink = {nullptr, take_nothing, 0, 0, {}};
    EXPECT_EQ(panoval_mosaic_run(mosaic.get(), &sink), PANOVAL_MOSAIC_SINK);
    EXPECT_EQ(mosaic.error(), "the host could not take pixels and gives no reason");
}

// Callbacks of hosts in C++ are not to throw; what they throw all the same ends in a code.
TEST_F(InterfaceRefusals, LetNothingThatIsThrownThrough)
{
    add_pictures();
    TroubledHost host{Trouble::ThrownError, {}};
    const PanovalMosaicHost record = host.record();
    ASSERT_EQ(panoval_mosaic_set_host(mosaic.get(), &record), PANOVAL_MOSAIC_OK);
    EXPECT_EQ(panoval_mosaic_measure(mosaic.get(), PANOVAL_MOSAIC_MEASURE_GAINS), PANOVAL_MOSAIC_INTERNAL);
    EXPECT_EQ(mosaic.error(), "the host's own error");
    host.trouble = Trouble::ThrownNumber;
    EXPECT_EQ(panoval_mosaic_measure(mosaic.get(), PANOVAL_MOSAIC_MEASURE_GAINS), PANOVAL_MOSAIC_INTERNAL);
    EXPECT_EQ(mosaic.error(), "something unknown was thrown");
}

TEST_F(InterfaceRefusals, OfNothingReleaseEachPictureAfterItsLastRow)
{
    add_pictures();
    TroubledHost host;
    const PanovalMosaicHost record = host.record();
    ASSERT_EQ(panoval_mosaic_set_host(mosaic.get(), &record), PANOVAL_MOSAIC_OK);
    ASSERT_EQ(panoval_mosaic_measure(mosaic.get(), PANOVAL_MOSAIC_MEASURE_ALL), PANOVAL_MOSAIC_OK) << mosaic.error();
    std::sort(host.released.begin(), host.released.end());
    EXPECT_EQ(host.released, (std::vector<int>{0, 1}));
}

} // namespace

} // namespace panoval::mosaic::test
