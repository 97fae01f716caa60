// SPDX-License-Identifier: MIT
#include "cli/stitch/stitch.h"

#include "cli/base/errors.h"
#include "cli/base/file_names.h"
#include "cli/base/parallel.h"
#include "cli/base/system_info.h"
#include "cli/stitch/canvas_tiles.h"
#include "cli/stitch/overlap_quality.h"
#include "cli/stitch/panorama_blender.h"
#include "cli/stitch/panorama_gains.h"
#include "cli/stitch/panorama_plan.h"
#include "cli/stitch/picture_store.h"
#include "cli/stitch/report_page.h"
#include "cli/stitch/tile_collector.h"
#include "cli/stitch/uncovered_fill.h"
#include "image/image_write.h"
#include "image/metadata.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <limits>
#include <mutex>
#include <utility>

namespace panoval::cli
{

namespace
{

std::vector<PlacedInput> inputs_of(const StitchOptions& options)
{
    if (!options.layout.empty())
        return read_layout(options.layout);
    std::vector<PlacedInput> inputs;
    for (const std::string& argument : options.inputs)
        inputs.push_back(parse_placed_input(argument));
    return inputs;
}

int output_bits(const StitchOptions& options, const PanoramaPlan& plan)
{
    return options.depth != 0 ? options.depth : std::min(plan.bits, output_format_of(options.output).most_bits);
}

void check_outputs(const StitchOptions& options, const PanoramaPlan& plan)
{
    std::vector<std::string> inputs = {options.layout};
    for (const PlacedLayer& layer : plan.layers) {
        inputs.push_back(layer.file);
        inputs.push_back(layer.mask);
    }
    refuse_to_overwrite(options.output, inputs);
    refuse_to_overwrite(options.gains, inputs);
    refuse_to_overwrite(options.report, inputs);
    refuse_one_name({options.output, options.gains, options.report});
}

// Where the canvas is covered: at each pixel the largest value of any picture's mask.
class Coverage
{
public:
    Coverage(const PanoramaPlan& plan, const std::string& output)
        : width_(static_cast<std::size_t>(plan.width)),
          mask_(allocate_block(width_ * static_cast<std::size_t>(plan.height), output))
    {
        std::memset(mask_.get(), 0, width_ * static_cast<std::size_t>(plan.height));
    }

    void add(const Image& image, Point corner)
    {
        const auto width = static_cast<std::size_t>(image.width);
        for (std::int32_t y = 0; y < image.height; ++y) {
            const std::uint8_t* const from = image.mask.get() + static_cast<std::size_t>(y) * width;
            std::uint8_t* const to =
                mask_.get() + static_cast<std::size_t>(corner.y + y) * width_ + static_cast<std::size_t>(corner.x);
            for (std::size_t x = 0; x < width; ++x)
                to[x] = std::max(to[x], from[x]);
        }
    }

    Block release() { return std::move(mask_); }

private:
    std::size_t width_;
    Block mask_;
};

// Everything that is known before the pictures are blended.
struct Preparation {
    PanoramaPlan plan;
    std::vector<Overlap> overlaps;
    int bits = 0;         // of the panorama
    int working_bits = 0; // of the pictures as they are blended
    int bands = 0;
    CanvasGrid grid;
    bool holds_pictures = false;         // all at once, so that each is read once
    bool writes_rows = false;            // of tiles as they come, so that the panorama never is in memory
    bool measures_gains = false;         // neither switched off nor in a file that exists
    std::vector<double> gains;           // loaded, or 1 until they are measured
    std::vector<OverlapQuality> quality; // where the report or JSON wants it
};

// The most bands for which eight structures of the coarsest one fit the narrowest overlap.
int bands_for(const StitchOptions& options, const std::vector<Overlap>& overlaps)
{
    constexpr int kMost = 7;
    if (options.bands != 0)
        return options.bands;
    std::int32_t narrowest = std::numeric_limits<std::int32_t>::max();
    for (const Overlap& overlap : overlaps)
        narrowest = std::min({narrowest, overlap.region.width, overlap.region.height});
    int bands = 1; // enough where nothing overlaps
    while (!overlaps.empty() && bands < kMost && (8 << (bands + 1)) <= narrowest)
        ++bands;
    return bands;
}

// Whether all pictures fit into memory decides how the canvas is blended.
void plan_memory(const StitchOptions& options, Preparation& preparation)
{
    const PanoramaPlan& plan = preparation.plan;
    const int bits = preparation.working_bits;
    preparation.grid = cut_canvas(plan, preparation.bands, 1, 1);
    if (options.blend != "multiband")
        return;
    // Tiles go into the file at once where the panorama is wanted nowhere else, and as it is.
    const bool writes_rows = output_format_of(options.output).kind == FileKind::Tiff && preparation.bits == bits &&
                             !options.wants_alpha && options.report.empty();
    const std::uint64_t panorama_bytes = static_cast<std::uint64_t>(plan.width) *
                                         static_cast<std::uint64_t>(plan.height) *
                                         static_cast<std::uint64_t>(plan.channels * (bits / 8));
    const std::uint64_t bytes = PictureStore(plan, bits).bytes_of_all() + (writes_rows ? 0 : panorama_bytes);
    const auto grid = grid_within_budget(plan, preparation.bands, bits, bytes, parallel_calls());
    if (!grid)
        return;
    preparation.holds_pictures = true;
    preparation.writes_rows = writes_rows;
    preparation.grid = *grid;
}

void prepare_gains(const StitchOptions& options, Preparation& preparation)
{
    const bool has_file = !options.gains.empty() && file_exists(options.gains);
    preparation.measures_gains = !options.has_no_gain && !has_file;
    preparation.gains.assign(preparation.plan.layers.size(), 1.0);
    if (has_file)
        preparation.gains = load_gains(options.gains, preparation.plan);
}

Preparation prepare(const StitchOptions& options)
{
    Preparation preparation;
    preparation.plan = plan_panorama(inputs_of(options));
    const PanoramaPlan& plan = preparation.plan;
    preparation.bits = output_bits(options, plan);
    preparation.working_bits = std::max(plan.bits, preparation.bits);
    check_output_format(options.output, plan.channels, preparation.bits, options.wants_alpha);
    check_canvas(plan, preparation.working_bits);
    preparation.overlaps = find_overlaps(plan);
    preparation.bands = bands_for(options, preparation.overlaps);
    plan_memory(options, preparation);
    check_outputs(options, plan);
    prepare_gains(options, preparation);
    return preparation;
}

// What the first pass may hold in pictures: the blender's floats take more later on.
std::uint64_t first_pass_budget(const PanoramaPlan& plan, std::uint64_t other_bytes)
{
    const std::uint64_t all = multi_band_bytes(plan) / 4 * 3;
    return all - std::min(all, other_bytes);
}

// The pass over the overlaps, if anybody wants what it finds.
void measure(const StitchOptions& options, Preparation& preparation, PictureStore& store, Progress& progress)
{
    const bool wants_quality = (!options.report.empty() || options.common.wants_json) && !preparation.overlaps.empty();
    GainPass pass;
    pass.wants_gains = preparation.measures_gains && !preparation.overlaps.empty();
    std::vector<OverlapCounts> counts;
    if (!preparation.holds_pictures)
        store.set_budget(
            first_pass_budget(preparation.plan,
                              wants_quality ? OverlapCounts::kUsualBytes * preparation.overlaps.size() : 0),
            2);
    if (wants_quality) {
        pass.observe = [&](const Overlap& overlap, const Image& first, const Image& second) {
            counts.emplace_back(overlap, preparation.plan, first, second);
        };
    }
    if (pass.wants_gains || wants_quality) {
        auto measured = run_gain_pass(preparation.plan, preparation.overlaps, store, pass, progress);
        if (pass.wants_gains)
            preparation.gains = std::move(measured);
    }
    for (std::size_t i = 0; i < counts.size(); ++i)
        preparation.quality.push_back(counts[i].quality(preparation.gains[preparation.overlaps[i].first],
                                                        preparation.gains[preparation.overlaps[i].second]));
}

std::unique_ptr<PanoramaBlender> make_blender(const StitchOptions& options, const Preparation& preparation,
                                              const CanvasTile& tile)
{
    if (options.blend == "feather")
        return make_feather_blender(preparation.plan, options.output);
    return make_multi_band_blender(preparation.plan, tile, preparation.bands, options.output);
}

// What pictures are blended as.
void prepare_pictures(const StitchOptions& options, const Preparation& preparation, PictureStore& store)
{
    store.prepare_with([&options, &preparation](std::size_t index, Image& image) {
        if (preparation.gains[index] != 1.0)
            apply_gain(image, preparation.gains[index]);
        if (options.blend == "multiband")
            fill_uncovered(image);
    });
}

// Everything that pictures leave in the panorama besides their pixels.
struct PanoramaExtras {
    CommonMetadata& profiles;
    std::unique_ptr<Coverage> coverage; // where it is wanted

    void add(const PlacedLayer& layer, const Image& image)
    {
        profiles.add(image.metadata, layer.name());
        if (coverage != nullptr)
            coverage->add(image, layer.corner);
    }
};

// The whole canvas at once; pictures come and go.
Image blend_one_by_one(const StitchOptions& options, const Preparation& preparation, PictureStore& store,
                       PanoramaExtras& extras, Progress& progress)
{
    const PanoramaPlan& plan = preparation.plan;
    store.set_budget(memory_budget(plan) - multi_band_bytes(plan), 1);
    const auto blender = make_blender(options, preparation, preparation.grid.tile(0));
    for (std::size_t i = 0; i < plan.layers.size(); ++i) {
        progress.step(plan.layers[i].name());
        const auto image = store.get(i);
        extras.add(plan.layers[i], *image);
        blender->feed(plan.layers[i], *image);
        store.drop(i);
    }
    return blender->blend(preparation.working_bits);
}

using Blenders = std::vector<std::unique_ptr<PanoramaBlender>>; // one for each tile, or null

// The pass over the overlaps, and meanwhile the blenders of the tiles that come first: the system takes its time over
// their memory.
Blenders measure_and_open_blenders(const StitchOptions& options, Preparation& preparation, PictureStore& store,
                                   Progress& progress)
{
    keep_freed_blocks(); // those of a tile, for the next one
    Blenders blenders(preparation.grid.size());
    run_in_parallel(1 + std::min(blenders.size(), parallel_calls()), [&](std::size_t task) {
        if (task == 0)
            measure(options, preparation, store, progress);
        else
            blenders[task - 1] = make_blender(options, preparation, preparation.grid.tile(task - 1));
    });
    return blenders;
}

// All pictures are in memory; tiles of the canvas come and go. Empty if the panorama has been written to the output.
Image blend_in_tiles(const StitchOptions& options, const Preparation& preparation, Blenders blenders,
                     PictureStore& store, PanoramaExtras& extras, OutputFile& output, Progress& progress)
{
    const PanoramaPlan& plan = preparation.plan;
    store.prepare_all();
    std::vector<std::shared_ptr<const Image>> images;
    for (std::size_t i = 0; i < plan.layers.size(); ++i) {
        images.push_back(store.get(i));
        extras.add(plan.layers[i], *images.back());
        store.drop(i);
    }
    Image header;
    header.width = plan.width;
    header.height = plan.height;
    header.channels = plan.channels;
    header.bits = preparation.working_bits;
    header.metadata.profile = extras.profiles.common().profile;
    auto writer = preparation.writes_rows ? make_row_writer(output, output_format_of(options.output), header) : nullptr;
    TileCollector collector(preparation.grid, std::move(header), std::move(writer), options.output);
    std::mutex progress_mutex;
    run_in_parallel(preparation.grid.size(), [&](std::size_t index) {
        auto blender = std::move(blenders[index]);
        if (blender == nullptr)
            blender = make_blender(options, preparation, preparation.grid.tile(index));
        for (std::size_t i = 0; i < images.size(); ++i) {
            {
                const std::lock_guard lock(progress_mutex);
                progress.step(plan.layers[i].name());
            }
            blender->feed(plan.layers[i], *images[i]);
        }
        Image blended = blender->blend(preparation.working_bits);
        blender.reset();
        collector.put(index, std::move(blended));
    });
    return collector.finish();
}

// Empty if the panorama has been written to the output.
Image blend(const StitchOptions& options, const Preparation& preparation, Blenders blenders, PictureStore& store,
            CommonMetadata& profiles, OutputFile& output, Progress& progress)
{
    PanoramaExtras extras{profiles, nullptr};
    if (options.wants_alpha)
        extras.coverage = std::make_unique<Coverage>(preparation.plan, options.output);
    prepare_pictures(options, preparation, store);
    Image panorama = preparation.holds_pictures
                         ? blend_in_tiles(options, preparation, std::move(blenders), store, extras, output, progress)
                         : blend_one_by_one(options, preparation, store, extras, progress);
    progress.step(options.output);
    if (panorama.data == nullptr)
        return panorama;
    convert_depth(panorama, preparation.bits, options.output);
    panorama.metadata.profile = profiles.common().profile;
    if (extras.coverage != nullptr) {
        panorama.mask = extras.coverage->release();
        panorama.has_alpha = true;
    }
    return panorama;
}

std::string blend_in_words(const StitchOptions& options, const Preparation& preparation)
{
    return options.blend == "feather"
               ? "feathered"
               : concat("multi-band, ", preparation.bands, preparation.bands == 1 ? " band" : " bands", " at most");
}

Json json_of(const Differences& differences)
{
    return {{"mean", differences.mean},
            {"signed_mean", differences.signed_mean},
            {"median", differences.median},
            {"percentile_95", differences.percentile_95},
            {"distribution", differences.distribution}};
}

Json json_of(const Preparation& preparation)
{
    const PanoramaPlan& plan = preparation.plan;
    Json pictures = Json::array();
    for (std::size_t i = 0; i < plan.layers.size(); ++i) {
        const PlacedLayer& layer = plan.layers[i];
        pictures.push_back({{"file", layer.file},
                            {"layer", layer.layer},
                            {"x", layer.position.x},
                            {"y", layer.position.y},
                            {"width", layer.info.width},
                            {"height", layer.info.height},
                            {"gain", preparation.gains[i]}});
    }
    Json overlaps = Json::array();
    for (const OverlapQuality& quality : preparation.quality) {
        const Roi& region = quality.overlap.region;
        overlaps.push_back({{"first", quality.overlap.first},
                            {"second", quality.overlap.second},
                            {"x", plan.origin.x + region.x},
                            {"y", plan.origin.y + region.y},
                            {"width", region.width},
                            {"height", region.height},
                            {"shared_pixels", quality.shared_pixels},
                            {"before", json_of(quality.before)},
                            {"after", json_of(quality.after)},
                            {"verdict", name_of(quality.verdict)},
                            {"explanation", quality.explanation}});
    }
    const auto suspect = find_suspect(plan, preparation.quality);
    return {{"pictures", pictures}, {"overlaps", overlaps}, {"suspect", suspect ? Json(*suspect) : Json(nullptr)}};
}

std::string gains_in_words(const StitchOptions& options, const Preparation& preparation)
{
    if (options.has_no_gain)
        return "none";
    const auto [least, most] = std::minmax_element(preparation.gains.begin(), preparation.gains.end());
    const std::string range = concat(fixed(*least, 3), " to ", fixed(*most, 3));
    return options.gains.empty()
               ? range
               : concat(range, preparation.measures_gains ? ", saved in " : ", loaded from ", printable(options.gains));
}

void print_outcome(const StitchOptions& options, const Preparation& preparation, double seconds)
{
    const PanoramaPlan& plan = preparation.plan;
    const double speed = plan.megapixels() / std::max(seconds, 1e-9);
    const std::uint64_t memory = peak_memory_bytes();
    const bool is_multi_band = options.blend == "multiband";
    Json json = {{"output", options.output},
                 {"width", plan.width},
                 {"height", plan.height},
                 {"channels", plan.channels},
                 {"bits", preparation.bits},
                 {"alpha", options.wants_alpha},
                 {"x", plan.origin.x},
                 {"y", plan.origin.y},
                 {"blend", options.blend},
                 {"bands", is_multi_band ? Json(preparation.bands) : Json(nullptr)},
                 {"images", plan.layers.size()},
                 {"seconds", seconds},
                 {"megapixels_per_second", speed},
                 {"peak_memory_bytes", memory}};
    json.update(json_of(preparation));
    ResultLines lines = {{"panorama", printable(options.output)},
                         {"size", concat(plan.width, " x ", plan.height, " pixels, ", plan.channels,
                                         plan.channels == 1 ? " channel" : " channels",
                                         options.wants_alpha ? " and alpha, " : ", ", preparation.bits, " bit")},
                         {"images", concat(plan.layers.size())},
                         {"gains", gains_in_words(options, preparation)},
                         {"blending", blend_in_words(options, preparation)},
                         {"time", concat(fixed(seconds, 2), " s, ", fixed(speed, 1), " MP/s")},
                         {"memory", concat(fixed(1e-6 * static_cast<double>(memory), 0), " MB at most")}};
    if (!options.report.empty())
        lines.emplace_back("report", printable(options.report));
    print_results(options.common, json, lines);
}

} // namespace

void stitch(const StitchOptions& options)
{
    const Stopwatch stopwatch;
    (void)output_format_of(options.output); // an unknown ending is known at once
    Preparation preparation = prepare(options);
    OutputFile output(options.output);
    std::unique_ptr<OutputFile> report;
    if (!options.report.empty())
        report = std::make_unique<OutputFile>(options.report);
    std::unique_ptr<OutputFile> gains;
    if (!options.gains.empty() && preparation.measures_gains)
        gains = std::make_unique<OutputFile>(options.gains);
    CommonMetadata profiles;
    {
        const std::size_t steps =
            gain_pass_steps(preparation.plan) + preparation.grid.size() * preparation.plan.layers.size() + 1;
        Progress progress(options.common.progress_mode(), "stitching", steps);
        PictureStore store(preparation.plan, preparation.working_bits);
        Blenders blenders;
        if (preparation.holds_pictures) {
            store.load_all();
            blenders = measure_and_open_blenders(options, preparation, store, progress);
        } else {
            measure(options, preparation, store, progress);
        }
        const Image panorama = blend(options, preparation, std::move(blenders), store, profiles, output, progress);
        if (panorama.data != nullptr)
            write_image(output, panorama);
        if (report != nullptr)
            report->write(report_page({preparation.plan, preparation.gains, preparation.quality, panorama,
                                       options.output, blend_in_words(options, preparation)}));
    }
    if (gains != nullptr)
        write_gains(*gains, preparation.plan, preparation.gains);
    output.commit();
    if (gains != nullptr)
        gains->commit();
    if (report != nullptr)
        report->commit();
    if (const std::string disagreement = profiles.disagreement(); !disagreement.empty())
        print_warning(options.common, disagreement);
    print_outcome(options, preparation, stopwatch.seconds());
}

} // namespace panoval::cli
