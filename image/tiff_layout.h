// SPDX-License-Identifier: MIT
// How the samples of a TIFF picture lie in its file, strips or tiles, and one such picture being written.
#pragma once

#include "image/row_writer.h"
#include "image/tiff_file.h"

#include <cstdint>
#include <vector>

namespace panoval::image
{

inline constexpr std::int32_t kTiffTile = 256; // pixels on a side

struct TiffLayout {
    bool is_tiled = false;
    Compression compression = Compression::None;
    bool is_reduced = false; // a smaller copy of the picture before
};

// Bytes that a picture's samples take at most, padding included.
std::uint64_t most_tiff_bytes(const ImageInfo& info, const TiffLayout& layout);

// Takes rows and writes strips or tiles into the file's current directory, whose tags it sets first.
class TiffPictureWriter
{
public:
    TiffPictureWriter(OutputFile& output, TiffFile& tiff, const ImageInfo& info, const TiffLayout& layout);

    void add(const ConstRows& rows, std::int32_t count);

    // Writes what is left. The directory is still the current one.
    void finish();

private:
    void set_tags(const TiffLayout& layout);
    bool is_whole_strip(const ConstRows& rows, std::int32_t count) const;
    void hold(const std::uint8_t* samples, const std::uint8_t* mask);
    void write_band();
    void write_strip(const std::uint8_t* lines, std::int32_t count);
    void write_tiles();
    void fail() const { output_.fail_writing(); }

    OutputFile& output_;
    TIFF* tiff_;
    ImageInfo info_;
    bool is_tiled_;
    bool is_compressed_;
    std::size_t row_bytes_;
    std::int32_t band_rows_;         // of a strip or of tiles
    std::vector<std::uint8_t> band_; // rows that are not yet written
    std::vector<std::uint8_t> tile_;
    std::int32_t held_ = 0;      // rows of the band
    std::int32_t first_row_ = 0; // of the band
};

} // namespace panoval::image
