// SPDX-License-Identifier: MIT
#include "blend/expander.h"

#include "blend/border.h"
#include "blend/level_rows.h"

namespace panoval
{

Expander::Expander(std::size_t longest_row) noexcept : ring_(allocate<float>(kExpandedRows * longest_row)) {}

void Expander::start(const Matf& src, std::int32_t width) noexcept
{
    src_ = &src;
    width_ = width;
    length_ = to_count(width) * to_count(src.channels);
    done_ = 0;
}

// Mirrored at twice the size: above the first row comes the second, below the last one the last itself.
const float* Expander::across(std::int32_t y) noexcept
{
    const std::int32_t inside = border_interpolate(2 * y, 2 * src_->height, kBorderMirrorInner) / 2;
    for (; done_ <= inside; ++done_)
        expand_across(row_of(*src_, done_), src_->width, src_->channels, slot(done_), width_);
    return slot(inside);
}

Expander::Rows Expander::around(std::int32_t y) noexcept
{
    const std::int32_t middle = y / 2;
    const float* const above = across(middle - 1);
    const float* const at = across(middle);
    return {{above, at, across(middle + 1)}};
}

} // namespace panoval
