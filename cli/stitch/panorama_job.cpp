// SPDX-License-Identifier: MIT
#include "cli/stitch/panorama_job.h"

#include "cli/base/errors.h"
#include "cli/base/file_names.h"
#include "cli/stitch/crop.h"
#include "cli/stitch/output_tiles.h"
#include "cli/stitch/plan_agreement.h"
#include "cli/stitch/plan_file.h"
#include "cli/stitch/seam_file.h"
#include "image/metadata_json.h"
#include "panoval_mosaic.h"

#include <algorithm>
#include <iterator>
#include <thread>

namespace panoval::cli
{

namespace
{

constexpr std::size_t kLongestPlan = std::size_t{1} << 32;

const char* const kExpectedPlan = "a plan that panoval stitch --plan-only of this version has written";

// Of tiles that are made by themselves, the largest first.
constexpr std::int32_t kTileSides[] = {4096, 2048, 1024, 512, 256};
constexpr std::int64_t kManyTiles = 64;

std::int32_t threads_of(const StitchOptions& options)
{
    return options.threads > 0 ? options.threads
                               : static_cast<std::int32_t>(std::max(1u, std::thread::hardware_concurrency()));
}

} // namespace

PanoramaJob::PanoramaJob(const StitchOptions& given)
    : options(given), blend(given.blend.empty() ? kMultiBand : given.blend),
      seams(given.seams.empty() ? kOptimalSeams : given.seams)
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
        inputs.push_back(parse_placed_input(argument, notes));
    plan = plan_panorama(inputs, options.is_dry_run);
    const auto has_keep = [](const PlacedLayer& layer) { return !layer.keep.empty(); };
    if (!has_seams() && std::any_of(plan.layers.begin(), plan.layers.end(), has_keep))
        notes.emplace_back("\"keep\" masks do nothing without seams");
    if (feathers())
        frame_inner_sides(plan);
}

bool PanoramaJob::counts_tasks() const
{
    return options.is_dry_run && options.plan.empty() && options.makes_store();
}

// What pictures' readers hold in memory beside what the engine does.
std::uint64_t PanoramaJob::decoding_bytes() const
{
    std::uint64_t largest = 0;
    for (const PlacedLayer& layer : plan.layers)
        largest = std::max<std::uint64_t>(largest, layer.held_bytes.value_or(layer.info.bytes() + layer.info.pixels()));
    return largest * std::min<std::uint64_t>(static_cast<std::uint64_t>(threads_of(options)), plan.layers.size());
}

void PanoramaJob::share_memory()
{
    const bool gives_tiles = options.is_plan_only || !options.tiles.empty() || options.makes_store();
    mosaic.set_memory(options.memory, decoding_bytes(), gives_tiles);
}

PanovalMosaicOptions PanoramaJob::engine_options() const
{
    PanovalMosaicOptions engine{};
    engine.memory = mosaic.engine_memory();
    engine.threads = options.threads;
    engine.wrap = !options.wraps ? 0 : options.wrap != 0 ? options.wrap : plan.width;
    engine.bands = options.bands;
    engine.blend = options.feathers() ? PANOVAL_MOSAIC_FEATHER : PANOVAL_MOSAIC_MULTIBAND;
    engine.seams = options.seams == kNoSeams        ? PANOVAL_MOSAIC_SEAMS_NONE
                   : options.seams == kNearestSeams ? PANOVAL_MOSAIC_SEAMS_NEAREST
                                                    : PANOVAL_MOSAIC_SEAMS_OPTIMAL;
    engine.gains = options.has_no_gain              ? PANOVAL_MOSAIC_GAINS_OFF
                   : options.gains_per == "picture" ? PANOVAL_MOSAIC_GAINS_PER_PICTURE
                   : options.gains_per == "channel" ? PANOVAL_MOSAIC_GAINS_PER_CHANNEL
                                                    : PANOVAL_MOSAIC_GAINS_AUTOMATIC;
    engine.vignetting = options.vignetting ? 1 : 0;
    engine.anchor = options.anchor.empty() ? 0 : static_cast<std::int32_t>(anchor_of(options.anchor, plan) + 1);
    engine.tile_size = options.tile_size;
    const int most = options.target ? options.target->format().most_bits : plan.bits; // a plan takes any
    engine.output_bits = options.depth != 0 ? options.depth : std::min(plan.bits, most);
    return engine;
}

// Sets up a mosaic; the code of what went wrong.
std::int32_t PanoramaJob::set_up(const MosaicHandle& made, const PanovalMosaicOptions& engine) const
{
    std::int32_t code = panoval_mosaic_set_options(made.get(), &engine);
    for (std::size_t i = 0; i < plan.layers.size() && code == PANOVAL_MOSAIC_OK; ++i) {
        PanovalMosaicPicture picture = PictureFiles::describe(plan, i);
        const std::string name = plan.layers[i].name();
        picture.name = name.c_str();
        code = panoval_mosaic_add_picture(made.get(), &picture);
    }
    return code;
}

// For tiles that are made by themselves: the largest of which the budget feeds all threads, for pictures are decoded
// anew for each of them, as long as there are enough to be shared. Without one that fits, the engine's own choice.
std::int32_t PanoramaJob::choose_tile_size(PanovalMosaicOptions engine) const
{
    for (const std::int32_t side : kTileSides) {
        MosaicHandle tried;
        tried.set_memory(engine.memory, 0, true);
        engine.tile_size = side;
        PanovalMosaicLayout told{};
        PanovalMosaicEstimate estimate{};
        const bool fits = tried.fits(set_up(tried, engine)) && tried.fits(panoval_mosaic_layout(tried.get(), &told)) &&
                          tried.fits(panoval_mosaic_estimate(tried.get(), &estimate));
        const bool is_smallest = side == kTileSides[std::size(kTileSides) - 1];
        if (fits && (is_smallest || (told.tiles >= kManyTiles && estimate.threads >= threads_of(options))))
            return side;
    }
    return 0;
}

void PanoramaJob::add_pictures()
{
    share_memory();
    PanovalMosaicOptions engine = engine_options();
    if (counts_tasks()) {
        const MosaicHandle asked;
        asked.check(set_up(asked, engine));
        engine.memory += asked.needs().seam_memory;
    }
    if (engine.tile_size == 0 && (options.is_plan_only || options.makes_store()))
        engine.tile_size = choose_tile_size(engine);
    mosaic.check(set_up(mosaic, engine));
    has_gains = !options.has_no_gain;
    saves_gains = !options.gains.empty() && !file_exists(options.gains);
    if (options.gains.empty() || saves_gains)
        return;
    const PanoramaGains gains = load_gains(options.gains, plan, notes);
    mosaic.check(panoval_mosaic_set_gains(mosaic.get(), gains.pictures.front().data(),
                                          static_cast<std::int64_t>(gains.pictures.size()), gains.falloff.data()));
}

// The files themselves are looked at when their pixels are needed.
void PanoramaJob::load_plan()
{
    std::string text = read_text_file(options.plan, "a plan", kLongestPlan);
    const auto json = nlohmann::json::parse(text, nullptr, false);
    if (json.is_discarded())
        fail_input(options.plan, "no valid JSON", kExpectedPlan);
    const auto own_id = json.find("id");
    id = own_id != json.end() && own_id->is_string() ? own_id->get<std::string>() : id_of_text(text);
    if (json.is_object() && json.contains("seam_file"))
        text = with_seams(text, json);
    try {
        mosaic.check(panoval_mosaic_load_plan(mosaic.get(), text.data(), text.size()));
    } catch (const Failure& failure) {
        throw Failure(failure.fault(), concat(printable(options.plan), ": ", failure.what()));
    }
    blend = json["options"]["blend"].get<std::string>();
    seams = json["options"]["seams"].get<std::string>();
    if (const auto told = json.find("metadata"); told != json.end())
        metadata = image::metadata_of_json(*told);
    is_measured = json.contains("gains") && (json.contains("seams") || json.contains("seam_file") || !has_seams());
    plan = plan_panorama(layers_of_plan(options.plan, json));
    crop = crop_of_plan(options.plan, json, mosaic.layout());
    if (feathers())
        frame_inner_sides(plan);
    check_pictures();
    has_gains = json["options"]["gains"] != "off" || json.contains("gains");
    saves_gains = !options.gains.empty() && !file_exists(options.gains);
    check_agreement(options, json, plan, notes);
    share_memory();
    PanovalMosaicOptions engine{}; // of which memory and threads alone count with a plan
    engine.memory = mosaic.engine_memory();
    engine.threads = options.threads;
    mosaic.check(panoval_mosaic_set_options(mosaic.get(), &engine));
}

// That the plan's files are those of its canvas.
void PanoramaJob::check_pictures() const
{
    const PanovalMosaicLayout told = mosaic.layout();
    if (static_cast<std::int64_t>(plan.layers.size()) != told.pictures)
        fail_input(options.plan, concat("files of ", plan.layers.size(), " pictures"), concat(told.pictures));
    for (std::size_t i = 0; i < plan.layers.size(); ++i) {
        PanovalMosaicPicture picture{};
        mosaic.check(panoval_mosaic_picture(mosaic.get(), static_cast<std::int64_t>(i), &picture));
        const PanovalMosaicPicture now = PictureFiles::describe(plan, i);
        if (now.width != picture.width || now.height != picture.height || now.channels != picture.channels ||
            now.bits != picture.bits || now.has_mask != picture.has_mask || now.has_keep != picture.has_keep ||
            (told.wraps == 0 && (now.x != picture.x || now.y != picture.y)))
            fail_input(options.plan,
                       concat("another place or kind of '", printable(plan.layers[i].name()), "' in its files"),
                       "what its canvas says");
    }
}

// The plan's text with the seams of its file: around the tiles that are wanted, of all where all is looked at, and of
// nothing where no pixel is made.
std::string PanoramaJob::with_seams(const std::string& text, const nlohmann::json& json) const
{
    const PlanSeams place = seams_of_plan(options.plan, json);
    SeamSelection selection(place.grid, place.wraps);
    const bool is_all_needed = options.tiles.empty() || !options.save_seams.empty();
    if (!options.is_dry_run && is_all_needed) {
        selection.add({0, 0, place.grid.width, place.grid.height}, 0);
    } else if (!options.is_dry_run) {
        PanovalMosaicLayout canvas{};
        canvas.width = place.grid.width;
        canvas.height = place.grid.height;
        const auto part = crop_of_plan(options.plan, json, canvas);
        const OutputTiles tiles{part.value_or(PanovalMosaicRect{0, 0, canvas.width, canvas.height}), place.tile_width,
                                place.tile_height};
        for (const std::int64_t tile : parse_tiles(options.tiles, tiles.count()))
            selection.add(tiles.rect(tile), panoval_mosaic_reach(place.bands));
    }
    const std::string seams_text = read_seam_file(place.file, place.grid, place.id, selection);
    return text.substr(0, text.rfind('}')) + ",\"seams\":\"" + seams_text + "\"}";
}

void PanoramaJob::measure(PictureFiles& files)
{
    const PanovalMosaicHost host = files.host();
    mosaic.check(panoval_mosaic_set_host(mosaic.get(), &host));
    // Of a single tile nobody asks whether the whole panorama is good, of a plan only who is strict.
    const bool is_part = !options.tiles.empty() || options.resumes || (options.is_plan_only && !options.is_strict);
    const int parts = is_part || options.is_unjudged ? PANOVAL_MOSAIC_MEASURE_SEAMS : PANOVAL_MOSAIC_MEASURE_ALL;
    const std::int32_t code = panoval_mosaic_measure(mosaic.get(), parts);
    files.rethrow();
    mosaic.check(code);
    if (options.finds_crop())
        crop = find_crop(*this, files);
    if (!metadata && (options.is_plan_only || options.makes_store()))
        metadata = files.metadata(true).common();
    if (id.empty() && options.makes_store())
        id = id_of_plan(plan_json(options.output));
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
    const std::int32_t code = panoval_mosaic_verdict(mosaic.get(), 1, &text, nullptr);
    if (code == PANOVAL_MOSAIC_ARGUMENT) // none was measured
        return Json::object();
    mosaic.check(code);
    return Json::parse(text);
}

Json PanoramaJob::plan_json(const std::string& name) const
{
    const char* text = nullptr;
    std::size_t size = 0;
    mosaic.check(panoval_mosaic_save_plan(mosaic.get(), &text, &size));
    Json json = Json::parse(text, text + size);
    json["files"] = files_for_plan(plan, name);
    if (metadata)
        json["metadata"] = image::json_of(*metadata);
    if (crop)
        json["crop"] = {{"x", crop->x}, {"y", crop->y}, {"width", crop->width}, {"height", crop->height}};
    return json;
}

} // namespace panoval::cli
