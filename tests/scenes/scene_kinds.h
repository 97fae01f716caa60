// SPDX-License-Identifier: MIT
// Kinds of scenes with targets, all of seeded parameters: boards under perspective, scatters, rings, and clutter that
// is no target.
#pragma once

#include "tests/scenes/target_scene.h"

#include <array>
#include <cstdint>

namespace panoval::test
{

// How hard a scene is.
struct SceneConditions {
    std::int32_t width = 640;
    std::int32_t height = 480;
    double least_radius = 3;
    double most_radius = 40;
    double contrast = 150; // grey levels
    double noise = 2;      // grey levels
    double blur = 0.7;
    double light = 0.2;     // relative change across the picture
    bool is_bright = false; // targets are brighter than their ground
};

// rows x columns discs of one plane, seen under a tilt, each smaller than 0.35 of the grid's step.
struct BoardView {
    std::int32_t rows = 7;
    std::int32_t columns = 9;
    double share = 0.3; // radius by the grid's step
    double tilt_x = 0;  // radians
    double tilt_y = 0;
    double turn = 0;     // about the line of sight
    double distance = 3; // of the camera, in widths of the board
};

TargetScene board_scene(const SceneConditions& conditions, const BoardView& view, std::uint64_t seed);
BoardView random_view(Random& random);

// Ellipses anywhere, apart from each other.
TargetScene scatter_scene(const SceneConditions& conditions, std::int32_t count, std::uint64_t seed);

// Concentric rings: every outline of every ring is a target.
TargetScene ring_scene(const SceneConditions& conditions, std::int32_t count, std::uint64_t seed);

// Pairs whose outlines touch or lie `gap` pixels apart.
TargetScene pair_scene(const SceneConditions& conditions, std::int32_t count, double gap, std::uint64_t seed);

// Scatter among things that are no targets.
enum class Clutter { Text, Cups, Hatching, Rectangles };
inline constexpr std::array kAllClutter = {Clutter::Text, Clutter::Cups, Clutter::Hatching, Clutter::Rectangles};
TargetScene cluttered_scene(const SceneConditions& conditions, std::int32_t count, Clutter clutter, std::uint64_t seed);

// The image of the unit circle around (x, y) of radius r in a plane whose homography has rows h.
TrueTarget imaged_circle(const std::array<double, 9>& h, double x, double y, double r);

} // namespace panoval::test
