// SPDX-License-Identifier: MIT
// What closed lines of equal level enclose, whatever its form: how far it reaches in sixteen directions. What lies
// beside a target tells what the target is part of.
#pragma once

#include "measure/outline.h"

#include <array>
#include <cstddef>
#include <vector>

namespace panoval::measure
{

struct Point {
    double x, y;
};

// A direction, as a share of each of the two known ones beside it.
struct Bearing {
    Point unit;
    std::size_t sector;
    double shares[2];
};

Bearing bearing_of(const Point& direction) noexcept; // of any length but 0

struct Silhouette {
    static constexpr std::size_t kDirections = 16;
    static constexpr double kLongest = 200; // pixels; nothing longer is collected

    float x = 0; // the middle of its box, pixels
    float y = 0;
    float level = 0; // of the line
    bool is_dark = true;
    std::array<float, kDirections> reach{}; // from the middle, from +x towards +y

    double reach_towards(const Bearing& bearing) const noexcept
    {
        const auto one = static_cast<double>(reach[bearing.sector]);
        const auto other = static_cast<double>(reach[(bearing.sector + 1) % kDirections]);
        return one * bearing.shares[0] + other * bearing.shares[1];
    }
    double along(const Bearing& bearing) const noexcept
    {
        return static_cast<double>(x) * bearing.unit.x + static_cast<double>(y) * bearing.unit.y;
    }
    double longest() const noexcept; // of its widths
    double shortest() const noexcept;
    bool encloses(double px, double py) const noexcept; // in the hull of it
};

// Collects a line's points.
class SilhouetteOf
{
public:
    void add(double x, double y) noexcept;

    // level  of the line; nothing else is known of it
    Silhouette result(double level, bool is_dark) const noexcept;

private:
    static constexpr std::size_t kAxes = Silhouette::kDirections / 2;
    std::array<float, kAxes> lowest_ = filled(1e9f);
    std::array<float, kAxes> highest_ = filled(-1e9f);

    static constexpr std::array<float, kAxes> filled(float value) noexcept
    {
        std::array<float, kAxes> all{};
        for (float& one : all)
            one = value;
        return all;
    }
};

Silhouette silhouette_of(const Outline& outline, double level, bool is_dark) noexcept;

// Those near to a place.
class SilhouetteMap
{
public:
    explicit SilhouetteMap(std::vector<Silhouette> all);

    const std::vector<Silhouette>& all() const noexcept { return all_; }

    // Indices of those whose middles are in the square of that half side, in their order.
    void find_near(double x, double y, double half_side, std::vector<std::size_t>& found) const;

private:
    std::vector<Silhouette> all_; // by strips, then by x
};

} // namespace panoval::measure
