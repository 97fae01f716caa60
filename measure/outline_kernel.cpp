// SPDX-License-Identifier: MIT
// The inner loops, eight pixels or four unknowns at a time. Every lane does what one pixel would do alone.
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

// Windows are whole steps of the narrow vectors, and taken by the wide ones as far as these fit.
using Wide = hn::CappedTag<float, 2 * kWindowStep>;
using Narrow = hn::CappedTag<float, kWindowStep>;

// Calls visit(tag, i) for `count` values, whole steps of kWindowStep.
template <class Visit>
HWY_INLINE void for_each_vector(std::size_t count, const Visit& visit)
{
    const Wide wide;
    const Narrow narrow;
    std::size_t i = 0;
    for (; i + hn::Lanes(wide) <= count; i += hn::Lanes(wide))
        visit(wide, i);
    for (; i < count; i += hn::Lanes(narrow))
        visit(narrow, i); // COUNT_EXCL_BRANCH: where vectors are longer
}

// The normal distribution at z; the error is below 2e-7. Beyond 8 deviations the value at 8.
template <class D>
HWY_INLINE void normal_values(D tag, hn::Vec<D> z, hn::Vec<D>& cumulative, hn::Vec<D>& density)
{
    using namespace normal_detail;
    constexpr auto limit = static_cast<float>(kLimit);
    const auto set = [tag](float value) HWY_ATTR { return hn::Set(tag, value); };
    const hn::RebindToSigned<D> integers;
    const auto limited = hn::Min(hn::Max(z, set(-limit)), set(limit));
    const auto position = hn::Floor(hn::Add(hn::Mul(hn::Add(limited, set(limit)), set(1 / kFineStep)), set(0.5f)));
    const auto index = hn::ConvertTo(integers, position);
    const auto at = hn::Sub(hn::Mul(position, set(kFineStep)), set(limit));
    const auto d = hn::Sub(limited, at);
    const auto bend = hn::Sub(hn::Mul(at, at), set(1));
    const auto third = hn::Mul(d, hn::Mul(bend, set(1.0f / 6)));
    const auto area = hn::Mul(d, hn::Sub(set(1), hn::Mul(d, hn::Sub(hn::Mul(at, set(0.5f)), third))));
    const auto second = hn::Mul(d, hn::Mul(bend, set(0.5f)));
    const auto ratio = hn::Sub(set(1), hn::Mul(d, hn::Sub(at, second)));
    const auto table_density = hn::GatherIndex(tag, kDensity.data(), index);
    cumulative = hn::Add(hn::GatherIndex(tag, kCumulative.data(), index), hn::Mul(table_density, area));
    density = hn::Mul(table_density, ratio);
}

// What the first stage makes of the edges of one point's pixels.
struct Edges {
    float* cumulatives;
    float* densities;
    float* integrals;
};

// From the edge before the first pixel on, `count` edges, whole steps.
HWY_INLINE void evaluate_edges(float place, float scale, std::size_t count, const Edges& edges)
{
    for_each_vector(count, [=](auto tag, std::size_t i) HWY_ATTR {
        const auto step = hn::Add(hn::Iota(tag, 0), hn::Set(tag, static_cast<float>(i)));
        const auto z = hn::Mul(hn::Sub(hn::Set(tag, place), step), hn::Set(tag, scale));
        hn::Vec<decltype(tag)> cumulative;
        hn::Vec<decltype(tag)> density;
        normal_values(tag, z, cumulative, density);
        hn::StoreU(cumulative, tag, edges.cumulatives + i);
        hn::StoreU(density, tag, edges.densities + i);
        hn::StoreU(hn::Add(hn::Mul(z, cumulative), density), tag, edges.integrals + i);
    });
}

HWY_INLINE void subtract_edges(const Edges& edges, float blur, float scale, std::size_t window, std::size_t padded,
                               float* out)
{
    for_each_vector(padded, [=](auto tag, std::size_t i) HWY_ATTR {
        const std::size_t left = window > i ? window - i : 0; // COUNT_EXCL_BRANCH: 0 where vectors are single values
        const auto reached = hn::FirstN(tag, left);
        const auto difference = [=](const float* values) HWY_ATTR {
            return hn::IfThenElseZero(reached, hn::Sub(hn::LoadU(tag, values + i), hn::LoadU(tag, values + i + 1)));
        };
        hn::StoreU(difference(edges.cumulatives), tag, out + i);
        hn::StoreU(hn::Mul(difference(edges.integrals), hn::Set(tag, blur)), tag, out + padded + i);
        hn::StoreU(hn::Mul(difference(edges.densities), hn::Set(tag, scale)), tag, out + 2 * padded + i);
    });
}

// All edges of a group of points first: values that have just been stored are slow to load by other vectors.
void respond(const float* places, std::size_t count, double blur, double scale, std::size_t window, std::size_t padded,
             float* scratch, float* out)
{
    const auto blur_f = static_cast<float>(blur);
    const auto scale_f = static_cast<float>(scale);
    const std::size_t used = window / kWindowStep * kWindowStep + kWindowStep; // window + 1 edges at least
    const std::size_t room = padded + kWindowStep;
    for (std::size_t first = 0; first < count; first += kRespondGroup) {
        const std::size_t group = count - first < kRespondGroup ? count - first : kRespondGroup;
        const auto edges_of = [=](std::size_t i) HWY_ATTR {
            float* const begin = scratch + 3 * room * i;
            return Edges{begin, begin + room, begin + 2 * room};
        };
        for (std::size_t i = 0; i < group; ++i)
            evaluate_edges(places[first + i], scale_f, used, edges_of(i));
        for (std::size_t i = 0; i < group; ++i)
            subtract_edges(edges_of(i), blur_f, scale_f, window, padded, out + 3 * padded * (first + i));
    }
}

void clear_planes(float* planes, std::size_t stride, std::size_t count, std::size_t columns)
{
    const std::size_t whole = (columns + kWindowStep - 1) / kWindowStep * kWindowStep;
    for (std::size_t plane = 0; plane < count; ++plane)
        for_each_vector(whole, [=](auto tag, std::size_t i)
                                   HWY_ATTR { hn::StoreU(hn::Zero(tag), tag, planes + plane * stride + i); });
}

HWY_INLINE void add_sample(const Level& level, std::size_t side, float response_y, float slope_y, std::size_t padded,
                           const float* table, float* planes, std::size_t stride)
{
    const float* const by = level.by[side];
    const float covered = response_y * level.height;
    const float coverage = side == 0 ? covered : -covered;
    // Half the Laplacian: the diffusion that a larger square of the blur is.
    const float blur_slope = 0.5f * response_y * level.normal[side][0];
    const float blur_response = 0.5f * slope_y * level.normal[side][1];
    for_each_vector(padded, [=](auto tag, std::size_t i) HWY_ATTR {
        const auto response = hn::LoadU(tag, table + i);
        float* place = planes + i;
        for (std::size_t plane = 0; plane < 5; ++plane) {
            const auto weight = hn::Set(tag, response_y * by[plane]);
            hn::StoreU(hn::Add(hn::LoadU(tag, place), hn::Mul(weight, response)), tag, place);
            place += stride;
        }
        const auto across = hn::Mul(hn::Set(tag, blur_slope), hn::LoadU(tag, table + 2 * padded + i));
        const auto along = hn::Mul(hn::Set(tag, blur_response), response);
        hn::StoreU(hn::Add(hn::LoadU(tag, place), hn::Add(across, along)), tag, place);
        place += stride;
        const auto area = hn::Mul(hn::Set(tag, coverage), hn::LoadU(tag, table + padded + i));
        hn::StoreU(hn::Add(hn::LoadU(tag, place), area), tag, place);
    });
    planes[7 * stride] += coverage;
}

void add_levels(const Level* levels, std::size_t count, std::int32_t y, std::size_t padded, const float* by_row,
                const float* by_column, float* planes, std::size_t stride)
{
    for (std::size_t i = 0; i < count; ++i) {
        const Level& level = levels[i];
        const float* const rows = by_row + 3 * padded * i + static_cast<std::size_t>(y - level.row);
        for (std::size_t side = 0; side < 2; ++side)
            add_sample(level, side, rows[0], rows[2 * padded], padded, by_column + 3 * padded * (2 * i + side),
                       planes + level.column[side], stride);
    }
}

void add_coverage(const Level* levels, std::size_t count, std::int32_t y, std::size_t padded, const float* by_row,
                  const float* by_column, float* planes, std::size_t stride)
{
    for (std::size_t i = 0; i < count; ++i) {
        const Level& level = levels[i];
        const float response_y = by_row[3 * padded * i + static_cast<std::size_t>(y - level.row)];
        const float covered = response_y * level.height;
        for (std::size_t side = 0; side < 2; ++side) {
            const float* const table = by_column + 3 * padded * (2 * i + side);
            const float coverage = side == 0 ? covered : -covered;
            const float growth = response_y * level.by[side][kMeanPlane];
            float* const mean = planes + kMeanPlane * stride + level.column[side];
            float* const area = planes + kCoveragePlane * stride + level.column[side];
            for_each_vector(padded, [=](auto tag, std::size_t k) HWY_ATTR {
                const auto add = [=](float* place, float weight, const float* values) HWY_ATTR {
                    const auto part = hn::Mul(hn::Set(tag, weight), hn::LoadU(tag, values + k));
                    hn::StoreU(hn::Add(hn::LoadU(tag, place + k), part), tag, place + k);
                };
                add(mean, growth, table);
                add(area, coverage, table + padded);
            });
            area[stride] += coverage;
        }
    }
}

void add_equations(const double* rows, const double* values, std::size_t count, double* matrix, double* sums)
{
    const hn::CappedTag<double, 4> tag;
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
HWY_EXPORT(clear_planes);
HWY_EXPORT(add_levels);
HWY_EXPORT(add_coverage);
HWY_EXPORT(add_equations);

void respond(const float* places, std::size_t count, double blur, double scale, std::size_t window, std::size_t padded,
             float* scratch, float* out) noexcept
{
    HWY_DYNAMIC_DISPATCH(respond)(places, count, blur, scale, window, padded, scratch, out);
}

void clear_planes(float* planes, std::size_t stride, std::size_t count, std::size_t columns) noexcept
{
    HWY_DYNAMIC_DISPATCH(clear_planes)(planes, stride, count, columns);
}

void add_levels(const Level* levels, std::size_t count, std::int32_t y, std::size_t padded, const float* by_row,
                const float* by_column, float* planes, std::size_t stride) noexcept
{
    HWY_DYNAMIC_DISPATCH(add_levels)(levels, count, y, padded, by_row, by_column, planes, stride);
}

void add_coverage(const Level* levels, std::size_t count, std::int32_t y, std::size_t padded, const float* by_row,
                  const float* by_column, float* planes, std::size_t stride) noexcept
{
    HWY_DYNAMIC_DISPATCH(add_coverage)(levels, count, y, padded, by_row, by_column, planes, stride);
}

void add_equations(const double* rows, const double* values, std::size_t count, double* matrix, double* sums) noexcept
{
    HWY_DYNAMIC_DISPATCH(add_equations)(rows, values, count, matrix, sums);
}
} // namespace panoval::measure
#endif
