// SPDX-License-Identifier: MIT
// Gradients and the steepest pixels across edges, one pixel at a time.
#pragma once

#include "measure/edge_kernel.h"

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace panoval::reference
{

inline bool square_gradients(const std::uint16_t* above, const std::uint16_t* row, const std::uint16_t* below,
                             std::size_t width, float least, float* squares)
{
    bool any = false;
    for (std::size_t x = 0; x < width; ++x) {
        squares[x] = 0;
        if (x == 0 || x + 1 == width)
            continue;
        const auto dx = static_cast<float>(row[x + 1] - row[x - 1]);
        const auto dy = static_cast<float>(below[x] - above[x]);
        squares[x] = dx * dx + dy * dy;
        any = any || squares[x] > least;
    }
    return any;
}

inline void mark_steepest(const measure::EdgeRows& rows, std::size_t width, float least, std::uint8_t* marks)
{
    for (std::size_t x = 1; x + 1 < width; ++x) {
        const auto dx = static_cast<float>(rows.samples[1][x + 1] - rows.samples[1][x - 1]);
        const auto dy = static_cast<float>(rows.samples[2][x] - rows.samples[0][x]);
        // The step to the neighbour uphill.
        const int step_x = std::fabs(dx) < measure::kSlant * std::fabs(dy) ? 0 : dx > 0 ? 1 : -1;
        const int step_y = std::fabs(dy) < measure::kSlant * std::fabs(dx) ? 0 : dy > 0 ? 1 : -1;
        const auto square = [&](int right, int down) {
            return rows.squares[1 + down][static_cast<std::ptrdiff_t>(x) + right];
        };
        const float here = square(0, 0);
        marks[x] = here > least && here >= square(-step_x, -step_y) && here > square(step_x, step_y) ? 1 : 0;
    }
}

} // namespace panoval::reference
