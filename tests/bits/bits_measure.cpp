// SPDX-License-Identifier: MIT
// The measurement of round targets: refinement, detection, perspective, boards.
#include "panoval_measure.h"
#include "tests/bits/bits.h"

#include <algorithm>

namespace panoval::bits
{

namespace
{

void add(Digest& digest, const PanovalMeasureEllipse& e)
{
    for (const double value : {e.x, e.y, e.semi_major, e.semi_minor, e.angle})
        digest.add(value);
}

void add(Digest& digest, const PanovalMeasureTarget& t)
{
    add(digest, t.ellipse);
    digest.add(t.covariance, 25);
    for (const double value : {t.sigma_x, t.sigma_y, t.sigma_major, t.sigma_minor, t.sigma_angle, t.level_inside,
                               t.level_outside, t.slope_inside_x, t.slope_inside_y, t.slope_outside_x,
                               t.slope_outside_y, t.blur, t.sigma_blur, t.noise, t.edge_share, t.chi_square, t.quality})
        digest.add(value);
    for (const std::int32_t value : {t.polarity, t.flags, t.iterations, t.pixels, t.code})
        digest.add(value);
}

void add(Digest& digest, const PanovalMeasurePoint& p)
{
    for (const double value : {p.x, p.y, p.var_x, p.cov_xy, p.var_y})
        digest.add(value);
}

constexpr std::int32_t kSize = 240;

// Oval spots with soft edges on a slope of light, with noise: made without elementary functions.
std::vector<float> spots(std::uint64_t seed, std::vector<PanovalMeasureEllipse>& starts)
{
    Random random(seed);
    for (int n = 0; n < 16; ++n) {
        const double a = random.real(3, 16);
        starts.push_back({30 + 60 * (n % 4) + random.real(-3, 3), 30.0 + 60 * (n / 4) + random.real(-3, 3), a,
                          a * random.real(0.5, 1), 0});
    }
    std::vector<float> samples;
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x) {
            double share = 0;
            for (const auto& s : starts) {
                const double u = (x - s.x) / s.semi_major;
                const double v = (y - s.y) / s.semi_minor;
                const double r = std::sqrt(u * u + v * v);
                share += std::clamp(0.5 + (1 - r) * s.semi_minor / 2, 0.0, 1.0);
            }
            samples.push_back(static_cast<float>(200 - 140 * share + 0.05 * x + random.real(-4, 4)));
        }
    return samples;
}

void refinement(Digest& digest)
{
    for (const std::uint64_t seed : {1u, 1000u, 2000u}) {
        std::vector<PanovalMeasureEllipse> starts;
        const std::vector<float> samples = spots(seed, starts);
        std::vector<std::uint8_t> bytes;
        for (const float sample : samples)
            bytes.push_back(static_cast<std::uint8_t>(std::clamp(sample, 0.0f, 255.0f)));
        for (auto& start : starts) {
            start.x += 0.7;
            start.angle = 0.1;
        }
        std::vector<PanovalMeasureTarget> targets(starts.size());
        for (const PanovalMeasureImage& image :
             {PanovalMeasureImage{samples.data(), kSize, kSize, 4 * kSize, PANOVAL_MEASURE_F32, 0},
              PanovalMeasureImage{bytes.data(), kSize, kSize, kSize, PANOVAL_MEASURE_U8, 0}}) {
            digest.add(panoval_measure_refine(&image, starts.data(), 16, targets.data()));
            for (const auto& target : targets)
                add(digest, target);
        }
    }
}

void detection(Digest& digest)
{
    for (const std::uint64_t seed : {3u, 3000u}) {
        std::vector<PanovalMeasureEllipse> starts;
        const std::vector<float> samples = spots(seed, starts);
        const PanovalMeasureImage image = {samples.data(), kSize, kSize, 4 * kSize, PANOVAL_MEASURE_F32, 0};
        PanovalMeasureDetection found = {};
        digest.add(panoval_measure_detect(&image, nullptr, &found));
        digest.add(found.count);
        digest.add(found.candidates);
        for (std::int32_t n = 0; n < found.count; ++n)
            add(digest, found.targets[n]);
        panoval_measure_free(&found);
    }
}

void perspective(Digest& digest)
{
    Random random(5);
    std::vector<double> covariance(25, 0.0);
    for (std::size_t i = 0; i < 5; ++i)
        covariance[6 * i] = 1e-4 * static_cast<double>(i + 1);
    for (int n = 0; n < 500; ++n) {
        const double a = random.real(5, 60);
        const PanovalMeasureEllipse outer = {random.real(0, 900), random.real(0, 700), a, a * random.real(0.4, 1),
                                             random.real(-1.5, 1.5)};
        PanovalMeasureEllipse inner = outer;
        inner.x += 0.01 * a;
        inner.semi_major *= 0.5;
        inner.semi_minor *= 0.501;
        const double h[9] = {1, 0.1, random.real(0, 9), 0.2, 0.9, 3, random.real(-1e-4, 1e-4), 1e-4, 1};
        PanovalMeasurePoint centre = {};
        digest.add(panoval_measure_centre_by_homography(&outer, covariance.data(), h, &centre));
        add(digest, centre);
        digest.add(panoval_measure_centre_by_rings(&outer, covariance.data(), &inner, covariance.data(), &centre));
        add(digest, centre);
        PanovalMeasureCirclePose poses[2] = {};
        digest.add(panoval_measure_centre_by_focal_length(&outer, covariance.data(), 1500, 450, 350, poses));
        for (const auto& pose : poses) {
            add(digest, pose.centre);
            digest.add(pose.normal, 3);
            digest.add(pose.distance);
        }
    }
}

void boards(Digest& digest)
{
    Random random(6);
    for (int n = 0; n < 20; ++n) {
        std::vector<PanovalMeasureTarget> targets;
        const double slant = random.real(-0.03, 0.03);
        for (int place = 0; place < 48; ++place) {
            if (place == n + 9)
                continue;
            const double x = place % 8;
            const auto y = static_cast<double>(place / 8);
            const double w = 1 + slant * x + 0.02 * y;
            PanovalMeasureTarget target = {};
            target.ellipse = {(60 + 50 * x + 4 * y + random.real(-0.2, 0.2)) / w, (70 - 3 * x + 45 * y) / w, 12 / w,
                              10 / w, 0.2};
            targets.push_back(target);
        }
        PanovalMeasureGrid grid = {};
        std::vector<PanovalMeasureGridCell> cells(48);
        digest.add(
            panoval_measure_grid(targets.data(), static_cast<std::int32_t>(targets.size()), 6, 8, &grid, cells.data()));
        digest.add(grid.homography, 9);
        digest.add(grid.rms);
        digest.add(grid.max_residual);
        for (const auto& cell : cells) {
            digest.add(cell.target);
            for (const double value : {cell.x, cell.y, cell.centre_x, cell.centre_y, cell.residual_x, cell.residual_y})
                digest.add(value);
        }
    }
}

void texts(Digest& digest)
{
    for (std::int32_t code = -1; code < 20; ++code)
        for (const char* text = panoval_measure_error_text(code); *text != 0; ++text)
            digest.add(static_cast<std::uint64_t>(static_cast<unsigned char>(*text)), 1);
}

} // namespace

std::vector<Section> measure_sections()
{
    return {{"panoval_measure_refine", refinement},
            {"panoval_measure_detect _free", detection},
            {"panoval_measure_centre_by_homography _centre_by_rings _centre_by_focal_length", perspective},
            {"panoval_measure_grid", boards},
            {"panoval_measure_error_text", texts}};
}

} // namespace panoval::bits
