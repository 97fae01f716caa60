// SPDX-License-Identifier: MIT
// Grey-level histograms, and thresholds by the variance between classes (Otsu, A threshold selection method from
// gray-level histograms, 1979). The running sums go through the levels one by one; the variances of the levels do not
// depend on each other and are lanes.
#include "detect/histogram.h"

#include "core/numbers.h"
#include "panoval.h"

#include <cstddef>
#include <cstdint>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "detect/histogram.cpp"
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

// Not-a-number, where one of the classes is empty, is greater than nothing and never wins.
HWY_INLINE V class_variance(V omega, V mu, V mu_total)
{
    const D d;
    const V rest = hn::Sub(hn::Set(d, 1.0), omega);
    const V dark_mean = hn::Div(mu, omega);
    const V bright_mean = hn::Div(hn::Sub(mu_total, mu), rest);
    const V difference = hn::Sub(bright_mean, dark_mean);
    return hn::Mul(hn::Mul(hn::Mul(rest, omega), difference), difference);
}

// omega, mu: the sums of the fractions, and of level times fraction, up to each level
std::int32_t best_level(const double* omega, const double* mu)
{
    const D d;
    const size_t lanes = hn::Lanes(d);
    const V mu_total = hn::Set(d, mu[kGreyLevels - 1]);
    const V step = hn::Set(d, static_cast<double>(lanes));
    V best = hn::Zero(d);
    V best_level = hn::Set(d, -1.0);
    V level = hn::Iota(d, 0.0);
    for (size_t k = 0; k < kGreyLevels; k += lanes) {
        const V variance = class_variance(hn::LoadU(d, omega + k), hn::LoadU(d, mu + k), mu_total);
        const auto wins = hn::Gt(variance, best);
        best = hn::IfThenElse(wins, variance, best);
        best_level = hn::IfThenElse(wins, level, best_level);
        level = hn::Add(level, step);
    }
    // Each lane has the first of its own levels; of equals the lowest level wins.
    HWY_ALIGN double variances[hn::MaxLanes(d)];
    HWY_ALIGN double levels[hn::MaxLanes(d)];
    hn::Store(best, d, variances);
    hn::Store(best_level, d, levels);
    double largest = 0;
    double winner = -1;
    for (size_t lane = 0; lane < lanes; ++lane)
        if (variances[lane] > largest || (variances[lane] == largest && levels[lane] < winner)) {
            largest = variances[lane];
            winner = levels[lane];
        }
    return truncate_to_int(winner);
}

} // namespace
} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
namespace
{

HWY_EXPORT(best_level);

} // namespace

std::int32_t between_class_threshold(const double* bins)
{
    double omega[kGreyLevels];
    double mu[kGreyLevels];
    double omega_sum = 0;
    double mu_sum = 0;
    for (std::int32_t k = 0; k < kGreyLevels; ++k) {
        omega_sum += bins[k];
        mu_sum += static_cast<double>(k) * bins[k];
        omega[k] = omega_sum;
        mu[k] = mu_sum;
    }
    return HWY_DYNAMIC_DISPATCH(best_level)(omega, mu);
}

} // namespace panoval

extern "C" {

PANOVAL_API int32_t histogram_count(const uint8_t* pixels, int32_t width, int32_t height, double** histogram)
{
    using namespace panoval;
    const std::int32_t count = wrapping_mul(width, height);
    std::uint32_t counts[kGreyLevels];
    count_levels(pixels, 0, to_count(count), 1, counts);
    double* const bins = *histogram;
    for (std::size_t level = 0; level < kGreyLevels; ++level)
        bins[level] = static_cast<double>(counts[level]) / static_cast<double>(count);
    return 1;
}

PANOVAL_API int32_t find_threshold(const double* bins)
{
    return panoval::between_class_threshold(bins);
}

PANOVAL_API int32_t find_trough(double** histogram)
{
    return find_threshold(*histogram);
}

} // extern "C"
#endif
