// SPDX-License-Identifier: MIT
#include "mosaic/verdict/displacement_patch.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace panoval::mosaic
{

namespace
{

// Only where all nine pixels are known.
void smooth(Patch& patch)
{
    const std::size_t width = patch.width();
    const std::size_t height = patch.height();
    std::vector<float> across(patch.value.size());
    std::vector<std::uint8_t> known_across(patch.value.size());
    for (std::size_t y = 0; y < height; ++y)
        for (std::size_t i = y * width + 1; i + 1 < (y + 1) * width; ++i) {
            across[i] = 0.25f * (patch.value[i - 1] + patch.value[i + 1]) + 0.5f * patch.value[i];
            known_across[i] = patch.known[i - 1] & patch.known[i] & patch.known[i + 1];
        }
    std::fill(patch.value.begin(), patch.value.end(), 0.0f);
    std::fill(patch.known.begin(), patch.known.end(), std::uint8_t{0});
    for (std::size_t i = width; i + width < across.size(); ++i) {
        patch.known[i] = known_across[i - width] & known_across[i] & known_across[i + width];
        if (patch.known[i] != 0)
            patch.value[i] = 0.25f * (across[i - width] + across[i + width]) + 0.5f * across[i];
    }
}

// Sums over windows of 2 reach + 1 pixels both ways, cut off at the patch's edges, of what lies in `inside`; one row of
// windows after the other.
template <class Value>
class WindowSums
{
public:
    WindowSums(const std::vector<Value>& values, std::size_t width, const Rect& inside, std::int64_t reach)
        : values_(values), width_(width), inside_(inside), reach_(static_cast<std::size_t>(reach)), down_(width),
          before_(width + 1)
    {
        for (std::int64_t row = 0; row < reach; ++row)
            add_row(row, 1);
    }

    // Of row y; rows are asked for in their order.
    void next(std::size_t y, std::vector<double>& sums)
    {
        const auto row = static_cast<std::int64_t>(y);
        const auto reach = static_cast<std::int64_t>(reach_);
        add_row(row + reach, 1);
        add_row(row - reach - 1, -1);
        for (std::size_t x = 0; x < width_; ++x)
            before_[x + 1] = before_[x] + down_[x];
        for (std::size_t x = 0; x < width_; ++x)
            sums[x] = before_[std::min(x + reach_ + 1, width_)] - before_[x - std::min(x, reach_)];
    }

private:
    void add_row(std::int64_t row, double sign)
    {
        if (row < inside_.y || row >= inside_.bottom())
            return;
        const Value* const line = values_.data() + static_cast<std::size_t>(row) * width_;
        for (std::int64_t x = inside_.x; x < inside_.right(); ++x)
            down_[static_cast<std::size_t>(x)] += sign * static_cast<double>(line[x]);
    }

    const std::vector<Value>& values_;
    std::size_t width_;
    Rect inside_;
    std::size_t reach_;
    std::vector<double> down_;   // of each column
    std::vector<double> before_; // sums of the columns before each one
};

void subtract_slow_changes(Patch& patch, std::int64_t reach, const Rect& area)
{
    const std::size_t width = patch.width();
    const std::vector<float> values = patch.value;
    const std::vector<std::uint8_t> known = patch.known;
    const Rect inside = intersect(area, patch.rect).moved(-patch.rect.x, -patch.rect.y);
    WindowSums<float> of_values(values, width, inside, reach);
    WindowSums<std::uint8_t> of_known(known, width, inside, reach);
    std::vector<double> sums(width);
    std::vector<double> counts(width);
    for (std::size_t y = 0; y < patch.height(); ++y) {
        of_values.next(y, sums);
        of_known.next(y, counts);
        for (std::size_t x = 0, i = y * width; x < width; ++x, ++i) {
            const bool is_known = known[i] != 0 && counts[x] > 0.5;
            patch.known[i] = is_known ? 1 : 0;
            patch.value[i] = is_known ? static_cast<float>(static_cast<double>(values[i]) - sums[x] / counts[x]) : 0.0f;
        }
    }
}

// Second differences both ways of one pixel and its neighbours, squared: 36 times the variance of white noise, and
// nothing of an edge that runs along or across.
double roughness(const Patch& patch, std::size_t i)
{
    const std::size_t w = patch.width();
    const auto row = [&](std::size_t at) {
        return static_cast<double>(patch.value[at - 1]) - 2 * static_cast<double>(patch.value[at]) +
               static_cast<double>(patch.value[at + 1]);
    };
    const double value = row(i - w) - 2 * row(i) + row(i + w);
    return value * value / 36;
}

// The mean roughness of the calmer windows of 8 x 8: where a picture shows something, it is rougher than its noise.
double measure_noise(const Patch& patch)
{
    constexpr std::size_t kWindow = 8;
    constexpr std::size_t kCalm = 5;    // one window in so many
    constexpr double kCalmBelow = 1.25; // mean of a window's noise relative to that share's limit, for pure noise
    std::vector<double> windows;
    for (std::size_t top = 1; top + kWindow < patch.height(); top += kWindow)
        for (std::size_t left = 1; left + kWindow < patch.width(); left += kWindow) {
            double sum = 0;
            bool is_known = true;
            for (std::size_t y = top; y < top + kWindow; ++y)
                for (std::size_t x = left; x < left + kWindow; ++x) {
                    sum += roughness(patch, y * patch.width() + x);
                    is_known = is_known && patch.known[y * patch.width() + x] != 0;
                }
            if (is_known)
                windows.push_back(sum / (kWindow * kWindow));
        }
    if (windows.empty())
        return 0;
    const auto calm = windows.begin() + static_cast<std::ptrdiff_t>(windows.size() / kCalm);
    std::nth_element(windows.begin(), calm, windows.end());
    return *calm * kCalmBelow;
}

void read_row(const PixelBlock& block, std::int64_t y, const std::vector<float>& samples, double levels, Patch& patch)
{
    const std::size_t width = patch.width();
    const auto channels = static_cast<std::size_t>(block.channels);
    const std::uint8_t* const mask = block.mask_row(y);
    for (std::size_t x = 0; x < width; ++x) {
        const std::size_t i = static_cast<std::size_t>(y) * width + x;
        const float* const pixel = samples.data() + x * channels;
        const float brightness = channels < 3 ? pixel[0] : 0.25f * (pixel[0] + pixel[2]) + 0.5f * pixel[1];
        patch.known[i] = mask[x] != 0 ? 1 : 0;
        patch.value[i] = mask[x] != 0 ? static_cast<float>(static_cast<double>(brightness) * levels) : 0.0f;
    }
}

} // namespace

void prepare_patch(Patch& patch, std::int64_t reach, const Rect& area)
{
    smooth(patch);
    patch.smoothed = patch.value;
    patch.area = area;
    subtract_slow_changes(patch, reach, area);
}

void prepare_again(Patch& patch, std::int64_t reach)
{
    for (std::size_t i = 0; i < patch.value.size(); ++i)
        patch.value[i] = patch.known[i] != 0 ? patch.smoothed[i] : 0.0f;
    subtract_slow_changes(patch, reach, patch.area);
}

double seen_beyond_noise(const Patch& patch)
{
    constexpr std::size_t kApart = 3; // pixels: each is smoothed with its neighbours only
    const std::size_t width = patch.width();
    double sum = 0;
    double count = 0;
    for (std::size_t y = 0; y + kApart < patch.height(); ++y)
        for (std::size_t i = y * width; i + kApart < (y + 1) * width; ++i) {
            const std::size_t right = i + kApart;
            const std::size_t below = i + kApart * width;
            if ((patch.known[i] & patch.known[right] & patch.known[below]) == 0)
                continue;
            sum += static_cast<double>(patch.value[i]) *
                   (static_cast<double>(patch.value[right]) + static_cast<double>(patch.value[below]));
            count += 2;
        }
    return count > 0 ? std::max(0.0, sum / count) : 0;
}

bool shows_coding(const Patch& patch)
{
    constexpr std::size_t kSide = 8;
    constexpr double kMuch = 0.25; // of all changes at one of eight places; an eighth is usual
    constexpr double kOfMean = 3;  // of the mean change of a line, at most
    const std::size_t width = patch.width();
    std::vector<double> across(width); // of each column
    std::vector<double> down(patch.height());
    for (std::size_t y = 0; y + 1 < patch.height(); ++y)
        for (std::size_t x = 0, i = y * width; x + 1 < width; ++x, ++i) {
            if ((patch.known[i] & patch.known[i + 1] & patch.known[i + width]) == 0)
                continue;
            const auto right = static_cast<double>(patch.value[i + 1] - patch.value[i]);
            const auto below = static_cast<double>(patch.value[i + width] - patch.value[i]);
            across[x] += right * right;
            down[y] += below * below;
        }
    const auto is_coded = [](const std::vector<double>& changes) {
        double sum = 0;
        for (const double change : changes)
            sum += change;
        const auto is_much_at_one_place = [&](double most_of_line) {
            std::array<double, kSide> at_place{};
            double all = 0;
            for (std::size_t i = 0; i < changes.size(); ++i) {
                at_place[i % kSide] += std::min(changes[i], most_of_line);
                all += std::min(changes[i], most_of_line);
            }
            return *std::max_element(at_place.begin(), at_place.end()) > kMuch * all;
        };
        // Squares begin at every eighth line; a few stars change much at some of them.
        return is_much_at_one_place(sum) && is_much_at_one_place(kOfMean * sum / static_cast<double>(changes.size()));
    };
    return is_coded(across) || is_coded(down);
}

Patch read_brightness(const PictureSource& source, std::size_t picture, const Rect& rect)
{
    Patch patch;
    patch.rect = rect;
    patch.value.resize(static_cast<std::size_t>(rect.pixels()));
    patch.known.resize(patch.value.size());
    PixelBlock block;
    source.reader.read(picture, rect, block);
    std::vector<float> samples(patch.width() * static_cast<std::size_t>(block.channels));
    for (std::int64_t y = 0; y < rect.height; ++y) {
        correct_row(source.corrections, picture, source.size(picture), block, y, samples.data());
        read_row(block, y, samples, source.levels_per_sample(), patch);
    }
    patch.noise = measure_noise(patch);
    return patch;
}

} // namespace panoval::mosaic
