// SPDX-License-Identifier: MIT
// An array of a Zarr store (version 2) that holds a picture: axes c, y, x; cut into chunks of all channels, each a file
// of its own, compressed with zlib or not at all. A chunk without a file is all 0.
#pragma once

#include "image/rows.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace panoval::image
{

struct ZarrArray {
    std::int64_t width = 0;
    std::int64_t height = 0;
    int channels = 0; // all of them, the coverage counted
    int bits = 0;     // per sample, 8 or 16, unsigned
    std::int32_t chunk_width = 0;
    std::int32_t chunk_height = 0;
    bool is_compressed = true;

    std::int64_t chunk_columns() const { return (width + chunk_width - 1) / chunk_width; }
    std::int64_t chunk_rows() const { return (height + chunk_height - 1) / chunk_height; }
    std::size_t chunk_pixels() const
    {
        return static_cast<std::size_t>(chunk_width) * static_cast<std::size_t>(chunk_height);
    }
    std::size_t chunk_bytes() const
    {
        return chunk_pixels() * static_cast<std::size_t>(channels) * static_cast<std::size_t>(bits / 8);
    }
    friend bool operator==(const ZarrArray&, const ZarrArray&) = default;
};

// The text of its .zarray.
std::string json_of(const ZarrArray& array);

// Fails, naming the file, for an array of any other kind.
ZarrArray parse_zarr_array(const std::string& name, const std::string& text);

// Where a chunk lies below the array's folder: "0/ROW/COLUMN".
std::string chunk_name(std::int64_t row, std::int64_t column);

// The samples of a chunk, each channel by itself and padded with 0, little end first.
using Chunk = std::vector<std::uint8_t>;

// A chunk as its file has it. Empty where all samples are 0: such a chunk has no file.
std::vector<std::uint8_t> pack_chunk(const ZarrArray& array, const Chunk& chunk);

// The reverse. Fails, naming the file, where it is no whole chunk.
void unpack_chunk(const ZarrArray& array, const std::string& name, const std::vector<std::uint8_t>& bytes,
                  Chunk& chunk);

// Part of a picture to the chunk's left top; its other samples stay. With a mask the last channel is the coverage,
// which is scaled to the samples' range.
void put_pixels(const ZarrArray& array, const ConstRows& from, std::int32_t width, std::int32_t height, Chunk& chunk);

// The reverse: the chunk's left top into a picture.
void get_pixels(const ZarrArray& array, const Chunk& chunk, std::int32_t width, std::int32_t height, const Rows& to);

} // namespace panoval::image
