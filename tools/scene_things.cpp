// SPDX-License-Identifier: MIT
// The parts of the scene with outlines: trees, houses, the bridge, balloons, and the bank in front.
#include "tools/scene.h"
#include "tools/scene_noise.h"

#include <algorithm>
#include <cmath>

namespace panoval::scene
{

namespace
{

void fill_box(Canvas& canvas, float left, float top, float right, float bottom, Color color)
{
    for (int y = canvas.first_row(top); y < canvas.end_row(bottom); ++y)
        for (int x = canvas.first_column(left); x < canvas.end_column(right); ++x) {
            const float cover = canvas.coverage(canvas.u(x) - left) * canvas.coverage(right - canvas.u(x)) *
                                canvas.coverage(canvas.v(y) - top) * canvas.coverage(bottom - canvas.v(y));
            if (cover > 0.f)
                canvas.blend(x, y, color, cover);
        }
}

// ---- woods ----

struct TreeRow {
    float spacing;
    float height;
    std::uint32_t seed;
    Color color;
};

// How high the row's firs reach at u, and how much of the sun falls there.
float tree_top(const TreeRow& row, float u, float& light)
{
    float best = 0.f;
    const auto cell = static_cast<std::int32_t>(std::floor(u / row.spacing));
    for (std::int32_t i = cell - 2; i <= cell + 2; ++i) {
        const float center = (static_cast<float>(i) + hash_unit(i, 1, row.seed)) * row.spacing;
        const float height = row.height * (0.55f + 0.45f * hash_unit(i, 2, row.seed));
        const float half_width = height * 0.24f;
        const float across = (u - center) / half_width;
        const float ragged = 0.10f * (hash_unit(static_cast<std::int32_t>(u / 1.7f), i, row.seed) - 0.5f);
        const float top = height * (1.f - std::fabs(across) + ragged);
        if (top > best) {
            best = top;
            light = 0.80f + 0.30f * std::clamp(across, -1.f, 1.f) + 0.25f * (hash_unit(i, 3, row.seed) - 0.5f);
        }
    }
    return best;
}

template <class Ground>
void paint_tree_row(Canvas& canvas, const TreeRow& row, float bottom, const Ground& ground)
{
    for (int x = 0; x < canvas.width(); ++x) {
        const float u = canvas.u(x);
        float light = 0.8f;
        const float base = ground(u);
        const float top = base - tree_top(row, u, light);
        for (int y = canvas.first_row(top); y < canvas.end_row(bottom); ++y) {
            const float v = canvas.v(y);
            const float needles = 1.f + 0.35f * noise(u / 2.3f, v / 3.1f, row.seed + 5);
            const float shade = light * needles * (1.f - 0.35f * smoothstep(top, base + 10.f, v));
            canvas.blend(x, y, row.color * shade, canvas.coverage(v - top));
        }
    }
}

// ---- town ----

struct House {
    float left, width, top;
    Color color;
    float window_width, floor_height;
    std::uint32_t seed;
};

Color pane_color(const House& house, std::int32_t column, std::int32_t floor, float haze)
{
    const float chance = hash_unit(column, floor, house.seed);
    const Color lamp = mix({0.99f, 0.80f, 0.45f}, {0.98f, 0.91f, 0.72f}, hash_unit(column, floor, house.seed + 1));
    const Color glass = mix({0.17f, 0.22f, 0.30f}, {0.55f, 0.60f, 0.66f}, hash_unit(column, floor, house.seed + 2));
    return mix(chance < 0.22f ? lamp : glass, {0.70f, 0.68f, 0.68f}, haze);
}

// A front with windows, and a side that lies in the shade.
void paint_house(Canvas& canvas, const House& house, float haze)
{
    const float right = house.left + house.width;
    const float corner = house.left + 0.27f * house.width;
    for (int y = canvas.first_row(house.top); y < canvas.end_row(kShore); ++y)
        for (int x = canvas.first_column(house.left); x < canvas.end_column(right); ++x) {
            const float u = canvas.u(x);
            const float v = canvas.v(y);
            const bool is_front = u >= corner;
            const float cover =
                canvas.coverage(u - house.left) * canvas.coverage(right - u) * canvas.coverage(v - house.top);
            if (cover <= 0.f)
                continue;
            const float plaster = 1.f + 0.05f * noise(u / 4.f, v / 4.f, house.seed);
            const float fall = 1.f - 0.18f * smoothstep(house.top, kShore, v);
            const Color wall =
                mix(house.color * ((is_front ? 1.04f : 0.62f) * plaster * fall), {0.74f, 0.71f, 0.70f}, haze);
            const float pane_width = is_front ? house.window_width : 0.72f * house.window_width;
            const float across = (u - (is_front ? corner : house.left)) / pane_width;
            const float down = (v - house.top - 7.f) / house.floor_height;
            const float fx = across - std::floor(across);
            const float fy = down - std::floor(down);
            const float pane = down < 0.f ? 0.f
                                          : canvas.coverage((0.33f - std::fabs(fx - 0.5f)) * pane_width) *
                                                canvas.coverage((0.32f - std::fabs(fy - 0.5f)) * house.floor_height);
            const auto column = static_cast<std::int32_t>(std::floor(across)) + (is_front ? 100 : 0);
            const Color window =
                pane_color(house, column, static_cast<std::int32_t>(std::floor(down)), haze) * (is_front ? 1.f : 0.75f);
            canvas.blend(x, y, mix(wall, window, pane), cover);
        }
    fill_box(canvas, house.left - 1.5f, house.top - 3.f, right + 1.5f, house.top + 1.f,
             mix(house.color * 0.55f, {0.74f, 0.71f, 0.70f}, haze));
    if (house.seed % 3 == 0) // something on the roof
        fill_box(canvas, corner, house.top - 14.f, corner + 0.3f * house.width, house.top - 2.f,
                 mix(house.color * 0.8f, {0.74f, 0.71f, 0.70f}, haze));
    if (house.seed % 4 == 1)
        fill_box(canvas, corner + 6.f, house.top - 46.f, corner + 7.8f, house.top - 2.f, {0.34f, 0.34f, 0.38f});
}

void paint_house_row(Canvas& canvas, float first, float last, float highest, float haze, std::uint32_t seed)
{
    constexpr Color kColors[] = {{0.74f, 0.66f, 0.58f}, {0.62f, 0.46f, 0.40f}, {0.80f, 0.77f, 0.72f},
                                 {0.50f, 0.55f, 0.62f}, {0.70f, 0.58f, 0.44f}, {0.58f, 0.60f, 0.60f}};
    std::int32_t i = 0;
    for (float left = first; left < last; ++i) {
        House house{};
        house.seed = hash(i, 7, seed);
        house.left = left;
        house.width = 42.f + 58.f * hash_unit(i, 1, seed);
        const float middle = 1.f - std::fabs(2.f * (left - first) / (last - first) - 1.f);
        house.top = kShore - 34.f - highest * (0.18f + 0.82f * middle * hash_unit(i, 2, seed));
        house.color = kColors[hash(i, 3, seed) % 6];
        house.window_width = 8.f + 6.f * hash_unit(i, 4, seed);
        house.floor_height = 11.f + 6.f * hash_unit(i, 5, seed);
        paint_house(canvas, house, haze);
        left += house.width + (hash_unit(i, 6, seed) < 0.3f ? 14.f : -2.f);
    }
}

// ---- bridge ----

constexpr float kTowers[2] = {2700.f, 3420.f};
constexpr float kDeck = 722.f;
constexpr float kTowerTop = 470.f;

// The main cable's height at u: it hangs between the towers and runs straight down outside.
float cable_at(float u)
{
    const float middle = 0.5f * (kTowers[0] + kTowers[1]);
    const float half = 0.5f * (kTowers[1] - kTowers[0]);
    const float t = std::fabs(u - middle) / half;
    if (t <= 1.f)
        return kDeck - 16.f - (kDeck - 16.f - kTowerTop) * t * t;
    return kTowerTop + (kDeck - kTowerTop) * std::min((t - 1.f) * half / 420.f, 1.f);
}

// ---- balloons ----

struct Balloon {
    float u, v, radius;
    Color first, second;
};

constexpr Balloon kBalloons[] = {
    {1330.f, 215.f, 46.f, {0.82f, 0.22f, 0.18f}, {0.96f, 0.86f, 0.66f}},
    {1720.f, 330.f, 25.f, {0.16f, 0.42f, 0.66f}, {0.95f, 0.80f, 0.30f}},
    {2240.f, 160.f, 34.f, {0.20f, 0.55f, 0.42f}, {0.94f, 0.90f, 0.82f}},
    {620.f, 300.f, 21.f, {0.86f, 0.52f, 0.16f}, {0.42f, 0.20f, 0.42f}},
};

void paint_balloon(Canvas& canvas, const Balloon& balloon)
{
    const float r = balloon.radius;
    for (int y = canvas.first_row(balloon.v - r); y < canvas.end_row(balloon.v + 1.3f * r); ++y)
        for (int x = canvas.first_column(balloon.u - r); x < canvas.end_column(balloon.u + r); ++x) {
            const float du = (canvas.u(x) - balloon.u) / r;
            const float dv = (canvas.v(y) - balloon.v) / r;
            // Round above, drawn to a point below.
            const float half_width = dv < 0.f ? std::sqrt(std::max(0.f, 1.f - dv * dv))
                                              : std::sqrt(std::max(0.f, 1.f - dv * dv / 1.69f)) * (1.f - 0.22f * dv);
            const float cover = canvas.coverage((half_width - std::fabs(du)) * r);
            if (cover <= 0.f || half_width <= 0.f)
                continue;
            const float turn = std::asin(std::clamp(du / half_width, -1.f, 1.f));
            const bool is_first = static_cast<int>(std::floor((turn + 3.2f) * 3.1f)) % 2 == 0;
            const float light = 0.72f + 0.36f * std::clamp(0.8f * du - 0.45f * dv, -0.6f, 0.8f);
            canvas.blend(x, y, (is_first ? balloon.first : balloon.second) * light, cover);
        }
    fill_box(canvas, balloon.u - 0.13f * r, balloon.v + 1.48f * r, balloon.u + 0.13f * r, balloon.v + 1.68f * r,
             {0.34f, 0.24f, 0.17f});
    for (const float side : {-0.12f, 0.10f})
        fill_box(canvas, balloon.u + side * r, balloon.v + 1.22f * r, balloon.u + (side + 0.02f) * r,
                 balloon.v + 1.5f * r, {0.34f, 0.26f, 0.22f});
}

// ---- bank ----

float bank_at(float u)
{
    const float middle = std::fabs(u - 1900.f) / 2000.f;
    return 1205.f - 95.f * middle * middle + 34.f * fractal(u / 520.f, 0.4f, 4, 509);
}

Color bank_color(float u, float v, float edge)
{
    const float depth = v - edge;
    const float patches = fractal(u / 150.f, v / 60.f, 5, 521);
    const float blades = noise(u / 2.2f + 3.f * noise(u / 30.f, v / 30.f, 541), v / 13.f, 523);
    const Color grass = mix({0.20f, 0.27f, 0.10f}, {0.47f, 0.45f, 0.18f}, smoothstep(-0.3f, 0.4f, patches));
    Color color = grass * (0.80f + 0.55f * blades + 0.16f * noise(u / 1.3f, v / 1.7f, 547));
    const float stones = noise(u / 17.f, v / 9.f, 557);
    const float near_water = smoothstep(34.f, 4.f, depth + 12.f * patches);
    color = mix(color, Color{0.52f, 0.49f, 0.44f} * (0.75f + 0.6f * stones), near_water);
    const auto cell_u = static_cast<std::int32_t>(u / 9.f);
    const auto cell_v = static_cast<std::int32_t>(v / 7.f);
    const float bloom = std::hypot(u - (static_cast<float>(cell_u) + 0.5f) * 9.f,
                                   1.3f * (v - (static_cast<float>(cell_v) + 0.5f) * 7.f));
    if (depth > 40.f && hash_unit(cell_u, cell_v, 563) < 0.10f + 0.16f * patches)
        color =
            mix(color, hash_unit(cell_u, cell_v, 569) < 0.5f ? Color{0.90f, 0.78f, 0.30f} : Color{0.84f, 0.44f, 0.52f},
                smoothstep(2.9f, 1.9f, bloom));
    return color;
}

// A fir of branches that hang in tiers.
void paint_fir(Canvas& canvas, float foot_u, float foot_v, float height, std::uint32_t seed)
{
    const float half_width = 0.21f * height;
    for (int y = canvas.first_row(foot_v - height); y < canvas.end_row(foot_v); ++y) {
        const float v = canvas.v(y);
        const float down = (v - (foot_v - height)) / height;
        if (down < 0.f || down > 0.95f)
            continue;
        for (int x = canvas.first_column(foot_u - half_width); x < canvas.end_column(foot_u + half_width); ++x) {
            const float across = canvas.u(x) - foot_u;
            const float tier = down * 15.f + 0.35f * std::fabs(across) / half_width;
            const float swing = 0.62f + 0.38f * (tier - std::floor(tier));
            const float ragged = 0.72f + 0.75f * noise(canvas.u(x) / 7.f, v / 4.f, seed);
            const float reach = half_width * std::pow(down, 0.85f) * swing * ragged + 1.2f;
            const float cover = canvas.coverage(reach - std::fabs(across));
            const float light = 0.62f + 0.55f * std::clamp(across / half_width, -0.7f, 1.f) +
                                0.65f * noise(canvas.u(x) / 2.6f, v / 3.4f, seed + 1) - 0.25f * (1.f - swing);
            canvas.blend(x, y, Color{0.135f, 0.205f, 0.125f} * std::max(light + 0.35f, 0.25f), cover);
        }
    }
    fill_box(canvas, foot_u - 0.012f * height, foot_v - 0.06f * height, foot_u + 0.012f * height, foot_v,
             {0.20f, 0.15f, 0.11f});
}

} // namespace

void paint_woods(Canvas& canvas)
{
    constexpr int kRows = 7;
    for (int i = 0; i < kRows; ++i) {
        const auto t = static_cast<float>(i) / (kRows - 1);
        const auto seed = static_cast<std::uint32_t>(601 + 17 * i);
        const Color far = {0.36f, 0.42f, 0.38f};
        const Color near = {0.15f, 0.23f, 0.13f};
        const TreeRow row{6.5f + 2.5f * t, 17.f + 12.f * t, seed, mix(far, near, t)};
        paint_tree_row(canvas, row, kShore, [&](float u) {
            const float hill = 92.f * smoothstep(-0.35f, 0.45f, fractal(u / 830.f, 3.1f, 4, 613));
            return kShore - 6.f - (1.f - t) * (18.f + hill);
        });
    }
}

void paint_town(Canvas& canvas)
{
    paint_house_row(canvas, 930.f, 2420.f, 300.f, 0.42f, 701);
    paint_house_row(canvas, 860.f, 2500.f, 205.f, 0.18f, 709);
    paint_house_row(canvas, 800.f, 2560.f, 60.f, 0.06f, 719);
    fill_box(canvas, 780.f, kShore - 7.f, 2600.f, kShore, {0.40f, 0.38f, 0.36f}); // the quay
}

void paint_bridge(Canvas& canvas)
{
    constexpr Color kPaint = {0.56f, 0.24f, 0.18f};
    constexpr float kReach = 420.f;
    for (float u = kTowers[0] - kReach; u < kTowers[1] + kReach; u += 20.f)
        if (std::fabs(u - kTowers[0]) > 10.f && std::fabs(u - kTowers[1]) > 10.f)
            fill_box(canvas, u - 0.7f, cable_at(u), u + 0.7f, kDeck, kPaint * 0.9f);
    for (int x = canvas.first_column(kTowers[0] - kReach); x < canvas.end_column(kTowers[1] + kReach); ++x) {
        const float cable = cable_at(canvas.u(x));
        const float steepness = std::fabs(cable_at(canvas.u(x) + 1.f) - cable);
        const float half = 2.4f * std::sqrt(1.f + steepness * steepness);
        for (int y = canvas.first_row(cable - half); y < canvas.end_row(cable + half); ++y)
            canvas.blend(x, y, kPaint, canvas.coverage(half - std::fabs(canvas.v(y) - cable)));
    }
    fill_box(canvas, kTowers[0] - kReach - 60.f, kDeck - 4.f, kTowers[1] + kReach + 60.f, kDeck + 9.f, kPaint * 0.8f);
    fill_box(canvas, kTowers[0] - kReach - 60.f, kDeck + 5.f, kTowers[1] + kReach + 60.f, kDeck + 9.f, kPaint * 0.5f);
    for (const float tower : kTowers) {
        for (const float side : {-15.f, 9.f})
            fill_box(canvas, tower + side, kTowerTop - 20.f, tower + side + 7.f, kShore + 2.f,
                     kPaint * (side > 0.f ? 1.05f : 0.8f));
        for (const float beam : {466.f, 548.f, 630.f})
            fill_box(canvas, tower - 15.f, beam, tower + 16.f, beam + 9.f, kPaint * 0.9f);
        fill_box(canvas, tower - 24.f, kShore - 16.f, tower + 25.f, kShore, {0.46f, 0.43f, 0.40f});
    }
}

void paint_balloons(Canvas& canvas)
{
    for (const Balloon& balloon : kBalloons)
        paint_balloon(canvas, balloon);
}

void paint_bank(Canvas& canvas)
{
    for (int x = 0; x < canvas.width(); ++x) {
        const float u = canvas.u(x);
        const float edge = bank_at(u) + 3.f * noise(u / 5.f, 0.f, 571);
        for (int y = canvas.first_row(edge); y < canvas.height(); ++y)
            canvas.blend(x, y, bank_color(u, canvas.v(y), edge), canvas.coverage(canvas.v(y) - edge));
    }
    struct Fir {
        float u, height;
    };
    for (const Fir fir :
         {Fir{96.f, 560.f}, Fir{215.f, 430.f}, Fir{330.f, 300.f}, Fir{520.f, 200.f}, Fir{3905.f, 620.f},
          Fir{3780.f, 420.f}, Fir{3660.f, 330.f}, Fir{3520.f, 190.f}, Fir{30.f, 380.f}, Fir{3975.f, 400.f}})
        paint_fir(canvas, fir.u, bank_at(fir.u) + 26.f + 0.03f * fir.height, fir.height,
                  static_cast<std::uint32_t>(fir.u) + 3u);
}

} // namespace panoval::scene
