// SPDX-License-Identifier: MIT
// Measures rendered ellipses of known geometry with find_ellipse and writes one line of a table for each: the ellipse,
// the conditions, and the differences of what was found.
//
//   panoval_accuracy OUT.csv
#include "panoval.h"
#include "tests/support/scene.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace panoval::test;

constexpr double kPi = 3.141592653589793;
constexpr int kMinPixels = 10;
constexpr int kMaxRms = 2;

struct Trial {
    double radius = 20; // semi-major axis
    double aspect = 1;  // semi-minor by semi-major
    double angle = 0;   // radians
    double phase_x = 0; // of the centre, in pixels
    double phase_y = 0;
    int blur_passes = 1;
    double contrast = 160; // grey levels
    double light = 0;      // relative change across the picture
    double noise = 0;      // grey levels
    int divisions = 1;
    std::uint64_t seed = 1;
};

// Additive recurrence with the powers of the generalised golden ratio: points that fill a cube of Dimensions evenly.
template <int Dimensions>
class EvenSequence
{
public:
    EvenSequence()
    {
        double ratio = 2;
        for (int i = 0; i < 60; ++i)
            ratio = std::pow(1 + ratio, 1.0 / (Dimensions + 1));
        for (int d = 0; d < Dimensions; ++d) {
            step_[d] = std::pow(1 / ratio, d + 1);
            value_[d] = 0.5;
        }
    }

    void advance()
    {
        for (int d = 0; d < Dimensions; ++d)
            value_[d] = std::fmod(value_[d] + step_[d], 1.0);
    }

    double between(int dimension, double low, double high) const { return low + (high - low) * value_[dimension]; }

private:
    double step_[Dimensions];
    double value_[Dimensions];
};

Scene scene_of(const Trial& trial)
{
    const double margin = 12;
    const int size = static_cast<int>(std::ceil(2 * (trial.radius + margin))) | 1;
    const double middle = size / 2;
    return {.width = size,
            .height = size,
            .ellipses = {{.cx = middle + trial.phase_x,
                          .cy = middle + trial.phase_y,
                          .semi_major = trial.radius,
                          .semi_minor = trial.radius * trial.aspect,
                          .ux = std::cos(trial.angle),
                          .uy = std::sin(trial.angle),
                          .grey = 200 - trial.contrast}},
            .samples = 16,
            .blur_passes = trial.blur_passes,
            .light_x = trial.light * std::cos(7 * trial.angle),
            .light_y = trial.light * std::sin(7 * trial.angle),
            .noise_sigma = trial.noise,
            .seed = trial.seed};
}

// To -pi/2 .. pi/2: an axis has no sign.
double axis_difference(double a, double b)
{
    return std::remainder(a - b, kPi);
}

class Table
{
public:
    explicit Table(std::FILE* file) : file_(file)
    {
        std::fputs("study,radius,aspect,angle,phase_x,phase_y,blur,contrast,light,noise,divisions,found,others,"
                   "dx,dy,dmajor,dminor,dangle,rms\n",
                   file_);
    }

    void measure(const char* study, const Trial& trial)
    {
        const Scene scene = scene_of(trial);
        const SceneEllipse& truth = scene.ellipses[0];
        const auto pixels = render(scene);
        EllipseRegion* regions = nullptr;
        const int count =
            find_ellipse(pixels.data(), scene.width, scene.height, &regions, kMinPixels, kMaxRms, trial.divisions);
        const EllipseRegion* best = nullptr;
        for (int i = 0; i < count; ++i)
            if (is_match(regions[i], truth) && (best == nullptr || regions[i].point_count > best->point_count))
                best = &regions[i];
        std::fprintf(file_, "%s,%.6g,%.6g,%.9g,%.6g,%.6g,%d,%.6g,%.6g,%.6g,%d,%d,%d", study, trial.radius, trial.aspect,
                     trial.angle, trial.phase_x, trial.phase_y, trial.blur_passes, trial.contrast, trial.light,
                     trial.noise, trial.divisions, best != nullptr, count - (best != nullptr ? 1 : 0));
        if (best != nullptr)
            std::fprintf(file_, ",%.6g,%.6g,%.6g,%.6g,%.6g,%.6g\n", best->cx - truth.cx, best->cy - truth.cy,
                         best->major - truth.semi_major, best->minor - truth.semi_minor,
                         axis_difference(best->angle, trial.angle), best->rms);
        else
            std::fputs(",,,,,,\n", file_);
        for (int i = 0; i < count; ++i)
            std::free(regions[i].points);
        std::free(regions);
    }

private:
    // Within a quarter of the size, and not half as large or small.
    static bool is_match(const EllipseRegion& region, const SceneEllipse& truth)
    {
        const double reach = std::fmax(1, truth.semi_minor / 4);
        return std::hypot(region.cx - truth.cx, region.cy - truth.cy) < reach && region.major > truth.semi_major / 2 &&
               region.major < truth.semi_major * 2;
    }

    std::FILE* file_;
};

// Neighbouring seeds would give nearly the same noise.
std::uint64_t noise_seed(int n)
{
    return static_cast<std::uint64_t>(n) * 10'000'019u + 1;
}

// Everything at once: radius 3 to 200, aspect 1 to 0.3, every angle and place within a pixel, blur, contrast, uneven
// light and noise.
void study_everything(Table& table, int trials)
{
    EvenSequence<9> sequence;
    for (int n = 0; n < trials; ++n, sequence.advance())
        table.measure("everything", {.radius = 3 * std::pow(200.0 / 3, sequence.between(0, 0, 1)),
                                     .aspect = sequence.between(1, 0.3, 1),
                                     .angle = sequence.between(2, 0, kPi),
                                     .phase_x = sequence.between(3, -0.5, 0.5),
                                     .phase_y = sequence.between(4, -0.5, 0.5),
                                     .blur_passes = static_cast<int>(sequence.between(5, 0, 5)),
                                     .contrast = sequence.between(6, 80, 180),
                                     .light = sequence.between(7, 0, 0.2),
                                     .noise = sequence.between(8, 0, 5),
                                     .seed = noise_seed(n)});
}

// As before, but evenly lit, without noise and with full contrast.
void study_clean(Table& table, int trials)
{
    EvenSequence<5> sequence;
    for (int n = 0; n < trials; ++n, sequence.advance())
        table.measure("clean", {.radius = 3 * std::pow(200.0 / 3, sequence.between(0, 0, 1)),
                                .aspect = sequence.between(1, 0.3, 1),
                                .angle = sequence.between(2, 0, kPi),
                                .phase_x = sequence.between(3, -0.5, 0.5),
                                .phase_y = sequence.between(4, -0.5, 0.5)});
}

// Discs of some radii, and ellipses that lie aslant, moved through one pixel in x, for several places in y.
void study_phase(Table& table)
{
    for (const double radius : {4.0, 8.0, 16.0, 40.0})
        for (int i = 0; i <= 50; ++i)
            for (int j = 0; j < 10; ++j) {
                const double x = i / 50.0 - 0.5;
                const double y = j / 10.0 - 0.5;
                table.measure("phase", {.radius = radius, .phase_x = x, .phase_y = y});
                table.measure("phase_aslant",
                              {.radius = radius, .aspect = 0.6, .angle = kPi / 6, .phase_x = x, .phase_y = y});
            }
}

// Ellipses turned through half a circle in steps of a degree, and close to 45 degrees in finer ones.
void study_angle(Table& table)
{
    EvenSequence<2> phase;
    const auto turned = [&](double aspect, double degrees) {
        for (int n = 0; n < 8; ++n, phase.advance())
            table.measure("angle", {.radius = 30,
                                    .aspect = aspect,
                                    .angle = degrees * kPi / 180,
                                    .phase_x = phase.between(0, -0.5, 0.5),
                                    .phase_y = phase.between(1, -0.5, 0.5)});
        // the centre on a pixel's centre: at 45 degrees the picture is its own mirror image
        table.measure("angle_centred", {.radius = 30, .aspect = aspect, .angle = degrees * kPi / 180});
    };
    for (const double aspect : {0.9, 0.7, 0.4})
        for (int degrees = 0; degrees <= 180; ++degrees)
            turned(aspect, degrees);
}

// One condition at a time grows worse, for ellipses of radius 20.
void study_conditions(Table& table)
{
    EvenSequence<4> sequence;
    const auto measure = [&](const char* study, const auto& set_condition) {
        for (int step = 0; step <= 20; ++step)
            for (int n = 0; n < 60; ++n, sequence.advance()) {
                Trial trial{.radius = 20,
                            .aspect = sequence.between(0, 0.5, 1),
                            .angle = sequence.between(1, 0, kPi),
                            .phase_x = sequence.between(2, -0.5, 0.5),
                            .phase_y = sequence.between(3, -0.5, 0.5),
                            .seed = noise_seed(n * 100 + step)};
                set_condition(trial, step);
                table.measure(study, trial);
            }
    };
    measure("noise", [](Trial& trial, int step) { trial.noise = step; });
    measure("blur", [](Trial& trial, int step) { trial.blur_passes = step; });
    measure("light", [](Trial& trial, int step) { trial.light = step * 0.03; });
    measure("contrast", [](Trial& trial, int step) {
        trial.contrast = 180 - step * 8;
        trial.noise = 2;
    });
}

// More and more tiles across a target in uneven light.
void study_divisions(Table& table)
{
    EvenSequence<4> sequence;
    for (int divisions = 1; divisions <= 8; ++divisions)
        for (int n = 0; n < 100; ++n, sequence.advance())
            table.measure("divisions", {.radius = 40,
                                        .aspect = sequence.between(0, 0.7, 1),
                                        .angle = sequence.between(1, 0, kPi),
                                        .phase_x = sequence.between(2, -0.5, 0.5),
                                        .phase_y = sequence.between(3, -0.5, 0.5),
                                        .light = 0.2,
                                        .noise = 1,
                                        .divisions = divisions,
                                        .seed = noise_seed(n * 100 + divisions)});
}

// Flatter and flatter ellipses.
void study_aspect(Table& table)
{
    EvenSequence<3> sequence;
    for (const double radius : {10.0, 40.0})
        for (int percent = 10; percent <= 100; percent += 2)
            for (int n = 0; n < 60; ++n, sequence.advance())
                table.measure("aspect", {.radius = radius,
                                         .aspect = percent / 100.0,
                                         .angle = sequence.between(0, 0, kPi),
                                         .phase_x = sequence.between(1, -0.5, 0.5),
                                         .phase_y = sequence.between(2, -0.5, 0.5)});
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: panoval_accuracy OUT.csv\n");
        return 2;
    }
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    const std::unique_ptr<std::FILE, Close> file(std::fopen(argv[1], "w"));
    if (file == nullptr) {
        std::fprintf(stderr, "cannot write %s\n", argv[1]);
        return 1;
    }
    Table table(file.get());
    study_everything(table, 6000);
    study_clean(table, 4000);
    study_phase(table);
    study_angle(table);
    study_conditions(table);
    study_divisions(table);
    study_aspect(table);
    return 0;
}
