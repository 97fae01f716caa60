// SPDX-License-Identifier: MIT
// A picture of half the size from rows as they come: each pixel is the mean of 2 x 2, rounded to nearest. A last column
// or row that is left over stands for two.
#pragma once

#include "image/image.h"
#include "image/rows.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace panoval::image
{

// The picture's size, halved and rounded up.
ImageInfo half_of(const ImageInfo& info);

class RowHalver
{
public:
    // A row of the smaller picture; borrowed during the call.
    using Emit = std::function<void(const ConstRows& row)>;

    RowHalver(const ImageInfo& info, Emit emit);

    // The next row. With a mask, pixels count with it: what is not covered leaves no trace in its neighbours.
    void add(const ConstRows& row);

    // After the last row.
    void finish();

private:
    void put(const ConstRows& above, const ConstRows& below);

    ImageInfo info_;
    Emit emit_;
    bool holds_row_ = false;
    std::vector<std::uint8_t> held_;
    std::vector<std::uint8_t> held_mask_;
    std::vector<std::uint8_t> half_;
    std::vector<std::uint8_t> half_mask_;
};

} // namespace panoval::image
