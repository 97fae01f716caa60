// SPDX-License-Identifier: MIT
#include "cli/stitch/store_output.h"

#include "cli/base/errors.h"
#include "cli/base/system_info.h"
#include "image/files.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <numeric>

namespace panoval::cli
{

namespace
{

// What is replaced must be a store. One that is filled in its place is looked at when it is begun: somebody else may
// just be beginning it.
void check_target(const std::string& target, bool is_replaced)
{
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path place = path_from_utf8(target);
    if (is_replaced && fs::is_directory(place, error) && !fs::is_empty(place, error) &&
        !fs::exists(place / ".zgroup", error))
        fail_output(target, "a folder that is no store", "another name");
    const fs::path folder = place.parent_path();
    if (!folder.empty() && !fs::is_directory(folder, error))
        fail_output(target, "no folder " + utf8_from_path(folder), "an existing one");
}

// Without a slash at the end.
std::string name_of_folder(std::string name)
{
    while (name.size() > 1 && (name.back() == '/' || name.back() == '\\'))
        name.pop_back();
    return name;
}

std::vector<std::int64_t> numbers_of(const StitchOptions& options, const OutputTiles& tiles)
{
    if (!options.tiles.empty())
        return parse_tiles(options.tiles, tiles.count());
    std::vector<std::int64_t> all(static_cast<std::size_t>(tiles.count()));
    std::iota(all.begin(), all.end(), 0);
    return all;
}

} // namespace

StoreOutput::StoreOutput(const StitchOptions& options)
    : options_(options), is_in_place_(!options.tiles.empty() || options.resumes)
{
    const std::string target = name_of_folder(options.output);
    check_target(target, !is_in_place_);
    if (!is_in_place_)
        folder_ = std::make_unique<image::OutputFolder>(path_from_utf8(target), options.output);
}

void StoreOutput::make(PanoramaJob& job, PictureFiles& files, const std::function<void(double)>& progress)
{
    const OutputTiles tiles = output_tiles(job);
    TileOrders orders;
    orders.numbers = numbers_of(options_, tiles);
    orders.keeps = options_.resumes;
    orders.stops_early = !is_in_place_;
    orders.begun = [&progress, begun = 0.0, all = static_cast<double>(orders.numbers.size())](std::int64_t) mutable {
        progress(++begun / all);
    };
    const std::filesystem::path folder =
        is_in_place_ ? path_from_utf8(name_of_folder(options_.output)) : folder_->path();
    const auto store = image::ZarrStore::begin(name_of_folder(options_.output), folder, store_picture(job, tiles));
    done_ = make_tiles(job, files, store, tiles, orders);
    if (!done_.failed.empty() && (!is_in_place_ || orders.numbers.size() == 1))
        throw Failure(done_.failed.front().fault, done_.failed.front().error);
}

void StoreOutput::commit()
{
    if (folder_ != nullptr)
        folder_->commit();
}

void print_tiles(const PanoramaJob& job, const TilesDone& done, double seconds)
{
    const StitchOptions& options = job.options;
    const OutputTiles tiles = output_tiles(job);
    PanovalMosaicCounts counts{};
    job.mosaic.check(panoval_mosaic_counts(job.mosaic.get(), &counts));
    Json failed = Json::array();
    for (const FailedTile& tile : done.failed) {
        failed.push_back({{"tile", tile.tile}, {"error", printable(tile.error, 1000)}});
        std::fprintf(stderr, "panoval: %s\n", tile.error.c_str());
    }
    const std::uint64_t memory = peak_memory_bytes();
    const Json json = {{"output", options.output},
                       {"plan", job.id},
                       {"tiles", tiles.count()},
                       {"tile_width", tiles.tile_width},
                       {"tile_height", tiles.tile_height},
                       {"tiles_made", done.made},
                       {"tiles_kept", done.kept},
                       {"tiles_failed", failed},
                       {"pictures_read", counts.pictures},
                       {"seconds", seconds},
                       {"engine_memory_bytes", counts.largest_memory},
                       {"peak_memory_bytes", memory}};
    print_results(options.common, json,
                  {{"store", printable(options.output)},
                   {"tiles", concat(done.made, " made, ", done.kept, " kept, ", done.failed.size(), " failed, of ",
                                    tiles.count())},
                   {"time", concat(fixed(seconds, 2), " s")},
                   {"memory", concat(fixed(1e-6 * static_cast<double>(memory), 0), " MB at most")}});
}

void exit_if_failed(const TilesDone& done)
{
    if (!done.failed.empty())
        throw done.made + done.kept == 0 ? ExitCode::AllFailed : ExitCode::SomeFailed;
}

} // namespace panoval::cli
