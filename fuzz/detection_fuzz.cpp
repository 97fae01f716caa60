// SPDX-License-Identifier: MIT
// Histograms, thresholds, fits and the two finders against their literal twins.
#include "fuzz/input.h"
#include "panoval.h"
#include "tests/reference/find_ellipse.h"
#include "tests/reference/histogram.h"
#include "tests/reference/mat_to_image.h"
#include "tests/reference/oval_fit.h"
#include "tests/reference/small_ellipse.h"

#include <cmath>

namespace
{

using namespace panoval;
using namespace panoval::fuzz;

// Ovals on a ground, then whatever the fuzzer changes.
std::vector<std::uint8_t> targets(Input& input, int width, int height)
{
    auto pixels = input.samples(area(width, height));
    const int ground = input.number(0, 255);
    if (input.number(0, 3) == 0)
        return pixels;
    for (auto& pixel : pixels)
        pixel = static_cast<std::uint8_t>((15 * ground + pixel) / 16);
    for (int n = input.number(0, 4); n > 0; --n) {
        const double cx = input.real(0, width);
        const double cy = input.real(0, height);
        const double a = input.real(0.5, 25);
        const double b = input.real(0.5, 25);
        const int level = input.number(0, 255);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const double u = (x - cx) / a;
                const double v = (y - cy) / b;
                if (u * u + v * v < 1)
                    pixels[area(width, y) + static_cast<std::size_t>(x)] = static_cast<std::uint8_t>(level);
            }
    }
    return pixels;
}

void ellipses(Input& input)
{
    const int width = input.number(5, 90);
    const int height = input.number(5, 70);
    const auto pixels = targets(input, width, height);
    const int min_pixels = input.number(0, 40);
    const int max_rms = input.number(0, 4);
    const int divisions = input.number(1, 4);
    const auto twin = reference::find_ellipse(pixels, width, height, min_pixels, max_rms, divisions);
    EllipseRegion* records = nullptr;
    const std::int32_t count = find_ellipse(pixels.data(), width, height, &records, min_pixels, max_rms, divisions);
    require(count == static_cast<std::int32_t>(twin.records.size()));
    for (std::int32_t i = 0; i < count; ++i) {
        const EllipseRegion& a = records[i];
        const EllipseRegion& b = twin.records[static_cast<std::size_t>(i)];
        const double actual[] = {a.cx, a.cy, a.major, a.minor, a.angle, a.rms};
        const double expected[] = {b.cx, b.cy, b.major, b.minor, b.angle, b.rms};
        require(same_bits(actual, expected, 6) && a.pixel_count == b.pixel_count && a.point_count == b.point_count);
        std::free(a.points);
    }
    std::free(records);
}

void small_ellipses(Input& input)
{
    const int width = input.number(5, 90);
    const int height = input.number(5, 70);
    auto pixels = targets(input, width, height);
    auto twin_pixels = pixels;
    const double semi = input.real(2, 20);
    const double reach = 2 * semi + 2;
    if (width <= 2 * reach || height <= 2 * reach) // the ring lies inside the picture
        return;
    const double ellipse[5] = {input.real(reach, width - reach), input.real(reach, height - reach), semi,
                               semi * input.real(0.3, 1), input.real(-1.6, 1.6)};
    EllipseRegion* records = nullptr;
    EllipseRegion* expected = nullptr;
    const std::uint32_t count = find_small_ellipse(pixels.data(), width, height, ellipse, &records);
    require(count == reference::find_small_ellipse(twin_pixels.data(), width, height, ellipse, &expected));
    require(pixels == twin_pixels);
    for (std::uint32_t i = 0; i < count; ++i)
        require(same_bits(&records[i].cx, &expected[i].cx, 1) && same_bits(&records[i].cy, &expected[i].cy, 1) &&
                same_bits(&records[i].major, &expected[i].major, 1));
    std::free(records);
    std::free(expected);
}

void oval(Input& input)
{
    const int count = input.number(6, 60);
    std::vector<double> points;
    const double a = input.real(0.1, 100);
    const double b = input.real(0.1, 100);
    const double noise = input.real(0, 3);
    for (int i = 0; i < count; ++i) {
        const double u = input.real(-1, 1);
        const double v = std::sqrt(1 - u * u) * (i % 2 != 0 ? 1 : -1);
        points.push_back(200 + a * u + noise * input.real(-1, 1));
        points.push_back(300 + b * v + noise * input.real(-1, 1));
    }
    OvalFit actual = {};
    OvalFit expected = {};
    require(oval_fit(count, points.data(), &actual) == reference::oval_fit(count, points.data(), &expected));
    const double actual_values[] = {actual.x0,         actual.y0,    actual.semi_major,
                                    actual.semi_minor, actual.theta, actual.rms};
    const double expected_values[] = {expected.x0,         expected.y0,    expected.semi_major,
                                      expected.semi_minor, expected.theta, expected.rms};
    for (int i = 0; i < 6; ++i)
        require(same_bits(actual_values + i, expected_values + i, 1) ||
                (std::isnan(actual_values[i]) && std::isnan(expected_values[i])));
}

void histogram(Input& input)
{
    const int width = input.number(1, 90);
    const int height = input.number(1, 70);
    const auto pixels = input.samples(area(width, height));
    std::vector<double> bins(256);
    std::vector<double> expected(256);
    double* holder = bins.data();
    double* expected_holder = expected.data();
    histogram_count(pixels.data(), width, height, &holder);
    reference::histogram_count(pixels.data(), width, height, &expected_holder);
    require(same_bits(bins, expected));
    require(find_threshold(bins.data()) == reference::find_threshold(bins.data()));
}

void packed_picture(Input& input)
{
    const int channels = input.number(1, 4);
    const int elem_size = input.number(1, 2);
    const int width = input.number(1, 50);
    const int height = input.number(1, 30);
    auto bytes = input.samples(area(width, height) * static_cast<std::size_t>(channels * elem_size));
    const auto size = static_cast<std::int32_t>(bytes.size());
    const Mat mat = {width, height, channels, elem_size, size, size, bytes.data()};
    std::vector<std::uint8_t> actual(3 * area(width, height), 7);
    std::vector<std::uint8_t> expected = actual;
    require(MatToImage(&mat, actual.data()) == reference::mat_to_image(mat, expected.data()));
    require(actual == expected);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    [[maybe_unused]] static const bool is_silent = std::freopen("/dev/null", "w", stdout) != nullptr; // fits print
    Input input(data, size);
    void (*const all[])(Input&) = {ellipses, small_ellipses, oval, histogram, packed_picture};
    all[input.number(0, 4)](input);
    return 0;
}
