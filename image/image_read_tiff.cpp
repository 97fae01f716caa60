// SPDX-License-Identifier: MIT
// TIFF files through libtiff: every full picture of the file is a layer; strips or tiles, interleaved or one plane per
// channel, alpha of either kind, all orientations. XPosition and YPosition, in the unit of the resolution tags, give a
// layer's place in pixels, as remapping programs write it. Reduced pictures, those of a pyramid, are no layers.

#include "image/failure.h"
#include "image/files.h"
#include "image/image_read.h"
#include "image/text.h"
#include "image/tiff_file.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <utility>

namespace panoval::image
{

namespace
{

constexpr std::size_t kMostLayers = 10000;

struct TiffLayer {
    ImageInfo stored; // before the orientation is applied
    int orientation = 1;
    bool is_separate = false;
    bool is_tiled = false;
    bool is_premultiplied = false;
    bool is_inverted = false; // 0 is white

    int planes() const { return stored.channels + (stored.has_alpha ? 1 : 0); }

    ImageInfo seen() const
    {
        ImageInfo info = stored;
        if (orientation >= 5)
            std::swap(info.width, info.height);
        return info;
    }
};

[[noreturn]] void fail_damaged(const std::string& name, const TiffFile& tiff)
{
    check_heap(name);
    fail_input(name, concat("a truncated or damaged TIFF file (", printable(tiff.message()), ")"), "a complete one");
}

// Thumbnails and masks of other pictures are no layers.
bool is_full_picture(const TiffFile& tiff)
{
    return (tiff.field<std::uint32_t>(TIFFTAG_SUBFILETYPE, 0) & (FILETYPE_REDUCEDIMAGE | FILETYPE_MASK)) == 0;
}

std::optional<Offset> position_of(const TiffFile& tiff)
{
    float x = 0, y = 0, pixels_per_x = 0, pixels_per_y = 0;
    // libtiff has both numbers of a pair as soon as the file has one; the other one is 0.
    if (TIFFGetField(tiff.get(), TIFFTAG_XPOSITION, &x) != 1)
        return std::nullopt;
    TIFFGetField(tiff.get(), TIFFTAG_YPOSITION, &y);
    TIFFGetField(tiff.get(), TIFFTAG_XRESOLUTION, &pixels_per_x);
    TIFFGetField(tiff.get(), TIFFTAG_YRESOLUTION, &pixels_per_y);
    const double x_pixels = static_cast<double>(x) * static_cast<double>(pixels_per_x);
    const double y_pixels = static_cast<double>(y) * static_cast<double>(pixels_per_y);
    const bool is_known = (x == 0 || pixels_per_x > 0) && (y == 0 || pixels_per_y > 0);
    if (!is_known || !(std::fabs(x_pixels) < 1e9) || !(std::fabs(y_pixels) < 1e9))
        return std::nullopt;
    return Offset{std::llround(x_pixels), std::llround(y_pixels)};
}

// What the samples of a kind that is not read are.
std::string kind_of_colour(std::uint16_t photometric)
{
    switch (photometric) {
    case PHOTOMETRIC_PALETTE:
        return "a palette";
    case PHOTOMETRIC_SEPARATED:
        return "CMYK or other inks";
    case PHOTOMETRIC_YCBCR:
        return "YCbCr samples";
    case PHOTOMETRIC_CIELAB:
    case PHOTOMETRIC_ICCLAB:
    case PHOTOMETRIC_ITULAB:
        return "L*a*b* samples";
    default:
        return concat("the photometric interpretation ", photometric);
    }
}

void read_photometric(const std::string& name, const TiffFile& tiff, TiffLayer& layer)
{
    const auto compression = tiff.field<std::uint16_t>(TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    std::uint16_t photometric = PHOTOMETRIC_MINISBLACK;
    TIFFGetField(tiff.get(), TIFFTAG_PHOTOMETRIC, &photometric);
    switch (photometric) {
    case PHOTOMETRIC_MINISWHITE:
    case PHOTOMETRIC_MINISBLACK:
        layer.stored.channels = 1;
        layer.is_inverted = photometric == PHOTOMETRIC_MINISWHITE;
        return;
    case PHOTOMETRIC_RGB:
        layer.stored.channels = 3;
        return;
    case PHOTOMETRIC_YCBCR:
        if (compression == COMPRESSION_JPEG) {
            TIFFSetField(tiff.get(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
            layer.stored.channels = 3;
            return;
        }
        [[fallthrough]];
    default:
        fail_input(name, "a TIFF file with " + kind_of_colour(photometric), "grey or RGB samples");
    }
}

void read_alpha(const std::string& name, const TiffFile& tiff, TiffLayer& layer)
{
    const int samples = tiff.field<std::uint16_t>(TIFFTAG_SAMPLESPERPIXEL, 1);
    const int extra = samples - layer.stored.channels;
    if (extra != 0 && extra != 1)
        fail_input(name, concat(samples, " samples a pixel"),
                   concat(layer.stored.channels, ", or one more that is the alpha"));
    layer.stored.has_alpha = extra == 1;
    std::uint16_t count = 0;
    const std::uint16_t* kinds = nullptr;
    if (extra == 1 && TIFFGetField(tiff.get(), TIFFTAG_EXTRASAMPLES, &count, &kinds) == 1 &&
        count >= 1) // COUNT_EXCL_BRANCH: libtiff adds kinds that a file leaves out
        layer.is_premultiplied = kinds[0] == EXTRASAMPLE_ASSOCALPHA;
}

// Libraries are built with or without some of them.
void check_compression(const std::string& name, const TiffFile& tiff)
{
    const auto scheme = tiff.field<std::uint16_t>(TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    if (TIFFIsCODECConfigured(scheme) == 1)
        return;
    const TIFFCodec* const codec = TIFFFindCODEC(scheme);
    const std::string kind = codec != nullptr ? concat(codec->name) : concat("number ", scheme);
    fail_input(name, concat("a TIFF file with the compression ", kind, ", which this build cannot read"),
               "another compression, or none");
}

// The current directory's description, checked.
TiffLayer describe_layer(const std::string& name, const TiffFile& tiff)
{
    TiffLayer layer;
    check_compression(name, tiff);
    const auto bits = tiff.field<std::uint16_t>(TIFFTAG_BITSPERSAMPLE, 1);
    const auto kind = tiff.field<std::uint16_t>(TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    if ((bits != 8 && bits != 16) || (kind != SAMPLEFORMAT_UINT && kind != SAMPLEFORMAT_VOID))
        fail_input(name,
                   concat("TIFF samples of ", bits, " bit",
                          kind == SAMPLEFORMAT_IEEEFP ? ", floating"
                          : kind == SAMPLEFORMAT_INT  ? ", signed"
                                                      : ""),
                   "whole numbers of 8 or 16 bit, unsigned");
    layer.stored.bits = bits;
    read_photometric(name, tiff, layer);
    read_alpha(name, tiff, layer);
    const auto width = tiff.field<std::uint32_t>(TIFFTAG_IMAGEWIDTH, 0);
    const auto height = tiff.field<std::uint32_t>(TIFFTAG_IMAGELENGTH, 0);
    check_sides(name, width, height);
    layer.stored.width = static_cast<std::int32_t>(width);
    layer.stored.height = static_cast<std::int32_t>(height);
    layer.stored.position = position_of(tiff);
    layer.orientation = tiff.field<std::uint16_t>(TIFFTAG_ORIENTATION, 1);
    layer.is_separate = tiff.field<std::uint16_t>(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == PLANARCONFIG_SEPARATE &&
                        layer.planes() > 1;
    layer.is_tiled = TIFFIsTiled(tiff.get()) != 0;
    return layer;
}

// Goes to the next full picture; false at the file's end.
bool skip_to_picture(const TiffFile& tiff)
{
    for (std::size_t skipped = 0; !is_full_picture(tiff); ++skipped)
        if (skipped > kMostLayers || TIFFReadDirectory(tiff.get()) != 1)
            return false;
    return true;
}

std::string text_of(const TiffFile& tiff, ttag_t tag)
{
    const char* text = nullptr;
    const bool has_text = TIFFGetField(tiff.get(), tag, &text) == 1;
    return has_text && text != nullptr ? text : ""; // COUNT_EXCL_BRANCH: libtiff keeps no empty pointers
}

// libtiff gives fractions as floating numbers. Times below a second are those of 1 / N of a second.
std::optional<Rational> rational_of(const TiffFile& tiff, ttag_t tag)
{
    float value = 0;
    if (TIFFGetField(tiff.get(), tag, &value) != 1 || !(value > 1e-9f) || !(value < 1e6f))
        return std::nullopt;
    const double exact = static_cast<double>(value);
    const double inverse = std::floor(1 / exact + 0.5);
    if (exact < 1 && std::fabs(inverse * exact - 1) < 1e-4)
        return Rational{1, static_cast<std::uint32_t>(inverse)};
    return Rational{static_cast<std::uint32_t>(std::floor(exact * 1000 + 0.5)), 1000};
}

// Leaves the layer's directory as the current one.
void read_exif(const TiffFile& tiff, Exif& exif)
{
    const toff_t layer = TIFFCurrentDirOffset(tiff.get());
    toff_t place = 0;
    if (TIFFGetField(tiff.get(), TIFFTAG_EXIFIFD, &place) != 1)
        return;
    if (TIFFReadEXIFDirectory(tiff.get(), place) == 1) {
        exif.exposure_seconds = rational_of(tiff, EXIFTAG_EXPOSURETIME);
        exif.f_number = rational_of(tiff, EXIFTAG_FNUMBER);
        std::uint16_t count = 0;
        const std::uint16_t* values = nullptr;
        if (TIFFGetField(tiff.get(), EXIFTAG_ISOSPEEDRATINGS, &count, &values) == 1 &&
            count >= 1) // COUNT_EXCL_BRANCH: libtiff keeps no field without values
            exif.iso = values[0];
        if (const std::string date = text_of(tiff, EXIFTAG_DATETIMEORIGINAL); !date.empty())
            exif.date = date;
    }
    TIFFSetSubDirectory(tiff.get(), layer);
}

Metadata read_metadata(const TiffFile& tiff)
{
    Metadata metadata;
    std::uint32_t size = 0;
    const std::uint8_t* profile = nullptr;
    if (TIFFGetField(tiff.get(), TIFFTAG_ICCPROFILE, &size, &profile) == 1)
        metadata.profile.assign(profile, profile + size);
    float x = 0, y = 0;
    const auto unit = tiff.field<std::uint16_t>(TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFGetField(tiff.get(), TIFFTAG_XRESOLUTION, &x);
    TIFFGetField(tiff.get(), TIFFTAG_YRESOLUTION, &y);
    if (x > 0 && y > 0 && unit != RESUNIT_NONE) {
        const double per_inch = unit == RESUNIT_CENTIMETER ? 2.54 : 1;
        metadata.resolution = Resolution{static_cast<double>(x) * per_inch, static_cast<double>(y) * per_inch};
    }
    metadata.exif.make = text_of(tiff, TIFFTAG_MAKE);
    metadata.exif.model = text_of(tiff, TIFFTAG_MODEL);
    metadata.exif.date = text_of(tiff, TIFFTAG_DATETIME);
    read_exif(tiff, metadata.exif);
    return metadata;
}

// Of rows that stand in the file as they are, what is read at once before it is taken apart: few calls of the system,
// and still no more than caches hold.
constexpr std::size_t kBytesAtOnce = std::size_t{1} << 18;

// Rows that stand in the file as they are come straight from there, those of other interleaved strips one at a time.
// Otherwise a chunk is decoded and kept: a row of tiles, or the strips of all planes.
class TiffReader : public RowReader
{
public:
    TiffReader(InputFile file, std::size_t index) : file_(std::move(file)), tiff_(file_.stream.get(), file_.name, "rm")
    {
        if (tiff_.get() == nullptr || !skip_to_picture(tiff_))
            fail_damaged(file_.name, tiff_);
        for (std::size_t i = 0; i < index; ++i)
            if (TIFFReadDirectory(tiff_.get()) != 1 || !skip_to_picture(tiff_))
                fail_input(file_.name, concat("no layer ", index), "a file with that many layers");
        metadata_ = read_metadata(tiff_);
        layer_ = describe_layer(file_.name, tiff_);
        info_ = layer_.stored;
        plane_pixel_bytes_ = static_cast<std::size_t>(layer_.is_separate ? 1 : layer_.planes()) * info_.sample_bytes();
        plan_chunks();
    }

    int orientation() const { return layer_.orientation; }

    bool is_stored() const override { return is_stored_; }

    std::uint64_t held_bytes() const override
    {
        const std::int32_t few = is_stored_ ? std::max(rows_at_once(), 2) : 2;
        const auto rows = static_cast<std::uint64_t>(keeps_chunks() ? chunk_rows_ : few);
        return rows * line_bytes_ * static_cast<std::uint64_t>(planes());
    }

    void read_rows(std::int32_t first, std::int32_t count, const Rows& to) override
    {
        if (splitter_ == nullptr)
            splitter_ = std::make_unique<RowSplitter>(info_, layer_.is_premultiplied);
        for (std::int32_t i = is_stored_ ? read_stored(first, count, to) : 0; i < count; ++i) {
            const std::uint8_t* const row = stored_row(first + i);
            if (layer_.is_separate)
                splitter_->gather(row, line_bytes_ * static_cast<std::size_t>(chunk_rows_), to.row(i), to.mask_row(i));
            else
                splitter_->split(row, to.row(i), to.mask_row(i));
            if (layer_.is_inverted)
                invert(to.row(i));
        }
    }

private:
    int planes() const { return layer_.is_separate ? layer_.planes() : 1; }
    bool keeps_chunks() const { return layer_.is_tiled || layer_.is_separate; }

    bool is_uncompressed() const
    {
        return tiff_.field<std::uint16_t>(TIFFTAG_COMPRESSION, COMPRESSION_NONE) == COMPRESSION_NONE;
    }

    // Bits of a byte in the order that all writers use.
    bool has_usual_bits() const
    {
        return tiff_.field<std::uint16_t>(TIFFTAG_FILLORDER, FILLORDER_MSB2LSB) == FILLORDER_MSB2LSB;
    }

    // In interleaved strips, and bits and bytes in this machine's order.
    bool lies_as_it_is() const
    {
        return !keeps_chunks() && is_uncompressed() && has_usual_bits() &&
               (info_.bits == 8 || TIFFIsByteSwapped(tiff_.get()) == 0);
    }

    std::int32_t rows_at_once() const
    {
        return static_cast<std::int32_t>(std::max<std::size_t>(kBytesAtOnce / line_bytes_, 1));
    }

    void plan_chunks()
    {
        if (layer_.is_tiled) {
            plan_tiles();
        } else {
            const auto rows = tiff_.field<std::uint32_t>(TIFFTAG_ROWSPERSTRIP, 0xFFFFFFFFu);
            chunk_rows_ = rows == 0 || // COUNT_EXCL_BRANCH: libtiff opens no such file, and a division is by it
                                  rows > static_cast<std::uint32_t>(info_.height)
                              ? info_.height
                              : static_cast<std::int32_t>(rows);
            const tmsize_t size = TIFFScanlineSize(tiff_.get());
            line_bytes_ = static_cast<std::size_t>(size);
            const std::size_t least = static_cast<std::size_t>(info_.width) * plane_pixel_bytes_;
            if (size <= 0 || line_bytes_ < least) // COUNT_EXCL_BRANCH: as below
                fail_damaged(file_.name, tiff_);  // COUNT_EXCL: libtiff counts as we do; sizes of blocks hang on it
        }
        chunk_first_ = -chunk_rows_; // none
        is_stored_ = lies_as_it_is();
    }

    void plan_tiles()
    {
        tile_width_ = tiff_.field<std::uint32_t>(TIFFTAG_TILEWIDTH, 0);
        const std::int64_t tile_height = tiff_.field<std::uint32_t>(TIFFTAG_TILELENGTH, 0);
        const tmsize_t size = TIFFTileSize(tiff_.get());
        const auto pixel_bytes = static_cast<std::int64_t>(plane_pixel_bytes_);
        if (tile_width_ < 1 || tile_height < 1 || // COUNT_EXCL_BRANCH: libtiff opens no such file
            tile_width_ > 65536 || tile_height > 65536 ||
            size != tile_width_ * tile_height * pixel_bytes) // COUNT_EXCL_BRANCH: libtiff counts as we do
            fail_damaged(file_.name, tiff_);
        check_pixels(file_.name, "tiles", tile_width_, tile_height);
        tile_bytes_ = size;
        chunk_rows_ = static_cast<std::int32_t>(tile_height);
        line_bytes_ = static_cast<std::size_t>(info_.width) * plane_pixel_bytes_;
    }

    // How many of the rows could be read; the next one does not stand where the file says, or cannot be read.
    std::int32_t read_stored(std::int32_t first, std::int32_t count, const Rows& to)
    {
        const bool is_as_wanted = !info_.has_alpha && !layer_.is_inverted && to.stride == line_bytes_;
        if (!is_as_wanted && chunk_ == nullptr)
            chunk_ = allocate_block(static_cast<std::size_t>(rows_at_once()) * line_bytes_, file_.name);
        std::int32_t done = 0;
        while (done < count) {
            const auto most = is_as_wanted ? count - done : std::min(rows_at_once(), count - done);
            const std::int32_t read = read_from_strip(first + done, most, is_as_wanted ? to.row(done) : chunk_.get());
            if (read == 0)
                break;
            if (is_as_wanted)
                cover_wholly(to.from(done), read);
            else
                take_apart(chunk_.get(), to.from(done), read);
            done += read;
        }
        return done;
    }

    void cover_wholly(const Rows& rows, std::int32_t count) const
    {
        for (std::int32_t i = 0; i < count && rows.mask != nullptr; ++i)
            std::memset(rows.mask_row(i), 255, static_cast<std::size_t>(info_.width));
    }

    void take_apart(const std::uint8_t* lines, const Rows& to, std::int32_t count)
    {
        for (std::int32_t i = 0; i < count; ++i) {
            splitter_->split(lines + static_cast<std::size_t>(i) * line_bytes_, to.row(i), to.mask_row(i));
            if (layer_.is_inverted)
                invert(to.row(i));
        }
    }

    // Rows from y on, at most so many, as far as strips stand one behind the other in the file. None where the first
    // strip is shorter than its rows.
    std::int32_t read_from_strip(std::int32_t y, std::int32_t most, std::uint8_t* to)
    {
        const std::int32_t into = y % chunk_rows_;
        const std::uint64_t offset = place_of_strip(y - into);
        if (offset == 0)
            return 0;
        const std::int64_t wanted = std::min<std::int64_t>(std::int64_t{y} + most, info_.height);
        std::int64_t end = std::int64_t{y} - into + chunk_rows_; // of the strips that can be read at once
        const auto place_of = [&](std::int64_t row) {
            return offset + static_cast<std::uint64_t>(row - y + into) * line_bytes_;
        };
        while (end < wanted && place_of_strip(static_cast<std::int32_t>(end)) == place_of(end))
            end += chunk_rows_;
        const auto count = static_cast<std::int32_t>(std::min(end, wanted) - y);
        std::FILE* const stream = file_.stream.get();
        const auto place = static_cast<std::int64_t>(place_of(y));
        // Where the last read ended there is nothing to seek, and what the stream has read ahead is of use.
        if (tell_in_file(stream) != place && !seek_in_file(stream, place, SEEK_SET)) // COUNT_EXCL_BRANCH: as below
            return 0; // COUNT_EXCL: up to kFarthest, systems go to places that are not in the file
        const std::size_t bytes = static_cast<std::size_t>(count) * line_bytes_;
        return std::fread(to, 1, bytes, stream) == bytes ? count : 0;
    }

    // Where the strip that begins with a row stands in the file; 0 where it does not, or not with all of its rows.
    std::uint64_t place_of_strip(std::int32_t top) const
    {
        constexpr std::uint64_t kFarthest = std::uint64_t{1} << 62;
        const auto strip = static_cast<std::uint32_t>(top / chunk_rows_);
        const auto rows = static_cast<std::uint64_t>(std::min(chunk_rows_, info_.height - top));
        const std::uint64_t offset = TIFFGetStrileOffset(tiff_.get(), strip);
        return offset <= kFarthest && TIFFGetStrileByteCount(tiff_.get(), strip) >= rows * line_bytes_ ? offset : 0;
    }

    // The first plane's; the others' stand chunk_rows_ lines behind each other.
    const std::uint8_t* stored_row(std::int32_t y)
    {
        if (!keeps_chunks()) {
            if (chunk_ == nullptr)
                chunk_ = allocate_block(line_bytes_, file_.name);
            read_line_of_strip(y);
            return chunk_.get();
        }
        if (y < chunk_first_ || y >= chunk_first_ + chunk_rows_)
            load_chunk(y / chunk_rows_ * chunk_rows_);
        return chunk_.get() + static_cast<std::size_t>(y - chunk_first_) * line_bytes_;
    }

    // A strip is decoded from its top, as far as it has been already.
    void read_line_of_strip(std::int32_t y)
    {
        const std::int32_t top = y / chunk_rows_ * chunk_rows_;
        for (std::int32_t line = next_line_ > top && next_line_ <= y ? next_line_ : top; line <= y; ++line)
            read_line(chunk_.get(), line, 0);
        next_line_ = y + 1;
    }

    void read_line(std::uint8_t* line, std::int32_t y, int plane)
    {
        if (TIFFReadScanline(tiff_.get(), line, static_cast<std::uint32_t>(y), static_cast<std::uint16_t>(plane)) != 1)
            fail_damaged(file_.name, tiff_);
    }

    void load_chunk(std::int32_t first)
    {
        const std::size_t plane_bytes = line_bytes_ * static_cast<std::size_t>(chunk_rows_);
        if (chunk_ == nullptr)
            chunk_ = allocate_block(plane_bytes * static_cast<std::size_t>(planes()), file_.name);
        chunk_first_ = -chunk_rows_;
        const std::int32_t end = std::min<std::int32_t>(info_.height - first, chunk_rows_) + first;
        for (int plane = 0; plane < planes(); ++plane) {
            std::uint8_t* const lines = chunk_.get() + static_cast<std::size_t>(plane) * plane_bytes;
            if (layer_.is_tiled)
                load_tiles(lines, first, end, plane);
            else
                for (std::int32_t y = first; y < end; ++y)
                    read_line(lines + static_cast<std::size_t>(y - first) * line_bytes_, y, plane);
        }
        chunk_first_ = first;
    }

    void load_tiles(std::uint8_t* lines, std::int32_t first, std::int32_t end, int plane)
    {
        if (tile_ == nullptr)
            tile_ = allocate_block(static_cast<std::size_t>(tile_bytes_), file_.name);
        const auto tile_line = static_cast<std::size_t>(tile_width_) * plane_pixel_bytes_;
        for (std::int64_t left = 0; left < info_.width; left += tile_width_) {
            const std::uint32_t index =
                TIFFComputeTile(tiff_.get(), static_cast<std::uint32_t>(left), static_cast<std::uint32_t>(first), 0,
                                static_cast<std::uint16_t>(plane));
            if (TIFFReadEncodedTile(tiff_.get(), index, tile_.get(), tile_bytes_) != tile_bytes_)
                fail_damaged(file_.name, tiff_);
            const auto count = static_cast<std::size_t>(std::min(tile_width_, info_.width - left)) * plane_pixel_bytes_;
            for (std::int32_t y = first; y < end; ++y)
                std::memcpy(lines + static_cast<std::size_t>(y - first) * line_bytes_ +
                                static_cast<std::size_t>(left) * plane_pixel_bytes_,
                            tile_.get() + static_cast<std::size_t>(y - first) * tile_line, count);
        }
    }

    void invert(std::uint8_t* samples) const
    {
        const std::size_t bytes =
            static_cast<std::size_t>(info_.width) * static_cast<std::size_t>(info_.channels) * info_.sample_bytes();
        for (std::size_t i = 0; i < bytes; ++i) // of 16 bit, too: both bytes of a sample are complemented
            samples[i] = static_cast<std::uint8_t>(~samples[i]);
    }

    InputFile file_;
    TiffFile tiff_;
    TiffLayer layer_;
    std::unique_ptr<RowSplitter> splitter_;
    std::size_t plane_pixel_bytes_ = 0;
    std::size_t line_bytes_ = 0; // of one plane
    bool is_stored_ = false;
    std::int32_t chunk_rows_ = 0;
    std::int32_t chunk_first_ = 0;
    std::int32_t next_line_ = 0; // of the strip that is being decoded
    std::int64_t tile_width_ = 0;
    tmsize_t tile_bytes_ = 0;
    Block tile_;
    Block chunk_;
};

} // namespace

std::vector<ImageInfo> probe_tiff(InputFile& file)
{
    const TiffFile tiff(file.stream.get(), file.name, "rm");
    if (tiff.get() == nullptr)
        fail_damaged(file.name, tiff);
    std::vector<ImageInfo> layers;
    bool has_more = skip_to_picture(tiff);
    while (has_more) {
        layers.push_back(describe_layer(file.name, tiff).seen());
        if (layers.size() > kMostLayers)
            fail_input(file.name, concat("more than ", kMostLayers, " layers"), "fewer");
        has_more = TIFFReadDirectory(tiff.get()) == 1 && skip_to_picture(tiff);
    }
    if (layers.empty())
        fail_input(file.name, "a TIFF file without a full picture", "at least one");
    if (!tiff.message().empty()) // the chain of directories broke off
        fail_damaged(file.name, tiff);
    return layers;
}

StoredPicture open_tiff(InputFile file, std::size_t index)
{
    auto reader = std::make_unique<TiffReader>(std::move(file), index);
    const int orientation = reader->orientation();
    return {std::move(reader), orientation};
}

} // namespace panoval::image
