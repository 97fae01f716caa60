// SPDX-License-Identifier: MIT
// Pyramids of whole images: every row is filtered across once, into a ring of the rows that the filter down a column
// reaches.
#include "blend/pyramid.h"

#include "blend/border.h"
#include "blend/pyramid_rows.h"
#include "core/heap.h"
#include "core/numbers.h"

#include <algorithm>

namespace panoval
{
namespace
{

std::size_t row_length(const Matf& m)
{
    return to_count(m.width) * to_count(m.channels);
}

float* row_of(const Matf& m, std::int32_t y)
{
    return m.data + to_count(y) * row_length(m);
}

std::int32_t half(std::int32_t size)
{
    return size / 2 + size % 2;
}

// The rows of an image at twice its size, filtered across on demand. Rows are to be asked for in ascending order.
class Expander
{
public:
    // width  of the expanded rows
    Expander(const Matf& src, std::int32_t width)
        : src_(src), width_(width), length_(to_count(width) * to_count(src.channels)),
          ring_(allocate<float>(kRing * length_))
    {
    }

    bool has_memory() const { return ring_ != nullptr; }

    void expand_row(std::int32_t y, float* dst)
    {
        const std::int32_t middle = y / 2;
        const float* const rows[3] = {across(middle - 1), across(middle), across(middle + 1)};
        if (y % 2 == 0)
            expand_down_even(rows, length_, dst);
        else
            expand_down_odd(rows + 1, length_, dst);
    }

private:
    static constexpr std::size_t kRing = 3;

    const float* across(std::int32_t y)
    {
        // Mirrored at twice the size: the row above the first is the second, the one below the last the last itself.
        const std::int32_t inside = border_interpolate(2 * y, 2 * src_.height, kBorderMirrorInner) / 2;
        for (; done_ <= inside; ++done_)
            expand_across(row_of(src_, done_), src_.width, src_.channels, slot(done_), width_);
        return slot(inside);
    }

    float* slot(std::int32_t y) { return ring_.get() + to_count(y) % kRing * length_; }

    const Matf& src_;
    std::int32_t width_;
    std::size_t length_;
    HeapArray<float> ring_;
    std::int32_t done_ = 0; // source rows filtered so far
};

// difference = fine - expanded coarse; difference may be fine itself. False without memory.
bool subtract_expanded(const Matf& fine, const Matf& coarse, const Matf& difference)
{
    const std::size_t length = row_length(fine);
    const HeapArray<float> expanded = allocate<float>(length);
    Expander expander(coarse, fine.width);
    if (expanded == nullptr || !expander.has_memory())
        return false;
    for (std::int32_t y = 0; y < fine.height; ++y) {
        expander.expand_row(y, expanded.get());
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
    constexpr std::int32_t kRing = 5;
    const std::size_t length = row_length(*dst);
    const HeapArray<float> ring = allocate<float>(kRing * length);
    if (ring == nullptr) {
        empty_container(*dst);
        return;
    }
    // Slots count from source row -2, so that rows beyond the edges have theirs.
    const auto slot = [&](std::int32_t y) { return ring.get() + to_count((y + 2) % kRing) * length; };
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
    Expander expander(*src, dst->width);
    if (!expander.has_memory()) {
        empty_container(*dst);
        return;
    }
    for (std::int32_t y = 0; y < dst->height; ++y)
        expander.expand_row(y, row_of(*dst, y));
}

void create_laplace_pyr(const Matf* src, std::int32_t num_bands, Matf* pyr)
{
    if (build_laplace_pyr(*src, num_bands, pyr))
        return;
    for (std::int32_t i = 0; i <= num_bands; ++i)
        empty_container(pyr[i]);
}

} // namespace panoval
