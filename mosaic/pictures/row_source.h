// SPDX-License-Identifier: MIT
// Where the picture store gets rows from: the host.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

// What a picture's rows consist of, besides what the layout says.
struct PictureTraits {
    bool has_keep = false;      // a mask of pixels that must belong to the picture
    bool random_access = false; // any rows at any time; otherwise ascending ones from 0
};

struct RowBuffers {
    std::uint8_t* samples = nullptr;
    std::size_t samples_stride = 0;
    std::uint8_t* mask = nullptr; // null where the picture has none
    std::size_t mask_stride = 0;
    std::uint8_t* keep = nullptr; // null where the picture has none
    std::size_t keep_stride = 0;
};

class RowSource
{
public:
    virtual ~RowSource() = default;

    // Rows of the picture's full width. Called from several threads at once, but not for one picture. Throws an Error.
    virtual void read_rows(std::size_t picture, std::int64_t first_row, std::int64_t row_count,
                           const RowBuffers& buffers) = 0;

    // No more rows of this picture are wanted for now.
    virtual void release(std::size_t picture) = 0;
};

} // namespace panoval::mosaic
