// SPDX-License-Identifier: MIT
#include "cli/stitch.h"

#include "cli/colour_profiles.h"
#include "cli/errors.h"
#include "cli/image_write.h"
#include "cli/overlap_quality.h"
#include "cli/panorama_blender.h"
#include "cli/panorama_gains.h"
#include "cli/panorama_plan.h"
#include "cli/report_page.h"
#include "cli/system_info.h"
#include "cli/uncovered_fill.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <limits>

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
    return options.depth != 0 ? options.depth : std::min(plan.bits, most_bits_of(options.output));
}

void refuse_to_overwrite(const PanoramaPlan& plan, const std::string& output)
{
    for (const PlacedLayer& layer : plan.layers)
        if (is_same_file(layer.file, output) || (!layer.mask.empty() && is_same_file(layer.mask, output)))
            fail_output(output, "a file that is also an input", "another name");
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
    bool has_measured_gains = false;
    std::vector<double> gains;
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
    for (const std::string& output : {options.output, options.gains, options.report})
        if (!output.empty())
            refuse_to_overwrite(plan, output);
    return preparation;
}

// The pass over the overlaps, if anybody wants what it finds.
void measure(const StitchOptions& options, Preparation& preparation, Progress& progress)
{
    const bool has_gains_file = !options.gains.empty() && file_exists(options.gains);
    const bool wants_quality = (!options.report.empty() || options.common.wants_json) && !preparation.overlaps.empty();
    preparation.gains.assign(preparation.plan.layers.size(), 1.0);
    GainPass pass;
    pass.wants_gains = !options.has_no_gain && !has_gains_file && !preparation.overlaps.empty();
    std::vector<OverlapCounts> counts;
    if (wants_quality) {
        pass.observer_bytes = OverlapCounts::kBytes * preparation.overlaps.size();
        pass.observe = [&](const Overlap& overlap, const Image& first, const Image& second) {
            counts.emplace_back(overlap, preparation.plan, first, second);
        };
    }
    if (pass.wants_gains || wants_quality)
        preparation.gains =
            run_gain_pass(preparation.plan, preparation.overlaps, preparation.working_bits, pass, progress);
    if (has_gains_file)
        preparation.gains = load_gains(options.gains, preparation.plan);
    preparation.has_measured_gains = !options.has_no_gain && !has_gains_file;
    for (std::size_t i = 0; i < counts.size(); ++i)
        preparation.quality.push_back(counts[i].quality(preparation.gains[preparation.overlaps[i].first],
                                                        preparation.gains[preparation.overlaps[i].second]));
}

std::unique_ptr<PanoramaBlender> make_blender(const StitchOptions& options, const Preparation& preparation)
{
    if (options.blend == "feather")
        return make_feather_blender(preparation.plan, options.output);
    return make_multi_band_blender(preparation.plan, preparation.bands, options.output);
}

Image blend(const StitchOptions& options, const Preparation& preparation, ColourProfiles& profiles, Progress& progress)
{
    const PanoramaPlan& plan = preparation.plan;
    const auto blender = make_blender(options, preparation);
    std::unique_ptr<Coverage> coverage;
    if (options.wants_alpha)
        coverage = std::make_unique<Coverage>(plan, options.output);
    for (std::size_t i = 0; i < plan.layers.size(); ++i) {
        progress.step(plan.layers[i].name());
        Image image = load_layer(plan.layers[i], preparation.working_bits);
        profiles.add(image, plan.layers[i].name());
        if (preparation.gains[i] != 1.0)
            apply_gain(image, preparation.gains[i]);
        if (options.blend == "multiband")
            fill_uncovered(image);
        blender->feed(plan.layers[i], image);
        if (coverage != nullptr)
            coverage->add(image, plan.layers[i].corner);
    }
    progress.step(options.output);
    Image panorama = blender->blend(preparation.working_bits);
    convert_depth(panorama, preparation.bits, options.output);
    panorama.profile = profiles.common();
    if (coverage != nullptr) {
        panorama.mask = coverage->release();
        panorama.has_alpha = true;
    }
    return panorama;
}

std::string blend_in_words(const StitchOptions& options, const Preparation& preparation)
{
    return options.blend == "feather" ? "feathered" : concat("multi-band, ", preparation.bands, " bands at most");
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
    return options.gains.empty() ? range
                                 : concat(range, preparation.has_measured_gains ? ", saved in " : ", loaded from ",
                                          printable(options.gains));
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
    (void)most_bits_of(options.output); // an unknown ending is known at once
    Preparation preparation = prepare(options);
    OutputFile output(options.output);
    std::unique_ptr<OutputFile> report;
    if (!options.report.empty())
        report = std::make_unique<OutputFile>(options.report);
    ColourProfiles profiles;
    {
        const std::size_t steps = gain_pass_steps(preparation.plan) + preparation.plan.layers.size() + 1;
        Progress progress(options.common.progress_mode(), "stitching", steps);
        measure(options, preparation, progress);
        const Image panorama = blend(options, preparation, profiles, progress);
        write_image(output, panorama);
        if (report != nullptr)
            report->write(report_page({preparation.plan, preparation.gains, preparation.quality, panorama,
                                       options.output, blend_in_words(options, preparation)}));
    }
    if (!options.gains.empty() && preparation.has_measured_gains)
        save_gains(options.gains, preparation.plan, preparation.gains);
    output.commit();
    if (report != nullptr)
        report->commit();
    profiles.warn(options.common);
    print_outcome(options, preparation, stopwatch.seconds());
}

} // namespace panoval::cli
