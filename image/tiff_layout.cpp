// SPDX-License-Identifier: MIT
#include "image/tiff_layout.h"

#include "image/failure.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace panoval::image
{

namespace
{

constexpr std::size_t kStripBytes = 1 << 20;
// Photographs gain little from a higher one, which costs several times the time.
constexpr int kCompressionLevel = 3;

struct NamedCompression {
    const char* name;
    Compression compression;
    std::uint16_t scheme; // libtiff's
};

constexpr NamedCompression kCompressions[] = {
    {"none", Compression::None, COMPRESSION_NONE},
    {"lzw", Compression::Lzw, COMPRESSION_LZW},
    {"deflate", Compression::Deflate, COMPRESSION_ADOBE_DEFLATE},
    {"zstd", Compression::Zstd, COMPRESSION_ZSTD},
};

std::uint16_t scheme_of(Compression compression)
{
    const auto* const known = std::find_if(std::begin(kCompressions), std::end(kCompressions),
                                           [&](const NamedCompression& c) { return c.compression == compression; });
    return known->scheme;
}

std::int32_t rows_of_band(const ImageInfo& info, bool is_tiled)
{
    if (is_tiled)
        return kTiffTile;
    const auto height = static_cast<std::size_t>(info.height);
    return static_cast<std::int32_t>(std::clamp<std::size_t>(kStripBytes / stored_row_bytes(info), 1, height));
}

std::uint64_t round_up(std::int32_t value, std::int32_t unit)
{
    return (static_cast<std::uint64_t>(value) + static_cast<std::uint64_t>(unit) - 1) /
           static_cast<std::uint64_t>(unit) * static_cast<std::uint64_t>(unit);
}

} // namespace

std::vector<std::string> tiff_compressions()
{
    std::vector<std::string> names;
    for (const NamedCompression& known : kCompressions)
        if (TIFFIsCODECConfigured(known.scheme) == 1) // COUNT_EXCL_BRANCH: as below
            names.emplace_back(known.name);
    return names;
}

Compression compression_of(const std::string& name)
{
    std::string known_names;
    for (const NamedCompression& known : kCompressions) {
        if (TIFFIsCODECConfigured(known.scheme) != 1) // COUNT_EXCL_BRANCH: as below
            continue;                                 // COUNT_EXCL: a libtiff that was built without it
        if (name == known.name)
            return known.compression;
        known_names += (known_names.empty() ? "" : ", ") + std::string(known.name);
    }
    fail_output(name, "no compression of this build", known_names);
}

std::uint64_t most_tiff_bytes(const ImageInfo& info, const TiffLayout& layout)
{
    const std::uint64_t pixels = layout.is_tiled ? round_up(info.width, kTiffTile) * round_up(info.height, kTiffTile)
                                                 : std::uint64_t{info.pixels()};
    const std::uint64_t bytes = pixels * stored_pixel_bytes(info);
    // Noise grows: each byte takes up to 12 bit with LZW, and a few in a thousand more with the others.
    switch (layout.compression) { // COUNT_EXCL_BRANCH: each has its case
    case Compression::None:
        return bytes;
    case Compression::Lzw:
        return bytes + bytes / 2;
    case Compression::Deflate:
    case Compression::Zstd:
        break;
    }
    return bytes + bytes / 100;
}

TiffPictureWriter::TiffPictureWriter(OutputFile& output, TiffFile& tiff, const ImageInfo& info,
                                     const TiffLayout& layout)
    : output_(output), tiff_(tiff.get()), info_(info), is_tiled_(layout.is_tiled),
      is_compressed_(layout.compression != Compression::None), row_bytes_(stored_row_bytes(info)),
      band_rows_(rows_of_band(info, layout.is_tiled))
{
    set_tags(layout);
    band_.resize(static_cast<std::size_t>(band_rows_) * row_bytes_);
    if (is_tiled_)
        tile_.resize(std::size_t{kTiffTile} * kTiffTile * stored_pixel_bytes(info));
}

void TiffPictureWriter::set_tags(const TiffLayout& layout)
{
    if (layout.is_reduced)
        TIFFSetField(tiff_, TIFFTAG_SUBFILETYPE, FILETYPE_REDUCEDIMAGE);
    TIFFSetField(tiff_, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(info_.width));
    TIFFSetField(tiff_, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(info_.height));
    TIFFSetField(tiff_, TIFFTAG_SAMPLESPERPIXEL, info_.channels + (info_.has_alpha ? 1 : 0));
    TIFFSetField(tiff_, TIFFTAG_BITSPERSAMPLE, info_.bits);
    TIFFSetField(tiff_, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    TIFFSetField(tiff_, TIFFTAG_PHOTOMETRIC, info_.channels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff_, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff_, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tiff_, TIFFTAG_COMPRESSION, scheme_of(layout.compression));
    if (layout.compression != Compression::None)
        TIFFSetField(tiff_, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    if (layout.compression == Compression::Deflate)
        TIFFSetField(tiff_, TIFFTAG_ZIPQUALITY, kCompressionLevel);
    if (layout.compression == Compression::Zstd)
        TIFFSetField(tiff_, TIFFTAG_ZSTD_LEVEL, kCompressionLevel);
    if (layout.is_tiled) {
        TIFFSetField(tiff_, TIFFTAG_TILEWIDTH, static_cast<std::uint32_t>(kTiffTile));
        TIFFSetField(tiff_, TIFFTAG_TILELENGTH, static_cast<std::uint32_t>(kTiffTile));
    } else {
        TIFFSetField(tiff_, TIFFTAG_ROWSPERSTRIP, static_cast<std::uint32_t>(band_rows_));
    }
    if (info_.has_alpha) {
        const std::uint16_t kind = EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(tiff_, TIFFTAG_EXTRASAMPLES, 1, &kind);
    }
}

void TiffPictureWriter::add(const ConstRows& rows, std::int32_t count)
{
    for (std::int32_t y = 0; y < count;) {
        const ConstRows rest = rows.from(y);
        if (is_whole_strip(rest, count - y)) {
            write_strip(rest.samples, band_rows_);
            first_row_ += band_rows_;
            y += band_rows_;
        } else {
            hold(rest.samples, rest.mask);
            ++y;
        }
    }
    output_.leave_to_disk();
}

// Whether the next strip lies there as it goes into the file. What is compressed would be changed on the way.
bool TiffPictureWriter::is_whole_strip(const ConstRows& rows, std::int32_t count) const
{
    return held_ == 0 && count >= band_rows_ && !is_tiled_ && !is_compressed_ && !info_.has_alpha &&
           rows.stride == row_bytes_;
}

void TiffPictureWriter::hold(const std::uint8_t* samples, const std::uint8_t* mask)
{
    merge_row(info_, samples, info_.has_alpha ? mask : nullptr,
              band_.data() + static_cast<std::size_t>(held_) * row_bytes_);
    if (++held_ == band_rows_)
        write_band();
}

void TiffPictureWriter::finish()
{
    if (held_ != 0)
        write_band();
}

void TiffPictureWriter::write_band()
{
    if (is_tiled_)
        write_tiles();
    else
        write_strip(band_.data(), held_);
    first_row_ += held_;
    held_ = 0;
}

void TiffPictureWriter::write_strip(const std::uint8_t* lines, std::int32_t count)
{
    const auto index = static_cast<std::uint32_t>(first_row_ / band_rows_);
    const auto bytes = static_cast<tmsize_t>(static_cast<std::size_t>(count) * row_bytes_);
    if (TIFFWriteEncodedStrip(tiff_, index, const_cast<std::uint8_t*>(lines), bytes) < 0)
        fail();
}

void TiffPictureWriter::write_tiles()
{
    const std::size_t pixel_bytes = stored_pixel_bytes(info_);
    const std::size_t tile_row = kTiffTile * pixel_bytes;
    for (std::size_t left = 0; left < row_bytes_; left += tile_row) {
        const std::size_t bytes = std::min(tile_row, row_bytes_ - left);
        if (bytes != tile_row || held_ != kTiffTile) // the rest is padding
            std::fill(tile_.begin(), tile_.end(), std::uint8_t{0});
        for (std::int32_t y = 0; y < held_; ++y)
            std::memcpy(tile_.data() + static_cast<std::size_t>(y) * tile_row,
                        band_.data() + static_cast<std::size_t>(y) * row_bytes_ + left, bytes);
        const std::uint32_t index = TIFFComputeTile(tiff_, static_cast<std::uint32_t>(left / pixel_bytes),
                                                    static_cast<std::uint32_t>(first_row_), 0, 0);
        if (TIFFWriteEncodedTile(tiff_, index, tile_.data(), static_cast<tmsize_t>(tile_.size())) < 0)
            fail();
    }
}

} // namespace panoval::image
