// SPDX-License-Identifier: MIT
// Pictures of targets whose geometry is known exactly: shapes are sampled by area, blurred before the pixel integrates
// them, and noise and rounding come last. A pixel's centre has whole coordinates, angles run from +x towards +y.
#pragma once

#include "tests/support/noise.h"

#include <cstdint>
#include <vector>

namespace panoval::test
{

// An evenly filled convex shape; later ones of a scene cover earlier ones.
struct Shape {
    enum class Kind {
        Ellipse,   // semi-axes a, b
        Rectangle, // half sides a, b
        Stroke     // from -a to +a along its direction, 2 b thick, with round ends
    };
    Kind kind = Kind::Ellipse;
    double x = 0; // centre
    double y = 0;
    double a = 10;
    double b = 10;
    double angle = 0; // of a, radians
    double grey = 40;
    double grey_dx = 0; // change of grey a pixel, zero in the centre
    double grey_dy = 0;
};

// What a measurement should find: one outline.
struct TrueTarget {
    double x = 0;
    double y = 0;
    double a = 0; // semi-axes, a >= b
    double b = 0;
    double angle = 0;
    double inside = 0; // grey levels beside the outline
    double outside = 0;
    double circle_x = 0; // image of the circle's centre; the ellipse's own where there is no perspective
    double circle_y = 0;
    bool is_hard = false; // not to be counted as missed: cut by the border, hidden, too small, too faint
};

struct TargetScene {
    std::int32_t width = 0;
    std::int32_t height = 0;
    double background = 200;
    std::vector<Shape> shapes;
    std::vector<TrueTarget> targets;
    double blur = 0.7;      // sigma of the optics in pixels, before the pixel
    double light_x = 0;     // relative change of brightness from the left edge to the right
    double light_y = 0;     // and from the top to the bottom
    double light_fall = 0;  // relative loss of brightness from the middle to the corners
    double noise = 0;       // sigma in grey levels, after the pixel
    double most = 255;      // largest sample: 255 or 65535
    std::uint64_t seed = 1; // of the noise
};

// Without noise and rounding, row by row.
std::vector<double> render_exact(const TargetScene& scene);

// Adds the scene's noise.
void add_noise(const TargetScene& scene, std::vector<double>& samples);

// Rounded and limited to 0 .. scene.most.
std::vector<std::uint8_t> rounded_to_8_bit(const std::vector<double>& samples);
std::vector<std::uint16_t> rounded_to_16_bit(const std::vector<double>& samples);

std::vector<std::uint8_t> render_8_bit(const TargetScene& scene);
std::vector<std::uint16_t> render_16_bit(const TargetScene& scene);

// One normally distributed value, mean 0 and deviation 1.
double normal_value(Random& random);

// Puts an ellipse into the scene and into the list of what is to be found.
void add_target(TargetScene& scene, double x, double y, double a, double b, double angle, double grey,
                double surrounding);

} // namespace panoval::test
