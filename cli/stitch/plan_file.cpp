// SPDX-License-Identifier: MIT
#include "cli/stitch/plan_file.h"

#include "cli/base/errors.h"
#include "cli/base/file_names.h"
#include "image/files.h"
#include "image/image_read.h"
#include "panoval_mosaic.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

namespace panoval::cli
{

namespace
{

using ParsedJson = nlohmann::json;

// Of the plan's part that is described here.
constexpr int kFilesVersion = 1;
constexpr std::int64_t kFarthest = PANOVAL_MOSAIC_FARTHEST;
constexpr std::int64_t kLongestSide = PANOVAL_MOSAIC_LONGEST_SIDE;
constexpr std::size_t kSampledBytes = 16384; // of a file's beginning, middle and end
const char* const kExpected = "a plan that panoval stitch --plan-only of this version has written";

// The 64-bit hash of Fowler, Noll and Vo.
class Hash
{
public:
    void add(const char* bytes, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            value_ = (value_ ^ static_cast<unsigned char>(bytes[i])) * 0x100000001b3u;
    }
    void add(const std::string& text) { add(text.data(), text.size()); }

    std::string hex() const
    {
        std::string text;
        for (int shift = 60; shift >= 0; shift -= 4)
            text.push_back("0123456789abcdef"[value_ >> shift & 15u]);
        return text;
    }

private:
    std::uint64_t value_ = 0xcbf29ce484222325u;
};

void add_file(const std::string& name, Hash& hash)
{
    const FileHandle file = open_input(name, "the file of a picture");
    const bool is_sought = seek_in_file(file.get(), 0, SEEK_END);
    const std::int64_t size = tell_in_file(file.get());
    hash.add(concat(size, " bytes"));
    const auto sampled = static_cast<std::int64_t>(kSampledBytes);
    std::array<char, kSampledBytes> piece;
    for (const std::int64_t at : {std::int64_t{0}, (size - sampled) / 2, size - sampled}) {
        if (!is_sought || !seek_in_file(file.get(), std::max<std::int64_t>(at, 0), SEEK_SET))
            fail_input(name, "a file that cannot be read", "a regular file");
        hash.add(piece.data(), std::fread(piece.data(), 1, piece.size(), file.get()));
    }
}

std::string fingerprint_of(const PlacedLayer& layer)
{
    Hash hash;
    for (const std::string* const file : {&layer.file, &layer.mask, &layer.keep, &layer.exclude})
        if (!file->empty())
            add_file(*file, hash);
    return hash.hex();
}

std::string relative_name(const std::string& file, const std::filesystem::path& folder)
{
    std::error_code error;
    const auto near = std::filesystem::proximate(path_from_utf8(file), folder.empty() ? "." : folder, error);
    return error ? file : utf8_from_path(near);
}

// An entry of the list of files.
class Entry
{
public:
    Entry(const std::string& plan, const ParsedJson& json, std::size_t number)
        : plan_(plan), json_(json), number_(number)
    {
        if (!json.is_object())
            fail("no object");
    }

    std::int64_t number(const char* key, std::int64_t least, std::int64_t most) const
    {
        const auto found = json_.find(key);
        if (found == json_.end() || !found->is_number_integer() ||
            (found->is_number_unsigned() && found->get<std::uint64_t>() >> 62 != 0) ||
            found->get<std::int64_t>() < least || found->get<std::int64_t>() > most)
            fail(concat("no number \"", key, "\" from ", least, " to ", most));
        return found->get<std::int64_t>();
    }
    bool has(const char* key) const { return json_.contains(key); }
    bool flag(const char* key) const
    {
        const auto found = json_.find(key);
        if (found == json_.end() || !found->is_boolean())
            fail(concat("no \"", key, "\" that is true or false"));
        return found->get<bool>();
    }
    std::string text(const char* key, bool is_needed) const
    {
        const auto found = json_.find(key);
        if (found == json_.end() && !is_needed)
            return {};
        if (found == json_.end() || !found->is_string() || found->get<std::string>().empty())
            fail(concat("no text \"", key, "\""));
        return found->get<std::string>();
    }
    [[noreturn]] void fail(const std::string& what) const
    {
        fail_input(plan_, concat(what, " in entry ", number_, " of the files"), kExpected);
    }

private:
    const std::string& plan_;
    const ParsedJson& json_;
    std::size_t number_;
};

PlacedLayer layer_of(const Entry& entry, const std::filesystem::path& folder)
{
    const auto file = [&](const char* key, bool is_needed) {
        const std::string name = entry.text(key, is_needed);
        return name.empty() ? name : utf8_from_path(folder / path_from_utf8(name));
    };
    PlacedLayer layer;
    layer.file = file("file", true);
    layer.mask = file("mask", false);
    layer.keep = file("keep", false);
    layer.exclude = file("exclude", false);
    layer.layer = static_cast<std::size_t>(entry.number("layer", 0, kLongestSide));
    layer.is_one_of_several = entry.flag("several");
    layer.position = {entry.number("x", -kFarthest, kFarthest), entry.number("y", -kFarthest, kFarthest)};
    layer.info.width = static_cast<std::int32_t>(entry.number("width", 1, kLongestSide));
    layer.info.height = static_cast<std::int32_t>(entry.number("height", 1, kLongestSide));
    layer.info.channels = static_cast<int>(entry.number("channels", 1, 3));
    layer.info.bits = static_cast<int>(entry.number("bits", 8, 16));
    if (layer.info.channels == 2 || (layer.info.bits != 8 && layer.info.bits != 16))
        entry.fail("channels or bits that no picture has");
    layer.info.has_alpha = entry.flag("alpha");
    layer.fingerprint = entry.text("fingerprint", false);
    if (entry.has("held_bytes"))
        layer.held_bytes = static_cast<std::uint64_t>(entry.number("held_bytes", 0, kFarthest));
    layer.is_stored = entry.has("stored") && entry.flag("stored");
    return layer;
}

} // namespace

Json files_for_plan(const PanoramaPlan& plan, const std::string& plan_name)
{
    const std::filesystem::path folder = path_from_utf8(plan_name).parent_path();
    Json files = Json::array();
    for (const PlacedLayer& layer : plan.layers) {
        Json entry = {{"file", relative_name(layer.file, folder)},
                      {"layer", layer.layer},
                      {"several", layer.is_one_of_several},
                      {"x", layer.position.x},
                      {"y", layer.position.y},
                      {"width", layer.info.width},
                      {"height", layer.info.height},
                      {"channels", layer.info.channels},
                      {"bits", layer.info.bits},
                      {"alpha", layer.info.has_alpha},
                      {"fingerprint", fingerprint_of(layer)}};
        for (const auto& [key, file] : {std::pair<const char*, const std::string&>{"mask", layer.mask},
                                        {"keep", layer.keep},
                                        {"exclude", layer.exclude}})
            if (!file.empty())
                entry[key] = relative_name(file, folder);
        if (layer.held_bytes)
            entry["held_bytes"] = *layer.held_bytes;
        if (layer.is_stored)
            entry["stored"] = true;
        files.push_back(std::move(entry));
    }
    return {{"version", kFilesVersion}, {"list", std::move(files)}};
}

std::vector<PlacedLayer> layers_of_plan(const std::string& plan_name, const ParsedJson& json)
{
    const auto files = json.is_object() ? json.find("files") : json.end();
    if (!json.is_object() || files == json.end() || !files->is_object() ||
        files->value("version", ParsedJson()) != kFilesVersion)
        fail_input(plan_name, concat("no \"files\" of version ", kFilesVersion), kExpected);
    const auto list = files->find("list");
    if (list == files->end() || !list->is_array() || list->empty())
        fail_input(plan_name, "no list of files", kExpected);
    const std::filesystem::path folder = path_from_utf8(plan_name).parent_path();
    std::vector<PlacedLayer> layers;
    for (const ParsedJson& entry : *list)
        layers.push_back(layer_of(Entry(plan_name, entry, layers.size() + 1), folder));
    return layers;
}

std::optional<PanovalMosaicRect> crop_of_plan(const std::string& plan_name, const ParsedJson& json,
                                              const PanovalMosaicLayout& layout)
{
    const auto crop = json.find("crop");
    if (crop == json.end())
        return std::nullopt;
    PanovalMosaicRect rect{};
    const std::pair<const char*, std::int64_t*> fields[] = {
        {"x", &rect.x}, {"y", &rect.y}, {"width", &rect.width}, {"height", &rect.height}};
    for (const auto& [key, value] : fields) {
        if (!crop->is_object() || !crop->contains(key) || !crop->at(key).is_number_integer())
            fail_input(plan_name, concat("no \"", key, "\" in \"crop\""), kExpected);
        *value = crop->at(key).get<std::int64_t>();
    }
    if (rect.x < 0 || rect.y < 0 || rect.width < 1 || rect.height < 1 || rect.width > layout.width ||
        rect.height > layout.height || rect.x > layout.width - rect.width || rect.y > layout.height - rect.height)
        fail_input(plan_name, "a \"crop\" that is not on the canvas", kExpected);
    return rect;
}

PlanSeams seams_of_plan(const std::string& plan_name, const ParsedJson& json)
{
    // What is no number of the kind that a plan has there is told as the engine tells it.
    const auto number = [&](const char* of, const char* key, std::int64_t least, std::int64_t most) {
        const auto object = json.find(of);
        if (object == json.end() || !object->is_object() || !object->contains(key) ||
            !object->at(key).is_number_integer() || object->at(key).get<std::int64_t>() < least ||
            object->at(key).get<std::int64_t>() > most)
            fail_input(plan_name, concat("no number \"", key, "\" from ", least, " to ", most, " in \"", of, "\""),
                       kExpected);
        return object->at(key).get<std::int64_t>();
    };
    const ParsedJson& own = json.at("seam_file");
    const auto text = [&](const char* key) {
        if (!own.is_object() || !own.contains(key) || !own.at(key).is_string())
            fail_input(plan_name, concat("no text \"", key, "\" in \"seam_file\""), kExpected);
        return own.at(key).get<std::string>();
    };
    PlanSeams seams;
    seams.file = utf8_from_path(path_from_utf8(plan_name).parent_path() / path_from_utf8(text("file")));
    seams.id = text("id");
    seams.grid.width = number("canvas", "width", 1, kLongestSide);
    seams.grid.height = number("canvas", "height", 1, kLongestSide);
    seams.grid.side = number("seam_file", "side", 16, kLongestSide);
    seams.wraps = number("options", "wrap", 0, kLongestSide) > 0;
    seams.bands = static_cast<int>(number("canvas", "bands", 1, PANOVAL_MOSAIC_MOST_BANDS));
    seams.tile_width = number("tiles", "width", 1, kLongestSide);
    seams.tile_height = number("tiles", "height", 1, kLongestSide);
    return seams;
}

std::string seam_file_name(const std::string& plan_name)
{
    return plan_name + ".seams";
}

void move_seams(Json& plan, image::OutputFile& file)
{
    const std::string seams = plan["seams"].get<std::string>();
    const std::string id = id_of_text(seams);
    const SeamGrid grid{plan["canvas"]["width"].get<std::int64_t>(), plan["canvas"]["height"].get<std::int64_t>()};
    write_seam_file(file, grid, seams, id, "the plan");
    plan.erase("seams");
    plan["seam_file"] = {
        {"file", utf8_from_path(path_from_utf8(file.target()).filename())}, {"id", id}, {"side", grid.side}};
}

std::string text_of_plan(const Json& plan)
{
    return plan.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string id_of_plan(const Json& plan)
{
    return id_of_text(text_of_plan(plan));
}

std::string id_of_text(const std::string& text)
{
    Hash hash;
    hash.add(text);
    return hash.hex();
}

void check_fingerprint(const PlacedLayer& layer)
{
    if (layer.fingerprint.empty() || fingerprint_of(layer) == layer.fingerprint)
        return;
    const std::vector<ImageInfo> now = probe_image(layer.file);
    const std::string found = layer.layer < now.size() ? describe(now[layer.layer]) : "fewer layers";
    fail_input(layer.name(), concat(found, ", or a mask, that is another file than when the plan was made"),
               concat(describe(layer.info), " as it was then"));
}

} // namespace panoval::cli
