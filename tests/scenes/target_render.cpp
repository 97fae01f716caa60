// SPDX-License-Identifier: MIT
// Every pixel is cut into cells. Shapes fill cells by area: exactly along a line, and with lines close enough together
// down a cell that the centre of a target of 3 pixels is exact to a few ten thousandths. A sum over the cells of a
// pixel, weighted with a sampled Gaussian, is then the box pixel behind the optics. Cells keep the place of an edge
// exactly; what they change is the blur, by less than a thousandth.
#include "tests/scenes/target_scene.h"
#include "tests/scenes/target_shapes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace panoval::test
{

namespace
{

constexpr double kReach = 5;       // sigmas of the Gaussian
constexpr std::int32_t kBand = 32; // rows of pixels that are rendered together

std::int32_t cells_for(double blur)
{
    return blur <= 0 ? 8 : std::clamp(static_cast<std::int32_t>(std::ceil(6 / blur)), 6, 16);
}

// Weights of cells from `reach` pixels before a pixel's first cell to as many behind its last.
std::vector<float> pixel_weights(double blur, std::int32_t cells, std::int32_t reach)
{
    const std::int32_t half = reach * cells;
    std::vector<double> gauss(static_cast<std::size_t>(2 * half + 1), 0.0);
    double sum = 0;
    for (std::int32_t i = -half; i <= half; ++i) {
        const double t = blur > 0 ? i / (blur * cells) : 0;
        const double value = blur > 0 ? std::exp(-t * t / 2) : (i == 0 ? 1.0 : 0.0);
        gauss[static_cast<std::size_t>(i + half)] = value;
        sum += value;
    }
    std::vector<float> weights(static_cast<std::size_t>(cells + 2 * half), 0.0f);
    for (std::int32_t cell = 0; cell < cells; ++cell)
        for (std::size_t i = 0; i < gauss.size(); ++i)
            weights[static_cast<std::size_t>(cell) + i] += static_cast<float>(gauss[i] / (sum * cells));
    return weights;
}

// Cells of some rows of pixels, with a margin of the Gaussian's reach on all sides.
class Cells
{
public:
    Cells(const TargetScene& scene, std::int32_t first_row, std::int32_t rows, std::int32_t cells, std::int32_t reach)
        : cells_(cells), left_(-reach - 0.5), top_(first_row - reach - 0.5), width_((scene.width + 2 * reach) * cells),
          height_((rows + 2 * reach) * cells), background_(scene.background),
          above_(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_), 0.0f),
          covered_(static_cast<std::size_t>(width_) + 1)
    {
        for (const Shape& shape : scene.shapes)
            paint(shape);
    }

    std::int32_t width() const { return width_; }
    const float* row(std::int32_t y) const
    {
        return above_.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(width_);
    }

private:
    void paint(const Shape& shape)
    {
        const Extent extent = extent_of(shape);
        const auto first = static_cast<std::int32_t>(std::floor(std::max(0.0, (extent.top - top_) * cells_)));
        const auto last =
            static_cast<std::int32_t>(std::floor(std::min(height_ - 1.0, (extent.bottom - top_) * cells_)));
        for (std::int32_t y = first; y <= last; ++y)
            paint_row(shape, extent, y);
    }

    // The lines stand where the shape is, not where the cell is: its top and its bottom are half a line away.
    void paint_row(const Shape& shape, const Extent& extent, std::int32_t y)
    {
        const double cell_top = top_ + static_cast<double>(y) / cells_;
        const double from = std::max(cell_top, extent.top);
        const double to = std::min(cell_top + 1.0 / cells_, extent.bottom);
        if (to <= from)
            return;
        const bool is_near_end = from - extent.top < 0.5 || extent.bottom - to < 0.5;
        const int lines = (is_near_end ? 128 : 24) / cells_;
        std::int32_t begin = width_;
        std::int32_t end = 0;
        for (int line = 0; line < lines; ++line) {
            const double step = (to - from) / lines;
            const Span span = span_of(shape, from + (line + 0.5) * step);
            cover(span, step * cells_, begin, end);
        }
        float* const above = above_.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(width_);
        const double row_grey = shape.grey - background_ + shape.grey_dy * (cell_top - shape.y);
        for (std::int32_t x = begin; x < end; ++x) {
            const auto i = static_cast<std::size_t>(x);
            const double own = row_grey + shape.grey_dx * (left_ + (x + 0.5) / cells_ - shape.x);
            above[i] += (static_cast<float>(own) - above[i]) * std::min(1.0f, covered_[i]);
            covered_[i] = 0;
        }
    }

    void cover(const Span& span, double weight, std::int32_t& begin, std::int32_t& end)
    {
        const double from = std::max(0.0, (span.begin - left_) * cells_);
        const double to = std::min(static_cast<double>(width_), (span.end - left_) * cells_);
        if (to <= from)
            return;
        const auto first = static_cast<std::int32_t>(std::floor(from));
        const auto last = static_cast<std::int32_t>(std::min(std::floor(to), width_ - 1.0));
        for (std::int32_t x = first; x <= last; ++x)
            covered_[static_cast<std::size_t>(x)] +=
                static_cast<float>(weight * (std::min(to, x + 1.0) - std::max(from, static_cast<double>(x))));
        begin = std::min(begin, first);
        end = std::max(end, last + 1);
    }

    std::int32_t cells_;
    double left_;
    double top_;
    std::int32_t width_;
    std::int32_t height_;
    double background_;
    std::vector<float> above_; // the background: single precision has nothing to lose there
    std::vector<float> covered_;
};

// One row of pixels: down the cells first, because whole rows of them can be added at once.
void integrate_row(const Cells& cells, std::int32_t first_cell_row, std::int32_t step,
                   const std::vector<float>& weights, std::vector<float>& sums, const TargetScene& scene, double* out)
{
    std::fill(sums.begin(), sums.end(), 0.0f);
    for (std::size_t i = 0; i < weights.size(); ++i) {
        const float* const row = cells.row(first_cell_row + static_cast<std::int32_t>(i));
        const float weight = weights[i];
        for (std::size_t x = 0; x < sums.size(); ++x)
            sums[x] += weight * row[x];
    }
    for (std::int32_t x = 0; x < scene.width; ++x) {
        double sum = scene.background;
        for (std::size_t i = 0; i < weights.size(); ++i)
            sum += static_cast<double>(weights[i]) * static_cast<double>(sums[static_cast<std::size_t>(x * step) + i]);
        out[x] = sum;
    }
}

void apply_light(const TargetScene& scene, std::vector<double>& samples)
{
    const double middle_x = (scene.width - 1) / 2.0;
    const double middle_y = (scene.height - 1) / 2.0;
    const double corner = middle_x * middle_x + middle_y * middle_y;
    std::size_t i = 0;
    for (std::int32_t y = 0; y < scene.height; ++y)
        for (std::int32_t x = 0; x < scene.width; ++x) {
            const double dx = x - middle_x;
            const double dy = y - middle_y;
            samples[i++] *= 1 + scene.light_x * dx / scene.width + scene.light_y * dy / scene.height -
                            scene.light_fall * (dx * dx + dy * dy) / std::max(corner, 1.0);
        }
}

template <class Sample>
std::vector<Sample> rounded(const std::vector<double>& samples, double most)
{
    std::vector<Sample> result(samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i)
        result[i] = static_cast<Sample>(std::clamp(std::floor(samples[i] + 0.5), 0.0, most));
    return result;
}

} // namespace

std::vector<double> render_exact(const TargetScene& scene)
{
    const std::int32_t cells = cells_for(scene.blur);
    const auto reach = static_cast<std::int32_t>(std::ceil(kReach * scene.blur));
    const std::vector<float> weights = pixel_weights(scene.blur, cells, reach);
    std::vector<double> samples(static_cast<std::size_t>(scene.width) * static_cast<std::size_t>(scene.height));
    for (std::int32_t top = 0; top < scene.height; top += kBand) {
        const std::int32_t rows = std::min(kBand, scene.height - top);
        const Cells band(scene, top, rows, cells, reach);
        std::vector<float> sums(static_cast<std::size_t>(band.width()));
        for (std::int32_t y = 0; y < rows; ++y)
            integrate_row(band, y * cells, cells, weights, sums, scene,
                          samples.data() + static_cast<std::size_t>(top + y) * static_cast<std::size_t>(scene.width));
    }
    apply_light(scene, samples);
    return samples;
}

double normal_value(Random& random)
{
    for (;;) {
        const double u = random.real(-1, 1);
        const double v = random.real(-1, 1);
        const double square = u * u + v * v;
        if (square > 0 && square < 1)
            return u * std::sqrt(-2 * std::log(square) / square);
    }
}

void add_noise(const TargetScene& scene, std::vector<double>& samples)
{
    if (scene.noise <= 0)
        return;
    Random random(scene.seed);
    for (double& sample : samples)
        sample += scene.noise * normal_value(random);
}

std::vector<std::uint8_t> rounded_to_8_bit(const std::vector<double>& samples)
{
    return rounded<std::uint8_t>(samples, 255);
}

std::vector<std::uint16_t> rounded_to_16_bit(const std::vector<double>& samples)
{
    return rounded<std::uint16_t>(samples, 65535);
}

std::vector<std::uint8_t> render_8_bit(const TargetScene& scene)
{
    std::vector<double> samples = render_exact(scene);
    add_noise(scene, samples);
    return rounded_to_8_bit(samples);
}

std::vector<std::uint16_t> render_16_bit(const TargetScene& scene)
{
    std::vector<double> samples = render_exact(scene);
    add_noise(scene, samples);
    return rounded_to_16_bit(samples);
}

void add_target(TargetScene& scene, double x, double y, double a, double b, double angle, double grey,
                double surrounding)
{
    scene.shapes.push_back({.x = x, .y = y, .a = a, .b = b, .angle = angle, .grey = grey});
    scene.targets.push_back({.x = x,
                             .y = y,
                             .a = a,
                             .b = b,
                             .angle = angle,
                             .inside = grey,
                             .outside = surrounding,
                             .circle_x = x,
                             .circle_y = y});
}

} // namespace panoval::test
