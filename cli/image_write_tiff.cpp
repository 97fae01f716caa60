// SPDX-License-Identifier: MIT
// TIFF files in strips, uncompressed, with unassociated alpha and the picture's position, if it has one that the tags
// can hold; big ones as BigTIFF.
#ifndef PANOVAL_PNM_ONLY

#include "cli/errors.h"
#include "cli/image_write.h"
#include "cli/tiff_file.h"

#include <algorithm>
#include <vector>

namespace panoval::cli
{

namespace
{

constexpr std::size_t kStripBytes = 1 << 20;
constexpr std::uint64_t kBigFile = 4'000'000'000u;

void set_tags(TIFF* tiff, const Image& image, std::uint32_t rows_per_strip)
{
    const bool has_alpha = image.mask != nullptr;
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<std::uint32_t>(image.width));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(image.height));
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, image.channels + (has_alpha ? 1 : 0));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, image.bits);
    TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, image.channels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, rows_per_strip);
    if (has_alpha) {
        const std::uint16_t kind = EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &kind);
    }
}

// Fractions of an inch, as remapping programs write them. They cannot be negative.
void set_position(TIFF* tiff, const Offset& position)
{
    constexpr double kPixelsPerInch = 150.;
    if (position.x < 0 || position.y < 0)
        return;
    TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, kPixelsPerInch);
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, kPixelsPerInch);
    TIFFSetField(tiff, TIFFTAG_XPOSITION, static_cast<double>(position.x) / kPixelsPerInch);
    TIFFSetField(tiff, TIFFTAG_YPOSITION, static_cast<double>(position.y) / kPixelsPerInch);
}

} // namespace

void write_tiff(OutputFile& output, const Image& image)
{
    const std::size_t row_bytes = copied_row_bytes(image);
    const bool is_big = row_bytes * static_cast<std::uint64_t>(image.height) > kBigFile;
    TiffFile tiff(output.stream(), output.target(), is_big ? "w8" : "w");
    if (tiff.get() == nullptr)
        output.fail_writing();
    const std::size_t rows_per_strip =
        std::clamp<std::size_t>(kStripBytes / row_bytes, 1, static_cast<std::size_t>(image.height));
    set_tags(tiff.get(), image, static_cast<std::uint32_t>(rows_per_strip));
    if (!image.profile.empty())
        TIFFSetField(tiff.get(), TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(image.profile.size()),
                     image.profile.data());
    if (image.position)
        set_position(tiff.get(), *image.position);
    const bool is_copied = image.mask != nullptr; // else the picture's own rows are what the file holds
    std::vector<std::uint8_t> copy(is_copied ? rows_per_strip * row_bytes : 0);
    std::uint32_t index = 0;
    const auto height = static_cast<std::size_t>(image.height);
    for (std::size_t top = 0; top < height; top += rows_per_strip, ++index) {
        const std::size_t rows = std::min(rows_per_strip, height - top);
        for (std::size_t y = 0; is_copied && y < rows; ++y)
            copy_row(image, static_cast<std::int32_t>(top + y), copy.data() + y * row_bytes);
        // The type has no const, but samples in this machine's order are not touched.
        std::uint8_t* const strip =
            is_copied ? copy.data() : const_cast<std::uint8_t*>(image.row(static_cast<std::int32_t>(top)));
        if (TIFFWriteEncodedStrip(tiff.get(), index, strip, static_cast<tmsize_t>(rows * row_bytes)) < 0)
            output.fail_writing();
    }
    if (!tiff.close())
        output.fail_writing();
}

} // namespace panoval::cli

#endif
