// SPDX-License-Identifier: MIT
#include "cli/base/write_options.h"

#include "cli/base/errors.h"

namespace panoval::cli
{

namespace
{

[[noreturn]] void fail_option(const std::string& option, const std::string& output, const char* expected)
{
    fail_usage(concat("found ", option, " with ", printable(output), "; expected ", expected));
}

} // namespace

std::string compression_choices()
{
    std::string choices;
    for (const std::string& name : image::compression_names())
        choices += (choices.empty() ? "" : ", ") + name + (name == "none" ? " (default)" : "");
    return choices;
}

std::string quality_range()
{
    return concat("1 to ", image::kBestQuality, "; ", image::kUsualQuality, " without it");
}

image::WriteOptions write_options(const FormatOptions& options, const std::string& output, bool has_alpha)
{
    const image::FileKind kind = image::output_format_of(output).kind;
    const bool holds_jpeg = kind == image::FileKind::Jpeg || (kind == image::FileKind::DeepZoom && !has_alpha);
    if (!options.compression.empty() && kind != image::FileKind::Tiff)
        fail_option("--compression " + options.compression, output, "it with .tif or .tiff alone");
    if (options.quality != 0 && !holds_jpeg)
        fail_option(concat("--quality ", options.quality), output, "it with JPEG, or Deep Zoom without alpha");
    if (options.has_pyramid && kind != image::FileKind::Tiff && kind != image::FileKind::DeepZoom)
        fail_option("--pyramid", output, "it with .tif or .tiff; .dzi has all levels anyway");
    image::WriteOptions write;
    if (options.quality != 0)
        write.quality = options.quality;
    if (!options.compression.empty())
        write.compression = image::compression_of(options.compression);
    write.has_pyramid = options.has_pyramid;
    return write;
}

} // namespace panoval::cli
