// SPDX-License-Identifier: MIT
#include "cli/stitch/placed_input.h"

#include "cli/base/errors.h"
#include "cli/base/file_names.h"
#include "image/image_read.h"
#include "panoval_mosaic.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <limits>
#include <map>
#include <set>

namespace panoval::cli
{

namespace
{

using nlohmann::json;

constexpr std::int64_t kFarthest = PANOVAL_MOSAIC_FARTHEST;
constexpr std::size_t kLongestLayout = 64u << 20;

const char* const kKeys[] = {"file", "x", "y", "mask", "keep", "exclude", "width", "height", "channels", "bits"};

// A number of pixels at the start of the text, which it is cut off. Nothing when there is none, or too large a one.
std::optional<double> take_number(std::string_view& text)
{
    std::string_view digits = text;
    if (digits.size() > 1 && digits[0] == '+' && digits[1] != '-')
        digits.remove_prefix(1);
    double value = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed);
    if (error != std::errc() || !(value >= -kFarthest && value <= kFarthest))
        return std::nullopt;
    text = digits.substr(static_cast<std::size_t>(end - digits.data()));
    return value;
}

// What an argument says, its place as it is written.
struct PlacedArgument {
    std::string file;
    double x = 0;
    double y = 0;
    std::string mask;
};

// "X,Y" or "X,Y:MASK"
std::optional<PlacedArgument> parse_place(std::string_view place)
{
    PlacedArgument input;
    const auto x = take_number(place);
    if (!x || place.empty() || place[0] != ',')
        return std::nullopt;
    place.remove_prefix(1);
    const auto y = take_number(place);
    if (!y || (!place.empty() && (place[0] != ':' || place.size() == 1)))
        return std::nullopt;
    input.x = *x;
    input.y = *y;
    input.mask = place.empty() ? "" : std::string(place.substr(1));
    return input;
}

std::optional<PlacedArgument> split_at(const std::string& argument, std::size_t at)
{
    auto input = parse_place(std::string_view(argument).substr(at + 1));
    if (input)
        input->file = argument.substr(0, at);
    return input;
}

std::int64_t nearest_pixel(double place)
{
    return static_cast<std::int64_t>(std::floor(place + 0.5));
}

const char* const kWholePixels = "; places are whole pixels";
const char* const kExpectedLayout = "an array of objects with file, x and y, or an object with one as \"images\"";

// A value as a message can show it. Arrays and objects may be nested too deep to be written out.
std::string shown(const json& value)
{
    if (value.is_structured())
        return value.is_array() ? "an array" : "an object";
    return printable(value.dump(), 60);
}

// What is odd about a layout, in two sentences at most, however long it is: keys that nobody knows and places that are
// rounded, each where it comes first and how often it comes again.
class LayoutNotes
{
public:
    void add_key(const std::string& key) { ++keys_[concat('"', printable(key, 60), '"')].times; }
    void add_key(const std::string& key, std::size_t entry)
    {
        add(keys_[concat('"', printable(key, 60), "\" in entry ")], std::to_string(entry));
    }
    void add_rounded(const std::string& sentence) { add(rounded_, sentence); }

    void write(const std::string& layout, std::vector<std::string>& notes) const
    {
        std::string keys;
        std::size_t told = 0;
        for (const auto& [key, kind] : keys_)
            if (told++ < kMostKeys)
                keys += concat(told > 1 ? ", " : "", key, kind.first, again(kind));
        if (told > kMostKeys)
            keys += concat(" and ", told - kMostKeys, " other keys");
        if (told > 0)
            notes.push_back(concat(printable(layout), ": found keys that are not known and do nothing: ", keys));
        if (rounded_.times > 0)
            notes.push_back(concat(printable(layout), ": ", rounded_.first, again(rounded_), kWholePixels));
    }

private:
    static constexpr std::size_t kMostKeys = 20;

    struct Kind {
        std::string first; // where, or all of it
        std::size_t times = 0;
    };

    static void add(Kind& kind, const std::string& first)
    {
        if (kind.times++ == 0)
            kind.first = first;
    }
    static std::string again(const Kind& kind)
    {
        return kind.times > 1 ? concat(" (and ", kind.times - 1, " more such)") : "";
    }

    std::map<std::string, Kind> keys_;
    Kind rounded_;
};

[[noreturn]] void fail_entry(const std::string& layout, std::size_t number, const std::string& found,
                             const std::string& expected)
{
    fail_input(layout, concat(found, " in entry ", number), expected);
}

std::string text_of(const std::string& layout, std::size_t number, const json& entry, const char* key)
{
    const json& value = entry.at(key);
    if (!value.is_string() || value.get<std::string>().empty())
        fail_entry(layout, number, concat("\"", key, "\": ", shown(value)), "the name of a file");
    std::string text = value.get<std::string>();
    if (text.find('\0') != std::string::npos)
        fail_entry(layout, number, concat("a zero byte in \"", key, "\": ", shown(value)), "the name of a file");
    return text;
}

std::int64_t number_of(const std::string& layout, std::size_t number, const json& entry, const char* key,
                       LayoutNotes& notes)
{
    if (!entry.contains(key))
        fail_entry(layout, number, concat("no \"", key, "\""), "x and y, or neither");
    const json& value = entry.at(key);
    const double real = value.is_number() ? value.get<double>() : std::numeric_limits<double>::quiet_NaN();
    if (!(real >= -kFarthest && real <= kFarthest))
        fail_entry(layout, number, concat("\"", key, "\": ", shown(value)),
                   concat("a number of pixels, at most ", kFarthest, " from 0"));
    const std::int64_t rounded = nearest_pixel(real);
    if (static_cast<double>(rounded) != real)
        notes.add_rounded(concat("\"", key, "\": ", shown(value), " in entry ", number, " is taken as ", rounded));
    return rounded;
}

void check_keys(const std::string& layout, std::size_t number, const json& entry, LayoutNotes& notes)
{
    if (!entry.is_object())
        fail_entry(layout, number, shown(entry), "an object with file, x, y and perhaps mask");
    for (const auto& [key, value] : entry.items())
        if (std::find(std::begin(kKeys), std::end(kKeys), key) == std::end(kKeys))
            notes.add_key(key, number);
    if (!entry.contains("file"))
        fail_entry(layout, number, "no \"file\"", "the name of a picture");
}

// A whole number from least to most; `otherwise` where there is none, if that is allowed.
int size_of(const std::string& layout, std::size_t number, const json& entry, const char* key, int most,
            std::optional<int> otherwise)
{
    if (!entry.contains(key) && otherwise)
        return *otherwise;
    if (!entry.contains(key))
        fail_entry(layout, number, concat("no \"", key, "\""), "width and height, or neither");
    const json& value = entry.at(key);
    const double real = value.is_number() ? value.get<double>() : 0;
    if (!(real >= 1 && real <= most) || std::floor(real) != real)
        fail_entry(layout, number, concat("\"", key, "\": ", shown(value)), concat("a whole number from 1 to ", most));
    return static_cast<int>(real);
}

std::optional<ImageInfo> told_of(const std::string& layout, std::size_t number, const json& entry)
{
    if (!entry.contains("width") && !entry.contains("height"))
        return std::nullopt;
    ImageInfo info;
    info.width = size_of(layout, number, entry, "width", std::numeric_limits<std::int32_t>::max(), std::nullopt);
    info.height = size_of(layout, number, entry, "height", std::numeric_limits<std::int32_t>::max(), std::nullopt);
    info.channels = size_of(layout, number, entry, "channels", 3, 3);
    info.bits = size_of(layout, number, entry, "bits", 16, 8);
    if (info.channels == 2 || (info.bits != 8 && info.bits != 16))
        fail_entry(layout, number, concat(info.channels, " channels of ", info.bits, " bit"), "1 or 3 of 8 or 16");
    return info;
}

// Refuses objects that have a key twice: the library would keep the last one without a word.
class DuplicateFinder
{
public:
    explicit DuplicateFinder(const std::string& layout) : layout_(layout) {}

    bool operator()(int, json::parse_event_t event, const json& parsed)
    {
        if (event == json::parse_event_t::object_start)
            keys_.emplace_back();
        else if (event == json::parse_event_t::object_end)
            keys_.pop_back();
        else if (event == json::parse_event_t::key && !keys_.back().insert(parsed.get<std::string>()).second)
            fail_input(layout_, concat("the key ", shown(parsed), " twice in one object"), "each key once");
        return true;
    }

private:
    const std::string& layout_;
    std::vector<std::set<std::string>> keys_;
};

json parse_layout(const std::string& name)
{
    const std::string text = read_text_file(name, "a layout in JSON", kLongestLayout);
    try {
        return json::parse(text, DuplicateFinder(name));
    } catch (const json::parse_error& error) {
        fail_input(name, concat("no valid JSON (at byte ", error.byte, ")"), kExpectedLayout);
    } catch (const json::out_of_range&) {
        fail_input(name, "a number that is too large", concat("places of at most ", kFarthest, " from 0"));
    }
}

} // namespace

PlacedInput parse_placed_input(const std::string& argument, std::vector<std::string>& notes)
{
    if (argument.find('@') == std::string::npos || file_exists(argument))
        return {argument, std::nullopt, ""};
    std::optional<PlacedArgument> best;
    for (std::size_t at = argument.rfind('@'); at != std::string::npos && at > 0; at = argument.rfind('@', at - 1)) {
        const auto input = split_at(argument, at);
        if (input && (!best || (file_exists(input->file) && !file_exists(best->file))))
            best = input;
    }
    if (!best) {
        const std::string place = argument.substr(argument.rfind('@') + 1);
        fail_usage(concat(printable(argument), ": found the position '", printable(place, 60),
                          "'; expected FILE@X,Y or FILE@X,Y:MASK with numbers of pixels, at most ", kFarthest,
                          " from 0"));
    }
    const Offset place{nearest_pixel(best->x), nearest_pixel(best->y)};
    if (static_cast<double>(place.x) != best->x || static_cast<double>(place.y) != best->y)
        notes.push_back(concat(printable(argument), " is taken as ", place.x, ",", place.y, kWholePixels));
    return {best->file, place, best->mask};
}

std::vector<PlacedInput> read_layout(const std::string& name, std::vector<std::string>& notes)
{
    if (starts_as_picture(name))
        return {{name, std::nullopt, ""}};
    const json document = parse_layout(name);
    const bool has_images = document.is_object() && document.contains("images");
    const json& layout = has_images ? document.at("images") : document;
    LayoutNotes odd;
    for (const auto& [key, value] : document.items())
        if (has_images && key != "images")
            odd.add_key(key);
    if (!layout.is_array() || layout.empty())
        fail_input(name, layout.is_array() ? "an empty array" : "JSON of another kind", kExpectedLayout);
    const std::filesystem::path folder = path_from_utf8(name).parent_path();
    std::vector<PlacedInput> inputs;
    for (std::size_t i = 0; i < layout.size(); ++i) {
        const json& entry = layout[i];
        check_keys(name, i + 1, entry, odd);
        const auto beside = [&](const char* key) {
            return entry.contains(key) ? utf8_from_path(folder / path_from_utf8(text_of(name, i + 1, entry, key))) : "";
        };
        PlacedInput input;
        input.file = beside("file");
        input.mask = beside("mask");
        input.keep = beside("keep");
        input.exclude = beside("exclude");
        if (entry.contains("x") || entry.contains("y"))
            input.position = Offset{number_of(name, i + 1, entry, "x", odd), number_of(name, i + 1, entry, "y", odd)};
        input.told = told_of(name, i + 1, entry);
        input.tells_channels = entry.contains("channels");
        input.tells_bits = entry.contains("bits");
        inputs.push_back(input);
    }
    odd.write(name, notes);
    return inputs;
}

} // namespace panoval::cli
