// SPDX-License-Identifier: MIT
// Between two known directions the hull is taken to have a corner, which is right for corners and two per cent too much
// for circles.
#include "measure/silhouette.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

namespace panoval::measure
{

namespace
{

constexpr double kStrip = 32;                    // pixels
constexpr double kSine = 0.38268343236508977173; // of pi / 8, between two directions
constexpr std::array<Point, Silhouette::kDirections> kUnits = {{{1, 0},
                                                                {0.92387953251128675613, 0.38268343236508977173},
                                                                {0.70710678118654752440, 0.70710678118654752440},
                                                                {0.38268343236508977173, 0.92387953251128675613},
                                                                {0, 1},
                                                                {-0.38268343236508977173, 0.92387953251128675613},
                                                                {-0.70710678118654752440, 0.70710678118654752440},
                                                                {-0.92387953251128675613, 0.38268343236508977173},
                                                                {-1, 0},
                                                                {-0.92387953251128675613, -0.38268343236508977173},
                                                                {-0.70710678118654752440, -0.70710678118654752440},
                                                                {-0.38268343236508977173, -0.92387953251128675613},
                                                                {0, -1},
                                                                {0.38268343236508977173, -0.92387953251128675613},
                                                                {0.70710678118654752440, -0.70710678118654752440},
                                                                {0.92387953251128675613, -0.38268343236508977173}}};

double cross(const Point& one, const Point& other) noexcept
{
    return one.x * other.y - one.y * other.x;
}

double strip_of(double y) noexcept
{
    return std::floor(y / kStrip);
}

std::tuple<double, float, float> place_of(const Silhouette& one) noexcept
{
    return {strip_of(static_cast<double>(one.y)), one.x, one.y};
}

} // namespace

Bearing bearing_of(const Point& direction) noexcept
{
    const double length = std::sqrt(direction.x * direction.x + direction.y * direction.y);
    const Point unit = {direction.x / length, direction.y / length};
    std::size_t sector = 0;
    while (sector + 1 < kUnits.size() &&
           !(cross(kUnits[sector], unit) >= 0 && cross(unit, kUnits[(sector + 1) % kUnits.size()]) > 0))
        ++sector;
    return {
        unit, sector, {cross(unit, kUnits[(sector + 1) % kUnits.size()]) / kSine, cross(kUnits[sector], unit) / kSine}};
}

double Silhouette::longest() const noexcept
{
    float most = 0;
    for (std::size_t i = 0; i < kDirections / 2; ++i)
        most = std::max(most, reach[i] + reach[i + kDirections / 2]);
    return static_cast<double>(most);
}

double Silhouette::shortest() const noexcept
{
    float least = reach[0] + reach[kDirections / 2];
    for (std::size_t i = 1; i < kDirections / 2; ++i)
        least = std::min(least, reach[i] + reach[i + kDirections / 2]);
    return static_cast<double>(least);
}

bool Silhouette::encloses(double px, double py) const noexcept
{
    const double dx = px - static_cast<double>(x);
    const double dy = py - static_cast<double>(y);
    for (std::size_t i = 0; i < kDirections; ++i)
        if (dx * kUnits[i].x + dy * kUnits[i].y > static_cast<double>(reach[i]))
            return false;
    return true;
}

void SilhouetteOf::add(double x, double y) noexcept
{
    const auto px = static_cast<float>(x);
    const auto py = static_cast<float>(y);
    for (std::size_t i = 0; i < kAxes; ++i) {
        const float along = px * static_cast<float>(kUnits[i].x) + py * static_cast<float>(kUnits[i].y);
        lowest_[i] = along < lowest_[i] ? along : lowest_[i];
        highest_[i] = along > highest_[i] ? along : highest_[i];
    }
}

Silhouette SilhouetteOf::result(double level, bool is_dark) const noexcept
{
    constexpr std::size_t kUp = kAxes / 2; // the axis of y
    Silhouette silhouette;
    silhouette.x = (lowest_[0] + highest_[0]) / 2;
    silhouette.y = (lowest_[kUp] + highest_[kUp]) / 2;
    silhouette.level = static_cast<float>(level);
    silhouette.is_dark = is_dark;
    for (std::size_t i = 0; i < kAxes; ++i) {
        const float middle =
            silhouette.x * static_cast<float>(kUnits[i].x) + silhouette.y * static_cast<float>(kUnits[i].y);
        silhouette.reach[i] = highest_[i] - middle;
        silhouette.reach[i + kAxes] = middle - lowest_[i];
    }
    return silhouette;
}

Silhouette silhouette_of(const Outline& outline, double level, bool is_dark) noexcept
{
    Silhouette silhouette;
    silhouette.x = static_cast<float>(outline.x);
    silhouette.y = static_cast<float>(outline.y);
    silhouette.level = static_cast<float>(level);
    silhouette.is_dark = is_dark;
    for (std::size_t i = 0; i < kUnits.size(); ++i) {
        const auto [u, v] = kUnits[i];
        const double along = (outline.mean + outline.skew_x) * u + outline.skew_y * v;
        const double across = outline.skew_y * u + (outline.mean - outline.skew_x) * v;
        silhouette.reach[i] = static_cast<float>(std::sqrt(along * along + across * across));
    }
    return silhouette;
}

SilhouetteMap::SilhouetteMap(std::vector<Silhouette> all) : all_(std::move(all))
{
    std::stable_sort(all_.begin(), all_.end(),
                     [](const Silhouette& one, const Silhouette& other) { return place_of(one) < place_of(other); });
}

void SilhouetteMap::find_near(double x, double y, double half_side, std::vector<std::size_t>& found) const
{
    found.clear();
    const auto left = static_cast<float>(x - half_side);
    const auto right = static_cast<float>(x + half_side);
    for (double strip = strip_of(y - half_side); strip <= strip_of(y + half_side); ++strip) {
        const auto first =
            std::lower_bound(all_.begin(), all_.end(), std::tuple(strip, left, -HUGE_VALF),
                             [](const Silhouette& one, const auto& place) { return place_of(one) < place; });
        for (auto one = first; one != all_.end() && place_of(*one) <= std::tuple(strip, right, HUGE_VALF); ++one)
            if (std::fabs(static_cast<double>(one->y) - y) <= half_side)
                found.push_back(static_cast<std::size_t>(one - all_.begin()));
    }
}

} // namespace panoval::measure
