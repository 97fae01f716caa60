// SPDX-License-Identifier: MIT
// Made scenes with truth for tests of the engine: smooth light, texture at several scales and hard edges, periodic
// across its width, and a camera that cuts pictures from it with every fault that the engine has to live with.
#pragma once

#include "mosaic/pictures/corrections.h"
#include "tests/mosaic/memory_reader.h"
#include "tests/support/noise.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace panoval::mosaic::test
{

using panoval::test::Random;

// Neighbouring seeds of Random give the same numbers one place further; these give others.
inline Random seeded(std::uint64_t seed)
{
    return Random(Random(seed).next());
}

struct SceneOptions {
    int channels = 3;
    double mean = 0.4;     // of the light; 1 is the largest sample
    double texture = 0.3;  // relative contrast of what is finer than 20 pixels
    double contrast = 0.6; // relative contrast of what is coarser
    int edges = 60;        // rectangles and discs with hard edges for each 100 000 pixels
    std::uint64_t seed = 1;
};

// Light at the centres of pixels, not clipped and not rounded.
struct Scene {
    std::int64_t width = 0;
    std::int64_t height = 0;
    int channels = 1;
    std::vector<float> light;

    float& at(std::int64_t x, std::int64_t y, int c)
    {
        return light[static_cast<std::size_t>((y * width + x) * channels + c)];
    }
    // Goes round in x, stands still in y.
    float at(std::int64_t x, std::int64_t y, int c) const
    {
        const std::int64_t column = (x % width + width) % width;
        const std::int64_t row = std::clamp<std::int64_t>(y, 0, height - 1);
        return light[static_cast<std::size_t>((row * width + column) * channels + c)];
    }
    double between(double x, double y, int c) const
    {
        const double left = std::floor(x);
        const double top = std::floor(y);
        const auto ix = static_cast<std::int64_t>(left);
        const auto iy = static_cast<std::int64_t>(top);
        const double above = at(ix, iy, c) + (x - left) * (at(ix + 1, iy, c) - at(ix, iy, c));
        const double below = at(ix, iy + 1, c) + (x - left) * (at(ix + 1, iy + 1, c) - at(ix, iy + 1, c));
        return above + (y - top) * (below - above);
    }
};

// A thing that is in one picture only: a textured rectangle of the canvas.
struct MovedThing {
    Rect rect;
    double light = 0.8;
};

// How one picture is taken. Faults happen in the order of the fields.
struct Cut {
    Rect rect{};                             // of the canvas where the picture is placed
    int bits = 8;                            //
    double shift_x = 0;                      // what it shows lies that far to the right of where it is placed
    double shift_y = 0;                      //
    std::vector<MovedThing> things{};        //
    double blur = 0;                         // sigma in pixels
    double gain = 1;                         //
    std::array<double, 4> white{1, 1, 1, 1}; // gain of each channel
    Falloff falloff{};                       //
    double gamma = 1;                        //
    double noise = 0;                        // standard deviation in levels of 255, whatever the depth
    double coding = 0;      // step of the 8 x 8 cosine transform in levels of 255, as JPEG has it; 0 = none
    std::uint64_t seed = 1; // of the noise
};

namespace scene_detail
{

// Value noise with a period: smooth, about -1 to 1, one bump each `step` pixels.
inline void add_bumps(Scene& scene, double step, double weight, bool in_colour, Random& random)
{
    const auto columns = std::max<std::int64_t>(1, static_cast<std::int64_t>(static_cast<double>(scene.width) / step));
    const auto rows = static_cast<std::int64_t>(static_cast<double>(scene.height) / step) + 3;
    const int layers = in_colour ? scene.channels : 1;
    std::vector<float> lattice(static_cast<std::size_t>(columns * rows * layers));
    for (float& value : lattice)
        value = static_cast<float>(random.real(-1, 1));
    const auto value = [&](std::int64_t i, std::int64_t j, int c) {
        return lattice[static_cast<std::size_t>(((j * columns) + i % columns) * layers + (in_colour ? c : 0))];
    };
    const auto ease = [](double t) { return t * t * (3 - 2 * t); };
    for (std::int64_t y = 0; y < scene.height; ++y)
        for (std::int64_t x = 0; x < scene.width; ++x) {
            const double u = static_cast<double>(x * columns) / static_cast<double>(scene.width);
            const double v = static_cast<double>(y) / step;
            const auto i = static_cast<std::int64_t>(u);
            const auto j = static_cast<std::int64_t>(v);
            const double s = ease(u - static_cast<double>(i));
            const double t = ease(v - static_cast<double>(j));
            for (int c = 0; c < scene.channels; ++c) {
                const double above = value(i, j, c) * (1 - s) + value(i + 1, j, c) * s;
                const double below = value(i, j + 1, c) * (1 - s) + value(i + 1, j + 1, c) * s;
                scene.at(x, y, c) += static_cast<float>(weight * (above * (1 - t) + below * t));
            }
        }
}

// Rectangles and discs that multiply the light.
inline void add_shapes(Scene& scene, int count, Random& random)
{
    for (int k = 0; k < count; ++k) {
        const std::int64_t x0 = random.integer(0, scene.width - 1);
        const std::int64_t y0 = random.integer(0, scene.height - 1);
        const std::int64_t width = random.integer(3, 30);
        const std::int64_t height = random.integer(3, 30);
        const bool is_disc = random.integer(0, 1) == 1;
        std::array<float, 4> factor{};
        for (float& f : factor)
            f = static_cast<float>(random.real(0.5, 1.6));
        for (std::int64_t y = y0; y < std::min(y0 + height, scene.height); ++y)
            for (std::int64_t x = x0; x < std::min(x0 + width, scene.width); ++x) {
                const double u = 2 * static_cast<double>(x - x0) / static_cast<double>(width) - 1;
                const double v = 2 * static_cast<double>(y - y0) / static_cast<double>(height) - 1;
                if (!is_disc || u * u + v * v <= 1)
                    for (int c = 0; c < scene.channels; ++c)
                        scene.at(x, y, c) *= factor[static_cast<std::size_t>(c)];
            }
    }
}

// Gaussian of one row or column of `count` values, `stride` apart; the edge's value goes on outside.
inline void blur_line(float* values, std::int64_t count, std::int64_t stride, const std::vector<double>& kernel)
{
    const auto radius = static_cast<std::int64_t>(kernel.size() / 2);
    std::vector<double> line(static_cast<std::size_t>(count));
    for (std::int64_t i = 0; i < count; ++i)
        for (std::int64_t k = -radius; k <= radius; ++k)
            line[static_cast<std::size_t>(i)] += kernel[static_cast<std::size_t>(k + radius)] *
                                                 values[std::clamp<std::int64_t>(i + k, 0, count - 1) * stride];
    for (std::int64_t i = 0; i < count; ++i)
        values[i * stride] = static_cast<float>(line[static_cast<std::size_t>(i)]);
}

inline void blur(Scene& scene, double sigma)
{
    const auto radius = static_cast<std::int64_t>(std::ceil(3 * sigma));
    std::vector<double> kernel;
    double sum = 0;
    for (std::int64_t k = -radius; k <= radius; ++k) {
        kernel.push_back(std::exp(-0.5 * static_cast<double>(k * k) / (sigma * sigma)));
        sum += kernel.back();
    }
    for (double& weight : kernel)
        weight /= sum;
    for (std::int64_t y = 0; y < scene.height; ++y)
        for (int c = 0; c < scene.channels; ++c)
            blur_line(&scene.at(0, y, c), scene.width, scene.channels, kernel);
    for (std::int64_t x = 0; x < scene.width; ++x)
        for (int c = 0; c < scene.channels; ++c)
            blur_line(&scene.at(x, 0, c), scene.height, scene.width * scene.channels, kernel);
}

// One line of eight values to their cosine transform or back, orthonormal.
inline void transform(float* values, std::int64_t stride, bool back)
{
    constexpr double kPi = 3.14159265358979323846;
    std::array<double, 8> out{};
    for (int i = 0; i < 8; ++i)
        for (int j = 0; j < 8; ++j) {
            const int frequency = back ? j : i;
            const int position = back ? i : j;
            const double scale = frequency == 0 ? std::sqrt(0.125) : 0.5;
            out[static_cast<std::size_t>(i)] +=
                scale * std::cos((2 * position + 1) * frequency * kPi / 16) * values[j * stride];
        }
    for (int i = 0; i < 8; ++i)
        values[i * stride] = static_cast<float>(out[static_cast<std::size_t>(i)]);
}

// Whole 8 x 8 squares are coded; high frequencies have larger steps.
inline void code(Scene& scene, double step)
{
    const std::int64_t across = scene.channels;
    const std::int64_t down = scene.width * scene.channels;
    for (std::int64_t y = 0; y + 8 <= scene.height; y += 8)
        for (std::int64_t x = 0; x + 8 <= scene.width; x += 8)
            for (int c = 0; c < scene.channels; ++c) {
                float* const corner = &scene.at(x, y, c);
                for (int i = 0; i < 8; ++i)
                    transform(corner + i * down, across, false);
                for (int i = 0; i < 8; ++i)
                    transform(corner + i * across, down, false);
                for (int i = 0; i < 8; ++i)
                    for (int j = 0; j < 8; ++j) {
                        float& value = corner[i * down + j * across];
                        const double width = step * (1 + 0.5 * (i + j));
                        value = static_cast<float>(std::floor(value / width + 0.5) * width);
                    }
                for (int i = 0; i < 8; ++i)
                    transform(corner + i * down, across, true);
                for (int i = 0; i < 8; ++i)
                    transform(corner + i * across, down, true);
            }
}

// About normal: the sum of four uniform values.
inline double normal(Random& random)
{
    double sum = 0;
    for (int k = 0; k < 4; ++k)
        sum += random.unit();
    return (sum - 2) * std::sqrt(3.0);
}

inline void draw(Scene& picture, const Rect& place, const MovedThing& thing)
{
    const Rect rect = intersect(place, thing.rect).moved(-place.x, -place.y);
    for (std::int64_t y = rect.y; y < rect.bottom(); ++y)
        for (std::int64_t x = rect.x; x < rect.right(); ++x)
            for (int c = 0; c < picture.channels; ++c)
                picture.at(x, y, c) = static_cast<float>(thing.light * ((x / 4 + y / 4) % 2 == 0 ? 1 : 0.8));
}

} // namespace scene_detail

inline Scene make_scene(std::int64_t width, std::int64_t height, const SceneOptions& options)
{
    Scene scene{width, height, options.channels, {}};
    scene.light.assign(static_cast<std::size_t>(width * height * options.channels), 1.f);
    Random random = seeded(options.seed);
    scene_detail::add_bumps(scene, 240, 0.5 * options.contrast, false, random);
    scene_detail::add_bumps(scene, 150, 0.2 * options.contrast, true, random);
    scene_detail::add_bumps(scene, 40, 0.3 * options.contrast, true, random);
    scene_detail::add_bumps(scene, 12, 0.5 * options.texture, false, random);
    scene_detail::add_bumps(scene, 4, 0.5 * options.texture, true, random);
    scene_detail::add_shapes(scene, static_cast<int>(options.edges * width * height / 100000), random);
    for (float& value : scene.light)
        value = static_cast<float>(options.mean * std::max(0.02f, value));
    return scene;
}

// The brightness that a picture would have before it is rounded; levels of 255.
inline Scene expose(const Scene& scene, const Cut& cut)
{
    Scene picture{cut.rect.width, cut.rect.height, scene.channels, {}};
    picture.light.resize(static_cast<std::size_t>(cut.rect.pixels() * scene.channels));
    for (std::int64_t y = 0; y < picture.height; ++y)
        for (std::int64_t x = 0; x < picture.width; ++x)
            for (int c = 0; c < scene.channels; ++c)
                picture.at(x, y, c) =
                    static_cast<float>(scene.between(static_cast<double>(cut.rect.x + x) - cut.shift_x,
                                                     static_cast<double>(cut.rect.y + y) - cut.shift_y, c));
    for (const MovedThing& thing : cut.things)
        scene_detail::draw(picture, cut.rect, thing);
    if (cut.blur > 0)
        scene_detail::blur(picture, cut.blur);
    Random random = seeded(cut.seed + 1000);
    const double middle_x = 0.5 * static_cast<double>(picture.width - 1);
    const double middle_y = 0.5 * static_cast<double>(picture.height - 1);
    const double corner = std::max(middle_x * middle_x + middle_y * middle_y, 1.0);
    for (std::int64_t y = 0; y < picture.height; ++y)
        for (std::int64_t x = 0; x < picture.width; ++x) {
            const double dx = static_cast<double>(x) - middle_x;
            const double dy = static_cast<double>(y) - middle_y;
            const double factor = cut.gain * cut.falloff.at((dx * dx + dy * dy) / corner);
            for (int c = 0; c < scene.channels; ++c) {
                double value = picture.at(x, y, c) * factor * cut.white[static_cast<std::size_t>(c)];
                value = cut.gamma == 1 ? value : std::pow(std::clamp(value, 0.0, 1.0), cut.gamma);
                value *= 255;
                value += cut.noise > 0 ? cut.noise * scene_detail::normal(random) : 0.0;
                picture.at(x, y, c) = static_cast<float>(value);
            }
        }
    if (cut.coding > 0)
        scene_detail::code(picture, cut.coding);
    return picture;
}

// The picture as a camera gives it.
inline MemoryPicture take_picture(const Scene& scene, const Cut& cut)
{
    const Scene levels = expose(scene, cut);
    MemoryPicture picture = MemoryPicture::blank(cut.rect.width, cut.rect.height, scene.channels, cut.bits);
    const double largest = cut.bits == 8 ? 255 : 65535;
    for (std::size_t i = 0; i < picture.samples.size(); ++i) {
        const double value = levels.light[i] / 255.0 * largest;
        picture.samples[i] = static_cast<std::uint16_t>(std::clamp(std::floor(value + 0.5), 0.0, largest));
    }
    return picture;
}

// Covers an ellipse with a ragged edge only.
inline void give_ragged_mask(MemoryPicture& picture, std::uint64_t seed)
{
    Random random = seeded(seed);
    picture.mask.resize(static_cast<std::size_t>(picture.width * picture.height));
    for (std::int64_t y = 0; y < picture.height; ++y) {
        const double ragged = random.real(-0.05, 0.05);
        for (std::int64_t x = 0; x < picture.width; ++x) {
            const double u = (2 * static_cast<double>(x) + 1) / static_cast<double>(picture.width) - 1;
            const double v = (2 * static_cast<double>(y) + 1) / static_cast<double>(picture.height) - 1;
            picture.mask[static_cast<std::size_t>(y * picture.width + x)] = u * u + v * v < 1.1 + ragged ? 255 : 0;
        }
    }
}

} // namespace panoval::mosaic::test
