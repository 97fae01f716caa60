// SPDX-License-Identifier: MIT
#include "image/zarr_store.h"

#include "image/failure.h"
#include "image/files.h"
#include "image/json_keys.h"
#include "image/metadata_json.h"
#include "image/output_file.h"
#include "image/text.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace panoval::image
{

namespace
{

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr int kStoreVersion = 1;
constexpr std::size_t kMostLevels = 32;
constexpr std::size_t kLongestText = std::size_t{1} << 24;

const char* const kName = "panorama"; // wherever the store lies
const char* const kGroup = "{\n \"zarr_format\": 2\n}\n";

// The bytes of a file. False where there is none.
bool read_bytes(const fs::path& place, std::vector<std::uint8_t>& bytes)
{
    const std::string name = utf8_from_path(place);
    const FileHandle file = open_utf8(name, "rb");
    if (file == nullptr && (errno == ENOENT || errno == ENOTDIR))
        return false;
    if (file == nullptr) {
        check_heap(name);
        fail_input(name, system_message(errno), "a file that can be read");
    }
    bytes.clear();
    std::uint8_t piece[65536];
    while (const std::size_t count = std::fread(piece, 1, sizeof piece, file.get()))
        bytes.insert(bytes.end(), piece, piece + count);
    if (std::ferror(file.get()) != 0)
        fail_input(name, "a file that cannot be read: " + system_message(errno), "a readable one");
    return true;
}

bool read_text(const fs::path& place, std::string& text)
{
    std::vector<std::uint8_t> bytes;
    std::error_code error;
    const auto size = fs::file_size(place, error);
    if (!error && size > kLongestText)
        fail_input(utf8_from_path(place), concat(size, " bytes"), "a text");
    if (!read_bytes(place, bytes))
        return false;
    text.assign(bytes.begin(), bytes.end());
    return true;
}

ParsedJson parse(const fs::path& place, const std::string& text)
{
    ParsedJson json = ParsedJson::parse(text, nullptr, false);
    if (json.is_discarded() || !json.is_object())
        fail_input(utf8_from_path(place), "no valid JSON object", "what a store has there");
    return json;
}

// Pixels of a level are means of 2^level on a side, so that their middles lie by half of that farther in.
Json transformations(const Offset& origin, std::size_t level)
{
    const double step = static_cast<double>(std::uint64_t{1} << level);
    const double in = (step - 1) / 2;
    return Json::array(
        {{{"type", "scale"}, {"scale", {1.0, step, step}}},
         {{"type", "translation"},
          {"translation", {0.0, static_cast<double>(origin.y) + in, static_cast<double>(origin.x) + in}}}});
}

// How viewers are to show the channels.
Json channels_of(const ZarrArray& array)
{
    static const char* const kNames[] = {"red", "green", "blue"};
    static const char* const kColours[] = {"FF0000", "00FF00", "0000FF"};
    const int most = array.bits == 16 ? 65535 : 255;
    const Json window = {{"min", 0}, {"max", most}, {"start", 0}, {"end", most}};
    Json channels = Json::array();
    for (int c = 0; c < array.channels; ++c) {
        const bool is_coverage = array.channels % 2 == 0 && c == array.channels - 1;
        const bool is_grey = array.channels < 3;
        channels.push_back({{"active", !is_coverage},
                            {"color", is_coverage || is_grey ? "FFFFFF" : kColours[c]},
                            {"label", is_coverage ? "coverage"
                                      : is_grey   ? "grey"
                                                  : kNames[c]},
                            {"window", window}});
    }
    return channels;
}

// What begin may find in a folder where another process begins the same store.
bool is_of_a_beginning(const std::string& name)
{
    return name == ".zgroup" || name == "0" || name == ".panoval" || name.find(".part") != std::string::npos ||
           name == ".zattrs"; // COUNT_EXCL_BRANCH: where the other one writes it after this one has looked
}

} // namespace

bool is_store_name(const std::string& name)
{
    std::string end = name;
    while (end.size() > 1 && (end.back() == '/' || end.back() == '\\'))
        end.pop_back();
    std::transform(end.begin(), end.end(), end.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
    return end.size() > std::char_traits<char>::length(kStoreEnding) && end.ends_with(kStoreEnding);
}

std::vector<std::string> store_compressions()
{
    return {"deflate", "none"};
}

ZarrStore ZarrStore::begin(const std::string& target, const fs::path& folder, const StorePicture& picture)
{
    ZarrStore store(target, folder);
    store.picture_ = picture;
    store.arrays_ = {picture.array};
    if (store.goes_on())
        return store;
    store.check_place();
    store.make_folder(folder / ".panoval" / "tiles");
    store.make_folder(folder / "0");
    store.write_text(folder / ".zgroup", kGroup);
    store.write_text(folder / "0" / ".zarray", json_of(picture.array));
    store.write_text(folder / ".zattrs", store.attributes());
    return store;
}

// Whether the folder is a store of the same plan.
bool ZarrStore::goes_on() const
{
    std::string text;
    const fs::path place = folder_ / ".zattrs";
    if (!read_text(place, text))
        return false;
    const ParsedJson own = at(parse(place, text), "panoval");
    if (at(own, "version") != kStoreVersion || !at(own, "plan").is_string())
        fail_output(target_, "a store of another program or version", "another name");
    if (at(own, "plan") != picture_.plan)
        fail_output(target_,
                    concat("a store that another plan began (",
                           printable(at(own, "plan").get_ref<const std::string&>(), 40), ")"),
                    concat("one of this plan (", picture_.plan, "), or another name"));
    const fs::path array = folder_ / "0" / ".zarray";
    if (!read_text(array, text) || parse_zarr_array(utf8_from_path(array), text) != picture_.array)
        fail_output(target_, "a store of other channels, chunks or compression",
                    "the same options as when it was begun");
    return true;
}

// A folder with somebody's files is left alone.
void ZarrStore::check_place() const
{
    std::error_code error;
    if (fs::exists(folder_, error) && !fs::is_directory(folder_, error))
        fail_output(target_, "a file", "a folder, or a name that is not there yet");
    for (fs::directory_iterator entry(folder_, error), end; !error && entry != end; entry.increment(error))
        if (const std::string name = utf8_from_path(entry->path().filename()); !is_of_a_beginning(name))
            fail_output(target_, concat("a folder with ", printable(name), " in it"),
                        "a store, or a name that is not there yet");
}

void ZarrStore::make_folder(const fs::path& folder) const
{
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        fail_output(target_, concat("a folder ", name_of(folder), " that cannot be made: ", error.message()),
                    "a writable place");
}

void ZarrStore::write_file(const fs::path& place, const void* data, std::size_t bytes) const
{
    OutputFile file(utf8_from_path(place), name_of(place));
    file.write(data, bytes);
    file.commit();
}

// Where it is in the target, of what may be made in another place at first.
std::string ZarrStore::name_of(const fs::path& place) const
{
    return utf8_from_path(path_from_utf8(target_) / place.lexically_relative(folder_));
}

// Leaves a file alone that has the text already: others may be reading it.
void ZarrStore::write_text(const fs::path& place, const std::string& text) const
{
    std::string there;
    if (read_text(place, there) && there == text)
        return;
    write_file(place, text.data(), text.size());
}

std::string ZarrStore::attributes() const
{
    Json datasets = Json::array();
    for (std::size_t level = 0; level < arrays_.size(); ++level)
        datasets.push_back(
            {{"path", concat(level)}, {"coordinateTransformations", transformations(picture_.origin, level)}});
    const Json axes = Json::array(
        {{{"name", "c"}, {"type", "channel"}}, {{"name", "y"}, {"type", "space"}}, {{"name", "x"}, {"type", "space"}}});
    Json json = {
        {"multiscales",
         Json::array(
             {{{"version", "0.4"}, {"name", kName}, {"axes", axes}, {"datasets", datasets}, {"type", "mean"}}})},
        {"omero",
         {{"version", "0.4"},
          {"name", kName},
          {"channels", channels_of(picture_.array)},
          {"rdefs", {{"model", picture_.array.channels < 3 ? "greyscale" : "color"}}}}},
        {"panoval",
         {{"version", kStoreVersion},
          {"plan", picture_.plan},
          {"tiles", picture_.tiles},
          {"x", picture_.origin.x},
          {"y", picture_.origin.y}}}};
    if (const Json metadata = json_of(picture_.metadata); !metadata.empty())
        json["panoval"]["metadata"] = metadata;
    return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

ZarrStore ZarrStore::open(const std::string& name)
{
    ZarrStore store(name, path_from_utf8(name));
    const fs::path place = store.folder_ / ".zattrs";
    std::string text;
    if (!read_text(place, text))
        fail_input(name, "no file .zattrs in it", "a store as OME-Zarr has it");
    const ParsedJson json = parse(place, text);
    const ParsedJson& multiscales = at(json, "multiscales");
    const ParsedJson& datasets =
        multiscales.is_array() && !multiscales.empty() ? at(multiscales[0], "datasets") : at(json, "datasets");
    if (!datasets.is_array() || datasets.empty() || datasets.size() > kMostLevels)
        fail_input(utf8_from_path(place), "no list of datasets in \"multiscales\"", "1 to 32 of them");
    for (std::size_t level = 0; level < datasets.size(); ++level) {
        if (at(datasets[level], "path") != concat(level))
            fail_input(utf8_from_path(place), "another path of a dataset", concat("\"", level, "\""));
        const fs::path array = store.folder_ / concat(level) / ".zarray";
        if (!read_text(array, text))
            fail_input(name, concat("no file ", level, "/.zarray in it"), "one for each level");
        store.arrays_.push_back(parse_zarr_array(utf8_from_path(array), text));
    }
    const ParsedJson& own = at(json, "panoval");
    const auto number = [&](const char* key) {
        return at(own, key).is_number_integer() ? at(own, key).get<std::int64_t>() : 0;
    };
    store.picture_ = {
        store.arrays_[0], {number("x"), number("y")}, "", number("tiles"), metadata_of_json(at(own, "metadata"))};
    if (at(own, "plan").is_string())
        store.picture_.plan = at(own, "plan").get<std::string>();
    return store;
}

ImageInfo ZarrStore::info(std::size_t level) const
{
    const ZarrArray& array = arrays_[level];
    ImageInfo info;
    info.width = static_cast<std::int32_t>(array.width);
    info.height = static_cast<std::int32_t>(array.height);
    info.channels = array.channels - (picture_.has_coverage() ? 1 : 0);
    info.bits = array.bits;
    info.has_alpha = picture_.has_coverage();
    if (level == 0)
        info.position = picture_.origin;
    return info;
}

std::uint64_t ZarrStore::write_chunk(std::size_t level, const std::string& name, const Chunk& chunk) const
{
    const fs::path place = folder_ / concat(level) / path_from_utf8(name);
    const std::vector<std::uint8_t> bytes = pack_chunk(arrays_[level], chunk);
    if (bytes.empty()) {
        std::error_code error;
        fs::remove(place, error);
        return 0;
    }
    make_folder(place.parent_path());
    write_file(place, bytes.data(), bytes.size());
    return bytes.size();
}

ChunkSizes ZarrStore::write_pixels(std::size_t level, std::int64_t x, std::int64_t y, std::int32_t width,
                                   std::int32_t height, const ConstRows& rows) const
{
    const ZarrArray& array = arrays_[level];
    const std::size_t pixel = static_cast<std::size_t>(info(level).channels) * static_cast<std::size_t>(array.bits / 8);
    ChunkSizes sizes;
    Chunk chunk;
    for (std::int32_t v = 0; v < height; v += array.chunk_height)
        for (std::int32_t u = 0; u < width; u += array.chunk_width) {
            chunk.assign(array.chunk_bytes(), 0);
            ConstRows part = rows.from(v);
            part.samples += static_cast<std::size_t>(u) * pixel;
            part.mask += part.mask != nullptr ? u : 0;
            put_pixels(array, part, std::min(array.chunk_width, width - u), std::min(array.chunk_height, height - v),
                       chunk);
            const std::string name = chunk_name((y + v) / array.chunk_height, (x + u) / array.chunk_width);
            sizes.emplace_back(name, write_chunk(level, name, chunk));
        }
    return sizes;
}

bool ZarrStore::read_chunk(std::size_t level, std::int64_t row, std::int64_t column, Chunk& chunk) const
{
    const fs::path place = folder_ / concat(level) / path_from_utf8(chunk_name(row, column));
    std::vector<std::uint8_t> bytes;
    if (read_bytes(place, bytes)) {
        unpack_chunk(arrays_[level], utf8_from_path(place), bytes, chunk);
        return true;
    }
    chunk.assign(arrays_[level].chunk_bytes(), 0);
    return false;
}

fs::path ZarrStore::mark_of(std::int64_t tile) const
{
    return folder_ / ".panoval" / "tiles" / concat(tile);
}

bool ZarrStore::has_tile(std::int64_t tile) const
{
    std::string text;
    if (!read_text(mark_of(tile), text))
        return false;
    const ParsedJson json = ParsedJson::parse(text, nullptr, false);
    const ParsedJson& chunks = at(json, "chunks");
    if (at(json, "plan") != picture_.plan || !chunks.is_object())
        return false;
    for (const auto& [name, size] : chunks.items()) {
        std::error_code error;
        const auto found = fs::file_size(folder_ / "0" / path_from_utf8(name), error);
        if (!size.is_number_unsigned() || (error ? 0 : found) != size.get<std::uint64_t>())
            return false;
    }
    return true;
}

void ZarrStore::mark_tile(std::int64_t tile, const ChunkSizes& chunks) const
{
    Json sizes = Json::object();
    for (const auto& [name, size] : chunks)
        sizes[name] = size;
    const Json json = {{"plan", picture_.plan}, {"tile", tile}, {"chunks", sizes}};
    write_text(mark_of(tile), json.dump() + "\n");
}

std::int64_t ZarrStore::first_missing_tile() const
{
    for (std::int64_t tile = 0; tile < picture_.tiles; ++tile)
        if (!has_tile(tile))
            return tile;
    return -1;
}

void ZarrStore::add_level()
{
    ZarrArray array = arrays_.back();
    array.width = (array.width + 1) / 2;
    array.height = (array.height + 1) / 2;
    const fs::path folder = folder_ / concat(arrays_.size());
    arrays_.push_back(array);
    make_folder(folder);
    write_text(folder / ".zarray", json_of(array));
}

void ZarrStore::publish_levels() const
{
    write_text(folder_ / ".zattrs", attributes());
}

} // namespace panoval::image
