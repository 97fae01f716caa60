// SPDX-License-Identifier: MIT
// Seeded test data, the same on every system (no distribution of the standard library is used).
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace panoval::test
{

// splitmix64: small, and every seed gives a good sequence.
class Random
{
public:
    explicit Random(std::uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15u + 0x1234567u) {}

    std::uint64_t next()
    {
        state_ += 0x9E3779B97F4A7C15u;
        std::uint64_t z = state_;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
        return z ^ (z >> 31);
    }

    // low to high, both included
    std::int64_t integer(std::int64_t low, std::int64_t high)
    {
        const auto span = static_cast<std::uint64_t>(high - low) + 1u;
        return low + static_cast<std::int64_t>(span == 0 ? next() : next() % span);
    }

    // 0 included, 1 excluded
    double unit() { return static_cast<double>(next() >> 11) * 0x1p-53; }

    double real(double low, double high) { return low + (high - low) * unit(); }

private:
    std::uint64_t state_;
};

// count values between low and high: both included for integers.
template <class T>
std::vector<T> noise(std::size_t count, T low, T high, std::uint64_t seed)
{
    Random random(seed);
    std::vector<T> values(count);
    for (T& value : values) {
        if constexpr (std::is_integral_v<T>)
            value = static_cast<T>(random.integer(low, high));
        else
            value = static_cast<T>(random.real(low, high));
    }
    return values;
}

// The kinds of pictures that every routine is tried on.
enum class Content { Noise, Photograph, Flat, Ramp, Checkerboard, Black, White, TwoLevel };

inline constexpr std::array kAllContents = {Content::Noise,        Content::Photograph, Content::Flat,
                                            Content::Ramp,         Content::Black,      Content::White,
                                            Content::Checkerboard, Content::TwoLevel};

inline std::string name_of(Content content)
{
    switch (content) {
    case Content::Noise:
        return "noise";
    case Content::Photograph:
        return "photo";
    case Content::Flat:
        return "flat";
    case Content::Ramp:
        return "ramp";
    case Content::Checkerboard:
        return "checker";
    case Content::Black:
        return "black";
    case Content::White:
        return "white";
    case Content::TwoLevel:
        return "two-level";
    }
    return "?";
}

// One channel of 8 bit. The photograph is a sum of smooth waves, soft-edged discs and a little grain.
inline std::vector<std::uint8_t> picture(Content content, int width, int height, std::uint64_t seed)
{
    const auto count =
        static_cast<std::size_t>(width > 0 ? width : 0) * static_cast<std::size_t>(height > 0 ? height : 0);
    if (content == Content::Noise)
        return noise<std::uint8_t>(count, 0, 255, seed);
    Random random(seed);
    const double phase_x = random.real(0, 6.28);
    const double phase_y = random.real(0, 6.28);
    const double disc_x = random.real(0, width);
    const double disc_y = random.real(0, height);
    const double disc_radius = random.real(2, 3 + 0.3 * width);
    std::vector<std::uint8_t> values(count);
    for (std::size_t i = 0; i < count; ++i) {
        const int x = static_cast<int>(i % static_cast<std::size_t>(width));
        const int y = static_cast<int>(i / static_cast<std::size_t>(width));
        double v = 0;
        switch (content) {
        case Content::Photograph: {
            v = 120 + 60 * std::sin(x * 0.013 + phase_x) + 40 * std::sin(y * 0.021 + phase_y) + random.real(-4, 4);
            const double edge = disc_radius - std::hypot(x - disc_x, y - disc_y);
            v -= 70 / (1 + std::exp(-edge));
            break;
        }
        case Content::Flat:
            v = 185;
            break;
        case Content::Ramp:
            v = width > 1 ? 255.0 * x / (width - 1) : 0;
            break;
        case Content::Checkerboard:
            v = (x + y) % 2 != 0 ? 255 : 0;
            break;
        case Content::White:
            v = 255;
            break;
        case Content::TwoLevel:
            v = (x / 16 + y / 16) % 2 != 0 ? 200 : 40;
            break;
        case Content::Noise:
        case Content::Black:
            break;
        }
        values[i] = static_cast<std::uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
    }
    return values;
}

} // namespace panoval::test
