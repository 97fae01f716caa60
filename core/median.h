// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>

namespace panoval
{

// The median of normally distributed deviations' sizes, as a share of the standard deviation, turned over.
inline constexpr double kMedianToSigma = 1.4826;

// The value in the middle of their order, of two the upper one, of none 0. Reorders the values.
template <class Value>
Value median_of(std::span<Value> values)
{
    if (values.empty())
        return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

} // namespace panoval
