// SPDX-License-Identifier: MIT
// The measurement of targets on pictures of any samples, not-a-numbers among them: whatever is said to have been
// measured is finite and lies where it can, and the same call gives the same bits again, on another instruction set.
#include "fuzz/input.h"
#include "panoval_measure.h"

#include <cmath>
#include <limits>

namespace
{

using namespace panoval::fuzz;

struct Picture {
    std::vector<std::uint8_t> bytes;
    PanovalMeasureImage image = {};
};

Picture picture_of(Input& input)
{
    Picture picture;
    const int width = input.number(1, 80);
    const int height = input.number(1, 60);
    const int type = input.number(0, 2);
    const std::int32_t types[] = {PANOVAL_MEASURE_U8, PANOVAL_MEASURE_U16, PANOVAL_MEASURE_F32};
    const std::size_t sample_bytes = type == 2 ? 4 : static_cast<std::size_t>(type) + 1;
    auto levels = input.samples(area(width, height));
    const double cx = input.real(-5, 85);
    const double cy = input.real(-5, 65);
    const double a = input.real(1, 30);
    const double b = input.real(1, 30);
    const int level = input.number(0, 255);
    const int grain = input.number(0, 3);
    picture.bytes.resize(area(width, height) * sample_bytes);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const std::size_t at = area(width, y) + static_cast<std::size_t>(x);
            const double r = std::sqrt((x - cx) * (x - cx) / (a * a) + (y - cy) * (y - cy) / (b * b));
            const double share = r < 1 ? 1 : r < 1.2 ? (1.2 - r) / 0.2 : 0;
            const double value = grain == 3 ? levels[at] : 100 + share * (level - 100) + levels[at] * grain / 64.0;
            const auto sample = static_cast<std::uint16_t>(std::fmin(std::fmax(value, 0), 255));
            float real = static_cast<float>(value);
            if (type == 2 && grain == 2 && levels[at] == 77)
                real = std::numeric_limits<float>::quiet_NaN();
            if (type == 0)
                picture.bytes[at] = static_cast<std::uint8_t>(sample);
            else if (type == 1)
                std::memcpy(&picture.bytes[2 * at], &sample, 2);
            else
                std::memcpy(&picture.bytes[4 * at], &real, 4);
        }
    picture.image.data = picture.bytes.data();
    picture.image.width = width;
    picture.image.height = height;
    picture.image.stride = static_cast<std::int64_t>(static_cast<std::size_t>(width) * sample_bytes);
    picture.image.sample_type = types[type];
    return picture;
}

void require_sound(const PanovalMeasureTarget& target)
{
    if (target.code != PANOVAL_MEASURE_OK)
        return;
    const PanovalMeasureEllipse& e = target.ellipse;
    require(std::isfinite(e.x) && std::isfinite(e.y) && std::isfinite(e.angle));
    require(e.semi_major >= e.semi_minor && e.semi_minor > 0);
    for (const double value : target.covariance)
        require(std::isfinite(value));
    for (int i = 0; i < 5; ++i)
        require(target.covariance[6 * i] >= 0);
    require(target.quality >= 0 && target.quality <= 1);
}

void use_slowest_target()
{
    hwy::SetSupportedTargetsForTest(hwy::SupportedAndGeneratedTargets().back());
}

void refine(Input& input)
{
    const Picture picture = picture_of(input);
    PanovalMeasureEllipse start = {input.real(-10, 90), input.real(-10, 70), input.real(0, 40), input.real(0, 40),
                                   input.real(-4, 4)};
    PanovalMeasureTarget target = {};
    PanovalMeasureTarget again = {};
    const std::int32_t code = panoval_measure_refine(&picture.image, &start, 1, &target);
    require_sound(target);
    use_slowest_target();
    require(code == panoval_measure_refine(&picture.image, &start, 1, &again));
    require(std::memcmp(&target, &again, sizeof target) == 0);
}

void detect(Input& input)
{
    const Picture picture = picture_of(input);
    PanovalMeasureDetectOptions options = {};
    options.min_quality = input.flag() ? -1 : 0.5;
    PanovalMeasureDetection found = {};
    PanovalMeasureDetection again = {};
    require(panoval_measure_detect(&picture.image, &options, &found) == PANOVAL_MEASURE_OK);
    for (std::int32_t i = 0; i < found.count; ++i)
        require_sound(found.targets[i]);
    use_slowest_target();
    require(panoval_measure_detect(&picture.image, &options, &again) == PANOVAL_MEASURE_OK);
    require(found.count == again.count);
    require(same_bits(found.targets, again.targets, static_cast<std::size_t>(found.count)));
    panoval_measure_free(&found);
    panoval_measure_free(&again);
}

// Numbers of any size, infinities and not-a-numbers too.
double any_number(Input& input)
{
    return input.flag() ? input.real(-1e3, 1e3) : input.bytes().ConsumeFloatingPoint<double>();
}

void perspective(Input& input)
{
    const auto ellipse = [&] {
        return PanovalMeasureEllipse{any_number(input), any_number(input), any_number(input), any_number(input),
                                     any_number(input)};
    };
    const PanovalMeasureEllipse outer = ellipse();
    const PanovalMeasureEllipse inner = ellipse();
    double homography[9];
    for (double& value : homography)
        value = any_number(input);
    const auto require_finite = [](std::int32_t code, const PanovalMeasurePoint& point) {
        require(code != PANOVAL_MEASURE_OK || (std::isfinite(point.x) && std::isfinite(point.y)));
    };
    PanovalMeasurePoint centre = {};
    require_finite(panoval_measure_centre_by_homography(&outer, nullptr, homography, &centre), centre);
    require_finite(panoval_measure_centre_by_rings(&outer, nullptr, &inner, nullptr, &centre), centre);
    PanovalMeasureCirclePose poses[2] = {};
    const std::int32_t code = panoval_measure_centre_by_focal_length(&outer, nullptr, any_number(input),
                                                                     any_number(input), any_number(input), poses);
    require_finite(code, poses[0].centre);
}

void board(Input& input)
{
    std::vector<PanovalMeasureTarget> targets(input.number<std::size_t>(4, 40));
    const bool is_wild = input.flag();
    const int rows = input.number(2, 7);
    const int columns = input.number(2, 7);
    for (std::size_t i = 0; i < targets.size(); ++i) {
        const double x = 30.0 * static_cast<double>(i % static_cast<std::size_t>(columns));
        const double y = 30.0 * static_cast<double>(i / static_cast<std::size_t>(columns));
        targets[i].ellipse = {x + input.real(-9, 9), y + input.real(-9, 9), 8, 7, 0};
        if (is_wild)
            targets[i].ellipse.x = any_number(input);
    }
    PanovalMeasureGrid grid = {};
    std::vector<PanovalMeasureGridCell> cells(static_cast<std::size_t>(rows * columns));
    const std::int32_t code = panoval_measure_grid(targets.data(), static_cast<std::int32_t>(targets.size()), rows,
                                                   columns, &grid, cells.data());
    if (code != PANOVAL_MEASURE_OK)
        return;
    require(grid.found + grid.missing == rows * columns);
    for (const PanovalMeasureGridCell& cell : cells)
        require(cell.target >= -1 && cell.target < static_cast<std::int32_t>(targets.size()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    void (*const all[])(Input&) = {refine, detect, perspective, board};
    all[input.number(0, 3)](input);
    return 0;
}
