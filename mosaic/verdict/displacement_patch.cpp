// SPDX-License-Identifier: MIT
#include "mosaic/verdict/displacement_patch.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <type_traits>

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

    // Of row y; rows are asked for in their order, with the same sums.
    void next(std::size_t y, std::vector<double>& sums)
    {
        const auto row = static_cast<std::int64_t>(y);
        const auto reach = static_cast<std::int64_t>(reach_);
        if (y > 0 && leaves_sums(row + reach, row - reach - 1))
            return;
        add_row(row + reach, 1);
        add_row(row - reach - 1, -1);
        for (std::size_t x = 0; x < width_; ++x)
            before_[x + 1] = before_[x] + down_[x];
        for (std::size_t x = 0; x < width_; ++x)
            sums[x] = before_[std::min(x + reach_ + 1, width_)] - before_[x - std::min(x, reach_)];
    }

private:
    bool is_inside(std::int64_t row) const { return row >= inside_.y && row < inside_.bottom(); }
    const Value* line(std::int64_t row) const { return values_.data() + static_cast<std::size_t>(row) * width_; }

    // Whether the sums stay, because the row that comes is like the one that goes. Sums of real numbers are rounded.
    bool leaves_sums(std::int64_t coming, std::int64_t going) const
    {
        if (!std::is_integral_v<Value> || !is_inside(coming) || !is_inside(going))
            return false;
        return std::equal(line(coming) + inside_.x, line(coming) + inside_.right(), line(going) + inside_.x);
    }

    void add_row(std::int64_t row, double sign)
    {
        if (!is_inside(row))
            return;
        const Value* const values = line(row);
        for (std::int64_t x = inside_.x; x < inside_.right(); ++x)
            down_[static_cast<std::size_t>(x)] += sign * static_cast<double>(values[x]);
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

// Second differences along a row, of all pixels but the outermost.
void second_differences(const float* row, std::vector<double>& differences)
{
    for (std::size_t x = 1; x + 1 < differences.size(); ++x)
        differences[x] =
            static_cast<double>(row[x - 1]) - 2 * static_cast<double>(row[x]) + static_cast<double>(row[x + 1]);
}

constexpr std::size_t kWindow = 8;

// How rough a patch is in windows that lie side by side from column 1 on: sums of second differences both ways,
// squared. Those are 36 times the variance of white noise, and nothing of an edge that runs along or across.
class Roughness
{
public:
    explicit Roughness(const Patch& patch) : patch_(patch)
    {
        for (std::vector<double>& row : rows_)
            row.resize(patch.width());
    }

    // Of the windows below row `top`, which begins at 1 and moves on by a window.
    void add_up(std::size_t top, std::vector<double>& sums)
    {
        std::fill(sums.begin(), sums.end(), 0.0);
        if (top == 1) {
            load(0);
            load(1);
        }
        for (std::size_t y = top; y < top + kWindow; ++y) {
            load(y + 1);
            const double* const above = row(y - 1);
            const double* const here = row(y);
            const double* const below = row(y + 1);
            for (std::size_t window = 0, x = 1; window < sums.size(); ++window)
                for (const std::size_t end = x + kWindow; x < end; ++x) {
                    const double value = above[x] - 2 * here[x] + below[x];
                    sums[window] += value * value / 36;
                }
        }
    }

private:
    const double* row(std::size_t y) const { return rows_[y % rows_.size()].data(); }
    void load(std::size_t y) { second_differences(patch_.value.data() + y * patch_.width(), rows_[y % rows_.size()]); }

    const Patch& patch_;
    std::array<std::vector<double>, 3> rows_;
};

bool is_window_known(const Patch& patch, std::size_t left, std::size_t top)
{
    const auto is_known = [](std::uint8_t known) { return known != 0; };
    for (std::size_t y = top; y < top + kWindow; ++y) {
        const std::uint8_t* const row = patch.known.data() + y * patch.width() + left;
        if (!std::all_of(row, row + kWindow, is_known))
            return false;
    }
    return true;
}

// The mean roughness of the calmer windows of 8 x 8: where a picture shows something, it is rougher than its noise.
double measure_noise(const Patch& patch)
{
    constexpr std::size_t kCalm = 5;    // one window in so many
    constexpr double kCalmBelow = 1.25; // mean of a window's noise relative to that share's limit, for pure noise
    if (patch.width() < kWindow + 2)
        return 0;
    Roughness roughness(patch);
    std::vector<double> sums((patch.width() - 2) / kWindow);
    std::vector<double> windows;
    for (std::size_t top = 1; top + kWindow < patch.height(); top += kWindow) {
        roughness.add_up(top, sums);
        for (std::size_t i = 0; i < sums.size(); ++i)
            if (is_window_known(patch, 1 + i * kWindow, top))
                windows.push_back(sums[i] / (kWindow * kWindow));
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
