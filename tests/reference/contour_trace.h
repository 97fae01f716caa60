// SPDX-License-Identifier: MIT
// The definition of contour tracing, with a full label map.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::reference
{

struct TracedContours {
    std::vector<std::vector<std::int32_t>> outlines; // point lists of the regions, in tracing order
    std::vector<std::uint32_t> labels;               // 0, or region + 2
    bool any_opened = false;
};

class ContourTracer
{
public:
    ContourTracer(int width, int height, const std::vector<std::uint32_t>& map)
        : width_(width), height_(height), map_(map), boundary_(map.size(), 0)
    {
    }

    TracedContours run()
    {
        TracedContours result;
        if (height_ - 1 >= 2) {
            mark_boundary();
            for (int y = 1; y <= height_ - 2; ++y)
                for (int x = 1; x <= width_ - 2; ++x)
                    if (boundary_[at(x, y)] == 1) {
                        result.any_opened = true;
                        const auto label = static_cast<std::uint32_t>(result.outlines.size()) + 2;
                        std::vector<std::int32_t> points;
                        if (trace(y * width_ + x, label, points))
                            result.outlines.push_back(points);
                    }
        }
        result.labels = boundary_;
        return result;
    }

private:
    std::size_t at(int x, int y) const
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x);
    }

    void mark_boundary()
    {
        for (int y = 1; y <= height_ - 2; ++y)
            for (int x = 1; x <= width_ - 2; ++x) {
                if (map_[at(x, y)] == 0)
                    continue;
                const bool left = map_[at(x - 1, y)] != 0;
                const bool right = map_[at(x + 1, y)] != 0;
                const bool up = map_[at(x, y - 1)] != 0;
                const bool down = map_[at(x, y + 1)] != 0;
                if (!(left && right && up && down))
                    boundary_[at(x, y)] = 1;
            }
    }

    std::int32_t neighbour(std::int32_t pixel, int d) const
    {
        static constexpr int kDx[8] = {1, 1, 1, 0, -1, -1, -1, 0};
        static constexpr int kDy[8] = {-1, 0, 1, 1, 1, 0, -1, -1};
        const int x = pixel % width_ + kDx[d];
        const int y = pixel / width_ + kDy[d];
        return y * width_ + x;
    }

    std::uint32_t& value(std::int32_t pixel) { return boundary_[static_cast<std::size_t>(pixel)]; }

    // False when the region is abandoned.
    bool trace(std::int32_t s, std::uint32_t label, std::vector<std::int32_t>& points)
    {
        value(s) = label;
        points = {s};
        std::int32_t c = s;
        int k0 = 0;
        bool stepping = true; // else backtracking
        for (;;) {
            if (stepping) {
                stepping = false;
                for (int i = 0; i <= 7; ++i) {
                    const int d = (k0 + i) % 8;
                    const std::int32_t p = neighbour(c, d);
                    if (value(p) == 1) {
                        value(p) = label;
                        points.push_back(p);
                        c = p;
                        k0 = (d + 5) % 8;
                        stepping = true;
                        break;
                    }
                    if (value(p) == label && p == s)
                        return true;
                    if (value(p) == label)
                        break;
                }
                continue;
            }
            for (int d = 0; d <= 7; ++d) {
                const std::int32_t p = neighbour(c, d);
                if (value(p) == 1) {
                    value(p) = label;
                    points.push_back(p);
                    c = p;
                    k0 = (d + 5) % 8;
                    stepping = true;
                    break;
                }
            }
            if (stepping)
                continue;
            const std::int32_t removed = points.back();
            points.pop_back();
            if (points.empty())
                return false;
            value(removed) = 0;
            c = points.back();
        }
    }

    int width_;
    int height_;
    std::vector<std::uint32_t> map_;
    std::vector<std::uint32_t> boundary_;
};

// map: width * height values, nonzero = foreground
inline TracedContours trace_contours(int width, int height, const std::vector<std::uint32_t>& map)
{
    return ContourTracer(width, height, map).run();
}

} // namespace panoval::reference
