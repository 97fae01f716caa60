// SPDX-License-Identifier: MIT
#include "image/metadata_json.h"

#include "image/base64.h"
#include "image/json_keys.h"

#include <cmath>
#include <limits>

namespace panoval::image
{

namespace
{

using Json = nlohmann::ordered_json;

constexpr double kLargestResolution = 1e6; // pixels per inch

Json json_of(const Rational& value)
{
    return Json::array({value.numerator, value.denominator});
}

Json json_of(const Exif& exif)
{
    Json json = Json::object();
    for (const auto& [key, text] :
         {std::pair<const char*, const std::string&>{"make", exif.make}, {"model", exif.model}, {"date", exif.date}})
        if (!text.empty())
            json[key] = text;
    if (exif.exposure_seconds)
        json["exposure_seconds"] = json_of(*exif.exposure_seconds);
    if (exif.f_number)
        json["f_number"] = json_of(*exif.f_number);
    if (exif.iso)
        json["iso"] = *exif.iso;
    return json;
}

std::optional<std::uint32_t> number_of(const ParsedJson& json)
{
    if (!json.is_number_unsigned() || json.get<std::uint64_t>() > std::numeric_limits<std::uint32_t>::max())
        return std::nullopt;
    return json.get<std::uint32_t>();
}

std::optional<Rational> rational_of(const ParsedJson& json)
{
    if (!json.is_array() || json.size() != 2)
        return std::nullopt;
    const auto numerator = number_of(json[0]);
    const auto denominator = number_of(json[1]);
    if (!numerator || denominator.value_or(0) == 0)
        return std::nullopt;
    return Rational{*numerator, *denominator};
}

std::string text_of(const ParsedJson& json)
{
    return json.is_string() ? json.get<std::string>() : std::string();
}

std::optional<Resolution> resolution_of(const ParsedJson& json)
{
    if (!json.is_array() || json.size() != 2 || !json[0].is_number() || !json[1].is_number())
        return std::nullopt;
    const Resolution resolution{json[0].get<double>(), json[1].get<double>()};
    const auto makes_sense = [](double value) { return value > 0 && value <= kLargestResolution; };
    return makes_sense(resolution.x) && makes_sense(resolution.y) ? std::optional(resolution) : std::nullopt;
}

} // namespace

Json json_of(const Metadata& metadata)
{
    Json json = Json::object();
    if (!metadata.profile.empty())
        json["profile"] = base64_of(metadata.profile);
    if (metadata.resolution)
        json["resolution"] = Json::array({metadata.resolution->x, metadata.resolution->y});
    if (!metadata.exif.is_empty())
        json["exif"] = json_of(metadata.exif);
    return json;
}

Metadata metadata_of_json(const ParsedJson& json)
{
    Metadata metadata;
    if (const auto profile = bytes_of_base64(text_of(at(json, "profile"))))
        metadata.profile = *profile;
    metadata.resolution = resolution_of(at(json, "resolution"));
    const ParsedJson& exif = at(json, "exif");
    metadata.exif.make = text_of(at(exif, "make"));
    metadata.exif.model = text_of(at(exif, "model"));
    metadata.exif.date = text_of(at(exif, "date"));
    metadata.exif.exposure_seconds = rational_of(at(exif, "exposure_seconds"));
    metadata.exif.f_number = rational_of(at(exif, "f_number"));
    metadata.exif.iso = number_of(at(exif, "iso"));
    return metadata;
}

} // namespace panoval::image
