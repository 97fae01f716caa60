// SPDX-License-Identifier: MIT
#include "image/formats.h"

#include "image/failure.h"
#include "image/row_writer.h"
#include "image/standard_streams.h"
#include "image/text.h"
#include "image/zarr_store.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <utility>

namespace panoval::image
{

namespace
{

constexpr std::int64_t kAnySide = 2147483647;
constexpr std::int64_t kJpegSide = 65500;

using enum QualityUse;

constexpr LevelUse kNoLevels = LevelUse::None;
constexpr LevelUse kOnDemand = LevelUse::OnDemand;
constexpr LevelUse kAllLevels = LevelUse::Always;

constexpr PlaceUse kNoPlace = PlaceUse::None;
constexpr PlaceUse kNotNegative = PlaceUse::NotNegative;
constexpr PlaceUse kAnyPlace = PlaceUse::Any;

constexpr OutputFormat kFormats[] = {
    // ending, name, bits, alpha, channels from and to, side, compressions, quality, levels, places, writer
    {".png", "a PNG file", 16, true, 1, 3, kAnySide, nullptr, None, kNoLevels, kAnyPlace, make_png_writer},
    {".tif", "a TIFF file", 16, true, 1, 3, kAnySide, tiff_compressions, None, kOnDemand, kNotNegative,
     make_tiff_writer},
    {".tiff", "a TIFF file", 16, true, 1, 3, kAnySide, tiff_compressions, None, kOnDemand, kNotNegative,
     make_tiff_writer},
    {".jpg", "a JPEG file", 8, false, 1, 3, kJpegSide, nullptr, Always, kNoLevels, kNoPlace, make_jpeg_writer},
    {".jpeg", "a JPEG file", 8, false, 1, 3, kJpegSide, nullptr, Always, kNoLevels, kNoPlace, make_jpeg_writer},
    {".pgm", "a grey format", 16, false, 1, 1, kAnySide, nullptr, None, kNoLevels, kNoPlace, make_pnm_writer},
    {".ppm", "a colour format", 16, false, 3, 3, kAnySide, nullptr, None, kNoLevels, kNoPlace, make_pnm_writer},
    {".pnm", "a PNM file", 16, false, 1, 3, kAnySide, nullptr, None, kNoLevels, kNoPlace, make_pnm_writer},
    {".pam", "a PAM file", 16, true, 1, 3, kAnySide, nullptr, None, kNoLevels, kNoPlace, make_pam_writer},
    {".dzi", "Deep Zoom", 8, true, 1, 3, kAnySide, nullptr, WithoutAlpha, kAllLevels, kNoPlace, make_deep_zoom_writer},
    {kStoreEnding, "a store", 16, true, 1, 3, kAnySide, store_compressions, None, kNoLevels, kAnyPlace, nullptr},
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
std::string enumerate(const std::vector<std::string>& words, const char* last)
{
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i)
        text += (i == 0 ? "" : i + 1 == words.size() ? last : ", ") + words[i];
    return text;
}

bool is_among(const OutputFormat& format, Outputs outputs)
{
    switch (outputs) {
    case Outputs::Files:
        return !format.is_store();
    case Outputs::FilesAndStores:
        return true;
    case Outputs::FilesOfNumbers:
        return !format.is_store() && format.holds(1, 16, false) && format.is_exact(false);
    }
    return false;
}

template <class Fits>
std::vector<std::string> endings_where(Outputs outputs, const Fits& fits)
{
    std::vector<std::string> words;
    for (const OutputFormat& format : kFormats)
        if (is_among(format, outputs) && fits(format))
            words.emplace_back(format.ending);
    return words;
}

bool is_any(const OutputFormat&)
{
    return true;
}

// ".png .tif ..."
std::string list(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

const OutputFormat* find_format(const std::string& target, Outputs outputs)
{
    const bool is_store = outputs == Outputs::FilesAndStores && is_store_name(target);
    const std::string ending = is_standard_stream(target) ? ".png" : is_store ? kStoreEnding : ending_of(target);
    const auto* const format = std::find_if(std::begin(kFormats), std::end(kFormats), [&](const OutputFormat& known) {
        return known.is_store() == is_store && ending == known.ending && is_among(known, outputs);
    });
    if (format == std::end(kFormats))
        fail_name(target, ending.size() < 2 ? "no ending" : "the ending " + ending,
                  enumerate(endings_where(outputs, is_any), " or ") +
                      (outputs == Outputs::FilesOfNumbers ? ", which keep numbers as they are" : ""));
    return format;
}

} // namespace

OutputName::OutputName(std::string name, Outputs outputs)
    : text_(std::move(name)), outputs_(outputs), format_(find_format(text_, outputs))
{
}

void OutputName::check(int channels, int bits, bool has_alpha) const
{
    if (bits > format_->most_bits)
        fail_output(text_, concat(bits, " bits for ", format_->name),
                    concat(format_->most_bits, " (--depth ", format_->most_bits, "), or another ending"));
    if (has_alpha && !format_->holds_alpha)
        fail_output(text_, "an alpha channel for a format without one",
                    endings_for(channels, bits, has_alpha, outputs_));
    if (channels < format_->least_channels || channels > format_->most_channels)
        fail_output(text_, concat(channels, channels == 1 ? " channel for " : " channels for ", format_->name),
                    endings_for(channels, bits, has_alpha, outputs_));
}

void OutputName::check_size(std::int64_t width, std::int64_t height) const
{
    if (width > format_->most_side || height > format_->most_side)
        fail_output(text_, concat(width, " x ", height, " pixels for ", format_->name),
                    concat("at most ", format_->most_side, " in a direction, or another ending"));
}

std::string endings_for(int channels, int bits, bool has_alpha, Outputs outputs)
{
    const auto holds = [&](const OutputFormat& format) { return format.holds(channels, bits, has_alpha); };
    return enumerate(endings_where(outputs, holds), " or ");
}

std::string all_endings(Outputs outputs)
{
    return list(endings_where(outputs, is_any));
}

std::string endings_with_alpha(Outputs outputs)
{
    return list(endings_where(outputs, [](const OutputFormat& format) { return format.holds_alpha; }));
}

std::string endings_with_levels()
{
    const auto has_levels = [](const OutputFormat& format) { return format.levels != LevelUse::None; };
    return list(endings_where(Outputs::Files, has_levels));
}

std::string endings_with_compression(Outputs outputs)
{
    const auto has_choice = [](const OutputFormat& format) { return format.compressions != nullptr; };
    return enumerate(endings_where(outputs, has_choice), " or ");
}

std::string endings_with_optional_levels()
{
    const auto has_choice = [](const OutputFormat& format) { return format.levels == LevelUse::OnDemand; };
    return enumerate(endings_where(Outputs::Files, has_choice), " or ");
}

std::string compression_help(Outputs outputs)
{
    std::string text;
    const OutputFormat* before = nullptr;
    for (const OutputFormat& format : kFormats) {
        if (format.compressions == nullptr || !is_among(format, outputs))
            continue;
        if (before != nullptr && before->compressions == format.compressions)
            continue;
        before = &format;
        const auto is_alike = [&](const OutputFormat& other) { return other.compressions == format.compressions; };
        std::vector<std::string> names = format.compressions();
        names.front() += " (default)";
        text += concat(text.empty() ? "" : "; ", "of ", enumerate(endings_where(outputs, is_alike), " and "), ": ",
                       enumerate(names, ", "));
    }
    return text;
}

std::string names_with_quality()
{
    std::vector<std::string> names;
    for (const OutputFormat& format : kFormats) {
        const std::string name = concat(format.name, format.quality == WithoutAlpha ? " without alpha" : "");
        if (format.quality != None && std::find(names.begin(), names.end(), name) == names.end())
            names.push_back(name);
    }
    return enumerate(names, ", or ");
}

std::vector<std::string> all_compressions(Outputs outputs)
{
    std::vector<std::string> all;
    for (const OutputFormat& format : kFormats) {
        if (format.compressions == nullptr || !is_among(format, outputs))
            continue;
        for (const std::string& name : format.compressions())
            if (std::find(all.begin(), all.end(), name) == all.end())
                all.push_back(name);
    }
    return all;
}

} // namespace panoval::image
