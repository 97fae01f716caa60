// SPDX-License-Identifier: MIT
// The overlay in pixels: lines are splatted with bilinear weights, which makes them smooth; digits are a tiny font.
#include "cli/ellipses/ellipse_overlay.h"

#include "cli/ellipses/overlay_marks.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace panoval::cli
{

namespace
{

struct Color {
    std::uint8_t red, green, blue;
};

constexpr Color kOutline = {255, 64, 32};
constexpr Color kCentre = {0, 200, 255};
constexpr Color kNumber = {255, 220, 0};
constexpr Color kRim = {0, 0, 0}; // around numbers, which stand on light ground as a rule
constexpr Color kFeature = {80, 255, 80};
constexpr Color kError = {255, 0, 255};

// 3 x 5 pixels each, one bit a pixel, rows from the top; an x behind the nine.
constexpr std::array<std::array<std::uint8_t, 5>, 11> kDigits = {{{7, 5, 5, 5, 7},
                                                                  {2, 6, 2, 2, 7},
                                                                  {7, 1, 7, 4, 7},
                                                                  {7, 1, 7, 1, 7},
                                                                  {5, 5, 7, 1, 1},
                                                                  {7, 4, 7, 1, 7},
                                                                  {7, 4, 7, 5, 7},
                                                                  {7, 1, 2, 2, 2},
                                                                  {7, 5, 7, 5, 7},
                                                                  {7, 5, 7, 1, 7},
                                                                  {0, 5, 2, 5, 0}}};

class Canvas
{
public:
    explicit Canvas(Image& image) : image_(image) {}

    void blend(std::int64_t x, std::int64_t y, double share, Color color)
    {
        if (x < 0 || y < 0 || x >= image_.width || y >= image_.height)
            return;
        std::uint8_t* const pixel = image_.row(static_cast<std::int32_t>(y)) + x * 3;
        const auto mix = [share](std::uint8_t below, std::uint8_t above) {
            return static_cast<std::uint8_t>(std::lround(below + (above - below) * share));
        };
        pixel[0] = mix(pixel[0], color.red);
        pixel[1] = mix(pixel[1], color.green);
        pixel[2] = mix(pixel[2], color.blue);
    }

    // A dot of one pixel's area around (x, y).
    void splat(double x, double y, double share, Color color)
    {
        const double left = std::floor(x);
        const double top = std::floor(y);
        const double fx = x - left;
        const double fy = y - top;
        const auto column = static_cast<std::int64_t>(left);
        const auto row = static_cast<std::int64_t>(top);
        blend(column, row, share * (1 - fx) * (1 - fy), color);
        blend(column + 1, row, share * fx * (1 - fy), color);
        blend(column, row + 1, share * (1 - fx) * fy, color);
        blend(column + 1, row + 1, share * fx * fy, color);
    }

    void line(double x0, double y0, double x1, double y1, Color color)
    {
        const int steps = std::max(1, static_cast<int>(2 * std::hypot(x1 - x0, y1 - y0)));
        for (int i = 0; i <= steps; ++i)
            splat(x0 + (x1 - x0) * i / steps, y0 + (y1 - y0) * i / steps, 0.7, color);
    }

    void ellipse(double x, double y, double a, double b, double angle, Color color)
    {
        const int steps = std::clamp(static_cast<int>(2 * 2 * std::numbers::pi * a), 12, 1'000'000);
        for (int i = 0; i < steps; ++i) {
            const double t = 2 * std::numbers::pi * i / steps;
            const double along = a * std::cos(t);
            const double across = b * std::sin(t);
            splat(x + along * std::cos(angle) - across * std::sin(angle),
                  y + along * std::sin(angle) + across * std::cos(angle), 0.7, color);
        }
    }

    void number(std::int64_t left, std::int64_t top, const std::string& digits, int scale, Color color)
    {
        for_each_dot(left, top, digits, scale, [&](std::int64_t x, std::int64_t y) {
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx)
                    blend(x + dx, y + dy, 1.0, kRim);
        });
        for_each_dot(left, top, digits, scale, [&](std::int64_t x, std::int64_t y) { blend(x, y, 1.0, color); });
    }

private:
    template <class Paint>
    static void for_each_dot(std::int64_t left, std::int64_t top, const std::string& digits, int scale,
                             const Paint& paint)
    {
        for (const char digit : digits) {
            const auto& rows = kDigits[digit == 'x' ? 10 : static_cast<std::size_t>(digit - '0')];
            for (int y = 0; y < 5 * scale; ++y)
                for (int x = 0; x < 3 * scale; ++x)
                    if ((rows[static_cast<std::size_t>(y / scale)] >> (2 - x / scale)) & 1)
                        paint(left + x, top + y);
            left += 4 * scale;
        }
    }

    Image& image_;
};

Image colored_copy(const Image& grey)
{
    Image image = make_image(grey.width, grey.height, 3, 8, "the overlay");
    for (std::size_t i = 0; i < grey.pixels(); ++i)
        std::fill_n(image.data.get() + 3 * i, 3, grey.data[i]);
    return image;
}

} // namespace

Image draw_overlay(const Image& grey, const Measurement& measurement)
{
    Image image = colored_copy(grey);
    Canvas canvas(image);
    const int scale = std::max(1, std::min(grey.width, grey.height) / 300);
    const double factor = error_factor(measurement);
    for (std::size_t i = 0; i < measurement.targets.size(); ++i) {
        const Target& target = measurement.targets[i];
        const double arm = std::clamp(0.3 * target.semi_minor, 2.0, 8.0);
        canvas.ellipse(target.x, target.y, target.semi_major, target.semi_minor, target.angle, kOutline);
        canvas.line(target.x - arm, target.y, target.x + arm, target.y, kCentre);
        canvas.line(target.x, target.y - arm, target.x, target.y + arm, kCentre);
        if (factor > 0) {
            const ErrorEllipse error = error_ellipse(target, factor);
            canvas.ellipse(target.x, target.y, error.a, error.b, error.angle, kError);
        }
        for (const RingFeature& feature : target.ring)
            canvas.ellipse(feature.x, feature.y, 3, 3, 0, kFeature);
    }
    for (std::size_t i = 0; i < measurement.targets.size(); ++i) { // above all outlines
        const std::string number = std::to_string(i + 1);
        const LabelSize size = {(4.0 * static_cast<double>(number.size()) - 1) * scale, 5.0 * scale};
        const LabelPlace place = label_place(measurement.targets[i], size, image.width, image.height);
        canvas.number(std::llround(place.x), std::llround(place.y) - 5 * scale, number, scale, kNumber);
    }
    if (factor > 0) // how many times the error ellipses are magnified, in their colour
        canvas.number(3, image.height - 5 * scale - 3, "x" + std::to_string(std::llround(factor)), scale, kError);
    return image;
}

} // namespace panoval::cli
