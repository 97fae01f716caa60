// SPDX-License-Identifier: MIT
// Measures rendered targets of known geometry: one by one with every parameter drawn from a low-discrepancy sequence,
// and in whole scenes. docs/accuracy/make_accuracy.py runs it and measures the same pictures by other means.
//
//   panoval_study FOLDER TRIALS SCENES
//
// writes into the folder trials.csv, pictures.bin (of every trial: width, height as 32-bit integers, samples of 8 bit)
// and scenes.csv.
#include "panoval.h"
#include "panoval_measure.h"
#include "tests/scenes/scene_kinds.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{

using namespace panoval::test;

constexpr double kPi = 3.14159265358979323846;

// Additive recurrence with the powers of the generalised golden ratio: points that fill a cube evenly.
class EvenSequence
{
public:
    static constexpr int kDimensions = 7;

    EvenSequence()
    {
        double ratio = 2;
        for (int i = 0; i < 60; ++i)
            ratio = std::pow(1 + ratio, 1.0 / (kDimensions + 1));
        for (int d = 0; d < kDimensions; ++d)
            step_[d] = std::pow(1 / ratio, d + 1);
    }

    // Of point i, from low to high; evenly in the logarithm with a positive low and `logarithmic`.
    double at(int i, int dimension, double low, double high, bool logarithmic = false) const
    {
        const double share = std::fmod(0.5 + (i + 1) * step_[dimension], 1.0);
        return logarithmic ? low * std::pow(high / low, share) : low + (high - low) * share;
    }

private:
    double step_[kDimensions];
};

struct Trial {
    TargetScene scene;
    double contrast = 150;
};

Trial trial_of(const EvenSequence& sequence, int i, bool is_noisy)
{
    Trial trial;
    const double radius = sequence.at(i, 0, 4, 100, true);
    const double b = radius * sequence.at(i, 1, 0.4, 1);
    const double blur = sequence.at(i, 2, 0.4, std::min(radius / 4, 2.0));
    const double share = sequence.at(i, 3, 0.005, 0.1, true);
    TargetScene& scene = trial.scene;
    const auto side = static_cast<std::int32_t>(2 * radius * 1.6 + 8 * blur + 24);
    scene.width = scene.height = side;
    scene.blur = blur;
    scene.noise = is_noisy ? share * trial.contrast : 0;
    scene.seed = static_cast<std::uint64_t>(i) + 1;
    add_target(scene, side / 2 + sequence.at(i, 4, -0.5, 0.5), side / 2 + sequence.at(i, 5, -0.5, 0.5), radius, b,
               sequence.at(i, 6, -kPi / 2, kPi / 2), 50, 200);
    return trial;
}

struct Bound {
    double xx = 0, xy = 0, yy = 0; // covariance of the centre
};

// The inverse of C^2 / (2 sqrt(pi) s_e sigma^2) times the integral of n n^T along the outline.
Bound bound_of(const Trial& trial)
{
    const TrueTarget& t = trial.scene.targets[0];
    const double spread = std::sqrt(trial.scene.blur * trial.scene.blur + 1.0 / 12);
    const double variance = trial.scene.noise * trial.scene.noise + 1.0 / 12; // with rounding
    double xx = 0, xy = 0, yy = 0;
    constexpr int kSteps = 720;
    for (int i = 0; i < kSteps; ++i) {
        const double u = 2 * kPi * (i + 0.5) / kSteps;
        const double na = t.b * std::cos(u); // the normal, as long as the outline's element
        const double nb = t.a * std::sin(u);
        const double length = std::hypot(na, nb);
        const double nx = na * std::cos(t.angle) - nb * std::sin(t.angle);
        const double ny = na * std::sin(t.angle) + nb * std::cos(t.angle);
        const double weight = 2 * kPi / kSteps / length;
        xx += nx * nx * weight;
        xy += nx * ny * weight;
        yy += ny * ny * weight;
    }
    const double factor = trial.contrast * trial.contrast / (2 * std::sqrt(kPi) * spread * variance);
    const double det = (xx * yy - xy * xy) * factor;
    return {yy / det, -xy / det, xx / det};
}

// A start as detection gives it: off by a fraction of a pixel.
PanovalMeasureTarget refined(const Trial& trial, const void* samples, std::int64_t sample_size, std::int32_t type)
{
    const TargetScene& s = trial.scene;
    const PanovalMeasureImage image = {samples, s.width, s.height, sample_size * s.width, type, 0};
    const TrueTarget& t = s.targets[0];
    const PanovalMeasureEllipse start = {t.x + 0.3, t.y - 0.2, t.a * 1.02, t.b * 0.98, t.angle + 0.02};
    PanovalMeasureTarget target = {};
    (void)panoval_measure_refine(&image, &start, 1, &target);
    return target;
}

// Before the noise and the rounding.
PanovalMeasureTarget refined_exactly(const Trial& trial)
{
    const std::vector<double> exact = render_exact(trial.scene);
    const std::vector<float> samples(exact.begin(), exact.end());
    return refined(trial, samples.data(), sizeof(float), PANOVAL_MEASURE_F32);
}

bool found_by_library(const Trial& trial, const std::vector<std::uint8_t>& pixels, EllipseRegion& nearest)
{
    EllipseRegion* regions = nullptr;
    const int count = find_ellipse(pixels.data(), trial.scene.width, trial.scene.height, &regions, 10, 2, 1);
    bool is_found = false;
    const TrueTarget& t = trial.scene.targets[0];
    for (int i = 0; i < count; ++i) {
        const EllipseRegion& r = regions[i];
        if (std::hypot(r.cx - t.x, r.cy - t.y) < t.b / 2 && std::fabs(r.major - t.a) < t.a / 2) {
            nearest = r;
            is_found = true;
        }
        std::free(r.points);
    }
    std::free(regions);
    return is_found;
}

void run_trials(const std::string& folder, int count)
{
    std::FILE* const csv = std::fopen((folder + "/trials.csv").c_str(), "w");
    std::FILE* const raw = std::fopen((folder + "/pictures.bin").c_str(), "wb");
    if (csv == nullptr || raw == nullptr)
        std::exit(1);
    std::fprintf(csv, "noisy,radius,aspect,blur,noise,contrast,x,y,a,b,angle,bound_xx,bound_xy,bound_yy,code,px,py,pa,"
                      "pb,pangle,sigma_x,cov_xy,sigma_y,sigma_a,sigma_b,sigma_angle,round,chi_square,library,lx,ly,la,"
                      "lb,langle,ex,ey,ea,eb,eangle\n");
    const EvenSequence sequence;
    for (const bool is_noisy : {false, true})
        for (int i = 0; i < (is_noisy ? count : count / 4); ++i) {
            const Trial trial = trial_of(sequence, i, is_noisy);
            const std::vector<std::uint8_t> pixels = render_8_bit(trial.scene);
            const Bound bound = bound_of(trial);
            const PanovalMeasureTarget p = refined(trial, pixels.data(), 1, PANOVAL_MEASURE_U8);
            const PanovalMeasureTarget exact = is_noisy ? PanovalMeasureTarget{} : refined_exactly(trial);
            EllipseRegion library = {};
            const bool is_found = found_by_library(trial, pixels, library);
            const TrueTarget& t = trial.scene.targets[0];
            std::fprintf(csv,
                         "%d,%.9g,%.9g,%.9g,%.9g,%.9g,%.12g,%.12g,%.12g,%.12g,%.12g,%.9g,%.9g,%.9g,%d,%.12g,"
                         "%.12g,%.12g,%.12g,%.12g,%.9g,%.9g,%.9g,%.9g,%.9g,%.9g,%d,%.9g,%d,%.12g,%.12g,%.12g,"
                         "%.12g,%.12g,%.12g,%.12g,%.12g,%.12g,%.12g\n",
                         is_noisy, t.a, t.b / t.a, trial.scene.blur, trial.scene.noise, trial.contrast, t.x, t.y, t.a,
                         t.b, t.angle, bound.xx, bound.xy, bound.yy, static_cast<int>(p.code), p.ellipse.x, p.ellipse.y,
                         p.ellipse.semi_major, p.ellipse.semi_minor, p.ellipse.angle, p.sigma_x, p.covariance[1],
                         p.sigma_y, p.sigma_major, p.sigma_minor, p.sigma_angle, (p.flags & PANOVAL_MEASURE_ROUND) != 0,
                         p.chi_square, is_found, library.cx, library.cy, library.major, library.minor, library.angle,
                         exact.ellipse.x, exact.ellipse.y, exact.ellipse.semi_major, exact.ellipse.semi_minor,
                         exact.ellipse.angle);
            const std::int32_t size[2] = {trial.scene.width, trial.scene.height};
            std::fwrite(size, sizeof size, 1, raw);
            std::fwrite(pixels.data(), 1, pixels.size(), raw);
        }
    std::fclose(csv);
    std::fclose(raw);
}

bool is_at(const TrueTarget& t, double x, double y, double a, double b)
{
    const double near = std::max(1.0, 0.1 * t.b);
    return std::hypot(x - t.x, y - t.y) < near && std::fabs(a - t.a) < near && std::fabs(b - t.b) < near;
}

// One line: kind, conditions, targets, found, false, and found by the library where it can: dark ones.
void count_scene(std::FILE* csv, const char* kind, const char* conditions, const TargetScene& scene)
{
    const std::vector<std::uint8_t> pixels = render_8_bit(scene);
    const PanovalMeasureImage image = {pixels.data(), scene.width, scene.height, scene.width, PANOVAL_MEASURE_U8, 0};
    PanovalMeasureDetection detection = {};
    if (panoval_measure_detect(&image, nullptr, &detection) != PANOVAL_MEASURE_OK)
        std::exit(1);
    EllipseRegion* regions = nullptr;
    const int count = find_ellipse(pixels.data(), scene.width, scene.height, &regions, 30, 2,
                                   std::max(1, (std::min(scene.width, scene.height) + 50) / 100));
    int targets = 0, found = 0, library = 0;
    std::vector<bool> is_right(static_cast<std::size_t>(detection.count));
    for (const TrueTarget& t : scene.targets) {
        bool is_found = false;
        for (int i = 0; i < detection.count; ++i) {
            const PanovalMeasureTarget& p = detection.targets[i];
            const bool is_dark = p.polarity == PANOVAL_MEASURE_DARK;
            if (is_dark != (t.inside < t.outside) ||
                !is_at(t, p.ellipse.x, p.ellipse.y, p.ellipse.semi_major, p.ellipse.semi_minor))
                continue;
            is_right[static_cast<std::size_t>(i)] = is_found = true;
        }
        bool has_library = false;
        for (int i = 0; i < count; ++i)
            has_library |= is_at(t, regions[i].cx, regions[i].cy, regions[i].major, regions[i].minor);
        targets += !t.is_hard;
        found += is_found && !t.is_hard;
        library += has_library && !t.is_hard;
    }
    std::fprintf(csv, "%s,%s,%d,%d,%d,%d,%d\n", kind, conditions, targets, found, static_cast<int>(detection.count),
                 static_cast<int>(std::count(is_right.begin(), is_right.end(), false)), library);
    for (int i = 0; i < count; ++i)
        std::free(regions[i].points);
    std::free(regions);
    panoval_measure_free(&detection);
}

void run_scenes(const std::string& folder, int count)
{
    std::FILE* const csv = std::fopen((folder + "/scenes.csv").c_str(), "w");
    if (csv == nullptr)
        std::exit(1);
    std::fprintf(csv, "kind,conditions,targets,found,records,false,library\n");
    struct Named {
        const char* name;
        SceneConditions conditions;
    };
    const Named all[] = {
        {"contrast 150; noise 2", {}},
        {"contrast 41; noise 5.1 (8 sigma; 2 %)", {.contrast = 41, .noise = 5.1}},
        {"bright; light changes by 50 %", {.contrast = 100, .noise = 5.1, .light = 0.5, .is_bright = true}}};
    const char* const clutter[] = {"text", "cups", "hatching", "rectangles"};
    for (const Named& named : all)
        for (int i = 0; i < count; ++i) {
            const auto seed = static_cast<std::uint64_t>(1000 + i);
            Random random(seed);
            count_scene(csv, "board", named.name, board_scene(named.conditions, random_view(random), seed));
            count_scene(csv, "scatter", named.name, scatter_scene(named.conditions, 30, seed));
            count_scene(csv, "rings", named.name, ring_scene(named.conditions, 15, seed));
            for (std::size_t k = 0; k < kAllClutter.size(); ++k)
                count_scene(csv, clutter[k], named.name, cluttered_scene(named.conditions, 20, kAllClutter[k], seed));
            count_scene(csv, "noise alone", named.name, scatter_scene(named.conditions, 0, seed));
        }
    std::fclose(csv);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "panoval_study FOLDER TRIALS SCENES\n");
        return 2;
    }
    run_trials(argv[1], std::atoi(argv[2]));
    run_scenes(argv[1], std::atoi(argv[3]));
    return 0;
}
