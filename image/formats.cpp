// SPDX-License-Identifier: MIT
#include "image/formats.h"

#include "image/failure.h"
#include "image/standard_streams.h"
#include "image/text.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <vector>

namespace panoval::image
{

namespace
{

constexpr std::int64_t kAnySide = 2147483647;
constexpr std::int64_t kJpegSide = 65500;

constexpr OutputFormat kFormats[] = {
    // ending, kind, name, bits, alpha, channels from and to, side
    {".png", FileKind::Png, "a PNG file", 16, true, 1, 3, kAnySide},
    {".tif", FileKind::Tiff, "a TIFF file", 16, true, 1, 3, kAnySide},
    {".tiff", FileKind::Tiff, "a TIFF file", 16, true, 1, 3, kAnySide},
    {".jpg", FileKind::Jpeg, "a JPEG file", 8, false, 1, 3, kJpegSide},
    {".jpeg", FileKind::Jpeg, "a JPEG file", 8, false, 1, 3, kJpegSide},
    {".pgm", FileKind::Pnm, "a grey format", 16, false, 1, 1, kAnySide},
    {".ppm", FileKind::Pnm, "a colour format", 16, false, 3, 3, kAnySide},
    {".pnm", FileKind::Pnm, "a PNM file", 16, false, 1, 3, kAnySide},
    {".pam", FileKind::Pam, "a PAM file", 16, true, 1, 3, kAnySide},
    {".dzi", FileKind::DeepZoom, "Deep Zoom", 8, true, 1, 3, kAnySide},
};

std::string ending_of(const std::string& target)
{
    const std::size_t dot = target.find_last_of("./\\");
    if (dot == std::string::npos || target[dot] != '.')
        return "";
    std::string ending = target.substr(dot);
    for (char& c : ending)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ending;
}

// "a, b or c"
std::string enumerate(const std::vector<std::string>& words)
{
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i)
        text += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
    return text;
}

template <class Fits>
std::string endings_where(const Fits& fits, std::string_view other = {})
{
    std::vector<std::string> words;
    for (const OutputFormat& format : kFormats)
        if (fits(format))
            words.emplace_back(format.ending);
    if (!other.empty())
        words.emplace_back(other);
    return enumerate(words);
}

} // namespace

const OutputFormat& output_format_of(const std::string& target, std::string_view other_ending)
{
    const std::string ending = is_standard_stream(target) ? ".png" : ending_of(target);
    const auto* const format = std::find_if(std::begin(kFormats), std::end(kFormats),
                                            [&](const OutputFormat& known) { return ending == known.ending; });
    if (format == std::end(kFormats))
        fail_output(target, ending.size() < 2 ? "no ending" : "the ending " + ending,
                    endings_where([](const OutputFormat&) { return true; }, other_ending));
    return *format;
}

void check_output_format(const std::string& target, const OutputFormat& format, int channels, int bits, bool has_alpha)
{
    if (bits > format.most_bits)
        fail_output(target, concat(bits, " bits for ", format.name),
                    concat(format.most_bits, " (--depth ", format.most_bits, "), or another ending"));
    if (has_alpha && !format.holds_alpha)
        fail_output(target, "an alpha channel for a format without one", endings_for(channels, bits, has_alpha));
    if (channels < format.least_channels || channels > format.most_channels)
        fail_output(target, concat(channels, channels == 1 ? " channel for " : " channels for ", format.name),
                    endings_for(channels, bits, has_alpha));
}

void check_output_format(const std::string& target, int channels, int bits, bool has_alpha)
{
    check_output_format(target, output_format_of(target), channels, bits, has_alpha);
}

void check_output_size(const std::string& target, const OutputFormat& format, std::int64_t width, std::int64_t height)
{
    if (width > format.most_side || height > format.most_side)
        fail_output(target, concat(width, " x ", height, " pixels for ", format.name),
                    concat("at most ", format.most_side, " in a direction, or another ending"));
}

std::string endings_for(int channels, int bits, bool has_alpha)
{
    return endings_where([&](const OutputFormat& format) { return format.holds(channels, bits, has_alpha); });
}

std::string all_endings()
{
    std::string text;
    for (const OutputFormat& format : kFormats)
        text += (text.empty() ? "" : " ") + std::string(format.ending);
    return text;
}

} // namespace panoval::image
