// SPDX-License-Identifier: MIT
#include "mosaic/verdict/displacement_patch.h"

#include "mosaic/pictures/picture_view.h"
#include "mosaic/verdict/patch_rows.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
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
        const auto cut_off = [&](std::size_t x) {
            sums[x] = before_[std::min(x + reach_ + 1, width_)] - before_[x - std::min(x, reach_)];
        };
        const std::size_t whole = width_ - std::min(2 * reach_, width_); // windows that are not cut off
        const std::size_t begin = whole > 0 ? reach_ : width_;
        for (std::size_t x = 0; x < begin; ++x)
            cut_off(x);
        if (whole > 0)
            subtract_rows(before_.data() + 2 * reach_ + 1, before_.data(), whole, sums.data() + begin);
        for (std::size_t x = begin + whole; x < width_; ++x)
            cut_off(x);
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
        const Value* const values = line(row) + inside_.x;
        double* const sums = down_.data() + inside_.x;
        const auto width = static_cast<std::size_t>(inside_.width);
        if constexpr (std::is_same_v<Value, float>)
            add_signed_row(values, sign, width, sums);
        else
            for (std::size_t x = 0; x < width; ++x)
                sums[x] += sign * static_cast<double>(values[x]);
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
        std::uint8_t* const known_row = patch.known.data() + y * width;
        for (std::size_t x = 0; x < width; ++x)
            known_row[x] = known[y * width + x] != 0 && counts[x] > 0.5 ? 1 : 0;
        subtract_means(values.data() + y * width, sums.data(), counts.data(), known_row, width,
                       patch.value.data() + y * width);
    }
}

constexpr std::size_t kWindow = 8;

// How rough a patch is in windows that lie side by side from column 1 on: sums of second differences both ways,
// squared. Those are 36 times the variance of white noise, and nothing of an edge that runs along or across.
class Roughness
{
public:
    explicit Roughness(const Patch& patch) : patch_(patch), rough_((patch.width() - 2) / kWindow * kWindow)
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
            roughness_row(row(y - 1) + 1, row(y) + 1, row(y + 1) + 1, rough_.size(), rough_.data());
            for (std::size_t window = 0, x = 0; window < sums.size(); ++window)
                for (const std::size_t end = x + kWindow; x < end; ++x)
                    sums[window] += rough_[x];
        }
    }

private:
    const double* row(std::size_t y) const { return rows_[y % rows_.size()].data(); }
    void load(std::size_t y)
    {
        second_differences(patch_.value.data() + y * patch_.width(), patch_.width(), rows_[y % rows_.size()].data());
    }

    const Patch& patch_;
    std::array<std::vector<double>, 3> rows_; // second differences along them
    std::vector<double> rough_;
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

void read_row(const PictureView& view, std::int64_t y, const std::vector<float>& samples, double levels, Patch& patch)
{
    const std::size_t width = patch.width();
    const std::uint8_t* const mask = view.mask_row(y);
    float* const values = patch.value.data() + static_cast<std::size_t>(y) * width;
    std::uint8_t* const known = patch.known.data() + static_cast<std::size_t>(y) * width;
    brightness_row(samples.data(), static_cast<std::size_t>(view.channels()), width, levels, values);
    std::memset(known, 1, width);
    if (view.is_covered(y, 1))
        return;
    for (std::size_t x = 0; x < width; ++x)
        if (mask[x] == 0) {
            known[x] = 0;
            values[x] = 0;
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
    PictureView view;
    view.read(source.reader, picture, rect, source.layout.channels, source.layout.sample_bytes());
    std::vector<float> samples(patch.width() * static_cast<std::size_t>(view.channels()));
    for (std::int64_t y = 0; y < rect.height; ++y) {
        correct_row(source.corrections, picture, source.size(picture), view, y, samples.data());
        read_row(view, y, samples, source.levels_per_sample(), patch);
    }
    patch.noise = measure_noise(patch);
    return patch;
}

} // namespace panoval::mosaic
