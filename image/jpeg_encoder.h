// SPDX-License-Identifier: MIT
// A JPEG file on an open stream, by rows: a picture of its own, or a tile of a larger one. The colours' resolution is
// not lowered.
#pragma once

#include "image/image.h"

#include <cstdint>
#include <cstdio>
#include <memory>

namespace panoval::image
{

// The stream stays the caller's. Each call returns false when the file could not be written; the encoder is of no use
// then.
class JpegEncoder
{
public:
    JpegEncoder();
    JpegEncoder(const JpegEncoder&) = delete;
    JpegEncoder& operator=(const JpegEncoder&) = delete;
    ~JpegEncoder();

    // quality: 1 to kBestQuality
    bool begin(std::FILE* stream, const PictureInfo& picture, int quality);
    bool write_row(const std::uint8_t* row);
    bool finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace panoval::image
