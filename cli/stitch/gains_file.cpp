// SPDX-License-Identifier: MIT
#include "cli/stitch/gains_file.h"

#include "cli/base/common_options.h"
#include "cli/base/errors.h"
#include "cli/base/file_names.h"
#include "panoval_mosaic.h"

#include <nlohmann/json.hpp>

namespace panoval::cli
{

namespace
{

const char* const kExpected = R"(a JSON object {"gains": [{"file": ..., "layer": ..., "gain": ...}, ...]})";

// The kind that keeps the order of keys copies values while it grows, which takes a stack as deep as they are nested.
using ParsedJson = nlohmann::json;

constexpr double kLargestFalloff = PANOVAL_MOSAIC_LARGEST_FALLOFF;

double checked_gain(const std::string& name, const ParsedJson& value, const PlacedLayer& layer)
{
    const double gain = value.is_number() ? value.get<double>() : 0;
    if (!(gain >= 1 / PANOVAL_MOSAIC_LARGEST_GAIN && gain <= PANOVAL_MOSAIC_LARGEST_GAIN))
        fail_input(name, concat("a gain of ", gain, " for '", printable(layer.name()), "'"),
                   concat("a number from ", fixed(1 / PANOVAL_MOSAIC_LARGEST_GAIN, 6), " to ",
                          fixed(PANOVAL_MOSAIC_LARGEST_GAIN, 0), "; --no-gain leaves the brightness as it is"));
    return gain;
}

void note_name(const std::string& name, const ParsedJson& entry, std::size_t number, const PlacedLayer& layer,
               std::vector<std::string>& notes)
{
    const auto file_at = entry.find("file");
    const auto layer_at = entry.find("layer");
    const std::string file = file_at != entry.end() && file_at->is_string() ? file_at->get<std::string>() : "";
    const bool is_same_layer =
        layer_at == entry.end() || (layer_at->is_number_integer() && layer_at->dump() == concat(layer.layer));
    const bool is_named = file_at != entry.end() && file_at->is_string();
    if ((is_named && path_from_utf8(file).filename() != path_from_utf8(layer.file).filename()) || !is_same_layer)
        notes.push_back(concat(printable(name), ": entry ", number, " is for '", printable(file),
                               "' and is taken for '", printable(layer.name()), "', the picture with this number"));
}

std::array<double, 4> gains_of(const std::string& name, const ParsedJson& entry, std::size_t number,
                               const PlacedLayer& layer)
{
    if (!entry.is_object() || !entry.contains("gain") || !entry["gain"].is_number())
        fail_input(name, concat("no number \"gain\" in entry ", number), kExpected);
    std::array<double, 4> gains;
    gains.fill(checked_gain(name, entry["gain"], layer));
    if (!entry.contains("channels"))
        return gains;
    const ParsedJson& channels = entry["channels"];
    if (!channels.is_array() || channels.size() > gains.size())
        fail_input(name, concat("no list of gains as \"channels\" in entry ", number), "one number a channel");
    for (std::size_t c = 0; c < channels.size(); ++c)
        gains[c] = checked_gain(name, channels[c], layer);
    return gains;
}

} // namespace

double PanoramaGains::of_picture(std::size_t index, int channels) const
{
    double sum = 0;
    for (int c = 0; c < channels; ++c)
        sum += pictures[index][static_cast<std::size_t>(c)];
    return per_channel ? sum / channels : pictures[index][0];
}

void write_gains(OutputFile& output, const PanoramaPlan& plan, const PanoramaGains& gains)
{
    Json entries = Json::array();
    for (std::size_t i = 0; i < gains.pictures.size(); ++i) {
        Json entry = {{"file", plan.layers[i].file},
                      {"layer", plan.layers[i].layer},
                      {"gain", gains.of_picture(i, plan.channels)}};
        if (gains.per_channel)
            entry["channels"] =
                std::vector<double>(gains.pictures[i].begin(), gains.pictures[i].begin() + plan.channels);
        entries.push_back(entry);
    }
    Json json = {{"gains", entries}};
    if (gains.falloff != std::array<double, 3>{})
        json["falloff"] = gains.falloff;
    output.write(json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

PanoramaGains load_gains(const std::string& name, const PanoramaPlan& plan, std::vector<std::string>& notes)
{
    const ParsedJson json = ParsedJson::parse(read_text_file(name, kExpected, std::size_t{1} << 24), nullptr, false);
    if (json.is_discarded())
        fail_input(name, "no valid JSON", kExpected);
    if (!json.is_object() || !json.contains("gains") || !json["gains"].is_array())
        fail_input(name, "JSON of another kind", kExpected);
    const ParsedJson& entries = json["gains"];
    if (entries.size() != plan.layers.size())
        fail_input(name, concat(entries.size(), " gains"), concat("one for each of ", plan.layers.size(), " pictures"));
    PanoramaGains gains;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        gains.pictures.push_back(gains_of(name, entries[i], i + 1, plan.layers[i]));
        gains.per_channel = gains.per_channel || entries[i].contains("channels");
        note_name(name, entries[i], i + 1, plan.layers[i], notes);
    }
    if (!json.contains("falloff"))
        return gains;
    const ParsedJson& falloff = json["falloff"];
    if (!falloff.is_array() || falloff.size() != 3)
        fail_input(name, "no three numbers as \"falloff\"", "those that were saved");
    for (std::size_t i = 0; i < 3; ++i) {
        const double value = falloff[i].is_number() ? falloff[i].get<double>() : 2 * kLargestFalloff;
        if (!(value >= -kLargestFalloff && value <= kLargestFalloff))
            fail_input(name,
                       concat("a \"falloff\" that is no number from ", fixed(-kLargestFalloff, 0), " to ",
                              fixed(kLargestFalloff, 0)),
                       "those that were saved");
        gains.falloff[i] = value;
    }
    return gains;
}

} // namespace panoval::cli
