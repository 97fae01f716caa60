// SPDX-License-Identifier: MIT
// TIFF files in strips, uncompressed, with unassociated alpha and the picture's position, if it has one that the tags
// can hold; big ones as BigTIFF.

#include "image/failure.h"
#include "image/image_write.h"
#include "image/tiff_file.h"

#include <algorithm>
#include <vector>

namespace panoval::image
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

class TiffRowWriter : public RowWriter
{
public:
    TiffRowWriter(OutputFile& output, const Image& header)
        : output_(output), row_bytes_(copied_row_bytes(header)),
          rows_per_strip_(
              std::clamp<std::size_t>(kStripBytes / row_bytes_, 1, static_cast<std::size_t>(header.height))),
          tiff_(output.stream(), output.target(), is_big(header) ? "w8" : "w")
    {
        if (tiff_.get() == nullptr)
            output_.fail_writing();
        set_tags(tiff_.get(), header, static_cast<std::uint32_t>(rows_per_strip_));
        if (!header.profile.empty())
            TIFFSetField(tiff_.get(), TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(header.profile.size()),
                         header.profile.data());
        if (header.position)
            set_position(tiff_.get(), *header.position);
        strip_.resize(rows_per_strip_ * row_bytes_);
    }

    void add(const Image& image, std::int32_t first, std::int32_t end) override
    {
        for (std::int32_t y = first; y < end; ++y) {
            const bool is_whole_strip = held_rows_ == 0 && end - y >= static_cast<std::int32_t>(rows_per_strip_);
            if (is_whole_strip && image.mask == nullptr) { // is in the file as it is in memory
                write_strip(image.row(y), rows_per_strip_);
                y += static_cast<std::int32_t>(rows_per_strip_) - 1;
                continue;
            }
            copy_row(image, y, strip_.data() + held_rows_ * row_bytes_);
            if (++held_rows_ == rows_per_strip_)
                write_held_rows();
        }
    }

    void finish() override
    {
        if (held_rows_ != 0)
            write_held_rows();
        if (!tiff_.close())
            output_.fail_writing();
    }

private:
    bool is_big(const Image& header) const { return row_bytes_ * static_cast<std::uint64_t>(header.height) > kBigFile; }

    void write_held_rows()
    {
        write_strip(strip_.data(), held_rows_);
        held_rows_ = 0;
    }

    // The format's library wants no const, but samples in this machine's order are not touched.
    void write_strip(const std::uint8_t* strip, std::size_t rows)
    {
        if (TIFFWriteEncodedStrip(tiff_.get(), index_++, const_cast<std::uint8_t*>(strip),
                                  static_cast<tmsize_t>(rows * row_bytes_)) < 0)
            output_.fail_writing();
    }

    OutputFile& output_;
    std::size_t row_bytes_;
    std::size_t rows_per_strip_;
    TiffFile tiff_;
    std::uint32_t index_ = 0; // of the next strip
    std::vector<std::uint8_t> strip_;
    std::size_t held_rows_ = 0; // of that strip
};

} // namespace

std::unique_ptr<RowWriter> make_tiff_writer(OutputFile& output, const Image& header)
{
    return std::make_unique<TiffRowWriter>(output, header);
}

void write_tiff(OutputFile& output, const Image& image)
{
    TiffRowWriter writer(output, image);
    writer.add(image, 0, image.height);
    writer.finish();
}

} // namespace panoval::image
