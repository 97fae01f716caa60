// SPDX-License-Identifier: MIT
// The weights of a row of cells are formed in vectors; the sums run over the cells one by one, in the order of their
// rows and columns, with the three channels and the sum of weights side by side in a vector of four.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "inpaint/neighbourhood.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set

#include <hwy/highway.h>

#include "core/numbers.h"
#include "inpaint/neighbourhood.h"

#include <algorithm>
#include <cmath>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// weights[i] of the cell i columns further right, of which the first lies from_col columns left of the pixel (negative:
// right of it) and from_row rows above. Weights are written a vector at a time, beyond count as well.
void weigh_row(const Front& front, const float* distance, const float* falloff, std::int32_t from_col,
               std::int32_t from_row, std::size_t count, float* weights)
{
    const hn::ScalableTag<double> dd;
    const hn::Rebind<float, decltype(dd)> df;
    const auto one = hn::Set(dd, 1.0);
    const auto along_y = hn::Set(df, static_cast<float>(from_row) * front.gradient_y);
    for (std::size_t i = 0; i < count; i += hn::Lanes(dd)) {
        const auto step = hn::PromoteTo(dd, hn::Sub(hn::LoadU(df, distance + i), hn::Set(df, front.distance)));
        const auto level = hn::DemoteTo(df, hn::Div(one, hn::Add(one, hn::Abs(step))));
        const auto x = hn::Sub(hn::Set(df, static_cast<float>(from_col)), hn::Iota(df, static_cast<float>(i)));
        const auto along = hn::Add(hn::Mul(x, hn::Set(df, front.gradient_x)), along_y);
        const auto is_across = hn::Le(hn::Abs(along), hn::Set(df, 0.01f)); // the float next below 0.01
        const auto direction = hn::IfThenElse(is_across, hn::Set(df, 0.000001f), along);
        const auto weight = hn::Mul(hn::Mul(hn::LoadU(df, falloff + i), level), direction);
        hn::StoreU(hn::Abs(weight), df, weights + i);
    }
}

#if HWY_TARGET == HWY_SCALAR
// Four floats where vectors have one lane.
struct Quad {
    float lane[kBytesPerCell];
};

inline Quad quad_of(float value)
{
    return {{value, value, value, value}};
}
inline Quad load_floats(const float* p)
{
    return {{p[0], p[1], p[2], p[3]}};
}
inline Quad load_colours(const std::uint8_t* p)
{
    return {{static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2]), static_cast<float>(p[3])}};
}
template <class Operation>
Quad for_each_lane(const Quad& a, const Quad& b, const Operation& operation)
{
    return {{operation(a.lane[0], b.lane[0]), operation(a.lane[1], b.lane[1]), operation(a.lane[2], b.lane[2]),
             operation(a.lane[3], b.lane[3])}};
}
inline Quad plus(const Quad& a, const Quad& b)
{
    return for_each_lane(a, b, [](float x, float y) { return x + y; });
}
inline Quad minus(const Quad& a, const Quad& b)
{
    return for_each_lane(a, b, [](float x, float y) { return x - y; });
}
inline Quad times(const Quad& a, const Quad& b)
{
    return for_each_lane(a, b, [](float x, float y) { return x * y; });
}
inline void store(const Quad& a, float* p)
{
    std::copy_n(a.lane, kBytesPerCell, p);
}
#else
using QuadTag = hn::FixedTag<float, kBytesPerCell>;
using Quad = hn::Vec<QuadTag>;

HWY_INLINE Quad quad_of(float value)
{
    return hn::Set(QuadTag(), value);
}
HWY_INLINE Quad load_floats(const float* p)
{
    return hn::LoadU(QuadTag(), p);
}
HWY_INLINE Quad load_colours(const std::uint8_t* p)
{
    const hn::FixedTag<std::uint8_t, kBytesPerCell> d8;
    const hn::FixedTag<std::int32_t, kBytesPerCell> d32;
    return hn::ConvertTo(QuadTag(), hn::PromoteTo(d32, hn::LoadU(d8, p)));
}
HWY_INLINE Quad plus(Quad a, Quad b)
{
    return hn::Add(a, b);
}
HWY_INLINE Quad minus(Quad a, Quad b)
{
    return hn::Sub(a, b);
}
HWY_INLINE Quad times(Quad a, Quad b)
{
    return hn::Mul(a, b);
}
HWY_INLINE void store(Quad a, float* p)
{
    hn::StoreU(a, QuadTag(), p);
}
#endif

struct Sums {
    Quad colours; // and in the last lane the weights
    Quad along_x; // of the image's gradient
    Quad along_y;
};

// The bytes from a cell to the neighbours that its differences are taken of. At the picture's border they are those of
// the next cell inward, the one before along one side and the one behind along the other; differences follow.
struct Differences {
    const std::uint8_t* centre;
    const std::uint8_t* before_x;
    const std::uint8_t* behind_x;
    const std::uint8_t* before_y;
    const std::uint8_t* behind_y;
};

// Adds one known cell: x and y are the steps from it to the pixel. A difference of two known neighbours counts double,
// one of the cell itself and its only known neighbour once, and without a known neighbour there is none.
HWY_INLINE void add_cell(Sums& sums, const Differences& d, float scale_x, float scale_y, float weight, float x, float y)
{
    const auto w = quad_of(weight);
    const auto gradient_x = times(minus(load_colours(d.behind_x), load_colours(d.before_x)), quad_of(scale_x));
    const auto gradient_y = times(minus(load_colours(d.behind_y), load_colours(d.before_y)), quad_of(scale_y));
    sums.colours = plus(sums.colours, times(w, load_colours(d.centre)));
    sums.along_x = minus(sums.along_x, times(times(w, gradient_x), quad_of(x)));
    sums.along_y = minus(sums.along_y, times(times(w, gradient_y), quad_of(y)));
}

// Adds the known cells of a row. first to last are columns of the grid, weights[0] is the weight of the first.
HWY_INLINE void add_row(Sums& sums, const FillRegion& region, std::int32_t k, std::int32_t first, std::int32_t last,
                        std::int32_t row, std::int32_t col, const float* weights)
{
    const auto stride = static_cast<std::ptrdiff_t>(region.stride);
    const auto step = static_cast<std::ptrdiff_t>(kBytesPerCell);
    const std::uint8_t* const inside = region.inside.get() + region.index(k, first);
    const std::uint8_t* const colours = region.colours.get() + region.index(k, first) * kBytesPerCell;
    // Rows of the picture that differences start from: towards the top the second row stands in for the first, towards
    // the bottom the last but one for the last.
    const std::ptrdiff_t from_top = k == 1 ? stride * step : 0;
    const std::ptrdiff_t from_bottom = k == region.grid_rows - 2 ? -stride * step : 0;
    for (std::ptrdiff_t i = 0; i <= last - first; ++i) {
        if (inside[i] != 0)
            continue;
        const std::ptrdiff_t l = first + i;
        const std::ptrdiff_t from_left = l == 1 ? step : 0;
        const std::ptrdiff_t from_right = l == region.grid_cols - 2 ? -step : 0;
        const std::ptrdiff_t knows_left = 1 - inside[i - 1];
        const std::ptrdiff_t knows_right = 1 - inside[i + 1];
        const std::ptrdiff_t knows_above = 1 - inside[i - stride];
        const std::ptrdiff_t knows_below = 1 - inside[i + stride];
        const std::uint8_t* const cell = colours + i * step;
        const std::uint8_t* const centre = cell + from_top + from_left;
        const Differences d = {centre, centre - knows_left * step, cell + from_top + from_right + knows_right * step,
                               centre - knows_above * stride * step,
                               cell + from_bottom + from_left + knows_below * stride * step};
        add_cell(sums, d, static_cast<float>(knows_left + knows_right), static_cast<float>(knows_above + knows_below),
                 weights[i], static_cast<float>(col - l), static_cast<float>(row - k));
    }
}

// Colours, sum of weights and both sums of gradients, four floats each.
void sum_neighbourhood(const FillRegion& region, const Front& front, Neighbourhood& n, std::int32_t row,
                       std::int32_t col, float* out)
{
    constexpr float kStart[kBytesPerCell] = {0.0f, 0.0f, 0.0f, 1e-20f}; // no division by 0 without a known cell
    Sums sums = {load_floats(kStart), quad_of(0.0f), quad_of(0.0f)};
    const std::int32_t end_row = std::min(row + n.rows, region.grid_rows - 2);
    for (std::int32_t k = std::max(row - n.rows, 1); k <= end_row; ++k) {
        const std::int32_t distance_in_rows = k > row ? k - row : row - k;
        const std::int32_t half = n.half_widths[static_cast<std::size_t>(distance_in_rows)];
        const std::int32_t first = std::max(col - half, 1);
        const std::int32_t last = std::min(col + half, region.grid_cols - 2);
        const float* const falloff = n.falloff.get() + static_cast<std::size_t>(distance_in_rows) * n.stride +
                                     static_cast<std::size_t>(first - col + n.cols);
        weigh_row(front, region.distance.get() + region.index(k, first), falloff, col - first, row - k,
                  static_cast<std::size_t>(last - first + 1), n.weights.get());
        add_row(sums, region, k, first, last, row, col, n.weights.get());
    }
    store(sums.colours, out);
    store(sums.along_x, out + kBytesPerCell);
    store(sums.along_y, out + 2 * kBytesPerCell);
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
HWY_EXPORT(sum_neighbourhood);

namespace
{

// One solution of the front's equation from two neighbours of a cell, one above or below and one beside it.
float solve(const FillRegion& region, std::size_t first, std::size_t second)
{
    const double a = region.distance[first];
    const double b = region.distance[second];
    const bool knows_first = region.inside[first] == 0;
    const bool knows_second = region.inside[second] == 0;
    if (knows_first != knows_second)
        return static_cast<float>((knows_first ? a : b) + 1);
    if (!knows_first || std::fabs(a - b) >= 1.0)
        return static_cast<float>(std::min(a, b) + 1);
    return static_cast<float>((std::sqrt(2 - (a - b) * (a - b)) + a + b) * 0.5);
}

// The slope of the distance at a cell between the neighbours before and behind it, as far as they are known.
float slope(const FillRegion& region, std::size_t before, std::size_t cell, std::size_t behind)
{
    const float* const t = region.distance.get();
    const bool knows_before = region.inside[before] == 0;
    const bool knows_behind = region.inside[behind] == 0;
    if (knows_before && knows_behind)
        return (t[behind] - t[before]) * 0.5f;
    if (knows_behind)
        return t[behind] - t[cell];
    if (knows_before)
        return t[cell] - t[before];
    return 0.0f;
}

// Truncated, and cut to its low byte: a value of 256 becomes 0.
std::uint8_t colour_of(float mean_times_weight, float along_x, float along_y, float weight)
{
    const double x = along_x;
    const double y = along_y;
    const double correction = (x + y) / (std::sqrt(x * x + y * y) + 1e-20);
    const double mean = static_cast<double>(mean_times_weight) / static_cast<double>(weight);
    return low_byte(truncate_to_int(correction + mean + 0.5));
}

// The columns within a radius on a row that lies distance_in_rows away, at most limit.
std::int32_t half_width(std::int64_t radius, std::int64_t distance_in_rows, std::int32_t limit)
{
    std::int64_t half = std::min<std::int64_t>(radius, limit);
    while (half * half + distance_in_rows * distance_in_rows > radius * radius)
        --half;
    return static_cast<std::int32_t>(half);
}

float falloff_at(std::int32_t x_steps, std::int32_t y_steps)
{
    const auto x = static_cast<float>(x_steps);
    const auto y = static_cast<float>(y_steps);
    const float square = x * x + y * y;
    return static_cast<float>(1.0 / (square * std::sqrt(static_cast<double>(square))));
}

} // namespace

bool neighbourhood_init(Neighbourhood& n, std::int32_t radius, std::int32_t grid_rows, std::int32_t grid_cols)
{
    if (radius < 1)
        return true; // without a cell
    n.rows = std::min(radius, grid_rows);
    n.cols = std::min(radius, grid_cols);
    const auto rows = static_cast<std::size_t>(n.rows) + 1;
    n.stride = 2 * static_cast<std::size_t>(n.cols) + 1 + kCellsBehindRow;
    n.half_widths = allocate<std::int32_t>(rows);
    n.falloff = allocate_zeroed<float>(rows * n.stride);
    n.weights = allocate<float>(n.stride);
    if (n.half_widths == nullptr || n.falloff == nullptr || n.weights == nullptr)
        return false;
    for (std::int32_t y = 0; y <= n.rows; ++y) {
        n.half_widths[static_cast<std::size_t>(y)] = half_width(radius, y, n.cols);
        float* const row = n.falloff.get() + static_cast<std::size_t>(y) * n.stride;
        for (std::int32_t x = -n.cols; x <= n.cols; ++x)
            row[x + n.cols] = x == 0 && y == 0 ? 0.0f : falloff_at(x, y); // the pixel itself is not known
    }
    return true;
}

float front_distance(const FillRegion& region, std::int32_t row, std::int32_t col)
{
    const std::size_t cell = region.index(row, col);
    const std::size_t above = cell - region.stride;
    const std::size_t below = cell + region.stride;
    return std::min({solve(region, above, cell + 1), solve(region, below, cell - 1), solve(region, above, cell - 1),
                     solve(region, below, cell + 1)});
}

void fill_cell(FillRegion& region, Neighbourhood& n, std::int32_t row, std::int32_t col)
{
    const std::size_t cell = region.index(row, col);
    const Front front = {region.distance[cell], slope(region, cell - 1, cell, cell + 1),
                         slope(region, cell - region.stride, cell, cell + region.stride)};
    float sums[3][kBytesPerCell];
    HWY_DYNAMIC_DISPATCH(sum_neighbourhood)(region, front, n, row, col, sums[0]);
    const float weight = sums[0][3];
    for (std::size_t c = 0; c < 3; ++c)
        region.colours[cell * kBytesPerCell + c] = colour_of(sums[0][c], sums[1][c], sums[2][c], weight);
}

} // namespace panoval
#endif
