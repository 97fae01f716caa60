// SPDX-License-Identifier: MIT
// Noise reaches a gradient of 4.5 deviations once in 25,000 pixels, of which few make a closed outline.
#include "measure/detect_edges.h"

#include "measure/edge_kernel.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace panoval::measure
{

namespace
{

constexpr double kDeviations = 4.5;
// The gradient's deviation in a picture of white noise of 1, at full size and at half of it; each further scale has
// half of the one before. Both follow from the weights of smoothing and halving.
constexpr double kGradientSigma[2] = {0.2420615, 0.0996668};

struct Step {
    std::int32_t x, y;
};

// The neighbour towards which the picture becomes brighter.
Step uphill(Gradient g) noexcept
{
    const float ax = std::fabs(g.x);
    const float ay = std::fabs(g.y);
    return {ax < kSlant * ay ? 0 : (g.x > 0 ? 1 : -1), ay < kSlant * ax ? 0 : (g.y > 0 ? 1 : -1)};
}

float squared(Gradient g) noexcept
{
    return g.x * g.x + g.y * g.y;
}

bool has_gradient(const Scale& scale, std::int32_t x, std::int32_t y) noexcept
{
    return x >= 1 && y >= 1 && x < scale.width - 1 && y < scale.height - 1;
}

float squared_at(const Scale& scale, std::int32_t x, std::int32_t y) noexcept
{
    return has_gradient(scale, x, y) ? squared(gradient_at(scale, x, y)) : 0;
}

// Whether two steps away the same slope has become flatter. Light that changes slowly has no edges.
bool is_flatter(const Scale& scale, std::int32_t x, std::int32_t y, Gradient g) noexcept
{
    constexpr float kFlatter = 0.8f;
    if (!has_gradient(scale, x, y))
        return true;
    const Gradient other = gradient_at(scale, x, y);
    return other.x * g.x + other.y * g.y < kFlatter * squared(g);
}

// Of a pixel that is the steepest one across the edge.
bool ends_nearby(const Scale& scale, std::int32_t x, std::int32_t y) noexcept
{
    const Gradient g = gradient_at(scale, x, y);
    const Step step = uphill(g);
    return is_flatter(scale, x - 2 * step.x, y - 2 * step.y, g) && is_flatter(scale, x + 2 * step.x, y + 2 * step.y, g);
}

// Squared gradients of three rows at a time, those of the outermost rows 0.
class SquareRows
{
public:
    SquareRows(const Scale& scale, float least)
        : scale_(scale), least_(least), rows_(3 * static_cast<std::size_t>(scale.width))
    {
        if (scale.height > 2)
            compute(1);
    }

    // The row y and the ones beside it, for y = 1, 2, ...
    EdgeRows advance_to(std::int32_t y)
    {
        compute(y + 1);
        const std::uint16_t* const samples = scale_.samples.get() + scale_.at(0, y);
        return {{samples - scale_.width, samples, samples + scale_.width}, {row(y - 1), row(y), row(y + 1)}};
    }
    bool is_steep(std::int32_t y) const noexcept { return is_steep_[y % 3]; }

private:
    float* row(std::int32_t y) noexcept { return rows_.data() + y % 3 * static_cast<std::ptrdiff_t>(scale_.width); }
    void compute(std::int32_t y)
    {
        is_steep_[y % 3] = false;
        if (y >= scale_.height - 1) {
            std::fill_n(row(y), scale_.width, 0.0f);
            return;
        }
        const std::uint16_t* const samples = scale_.samples.get() + scale_.at(0, y);
        is_steep_[y % 3] = square_gradients(samples - scale_.width, samples, samples + scale_.width,
                                            static_cast<std::size_t>(scale_.width), least_, row(y));
    }

    const Scale& scale_;
    float least_;
    std::vector<float> rows_;
    bool is_steep_[3] = {};
};

} // namespace

void mark_edges(Scale& scale, double noise)
{
    const double sigma = scale.index == 0 ? kGradientSigma[0] : kGradientSigma[1] / std::ldexp(1.0, scale.index - 1);
    scale.edge_gradient = static_cast<float>(std::max(1.0, kDeviations * sigma * noise));
    const float least_squared = 4 * scale.edge_gradient * scale.edge_gradient; // of twice the gradient
    std::memset(scale.edges.get(), kNoEdge,
                static_cast<std::size_t>(scale.width) * static_cast<std::size_t>(scale.height));
    SquareRows squares(scale, least_squared);
    const std::int32_t end = scale.width - 1;
    for (std::int32_t y = 1; y < scale.height - 1; ++y) {
        const EdgeRows rows = squares.advance_to(y);
        if (!squares.is_steep(y))
            continue;
        std::uint8_t* const marks = scale.edges.get() + scale.at(0, y);
        mark_steepest(rows, static_cast<std::size_t>(scale.width), least_squared, marks);
        for (std::int32_t x = next_mark(marks, 1, end); x < end; x = next_mark(marks, x + 1, end))
            if (!ends_nearby(scale, x, y))
                marks[x] = kNoEdge;
    }
}

double level_of_edge(const Scale& scale, std::int32_t x, std::int32_t y) noexcept
{
    const Gradient g = gradient_at(scale, x, y);
    const Step step = uphill(g);
    const std::ptrdiff_t stride = std::ptrdiff_t{step.y} * scale.width + step.x;
    const std::uint16_t* const p = scale.samples.get() + scale.at(x, y);
    const double below = std::sqrt(static_cast<double>(squared_at(scale, x - step.x, y - step.y)));
    const double here = std::sqrt(static_cast<double>(squared(g)));
    const double above = std::sqrt(static_cast<double>(squared_at(scale, x + step.x, y + step.y)));
    const double bend = below - 2 * here + above;
    const double offset = bend < 0 ? std::clamp(0.5 * (below - above) / bend, -0.5, 0.5) : 0.0;
    return p[0] + offset * 0.5 * (p[stride] - p[-stride]);
}

} // namespace panoval::measure
