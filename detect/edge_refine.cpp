// SPDX-License-Identifier: MIT
// A quadratic surface is fitted to nine gradient magnitudes; along its direction of strongest curvature the ridge lies
// where the slope vanishes (Steger, An unbiased detector of curvilinear structures, 1998, with a 3 x 3 facet model).
// Lanes are pixels.
#include "detect/edge_refine.h"

#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "detect/edge_refine.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace
{

namespace hn = hwy::HWY_NAMESPACE;
using Doubles = hn::CappedTag<double, 8>;
using Floats = hn::CappedTag<float, 16>;
using V = hn::Vec<Doubles>;
using M = hn::Mask<Doubles>;

struct Slopes {
    V gx;
    V gy;
    V hxx;
    V hxy;
    V hyy;
};

struct Curvature {
    V value;
    V nx; // its direction
    V ny;
};

HWY_INLINE V constant(double value)
{
    return hn::Set(Doubles(), value);
}

// Sums of at most nine magnitudes are exact. hxy has the opposite of the usual sign. The direction below depends on it,
// and so do all published results, so it stays.
HWY_INLINE Slopes slopes_of(const MagnitudePatches& patches, std::size_t i)
{
    const auto m = [&](int row, int column) HWY_ATTR {
        const hn::Rebind<float, Doubles> df;
        return hn::PromoteTo(Doubles(), hn::LoadU(df, patches.at[row][column] + i));
    };
    const auto sum = [](V a, V b, V c) HWY_ATTR { return hn::Add(hn::Add(a, b), c); };
    const V m00 = m(0, 0), m01 = m(0, 1), m02 = m(0, 2);
    const V m10 = m(1, 0), m11 = m(1, 1), m12 = m(1, 2);
    const V m20 = m(2, 0), m21 = m(2, 1), m22 = m(2, 2);
    const V top = sum(m00, m01, m02);
    const V middle = sum(m10, m11, m12);
    const V bottom = sum(m20, m21, m22);
    const V left = sum(m00, m10, m20);
    const V centre = sum(m01, m11, m21);
    const V right = sum(m02, m12, m22);
    const V two = constant(2);
    const V six = constant(6);
    const V across_rows = hn::Add(hn::Sub(top, hn::Mul(two, middle)), bottom);
    const V across_columns = hn::Add(hn::Sub(left, hn::Mul(two, centre)), right);
    return {
        .gx = hn::Div(hn::Sub(right, left), six),
        .gy = hn::Div(hn::Sub(bottom, top), six),
        .hxx = hn::Div(hn::Mul(two, across_columns), six),
        .hxy = hn::Mul(hn::Sub(hn::Add(hn::Sub(m02, m00), m20), m22), constant(0.25)),
        .hyy = hn::Div(hn::Mul(two, across_rows), six),
    };
}

// The eigenvalue of larger size of [[hxx, hxy], [hxy, hyy]], by one Jacobi rotation; of two equal sizes the negative
// one. Without hxy the axes stay as they are, whatever the divisions by it give.
HWY_INLINE Curvature strongest_curvature(const Slopes& h)
{
    const V zero = constant(0);
    const V one = constant(1);
    const M is_aligned = hn::Eq(h.hxy, zero);
    const V theta = hn::Div(hn::Mul(hn::Sub(h.hxx, h.hyy), constant(0.5)), h.hxy);
    const V root = hn::Sqrt(hn::Add(hn::Mul(theta, theta), one));
    const V size = hn::Div(one, hn::Add(hn::Abs(theta), root));
    const V t = hn::IfThenElse(hn::Lt(theta, zero), hn::Neg(size), size);
    const V cosine = hn::Div(one, hn::Sqrt(hn::Add(hn::Mul(t, t), one)));
    const V c = hn::IfThenElse(is_aligned, one, cosine);
    const V s = hn::IfThenElse(is_aligned, zero, hn::Mul(t, cosine));
    const V along_s = hn::IfThenElse(is_aligned, h.hyy, hn::Sub(h.hyy, hn::Mul(h.hxy, t)));
    const V along_c = hn::IfThenElse(is_aligned, h.hxx, hn::Add(h.hxx, hn::Mul(h.hxy, t)));
    const V size_s = hn::Abs(along_s);
    const V size_c = hn::Abs(along_c);
    const M is_tie = hn::And(hn::Eq(size_c, size_s), hn::Le(along_c, along_s));
    const M takes_c = hn::Or(hn::Gt(size_c, size_s), is_tie);
    return {hn::IfThenElse(takes_c, along_c, along_s), hn::IfThenElse(takes_c, c, hn::Neg(s)),
            hn::IfThenElse(takes_c, s, c)};
}

// Steps from the pixels to their ridges, 0 where there is none within reach.
HWY_INLINE void find_steps(const MagnitudePatches& patches, std::size_t i, V& dx, V& dy)
{
    const Slopes h = slopes_of(patches, i);
    const Curvature ridge = strongest_curvature(h);
    const V nx = ridge.nx;
    const V ny = ridge.ny;
    const V slope = hn::Add(hn::Mul(nx, h.gx), hn::Mul(ny, h.gy));
    const V along_x = hn::Mul(hn::Mul(h.hxx, nx), nx);
    const V mixed = hn::Mul(hn::Mul(hn::Mul(constant(2), h.hxy), nx), ny);
    const V along_y = hn::Mul(hn::Mul(h.hyy, ny), ny);
    const V distance = hn::Div(hn::Neg(slope), hn::Add(hn::Add(along_x, mixed), along_y));
    const M is_ridge = hn::Lt(ridge.value, constant(0));
    dx = hn::Mul(distance, nx);
    dy = hn::Mul(distance, ny);
    const V reach = constant(0.5);
    const M is_near = hn::And(hn::Le(hn::Abs(dx), reach), hn::Le(hn::Abs(dy), reach)); // not-a-number is not
    const M moves = hn::And(is_ridge, is_near);
    dx = hn::IfThenElseZero(moves, dx);
    dy = hn::IfThenElseZero(moves, dy);
}

// Adds the steps to the places, pairs for all kCount patches.
void add_steps(const MagnitudePatches& patches, std::size_t count, double* xy)
{
    const Doubles d;
    for (std::size_t i = 0; i < count; i += hn::Lanes(d)) {
        V x, y, dx, dy;
        find_steps(patches, i, dx, dy);
        hn::LoadInterleaved2(d, xy + 2 * i, x, y);
        hn::StoreInterleaved2(hn::Add(x, dx), hn::Add(y, dy), d, xy + 2 * i);
    }
}

// Roots in single precision: they have the same integer part for every sum below 2^17.
void take_roots(const std::int32_t* squares, std::size_t count, float* roots)
{
    const Floats d;
    const hn::RebindToSigned<Floats> di;
    for (std::size_t i = 0; i < count; i += hn::Lanes(d)) {
        const auto square = hn::ConvertTo(d, hn::LoadU(di, squares + i));
        hn::StoreU(hn::Floor(hn::Sqrt(square)), d, roots + i);
    }
}

} // namespace
} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
namespace
{

HWY_EXPORT(add_steps);
HWY_EXPORT(take_roots);

} // namespace

void measure_patches(const std::uint8_t* image, std::int32_t width, const std::int32_t* pixels, std::size_t count,
                     MagnitudePatches& patches)
{
    std::int32_t squares[3][3][MagnitudePatches::kCount] = {};
    for (std::size_t k = 0; k < count; ++k)
        for (int j = 0; j < 3; ++j) {
            const std::uint8_t* const row = image + pixels[k] + static_cast<std::ptrdiff_t>(j - 1) * width - 1;
            for (int i = 0; i < 3; ++i) {
                const int dx = row[i + 1] - row[i - 1];
                const int dy = row[i + width] - row[i - width];
                squares[j][i][k] = dx * dx + dy * dy;
            }
        }
    HWY_DYNAMIC_DISPATCH(take_roots)(&squares[0][0][0], 9 * MagnitudePatches::kCount, &patches.at[0][0][0]);
}

void refine_edge_points(const MagnitudePatches& patches, std::int32_t width, const std::int32_t* pixels,
                        std::size_t count, double* xy)
{
    double places[2 * MagnitudePatches::kCount] = {};
    for (std::size_t k = 0; k < count; ++k) {
        const std::int32_t y = pixels[k] / width;
        places[2 * k] = pixels[k] - y * width;
        places[2 * k + 1] = y;
    }
    HWY_DYNAMIC_DISPATCH(add_steps)(patches, count, places);
    std::memcpy(xy, places, 2 * count * sizeof *xy);
}

} // namespace panoval
#endif
