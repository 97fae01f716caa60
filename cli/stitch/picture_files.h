// SPDX-License-Identifier: MIT
// The pictures' files as the panorama engine's host: opens a picture when its first rows are asked for, and closes it
// when they have all been given.
#pragma once

#include "cli/stitch/layer_rows.h"
#include "cli/stitch/panorama_plan.h"
#include "image/metadata.h"
#include "panoval_mosaic.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace panoval::cli
{

using image::CommonMetadata;
using image::Metadata;

class PictureFiles
{
public:
    // Told what goes on: of each picture when its file is opened for the first time, and of the engine's progress. From
    // one thread at a time.
    struct Notices {
        std::function<void(const PlacedLayer& layer)> picture;
        std::function<void(std::int32_t phase, double fraction)> progress;
    };

    PictureFiles(const PanoramaPlan& plan, Notices notices);

    // For the engine; holds a pointer to this object.
    PanovalMosaicHost host();

    // What a picture is to the engine.
    static PanovalMosaicPicture describe(const PanoramaPlan& plan, std::size_t index);

    // Throws what a callback has met, if any; what it threw stands for the engine's own words about it.
    void rethrow();

    // What the pictures' files tell: of all of them, which reads those that have not been read yet, or of those that
    // have. The first call decides.
    const CommonMetadata& metadata(bool of_all);

    // Of the pictures whose masks cover nothing, as far as they have been read.
    std::vector<std::string> uncovered_names() const;

    // How often the pictures were decoded, all of them together. One whose rows stand in its file as they are counts at
    // most once, however often they are read.
    double decodes() const;

private:
    struct Entry {
        std::unique_ptr<LayerRows> rows; // while they are given
        Metadata metadata;
        bool was_read = false;
        std::int64_t rows_given = 0;
        std::vector<bool> was_given; // each row, as long as the mask covers nothing of them
        std::int32_t empty_rows = 0; // of these
        bool covers_any = false;
    };

    static std::int32_t read_rows(void* user, const PanovalMosaicRows* rows);
    static void release_picture(void* user, std::int32_t picture);
    static std::int32_t report(void* user, std::int32_t phase, double fraction);
    void open(std::size_t index);
    void give(const PanovalMosaicRows& rows);
    void note_cover(std::size_t index, const PanovalMosaicRows& rows);
    void keep_failure();

    const PanoramaPlan& plan_;
    const Notices notices_;
    std::vector<Entry> entries_; // the engine never asks for one picture from two threads
    std::mutex mutex_;           // of the notices, the failure
    std::exception_ptr failure_;
    std::unique_ptr<CommonMetadata> metadata_;
};

} // namespace panoval::cli
