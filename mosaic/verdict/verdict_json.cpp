// SPDX-License-Identifier: MIT
#include "mosaic/verdict/verdict.h"

#include <nlohmann/json.hpp>

namespace panoval::mosaic
{

namespace
{

using Json = nlohmann::ordered_json;

// Canvas coordinates in the host's frame.
Json json_of(const Rect& rect, const Layout& layout)
{
    return {{"x", rect.x + layout.origin_x},
            {"y", rect.y + layout.origin_y},
            {"width", rect.width},
            {"height", rect.height}};
}

Json json_of(const SharedDifferences& differences, bool has_distribution)
{
    Json json = {{"mean", differences.mean},
                 {"signed_mean", differences.signed_mean},
                 {"median", differences.median},
                 {"percentile_95", differences.percentile_95}};
    if (has_distribution)
        json["distribution"] = differences.distribution;
    return json;
}

Json json_of(const OverlapVerdict& overlap, const Layout& layout, bool has_distributions)
{
    Json json = {{"first", overlap.first}, {"second", overlap.second}};
    json.update(json_of(overlap.region, layout));
    json["shared_pixels"] = overlap.shared_pixels;
    json["before"] = json_of(overlap.before, has_distributions);
    json["after"] = json_of(overlap.after, has_distributions);
    json["verdict"] = name_of(overlap.word);
    json["explanation"] = overlap.explanation;
    json["displacement"] = nullptr;
    if (overlap.displacement)
        json["displacement"] = {{"x", overlap.displacement->x},
                                {"y", overlap.displacement->y},
                                {"confidence", overlap.displacement->confidence}};
    json["mismatch"] = overlap.is_mismatch;
    json["empty"] = overlap.empty ? Json(*overlap.empty) : Json(nullptr);
    json["step"] = overlap.step;
    json["tone"] = overlap.tone;
    json["sharpness"] = overlap.sharpness;
    json["noise"] = overlap.noise;
    json["has_seam"] = overlap.has_seam;
    json["ghosts"] = Json::array();
    for (const Ghost& ghost : overlap.ghosts) {
        Json box = json_of(ghost.box, layout);
        box["levels"] = ghost.levels;
        box["is_cut"] = ghost.is_cut;
        json["ghosts"].push_back(box);
    }
    return json;
}

} // namespace

std::string verdict_json(const Verdict& verdict, const Layout& layout, bool has_distributions)
{
    Json json = {{"verdict", name_of(verdict.word)},
                 {"reasons", verdict.reasons},
                 {"misfits", verdict.misfits},
                 {"groups", verdict.groups},
                 {"uncovered_pixels", verdict.uncovered_pixels}};
    json["holes"] = Json::array();
    for (const Hole& hole : verdict.holes) {
        Json box = json_of(hole.box, layout);
        box["pixels"] = hole.pixels;
        json["holes"].push_back(box);
    }
    json["overlaps"] = Json::array();
    for (const OverlapVerdict& overlap : verdict.overlaps)
        json["overlaps"].push_back(json_of(overlap, layout, has_distributions));
    // Names of files may be in any encoding.
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace panoval::mosaic
