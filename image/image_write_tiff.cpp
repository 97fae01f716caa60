// SPDX-License-Identifier: MIT
// TIFF files with unassociated alpha and the picture's position, if it has one that the tags can hold; big ones as
// BigTIFF. A pyramid's reduced pictures follow the full one as directories of their own, each half as large as the one
// before; until the full one is written they wait in files without a name beside the output.
#include "image/failure.h"
#include "image/row_halver.h"
#include "image/row_writer.h"
#include "image/tiff_layout.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace panoval::image
{

namespace
{

constexpr std::uint64_t kBigFile = 4'000'000'000u;

// Fractions of an inch, as remapping programs write them. They cannot be negative.
void set_position(TIFF* tiff, const PictureInfo& picture)
{
    constexpr double kPixelsPerInch = 150.;
    const bool has_position = picture.position && picture.position->x >= 0 && picture.position->y >= 0;
    if (!has_position && !picture.metadata.resolution)
        return;
    const Resolution resolution = picture.metadata.resolution.value_or(Resolution{kPixelsPerInch, kPixelsPerInch});
    TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, resolution.x);
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, resolution.y);
    if (!has_position)
        return;
    TIFFSetField(tiff, TIFFTAG_XPOSITION, static_cast<double>(picture.position->x) / resolution.x);
    TIFFSetField(tiff, TIFFTAG_YPOSITION, static_cast<double>(picture.position->y) / resolution.y);
}

double value_of(const Rational& value)
{
    return static_cast<double>(value.numerator) / static_cast<double>(value.denominator);
}

// Goes before the picture's own directory. Its place in the file, or 0 where there is nothing to write.
std::uint64_t write_shot(TIFF* tiff, const Exif& exif)
{
    if (!exif.exposure_seconds && !exif.f_number && !exif.iso && exif.date.empty())
        return 0;
    std::uint64_t place = 0;
    if (TIFFCreateEXIFDirectory(tiff) != 0) // COUNT_EXCL_BRANCH: as below
        return 0;                           // COUNT_EXCL: libtiff's heap
    if (exif.exposure_seconds)
        TIFFSetField(tiff, EXIFTAG_EXPOSURETIME, value_of(*exif.exposure_seconds));
    if (exif.f_number)
        TIFFSetField(tiff, EXIFTAG_FNUMBER, value_of(*exif.f_number));
    if (exif.iso) {
        const auto iso = static_cast<std::uint16_t>(std::min<std::uint32_t>(*exif.iso, 65535));
        TIFFSetField(tiff, EXIFTAG_ISOSPEEDRATINGS, 1, &iso);
    }
    if (!exif.date.empty())
        TIFFSetField(tiff, EXIFTAG_DATETIMEORIGINAL, exif.date.c_str());
    const bool is_written = TIFFWriteCustomDirectory(tiff, &place) == 1;
    TIFFFreeDirectory(tiff);
    TIFFCreateDirectory(tiff);
    return is_written ? place : 0; // COUNT_EXCL_BRANCH: the stream's buffer takes what comes so early
}

void set_metadata(TIFF* tiff, const PictureInfo& picture, std::uint64_t shot)
{
    const Metadata& metadata = picture.metadata;
    if (!metadata.profile.empty())
        TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<std::uint32_t>(metadata.profile.size()),
                     metadata.profile.data());
    if (!metadata.exif.make.empty())
        TIFFSetField(tiff, TIFFTAG_MAKE, metadata.exif.make.c_str());
    if (!metadata.exif.model.empty())
        TIFFSetField(tiff, TIFFTAG_MODEL, metadata.exif.model.c_str());
    if (metadata.exif.date.size() == 19) // the tag has this length
        TIFFSetField(tiff, TIFFTAG_DATETIME, metadata.exif.date.c_str());
    if (shot != 0)
        TIFFSetField(tiff, TIFFTAG_EXIFIFD, shot);
    set_position(tiff, picture);
}

// Rows of a reduced picture on their way, in a file that vanishes with the object.
class RowSpool
{
public:
    RowSpool(OutputFile& output, const ImageInfo& info)
        : output_(output), info_(info), stream_(output.make_scratch()),
          row_(static_cast<std::size_t>(info.width) * static_cast<std::size_t>(info.channels) * info.sample_bytes()),
          mask_(info.has_alpha ? static_cast<std::size_t>(info.width) : 0)
    {
    }

    const ImageInfo& info() const { return info_; }

    void add(const ConstRows& row)
    {
        if (std::fwrite(row.samples, 1, row_.size(), stream_.get()) != row_.size() ||
            (info_.has_alpha && std::fwrite(row.mask, 1, mask_.size(), stream_.get()) != mask_.size()))
            output_.fail_writing();
    }

    // From here on rows are read.
    void rewind()
    {
        if (std::fflush(stream_.get()) != 0 ||
            !seek_in_file(stream_.get(), 0, SEEK_SET)) // COUNT_EXCL_BRANCH: what could be written can be sought
            output_.fail_writing();
    }

    ConstRows next()
    {
        if (std::fread(row_.data(), 1, row_.size(), stream_.get()) != row_.size() ||  // COUNT_EXCL_BRANCH: as below
            std::fread(mask_.data(), 1, mask_.size(), stream_.get()) != mask_.size()) // COUNT_EXCL_BRANCH: as below
            output_.fail_writing(); // COUNT_EXCL: a device that fails; nobody else can open a file without a name
        return {row_.data(), row_.size(), info_.has_alpha ? mask_.data() : nullptr, mask_.size()};
    }

private:
    OutputFile& output_;
    ImageInfo info_;
    FileHandle stream_;
    std::vector<std::uint8_t> row_;
    std::vector<std::uint8_t> mask_;
};

bool is_small(const ImageInfo& info)
{
    return info.width <= kTiffTile && info.height <= kTiffTile;
}

class TiffWriter : public RowWriter
{
public:
    TiffWriter(OutputFile& output, const PictureInfo& picture, const WriteOptions& options)
        : output_(output), layout_{options.is_tiled || options.has_pyramid, options.compression, false},
          has_pyramid_(options.has_pyramid), tiff_(output.stream(), output.target(), is_big(picture) ? "w8" : "w")
    {
        if (tiff_.get() == nullptr) // COUNT_EXCL_BRANCH: as below
            output_.fail_writing(); // COUNT_EXCL: libtiff's heap; the stream's buffer takes the file's header
        const std::uint64_t shot = write_shot(tiff_.get(), picture.metadata.exif);
        full_.emplace(output, tiff_, picture, layout_);
        set_metadata(tiff_.get(), picture, shot);
        if (has_pyramid_ && !is_small(picture))
            begin_half(picture);
    }

    void add(const ConstRows& rows, std::int32_t count) override
    {
        full_->add(rows, count);
        for (std::int32_t y = 0; halver_ && y < count; ++y)
            halver_->add(rows.from(y));
    }

    void finish() override
    {
        full_->finish();
        while (halver_)
            write_reduced();
        if (!tiff_.close())
            output_.fail_writing();
    }

private:
    bool is_big(const ImageInfo& info) const
    {
        const std::uint64_t bytes = most_tiff_bytes(info, layout_);
        return bytes + (has_pyramid_ ? bytes / 2 : 0) > kBigFile;
    }

    // What has half the size of the picture that is being written.
    void begin_half(const ImageInfo& info)
    {
        half_ = std::make_unique<RowSpool>(output_, half_of(info));
        halver_.emplace(info, [this](const ConstRows& row) { half_->add(row); });
    }

    void write_reduced()
    {
        halver_->finish();
        if (TIFFWriteDirectory(tiff_.get()) != 1)
            output_.fail_writing();
        const std::unique_ptr<RowSpool> rows = std::move(half_);
        halver_.reset();
        rows->rewind();
        const ImageInfo info = rows->info();
        if (!is_small(info))
            begin_half(info);
        TiffLayout layout = layout_;
        layout.is_reduced = true;
        TiffPictureWriter picture(output_, tiff_, info, layout);
        for (std::int32_t y = 0; y < info.height; ++y) {
            const ConstRows row = rows->next();
            picture.add(row, 1);
            if (halver_)
                halver_->add(row);
        }
        picture.finish();
    }

    OutputFile& output_;
    TiffLayout layout_;
    bool has_pyramid_;
    TiffFile tiff_;
    std::optional<TiffPictureWriter> full_;
    std::optional<RowHalver> halver_; // of the picture that is being written, if it has a smaller one
    std::unique_ptr<RowSpool> half_;
};

} // namespace

std::unique_ptr<RowWriter> make_tiff_writer(OutputFile& output, const PictureInfo& picture, const WriteOptions& options)
{
    return std::make_unique<TiffWriter>(output, picture, options);
}

} // namespace panoval::image
