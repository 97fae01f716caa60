// SPDX-License-Identifier: MIT
// A panorama that is set up in the engine: the pictures' files, the options, and what has been measured.
#pragma once

#include "cli/stitch/gains_file.h"
#include "cli/stitch/mosaic_handle.h"
#include "cli/stitch/panorama_plan.h"
#include "cli/stitch/picture_files.h"
#include "cli/stitch/stitch.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace panoval::cli
{

class PanoramaJob
{
public:
    // Looks into all files but reads no pixels.
    explicit PanoramaJob(const StitchOptions& options);

    const StitchOptions& options;
    PanoramaPlan plan;
    std::vector<std::string> notes; // what is odd without being wrong
    MosaicHandle mosaic;
    PanovalMosaicLayout layout{};
    std::string blend;                     // of the options or of the plan
    std::string seams;                     //
    bool has_gains = false;                // not switched off, by the options or by the plan
    bool saves_gains = false;              // into the file that the options name, which is not there yet
    std::string id;                        // of the plan that was loaded
    bool is_measured = false;              // the plan that was loaded has gains and seams
    std::optional<Metadata> metadata;      // of the panorama, as the plan has it
    std::optional<PanovalMosaicRect> crop; // the part of the canvas that is wanted; all of it without

    int output_bits() const { return layout.bits; }
    PanovalMosaicRect region() const { return crop.value_or(PanovalMosaicRect{0, 0, layout.width, layout.height}); }
    bool feathers() const { return blend == kFeather; }
    bool has_seams() const { return seams != kNoSeams && !feathers(); }

    // Whether nothing is made but tasks are counted, whose budget holds no seams of the whole canvas.
    bool counts_tasks() const;

    // What the options say to the engine about pictures that are no plan's.
    PanovalMosaicOptions engine_options() const;

    // Everything that the options ask for before pixels are blended.
    void measure(PictureFiles& files);

    PanoramaGains gains() const;
    Json verdict() const; // an object; empty where there is none

    // The engine's plan with the pictures' files, whose names become relative to the folder of `name`.
    Json plan_json(const std::string& name) const;

private:
    void read_inputs();
    void add_pictures();
    void load_plan();
    void check_pictures() const;
    std::string with_seams(const std::string& text, const nlohmann::json& json) const;
    std::uint64_t decoding_bytes() const;
    void share_memory();
    std::int32_t set_up(const MosaicHandle& made, const PanovalMosaicOptions& engine) const;
    std::int32_t choose_tile_size(PanovalMosaicOptions engine) const;
};

} // namespace panoval::cli
