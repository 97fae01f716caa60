// SPDX-License-Identifier: MIT
#include "cli/filters/picture_filters.h"

#include "cli/base/errors.h"
#include "cli/base/exhausted_heap.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace panoval::cli
{

namespace
{

// 0 to 255, so that the largest value becomes 255; rounded to nearest.
template <class T>
FilteredPicture stretched(const T* values, const Image& grey, const std::string& file)
{
    FilteredPicture result;
    result.image = make_image(grey.width, grey.height, 1, 8, file);
    const T largest = *std::max_element(values, values + grey.pixels());
    result.value = static_cast<double>(largest);
    const double scale = largest > 0 ? 255.0 / static_cast<double>(largest) : 0.0;
    for (std::size_t i = 0; i < grey.pixels(); ++i)
        result.image.data[i] = static_cast<std::uint8_t>(std::lround(static_cast<double>(values[i]) * scale));
    return result;
}

// What canny takes: a magnitude for every pixel, and doubles for each row under the kernel. Without it, it ends the
// process with an exit code that means something else here.
std::size_t canny_bytes(const Image& grey, double sigma)
{
    constexpr double kRowsPerSigma = 5; // 2.5 sigmas on either side
    constexpr std::size_t kOtherRows = 16;
    constexpr std::size_t kOtherBytes = 1'000'000;
    const double kernel_rows = std::min(kRowsPerSigma * sigma + 3, static_cast<double>(grey.height));
    const std::size_t row_bytes = static_cast<std::size_t>(grey.width) * sizeof(double);
    return grey.pixels() * sizeof(std::int16_t) + (static_cast<std::size_t>(kernel_rows) + kOtherRows) * row_bytes +
           kOtherBytes;
}

// A container of the library that is freed with the object.
struct FloatMap {
    FloatMap() = default;
    FloatMap(const FloatMap&) = delete;
    FloatMap& operator=(const FloatMap&) = delete;
    ~FloatMap() { std::free(map.data); }
    Matf map = {};
};

} // namespace

Image smooth_picture(const Image& grey, const std::string& file)
{
    Image result = make_image(grey.width, grey.height, 1, 8, file);
    smooth_image(grey.data.get(), grey.width, grey.height, result.data.get());
    return result;
}

FilteredPicture gradient_picture(const Image& grey, const std::string& file)
{
    const std::size_t pixels = grey.pixels();
    need_memory(pixels * 3 * sizeof(std::int16_t), file);
    std::vector<std::int16_t> dx(pixels);
    std::vector<std::int16_t> dy(pixels);
    std::vector<std::uint16_t> magnitude(pixels);
    gradient_image(grey.data.get(), grey.width, grey.height, dx.data(), dy.data(), magnitude.data());
    return stretched(magnitude.data(), grey, file);
}

FilteredPicture distance_picture(const Image& grey, float straight_cost, float diagonal_cost, const std::string& file)
{
    FloatMap scratch;
    FloatMap distances;
    MatfReset(&distances.map, grey.width, grey.height, 1);
    if (distances.map.data == nullptr)
        fail_memory(file, grey.pixels() * sizeof(float));
    const Matb mask = {grey.width, grey.height, 1, grey.data.get()};
    const float costs[2] = {straight_cost, diagonal_cost};
    distanceTransform_3x3(&mask, &scratch.map, &distances.map, costs);
    if (scratch.map.data == nullptr)
        fail_memory(file, grey.pixels() * sizeof(float));
    return stretched(distances.map.data, grey, file);
}

FilteredPicture threshold_picture(const Image& grey, std::int32_t level, const std::string& file)
{
    if (level < 0) {
        std::vector<double> bins(256);
        double* holder = bins.data();
        histogram_count(grey.data.get(), grey.width, grey.height, &holder);
        level = find_threshold(bins.data());
    }
    FilteredPicture result;
    result.value = level;
    result.image = make_image(grey.width, grey.height, 1, 8, file);
    for (std::size_t i = 0; i < grey.pixels(); ++i)
        result.image.data[i] = grey.data[i] > level ? 255 : 0;
    return result;
}

FilteredPicture edge_picture(const Image& grey, const EdgeSettings& settings, const std::string& file)
{
    FilteredPicture result;
    result.image = make_image(grey.width, grey.height, 1, 8, file);
    need_memory(canny_bytes(grey, settings.sigma), file);
    const EndMeansNoMemory end_means_no_memory;
    const HeapWatch watch;
    canny(grey.data.get(), grey.height, grey.width, result.image.data.get(), settings.sigma, settings.low,
          settings.high, nullptr, nullptr);
    if (watch.has_failed())
        fail_memory(file, canny_bytes(grey, settings.sigma));
    const auto* const data = result.image.data.get();
    result.value = static_cast<double>(std::count(data, data + grey.pixels(), 0));
    return result;
}

} // namespace panoval::cli
