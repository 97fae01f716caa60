// SPDX-License-Identifier: MIT
#include "cli/stitch/plan_agreement.h"

#include "cli/base/errors.h"
#include "cli/base/file_names.h"
#include "cli/stitch/gains_file.h"

#include <algorithm>
#include <cstdint>

namespace panoval::cli
{

const char* const kSettledByPlan =
    "--anchor, --bands, --blend, --crop, --depth, --gains, --gains-per, --no-gain, --seams,\n"
    "--tile-size, --vignetting and --wrap";

namespace
{

using ParsedJson = nlohmann::json;
using Texts = std::vector<std::string>;

// One after the other, each option that was given.
class Agreement
{
public:
    Agreement(const StitchOptions& options, const ParsedJson& json, const PanoramaPlan& plan)
        : options_(options), plan_(plan), asked_(json.at("options")), canvas_(json.at("canvas")),
          tiles_(json.at("tiles")), gains_(json.value("gains", ParsedJson())), has_crop_(json.contains("crop"))
    {
    }

    void check(std::vector<std::string>& notes) const
    {
        compare("--blend", options_.blend, {asked_.at("blend")});
        compare("--seams", options_.seams, {asked_.at("seams")});
        compare("--bands", number_or_none(options_.bands), bands());
        compare("--depth", number_or_none(options_.depth), {canvas_.at("output_bits").dump()});
        compare("--tile-size", number_or_none(options_.tile_size), tile_size());
        compare("--wrap", options_.wraps ? concat(wrap()) : "", text_unless_zero("wrap"));
        compare("--gains-per", options_.gains_per, gains_per());
        compare_flag("--no-gain", options_.has_no_gain, has_no_gain());
        compare_flag("--vignetting", options_.vignetting, asked_.at("vignetting").get<bool>());
        compare_flag("--crop", options_.is_cropped, has_crop_);
        compare_anchor();
        compare_gains(notes);
    }

private:
    // planned: what says the same, the plan's own word first; empty = the plan was made without the option
    void compare(const char* option, const std::string& given, const Texts& planned) const
    {
        if (!given.empty() && std::find(planned.begin(), planned.end(), given) == planned.end())
            fail(concat(option, " ", given), option, planned.empty() ? "" : planned.front());
    }

    void compare_flag(const char* option, bool is_given, bool is_planned) const
    {
        if (is_given && !is_planned)
            fail(option, option, "");
    }

    void compare_anchor() const
    {
        if (options_.anchor.empty())
            return;
        const ParsedJson& planned = asked_.at("anchor");
        if (!planned.is_number() || planned.get<std::size_t>() != anchor_of(options_.anchor, plan_))
            fail(concat("--anchor ", printable(options_.anchor)), "--anchor",
                 planned.is_number() ? plan_.layers.at(planned.get<std::size_t>()).name() : "");
    }

    // A file that is not there yet gets the plan's gains.
    void compare_gains(std::vector<std::string>& notes) const
    {
        if (options_.gains.empty())
            return;
        const std::string found = concat("--gains ", printable(options_.gains));
        if (has_no_gain() || gains_.is_null())
            fail(found, "--gains", "");
        if (!file_exists(options_.gains))
            return;
        const PanoramaGains given = load_gains(options_.gains, plan_, notes);
        for (std::size_t i = 0; i < plan_.layers.size(); ++i)
            for (std::size_t c = 0; c < static_cast<std::size_t>(plan_.channels); ++c) {
                const ParsedJson& planned = gains_.at("pictures").at(i).at(c);
                if (given.pictures[i][c] != planned.get<double>())
                    fail(concat(found, " with ", text_of(given.pictures[i][c]), " for '",
                                printable(plan_.layers[i].name()), "'"),
                         "--gains", text_of(planned));
            }
        const ParsedJson& falloff = gains_.at("falloff");
        if (ParsedJson(given.falloff) != falloff)
            fail(concat(found, " with the falloff ", text_of(given.falloff)), "--gains", text_of(falloff));
    }

    [[noreturn]] void fail(const std::string& found, const std::string& option, const std::string& planned) const
    {
        const std::string plan = printable(options_.plan);
        fail_usage(concat("found ", found, " with --plan; expected ",
                          planned.empty() ? "" : printable(planned) + " or ", "no ", option, ", as ", plan,
                          planned.empty() ? " was made without it" : " has it"));
    }

    static std::string text_of(const ParsedJson& value) { return value.dump(); }
    static std::string number_or_none(int value) { return value == 0 ? "" : std::to_string(value); }
    Texts text_unless_zero(const char* key) const
    {
        return asked_.at(key) == 0 ? Texts() : Texts{asked_.at(key).dump()};
    }

    bool has_no_gain() const { return asked_.at("gains") == "off"; }
    std::int64_t wrap() const { return options_.wrap != 0 ? options_.wrap : plan_.width; }

    // What was asked for, and what came of it.
    Texts bands() const
    {
        if (asked_.at("blend") == kFeather)
            return {};
        Texts texts = text_unless_zero("bands");
        texts.push_back(canvas_.at("bands").dump());
        return texts;
    }

    Texts gains_per() const
    {
        const std::string asked = asked_.at("gains");
        if (asked == "picture" || asked == "channel")
            return {asked};
        if (has_no_gain() || gains_.is_null())
            return {};
        return {gains_.at("per_channel").get<bool>() ? "channel" : "picture"};
    }

    // A size beyond the canvas is the canvas's.
    Texts tile_size() const
    {
        const auto is_side = [&](const char* key) {
            return tiles_.at(key) == std::min<std::int64_t>(options_.tile_size, canvas_.at(key).get<std::int64_t>());
        };
        if (is_side("width") && is_side("height"))
            return {number_or_none(options_.tile_size)};
        const Texts asked = text_unless_zero("tile_size");
        return asked.empty() ? Texts{concat(tiles_.at("width").dump(), " x ", tiles_.at("height").dump())} : asked;
    }

    const StitchOptions& options_;
    const PanoramaPlan& plan_;
    const ParsedJson& asked_;
    const ParsedJson& canvas_;
    const ParsedJson& tiles_;
    const ParsedJson gains_; // null where the plan has none
    const bool has_crop_;
};

std::string whole_name(const std::string& name)
{
    std::error_code error;
    return utf8_from_path(std::filesystem::absolute(path_from_utf8(name), error).lexically_normal());
}

} // namespace

std::size_t anchor_of(const std::string& name, const PanoramaPlan& plan)
{
    for (std::size_t i = 0; i < plan.layers.size(); ++i) {
        const PlacedLayer& layer = plan.layers[i];
        // A picture of a plan need not be there.
        if (layer.file == name || layer.name() == name || whole_name(layer.file) == whole_name(name) ||
            is_same_file(layer.file, name))
            return i;
    }
    fail_usage(concat("--anchor: found '", printable(name), "'; expected one of the pictures"));
}

void check_agreement(const StitchOptions& options, const ParsedJson& json, const PanoramaPlan& plan,
                     std::vector<std::string>& notes)
{
    Agreement(options, json, plan).check(notes);
}

} // namespace panoval::cli
