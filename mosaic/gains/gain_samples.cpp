// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_samples.h"

#include <algorithm>
#include <cmath>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kMostPixels = 1 << 16;
constexpr std::size_t kSide = SamplePairs::kSide;

class SampleCounter
{
public:
    SampleCounter(std::size_t channels, std::int64_t width) : channels_(channels)
    {
        samples_.pairs.resize(channels + 1);
        samples_.neighbours.resize(channels);
        is_used_.resize(to_size(width));
    }

    // y: of the row in the overlap
    void count_row(const PixelBlock& first, const PixelBlock& second, const GainBlocks& blocks, std::int64_t y,
                   const std::vector<char>& is_left_out)
    {
        choose_pixels(first, second, blocks, y, is_left_out);
        for (std::size_t c = 0; c < channels_; ++c)
            for (std::size_t x = 0; x < is_used_.size(); ++x)
                if (is_used_[x])
                    count_pixel(first.row(0), second.row(0), x, c);
    }

    OverlapSamples&& take() { return std::move(samples_); }

private:
    static std::size_t to_size(std::int64_t value) { return static_cast<std::size_t>(value); }

    void choose_pixels(const PixelBlock& first, const PixelBlock& second, const GainBlocks& blocks, std::int64_t y,
                       const std::vector<char>& is_left_out)
    {
        const std::uint8_t* const in_first = first.mask_row(0);
        const std::uint8_t* const in_second = second.mask_row(0);
        for (std::size_t x = 0; x < is_used_.size(); ++x)
            is_used_[x] = in_first[x] != 0 && in_second[x] != 0;
        if (is_left_out.empty())
            return;
        const std::size_t row = blocks.row_of(y) * blocks.columns;
        for (std::size_t x = 0; x < is_used_.size(); ++x)
            if (is_left_out[row + blocks.column_of(static_cast<std::int64_t>(x))])
                is_used_[x] = 0;
    }

    void count_pixel(const std::uint8_t* first, const std::uint8_t* second, std::size_t x, std::size_t c)
    {
        const std::size_t i = x * channels_ + c;
        const std::size_t a = first[i];
        const std::size_t b = second[i];
        if (a >= kSide || b >= kSide)
            return;
        ++samples_.pairs[c].count[a * kSide + b];
        ++samples_.pairs[channels_].count[a * kSide + b];
        NeighbourSums& sums = samples_.neighbours[c];
        sums.first += a;
        sums.second += b;
        for (std::size_t far = 0; far <= NeighbourSums::kFar && x + far < is_used_.size(); ++far) {
            const std::size_t right_first = first[i + far * channels_];
            const std::size_t right_second = second[i + far * channels_];
            if (!is_used_[x + far] || right_first >= kSide || right_second >= kSide)
                continue;
            NeighbourSums::Products& products = sums.at[far];
            products.first += a * right_first;
            products.second += b * right_second;
            products.first_second += a * right_second;
            products.second_first += b * right_first;
            ++products.count;
        }
    }

    std::size_t channels_;
    std::vector<char> is_used_; // of each column
    OverlapSamples samples_;
};

// Means of products of d = first - ratio second and s = first / ratio + second at two pixels, scaled alike.
struct Covariances {
    double differences = 0;
    double sums = 0;
    double twist = 0; // of the left pixel's difference and the right one's sum, less the other way round
};

Covariances covariances_of(const NeighbourSums::Products& products, double ratio)
{
    const double scale = 1 / std::max(static_cast<double>(products.count), 1.0);
    const double first = static_cast<double>(products.first) * scale / ratio;
    const double second = static_cast<double>(products.second) * scale * ratio;
    const double first_second = static_cast<double>(products.first_second) * scale;
    const double second_first = static_cast<double>(products.second_first) * scale;
    return {first - first_second - second_first + second, first + first_second + second_first + second,
            2 * (first_second - second_first)};
}

} // namespace

OverlapSamples count_samples(const Layout& layout, const Overlap& overlap, const GainBlocks& blocks,
                             const std::vector<char>& is_left_out, PictureReader& reader)
{
    Rect in_first = overlap.in_first(layout);
    Rect in_second = overlap.in_second(layout);
    const std::int64_t rows = std::clamp<std::int64_t>(kMostPixels / in_first.width, 1, in_first.height);
    const Rect all = in_first;
    const std::int64_t down = in_second.y - in_first.y;
    SampleCounter counter(static_cast<std::size_t>(layout.channels), all.width);
    PixelBlock first;
    PixelBlock second;
    in_first.height = in_second.height = 1;
    for (std::int64_t k = 0; k < rows; ++k) {
        in_first.y = all.y + k * all.height / rows;
        in_second.y = in_first.y + down;
        reader.read(overlap.first, in_first, first);
        reader.read(overlap.second, in_second, second);
        counter.count_row(first, second, blocks, in_first.y - all.y, is_left_out);
    }
    return counter.take();
}

bool is_white(const std::vector<NeighbourSums>& neighbours)
{
    constexpr double kAlike = 0.03; // noise that is cut off at black leaves that much
    constexpr double kTwisted = 0.08;
    constexpr double kChance = 3;
    double variance = 0;
    double across = 0; // variance of what neighbours' sums differ by
    double twist = 0;
    double count = 0;
    std::array<double, NeighbourSums::kFar + 1> together{};
    for (const NeighbourSums& sums : neighbours) {
        if (sums.first == 0 || sums.second == 0)
            continue;
        const double ratio = static_cast<double>(sums.first) / static_cast<double>(sums.second);
        const Covariances itself = covariances_of(sums.at[0], ratio);
        variance += itself.differences;
        across += 2 * (itself.sums - covariances_of(sums.at[2], ratio).sums);
        twist += 2 * covariances_of(sums.at[1], ratio).twist;
        for (std::size_t far = 1; far < together.size(); ++far)
            together[far] += covariances_of(sums.at[far], ratio).differences;
        count += static_cast<double>(sums.at[2].count);
    }
    const double chance = kChance / std::sqrt(std::max(count, 1.0));
    return std::fabs(together[1]) <= (kAlike + chance) * variance &&
           std::fabs(together[2]) <= (kAlike + chance) * variance &&
           std::fabs(twist) <= (kTwisted + chance) * std::sqrt(std::max(variance * across, 0.0));
}

} // namespace panoval::mosaic
