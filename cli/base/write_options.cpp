// SPDX-License-Identifier: MIT
#include "cli/base/write_options.h"

#include "cli/base/errors.h"

#include <algorithm>

namespace panoval::cli
{

namespace
{

[[noreturn]] void fail_option(const std::string& option, const image::OutputName& output, const std::string& expected)
{
    fail_usage(concat("found ", option, " with ", printable(output.text()), "; expected ", expected));
}

void check_compression(const std::string& name, const image::OutputName& output)
{
    const std::string option = "--compression " + name;
    if (output.format().compressions == nullptr)
        fail_option(option, output, concat("it with ", endings_with_compression(output.outputs()), " alone"));
    const std::vector<std::string> known = output.format().compressions();
    if (std::find(known.begin(), known.end(), name) != known.end())
        return;
    std::string names;
    for (const std::string& one : known)
        names += (names.empty() ? "" : one == known.back() ? " or " : ", ") + one;
    fail_option(option, output, names);
}

} // namespace

std::string quality_help()
{
    return concat("Of ", image::names_with_quality(), ", 1 to ", image::kBestQuality, "; ", image::kUsualQuality,
                  " without it");
}

image::WriteOptions write_options(const FormatOptions& options, const image::OutputName& output, bool has_alpha)
{
    const image::OutputFormat& format = output.format();
    if (!options.compression.empty())
        check_compression(options.compression, output);
    if (options.quality != 0 && !format.has_quality(has_alpha))
        fail_option(concat("--quality ", options.quality), output, concat("it with ", image::names_with_quality()));
    if (options.has_pyramid && format.levels == image::LevelUse::None)
        fail_option("--pyramid", output,
                    concat("it with ", image::endings_with_optional_levels(), "; .dzi has all levels anyway"));
    image::WriteOptions write;
    if (options.quality != 0)
        write.quality = options.quality;
    if (!options.compression.empty() && !format.is_store())
        write.compression = image::compression_of(options.compression);
    write.has_pyramid = options.has_pyramid;
    return write;
}

} // namespace panoval::cli
