// SPDX-License-Identifier: MIT
// Residuals of many points at once. Points are independent, so lanes are points; the operations and their order are
// those of the scalar formulas.
#include "detect/conic_residuals.h"

#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "detect/conic_residuals.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace
{

namespace hn = hwy::HWY_NAMESPACE;
using D = hn::ScalableTag<double>;
using V = hn::Vec<D>;

// Calls residual(x, y) with vectors of coordinates. The last, partial vector goes through padded copies.
template <class Residual>
HWY_INLINE void for_each_vector(const double* xy, size_t count, double* residuals, const Residual& residual)
{
    const D d;
    const size_t lanes = hn::Lanes(d);
    V x;
    V y;
    size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        hn::LoadInterleaved2(d, xy + 2 * i, x, y);
        hn::StoreU(residual(x, y), d, residuals + i);
    }
    if (i == count)
        return;
    HWY_ALIGN double pairs[2 * hn::MaxLanes(d)] = {};
    HWY_ALIGN double last[hn::MaxLanes(d)];
    std::memcpy(pairs, xy + 2 * i, 2 * (count - i) * sizeof(double));
    hn::LoadInterleaved2(d, pairs, x, y);
    hn::StoreU(residual(x, y), d, last);
    std::memcpy(residuals + i, last, (count - i) * sizeof(double));
}

void conic_residuals_kernel(const Conic& conic, const double* xy, size_t count, double* residuals)
{
    const D d;
    const V b = hn::Set(d, conic.b);
    const V c = hn::Set(d, conic.c);
    const V dx = hn::Set(d, conic.d);
    const V ey = hn::Set(d, conic.e);
    const V f = hn::Set(d, conic.f);
    for_each_vector(xy, count, residuals, [&](V x, V y) HWY_ATTR {
        V sum = hn::Add(hn::Mul(x, x), hn::Mul(hn::Mul(b, x), y));
        sum = hn::Add(sum, hn::Mul(hn::Mul(c, y), y));
        sum = hn::Add(sum, hn::Mul(dx, x));
        sum = hn::Add(sum, hn::Mul(ey, y));
        return hn::Neg(hn::Add(sum, f));
    });
}

HWY_INLINE V distance(V x, V y, V focus_x, V focus_y)
{
    const V dx = hn::Sub(x, focus_x);
    const V dy = hn::Sub(y, focus_y);
    return hn::Sqrt(hn::Add(hn::Mul(dx, dx), hn::Mul(dy, dy)));
}

void focal_residuals_kernel(const Foci& foci, const double* xy, size_t count, double* residuals)
{
    const D d;
    const V x1 = hn::Set(d, foci.x1);
    const V y1 = hn::Set(d, foci.y1);
    const V x2 = hn::Set(d, foci.x2);
    const V y2 = hn::Set(d, foci.y2);
    const V sum = hn::Set(d, foci.sum);
    for_each_vector(xy, count, residuals, [&](V x, V y) HWY_ATTR {
        return hn::Sub(hn::Add(distance(x, y, x1, y1), distance(x, y, x2, y2)), sum);
    });
}

void design_rows_kernel(const double* xy, size_t count, double (*rows)[5])
{
    const hn::CappedTag<double, 2> d;
    for (size_t i = 0; i < count; ++i) {
        for (size_t k = 0; k < 2; k += hn::Lanes(d)) {
            const auto point = hn::LoadU(d, xy + 2 * i + k);
            hn::StoreU(hn::Mul(point, hn::Set(d, xy[2 * i + 1])), d, rows[i] + k);
            hn::StoreU(point, d, rows[i] + 2 + k);
        }
        rows[i][4] = 1;
    }
}

// Residuals within the limit may be 0: what they divide is left aside.
void lower_weights_kernel(const double* residuals, size_t count, double limit, double rms, double* weights)
{
    const auto lower = [&](auto d, size_t i) HWY_ATTR {
        const auto residual = hn::LoadU(d, residuals + i);
        const auto weight = hn::LoadU(d, weights + i);
        const auto one_rms = hn::Set(d, rms);
        const auto quotient = hn::Div(hn::Mul(hn::Mul(one_rms, weight), one_rms), hn::Mul(residual, residual));
        const auto exceeds = hn::Gt(hn::Abs(residual), hn::Set(d, limit));
        hn::StoreU(hn::IfThenElse(exceeds, quotient, weight), d, weights + i);
    };
    const D d;
    size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        lower(d, i);
    for (; i < count; ++i)
        lower(hn::CappedTag<double, 1>(), i);
}

} // namespace
} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
HWY_EXPORT(conic_residuals_kernel);
HWY_EXPORT(focal_residuals_kernel);
HWY_EXPORT(design_rows_kernel);
HWY_EXPORT(lower_weights_kernel);

void conic_residuals(const Conic& conic, const double* xy, std::size_t count, double* residuals)
{
    HWY_DYNAMIC_DISPATCH(conic_residuals_kernel)(conic, xy, count, residuals);
}

void focal_residuals(const Foci& foci, const double* xy, std::size_t count, double* residuals)
{
    HWY_DYNAMIC_DISPATCH(focal_residuals_kernel)(foci, xy, count, residuals);
}

void design_rows(const double* xy, std::size_t count, double (*rows)[5])
{
    HWY_DYNAMIC_DISPATCH(design_rows_kernel)(xy, count, rows);
}

void lower_weights(const double* residuals, std::size_t count, double limit, double rms, double* weights)
{
    HWY_DYNAMIC_DISPATCH(lower_weights_kernel)(residuals, count, limit, rms, weights);
}

} // namespace panoval
#endif
