// SPDX-License-Identifier: MIT
// Choosing the writer by a name's ending.
#include "image/image_write.h"

#include "image/failure.h"
#include "image/text.h"
#include "image/tiff_file.h"

namespace panoval::image
{

namespace
{

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

} // namespace

std::vector<std::string> compression_names()
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

std::unique_ptr<RowWriter> make_row_writer(OutputFile& output, const OutputFormat& format, const PictureInfo& picture,
                                           const WriteOptions& options)
{
    check_output_format(output.target(), format, picture.channels, picture.bits, picture.has_alpha);
    check_output_size(output.target(), format, picture.width, picture.height);
    switch (format.kind) { // COUNT_EXCL_BRANCH: each has its case
    case FileKind::Png:
        return make_png_writer(output, picture);
    case FileKind::Tiff:
        return make_tiff_writer(output, picture, options);
    case FileKind::Jpeg:
        return make_jpeg_writer(output, picture, options);
    case FileKind::DeepZoom:
        return make_deep_zoom_writer(output, picture, options);
    case FileKind::Pnm:
    case FileKind::Pam:
        break;
    }
    return make_pnm_writer(output, picture, format.kind == FileKind::Pam);
}

void write_image(OutputFile& output, const Image& image, const WriteOptions& options)
{
    PictureInfo picture = image;
    picture.has_alpha = image.mask != nullptr;
    const auto writer = make_row_writer(output, output_format_of(output.target()), picture, options);
    writer->add(rows_of(image), image.height);
    writer->finish();
}

void write_image(const std::string& target, const Image& image, const WriteOptions& options)
{
    const OutputFormat& format = output_format_of(target);
    check_output_format(target, format, image.channels, image.bits, image.mask != nullptr);
    check_output_size(target, format, image.width, image.height);
    OutputFile output(target);
    write_image(output, image, options);
    output.commit();
}

} // namespace panoval::image
