// SPDX-License-Identifier: MIT
// Rows of pyramid levels.
#pragma once

#include "core/numbers.h"
#include "panoval.h"

#include <cstddef>
#include <cstdint>

namespace panoval
{

inline std::size_t row_length(const Matf& level) noexcept
{
    return to_count(level.width) * to_count(level.channels);
}

inline float* row_of(const Matf& level, std::int32_t y) noexcept
{
    return level.data + to_count(y) * row_length(level);
}

} // namespace panoval
