// SPDX-License-Identifier: MIT
// Gauss-Newton on the translation alone (Lucas and Kanade). Gains and offsets of brightness are taken out first.
// Whatever needs the energy of a gradient takes the product of both patches' gradients, in which noise cancels.
#include "mosaic/verdict/displacement_fit.h"

#include "core/numbers.h"
#include "mosaic/verdict/shift_rows.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace panoval::mosaic
{

namespace
{

constexpr int kSteps = 12;
constexpr double kStill = 0.03;   // pixels a step that ends the search
constexpr double kFarthest = 2.5; // pixels from the start
constexpr double kFewest = 48;    // pixels

// Noise of neighbouring pixels goes together after smoothing: so much less do many of them tell.
constexpr double kNoiseTogether = 4.0;
// Where what remains is no noise but has a structure of its own, its pixels count in patches: for a correlation r of
// those three pixels apart a patch has about 9 pi r / (1 - r) pixels.
constexpr double kPatchGrowth = 28.0;

struct Warped {
    std::vector<float> value; // of the second patch, at the first one's pixels
    std::vector<std::uint8_t> known;
};

// Bilinear; the fraction is the same everywhere.
void warp(const Patch& second, const std::vector<float>& values, const Rect& to, double x, double y, Warped& warped)
{
    const double whole_x = std::floor(x);
    const double whole_y = std::floor(y);
    const auto fx = static_cast<float>(x - whole_x);
    const auto fy = static_cast<float>(y - whole_y);
    const std::int64_t shift_x = to.x - second.rect.x + truncate_to_int(whole_x);
    const std::int64_t shift_y = to.y - second.rect.y + truncate_to_int(whole_y);
    const auto width = static_cast<std::size_t>(to.width);
    warped.value.assign(static_cast<std::size_t>(to.pixels()), 0.0f);
    warped.known.assign(warped.value.size(), 0);
    const std::int64_t first_x = std::max<std::int64_t>(0, -shift_x);
    const std::int64_t last_x = std::min(to.width, second.rect.width - 1 - shift_x);
    for (std::int64_t row = std::max<std::int64_t>(0, -shift_y);
         row < std::min(to.height, second.rect.height - 1 - shift_y); ++row) {
        const std::size_t above = static_cast<std::size_t>(row + shift_y) * second.width();
        const std::size_t out = static_cast<std::size_t>(row) * width;
        if (last_x <= first_x)
            break;
        const auto count = static_cast<std::size_t>(last_x - first_x);
        const std::size_t from = above + static_cast<std::size_t>(first_x + shift_x);
        const std::size_t at = out + static_cast<std::size_t>(first_x);
        const float* const v = values.data() + from;
        interpolate_row(v, v + second.width(), fx, fy, count, warped.value.data() + at);
        const std::uint8_t* const k = second.known.data() + from;
        const std::uint8_t* const below = k + second.width();
        for (std::size_t i = 0; i < count; ++i)
            warped.known[at + i] = k[i] & k[i + 1] & below[i] & below[i + 1];
    }
}

void warp(const Patch& second, const Rect& to, double x, double y, Warped& warped)
{
    warp(second, second.value, to, x, y, warped);
}

struct Sums {
    double count = 0;
    double a = 0, b = 0, aa = 0, ab = 0, bb = 0;
    double gx = 0, gy = 0;                     // gradients of the first patch
    double gxa = 0, gxb = 0, gya = 0, gyb = 0; // times values
    Information own;                           // gradients of the first patch by themselves
    Information common;                        // times those of the second
};

Sums sums_of(const std::array<double, kShiftSums>& s)
{
    return {s[kCount],
            s[kA],
            s[kB],
            s[kAA],
            s[kAB],
            s[kBB],
            s[kGx],
            s[kGy],
            s[kGxA],
            s[kGxB],
            s[kGyA],
            s[kGyB],
            {s[kOwnXX], s[kOwnXY], s[kOwnYY]},
            {s[kCommonXX], s[kCommonXY], s[kCommonYY]}};
}

Sums add_up(const Patch& first, const Warped& second)
{
    std::array<double, kShiftSums> sums{};
    const std::size_t width = first.width();
    if (width < 3)
        return {};
    std::vector<std::uint8_t> both(first.known.size());
    for (std::size_t i = 0; i < both.size(); ++i)
        both[i] = first.known[i] & second.known[i];
    std::vector<float> weight(width - 2);
    for (std::size_t y = 1; y + 1 < first.height(); ++y) {
        const std::uint8_t* const row = both.data() + y * width + 1;
        for (std::size_t x = 0; x < weight.size(); ++x)
            weight[x] = static_cast<float>(*(row + x - 1) & row[x] & row[x + 1] & *(row + x - width) & row[x + width]);
        const std::size_t start = y * width + 1;
        add_shift_row(
            {first.value.data() + start, second.value.data() + start, width, width, weight.data(), weight.size()},
            sums);
    }
    return sums_of(sums);
}

// What both gradients share, less what noise alone might have made them share.
Information beyond_chance(const Sums& sums)
{
    constexpr double kChance =
        5; // standard deviations of sums of smoothed noise, and as many again for having searched
    const double part = kChance / std::sqrt(sums.count);
    Information information = sums.common;
    const double loss = part * 0.5 * (sums.own.xx + sums.own.yy);
    information.xx -= loss;
    information.yy -= loss;
    if (information.xx <= 0 && information.yy <= 0)
        return {};
    if (information.xx <= 0)
        return {0, 0, information.yy};
    if (information.yy <= 0)
        return {information.xx, 0, 0};
    if (information.determinant() <= 0) // one direction only, aslant
        information.xy *= 0.99 * std::sqrt(information.xx * information.yy) / std::fabs(information.xy);
    return information;
}

// What the sums say about the place that they were taken at.
ShiftFit describe(const Sums& sums, double x, double y)
{
    ShiftFit fit;
    fit.x = x;
    fit.y = y;
    fit.count = sums.count;
    if (sums.count < kFewest)
        return fit;
    fit.is_valid = true;
    fit.variance_first = std::max(0.0, sums.aa / sums.count - sums.a / sums.count * (sums.a / sums.count));
    fit.variance_second = std::max(0.0, sums.bb / sums.count - sums.b / sums.count * (sums.b / sums.count));
    const double covariance = sums.ab / sums.count - sums.a / sums.count * (sums.b / sums.count);
    const double size = std::sqrt(fit.variance_first * fit.variance_second);
    if (size <= 0)
        return fit;
    fit.correlation = covariance / size;
    fit.residual = 2 * std::max(0.0, 1 - fit.correlation) * size;
    // Eight-bit samples are never nearer to each other than their rounding.
    constexpr double kRounding = 2.0 / 12 * kNoiseLeft;
    const double variance = kNoiseTogether * std::max(fit.residual, kRounding);
    fit.information.add(beyond_chance(sums), 1 / variance);
    fit.gradients.add(sums.common, 1 / sums.count);
    return fit;
}

struct Step {
    double x = 0;
    double y = 0;
};

Step next_step(const Sums& sums, const ShiftFit& at)
{
    const double contrast =
        at.variance_second > 0 ? std::clamp(std::sqrt(at.variance_first / at.variance_second), 0.5, 2.0) : 1.0;
    const double offset = (sums.a - contrast * sums.b) / sums.count;
    const double right = contrast * sums.gxb - sums.gxa + offset * sums.gx;
    const double down = contrast * sums.gyb - sums.gya + offset * sums.gy;
    // Where noise outweighs what is shared, steps by all of the gradients would be too short; and where the place is
    // still wrong, steps by the shared ones alone too long.
    Information matrix = sums.common;
    const double own = sums.own.xx + sums.own.yy;
    if (matrix.xx + matrix.yy < 0.4 * own || matrix.determinant() <= 0) {
        matrix = {};
        matrix.add(sums.own, 0.5);
    }
    const double ridge = 1e-3 * (matrix.xx + matrix.yy) + 1e-9; // directions without texture stay where they are
    matrix.xx += ridge;
    matrix.yy += ridge;
    const double determinant = matrix.determinant();
    const Step step = {-(matrix.yy * right - matrix.xy * down) / determinant,
                       -(matrix.xx * down - matrix.xy * right) / determinant};
    const double length = std::sqrt(step.x * step.x + step.y * step.y);
    return length > 1 ? Step{step.x / length, step.y / length} : step;
}

} // namespace

double Information::weaker() const
{
    const double half = 0.5 * (xx - yy);
    return 0.5 * (xx + yy) - std::sqrt(half * half + xy * xy);
}

Information Information::inverse() const
{
    const double d = determinant();
    return {yy / d, -xy / d, xx / d};
}

ShiftFit compare_at(const Patch& first, const Patch& second, double x, double y)
{
    Warped warped;
    warp(second, first.rect, x, y, warped);
    return describe(add_up(first, warped), x, y);
}

namespace
{

ShiftFit fit_all(const Patch& first, const Patch& second, double x, double y)
{
    Warped warped;
    ShiftFit best;
    double at_x = x;
    double at_y = y;
    for (int k = 0; k < kSteps; ++k) {
        warp(second, first.rect, at_x, at_y, warped);
        const Sums sums = add_up(first, warped);
        const ShiftFit fit = describe(sums, at_x, at_y);
        if (!fit.is_valid)
            break;
        if (!best.is_valid || fit.correlation > best.correlation)
            best = fit;
        const Step step = next_step(sums, fit);
        if (std::sqrt(step.x * step.x + step.y * step.y) < kStill) {
            best = fit;
            best.stands = true;
            best.x += step.x; // too little to be worth another look
            best.y += step.y;
            break;
        }
        at_x += step.x;
        at_y += step.y;
        if (std::fabs(at_x - x) > kFarthest || std::fabs(at_y - y) > kFarthest)
            break;
    }
    return best;
}

// Of the first patch, relative to the second one.
double contrast_of(const ShiftFit& fit)
{
    return fit.variance_second > 0 ? std::sqrt(fit.variance_first / fit.variance_second) : 1;
}

// The correlation of what remains between the patches with itself three pixels away.
double structure_of_rest(const Patch& first, const Warped& warped, const ShiftFit& fit)
{
    constexpr std::size_t kApart = 3;
    const double contrast = contrast_of(fit);
    const std::size_t width = first.width();
    const auto is_known = [&](std::size_t i) { return (first.known[i] & warped.known[i]) != 0; };
    const auto rest = [&](std::size_t i) {
        return static_cast<double>(first.value[i]) - contrast * static_cast<double>(warped.value[i]);
    };
    double squares = 0;
    double products = 0;
    double count = 0;
    double sum = 0;
    for (std::size_t y = 0; y + kApart < first.height(); ++y)
        for (std::size_t i = y * width; i + kApart < (y + 1) * width; ++i) {
            const std::size_t right = i + kApart;
            const std::size_t below = i + kApart * width;
            if (!is_known(i) || !is_known(right) || !is_known(below))
                continue;
            const double here = rest(i);
            sum += here;
            squares += here * here;
            products += 0.5 * here * (rest(right) + rest(below));
            count += 1;
        }
    if (count < kFewest)
        return 0;
    const double mean = sum / count;
    const double variance = squares / count - mean * mean;
    return variance > 0 ? std::clamp((products / count - mean * mean) / variance, 0.0, 0.99) : 0;
}

// Information counts less where what remains is no noise.
ShiftFit with_structure(const Patch& first, const Patch& second, ShiftFit fit)
{
    if (!fit.is_valid)
        return fit;
    Warped warped;
    warp(second, first.rect, fit.x, fit.y, warped);
    const double r = structure_of_rest(first, warped, fit);
    Information less;
    less.add(fit.information, kNoiseTogether / (kNoiseTogether + kPatchGrowth * r / (1 - r)));
    fit.information = less;
    return fit;
}

// Takes the pixels out that differ by far more than most, as things that moved do; less than a quarter of them can.
// False where there are none.
bool leave_out_strangers(Patch& first, const Patch& second, const ShiftFit& fit)
{
    constexpr double kStrange = 4; // times the mean difference
    Warped warped;
    warp(second, first.rect, fit.x, fit.y, warped);
    const double contrast = contrast_of(fit);
    const auto difference = [&](std::size_t i) {
        return std::fabs(static_cast<double>(first.value[i]) - contrast * static_cast<double>(warped.value[i]));
    };
    double sum = 0;
    double count = 0;
    for (std::size_t i = 0; i < first.value.size(); ++i)
        if ((first.known[i] & warped.known[i]) != 0) {
            sum += difference(i);
            count += 1;
        }
    bool has_any = false;
    for (std::size_t i = 0; i < first.value.size(); ++i)
        if ((first.known[i] & warped.known[i]) != 0 && difference(i) * count > kStrange * sum) {
            first.known[i] = 0;
            has_any = true;
        }
    return has_any;
}

// Without pixels that do not belong.
ShiftFit fit_most(const Patch& first, const Patch& second, double x, double y)
{
    constexpr double kNothingStrange = 0.98;
    constexpr double kNothingShared = 0.4;
    ShiftFit fit = fit_all(first, second, x, y);
    if (!fit.is_valid || fit.correlation > kNothingStrange || fit.correlation < kNothingShared)
        return fit;
    Patch most = first;
    if (!leave_out_strangers(most, second, fit))
        return fit;
    const ShiftFit exact = fit_all(most, second, fit.x, fit.y);
    if (exact.is_valid && exact.correlation > fit.correlation) {
        fit.x = exact.x;
        fit.y = exact.y;
        fit.residual = exact.residual;
        fit.information = exact.information;
        fit.gradients = exact.gradients;
    }
    return fit;
}

constexpr std::size_t kSquare = 12; // pixels a side

// Sums over one small square of both patches.
struct Square {
    double count = 0;
    double a = 0, b = 0, aa = 0, ab = 0, bb = 0;

    void add(double p, double q)
    {
        count += 1;
        a += p;
        b += q;
        aa += p * p;
        ab += p * q;
        bb += q * q;
    }
    double variance_first() const { return aa / count - a / count * (a / count); }
    double variance_second() const { return bb / count - b / count * (b / count); }
    double covariance() const { return ab / count - a / count * (b / count); }
};

enum class Sameness { Nothing, Same, Strange };

Sameness compare(const Square& square, double noise)
{
    constexpr double kShows = 2.5;     // times the noise
    constexpr double kTheSame = 0.5;   // of the variance that both have on average
    constexpr double kRounding = 0.02; // levels squared
    if (2 * square.count < kSquare * kSquare)
        return Sameness::Nothing;
    const double shown = 0.5 * (square.variance_first() + square.variance_second());
    if (shown < kShows * noise + kRounding)
        return Sameness::Nothing;
    return square.covariance() > kTheSame * (shown - noise) ? Sameness::Same : Sameness::Strange;
}

} // namespace

ShiftFit fit_shift(const Patch& first, const Patch& second, double x, double y)
{
    return with_structure(first, second, fit_most(first, second, x, y));
}

Agreement agreement_at(const Patch& first, const Patch& second, double x, double y, double noise)
{
    Warped warped;
    warp(second, second.smoothed, first.rect, x, y, warped);
    Agreement result;
    result.is_strange.resize(first.value.size());
    const std::size_t width = first.width();
    for (std::size_t top = 0; top < first.height(); top += kSquare)
        for (std::size_t left = 0; left < width; left += kSquare) {
            Square square;
            const std::size_t bottom = std::min(top + kSquare, first.height());
            const std::size_t right = std::min(left + kSquare, width);
            for (std::size_t v = top; v < bottom; ++v)
                for (std::size_t i = v * width + left; i < v * width + right; ++i)
                    if ((first.known[i] & warped.known[i]) != 0)
                        square.add(static_cast<double>(first.smoothed[i]), static_cast<double>(warped.value[i]));
            const Sameness sameness = compare(square, noise);
            result.agreeing += sameness == Sameness::Same ? 1 : 0;
            if (sameness != Sameness::Strange)
                continue;
            result.strange += 1;
            for (std::size_t v = top; v < bottom; ++v)
                std::fill_n(result.is_strange.begin() + static_cast<std::ptrdiff_t>(v * width + left), right - left,
                            std::uint8_t{1});
        }
    return result;
}

} // namespace panoval::mosaic
