// SPDX-License-Identifier: MIT
// Finding out which reader a file needs, and what all of them share.
#include "image/image_read.h"

#include "image/failure.h"
#include "image/image_builder.h"
#include "image/text.h"

#include <array>
#include <cstdio>
#include <limits>
#include <string_view>

namespace panoval::image
{

namespace
{

enum class Format { Unknown, Pnm, Png, Jpeg, Tiff };

const char* const kKnownFormats = "PNG, TIFF, JPEG or PNM";

std::string first_bytes(std::FILE* file)
{
    std::array<char, 8> bytes{};
    const std::size_t count = std::fread(bytes.data(), 1, bytes.size(), file);
    seek_in_file(file, 0, SEEK_SET);
    return std::string(bytes.data(), count);
}

Format format_of(std::string_view start)
{
    const auto starts = [&](std::string_view magic) { return start.substr(0, magic.size()) == magic; };
    if (starts(std::string_view("\x89PNG\r\n\x1A\n", 8)))
        return Format::Png;
    if (starts("\xFF\xD8\xFF"))
        return Format::Jpeg;
    for (const std::string_view magic : {std::string_view("II*\0", 4), std::string_view("MM\0*", 4),
                                         std::string_view("II+\0", 4), std::string_view("MM\0+", 4)})
        if (starts(magic))
            return Format::Tiff;
    if (start.size() >= 2 && start[0] == 'P' && start[1] >= '1' && start[1] <= '7')
        return Format::Pnm;
    return Format::Unknown;
}

InputFile open_image(const std::string& name)
{
    InputFile file{name, open_input(name, concat("a picture: ", kKnownFormats)), 0};
    seek_in_file(file.stream.get(), 0, SEEK_END);
    file.size = tell_in_file(file.stream.get());
    seek_in_file(file.stream.get(), 0, SEEK_SET);
    if (file.size == 0)
        fail_input(name, "an empty file", kKnownFormats);
    return file;
}

[[noreturn]] void fail_format(const InputFile& file)
{
    fail_input(file.name, "contents of another kind", kKnownFormats);
}

} // namespace

bool starts_as_picture(const std::string& name)
{
    const FileHandle file = open_utf8(name, "rb");
    return file != nullptr && format_of(first_bytes(file.get())) != Format::Unknown;
}

std::vector<ImageInfo> probe_image(const std::string& name)
{
    InputFile file = open_image(name);
    switch (format_of(first_bytes(file.stream.get()))) {
    case Format::Pnm:
        return probe_pnm(file);
    case Format::Png:
        return probe_png(file);
    case Format::Jpeg:
        return probe_jpeg(file);
    case Format::Tiff:
        return probe_tiff(file);
    default:
        fail_format(file);
    }
}

Image read_image(const std::string& name, std::size_t layer)
{
    InputFile file = open_image(name);
    switch (format_of(first_bytes(file.stream.get()))) {
    case Format::Pnm:
        return read_pnm(file);
    case Format::Png:
        return read_png(file);
    case Format::Jpeg:
        return read_jpeg(file);
    case Format::Tiff:
        return read_tiff(file, layer);
    default:
        fail_format(file);
    }
}

Image read_mask(const std::string& name)
{
    const ImageInfo info = probe_image(name).front();
    if (info.channels != 1 || info.has_alpha)
        fail_input(name, describe(info), "a mask of one grey channel");
    Image mask = read_image(name);
    if (mask.bits == 16) {
        mask.data = coverage_of_16_bit(std::move(mask.data), mask.pixels());
        mask.bits = 8;
    }
    return mask;
}

void check_image_size(const std::string& name, std::int64_t width, std::int64_t height, int channels, int bits)
{
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    if (width < 1 || height < 1)
        fail_input(name, concat("a picture of ", width, " x ", height, " pixels"), "at least one pixel");
    // The distance transform works on a frame around the mask, whose size must fit 32 bits as well.
    const std::int64_t pixel_bytes = channels * static_cast<std::int64_t>(bits / 8);
    const bool fits = width <= kMost - 2 && height <= kMost - 2 && (width + 2) <= kMost / (height + 2) &&
                      width * height <= kMost / pixel_bytes;
    if (!fits)
        fail_input(name, concat("a picture of ", width, " x ", height, " pixels with ", channels, " x ", bits, " bit"),
                   "at most 2^31 - 1 bytes of samples");
}

} // namespace panoval::image
