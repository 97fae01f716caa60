// SPDX-License-Identifier: MIT
// The pictures that the table of results is made from, without a single call of the C run-time library's mathematics.
#include "tests/bits/bits.h"

namespace panoval::bits
{

namespace
{

std::size_t area(int width, int height)
{
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}

// Bilinear between random values 16 pixels apart, with two levels of grain.
void fill_smooth(std::vector<std::uint8_t>& values, int width, int height, Random& random)
{
    constexpr int kStep = 16;
    const int columns = width / kStep + 2;
    std::vector<int> knots(area(columns, height / kStep + 2));
    for (int& knot : knots)
        knot = static_cast<int>(random.integer(10, 240));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const auto at = [&](int dx, int dy) {
                return knots[static_cast<std::size_t>((y / kStep + dy) * columns + x / kStep + dx)];
            };
            const int fx = x % kStep;
            const int fy = y % kStep;
            const int upper = at(0, 0) * (kStep - fx) + at(1, 0) * fx;
            const int lower = at(0, 1) * (kStep - fx) + at(1, 1) * fx;
            const int value = (upper * (kStep - fy) + lower * fy) / (kStep * kStep);
            values[area(width, y) + static_cast<std::size_t>(x)] =
                static_cast<std::uint8_t>(value + static_cast<int>(random.integer(-2, 2)));
        }
}

// Dark ellipses with soft edges and a bright dot, on a light ground.
void fill_targets(std::vector<std::uint8_t>& values, int width, int height, Random& random)
{
    for (auto& value : values)
        value = static_cast<std::uint8_t>(random.integer(196, 204));
    constexpr int kCell = 48;
    for (int top = 0; top + kCell <= height; top += kCell)
        for (int left = 0; left + kCell <= width; left += kCell) {
            const double cx = left + random.real(20, 28);
            const double cy = top + random.real(20, 28);
            const double a = 1 / random.real(60, 200);
            const double c = 1 / random.real(60, 200);
            const double b = random.real(-0.5, 0.5) * (a < c ? a : c);
            for (int y = top; y < top + kCell; ++y)
                for (int x = left; x < left + kCell; ++x) {
                    const double dx = x - cx;
                    const double dy = y - cy;
                    const double q = a * dx * dx + b * dx * dy + c * dy * dy;
                    const double shade = q < 0.8 ? 0 : q > 1.2 ? 1 : (q - 0.8) / 0.4;
                    auto& value = values[area(width, y) + static_cast<std::size_t>(x)];
                    value = static_cast<std::uint8_t>(40 + (value - 40) * shade);
                }
        }
}

} // namespace

std::vector<std::uint8_t> picture(Kind kind, int width, int height, std::uint64_t seed)
{
    Random random(seed);
    std::vector<std::uint8_t> values(area(width, height));
    if (kind == Kind::Smooth)
        fill_smooth(values, width, height, random);
    if (kind == Kind::Targets)
        fill_targets(values, width, height, random);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            auto& value = values[area(width, y) + static_cast<std::size_t>(x)];
            if (kind == Kind::Noise)
                value = static_cast<std::uint8_t>(random.integer(0, 255));
            if (kind == Kind::Ramp)
                value = static_cast<std::uint8_t>(255 * x / width);
            if (kind == Kind::Checkerboard)
                value = (x + y) % 2 != 0 ? 255 : 0;
            if (kind == Kind::White)
                value = 255;
            if (kind == Kind::TwoLevel)
                value = (x / 16 + y / 16) % 2 != 0 ? 200 : 40;
        }
    return values;
}

} // namespace panoval::bits
