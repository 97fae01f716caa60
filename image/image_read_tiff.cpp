// SPDX-License-Identifier: MIT
// TIFF files through libtiff: every full picture of the file is a layer; strips or tiles, interleaved or one plane per
// channel, alpha of either kind, all orientations. XPosition and YPosition, in the unit of the resolution tags, give a
// layer's place in pixels, as remapping programs write it.

#include "image/failure.h"
#include "image/image_builder.h"
#include "image/image_read.h"
#include "image/text.h"
#include "image/tiff_file.h"

#include <algorithm>
#include <cmath>
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
    const bool has_x = TIFFGetField(tiff.get(), TIFFTAG_XPOSITION, &x) == 1;
    const bool has_y = TIFFGetField(tiff.get(), TIFFTAG_YPOSITION, &y) == 1;
    if (!has_x && !has_y)
        return std::nullopt;
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
    if (extra == 1 && TIFFGetField(tiff.get(), TIFFTAG_EXTRASAMPLES, &count, &kinds) == 1 && count >= 1)
        layer.is_premultiplied = kinds[0] == EXTRASAMPLE_ASSOCALPHA;
}

// The current directory's description, checked.
TiffLayer describe_layer(const std::string& name, const TiffFile& tiff)
{
    TiffLayer layer;
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
    check_image_size(name, width, height, layer.stored.channels, bits);
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

void put_run(const TiffLayer& layer, ImageBuilder& builder, int plane, std::int32_t x, std::int32_t y,
             std::size_t count, const std::uint8_t* samples)
{
    if (layer.is_separate)
        builder.put_plane(plane, x, y, count, samples);
    else
        builder.put(x, y, count, samples);
}

void read_strips(const std::string& name, const TiffFile& tiff, const TiffLayer& layer, ImageBuilder& builder)
{
    const tmsize_t needed =
        static_cast<tmsize_t>(layer.stored.width) * (layer.is_separate ? 1 : layer.planes()) * (layer.stored.bits / 8);
    const tmsize_t size = TIFFScanlineSize(tiff.get());
    if (size < needed)
        fail_damaged(name, tiff);
    const Block row = allocate_block(static_cast<std::size_t>(size), name);
    for (int plane = 0; plane < (layer.is_separate ? layer.planes() : 1); ++plane)
        for (std::int32_t y = 0; y < layer.stored.height; ++y) {
            if (TIFFReadScanline(tiff.get(), row.get(), static_cast<std::uint32_t>(y),
                                 static_cast<std::uint16_t>(plane)) != 1)
                fail_damaged(name, tiff);
            put_run(layer, builder, plane, 0, y, static_cast<std::size_t>(layer.stored.width), row.get());
        }
}

void read_tiles(const std::string& name, const TiffFile& tiff, const TiffLayer& layer, ImageBuilder& builder)
{
    const auto tile_width = static_cast<std::int64_t>(tiff.field<std::uint32_t>(TIFFTAG_TILEWIDTH, 0));
    const auto tile_height = static_cast<std::int64_t>(tiff.field<std::uint32_t>(TIFFTAG_TILELENGTH, 0));
    const std::int64_t pixel_bytes = (layer.is_separate ? 1 : layer.planes()) * (layer.stored.bits / 8);
    const tmsize_t size = TIFFTileSize(tiff.get());
    if (tile_width < 1 || tile_height < 1 || tile_width > 65536 || tile_height > 65536 ||
        size != tile_width * tile_height * pixel_bytes)
        fail_damaged(name, tiff);
    const Block tile = allocate_block(static_cast<std::size_t>(size), name);
    for (int plane = 0; plane < (layer.is_separate ? layer.planes() : 1); ++plane)
        for (std::int64_t top = 0; top < layer.stored.height; top += tile_height)
            for (std::int64_t left = 0; left < layer.stored.width; left += tile_width) {
                const std::uint32_t index =
                    TIFFComputeTile(tiff.get(), static_cast<std::uint32_t>(left), static_cast<std::uint32_t>(top), 0,
                                    static_cast<std::uint16_t>(plane));
                if (TIFFReadEncodedTile(tiff.get(), index, tile.get(), size) != size)
                    fail_damaged(name, tiff);
                const std::int64_t rows = std::min(tile_height, layer.stored.height - top);
                const std::int64_t count = std::min(tile_width, layer.stored.width - left);
                for (std::int64_t y = 0; y < rows; ++y)
                    put_run(layer, builder, plane, static_cast<std::int32_t>(left), static_cast<std::int32_t>(top + y),
                            static_cast<std::size_t>(count), tile.get() + y * tile_width * pixel_bytes);
            }
}

void invert(Image& image)
{
    for (std::size_t i = 0; i < image.bytes(); ++i) // of 16 bit, too: both bytes of a sample are complemented
        image.data[i] = static_cast<std::uint8_t>(~image.data[i]);
}

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

Image read_tiff(InputFile& file, std::size_t layer_index)
{
    const TiffFile tiff(file.stream.get(), file.name, "rm");
    if (tiff.get() == nullptr || !skip_to_picture(tiff))
        fail_damaged(file.name, tiff);
    for (std::size_t i = 0; i < layer_index; ++i)
        if (TIFFReadDirectory(tiff.get()) != 1 || !skip_to_picture(tiff))
            fail_input(file.name, concat("no layer ", layer_index), "a file with that many layers");
    const TiffLayer layer = describe_layer(file.name, tiff);
    ImageBuilder builder(file.name, layer.stored);
    if (layer.is_tiled)
        read_tiles(file.name, tiff, layer, builder);
    else
        read_strips(file.name, tiff, layer, builder);
    Image image = builder.finish(layer.is_premultiplied);
    std::uint32_t profile_size = 0;
    const std::uint8_t* profile = nullptr;
    if (TIFFGetField(tiff.get(), TIFFTAG_ICCPROFILE, &profile_size, &profile) == 1)
        image.profile.assign(profile, profile + profile_size);
    if (layer.is_inverted)
        invert(image);
    return apply_orientation(std::move(image), layer.orientation, file.name);
}

} // namespace panoval::image
