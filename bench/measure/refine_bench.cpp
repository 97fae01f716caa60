// SPDX-License-Identifier: MIT
// Refinement of single targets beside a plain least squares fit of the same samples, and the kernels that most of its
// time goes into beside their literal twins. "Pixels" are targets for the first, samples of outlines and equations for
// the others.
#include "bench/support/routine.h"
#include "measure/outline_kernel.h"
#include "panoval_measure.h"
#include "tests/reference/outline_kernel.h"
#include "tests/reference/plain_fit.h"
#include "tests/support/noise.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace
{

using panoval::bench::Case;
using panoval::measure::Level;

// A dark disc with a soft edge and noise, 8 bit.
struct Target {
    explicit Target(double radius, double blur)
        : width(2 * static_cast<std::int32_t>(1.8 * radius + 10)), centre(width / 2 + 0.3),
          samples(static_cast<std::size_t>(width) * static_cast<std::size_t>(width))
    {
        panoval::test::Random random(5);
        for (std::int32_t y = 0; y < width; ++y)
            for (std::int32_t x = 0; x < width; ++x) {
                const double distance = std::hypot(x - centre, (y - centre) / 0.8) - radius;
                const double level = 50 + 75 * (1 + std::tanh(1.2 * distance / blur)) + random.real(-3, 3);
                samples[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)] =
                    static_cast<std::uint8_t>(std::clamp(level, 0.0, 255.0));
            }
        start = {centre + 0.3, centre - 0.2, radius + 0.3, 0.8 * radius, 0};
        plain_start.unknowns = {start.x, start.y, 0.9 * radius, 0.1 * radius, 0, blur * blur, 50, 200, 0, 0};
    }
    void fit_plainly()
    {
        plain = panoval::reference::fit_plainly(samples, static_cast<std::size_t>(width), plain_start);
    }
    bool is_same() const
    {
        return std::hypot(found.ellipse.x - plain.unknowns[0], found.ellipse.y - plain.unknowns[1]) < found.sigma_x;
    }
    void refine()
    {
        const PanovalMeasureImage image = {samples.data(), width, width, width, PANOVAL_MEASURE_U8, 0};
        panoval_measure_refine(&image, &start, 1, &found);
    }

    std::int32_t width;
    double centre;
    std::vector<std::uint8_t> samples;
    PanovalMeasureEllipse start = {};
    PanovalMeasureTarget found = {};
    panoval::reference::PlainFit plain_start;
    panoval::reference::PlainFit plain;
};

constexpr double kPlainRadius = 40; // beyond it a plain fit takes seconds

Case make_refine(double radius, double blur)
{
    const auto target = std::make_shared<Target>(radius, blur);
    return {.size = "R " + std::to_string(static_cast<int>(radius)),
            .content = "blur " + std::to_string(blur).substr(0, 3),
            .pixels = 1,
            .fast = [target] { target->refine(); },
            .twin = radius <= kPlainRadius ? std::function<void()>([target] { target->fit_plainly(); }) : nullptr,
            .same = radius <= kPlainRadius ? std::function<bool()>([target] { return target->is_same(); }) : nullptr};
}

// One outline of 2 x 60 samples, windows of 9 pixels.
struct Tables {
    static constexpr std::size_t kLevels = 60;
    static constexpr std::size_t kWindow = 9;
    static constexpr std::size_t kPadded = 12;
    static constexpr std::size_t kStride = 80;

    Tables()
        : by_row(panoval::test::noise(3 * kPadded * kLevels, -1.f, 1.f, 1)),
          by_column(panoval::test::noise(6 * kPadded * kLevels, -1.f, 1.f, 2)), levels(kLevels),
          scratch(panoval::measure::respond_scratch(kPadded)), rows(panoval::test::noise(12 * kLevels, -1.0, 1.0, 3)),
          values(panoval::test::noise(kLevels, -1.0, 1.0, 4))
    {
        panoval::test::Random random(6);
        for (Level& level : levels) {
            level.row = static_cast<std::int32_t>(random.integer(0, 7));
            for (int& column : level.column)
                column = static_cast<int>(random.integer(0, 60));
            level.height = static_cast<float>(random.real(0, 1));
            for (std::size_t side = 0; side < 2; ++side) {
                std::fill_n(level.by[side], 5, static_cast<float>(random.real(-1, 1)));
                std::fill_n(level.normal[side], 2, static_cast<float>(random.real(-1, 1)));
            }
        }
        for (std::size_t n = 0; n < kLevels; ++n)
            places.push_back(4.8f + 0.01f * static_cast<float>(n));
        for (auto* sums : {&fast, &twin})
            sums->assign(std::max<std::size_t>(8 * kStride, 6 * kPadded * kLevels), 0.f);
        for (auto* sums : {&fast_equations, &twin_equations})
            sums->assign(156, 0.0);
    }

    std::vector<float> by_row;
    std::vector<float> by_column;
    std::vector<Level> levels;
    std::vector<float> places;
    std::vector<float> scratch;
    std::vector<double> rows;
    std::vector<double> values;
    std::vector<float> fast;
    std::vector<float> twin;
    std::vector<double> fast_equations;
    std::vector<double> twin_equations;
};

Case make_kernel(const std::string& content, void (*fast)(Tables&), void (*twin)(Tables&), bool is_whole = true)
{
    const auto tables = std::make_shared<Tables>();
    return {.size = std::to_string(Tables::kLevels),
            .content = content,
            .pixels = static_cast<double>(Tables::kLevels),
            .fast = [tables, fast] { fast(*tables); },
            .twin = [tables, twin] { twin(*tables); },
            .same = is_whole ? std::function<bool()>([tables] {
                return std::memcmp(tables->fast.data(), tables->twin.data(), sizeof(float) * tables->fast.size()) == 0;
            })
                             : std::function<bool()>()};
}

Case make_respond()
{
    return make_kernel(
        "windows of 9",
        [](Tables& t) {
            panoval::measure::respond(t.places.data(), Tables::kLevels, 0.8, 1 / 0.8, Tables::kWindow, Tables::kPadded,
                                      t.scratch.data(), t.fast.data());
        },
        [](Tables& t) {
            panoval::reference::respond(t.places.data(), Tables::kLevels, 0.8, 1 / 0.8, Tables::kWindow,
                                        Tables::kPadded, t.twin.data());
        });
}

Case make_add_levels()
{
    return make_kernel(
        "a row",
        [](Tables& t) {
            std::fill(t.fast.begin(), t.fast.end(), 0.f);
            panoval::measure::add_levels(t.levels.data(), Tables::kLevels, 8, Tables::kPadded, t.by_row.data(),
                                         t.by_column.data(), t.fast.data(), Tables::kStride);
        },
        [](Tables& t) {
            std::fill(t.twin.begin(), t.twin.end(), 0.f);
            panoval::reference::add_levels(t.levels.data(), Tables::kLevels, 8, Tables::kPadded, t.by_row.data(),
                                           t.by_column.data(), t.twin.data(), Tables::kStride);
        });
}

// The twin fills the lower triangle, too: no comparison.
Case make_add_equations()
{
    return make_kernel(
        "12 unknowns",
        [](Tables& t) {
            std::fill_n(t.fast_equations.begin(), 156, 0.0);
            panoval::measure::add_equations(t.rows.data(), t.values.data(), Tables::kLevels, t.fast_equations.data(),
                                            t.fast_equations.data() + 144);
        },
        [](Tables& t) {
            std::fill_n(t.twin_equations.begin(), 156, 0.0);
            panoval::reference::add_equations(t.rows.data(), t.values.data(), Tables::kLevels, t.twin_equations.data(),
                                              t.twin_equations.data() + 144);
        },
        false);
}

const panoval::bench::Registration registration([] {
    for (const double radius : {4.0, 10.0, 40.0, 100.0})
        panoval::bench::add_case("measure_refine", [radius] { return make_refine(radius, 0.8); });
    panoval::bench::add_case("outline_respond", make_respond);
    panoval::bench::add_case("outline_add_levels", make_add_levels);
    panoval::bench::add_case("outline_add_equations", make_add_equations);
});

} // namespace
