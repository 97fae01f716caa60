// SPDX-License-Identifier: MIT
// Whole panoramas: pictures of one known scene, with exposures, vignetting, noise and ragged masks of their own, are
// compensated and blended. Every sample of the results is pinned, so that each instruction set, compiler and system
// has to give the same panorama. The scene is made of sums, products and quotients alone, which are the same
// everywhere.
#include "panoval.h"
#include "tests/support/buffers.h"
#include "tests/support/golden.h"
#include "tests/support/noise.h"
#include "tests/support/pictures.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <vector>

namespace panoval::test
{
namespace
{

struct View {
    Point tl;
    int width, height;
    double exposure;
};

// Two rows and a far corner; the last two are tiny.
constexpr View kViews[] = {{{-70, -35}, 150, 110, 0.75}, {{25, -41}, 141, 120, 1.3}, {{112, -30}, 133, 105, 1.0},
                           {{-64, 40}, 160, 97, 1.15},   {{60, 52}, 171, 90, 0.9},   {{90, 20}, 5, 3, 1.1},
                           {{-20, 60}, 1, 1, 0.8}};
constexpr Roi kCanvas = {-70, -41, 315, 183};

// A value from 0 to 1 that belongs to a grid point.
double lattice(int x, int y, int seed)
{
    const auto key = static_cast<std::uint64_t>(x + 4096) * 8192u + static_cast<std::uint64_t>(y + 4096);
    return Random(key * 64u + static_cast<std::uint64_t>(seed)).unit();
}

int floor_div(int a, int b)
{
    return a >= 0 ? a / b : -((b - 1 - a) / b);
}

// Between the points of a grid of that step.
double value_noise(int x, int y, int step, int seed)
{
    const int i = floor_div(x, step);
    const int j = floor_div(y, step);
    const double u = static_cast<double>(x - i * step) / step;
    const double v = static_cast<double>(y - j * step) / step;
    const double top = lattice(i, j, seed) * (1 - u) + lattice(i + 1, j, seed) * u;
    const double bottom = lattice(i, j + 1, seed) * (1 - u) + lattice(i + 1, j + 1, seed) * u;
    return top * (1 - v) + bottom * v;
}

// Grey level of the scene: wide hills, smaller ones, texture; 30 to 170.
double scene_at(int x, int y, int channel)
{
    return 30 + 70 * value_noise(x, y, 61, channel) + 45 * value_noise(x, y, 17, channel + 8) +
           25 * value_noise(x, y, 3, channel + 16);
}

struct Shot {
    OwnedMat image;
    std::vector<std::uint8_t> mask;
    Point tl;

    Matb covered() { return {image.get()->width, image.get()->height, 1, mask.data()}; }
};

// 1 in the middle, 0.85 in the corners.
double vignetting(const View& view, int x, int y)
{
    const double u = (2.0 * x + 1) / view.width - 1;
    const double v = (2.0 * y + 1) / view.height - 1;
    return 1 - 0.075 * (u * u + v * v);
}

// The picture's own rim is uncovered, in a ragged line, and fades in over four pixels.
std::uint8_t coverage(const View& view, int x, int y)
{
    if (view.width < 8)
        return 200;
    const int ragged = static_cast<int>(4 * value_noise(x, y, 5, 40));
    const int inside = std::min({x, y, view.width - 1 - x, view.height - 1 - y}) - ragged;
    return static_cast<std::uint8_t>(std::clamp(inside * 64, 0, 255));
}

Shot shoot(const View& view, int channels, int elem_size, double vignetted, int noise_levels)
{
    Shot shot = {OwnedMat(view.width, view.height, channels, elem_size), {}, view.tl};
    Random random(static_cast<std::uint64_t>(view.width));
    const double unit = elem_size == 1 ? 1 : 150; // squares of samples beyond 46340 would wrap
    for (int y = 0; y < view.height; ++y)
        for (int x = 0; x < view.width; ++x) {
            shot.mask.push_back(coverage(view, x, y));
            const double light = view.exposure * (1 - vignetted * (1 - vignetting(view, x, y)));
            for (int c = 0; c < channels; ++c) {
                const double level = light * scene_at(view.tl.x + x, view.tl.y + y, c);
                const auto noise = static_cast<double>(random.integer(-noise_levels, noise_levels));
                const auto sample = static_cast<int>((level + noise) * unit + 0.5);
                shot.image.set((y * view.width + x) * channels + c,
                               std::clamp(sample, 0, elem_size == 1 ? 255 : 65535));
            }
        }
    return shot;
}

std::vector<Shot> shoot_all(int channels, int elem_size, double vignetted = 1, int noise_levels = 1)
{
    std::vector<Shot> shots;
    for (const View& view : kViews)
        shots.push_back(shoot(view, channels, elem_size, vignetted, noise_levels));
    return shots;
}

std::vector<double> compensate(std::vector<Shot>& shots)
{
    GainCompensator gc = {};
    const auto n = static_cast<std::int32_t>(shots.size());
    gain_compensator_init_start(&gc, n);
    for (std::int32_t i = 0; i < n; ++i)
        for (std::int32_t j = i; j < n; ++j) {
            Shot& a = shots[static_cast<std::size_t>(i)];
            Shot& b = shots[static_cast<std::size_t>(j)];
            const Matb covered_a = a.covered();
            const Matb covered_b = b.covered();
            gain_compensator_init_step(&gc, i, j, a.tl, a.image.get(), &covered_a, b.tl, b.image.get(), &covered_b);
        }
    gain_compensator_init_end(&gc);
    std::vector<double> gains(gc.gains.data, gc.gains.data + n);
    for (std::int32_t i = 0; i < n; ++i)
        gain_compensator_apply(&gc, i, shots[static_cast<std::size_t>(i)].image.get());
    gain_compensator_free(&gc);
    return gains;
}

void blend_bands(std::vector<Shot>& shots, int channels, int elem_size, int bands, Mat* panorama)
{
    MultiBandBlender blender = {};
    Roi canvas = kCanvas;
    multi_band_blender_setbands(&blender, bands);
    multi_band_blender_prepare(&blender, channels, &canvas);
    for (Shot& shot : shots) {
        const Matb covered = shot.covered();
        multi_band_blender_feed(&blender, shot.image.get(), &covered, shot.tl);
    }
    multi_band_blender_blend(&blender, panorama, elem_size);
}

void blend_feathered(std::vector<Shot>& shots, int channels, int elem_size, Mat* panorama)
{
    FeatherBlender blender = {};
    Roi canvas = kCanvas;
    feather_blender_prepare(&blender, channels, &canvas);
    for (Shot& shot : shots) {
        const Matb covered = shot.covered();
        feather_blender_feed(&blender, shot.image.get(), &covered, shot.tl);
    }
    feather_blender_blend(&blender, panorama, elem_size);
}

// FNV-1a of all bytes.
std::uint64_t sum_of(const Mat& image)
{
    std::uint64_t hash = 14695981039346656037u;
    for (std::int32_t i = 0; i < image.size; ++i)
        hash = (hash ^ image.data[i]) * 1099511628211u;
    return hash;
}

void describe(std::ostream& out, const char* blending, const Mat& panorama)
{
    out << blending << ' ' << panorama.width << " x " << panorama.height << " sum " << std::hex << sum_of(panorama)
        << std::dec << " samples";
    const std::int32_t count = panorama.size / std::max(1, panorama.elemSize);
    for (int i = 1; i <= 8; ++i) {
        const std::int32_t at = count / 9 * i;
        const std::uint8_t* sample = panorama.data + static_cast<std::ptrdiff_t>(at) * panorama.elemSize;
        out << ' ' << (panorama.elemSize == 1 ? *sample : sample[0] | (sample[1] << 8));
    }
    out << '\n';
}

TEST(Panorama, IsTheSameEverywhere)
{
    for_each_target([] {
        std::ostringstream text;
        for (const int channels : {1, 3})
            for (const int elem_size : {1, 2}) {
                text << channels << " x " << 8 * elem_size << " bit\n";
                auto shots = shoot_all(channels, elem_size);
                compensate(shots);
                OwnedMat panorama;
                blend_feathered(shots, channels, elem_size, panorama.get());
                describe(text, "feather", *panorama);
                for (int bands = 1; bands <= 7; ++bands) {
                    blend_bands(shots, channels, elem_size, bands, panorama.get());
                    describe(text, ("bands " + std::to_string(bands)).c_str(), *panorama);
                }
            }
        EXPECT_TRUE(equals_golden("panorama.txt", text.str()));
    });
}

// Mean and largest difference from the scene.
struct Error {
    double mean, largest;
};

bool is_covered_well(int x, int y)
{
    return std::any_of(std::begin(kViews), std::end(kViews), [&](const View& view) {
        const int u = x - view.tl.x;
        const int v = y - view.tl.y;
        return u >= 0 && v >= 0 && u < view.width && v < view.height && coverage(view, u, v) == 255;
    });
}

// Of the pixels that lie so far inside what the pictures cover.
Error error_of(const OwnedMat& panorama, int channels, int margin)
{
    const auto is_inside = [margin](int x, int y) {
        return is_covered_well(x - margin, y) && is_covered_well(x + margin, y) && is_covered_well(x, y - margin) &&
               is_covered_well(x, y + margin) && is_covered_well(x, y);
    };
    Error error = {};
    double sum = 0;
    int count = 0;
    for (int y = 0; y < kCanvas.height; ++y)
        for (int x = 0; x < kCanvas.width; ++x)
            if (is_inside(x + kCanvas.x, y + kCanvas.y))
                for (int c = 0; c < channels; ++c) {
                    const double truth = scene_at(x + kCanvas.x, y + kCanvas.y, c);
                    const double off = std::fabs(panorama.at((y * kCanvas.width + x) * channels + c) - truth);
                    sum += off;
                    error.largest = std::max(error.largest, off);
                    ++count;
                }
    EXPECT_GT(count, 10000);
    error.mean = sum / count;
    return error;
}

// Pictures of one exposure: of noise and rounding nothing more may be left at the seams than a picture has by itself.
// From five bands on the structures reach from the rim of these small pictures into their middle, and with them what
// the pictures are continued by behind it.
TEST(Panorama, ShowsTheSceneWithoutSeams)
{
    constexpr int kNoise = 2;
    std::vector<Shot> shots;
    for (View view : kViews) {
        view.exposure = 1;
        shots.push_back(shoot(view, 3, 1, 0, kNoise));
    }
    OwnedMat panorama;
    for (int bands = 1; bands <= 7; ++bands) {
        blend_bands(shots, 3, 1, bands, panorama.get());
        const Error error = error_of(panorama, 3, std::min(1 << bands, 32));
        const int times = bands <= 4 ? 1 : 2;
        EXPECT_LT(error.mean, times * kNoise) << bands << " bands";
        EXPECT_LE(error.largest, times * 3 * kNoise) << bands << " bands";
    }
    blend_feathered(shots, 3, 1, panorama.get());
    EXPECT_LE(error_of(panorama, 3, 1).largest, kNoise + 2);
}

TEST(Panorama, GainsBringExposuresTogether)
{
    auto shots = shoot_all(3, 1);
    const auto gains = compensate(shots);
    const auto spread = [](auto value_at) {
        double least = 1e9;
        double most = 0;
        for (std::size_t i = 0; i < 5; ++i) { // the tiny ones hardly count
            least = std::min(least, value_at(i));
            most = std::max(most, value_at(i));
        }
        return most / least;
    };
    const double before = spread([](std::size_t i) { return kViews[i].exposure; });
    const double after = spread([&](std::size_t i) { return kViews[i].exposure * gains[i]; });
    EXPECT_NEAR(before, 1.3 / 0.75, 1e-9);
    EXPECT_LT(after - 1, 0.5 * (before - 1));
    EXPECT_GT(gains[0], 1);
    EXPECT_LT(gains[1], 1);
}

} // namespace
} // namespace panoval::test
