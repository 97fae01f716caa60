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
#include <bit>
#include <cmath>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

constexpr std::ptrdiff_t kWordBytes = sizeof(std::uint32_t);
constexpr std::ptrdiff_t kCellBytes = 2 * kWordBytes; // from a cell's colour to the next one's

// Cells of a row that are weighed together.
constexpr std::int32_t kRun = 32;

// What the cells of a run count for.
struct Run {
    float weights[kRun];
    float steps[kRun]; // columns from the cell to the pixel
};

// Weighs count cells, at most kRun; cells points to the words of the first of them, which lies first_step columns left
// of the pixel (negative: right of it) and row_step rows above. Returns the known ones: bit i for cell i. Runs of cells
// none of which is known keep what they hold.
HWY_INLINE std::uint32_t weigh_run(const Front& front, const std::uint32_t* cells, const float* falloff,
                                   float first_step, float row_step, std::int32_t count, Run& run)
{
    const hn::CappedTag<double, 8> dd;
    const hn::Rebind<float, decltype(dd)> df;
    const hn::Rebind<std::uint32_t, decltype(dd)> du;
    const auto lanes = static_cast<std::int32_t>(hn::Lanes(dd));
    const auto one = hn::Set(dd, 1.0);
    const auto along_y = hn::Set(df, row_step * front.gradient_y);
    std::uint32_t known = 0;
    for (std::int32_t i = 0; i < count; i += lanes) {
        hn::Vec<decltype(du)> distance;
        hn::Vec<decltype(du)> colour;
        hn::LoadInterleaved2(du, cells + 2 * i, distance, colour);
        const auto is_known = hn::Gt(colour, hn::Set(du, 0xFFFFFFu));
        std::uint8_t bits[8] = {};
        hn::StoreMaskBits(du, is_known, bits);
        if (bits[0] == 0)
            continue;
        known |= static_cast<std::uint32_t>(bits[0]) << i;
        const auto step = hn::PromoteTo(dd, hn::Sub(hn::BitCast(df, distance), hn::Set(df, front.distance)));
        const auto level = hn::DemoteTo(df, hn::Div(one, hn::Add(one, hn::Abs(step))));
        const auto x = hn::Sub(hn::Set(df, first_step), hn::Iota(df, static_cast<float>(i)));
        const auto along = hn::Add(hn::Mul(x, hn::Set(df, front.gradient_x)), along_y);
        const auto is_across = hn::Le(hn::Abs(along), hn::Set(df, 0.01f)); // the float next below 0.01
        const auto direction = hn::IfThenElse(is_across, hn::Set(df, 0.000001f), along);
        const auto weight = hn::Mul(hn::Mul(hn::LoadU(df, falloff + i), level), direction);
        hn::StoreU(hn::Abs(weight), df, run.weights + i);
        hn::StoreU(x, df, run.steps + i);
    }
    return count < kRun ? known & ((1u << count) - 1) : known;
}

#if HWY_TARGET == HWY_SCALAR
// Four floats where vectors have one lane.
struct Quad {
    float lane[4];
};

inline Quad quad_of(float value)
{
    return {{value, value, value, value}};
}
inline Quad load_floats(const float* p)
{
    return {{p[0], p[1], p[2], p[3]}};
}
inline Quad quad_of_bytes(const std::uint8_t* p)
{
    return {{static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2]), static_cast<float>(p[3])}};
}
// Byte by byte.
inline Quad difference(const std::uint8_t* p, const std::uint8_t* q)
{
    return {{static_cast<float>(p[0] - q[0]), static_cast<float>(p[1] - q[1]), static_cast<float>(p[2] - q[2]),
             static_cast<float>(p[3] - q[3])}};
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
    std::copy_n(a.lane, 4, p);
}
#else
using QuadTag = hn::FixedTag<float, 4>;
using Quad = hn::Vec<QuadTag>;

HWY_INLINE Quad quad_of(float value)
{
    return hn::Set(QuadTag(), value);
}
HWY_INLINE Quad load_floats(const float* p)
{
    return hn::LoadU(QuadTag(), p);
}
HWY_INLINE hn::Vec<hn::FixedTag<std::int32_t, 4>> integers_of_bytes(const std::uint8_t* p)
{
    return hn::PromoteTo(hn::FixedTag<std::int32_t, 4>(), hn::LoadU(hn::FixedTag<std::uint8_t, 4>(), p));
}
HWY_INLINE Quad quad_of_bytes(const std::uint8_t* p)
{
    return hn::ConvertTo(QuadTag(), integers_of_bytes(p));
}
// Byte by byte.
HWY_INLINE Quad difference(const std::uint8_t* p, const std::uint8_t* q)
{
    return hn::ConvertTo(QuadTag(), hn::Sub(integers_of_bytes(p), integers_of_bytes(q)));
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

// Adds a cell whose four neighbours are known pixels. cell points to the bytes of its colour, whose last one is 1.
// The difference of two known neighbours counts double; so does the weight, which is as exact.
HWY_INLINE void add_surrounded(Sums& sums, const std::uint8_t* cell, std::ptrdiff_t row_bytes, float weight, float x,
                               Quad y)
{
    const auto twice = quad_of(weight + weight);
    sums.colours = plus(sums.colours, times(quad_of(weight), quad_of_bytes(cell)));
    const auto slope_x = difference(cell + kCellBytes, cell - kCellBytes);
    const auto slope_y = difference(cell + row_bytes, cell - row_bytes);
    sums.along_x = minus(sums.along_x, times(times(twice, slope_x), quad_of(x)));
    sums.along_y = minus(sums.along_y, times(times(twice, slope_y), y));
}

// Adds any known cell. Towards the top and left border the next row and column stand in for the outermost one as the
// centre, towards the bottom and right border the last but one as the start of the differences behind it. A difference
// of two known neighbours counts double, one of the cell itself and its only known neighbour once; without a known
// neighbour there is none.
HWY_INLINE void add_any(Sums& sums, const FillRegion& region, std::int32_t k, std::int32_t l, float weight, float x,
                        Quad y)
{
    const std::size_t cell = region.index(k, l);
    const std::size_t stride = region.stride;
    const std::size_t knows_left = region.known(cell - 1) != kInside ? 1 : 0;
    const std::size_t knows_right = region.known(cell + 1) != kInside ? 1 : 0;
    const std::size_t knows_above = region.known(cell - stride) != kInside ? 1 : 0;
    const std::size_t knows_below = region.known(cell + stride) != kInside ? 1 : 0;
    const std::size_t top = cell + (k == 1 ? stride : 0);
    const std::size_t bottom = cell - (k == region.grid_rows - 2 ? stride : 0);
    const std::size_t left = l == 1 ? 1 : 0;
    const std::size_t right = l == region.grid_cols - 2 ? 1 : 0;

    const auto bytes = [&region](std::size_t c)
                           HWY_ATTR { return reinterpret_cast<const std::uint8_t*>(region.words.get() + 2 * c + 1); };
    const std::uint32_t colour = (region.colour(top + left) & 0xFFFFFFu) | 1u << 24; // an unknown centre counts, too
    const auto slope_x = difference(bytes(top - right + knows_right), bytes(top + left - knows_left));
    const auto slope_y =
        difference(bytes(bottom + left + knows_below * stride), bytes(top + left - knows_above * stride));
    const auto scaled_x = times(slope_x, quad_of(static_cast<float>(knows_left + knows_right)));
    const auto scaled_y = times(slope_y, quad_of(static_cast<float>(knows_above + knows_below)));
    const auto w = quad_of(weight);
    sums.colours = plus(sums.colours, times(w, quad_of_bytes(reinterpret_cast<const std::uint8_t*>(&colour))));
    sums.along_x = minus(sums.along_x, times(times(w, scaled_x), quad_of(x)));
    sums.along_y = minus(sums.along_y, times(times(w, scaled_y), y));
}

// Adds the known cells of row k from column first on, in order: those whose bits are set.
HWY_INLINE void add_run(Sums& sums, const FillRegion& region, std::int32_t k, std::int32_t first, std::uint32_t known,
                        const Run& run, float row_step)
{
    const std::uint32_t* const words = region.words.get() + 2 * region.index(k, first) + 1;
    const auto row_words = static_cast<std::ptrdiff_t>(2 * region.stride);
    const auto y = quad_of(row_step);
    for (; known != 0; known &= known - 1) {
        const std::int32_t i = std::countr_zero(known);
        const std::uint32_t* const cell = words + 2 * i;
        const std::uint32_t neighbours = cell[-2] & cell[2] & cell[-row_words] & cell[row_words];
        if (HWY_LIKELY(neighbours >> 24 == kPixel))
            add_surrounded(sums, reinterpret_cast<const std::uint8_t*>(cell), kWordBytes * row_words, run.weights[i],
                           run.steps[i], y);
        else
            add_any(sums, region, k, first + i, run.weights[i], run.steps[i], y);
    }
}

// Colours and the sum of weights, then both sums of gradients: four floats each.
void sum_neighbourhood(const FillRegion& region, const Front& front, const Neighbourhood& n, std::int32_t row,
                       std::int32_t col, float* out)
{
    constexpr float kStart[4] = {0.0f, 0.0f, 0.0f, 1e-20f}; // no division by 0 without a known cell
    Sums sums = {load_floats(kStart), quad_of(0.0f), quad_of(0.0f)};
    Run run;
    const std::int32_t end_row = std::min(row + n.rows, region.grid_rows - 2);
    for (std::int32_t k = std::max(row - n.rows, 1); k <= end_row; ++k) {
        const auto distance_in_rows = static_cast<std::size_t>(k > row ? k - row : row - k);
        const std::int32_t half = n.half_widths[distance_in_rows];
        const float* const falloff = n.falloff.get() + distance_in_rows * n.stride;
        const auto row_step = static_cast<float>(row - k);
        const std::int32_t end = std::min(col + half, region.grid_cols - 2) + 1;
        for (std::int32_t l = std::max(col - half, 1); l < end; l += kRun) {
            const std::uint32_t known =
                weigh_run(front, region.words.get() + 2 * region.index(k, l), falloff + (l - col + n.cols),
                          static_cast<float>(col - l), row_step, std::min(end - l, kRun), run);
            add_run(sums, region, k, l, known, run, row_step);
        }
    }
    store(sums.colours, out);
    store(sums.along_x, out + 4);
    store(sums.along_y, out + 8);
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
    const double a = region.distance(first);
    const double b = region.distance(second);
    const bool knows_first = region.known(first) != kInside;
    const bool knows_second = region.known(second) != kInside;
    if (knows_first != knows_second)
        return static_cast<float>((knows_first ? a : b) + 1);
    if (!knows_first || std::fabs(a - b) >= 1.0)
        return static_cast<float>(std::min(a, b) + 1);
    return static_cast<float>((std::sqrt(2 - (a - b) * (a - b)) + a + b) * 0.5);
}

// The distance that a cell gains from its four neighbours.
float front_distance(const FillRegion& region, std::size_t cell)
{
    const std::size_t above = cell - region.stride;
    const std::size_t below = cell + region.stride;
    return std::min({solve(region, above, cell + 1), solve(region, below, cell - 1), solve(region, above, cell - 1),
                     solve(region, below, cell + 1)});
}

// The slope of the distance at a cell between the neighbours before and behind it, as far as they are known.
float slope(const FillRegion& region, std::size_t before, std::size_t cell, std::size_t behind)
{
    const bool knows_before = region.known(before) != kInside;
    const bool knows_behind = region.known(behind) != kInside;
    if (knows_before && knows_behind)
        return (region.distance(behind) - region.distance(before)) * 0.5f;
    if (knows_behind)
        return region.distance(behind) - region.distance(cell);
    if (knows_before)
        return region.distance(cell) - region.distance(before);
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
    if (n.half_widths == nullptr || n.falloff == nullptr)
        return false;
    for (std::int32_t y = 0; y <= n.rows; ++y) {
        n.half_widths[static_cast<std::size_t>(y)] = half_width(radius, y, n.cols);
        float* const row = n.falloff.get() + static_cast<std::size_t>(y) * n.stride;
        for (std::int32_t x = -n.cols; x <= n.cols; ++x)
            row[x + n.cols] = x == 0 && y == 0 ? 0.0f : falloff_at(x, y); // the pixel itself is not known
    }
    return true;
}

void fill_cell(FillRegion& region, const Neighbourhood& n, std::int32_t row, std::int32_t col)
{
    const std::size_t cell = region.index(row, col);
    const float distance = front_distance(region, cell);
    region.words[2 * cell] = std::bit_cast<std::uint32_t>(distance);
    const Front front = {distance, slope(region, cell - 1, cell, cell + 1),
                         slope(region, cell - region.stride, cell, cell + region.stride)};
    float sums[3][4];
    HWY_DYNAMIC_DISPATCH(sum_neighbourhood)(region, front, n, row, col, sums[0]);
    std::uint32_t colour = kPixel << 24;
    for (unsigned c = 0; c < 3; ++c)
        colour |= static_cast<std::uint32_t>(colour_of(sums[0][c], sums[1][c], sums[2][c], sums[0][3])) << (8 * c);
    region.words[2 * cell + 1] = colour;
}

} // namespace panoval
#endif
