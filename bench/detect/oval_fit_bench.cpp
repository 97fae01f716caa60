// SPDX-License-Identifier: MIT
// The oval fit, and what of it passes inside libmath: the second case repeats the library calls of one fit alone, with
// the whole fit as its twin, so that its "x twin" is the whole over the part. Points stand for pixels.
#include "bench/support/routine.h"
#include "libmath/libmath.h"
#include "panoval.h"
#include "tests/reference/oval_fit.h"
#include "tests/support/noise.h"

#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace
{

struct Outline {
    Outline(int count, double noise)
    {
        panoval::test::Random random(11);
        for (int i = 0; i < count; ++i) {
            const double phi = 2 * 3.14159265358979 * i / count;
            const double u = count / 5.5 * std::cos(phi);
            const double v = count / 7.5 * std::sin(phi);
            const double x = 640 + u * 0.8 - v * 0.6 + random.real(-noise, noise);
            const double y = 480 + u * 0.6 + v * 0.8 + random.real(-noise, noise);
            points.insert(points.end(), {x, y});
            rows.insert(rows.end(), {x * y, y * y, x, y, 1.0});
            values.push_back(random.real(-0.1, 0.1));
        }
        panoval::reference::OvalFitTrace trace;
        panoval::reference::oval_fit(size(), points.data(), &expected, &trace);
        passes = trace.iterations;
    }

    std::int32_t size() const { return static_cast<std::int32_t>(points.size() / 2); }

    void fit() { oval_fit(size(), points.data(), &found); }

    void repeat_libmath_calls() const
    {
        for (int pass = 0; pass < passes; ++pass) {
            double normal[25] = {};
            double rhs[5] = {};
            double solution[5] = {};
            double work[256] = {};
            for (std::size_t i = 0; i < values.size(); ++i)
                pnrml(&rows[5 * i], 5, values[i], normal, rhs, 1.0);
            solve_lsq(normal, rhs, solution, 5, 5, work);
        }
    }

    std::vector<double> points;
    std::vector<double> rows;
    std::vector<double> values;
    int passes = 0;
    OvalFit expected = {};
    OvalFit found = {};
};

panoval::bench::Case make_whole(int count, double noise, const std::string& content)
{
    const auto outline = std::make_shared<Outline>(count, noise);
    return {
        .size = std::to_string(count),
        .content = content,
        .pixels = static_cast<double>(count),
        .fast = [outline] { outline->fit(); },
        .twin =
            [outline] { panoval::reference::oval_fit(outline->size(), outline->points.data(), &outline->expected); },
        .same = [outline] { return std::memcmp(&outline->found, &outline->expected, sizeof(OvalFit)) == 0; }};
}

panoval::bench::Case make_inside_libmath(int count, double noise, const std::string& content)
{
    const auto outline = std::make_shared<Outline>(count, noise);
    return {.size = std::to_string(count),
            .content = content,
            .pixels = static_cast<double>(count),
            .fast = [outline] { outline->repeat_libmath_calls(); },
            .twin = [outline] { outline->fit(); }};
}

void add(int count, double noise, const std::string& content)
{
    panoval::bench::add_case("oval_fit", [=] { return make_whole(count, noise, content); });
    panoval::bench::add_case("oval_fit_inside_libmath", [=] { return make_inside_libmath(count, noise, content); });
}

const panoval::bench::Registration registration([] {
    add(60, 0.3, "noise");
    add(400, 0.3, "noise");
    add(400, 0.0, "exact");
});

} // namespace
