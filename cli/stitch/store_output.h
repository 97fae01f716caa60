// SPDX-License-Identifier: MIT
// A panorama, or some of its tiles, as a store. Where tiles or --resume are asked for it is filled in its place; else
// it is made beside and takes its name when it is complete, as a file does.
#pragma once

#include "cli/stitch/tile_tasks.h"
#include "image/output_folder.h"

#include <memory>
#include <optional>
#include <string>

namespace panoval::cli
{

class StoreOutput
{
public:
    // So that an output that cannot be written is known before the work starts.
    explicit StoreOutput(const StitchOptions& options);

    // Makes the tiles that are asked for. Throws what was wrong with the only one, or where nothing is to be left.
    // progress: told how far it is, 0 to 1, from one thread at a time.
    void make(PanoramaJob& job, PictureFiles& files, const std::function<void(double)>& progress);

    // Puts the finished store in its place.
    void commit();

    const TilesDone& done() const { return done_; }

private:
    const StitchOptions& options_;
    const bool is_in_place_;
    std::unique_ptr<image::OutputFolder> folder_; // unless in place
    TilesDone done_;
};

// What was made of the tiles that were asked for.
void print_tiles(const PanoramaJob& job, const TilesDone& done, double seconds);

// Ends in the exit code that some or all have failed, if so.
void exit_if_failed(const TilesDone& done);

} // namespace panoval::cli
