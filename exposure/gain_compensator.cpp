// SPDX-License-Identifier: MIT
// The gain compensator: all images at once, or pair by pair into the tables of the record.
#include "core/heap.h"
#include "core/numbers.h"
#include "exposure/gain_apply.h"
#include "exposure/gain_system.h"
#include "exposure/overlap_statistics.h"
#include "panoval.h"

#include <cstdio>
#include <cstdlib>

namespace
{

using namespace panoval;

// N and I of every pair, as in GainCompensator.
struct Tables {
    HeapArray<std::int32_t> counts;
    HeapArray<double> intensities;
    explicit operator bool() const { return counts != nullptr && intensities != nullptr; }
};

// Entry (i, j) and its mirror. On the diagonal the second write stands.
void store(std::int32_t* counts, double* intensities, std::size_t n, std::size_t i, std::size_t j,
           const OverlapStatistics& pair)
{
    counts[j * n + i] = pair.count;
    counts[i * n + j] = pair.count;
    intensities[i * n + j] = pair.mean_i;
    intensities[j * n + i] = pair.mean_j;
}

// Null tables without memory.
Tables measure_all(std::size_t n, const Point* corners, const Mat* images, const Matb* masks)
{
    Tables tables{allocate_zeroed<std::int32_t>(n * n), allocate_zeroed<double>(n * n)};
    if (!tables)
        return tables;
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = i; j < n; ++j) {
            const auto pair = measure_overlap({corners[i], &images[i], &masks[i]}, {corners[j], &images[j], &masks[j]},
                                              SumOrder::PixelByPixel);
            if (pair.overlap == Overlap::NoMemory)
                return {};
            if (pair.overlap == Overlap::Measured)
                store(tables.counts.get(), tables.intensities.get(), n, i, j, pair);
        }
    return tables;
}

bool solve_all(std::int32_t n, const Tables& tables, Matd& gains)
{
    if (!tables)
        return false;
    auto system = build_gain_system(n, tables.counts.get(), tables.intensities.get());
    if (!system)
        return false;
    MatdReset(&gains, n, 1, 1);
    if (n > 0 && gains.data == nullptr)
        return false;
    return solve_general(system, n, gains.data);
}

void print_gains(const Matd& gains)
{
    const std::size_t n = gains.data != nullptr ? to_count(gains.width) : 0;
    for (std::size_t i = 0; i < n; ++i)
        std::printf("%f\t", gains.data[i]);
    std::printf("\n");
}

} // namespace

extern "C" {

void gain_compensator_init(GainCompensator* gc, std::int32_t n, const Point* corners, const Mat* images,
                           const Matb* masks)
{
    const auto tables = measure_all(to_count(n), corners, images, masks);
    if (!solve_all(n, tables, gc->gains))
        empty_container(gc->gains);
    print_gains(gc->gains);
}

void gain_compensator_apply(const GainCompensator* gc, std::int32_t index, Mat* image)
{
    if (gc->gains.data == nullptr) // the heap was exhausted before
        return;
    const double gain = gc->gains.data[index];
    const std::size_t count = to_count(image->width) * to_count(image->height) * to_count(image->channels);
    if (image->elemSize == 1)
        apply_gain(image->data, count, gain);
    else if (image->elemSize == 2)
        apply_gain(reinterpret_cast<std::uint16_t*>(image->data), count, gain);
}

void gain_compensator_free(GainCompensator* gc)
{
    std::free(gc->gains.data);
}

void gain_compensator_init_start(GainCompensator* gc, std::int32_t n)
{
    MatiReset(&gc->counts, n, n, 1);
    MatdReset(&gc->intensities, n, n, 1);
    MatdReset(&gc->gains, n, 1, 1);
    if (n <= 0 || (gc->counts.data != nullptr && gc->intensities.data != nullptr && gc->gains.data != nullptr))
        return;
    empty_container(gc->counts);
    empty_container(gc->intensities);
    empty_container(gc->gains);
}

void gain_compensator_init_step(GainCompensator* gc, std::int32_t i, std::int32_t j, Point corner_i, const Mat* image_i,
                                const Matb* mask_i, Point corner_j, const Mat* image_j, const Matb* mask_j)
{
    if (gc->counts.data == nullptr) // no memory at the start
        return;
    const auto pair = measure_overlap({corner_i, image_i, mask_i}, {corner_j, image_j, mask_j}, SumOrder::RowByRow);
    if (pair.overlap == Overlap::Measured)
        store(gc->counts.data, gc->intensities.data, to_count(gc->counts.width), static_cast<std::size_t>(i),
              static_cast<std::size_t>(j), pair);
}

void gain_compensator_init_end(GainCompensator* gc)
{
    const std::int32_t n = gc->counts.width;
    auto system = build_gain_system(n, gc->counts.data, gc->intensities.data);
    if (!system || !solve_symmetric(system, n, gc->gains.data))
        empty_container(gc->gains);
    std::free(gc->intensities.data);
    std::free(gc->counts.data);
}

} // extern "C"
