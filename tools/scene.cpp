// SPDX-License-Identifier: MIT
// The canvas, and the parts of the scene that nature made: sky, mountains, lake.
#include "tools/scene.h"

#include "tools/scene_noise.h"

#include <algorithm>
#include <cmath>

namespace panoval::scene
{

Canvas::Canvas(int width, int height)
    : width_(width), height_(height), scale_(static_cast<float>(width) / kSceneWidth),
      colors_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height))
{
}

std::size_t Canvas::index(int x, int y) const
{
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x);
}

int Canvas::first_column(float u) const
{
    return std::clamp(static_cast<int>(std::floor(u * scale_)) - 1, 0, width_);
}

int Canvas::end_column(float u) const
{
    return std::clamp(static_cast<int>(std::ceil(u * scale_)) + 1, 0, width_);
}

int Canvas::first_row(float v) const
{
    return std::clamp(static_cast<int>(std::floor(v * scale_)) - 1, 0, height_);
}

int Canvas::end_row(float v) const
{
    return std::clamp(static_cast<int>(std::ceil(v * scale_)) + 1, 0, height_);
}

Color Canvas::get(int x, int y) const
{
    return colors_[index(x, y)];
}

void Canvas::set(int x, int y, Color color)
{
    colors_[index(x, y)] = color;
}

float Canvas::coverage(float distance) const
{
    return std::clamp(distance * scale_ + 0.5f, 0.f, 1.f);
}

namespace
{

constexpr Color kZenith = {0.20f, 0.36f, 0.60f};
constexpr Color kMidSky = {0.50f, 0.63f, 0.76f};
constexpr Color kLowSky = {0.94f, 0.76f, 0.58f};
constexpr Color kSunlight = {1.f, 0.88f, 0.64f};

float distance_to_sun(float u, float v)
{
    return std::hypot(u - kSunU, v - kSunV);
}

Color clear_sky(float u, float v)
{
    const float low = std::clamp(v / kShore, 0.f, 1.f);
    const Color base = mix(mix(kZenith, kMidSky, smoothstep(0.f, 0.55f, low)), kLowSky, smoothstep(0.4f, 1.f, low));
    const float d = distance_to_sun(u, v);
    const float glow = 0.75f * std::exp(-d / 120.f) + 0.34f * std::exp(-d / 620.f);
    return mix(base, kSunlight, std::min(glow, 0.9f));
}

// Clouds lie on a plane overhead, so that they shrink towards the horizon.
float cloud_density(float u, float v)
{
    const float distance = 1000.f / (kShore + 90.f - v);
    const float x = (u - 2000.f) * distance * 0.00125f;
    const float y = distance * 2.1f;
    const float bend = 0.6f * fractal(x * 0.7f, y * 0.7f, 3, 11);
    return fractal(x + bend, y + 0.5f * bend, 7, 23) + 0.08f;
}

Color sky_color(float u, float v)
{
    const Color clear = clear_sky(u, v);
    const float density = cloud_density(u, v);
    const float cover = smoothstep(0.02f, 0.42f, density) * smoothstep(kShore - 60.f, kShore - 260.f, v);
    if (cover <= 0.f)
        return clear;
    // The side that faces the sun is where the cloud gets thinner towards it.
    const float d = std::max(distance_to_sun(u, v), 1.f);
    const float thinner = density - cloud_density(u + 26.f * (kSunU - u) / d, v + 26.f * (kSunV - v) / d);
    const float light = std::clamp(0.62f + 2.2f * thinner - 0.55f * density, 0.f, 1.f);
    const float warmth = std::exp(-d / 1300.f);
    const Color shadow = mix({0.50f, 0.53f, 0.62f}, {0.62f, 0.50f, 0.50f}, warmth);
    const Color lit = mix({0.90f, 0.90f, 0.91f}, {1.f, 0.86f, 0.68f}, warmth);
    return mix(clear, mix(shadow, lit, light), 0.93f * cover);
}

// One range of mountains against what lies behind it.
struct Range {
    float base;     // v of its mean crest
    float strength; // of its ups and downs
    float width;    // of a mountain
    std::uint32_t seed;
    Color rock;
    float haze; // share of the air's colour
    float snow; // height above the base where snow begins; very high for none
};

constexpr Range kRanges[] = {
    {640.f, 420.f, 900.f, 101, {0.36f, 0.37f, 0.43f}, 0.50f, 92.f},
    {690.f, 240.f, 620.f, 211, {0.30f, 0.33f, 0.36f}, 0.38f, 190.f},
    {735.f, 150.f, 420.f, 307, {0.25f, 0.31f, 0.27f}, 0.24f, 1e6f},
};

float crest_of(const Range& range, float u)
{
    const float x = u / range.width;
    const float massif = 0.35f + 0.65f * smoothstep(-0.35f, 0.45f, fractal(x * 0.32f, 0.7f, 2, range.seed + 50));
    return range.base - range.strength * massif * ridged(x, 0.3f, 8, range.seed);
}

Color rock_color(const Range& range, float u, float v, float crest)
{
    // Light comes from the right: it falls on what rises towards it, great ridges and the rough rock on them.
    const float x = u / 130.f;
    const float y = (v - crest) / 95.f + 0.002f * u;
    const float ridge =
        ridged(x + 0.10f, y - 0.05f, 6, range.seed + 7) - ridged(x - 0.02f, y + 0.02f, 6, range.seed + 7);
    const float rough = fractal((u + 2.2f) / 190.f, (v - 0.8f) / 130.f, 8, range.seed + 3) -
                        fractal((u - 2.2f) / 190.f, (v + 0.8f) / 130.f, 8, range.seed + 3);
    const float light = std::clamp(0.86f - 2.1f * ridge - 3.4f * rough, 0.22f, 1.55f);
    const float grain = 1.f + 0.12f * noise(u / 2.6f, v / 2.6f, range.seed + 9);
    const float height = range.base - v + 70.f * fractal(u / 90.f, v / 60.f, 5, range.seed + 13);
    const Color snow = {0.86f, 0.88f, 0.93f};
    const Color ground = mix(range.rock, snow, smoothstep(range.snow - 14.f, range.snow + 18.f, height));
    const Color sunny = {1.08f, 0.99f, 0.86f};
    const Color shaded = {0.78f, 0.86f, 1.02f};
    return ground * (light * grain) * mix(shaded, sunny, std::clamp(light - 0.3f, 0.f, 1.f));
}

void paint_range(Canvas& canvas, const Range& range)
{
    for (int x = 0; x < canvas.width(); ++x) {
        const float u = canvas.u(x);
        const float crest = crest_of(range, u);
        for (int y = canvas.first_row(crest); y < canvas.end_row(kShore); ++y) {
            const float v = canvas.v(y);
            const float cover = canvas.coverage(v - crest);
            if (cover <= 0.f)
                continue;
            const float mist = range.haze + 0.30f * smoothstep(crest, kShore + 30.f, v);
            const Color air =
                mix({0.62f, 0.68f, 0.78f}, {0.93f, 0.78f, 0.60f}, 0.85f * std::exp(-std::fabs(u - kSunU) / 900.f));
            canvas.blend(x, y, mix(rock_color(range, u, v, crest), air, std::min(mist, 0.9f)), cover);
        }
    }
}

// What the lake mirrors at a point, by whole pixels and between two of them.
Color mirrored(const Canvas& canvas, float u, float v)
{
    const float px = std::clamp(u * canvas.pixels_per_unit() - 0.5f, 0.f, static_cast<float>(canvas.width() - 1));
    const float py = std::clamp(v * canvas.pixels_per_unit() - 0.5f, 0.f, static_cast<float>(canvas.height() - 1));
    const int x = static_cast<int>(px);
    const int y = static_cast<int>(py);
    const int x1 = std::min(x + 1, canvas.width() - 1);
    const int y1 = std::min(y + 1, canvas.height() - 1);
    const float fx = px - static_cast<float>(x);
    const float fy = py - static_cast<float>(y);
    return mix(mix(canvas.get(x, y), canvas.get(x1, y), fx), mix(canvas.get(x, y1), canvas.get(x1, y1), fx), fy);
}

Color lake_color(const Canvas& canvas, float u, float v)
{
    const float depth = v - kShore;
    const float near = depth / (kSceneHeight - kShore);
    // Waves look longer and flatter the farther they are.
    const float across = u / (14.f + 90.f * near);
    const float along = 260.f / (depth + 14.f);
    const float wave = fractal(across, along * 5.f + depth / (3.f + 14.f * near), 5, 401);
    const float calm = 0.35f + 0.65f * smoothstep(-0.25f, 0.25f, fractal(u / 700.f, depth / 45.f, 3, 409));
    const float swing = wave * calm * (3.f + 46.f * near);
    const Color seen = mirrored(canvas, u + 0.35f * swing, kShore - 0.92f * depth - 1.5f - swing);
    const Color water = {0.10f, 0.20f, 0.27f};
    Color color = mix(seen * Color{0.84f, 0.88f, 0.92f}, water, 0.16f + 0.40f * near + 0.16f * wave);
    const float streak = std::exp(-std::fabs(u - kSunU) / (26.f + 190.f * near));
    const float sparkle = smoothstep(0.16f, 0.42f, wave + 0.10f * noise(u / 3.f, v / 2.f, 419));
    return mix(color, {1.f, 0.87f, 0.62f}, std::min(0.9f, streak * (0.16f + 0.75f * sparkle)));
}

// Brighter in the middle tones and a little more colourful, as cameras deliver it.
void develop(Canvas& canvas)
{
    const auto lift = [](float value) { return std::pow(std::clamp(value, 0.f, 1.f), 0.74f); };
    for (int y = 0; y < canvas.height(); ++y)
        for (int x = 0; x < canvas.width(); ++x) {
            const Color color = canvas.get(x, y);
            const Color lifted = {lift(color.r), lift(color.g), lift(color.b)};
            const float grey = 0.3f * lifted.r + 0.59f * lifted.g + 0.11f * lifted.b;
            canvas.set(x, y, mix({grey, grey, grey}, lifted, 1.22f));
        }
}

} // namespace

void paint_sky(Canvas& canvas)
{
    for (int y = 0; y < canvas.height(); ++y)
        for (int x = 0; x < canvas.width(); ++x) {
            const float u = canvas.u(x);
            const float v = std::min(canvas.v(y), kShore);
            canvas.set(x, y, sky_color(u, v));
            canvas.blend(x, y, {1.f, 0.98f, 0.90f}, canvas.coverage(34.f - distance_to_sun(u, v)));
        }
}

void paint_mountains(Canvas& canvas)
{
    for (const Range& range : kRanges)
        paint_range(canvas, range);
}

void paint_lake(Canvas& canvas)
{
    for (int y = canvas.first_row(kShore); y < canvas.height(); ++y) {
        const float v = canvas.v(y);
        const float cover = canvas.coverage(v - kShore);
        for (int x = 0; cover > 0.f && x < canvas.width(); ++x)
            canvas.blend(x, y, lake_color(canvas, canvas.u(x), std::max(v, kShore)), cover);
    }
}

void paint_scene(Canvas& canvas)
{
    paint_sky(canvas);
    paint_mountains(canvas);
    paint_woods(canvas);
    paint_town(canvas);
    paint_bridge(canvas);
    paint_balloons(canvas);
    paint_lake(canvas);
    paint_bank(canvas);
    develop(canvas);
}

} // namespace panoval::scene
