// SPDX-License-Identifier: MIT
// What cameras note in JPEG and PNG files: a small TIFF file without a picture.
#pragma once

#include "image/metadata.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::image
{

struct ExifBlock {
    Exif exif;
    int orientation = 1; // how the camera was held, 1 to 8 as in TIFF
};

// Of a JPEG file's APP1 block, which starts with "Exif" and two zeros, or of a PNG file's eXIf chunk, which does not.
// What makes no sense is left out.
ExifBlock parse_exif(const std::uint8_t* block, std::size_t size);

// The chunk for a picture that stands as it is seen; in a JPEG file kExifMagic goes before it.
std::vector<std::uint8_t> make_exif(const Exif& exif);

inline constexpr std::uint8_t kExifMagic[6] = {'E', 'x', 'i', 'f', 0, 0};

} // namespace panoval::image
