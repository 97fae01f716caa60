// SPDX-License-Identifier: MIT
#include "mosaic/plan_json.h"

#include "mosaic/base/errors.h"
#include "mosaic/seams/seam_text.h"
#include "mosaic/tiles/band_choice.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cmath>
#include <cstdint>

namespace panoval::mosaic
{

namespace
{

using Json = nlohmann::ordered_json;
// The ordered kind copies values while it grows, which takes a stack as deep as they are nested.
using ParsedJson = nlohmann::json;

constexpr int kPlanVersion = 1;

constexpr std::array<const char*, 2> kBlends = {"multiband", "feather"};
constexpr std::array<const char*, 3> kSeams = {"optimal", "nearest", "none"};
constexpr std::array<const char*, 4> kGains = {"automatic", "picture", "channel", "off"};
constexpr std::array<const char*, kKindsOfSaying> kSays = {"nothing", "agree", "disagree", "first blank",
                                                           "second blank"};

Json json_of(const Settings& settings)
{
    return {{"wrap", settings.wrap},
            {"bands", settings.bands},
            {"blend", kBlends.at(static_cast<std::size_t>(settings.blend))},
            {"seams", kSeams.at(static_cast<std::size_t>(settings.seams))},
            {"gains", kGains.at(static_cast<std::size_t>(settings.gains))},
            {"vignetting", settings.vignetting},
            {"anchor", settings.anchor ? Json(*settings.anchor) : Json(nullptr)},
            {"tile_size", settings.tile_size},
            {"output_bits", settings.output_bits}};
}

Json json_of_pictures(const Plan& plan)
{
    Json pictures = Json::array();
    for (std::size_t i = 0; i < plan.layout.pictures.size(); ++i) {
        const PlacedPicture& picture = plan.layout.pictures[i];
        pictures.push_back({{"name", picture.name},
                            {"x", picture.rect.x + plan.layout.origin_x},
                            {"y", picture.rect.y + plan.layout.origin_y},
                            {"width", picture.rect.width},
                            {"height", picture.rect.height},
                            {"has_mask", picture.has_mask},
                            {"has_keep", plan.traits[i].has_keep},
                            {"random_access", plan.traits[i].random_access}});
    }
    return pictures;
}

Json json_of(const Gains& gains)
{
    return {{"per_channel", gains.per_channel},
            {"falloff", gains.corrections.falloff.c},
            {"outliers", gains.outliers},
            {"pictures", gains.corrections.gains}};
}

Json json_of(const LogRatio& ratio)
{
    return ratio.is_known ? Json{ratio.value, ratio.error} : Json(nullptr);
}

Json json_of(const OverlapStatistics& overlap, int channels)
{
    Json ratios = Json::array();
    for (std::size_t c = 0; c < static_cast<std::size_t>(channels); ++c)
        ratios.push_back(json_of(overlap.channels[c]));
    return {{"says", kSays.at(static_cast<std::size_t>(overlap.says))},
            {"pixels", overlap.shared},
            {"channels", ratios},
            {"all", json_of(overlap.all)},
            {"seen", json_of(overlap.seen)},
            {"spread", overlap.spread},
            {"correlation", overlap.correlation},
            {"unevenness", overlap.unevenness}};
}

Json json_of(const GainStatistics& statistics, int channels)
{
    Json overlaps = Json::array();
    for (const OverlapStatistics& overlap : statistics.overlaps)
        overlaps.push_back(json_of(overlap, channels));
    return {{"falloff", statistics.falloff.c}, {"overlaps", overlaps}};
}

// One value of an object, with a message that names it where it is missing or of another kind.
class Reader
{
public:
    Reader(const ParsedJson& json, std::string where) : json_(json), where_(std::move(where))
    {
        if (!json.is_object())
            fail(Failure::Plan, "found no object as ", where_, " of the plan; expected one");
    }

    const ParsedJson& at(const char* key) const
    {
        const auto found = json_.find(key);
        if (found == json_.end())
            fail(Failure::Plan, "found no \"", key, "\" in ", where_, " of the plan; expected one");
        return *found;
    }
    bool has(const char* key) const { return json_.contains(key) && !json_.at(key).is_null(); }

    std::int64_t number(const char* key, std::int64_t least, std::int64_t most) const
    {
        const ParsedJson& value = at(key);
        // An unsigned number beyond the signed ones is out of every range.
        const bool is_number =
            value.is_number_integer() && !(value.is_number_unsigned() && value.get<std::uint64_t>() >> 63 != 0);
        if (!is_number || value.get<std::int64_t>() < least || value.get<std::int64_t>() > most)
            fail_value(key, "a whole number from ", least, " to ", most);
        return value.get<std::int64_t>();
    }
    int small(const char* key, int least, int most) const { return static_cast<int>(number(key, least, most)); }
    bool flag(const char* key) const
    {
        if (!at(key).is_boolean())
            fail_value(key, "true or false");
        return at(key).get<bool>();
    }
    const std::string& text(const char* key) const
    {
        if (!at(key).is_string())
            fail_value(key, "a text");
        return at(key).get_ref<const std::string&>();
    }
    template <std::size_t N>
    int word(const char* key, const std::array<const char*, N>& words) const
    {
        const std::string& found = text(key);
        for (std::size_t i = 0; i < N; ++i)
            if (found == words[i])
                return static_cast<int>(i);
        fail_value(key, "one of the words that are saved");
    }
    const ParsedJson& list(const char* key) const
    {
        if (!at(key).is_array())
            fail_value(key, "a list");
        return at(key);
    }
    template <class... Parts>
    [[noreturn]] void fail_value(const char* key, const Parts&... expected) const
    {
        fail(Failure::Plan, "found another value of \"", key, "\" in ", where_, " of the plan; expected ", expected...);
    }

private:
    const ParsedJson& json_;
    std::string where_;
};

Settings settings_of(const Reader& reader)
{
    Settings settings;
    settings.wrap = reader.number("wrap", 0, kLongestSide);
    settings.bands = reader.small("bands", 0, kMostBands);
    settings.blend = static_cast<BlendMode>(reader.word("blend", kBlends));
    settings.seams = static_cast<SeamChoice>(reader.word("seams", kSeams));
    settings.gains = static_cast<GainChoice>(reader.word("gains", kGains));
    settings.vignetting = reader.flag("vignetting");
    if (reader.has("anchor"))
        settings.anchor = static_cast<std::size_t>(reader.number("anchor", 0, kLongestSide));
    settings.tile_size = reader.number("tile_size", 0, kLongestSide);
    settings.output_bits = reader.small("output_bits", 0, 16);
    return settings;
}

std::vector<PlacementWish> pictures_of(const ParsedJson& list, int channels, int bits)
{
    std::vector<PlacementWish> pictures;
    for (const ParsedJson& entry : list) {
        const Reader reader(entry, "picture " + std::to_string(pictures.size()));
        PlacementWish picture;
        picture.name = name_or_number(reader.text("name"), pictures.size());
        picture.x = reader.number("x", -2 * kFarthest, 2 * kFarthest);
        picture.y = reader.number("y", -2 * kFarthest, 2 * kFarthest);
        picture.width = reader.number("width", 1, kLongestSide);
        picture.height = reader.number("height", 1, kLongestSide);
        picture.channels = channels;
        picture.bits = bits;
        picture.has_mask = reader.flag("has_mask");
        picture.traits.has_keep = reader.flag("has_keep");
        picture.traits.random_access = reader.flag("random_access");
        pictures.push_back(picture);
    }
    return pictures;
}

double factor_of(const Reader& reader, const char* key, const ParsedJson& value, double least, double most)
{
    if (!value.is_number() || !(value.get<double>() >= least && value.get<double>() <= most))
        reader.fail_value(key, "numbers from ", plain(least), " to ", plain(most));
    return value.get<double>();
}

Falloff falloff_of(const Reader& reader)
{
    Falloff falloff;
    const ParsedJson& list = reader.list("falloff");
    if (list.size() != falloff.c.size())
        reader.fail_value("falloff", "3 numbers");
    for (std::size_t i = 0; i < list.size(); ++i)
        falloff.c[i] = factor_of(reader, "falloff", list[i], -kLargestFalloff, kLargestFalloff);
    return falloff;
}

LogRatio ratio_of(const Reader& reader, const char* key, const ParsedJson& value)
{
    if (value.is_null())
        return {};
    if (!value.is_array() || value.size() != 2)
        reader.fail_value(key, "a logarithm and its error, or null");
    return {factor_of(reader, key, value[0], -kLargestLogRatio, kLargestLogRatio),
            factor_of(reader, key, value[1], 0, kLargestLogRatio), true};
}

OverlapStatistics overlap_of(const Reader& reader, int channels)
{
    OverlapStatistics overlap;
    overlap.says = static_cast<OverlapStatistics::Says>(reader.word("says", kSays));
    overlap.shared = static_cast<std::uint64_t>(reader.number("pixels", 0, std::int64_t{1} << 62));
    const ParsedJson& ratios = reader.list("channels");
    if (ratios.size() != static_cast<std::size_t>(channels))
        reader.fail_value("channels", "a ratio of each of ", channels, " channels");
    for (std::size_t c = 0; c < ratios.size(); ++c)
        overlap.channels[c] = ratio_of(reader, "channels", ratios[c]);
    overlap.all = ratio_of(reader, "all", reader.at("all"));
    overlap.seen = ratio_of(reader, "seen", reader.at("seen"));
    const auto number = [&](const char* key) {
        return factor_of(reader, key, reader.at(key), -kLargestLogRatio, kLargestLogRatio);
    };
    overlap.spread = number("spread");
    overlap.correlation = number("correlation");
    overlap.unevenness = number("unevenness");
    return overlap;
}

GainStatistics statistics_of(const Reader& reader, int channels)
{
    GainStatistics statistics;
    statistics.falloff = falloff_of(reader);
    for (const ParsedJson& entry : reader.list("overlaps")) {
        const std::string number = std::to_string(statistics.overlaps.size());
        statistics.overlaps.push_back(overlap_of(Reader(entry, "the statistics of overlap " + number), channels));
    }
    return statistics;
}

Gains gains_of(const Reader& reader, std::size_t pictures)
{
    Gains gains;
    gains.per_channel = reader.flag("per_channel");
    gains.corrections.falloff = falloff_of(reader);
    for (const ParsedJson& outlier : reader.list("outliers")) {
        if (!outlier.is_number_unsigned() || outlier.get<std::uint64_t>() >= pictures)
            reader.fail_value("outliers", "numbers of pictures");
        gains.outliers.push_back(outlier.get<std::size_t>());
    }
    const ParsedJson& list = reader.list("pictures");
    if (list.size() != pictures)
        reader.fail_value("pictures", "gains of ", pictures, " pictures");
    for (const ParsedJson& entry : list) {
        if (!entry.is_array() || entry.size() != 4)
            reader.fail_value("pictures", "4 gains a picture");
        ChannelGains channels{};
        for (std::size_t c = 0; c < channels.size(); ++c)
            channels[c] = factor_of(reader, "pictures", entry[c], 1 / kLargestGain, kLargestGain);
        gains.corrections.gains.push_back(channels);
    }
    return gains;
}

Layout layout_of(const Reader& reader, const Settings& settings, std::vector<PictureTraits>& traits)
{
    const int channels = reader.small("channels", 1, 4);
    const int bits = reader.small("bits", 8, 16);
    const std::vector<PlacementWish> pictures = pictures_of(reader.list("pictures"), channels, bits);
    for (std::size_t i = 0; i < pictures.size(); ++i) {
        check_picture(pictures[i]);
        traits.push_back(pictures[i].traits);
    }
    return make_layout(pictures, settings.wrap);
}

Plan plan_of(const ParsedJson& json)
{
    const Reader reader(json, "the top");
    if (reader.number("panoval_plan", 0, kLongestSide) != kPlanVersion)
        reader.fail_value("panoval_plan", "version ", kPlanVersion);
    Plan plan;
    plan.settings = settings_of(Reader(reader.at("options"), "the options"));
    const Reader canvas(reader.at("canvas"), "the canvas");
    plan.layout = layout_of(canvas, plan.settings, plan.traits);
    check_settings(plan.settings, plan.layout.pictures.size());
    plan.bands = canvas.small("bands", 1, kMostBands);
    plan.output_bits = canvas.small("output_bits", 8, 16);
    if (plan.output_bits != 8 && plan.output_bits != 16)
        canvas.fail_value("output_bits", "8 or 16");
    const Reader tiles(reader.at("tiles"), "the tiles");
    plan.grid = {plan.layout.width, plan.layout.height, tiles.number("width", 1, plan.layout.width),
                 tiles.number("height", 1, plan.layout.height)};
    if (reader.has("statistics"))
        plan.statistics = statistics_of(Reader(reader.at("statistics"), "the statistics"), plan.layout.channels);
    if (reader.has("gains"))
        plan.gains = gains_of(Reader(reader.at("gains"), "the gains"), plan.layout.pictures.size());
    if (reader.has("seams"))
        plan.seams = seams_of_text(reader.text("seams"), plan.layout);
    return plan;
}

} // namespace

std::string plan_to_json(const Plan& plan)
{
    Json json = {{"panoval_plan", kPlanVersion},
                 {"options", json_of(plan.settings)},
                 {"canvas",
                  {{"width", plan.layout.width},
                   {"height", plan.layout.height},
                   {"channels", plan.layout.channels},
                   {"bits", plan.layout.bits},
                   {"output_bits", plan.output_bits},
                   {"bands", plan.bands},
                   {"pictures", json_of_pictures(plan)}}},
                 {"tiles",
                  {{"width", plan.grid.tile_width},
                   {"height", plan.grid.tile_height},
                   {"columns", plan.grid.columns()},
                   {"rows", plan.grid.rows()}}}};
    if (plan.statistics)
        json["statistics"] = json_of(*plan.statistics, plan.layout.channels);
    if (plan.gains)
        json["gains"] = json_of(*plan.gains);
    if (plan.seams)
        json["seams"] = text_of_seams(*plan.seams);
    return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

Plan plan_from_json(std::string_view text)
{
    const ParsedJson json = ParsedJson::parse(text, nullptr, false);
    if (json.is_discarded())
        fail(Failure::Plan, "found ", text.size(), " bytes that are no valid JSON; expected a plan");
    try {
        return plan_of(json);
    } catch (const Error& error) {
        throw Error(Failure::Plan, error.what());
    }
}

} // namespace panoval::mosaic
