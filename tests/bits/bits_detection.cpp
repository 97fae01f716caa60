// SPDX-License-Identifier: MIT
// Histograms, thresholds, the ellipse fit and the two finders.
#include "tests/bits/bits_records.h"

namespace panoval::bits
{

namespace
{

void histograms(Digest& digest)
{
    for (const Kind kind : kKinds)
        for (const Shape& shape : kShapes) {
            std::vector<double> bins(256);
            double* at = bins.data();
            digest.add(
                histogram_count(picture(kind, shape.width, shape.height, 6).data(), shape.width, shape.height, &at));
            digest.add(bins);
            digest.add(find_threshold(bins.data()));
            digest.add(find_trough(&at));
        }
}

// Points near an ellipse given by a rational parametrisation, so that no sine is needed.
std::vector<double> points_of_ellipse(Random& random, int count)
{
    const double cx = random.real(-100, 900);
    const double cy = random.real(-100, 900);
    const double a = random.real(2, 80);
    const double b = a * random.real(0.2, 1);
    const double turn = random.real(-1, 1);
    const double cosine = (1 - turn * turn) / (1 + turn * turn);
    const double sine = 2 * turn / (1 + turn * turn);
    const double noise = random.real(0, 0.5);
    std::vector<double> points;
    for (int i = 0; i < count; ++i) {
        const double t = random.real(-3, 3);
        const double x = a * (1 - t * t) / (1 + t * t);
        const double y = b * 2 * t / (1 + t * t);
        points.push_back(cx + x * cosine - y * sine + random.real(-noise, noise));
        points.push_back(cy + x * sine + y * cosine + random.real(-noise, noise));
    }
    return points;
}

void fits(Digest& digest)
{
    Random random(8);
    for (int i = 0; i < 3000; ++i) {
        const auto count = static_cast<int>(random.integer(4, 60));
        OvalFit fit = {};
        const std::int32_t result = oval_fit(count, points_of_ellipse(random, count).data(), &fit);
        digest.add(result);
        for (const double value : {fit.coef_a, fit.coef_b, fit.coef_c, fit.coef_d, fit.coef_e, fit.coef_f})
            digest.add(value);
        if (result == 0)
            continue;
        for (const double value :
             {fit.x0, fit.y0, fit.semi_major, fit.semi_minor, fit.theta, fit.rms, fit.max_residual})
            digest.add(value);
    }
}

void add_regions(Digest& digest, const EllipseRegion* regions, std::size_t count)
{
    digest.add(static_cast<std::uint64_t>(count));
    for (std::size_t i = 0; i < count; ++i) {
        const EllipseRegion& region = regions[i];
        for (const double value : {region.cx, region.cy, region.major, region.minor, region.angle, region.rms})
            digest.add(value);
        digest.add(region.pixel_count);
        digest.add(region.point_count);
        if (region.points != nullptr)
            digest.add(region.points, static_cast<std::size_t>(region.point_count));
    }
}

void dark_shapes(Digest& digest)
{
    for (const Kind kind : kKinds)
        for (const Shape& shape : {Shape{64, 48}, {160, 120}, {340, 290}})
            for (const int divisions : {1, 4, 9}) {
                const auto image = picture(kind, shape.width, shape.height, 7);
                EllipseRegion* regions = nullptr;
                const int count = find_ellipse(image.data(), shape.width, shape.height, &regions, 10,
                                               divisions == 9 ? 1 : 1000, divisions);
                add_regions(digest, regions, static_cast<std::size_t>(count));
                for (int i = 0; i < count; ++i)
                    std::free(regions[i].points);
                std::free(regions);
            }
}

void bright_features(Digest& digest)
{
    Random random(9);
    for (const Kind kind : kKinds)
        for (int i = 0; i < 40; ++i) {
            auto image = picture(kind, 160, 120, static_cast<std::uint64_t>(i));
            const double a = random.real(6, 50);
            const double ellipse[] = {random.real(20, 140), random.real(20, 100), a, a * random.real(0.3, 1.1),
                                      random.real(-4, 4)};
            EllipseRegion* regions = nullptr;
            const std::uint32_t count = find_small_ellipse(image.data(), 160, 120, ellipse, &regions);
            add_regions(digest, regions, count);
            digest.add(image);
            std::free(regions);
        }
}

} // namespace

std::vector<Section> detection_sections()
{
    return {{"histogram_count find_threshold find_trough", histograms},
            {"oval_fit", fits},
            {"find_ellipse", dark_shapes},
            {"find_small_ellipse", bright_features}};
}

} // namespace panoval::bits
