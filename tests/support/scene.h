// SPDX-License-Identifier: MIT
// Rendered pictures of ellipses whose geometry is known exactly. Only additions, products, quotients and roots are
// used, so that a scene has the same pixels on every system.
#pragma once

#include "tests/support/noise.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::test
{

// An evenly grey ellipse. A pixel's centre has whole coordinates.
struct SceneEllipse {
    double cx;
    double cy;
    double semi_major;
    double semi_minor;
    double ux = 1; // direction of the major axis, of any length
    double uy = 0;
    double grey = 40;
};

struct Scene {
    int width;
    int height;
    std::vector<SceneEllipse> ellipses; // later ones cover earlier ones
    double background = 200;
    int samples = 8;     // across a pixel, in each direction
    int blur_passes = 0; // each with the weights 1 2 1 in each direction: a variance of half a square pixel
    double light_x = 0;  // relative change of brightness from the left edge to the right, and from top to bottom
    double light_y = 0;
    double noise_sigma = 0; // grey levels
    std::uint64_t seed = 1;
};

class SceneRenderer
{
public:
    explicit SceneRenderer(const Scene& scene)
        : scene_(scene),
          grey_(static_cast<std::size_t>(scene.width) * static_cast<std::size_t>(scene.height), scene.background)
    {
    }

    std::vector<std::uint8_t> render()
    {
        for (const SceneEllipse& ellipse : scene_.ellipses)
            paint(ellipse);
        for (int pass = 0; pass < scene_.blur_passes; ++pass) {
            blur(scene_.width, 1, scene_.height, static_cast<std::size_t>(scene_.width));
            blur(scene_.height, static_cast<std::size_t>(scene_.width), scene_.width, 1);
        }
        return exposed();
    }

private:
    void paint(const SceneEllipse& e)
    {
        const double reach = e.semi_major + 2;
        const int left = static_cast<int>(std::max(0.0, std::floor(e.cx - reach)));
        const int right = static_cast<int>(std::min(scene_.width - 1.0, std::ceil(e.cx + reach)));
        const int top = static_cast<int>(std::max(0.0, std::floor(e.cy - reach)));
        const int bottom = static_cast<int>(std::min(scene_.height - 1.0, std::ceil(e.cy + reach)));
        for (int y = top; y <= bottom; ++y)
            for (int x = left; x <= right; ++x) {
                const double covered = coverage(e, x, y);
                double& grey = grey_[static_cast<std::size_t>(y) * static_cast<std::size_t>(scene_.width) +
                                     static_cast<std::size_t>(x)];
                grey += (e.grey - grey) * covered;
            }
    }

    // 1 on the outline, below inside. It changes by at most 1 / semi_minor per pixel.
    static double level(const SceneEllipse& e, double x, double y)
    {
        const double length = std::sqrt(e.ux * e.ux + e.uy * e.uy);
        const double along = ((x - e.cx) * e.ux + (y - e.cy) * e.uy) / length / e.semi_major;
        const double across = ((y - e.cy) * e.ux - (x - e.cx) * e.uy) / length / e.semi_minor;
        return std::sqrt(along * along + across * across);
    }

    double coverage(const SceneEllipse& e, int x, int y) const
    {
        const double distance = (level(e, x, y) - 1) * e.semi_minor; // at most the true one
        if (distance > 0.75)
            return 0;
        if (distance < -0.75)
            return 1;
        int inside = 0;
        for (int j = 0; j < scene_.samples; ++j)
            for (int i = 0; i < scene_.samples; ++i)
                inside += level(e, x - 0.5 + (i + 0.5) / scene_.samples, y - 0.5 + (j + 0.5) / scene_.samples) <= 1;
        return static_cast<double>(inside) / (scene_.samples * scene_.samples);
    }

    // Along lines of `count` values, `stride` apart; the values beyond the ends repeat the last.
    void blur(int count, std::size_t stride, int lines, std::size_t line_stride)
    {
        for (int line = 0; line < lines; ++line) {
            double* const values = grey_.data() + static_cast<std::size_t>(line) * line_stride;
            double before = values[0];
            for (int i = 0; i < count; ++i) {
                double& value = values[static_cast<std::size_t>(i) * stride];
                const double here = value;
                const double after = i + 1 < count ? values[static_cast<std::size_t>(i + 1) * stride] : here;
                value = (before + 2 * here + after) / 4;
                before = here;
            }
        }
    }

    std::vector<std::uint8_t> exposed() const
    {
        Random random(scene_.seed);
        std::vector<std::uint8_t> pixels(grey_.size());
        for (std::size_t i = 0; i < pixels.size(); ++i) {
            const auto x = static_cast<double>(i % static_cast<std::size_t>(scene_.width));
            const auto y = static_cast<double>(i / static_cast<std::size_t>(scene_.width));
            double value =
                grey_[i] * (1 + scene_.light_x * (x / scene_.width - 0.5) + scene_.light_y * (y / scene_.height - 0.5));
            if (scene_.noise_sigma > 0) {
                double sum = -6; // of twelve uniform values: mean 0, deviation 1
                for (int k = 0; k < 12; ++k)
                    sum += random.unit();
                value += scene_.noise_sigma * sum;
            }
            pixels[i] = static_cast<std::uint8_t>(std::clamp(std::floor(value + 0.5), 0.0, 255.0));
        }
        return pixels;
    }

    const Scene& scene_;
    std::vector<double> grey_;
};

inline std::vector<std::uint8_t> render(const Scene& scene)
{
    return SceneRenderer(scene).render();
}

// A board of rows x columns targets, each with its own size, shape and direction.
inline Scene target_board(int width, int height, int columns, int rows, std::uint64_t seed)
{
    Scene scene{width, height, {}};
    Random random(seed);
    const double cell_x = static_cast<double>(width) / columns;
    const double cell_y = static_cast<double>(height) / rows;
    const double most = std::min(cell_x, cell_y) * 0.4;
    for (int row = 0; row < rows; ++row)
        for (int column = 0; column < columns; ++column) {
            const double major = random.real(most * 0.5, most);
            scene.ellipses.push_back({.cx = (column + 0.5) * cell_x + random.real(-1, 1),
                                      .cy = (row + 0.5) * cell_y + random.real(-1, 1),
                                      .semi_major = major,
                                      .semi_minor = major * random.real(0.5, 1),
                                      .ux = random.real(-1, 1),
                                      .uy = random.real(0.01, 1),
                                      .grey = random.real(20, 80)});
        }
    scene.blur_passes = 1;
    scene.light_x = 0.2;
    scene.noise_sigma = 1.5;
    scene.seed = seed;
    return scene;
}

} // namespace panoval::test
