// SPDX-License-Identifier: MIT
// Which pictures are to blame for overlaps that do not fit: the fewest that explain all of them, and that do not fit
// well where they should not.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

namespace panoval::mosaic
{

// What one overlap says about one kind of fault.
struct Evidence {
    std::size_t first = 0;
    std::size_t second = 0;
    double against = 0;                 // 0 to 1: how sure it is that the two do not fit
    double in_favour = 0;               // 0 to 1: how sure it is that they do
    std::optional<std::size_t> suspect; // the one of the two that looks like it by itself
};

// Ascending. Empty where nobody, or nearly everybody, would be to blame. Where one of two pictures must be wrong and
// nothing tells which, both.
std::vector<std::size_t> find_misfits(std::size_t pictures, const std::vector<Evidence>& evidence);

} // namespace panoval::mosaic
