// SPDX-License-Identifier: MIT
// Filters, edges, distances and inpainting against their literal twins.
#include "fuzz/input.h"
#include "panoval.h"
#include "tests/reference/canny.h"
#include "tests/reference/distance_transform.h"
#include "tests/reference/gaussian_kernel.h"
#include "tests/reference/gradient.h"
#include "tests/reference/inpaint.h"
#include "tests/reference/smooth.h"

namespace
{

using namespace panoval;
using namespace panoval::fuzz;

void smooth(Input& input)
{
    const int width = input.number(1, 90);
    const int height = input.number(1, 40);
    const auto pixels = input.samples(area(width, height));
    std::vector<std::uint8_t> actual(pixels.size(), 7);
    std::vector<std::uint8_t> expected(pixels.size(), 7);
    smooth_image(pixels.data(), width, height, actual.data());
    reference::smooth_image(pixels.data(), width, height, expected.data());
    require(actual == expected);
}

void gradient(Input& input)
{
    const int width = input.number(2, 90);
    const int height = input.number(2, 40);
    const auto pixels = input.samples(area(width, height));
    std::vector<std::int16_t> dx[2], dy[2];
    std::vector<std::uint16_t> magnitude[2];
    for (int i = 0; i < 2; ++i) {
        dx[i].assign(pixels.size(), 7);
        dy[i].assign(pixels.size(), 7);
        magnitude[i].assign(pixels.size(), 7);
    }
    gradient_image(pixels.data(), width, height, dx[0].data(), dy[0].data(), magnitude[0].data());
    reference::gradient_image(pixels.data(), width, height, dx[1].data(), dy[1].data(), magnitude[1].data());
    require(dx[0] == dx[1] && dy[0] == dy[1] && magnitude[0] == magnitude[1]);
}

void distances(Input& input)
{
    const int width = input.number(1, 90);
    const int height = input.number(1, 40);
    auto pixels = input.mask(area(width, height));
    const float costs[2] = {static_cast<float>(input.real(0, 8)), static_cast<float>(input.real(0, 8))};
    const Matb mask = {width, height, 1, pixels.data()};
    std::vector<float> results[2];
    for (int i = 0; i < 2; ++i) {
        results[i].assign(pixels.size(), 7);
        Matf out = {width, height, 1, results[i].data()};
        Matf scratch = {};
        (i == 0 ? distanceTransform_3x3 : reference::distanceTransform_3x3)(&mask, &scratch, &out, costs);
        std::free(scratch.data);
    }
    require(same_bits(results[0], results[1]));
}

void kernel(Input& input)
{
    const int size = input.number(1, 41);
    const double sigma = input.real(0.05, 12);
    std::vector<double> actual(area(size, size), 7);
    std::vector<double> expected = actual;
    GetGaussianKernel(actual.data(), size, sigma);
    reference::gaussian_kernel(expected.data(), size, sigma);
    require(same_bits(actual, expected));
}

void edges(Input& input)
{
    const int cols = input.number(3, 80);
    const int rows = input.number(3, 40);
    const auto pixels = input.samples(area(cols, rows));
    const double sigma = input.real(0.3, 6);
    const double low = input.real(0, 1);
    const double high = input.real(0, 1);
    const auto expected = reference::canny(pixels.data(), rows, cols, sigma, low, high);
    std::vector<std::uint8_t> actual(pixels.size(), 7);
    std::int16_t* x = nullptr;
    std::int16_t* y = nullptr;
    const bool wants_differences = input.flag();
    canny(pixels.data(), rows, cols, actual.data(), sigma, low, high, wants_differences ? &x : nullptr,
          wants_differences ? &y : nullptr);
    require(actual == expected.edge);
    if (wants_differences)
        require(same_bits(x, expected.delta_x.data(), pixels.size()) &&
                same_bits(y, expected.delta_y.data(), pixels.size()));
    std::free(x);
    std::free(y);
}

void fill(Input& input)
{
    const int width = input.number(1, 50);
    const int height = input.number(1, 40);
    const int mask_channels = input.flag() ? 1 : 3;
    auto image = input.samples(3 * area(width, height));
    auto mask = input.samples(area(width, height) * static_cast<std::size_t>(mask_channels));
    for (auto& value : mask)
        value = value > 210 ? value : 0;
    auto expected = image;
    auto expected_mask = mask;
    const int range = input.number(1, 9);
    const auto size = static_cast<std::int32_t>(image.size());
    const auto mask_size = static_cast<std::int32_t>(mask.size());
    Mat image_record = {width, height, 3, 1, size, size, image.data()};
    Mat mask_record = {width, height, mask_channels, 1, mask_size, mask_size, mask.data()};
    inpaint(&image_record, &mask_record, range);
    reference::inpaint(expected.data(), width, height, 3, expected_mask.data(), mask_channels, range);
    require(image == expected && mask == expected_mask);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    void (*const all[])(Input&) = {smooth, gradient, distances, kernel, edges, fill};
    all[input.number(0, 5)](input);
    return 0;
}
