// SPDX-License-Identifier: MIT
// Seeded noise for the scene generator: random numbers, smooth noise in one and two dimensions, and fractal sums of it.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace panoval::scene
{

inline float smoothstep(float low, float high, float x)
{
    const float t = std::clamp((x - low) / (high - low), 0.f, 1.f);
    return t * t * (3.f - 2.f * t);
}

// A well mixed 32-bit number of two whole coordinates and a seed.
inline std::uint32_t hash(std::int32_t x, std::int32_t y, std::uint32_t seed)
{
    std::uint32_t h =
        static_cast<std::uint32_t>(x) * 0x8DA6B343u ^ static_cast<std::uint32_t>(y) * 0xD8163841u ^ seed * 0xCB1AB31Fu;
    h = (h ^ (h >> 15)) * 0x2C1B3C6Du;
    h = (h ^ (h >> 12)) * 0x297A2D39u;
    return h ^ (h >> 15);
}

// 0 included, 1 excluded.
inline float hash_unit(std::int32_t x, std::int32_t y, std::uint32_t seed)
{
    return static_cast<float>(hash(x, y, seed) >> 8) * 0x1p-24f;
}

// Gradient noise, about -0.7 to 0.7, with features of the size 1.
inline float noise(float x, float y, std::uint32_t seed)
{
    static constexpr float kDirections[8][2] = {{1.f, 0.f},  {0.7f, 0.7f},   {0.f, 1.f},  {-0.7f, 0.7f},
                                                {-1.f, 0.f}, {-0.7f, -0.7f}, {0.f, -1.f}, {0.7f, -0.7f}};
    const float floor_x = std::floor(x);
    const float floor_y = std::floor(y);
    const auto cell_x = static_cast<std::int32_t>(floor_x);
    const auto cell_y = static_cast<std::int32_t>(floor_y);
    const float fx = x - floor_x;
    const float fy = y - floor_y;
    const auto corner = [&](std::int32_t dx, std::int32_t dy) {
        const float* const direction = kDirections[hash(cell_x + dx, cell_y + dy, seed) & 7u];
        return direction[0] * (fx - static_cast<float>(dx)) + direction[1] * (fy - static_cast<float>(dy));
    };
    const float wx = fx * fx * fx * (fx * (fx * 6.f - 15.f) + 10.f);
    const float wy = fy * fy * fy * (fy * (fy * 6.f - 15.f) + 10.f);
    const float top = corner(0, 0) + wx * (corner(1, 0) - corner(0, 0));
    const float bottom = corner(0, 1) + wx * (corner(1, 1) - corner(0, 1));
    return top + wy * (bottom - top);
}

// Octaves of noise, each twice as fine and half as strong.
inline float fractal(float x, float y, int octaves, std::uint32_t seed)
{
    float sum = 0.f;
    float strength = 1.f;
    for (int i = 0; i < octaves; ++i) {
        sum += strength * noise(x, y, seed + static_cast<std::uint32_t>(i));
        strength *= 0.5f;
        x *= 2.03f;
        y *= 2.03f;
    }
    return sum;
}

// Octaves folded at zero, so that the noise has sharp crests, as mountains do; about 0 to 1.
inline float ridged(float x, float y, int octaves, std::uint32_t seed)
{
    float sum = 0.f;
    float strength = 0.5f;
    float carry = 1.f;
    for (int i = 0; i < octaves; ++i) {
        float crest = 1.f - std::fabs(1.6f * noise(x, y, seed + static_cast<std::uint32_t>(i)));
        crest *= crest * carry;
        sum += strength * crest;
        carry = std::clamp(crest * 1.4f, 0.f, 1.f);
        strength *= 0.5f;
        x *= 2.1f;
        y *= 2.1f;
    }
    return sum;
}

} // namespace panoval::scene
