// SPDX-License-Identifier: MIT
// The inner loops, four pixels or unknowns at a time. Every lane does what one pixel would do alone.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "measure/outline_kernel.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include "measure/normal_table.h"
#include "measure/outline_kernel.h"

HWY_BEFORE_NAMESPACE();
namespace panoval::measure::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

using Lanes = hn::CappedTag<double, kWindowStep>;
using Vector = hn::Vec<Lanes>;

HWY_INLINE Vector polynomial_step(Vector sum, Vector d, Vector coefficient)
{
    return hn::Add(coefficient, hn::Mul(d, sum));
}

// The normal distribution at z, as normal_at: table entry and Taylor series.
HWY_INLINE void normal_values(Lanes tag, Vector z, Vector& cumulative, Vector& density)
{
    using namespace normal_detail;
    const auto set = [tag](double value) { return hn::Set(tag, value); };
    const hn::RebindToSigned<Lanes> integers;
    const auto limited = hn::Min(hn::Max(z, set(-kLimit)), set(kLimit));
    const auto position = hn::Floor(hn::Add(hn::Mul(hn::Add(limited, set(kLimit)), set(1 / kStep)), set(0.5)));
    const auto at = hn::Sub(hn::Mul(position, set(kStep)), set(kLimit));
    const auto index = hn::ConvertTo(integers, position);
    const auto table_cumulative = hn::GatherIndex(tag, kCumulative.data(), index);
    const auto table_density = hn::GatherIndex(tag, kDensity.data(), index);
    const auto d = hn::Sub(limited, at);
    const auto at2 = hn::Mul(at, at);
    const auto h2 = hn::Sub(at2, set(1));
    const auto h3 = hn::Mul(at, hn::Sub(at2, set(3)));
    const auto h4 = hn::Add(hn::Mul(at2, hn::Sub(at2, set(6))), set(3));
    const auto h5 = hn::Mul(at, hn::Add(hn::Mul(at2, hn::Sub(at2, set(10))), set(15)));
    const auto h6 = hn::Sub(hn::Mul(at2, hn::Add(hn::Mul(at2, hn::Sub(at2, set(15))), set(45))), set(15));
    auto ratio = hn::Mul(h6, set(kFactorial6));
    ratio = polynomial_step(ratio, d, hn::Mul(h5, set(-kFactorial5)));
    ratio = polynomial_step(ratio, d, hn::Mul(h4, set(kFactorial4)));
    ratio = polynomial_step(ratio, d, hn::Mul(h3, set(-kFactorial3)));
    ratio = polynomial_step(ratio, d, hn::Mul(h2, set(0.5)));
    ratio = polynomial_step(ratio, d, hn::Sub(hn::Zero(tag), at));
    ratio = polynomial_step(ratio, d, set(1));
    auto area = hn::Mul(h6, set(kFactorial7));
    area = polynomial_step(area, d, hn::Mul(h5, set(-kFactorial6)));
    area = polynomial_step(area, d, hn::Mul(h4, set(kFactorial5)));
    area = polynomial_step(area, d, hn::Mul(h3, set(-kFactorial4)));
    area = polynomial_step(area, d, hn::Mul(h2, set(kFactorial3)));
    area = polynomial_step(area, d, hn::Mul(at, set(-0.5)));
    area = polynomial_step(area, d, set(1));
    area = hn::Mul(area, d);
    cumulative = hn::Add(table_cumulative, hn::Mul(table_density, area));
    density = hn::Mul(table_density, ratio);
}

void respond(double offset, double blur, double scale, std::size_t window, std::size_t padded, double* edges,
             double* response, double* integral, double* slope)
{
    const Lanes tag;
    const std::size_t step = hn::Lanes(tag);
    double* const cumulatives = edges;
    double* const densities = edges + padded + kWindowStep;
    double* const integrals = densities + padded + kWindowStep;
    // Edges of pixels, from the one before the first pixel on.
    for (std::size_t i = 0; i <= window; i += step) {
        const auto place = hn::Add(hn::Iota(tag, 0), hn::Set(tag, static_cast<double>(i)));
        const auto z = hn::Mul(hn::Sub(hn::Set(tag, offset + 0.5), place), hn::Set(tag, scale));
        Vector cumulative;
        Vector density;
        normal_values(tag, z, cumulative, density);
        hn::StoreU(cumulative, tag, cumulatives + i);
        hn::StoreU(density, tag, densities + i);
        hn::StoreU(hn::Add(hn::Mul(z, cumulative), density), tag, integrals + i);
    }
    for (std::size_t i = 0; i < padded; i += step) {
        const auto difference = [&](const double* values) {
            return hn::Sub(hn::LoadU(tag, values + i), hn::LoadU(tag, values + i + 1));
        };
        hn::StoreU(difference(cumulatives), tag, response + i);
        hn::StoreU(hn::Mul(difference(integrals), hn::Set(tag, blur)), tag, integral + i);
        hn::StoreU(hn::Mul(difference(densities), hn::Set(tag, scale)), tag, slope + i);
    }
    for (std::size_t i = window; i < padded; ++i)
        response[i] = integral[i] = slope[i] = 0;
}

HWY_INLINE void add_sample(Lanes tag, const Level& level, std::size_t side, double response_y, double slope_y,
                           std::size_t padded, const double* table, double* planes, std::size_t stride)
{
    const std::size_t step = hn::Lanes(tag);
    const double* const by = level.by[side];
    const double covered = response_y * level.height;
    const double coverage = side == 0 ? covered : -covered;
    // Half the Laplacian: the diffusion that a larger square of the blur is.
    const auto blur_slope = hn::Set(tag, 0.5 * response_y * level.normal[side][0]);
    const auto blur_response = hn::Set(tag, 0.5 * slope_y * level.normal[side][1]);
    for (std::size_t i = 0; i < padded; i += step) {
        const auto response = hn::LoadU(tag, table + i);
        double* place = planes + i;
        for (std::size_t plane = 0; plane < 5; ++plane) {
            const auto weight = hn::Set(tag, response_y * by[plane]);
            hn::StoreU(hn::Add(hn::LoadU(tag, place), hn::Mul(weight, response)), tag, place);
            place += stride;
        }
        const auto across = hn::Mul(blur_slope, hn::LoadU(tag, table + 2 * padded + i));
        const auto along = hn::Mul(blur_response, response);
        hn::StoreU(hn::Add(hn::LoadU(tag, place), hn::Add(across, along)), tag, place);
        place += stride;
        const auto area = hn::Mul(hn::Set(tag, coverage), hn::LoadU(tag, table + padded + i));
        hn::StoreU(hn::Add(hn::LoadU(tag, place), area), tag, place);
    }
    planes[7 * stride] += coverage;
}

void add_levels(const Level* levels, std::size_t count, std::int32_t y, std::size_t padded, const double* by_row,
                const double* by_column, double* planes, std::size_t stride)
{
    const Lanes tag;
    for (std::size_t i = 0; i < count; ++i) {
        const Level& level = levels[i];
        const double* const rows = by_row + 3 * padded * i + static_cast<std::size_t>(y - level.row);
        for (std::size_t side = 0; side < 2; ++side)
            add_sample(tag, level, side, rows[0], rows[2 * padded], padded, by_column + 3 * padded * (2 * i + side),
                       planes + level.column[side], stride);
    }
}

void add_equations(const double* rows, const double* values, std::size_t count, double* matrix, double* sums)
{
    const Lanes tag;
    const std::size_t step = hn::Lanes(tag);
    for (std::size_t n = 0; n < count; ++n) {
        const double* const row = rows + 12 * n;
        const auto value = hn::Set(tag, values[n]);
        for (std::size_t i = 0; i < 12; i += step) {
            const auto part = hn::LoadU(tag, row + i);
            // The upper triangle: columns from the part's first row on.
            for (std::size_t j = i; j < 12; ++j) {
                double* const place = matrix + 12 * j + i;
                hn::StoreU(hn::Add(hn::LoadU(tag, place), hn::Mul(hn::Set(tag, row[j]), part)), tag, place);
            }
            hn::StoreU(hn::Add(hn::LoadU(tag, sums + i), hn::Mul(value, part)), tag, sums + i);
        }
    }
}

} // namespace panoval::measure::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval::measure
{
HWY_EXPORT(respond);
HWY_EXPORT(add_levels);
HWY_EXPORT(add_equations);

void respond(double offset, double blur, double scale, std::size_t window, std::size_t padded, double* edges,
             double* response, double* integral, double* slope) noexcept
{
    HWY_DYNAMIC_DISPATCH(respond)(offset, blur, scale, window, padded, edges, response, integral, slope);
}

void add_levels(const Level* levels, std::size_t count, std::int32_t y, std::size_t padded, const double* by_row,
                const double* by_column, double* planes, std::size_t stride) noexcept
{
    HWY_DYNAMIC_DISPATCH(add_levels)(levels, count, y, padded, by_row, by_column, planes, stride);
}

void add_equations(const double* rows, const double* values, std::size_t count, double* matrix, double* sums) noexcept
{
    HWY_DYNAMIC_DISPATCH(add_equations)(rows, values, count, matrix, sums);
}
} // namespace panoval::measure
#endif
