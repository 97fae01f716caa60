// SPDX-License-Identifier: MIT
// Pyramids of whole images: every row is filtered across once, into a ring of the rows that the filter down a column
// reaches.
#include "blend/pyramid.h"

#include "blend/border.h"
#include "blend/expander.h"
#include "blend/level_rows.h"
#include "blend/pyramid_rows.h"
#include "core/heap.h"
#include "core/numbers.h"

#include <algorithm>

namespace panoval
{
namespace
{

std::int32_t half(std::int32_t size)
{
    return size / 2 + size % 2;
}

// Expanded row y of so many floats. y ascends.
void expand_row(Expander& expander, std::int32_t y, std::size_t length, float* dst)
{
    const Expander::Rows rows = expander.around(y);
    if (y % 2 == 0)
        expand_down_even(rows.row, length, dst);
    else
        expand_down_odd(rows.row + 1, length, dst);
}

// difference = fine - expanded coarse; difference may be fine itself. False without memory.
bool subtract_expanded(const Matf& fine, const Matf& coarse, const Matf& difference)
{
    const std::size_t length = row_length(fine);
    const HeapArray<float> expanded = allocate<float>(length);
    Expander expander(length);
    if (expanded == nullptr || !expander.has_memory())
        return false;
    expander.start(coarse, fine.width);
    for (std::int32_t y = 0; y < fine.height; ++y) {
        expand_row(expander, y, length, expanded.get());
        const float* const fine_row = row_of(fine, y);
        float* const row = row_of(difference, y);
        for (std::size_t i = 0; i < length; ++i)
            row[i] = fine_row[i] - expanded[i];
    }
    return true;
}

bool build_laplace_pyr(const Matf& src, std::int32_t num_bands, Matf* pyr)
{
    MatfReset(&pyr[0], src.width, src.height, src.channels);
    if (pyr[0].data == nullptr)
        return false;
    const Matf* finer = &src;
    for (std::int32_t i = 1; i <= num_bands; ++i) {
        MatfReset(&pyr[i], half(finer->width), half(finer->height), src.channels);
        if (pyr[i].data == nullptr)
            return false;
        pyr_down(finer, &pyr[i], kBorderMirrorInner);
        if (pyr[i].data == nullptr)
            return false;
        finer = &pyr[i];
    }
    if (!subtract_expanded(src, pyr[1], pyr[0]))
        return false;
    for (std::int32_t i = 1; i < num_bands; ++i)
        if (!subtract_expanded(pyr[i], pyr[i + 1], pyr[i]))
            return false;
    return true;
}

} // namespace

void pyr_down(const Matf* src, Matf* dst, std::int32_t rule)
{
    const std::size_t length = row_length(*dst);
    const HeapArray<float> ring = allocate<float>(kReducedRows * length);
    if (ring == nullptr) {
        empty_container(*dst);
        return;
    }
    // Slots count from source row -2, so that rows beyond the edges have theirs.
    const auto slot = [&](std::int32_t y) { return ring.get() + to_count(y + 2) % kReducedRows * length; };
    std::int32_t next = -2;
    for (std::int32_t y = 0; y < dst->height; ++y) {
        for (; next <= 2 * y + 2; ++next) {
            const std::int32_t inside = border_interpolate(next, src->height, rule);
            if (inside >= 0 && inside < src->height)
                reduce_across(row_of(*src, inside), src->width, src->channels, rule, slot(next), dst->width);
            else
                std::fill_n(slot(next), length, 0.0f);
        }
        const float* const rows[5] = {slot(2 * y - 2), slot(2 * y - 1), slot(2 * y), slot(2 * y + 1), slot(2 * y + 2)};
        reduce_down(rows, length, row_of(*dst, y));
    }
}

void pyr_up(const Matf* src, Matf* dst)
{
    const std::size_t length = row_length(*dst);
    Expander expander(length);
    if (!expander.has_memory()) {
        empty_container(*dst);
        return;
    }
    expander.start(*src, dst->width);
    for (std::int32_t y = 0; y < dst->height; ++y)
        expand_row(expander, y, length, row_of(*dst, y));
}

void create_laplace_pyr(const Matf* src, std::int32_t num_bands, Matf* pyr)
{
    if (build_laplace_pyr(*src, num_bands, pyr))
        return;
    for (std::int32_t i = 0; i <= num_bands; ++i)
        empty_container(pyr[i]);
}

} // namespace panoval
