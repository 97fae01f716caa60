// SPDX-License-Identifier: MIT
// A landscape worth looking at, painted from back to front: sky with clouds and a low sun, mountains, woods, a town
// with a bridge, all of it mirrored in a lake, and a bank with trees in front. Every size is in units of the full
// picture of 4000 x 1300; a smaller picture is the same scene on fewer pixels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::scene
{

inline constexpr float kSceneWidth = 4000.f;
inline constexpr float kSceneHeight = 1300.f;

struct Color {
    float r, g, b; // 0 to 1, as displayed

    friend Color operator+(Color a, Color c) { return {a.r + c.r, a.g + c.g, a.b + c.b}; }
    friend Color operator*(Color a, float f) { return {a.r * f, a.g * f, a.b * f}; }
    friend Color operator*(Color a, Color c) { return {a.r * c.r, a.g * c.g, a.b * c.b}; }
};

inline Color mix(Color a, Color b, float share_of_b)
{
    return a * (1.f - share_of_b) + b * share_of_b;
}

class Canvas
{
public:
    Canvas(int width, int height);

    int width() const { return width_; }
    int height() const { return height_; }
    float pixels_per_unit() const { return scale_; }

    // The scene's coordinates of a pixel's centre.
    float u(int x) const { return (static_cast<float>(x) + 0.5f) / scale_; }
    float v(int y) const { return (static_cast<float>(y) + 0.5f) / scale_; }

    // The columns or rows whose centres may lie between two coordinates, cut to the picture.
    int first_column(float u) const;
    int end_column(float u) const;
    int first_row(float v) const;
    int end_row(float v) const;

    Color get(int x, int y) const;
    void set(int x, int y, Color color);
    void blend(int x, int y, Color color, float coverage) { set(x, y, mix(get(x, y), color, coverage)); }

    // How much of a pixel lies on the positive side of an edge that is `distance` units away.
    float coverage(float distance) const;

private:
    std::size_t index(int x, int y) const;

    int width_;
    int height_;
    float scale_;
    std::vector<Color> colors_;
};

// The whole scene.
void paint_scene(Canvas& canvas);

// Its parts, in the order of painting.
void paint_sky(Canvas& canvas);
void paint_mountains(Canvas& canvas);
void paint_woods(Canvas& canvas);
void paint_town(Canvas& canvas);
void paint_bridge(Canvas& canvas);
void paint_balloons(Canvas& canvas);
void paint_lake(Canvas& canvas);
void paint_bank(Canvas& canvas);

// Where things are.
inline constexpr float kShore = 770.f; // the far shore of the lake
inline constexpr float kSunU = 3060.f;
inline constexpr float kSunV = 520.f;

} // namespace panoval::scene
