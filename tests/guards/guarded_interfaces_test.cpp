// SPDX-License-Identifier: MIT
// The interfaces of the engine and of the measurement with each buffer that a host hands them up against a page that
// nobody may touch. Pictures to be measured lie at odd addresses, too.
#include "panoval_measure.h"
#include "panoval_mosaic.h"
#include "tests/guards/at_every_fence.h"
#include "tests/support/noise.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace
{

using panoval::test::append;
using panoval::test::Bytes;
using panoval::test::expect_the_same_at_every_fence;
using panoval::test::Fenced;
using panoval::test::Place;
using panoval::test::Random;

// ---- measurement

constexpr std::int32_t kWidth = 61;
constexpr std::int32_t kHeight = 45;

// A dark oval with a soft edge, with noise.
float level_at(std::int32_t x, std::int32_t y, Random& random)
{
    const double u = (x - 29.3) / 12;
    const double v = (y - 21.6) / 9;
    const double share = std::clamp(0.5 + 4 * (1 - std::sqrt(u * u + v * v)), 0.0, 1.0);
    return static_cast<float>(200 - 150 * share + random.real(-2, 2));
}

// Rows that end with the picture's last sample, one byte more than they need apart.
Bytes picture_of(std::int32_t sample_type)
{
    Random random(4);
    Bytes bytes;
    for (std::int32_t y = 0; y < kHeight; ++y) {
        if (y > 0)
            bytes.push_back(0);
        for (std::int32_t x = 0; x < kWidth; ++x) {
            const float level = level_at(x, y, random);
            const auto sample = static_cast<std::uint16_t>(level * 100);
            const auto byte = static_cast<std::uint8_t>(level);
            if (sample_type == PANOVAL_MEASURE_U8)
                append(bytes, &byte, 1);
            else if (sample_type == PANOVAL_MEASURE_U16)
                append(bytes, &sample, 1);
            else
                append(bytes, &level, 1);
        }
    }
    return bytes;
}

PanovalMeasureImage image_of(const void* samples, std::int32_t sample_type)
{
    const std::int64_t sample_bytes = sample_type == PANOVAL_MEASURE_F32 ? 4 : sample_type;
    return {samples, kWidth, kHeight, kWidth * sample_bytes + 1, sample_type, 0};
}

class GuardedPictures : public testing::TestWithParam<std::int32_t>
{
};

TEST_P(GuardedPictures, AreMeasuredWithinTheirBytes)
{
    const Bytes samples = picture_of(GetParam());
    expect_the_same_at_every_fence([&](Place place) {
        Fenced<std::uint8_t> picture(place, samples);
        const PanovalMeasureImage image = image_of(picture.data(), GetParam());
        Fenced<PanovalMeasureEllipse> starts(place,
                                             std::vector<PanovalMeasureEllipse>{{29, 21, 11, 9, 0.1}, {2, 2, 8, 6, 0}});
        Fenced<PanovalMeasureTarget> targets(place, 2);
        const std::int32_t code = panoval_measure_refine(&image, starts.data(), 2, targets.data());
        EXPECT_EQ(targets.data()->code, PANOVAL_MEASURE_OK);
        Bytes out;
        append(out, &code, 1);
        append(out, targets);
        return out;
    });
}

TEST_P(GuardedPictures, AreSearchedWithinTheirBytes)
{
    const Bytes samples = picture_of(GetParam());
    expect_the_same_at_every_fence([&](Place place) {
        Fenced<std::uint8_t> picture(place, samples);
        const PanovalMeasureImage image = image_of(picture.data(), GetParam());
        Fenced<PanovalMeasureDetectOptions> options(place, 1);
        Fenced<PanovalMeasureDetection> found(place, 1);
        EXPECT_EQ(panoval_measure_detect(&image, options.data(), found.data()), PANOVAL_MEASURE_OK);
        EXPECT_EQ(found.data()->count, 1);
        Bytes out;
        append(out, found.data()->targets, static_cast<std::size_t>(found.data()->count));
        panoval_measure_free(found.data());
        return out;
    });
}

INSTANTIATE_TEST_SUITE_P(OfEachKind, GuardedPictures,
                         testing::Values(PANOVAL_MEASURE_U8, PANOVAL_MEASURE_U16, PANOVAL_MEASURE_F32));

TEST(GuardedInterfaces, CentresOfCircles)
{
    std::vector<double> covariance(25, 0);
    for (std::size_t i = 0; i < 5; ++i)
        covariance[6 * i] = 1e-4;
    expect_the_same_at_every_fence([&](Place place) {
        Fenced<PanovalMeasureEllipse> outer(place, 1, {100, 90, 40, 30, 0.3});
        Fenced<PanovalMeasureEllipse> inner(place, 1, {100.4, 90.1, 20, 15.1, 0.3});
        Fenced<double> of_outer(place, covariance);
        Fenced<double> of_inner(place, covariance);
        Fenced<double> homography(place, {1, 0.1, 3, 0.2, 0.9, 3, 1e-4, 1e-4, 1});
        Fenced<PanovalMeasurePoint> centres(place, 1);
        Fenced<PanovalMeasureCirclePose> poses(place, 2);
        Bytes out;
        EXPECT_EQ(
            panoval_measure_centre_by_homography(outer.data(), of_outer.data(), homography.data(), centres.data()),
            PANOVAL_MEASURE_OK);
        append(out, centres);
        EXPECT_EQ(panoval_measure_centre_by_rings(outer.data(), of_outer.data(), inner.data(), of_inner.data(),
                                                  centres.data()),
                  PANOVAL_MEASURE_OK);
        append(out, centres);
        EXPECT_EQ(panoval_measure_centre_by_focal_length(outer.data(), of_outer.data(), 900, 80, 60, poses.data()),
                  PANOVAL_MEASURE_OK);
        append(out, poses);
        return out;
    });
}

TEST(GuardedInterfaces, Boards)
{
    std::vector<PanovalMeasureTarget> board;
    for (int i = 0; i < 12; ++i) {
        PanovalMeasureTarget target = {};
        target.ellipse = {40.0 + 30 * (i % 4), 50.0 + 28 * (i / 4), 9, 8, 0.1};
        board.push_back(target);
    }
    expect_the_same_at_every_fence([&](Place place) {
        Fenced<PanovalMeasureTarget> targets(place, board);
        Fenced<PanovalMeasureGrid> grid(place, 1);
        Fenced<PanovalMeasureGridCell> cells(place, 12);
        EXPECT_EQ(panoval_measure_grid(targets.data(), 12, 3, 4, grid.data(), cells.data()), PANOVAL_MEASURE_OK);
        Bytes out;
        append(out, grid);
        append(out, cells);
        return out;
    });
}

// ---- panoramas

constexpr std::int32_t kSide = 70;

struct Depth {
    std::int32_t channels;
    std::int32_t bits;
};
constexpr Depth kDepths[] = {{1, 8}, {3, 8}, {1, 16}, {3, 16}};

// Samples that follow from their place in the canvas, one picture brighter than the other.
std::int32_t read_rows(void* user, const PanovalMosaicRows* rows)
{
    const Depth& depth = *static_cast<const Depth*>(user);
    const int right = rows->picture * 40;
    for (std::int32_t i = 0; i < rows->row_count; ++i) {
        auto* const row =
            static_cast<std::uint8_t*>(rows->samples) + static_cast<std::size_t>(i) * rows->samples_stride;
        for (int x = 0; x < kSide; ++x)
            for (int c = 0; c < depth.channels; ++c) {
                const int place = (right + x) / 7 * 31 + (rows->first_row + i) / 5 * 17 + 3 * c;
                const auto sample = static_cast<std::uint16_t>(60 + place % 90 + 9 * rows->picture);
                const auto at = static_cast<std::size_t>((x * depth.channels + c) * depth.bits / 8);
                row[at] = static_cast<std::uint8_t>(sample);
                if (depth.bits == 16)
                    row[at + 1] = static_cast<std::uint8_t>(sample / 2);
            }
    }
    return 0;
}

// Two pictures of a canvas of 110 x 70 pixels.
class Mosaic
{
public:
    explicit Mosaic(const Depth& depth) : depth_(depth)
    {
        const PanovalMosaicHost host = {&depth_, read_rows, nullptr, nullptr};
        EXPECT_EQ(panoval_mosaic_create(&mosaic_), PANOVAL_MOSAIC_OK);
        EXPECT_EQ(panoval_mosaic_set_host(mosaic_, &host), PANOVAL_MOSAIC_OK);
    }
    Mosaic(const Mosaic&) = delete;
    Mosaic& operator=(const Mosaic&) = delete;
    ~Mosaic() { panoval_mosaic_destroy(mosaic_); }

    PanovalMosaic* get() const { return mosaic_; }
    void add_pictures() const
    {
        PanovalMosaicPicture picture = {};
        picture.width = picture.height = kSide;
        picture.channels = depth_.channels;
        picture.bits = depth_.bits;
        EXPECT_EQ(panoval_mosaic_add_picture(mosaic_, &picture), PANOVAL_MOSAIC_OK);
        picture.x = 40;
        EXPECT_EQ(panoval_mosaic_add_picture(mosaic_, &picture), PANOVAL_MOSAIC_OK);
    }

private:
    Depth depth_;
    PanovalMosaic* mosaic_ = nullptr;
};

TEST(GuardedInterfaces, PanoramasFromAStoredPlan)
{
    for (const Depth& depth : kDepths) {
        const Mosaic first(depth);
        first.add_pictures();
        ASSERT_EQ(panoval_mosaic_measure(first.get(), PANOVAL_MOSAIC_MEASURE_SEAMS), PANOVAL_MOSAIC_OK);
        const char* text = nullptr;
        std::size_t size = 0;
        ASSERT_EQ(panoval_mosaic_save_plan(first.get(), &text, &size), PANOVAL_MOSAIC_OK);
        expect_the_same_at_every_fence([&](Place place) {
            Fenced<char> plan(place, std::vector<char>(text, text + size)); // without a zero at its end
            const Mosaic mosaic(depth);
            EXPECT_EQ(panoval_mosaic_load_plan(mosaic.get(), plan.data(), plan.size()), PANOVAL_MOSAIC_OK);
            constexpr PanovalMosaicRect kPart = {17, 3, 61, 40};
            const auto row_bytes = static_cast<std::size_t>(kPart.width * depth.channels * depth.bits / 8);
            Fenced<std::uint8_t> samples(place, row_bytes * 40);
            Fenced<std::uint8_t> coverage(place, 61 * 40);
            EXPECT_EQ(panoval_mosaic_blend(mosaic.get(), &kPart, samples.data(), row_bytes, coverage.data(), 61),
                      PANOVAL_MOSAIC_OK);
            Bytes out;
            append(out, samples);
            append(out, coverage);
            return out;
        });
    }
}

TEST(GuardedInterfaces, GainsAndSeamsOfTheHost)
{
    expect_the_same_at_every_fence([&](Place place) {
        const Mosaic mosaic({3, 8});
        mosaic.add_pictures();
        Fenced<double> gains(place, {1, 1.5, 1, 1, 0.5, 1, 1, 1});
        Fenced<double> falloff(place, {-0.1, 0.02, 0.0});
        EXPECT_EQ(panoval_mosaic_set_gains(mosaic.get(), gains.data(), 2, falloff.data()), PANOVAL_MOSAIC_OK);
        Fenced<std::int32_t> labels(place, 110 * 70);
        for (std::size_t i = 0; i < labels.size(); ++i)
            labels.data()[i] = i % 110 < 55 ? 0 : 1;
        EXPECT_EQ(panoval_mosaic_set_seam_rows(mosaic.get(), 0, 70, labels.data(), 110 * sizeof(std::int32_t)),
                  PANOVAL_MOSAIC_OK);
        Fenced<double> told(place, 4);
        Fenced<double> told_falloff(place, 3);
        Fenced<std::int32_t> row(place, 110);
        EXPECT_EQ(panoval_mosaic_gains(mosaic.get(), 1, told.data(), told_falloff.data(), nullptr, nullptr),
                  PANOVAL_MOSAIC_OK);
        EXPECT_EQ(panoval_mosaic_seam_row(mosaic.get(), 69, row.data()), PANOVAL_MOSAIC_OK);
        Bytes out;
        append(out, told);
        append(out, told_falloff);
        append(out, row);
        return out;
    });
}

TEST(GuardedInterfaces, MessagesAreCutOff)
{
    expect_the_same_at_every_fence([&](Place place) {
        const Mosaic mosaic({3, 8});
        EXPECT_EQ(panoval_mosaic_measure(mosaic.get(), 0), PANOVAL_MOSAIC_ARGUMENT);
        Bytes out;
        for (std::size_t size = 1; size < 40; ++size) {
            Fenced<char> text(place, size, 'x');
            EXPECT_GT(panoval_mosaic_error(mosaic.get(), text.data(), text.size()), 0u);
            EXPECT_EQ(text.data()[std::char_traits<char>::length(text.data())], '\0');
            append(out, text);
        }
        return out;
    });
}

} // namespace
