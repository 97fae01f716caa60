// SPDX-License-Identifier: MIT
// A PNG file on an open stream, by rows: a picture of its own, or a tile of a larger one.
#pragma once

#include "image/image.h"

#include <cstdint>
#include <cstdio>
#include <memory>

namespace panoval::image
{

// For one file. The stream stays the caller's. Each call returns false when the file could not be written; the encoder
// is of no use then.
class PngEncoder
{
public:
    PngEncoder();
    PngEncoder(const PngEncoder&) = delete;
    PngEncoder& operator=(const PngEncoder&) = delete;
    ~PngEncoder();

    bool begin(std::FILE* stream, const PictureInfo& picture);

    // Interleaved with the alpha if there is one, 16 bit in this machine's order.
    bool write_row(const std::uint8_t* row);

    bool finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace panoval::image
