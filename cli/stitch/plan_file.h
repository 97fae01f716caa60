// SPDX-License-Identifier: MIT
// What a plan file holds besides the engine's plan: the pictures' files with sizes and formats, so that whoever has the
// plan opens only those that it needs, a fingerprint of each, the part of the canvas that is wanted, and the plan's id.
#pragma once

#include "cli/base/common_options.h"
#include "cli/stitch/panorama_plan.h"
#include "cli/stitch/seam_file.h"
#include "image/output_file.h"
#include "panoval_mosaic.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace panoval::cli
{

// The files' entries in a plan; names become relative to the folder of `plan_name`. Reads a little of each file.
Json files_for_plan(const PanoramaPlan& plan, const std::string& plan_name);

// Those entries read back; fails, naming the plan, where one is missing or odd. No picture's file is opened.
std::vector<PlacedLayer> layers_of_plan(const std::string& plan_name, const nlohmann::json& json);

// The part of the canvas that a plan wants, if it says so.
std::optional<PanovalMosaicRect> crop_of_plan(const std::string& plan_name, const nlohmann::json& json,
                                              const PanovalMosaicLayout& layout);

// Where the seams of a plan are that are in a file of their own, and what it takes to choose among them.
struct PlanSeams {
    std::string file;
    std::string id;
    SeamGrid grid;
    bool wraps = false;
    int bands = 0;
    std::int64_t tile_width = 0;
    std::int64_t tile_height = 0;
};
PlanSeams seams_of_plan(const std::string& plan_name, const nlohmann::json& json);

// Takes the seams out of a plan and puts them into the file, which lies beside the plan.
void move_seams(Json& plan, image::OutputFile& file);

// What the seams' file of a plan is called.
std::string seam_file_name(const std::string& plan_name);

// The plan as it is written, and its id.
std::string text_of_plan(const Json& plan);
std::string id_of_plan(const Json& plan);

// 16 hexadecimal digits that follow from the text.
std::string id_of_text(const std::string& text);

// Fails, naming the picture, unless its files are still those of its fingerprint. Nothing where it has none.
void check_fingerprint(const PlacedLayer& layer);

} // namespace panoval::cli
