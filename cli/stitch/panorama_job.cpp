// SPDX-License-Identifier: MIT
#include "cli/stitch/panorama_job.h"

#include "cli/base/errors.h"
#include "cli/base/file_names.h"
#include "image/formats.h"

#include <algorithm>
#include <filesystem>
#include <thread>

namespace panoval::cli
{

namespace
{

constexpr std::uint64_t kDefaultMemory = std::uint64_t{512} << 20;
constexpr std::uint64_t kLeastEngineMemory = std::uint64_t{1} << 20;
constexpr std::size_t kLongestPlan = std::size_t{1} << 32;

const char* const kFiles = "files";

// A plan's text, taken apart for the files that it names.
std::vector<PlacedInput> inputs_of_plan(const std::string& name, const nlohmann::json& plan)
{
    const char* const expected = "a plan that panoval stitch --plan-only has written";
    if (!plan.is_object() || !plan.contains(kFiles) || !plan[kFiles].is_array() || plan[kFiles].empty())
        fail_input(name, "no list of files", expected);
    const std::filesystem::path folder = path_from_utf8(name).parent_path();
    std::vector<PlacedInput> inputs;
    for (const nlohmann::json& entry : plan[kFiles]) {
        const auto file = [&](const char* key) {
            if (!entry.is_object() || !entry.contains(key))
                return std::string();
            if (!entry[key].is_string())
                fail_input(name, concat("a \"", key, "\" that is no text"), expected);
            return utf8_from_path(folder / path_from_utf8(entry[key].get<std::string>()));
        };
        PlacedInput input;
        input.file = file("file");
        if (input.file.empty())
            fail_input(name, "an entry without \"file\"", expected);
        input.mask = file("mask");
        input.keep = file("keep");
        input.exclude = file("exclude");
        const auto place = [&](const char* key) {
            if (!entry.contains(key) || !entry[key].is_number_integer())
                fail_input(name, concat("an entry without \"", key, "\""), expected);
            return entry[key].get<std::int64_t>();
        };
        input.position = Offset{place("x"), place("y")};
        inputs.push_back(input);
    }
    return inputs;
}

std::string relative_name(const std::string& file, const std::filesystem::path& folder)
{
    std::error_code error;
    const auto near = std::filesystem::proximate(path_from_utf8(file), folder.empty() ? "." : folder, error);
    return error ? file : utf8_from_path(near);
}

std::int32_t number_of_file(const std::string& name, const PanoramaPlan& plan)
{
    for (std::size_t i = 0; i < plan.layers.size(); ++i)
        if (plan.layers[i].file == name || plan.layers[i].name() == name || is_same_file(plan.layers[i].file, name))
            return static_cast<std::int32_t>(i + 1);
    fail_usage(concat("--anchor: found '", printable(name), "'; expected one of the pictures"));
}

} // namespace

PanoramaJob::PanoramaJob(const StitchOptions& given) : options(given), blend(given.blend), seams(given.seams)
{
    if (options.plan.empty()) {
        read_inputs();
        add_pictures();
    } else {
        load_plan();
    }
    layout = mosaic.layout();
}

void PanoramaJob::read_inputs()
{
    std::vector<PlacedInput> inputs;
    if (!options.layout.empty())
        inputs = read_layout(options.layout, notes);
    for (const std::string& argument : options.inputs)
        inputs.push_back(parse_placed_input(argument));
    plan = plan_panorama(inputs);
    if (blend == "feather")
        frame_inner_sides(plan);
}

PanovalMosaicOptions PanoramaJob::engine_options() const
{
    PanovalMosaicOptions engine{};
    // While a picture is decoded it is in memory beside what the engine holds.
    std::uint64_t largest = 0;
    for (const PlacedLayer& layer : plan.layers)
        largest = std::max<std::uint64_t>(largest, layer.info.samples() * static_cast<std::size_t>(plan.bits / 8) +
                                                       layer.info.pixels());
    const std::uint64_t whole = options.memory != 0 ? options.memory : kDefaultMemory;
    const std::uint64_t threads = options.threads > 0 ? static_cast<std::uint64_t>(options.threads)
                                                      : std::max(1u, std::thread::hardware_concurrency());
    const std::uint64_t decoding = std::min(largest * std::min<std::uint64_t>(threads, plan.layers.size()), whole / 2);
    engine.memory = std::max(whole - decoding, kLeastEngineMemory);
    engine.threads = options.threads;
    engine.wrap = !options.wraps ? 0 : options.wrap != 0 ? options.wrap : plan.width;
    engine.bands = options.bands;
    engine.blend = options.blend == "feather" ? PANOVAL_MOSAIC_FEATHER : PANOVAL_MOSAIC_MULTIBAND;
    engine.seams = options.seams == "none"      ? PANOVAL_MOSAIC_SEAMS_NONE
                   : options.seams == "nearest" ? PANOVAL_MOSAIC_SEAMS_NEAREST
                                                : PANOVAL_MOSAIC_SEAMS_OPTIMAL;
    engine.gains = options.has_no_gain              ? PANOVAL_MOSAIC_GAINS_OFF
                   : options.gains_per == "picture" ? PANOVAL_MOSAIC_GAINS_PER_PICTURE
                   : options.gains_per == "channel" ? PANOVAL_MOSAIC_GAINS_PER_CHANNEL
                                                    : PANOVAL_MOSAIC_GAINS_AUTOMATIC;
    engine.vignetting = options.vignetting ? 1 : 0;
    engine.anchor = options.anchor.empty() ? 0 : number_of_file(options.anchor, plan);
    engine.tile_size = options.tile_size;
    const int most = options.is_plan_only ? 16 : image::output_format_of(options.output).most_bits;
    engine.output_bits = options.depth != 0 ? options.depth : std::min(plan.bits, most);
    return engine;
}

void PanoramaJob::add_pictures()
{
    const PanovalMosaicOptions engine = engine_options();
    mosaic.check(panoval_mosaic_set_options(mosaic.get(), &engine));
    for (std::size_t i = 0; i < plan.layers.size(); ++i) {
        PanovalMosaicPicture picture = PictureFiles::describe(plan, i);
        const std::string name = plan.layers[i].name();
        picture.name = name.c_str();
        mosaic.check(panoval_mosaic_add_picture(mosaic.get(), &picture));
    }
    const bool has_file = !options.gains.empty() && file_exists(options.gains);
    measures_gains = !options.has_no_gain && !has_file;
    if (!has_file)
        return;
    const PanoramaGains gains = load_gains(options.gains, plan, notes);
    mosaic.check(panoval_mosaic_set_gains(mosaic.get(), gains.pictures.front().data(),
                                          static_cast<std::int64_t>(gains.pictures.size()), gains.falloff.data()));
}

// The files must be what they were: their places are the plan's.
void PanoramaJob::load_plan()
{
    const std::string text = read_text_file(options.plan, "a plan", kLongestPlan);
    const auto json = nlohmann::json::parse(text, nullptr, false);
    if (json.is_discarded())
        fail_input(options.plan, "no valid JSON", "a plan that panoval stitch --plan-only has written");
    mosaic.check(panoval_mosaic_load_plan(mosaic.get(), text.data(), text.size()));
    blend = json["options"]["blend"].get<std::string>();
    seams = json["options"]["seams"].get<std::string>();
    const PanovalMosaicLayout told = mosaic.layout();
    plan = plan_panorama(inputs_of_plan(options.plan, json));
    if (blend == "feather")
        frame_inner_sides(plan);
    if (static_cast<std::int64_t>(plan.layers.size()) != told.pictures)
        fail_input(options.plan, concat("files of ", plan.layers.size(), " pictures"), concat(told.pictures));
    for (std::size_t i = 0; i < plan.layers.size(); ++i) {
        PanovalMosaicPicture picture{};
        mosaic.check(panoval_mosaic_picture(mosaic.get(), static_cast<std::int64_t>(i), &picture));
        const PanovalMosaicPicture now = PictureFiles::describe(plan, i);
        if (now.width != picture.width || now.height != picture.height || now.channels != picture.channels ||
            now.bits != picture.bits || now.has_mask != picture.has_mask || now.has_keep != picture.has_keep)
            fail_input(plan.layers[i].name(), describe(plan.layers[i].info),
                       concat("what it was when '", printable(options.plan), "' was written"));
    }
    const PanovalMosaicOptions engine = engine_options(); // memory and threads of it count
    mosaic.check(panoval_mosaic_set_options(mosaic.get(), &engine));
}

void PanoramaJob::measure(PictureFiles& files)
{
    const PanovalMosaicHost host = files.host();
    mosaic.check(panoval_mosaic_set_host(mosaic.get(), &host));
    // Of a single tile nobody asks whether the whole panorama is good.
    const int parts = options.tile || options.is_plan_only ? PANOVAL_MOSAIC_MEASURE_SEAMS : PANOVAL_MOSAIC_MEASURE_ALL;
    const std::int32_t code = panoval_mosaic_measure(mosaic.get(), parts);
    files.rethrow();
    mosaic.check(code);
}

PanoramaGains PanoramaJob::gains() const
{
    PanoramaGains gains;
    for (std::int64_t i = 0; i < layout.pictures; ++i) {
        gains.pictures.emplace_back();
        std::int32_t per_channel = 0;
        mosaic.check(panoval_mosaic_gains(mosaic.get(), i, gains.pictures.back().data(), gains.falloff.data(),
                                          &per_channel, nullptr));
        gains.per_channel = per_channel != 0;
    }
    return gains;
}

Json PanoramaJob::verdict() const
{
    const char* text = nullptr;
    if (panoval_mosaic_verdict(mosaic.get(), 1, &text, nullptr) != PANOVAL_MOSAIC_OK)
        return Json::object();
    return Json::parse(text);
}

std::string PanoramaJob::plan_text(const std::string& name) const
{
    const char* text = nullptr;
    std::size_t size = 0;
    mosaic.check(panoval_mosaic_save_plan(mosaic.get(), &text, &size));
    Json json = Json::parse(text, text + size);
    const std::filesystem::path folder = path_from_utf8(name).parent_path();
    Json files = Json::array();
    for (std::size_t i = 0; i < plan.layers.size(); ++i) {
        const PlacedLayer& layer = plan.layers[i];
        if (i > 0 && layer.layer > 0 && layer.file == plan.layers[i - 1].file)
            continue; // one entry for all layers of a file
        // Several layers have places of their own, which the file's place is added to.
        const Offset own = layer.is_one_of_several ? layer.info.position.value_or(Offset{}) : Offset{};
        Json entry = {{"file", relative_name(layer.file, folder)},
                      {"x", layer.position.x - own.x},
                      {"y", layer.position.y - own.y}};
        if (!layer.mask.empty())
            entry["mask"] = relative_name(layer.mask, folder);
        if (!layer.keep.empty())
            entry["keep"] = relative_name(layer.keep, folder);
        if (!layer.exclude.empty())
            entry["exclude"] = relative_name(layer.exclude, folder);
        files.push_back(entry);
    }
    json[kFiles] = files;
    return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace panoval::cli
