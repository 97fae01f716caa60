// SPDX-License-Identifier: MIT
// Detection with refinement on a picture of 3 MP with 60 targets of radius 20 to 60, beside find_ellipse on the same
// picture in the column of the twin: the ratio is the other way round there, so 0.4 means 2.5 times its time. And the
// kernel that sums up what lies beside outlines.
#include "bench/support/routine.h"
#include "measure/patch_kernel.h"
#include "panoval.h"
#include "panoval_measure.h"
#include "tests/reference/patch_kernel.h"
#include "tests/support/noise.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <vector>

namespace
{

using panoval::bench::Case;
using panoval::measure::RowSums;

constexpr std::int32_t kWidth = 2048;
constexpr std::int32_t kHeight = 1536;

struct Board {
    Board() : pixels(static_cast<std::size_t>(kWidth) * kHeight, 200)
    {
        panoval::test::Random random(11);
        for (int row = 0; row < 6; ++row)
            for (int column = 0; column < 10; ++column)
                draw(120 + column * 200 + random.real(-10, 10), 130 + row * 250 + random.real(-10, 10),
                     random.real(20, 60), random.real(0.6, 1));
        for (std::uint8_t& pixel : pixels)
            pixel = static_cast<std::uint8_t>(std::clamp(pixel + random.real(-5, 5), 0.0, 255.0));
    }
    void draw(double x, double y, double radius, double aspect)
    {
        const auto first = [radius](double middle) { return static_cast<std::int32_t>(middle - radius - 5); };
        for (std::int32_t v = first(y); v < y + radius + 5; ++v)
            for (std::int32_t u = first(x); u < x + radius + 5; ++u) {
                const double distance = std::hypot(u - x, (v - y) / aspect) - radius;
                const double level = 50 + 75 * (1 + std::tanh(1.5 * distance));
                pixels[static_cast<std::size_t>(v) * kWidth + static_cast<std::size_t>(u)] =
                    static_cast<std::uint8_t>(level);
            }
    }
    void detect()
    {
        const PanovalMeasureImage image = {pixels.data(), kWidth, kHeight, kWidth, PANOVAL_MEASURE_U8, 0};
        PanovalMeasureDetection detection = {};
        panoval_measure_detect(&image, nullptr, &detection);
        found = detection.count;
        panoval_measure_free(&detection);
    }
    void find()
    {
        EllipseRegion* regions = nullptr;
        const std::int32_t count = find_ellipse(pixels.data(), kWidth, kHeight, &regions, 30, 2, 15);
        for (std::int32_t i = 0; i < count; ++i)
            std::free(regions[i].points);
        std::free(regions);
        found_before = count;
    }

    std::vector<std::uint8_t> pixels;
    std::int32_t found = 0;
    std::int32_t found_before = 0;
};

Case make_detect()
{
    const auto board = std::make_shared<Board>();
    return {.size = "2048x1536",
            .content = "60 targets",
            .pixels = static_cast<double>(kWidth) * kHeight,
            .memcpy_bytes = static_cast<std::size_t>(kWidth) * kHeight,
            .fast = [board] { board->detect(); },
            .twin = [board] { board->find(); },
            .same = [board] { return board->found == 60 && board->found_before == 60; }};
}

Case make_sum_row()
{
    constexpr std::size_t kCount = 1000;
    const auto samples = std::make_shared<std::vector<float>>(panoval::test::noise(kCount, -2.f, 2.f, 1));
    const auto sums = std::make_shared<std::pair<RowSums, RowSums>>();
    return {
        .size = "1000",
        .content = "a row",
        .pixels = kCount,
        .memcpy_bytes = sizeof(float) * kCount,
        .fast = [=] { sums->first = panoval::measure::sum_row(samples->data(), kCount, -3, 0.1, 0.2, 1e-4, 1.9); },
        .twin = [=] { sums->second = panoval::reference::sum_row(samples->data(), kCount, -3, 0.1, 0.2, 1e-4, 1.9); },
        .same = [=] { return sums->first.vv == sums->second.vv && sums->first.vx == sums->second.vx; }};
}

Case make_middle_of()
{
    constexpr std::size_t kCount = 500;
    const auto samples = std::make_shared<std::vector<float>>(panoval::test::noise(kCount, -2.f, 2.f, 1));
    const auto middles = std::make_shared<std::pair<float, float>>();
    return {.size = "500",
            .content = "noise",
            .pixels = kCount,
            .memcpy_bytes = sizeof(float) * kCount,
            .fast = [=] { middles->first = panoval::measure::middle_of(samples->data(), kCount); },
            .twin = [=] { middles->second = panoval::reference::middle_of(*samples); },
            .same = [=] { return middles->first == middles->second; }};
}

const panoval::bench::Registration registration([] {
    panoval::bench::add_case("measure_detect", make_detect);
    panoval::bench::add_case("patch_sum_row", make_sum_row);
    panoval::bench::add_case("patch_middle_of", make_middle_of);
});

} // namespace
