// SPDX-License-Identifier: MIT
#include "cli/stitch/stitch_results.h"

#include "cli/base/errors.h"
#include "cli/base/system_info.h"
#include "cli/stitch/plan_cost.h"

#include <algorithm>
#include <cstdio>

namespace panoval::cli
{

namespace
{

std::string megabytes(std::uint64_t bytes)
{
    return concat(fixed(1e-6 * static_cast<double>(bytes), 0), " MB");
}

std::string size_in_words(const PanoramaJob& job, const PanovalMosaicRect& made)
{
    const PanovalMosaicLayout& layout = job.layout;
    return concat(made.width, " x ", made.height, " pixels, ", layout.channels,
                  layout.channels == 1 ? " channel" : " channels", job.options.wants_alpha ? " and alpha, " : ", ",
                  layout.bits, " bit");
}

std::string gains_in_words(const StitchOutcome& outcome)
{
    const StitchOptions& options = outcome.job.options;
    if (!outcome.job.has_gains)
        return "none";
    double least = outcome.gains.pictures.front()[0];
    double most = least;
    for (const auto& gains : outcome.gains.pictures)
        for (int c = 0; c < outcome.job.layout.channels; ++c) {
            least = std::min(least, gains[static_cast<std::size_t>(c)]);
            most = std::max(most, gains[static_cast<std::size_t>(c)]);
        }
    std::string text = concat(fixed(least, 3), " to ", fixed(most, 3));
    if (outcome.gains.per_channel)
        text += ", one a channel: the white balance differs";
    if (outcome.gains.falloff != std::array<double, 3>{})
        text += ", vignetting taken out";
    if (!options.gains.empty())
        text += concat(outcome.job.saves_gains ? ", saved in " : ", as in ", printable(options.gains));
    return text;
}

Json json_of_pictures(const StitchOutcome& outcome)
{
    const PanoramaPlan& plan = outcome.job.plan;
    Json pictures = Json::array();
    for (std::size_t i = 0; i < plan.layers.size(); ++i) {
        const PlacedLayer& layer = plan.layers[i];
        Json picture = {{"file", layer.file},
                        {"layer", layer.layer},
                        {"x", layer.position.x},
                        {"y", layer.position.y},
                        {"width", layer.info.width},
                        {"height", layer.info.height},
                        {"gain", outcome.gains.of_picture(i, plan.channels)}};
        if (outcome.gains.per_channel)
            picture["gains"] = std::vector<double>(outcome.gains.pictures[i].begin(),
                                                   outcome.gains.pictures[i].begin() + plan.channels);
        pictures.push_back(picture);
    }
    return pictures;
}

// What today's readers of the JSON know, and all that the verdict has besides.
void add_verdict(const StitchOutcome& outcome, Json& json)
{
    Json verdict = outcome.verdict;
    Json suspect = nullptr;
    if (!outcome.job.options.wants_distributions && verdict.contains("overlaps"))
        for (Json& overlap : verdict["overlaps"])
            for (const char* const when : {"before", "after"})
                overlap[when].erase("distribution");
    if (verdict.contains("misfits") && !verdict["misfits"].empty() && !verdict["reasons"].empty())
        suspect = verdict["reasons"][0];
    json.update(verdict);
    json["suspect"] = suspect;
}

Json json_of_engine(const StitchOutcome& outcome)
{
    const PanoramaJob& job = outcome.job;
    PanovalMosaicCounts counts{};
    job.mosaic.check(panoval_mosaic_counts(job.mosaic.get(), &counts));
    return {{"tiles", job.layout.tiles},
            {"tile_width", job.layout.tile_width},
            {"tile_height", job.layout.tile_height},
            {"overlapping_pairs", job.layout.overlaps},
            {"decodes_per_picture", outcome.decodes / static_cast<double>(job.layout.pictures)},
            {"scratch_bytes", counts.scratch_bytes},
            {"engine_memory_bytes", counts.largest_memory}};
}

} // namespace

std::string blend_in_words(const PanoramaJob& job)
{
    if (job.feathers())
        return "feathered";
    const int bands = job.layout.bands;
    return concat("multi-band, ", bands, bands == 1 ? " band" : " bands", " at most, ",
                  job.has_seams() ? job.seams + " seams" : "no seams");
}

void print_outcome(const StitchOutcome& outcome)
{
    const PanoramaJob& job = outcome.job;
    const StitchOptions& options = job.options;
    const PanovalMosaicRect& made = outcome.made;
    const double pixels = static_cast<double>(made.width) * static_cast<double>(made.height);
    const double speed = 1e-6 * pixels / std::max(outcome.seconds, 1e-9);
    const std::uint64_t memory = peak_memory_bytes();
    Json json = {{"output", options.output},
                 {"width", made.width},
                 {"height", made.height},
                 {"channels", job.layout.channels},
                 {"bits", job.layout.bits},
                 {"alpha", options.wants_alpha},
                 {"x", job.layout.origin_x + made.x},
                 {"y", job.layout.origin_y + made.y},
                 {"blend", job.blend},
                 {"seams", job.has_seams() ? job.seams : kNoSeams},
                 {"bands", job.feathers() ? Json(nullptr) : Json(job.layout.bands)},
                 {"images", job.plan.layers.size()},
                 {"seconds", outcome.seconds},
                 {"megapixels_per_second", speed},
                 {"peak_memory_bytes", memory},
                 {"gains_per", outcome.gains.per_channel ? "channel" : "picture"},
                 {"falloff", outcome.gains.falloff}};
    json.update(json_of_engine(outcome));
    json["pictures"] = json_of_pictures(outcome);
    add_verdict(outcome, json);
    ResultLines lines = {{"panorama", printable(options.output)},
                         {"size", size_in_words(job, made)},
                         {"images", concat(job.plan.layers.size())},
                         {"gains", gains_in_words(outcome)},
                         {"blending", blend_in_words(job)},
                         {"time", concat(fixed(outcome.seconds, 2), " s, ", fixed(speed, 1), " MP/s")},
                         {"memory", concat(megabytes(memory), " at most")}};
    if (!options.report.empty())
        lines.emplace_back("report", printable(options.report));
    if (!options.save_seams.empty())
        lines.emplace_back("seams", printable(options.save_seams));
    print_results(options.common, json, lines);
}

void print_estimate(const PanoramaJob& job)
{
    PanovalMosaicEstimate estimate{};
    job.mosaic.check(panoval_mosaic_estimate(job.mosaic.get(), &estimate));
    const PanovalMosaicLayout& layout = job.layout;
    const OutputTiles tiles = output_tiles(job);
    const std::string& list = job.options.tiles;
    const PlanCost cost =
        cost_of(job, tiles, list.empty() ? std::vector<std::int64_t>() : parse_tiles(list, tiles.count()));
    const std::uint64_t seam_memory = job.mosaic.needs().seam_memory;
    const std::uint64_t task_memory = estimate.memory - (job.counts_tasks() ? seam_memory : 0);
    const std::uint64_t least_memory = job.mosaic.with_beside(estimate.least_memory);
    const double reads = static_cast<double>(cost.picture_reads) / static_cast<double>(layout.pictures);
    const Json json = {{"width", layout.width},
                       {"height", layout.height},
                       {"channels", layout.channels},
                       {"bits", layout.bits},
                       {"x", layout.origin_x},
                       {"y", layout.origin_y},
                       {"images", layout.pictures},
                       {"overlapping_pairs", layout.overlaps},
                       {"bands", job.feathers() ? Json(nullptr) : Json(layout.bands)},
                       {"tiles", tiles.count()},
                       {"tile_width", layout.tile_width},
                       {"tile_height", layout.tile_height},
                       {"threads", estimate.threads},
                       {"memory_bytes", estimate.memory},
                       {"seam_bytes", seam_memory},
                       {"least_memory_bytes", least_memory},
                       {"scratch_bytes", estimate.scratch_file},
                       {"panorama_bytes", estimate.panorama_bytes},
                       {"decodes_per_picture", estimate.decodes},
                       {"processor_seconds", estimate.seconds},
                       {"tasks",
                        {{"count", cost.tiles},
                         {"memory_bytes", task_memory},
                         {"picture_reads", cost.picture_reads},
                         {"bytes_read", cost.read_bytes},
                         {"bytes_decoded", cost.decoded_bytes},
                         {"bytes_written", cost.written_bytes},
                         {"core_hours", cost.hours()},
                         {"core_hours_blending", cost.blending_hours},
                         {"core_hours_reading", cost.reading_hours},
                         {"core_hours_writing", cost.writing_hours}}}};
    const ResultLines lines = {
        {"size", size_in_words(job, job.region())},
        {"images", concat(layout.pictures, ", ", layout.overlaps, layout.overlaps == 1 ? " overlap" : " overlaps")},
        {"blending", blend_in_words(job)},
        {"tiles", concat(tiles.count(), " of ", layout.tile_width, " x ", layout.tile_height, " pixels on ",
                         estimate.threads, estimate.threads == 1 ? " thread" : " threads")},
        {"memory",
         concat(megabytes(task_memory), task_memory < least_memory ? " for a tile by itself" : "", ", ",
                megabytes(least_memory), " at least", task_memory < least_memory ? " for all in one run" : "")},
        {"disk", concat(megabytes(estimate.panorama_bytes), " of samples, ", megabytes(estimate.scratch_file),
                        " in a temporary file")},
        {"time",
         concat("about ", fixed(estimate.seconds, 1), " s of one processor, besides reading and writing files")},
        {"as tasks",
         concat(cost.tiles, cost.tiles == 1 ? " tile by itself" : " tiles, each by itself", ": ",
                fixed(cost.hours(), 2), " hours of a core, ", megabytes(cost.read_bytes), " read (", fixed(reads, 1),
                " times each picture), ", megabytes(cost.written_bytes), " written before compression")}};
    print_results(job.options.common, json, lines);
}

void print_verdict(const StitchOptions& options, const Json& verdict)
{
    if (options.common.is_quiet || options.common.wants_json || !verdict.contains("verdict"))
        return;
    std::string line = concat("panoval: verdict: ", verdict["verdict"].get<std::string>());
    if (!verdict["reasons"].empty())
        line += concat(" - ", printable(verdict["reasons"][0].get<std::string>(), 1000));
    std::fprintf(stderr, "%s\n", line.c_str());
}

} // namespace panoval::cli
