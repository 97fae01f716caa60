// SPDX-License-Identifier: MIT
// The rows that detection computes of every pixel, beside their literal twins. "Pixels" are those of the result.
#include "bench/support/routine.h"
#include "measure/edge_kernel.h"
#include "measure/scale_kernel.h"
#include "tests/reference/edge_kernel.h"
#include "tests/reference/scale_kernel.h"
#include "tests/support/noise.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace
{

using panoval::bench::Case;
using panoval::measure::EdgeRows;

constexpr std::size_t kWidth = 2048;
constexpr float kLeast = 4e6f; // of squared gradients: few pixels of the rows are steep

// Slowly changing rows with an edge every 64 samples.
std::vector<std::uint16_t> make_row(std::size_t count, std::uint64_t seed)
{
    panoval::test::Random random(seed);
    std::vector<std::uint16_t> row(count);
    for (std::size_t x = 0; x < count; ++x)
        row[x] =
            static_cast<std::uint16_t>(12000 + 20000 * static_cast<std::int64_t>(x / 64 % 2) + random.integer(0, 500));
    return row;
}

struct Rows {
    Rows() : sums(3, std::vector<std::uint32_t>(kWidth)), squares(3, std::vector<float>(kWidth))
    {
        for (std::uint64_t i = 0; i < 5; ++i)
            samples.push_back(make_row(2 * kWidth, i));
        for (std::size_t i = 0; i < 3; ++i) {
            panoval::measure::smooth_along(samples[i].data(), kWidth, sums[i].data());
            panoval::measure::square_gradients(samples[i].data(), samples[i + 1].data(), samples[i + 2].data(), kWidth,
                                               kLeast, squares[i].data());
        }
    }
    EdgeRows middle() const
    {
        return {{samples[1].data(), samples[2].data(), samples[3].data()},
                {squares[0].data(), squares[1].data(), squares[2].data()}};
    }

    std::vector<std::vector<std::uint16_t>> samples;
    std::vector<std::vector<std::uint32_t>> sums;
    std::vector<std::vector<float>> squares;
};

// Run as fast(rows, out) and twin(rows, out) into rows of Value.
template <class Value, class Fast, class Twin>
Case make_case(std::size_t bytes_per_pixel, const Fast& fast, const Twin& twin)
{
    const auto rows = std::make_shared<Rows>();
    const auto out = std::make_shared<std::pair<std::vector<Value>, std::vector<Value>>>();
    out->first.resize(kWidth);
    out->second.resize(kWidth);
    return {.size = std::to_string(kWidth),
            .content = "a row",
            .pixels = static_cast<double>(kWidth),
            .memcpy_bytes = bytes_per_pixel * kWidth / 2,
            .fast = [=] { fast(*rows, out->first.data()); },
            .twin = [=] { twin(*rows, out->second.data()); },
            .same = [=] { return out->first == out->second; }};
}

Case make_smooth_along()
{
    return make_case<std::uint32_t>(
        6, [](Rows& r, std::uint32_t* out) { panoval::measure::smooth_along(r.samples[0].data(), kWidth, out); },
        [](Rows& r, std::uint32_t* out) { panoval::reference::smooth_along(r.samples[0].data(), kWidth, out); });
}

Case make_smooth_down()
{
    return make_case<std::uint16_t>(
        14,
        [](Rows& r, std::uint16_t* out) {
            panoval::measure::smooth_down(r.sums[0].data(), r.sums[1].data(), r.sums[2].data(), kWidth, out);
        },
        [](Rows& r, std::uint16_t* out) {
            panoval::reference::smooth_down(r.sums[0].data(), r.sums[1].data(), r.sums[2].data(), kWidth, out);
        });
}

Case make_halve_rows()
{
    return make_case<std::uint16_t>(
        10,
        [](Rows& r, std::uint16_t* out) {
            panoval::measure::halve_rows(r.samples[0].data(), r.samples[1].data(), kWidth, out);
        },
        [](Rows& r, std::uint16_t* out) {
            panoval::reference::halve_rows(r.samples[0].data(), r.samples[1].data(), kWidth, out);
        });
}

Case make_square_gradients()
{
    return make_case<float>(
        10,
        [](Rows& r, float* out) {
            const EdgeRows rows = r.middle();
            panoval::measure::square_gradients(rows.samples[0], rows.samples[1], rows.samples[2], kWidth, kLeast, out);
        },
        [](Rows& r, float* out) {
            const EdgeRows rows = r.middle();
            panoval::reference::square_gradients(rows.samples[0], rows.samples[1], rows.samples[2], kWidth, kLeast,
                                                 out);
        });
}

Case make_mark_steepest()
{
    return make_case<std::uint8_t>(
        19, [](Rows& r, std::uint8_t* out) { panoval::measure::mark_steepest(r.middle(), kWidth, kLeast, out); },
        [](Rows& r, std::uint8_t* out) { panoval::reference::mark_steepest(r.middle(), kWidth, kLeast, out); });
}

const panoval::bench::Registration registration([] {
    panoval::bench::add_case("scale_smooth_along", make_smooth_along);
    panoval::bench::add_case("scale_smooth_down", make_smooth_down);
    panoval::bench::add_case("scale_halve_rows", make_halve_rows);
    panoval::bench::add_case("edge_square_gradients", make_square_gradients);
    panoval::bench::add_case("edge_mark_steepest", make_mark_steepest);
});

} // namespace
