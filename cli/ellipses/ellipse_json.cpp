// SPDX-License-Identifier: MIT
// The JSON document. It holds nothing that changes from run to run, unless times are asked for.
#include "cli/ellipses/ellipse_results.h"

#include "cli/base/errors.h"
#include "cli/base/file_names.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <numbers>

namespace panoval::cli
{

namespace
{

constexpr int kSchemaVersion = 2; // 1 had no uncertainties, and left failed pictures out of images[]

void add_precise(const Target& target, const ResultChoice& choice, Json& json)
{
    const PanovalMeasureTarget& p = target.precise;
    json["sigma_x"] = p.sigma_x;
    json["sigma_y"] = p.sigma_y;
    json["cov_xy"] = p.covariance[1];
    json["sigma_major"] = p.sigma_major;
    json["sigma_minor"] = p.sigma_minor;
    json["sigma_angle"] = p.sigma_angle;
    json["contrast"] = std::fabs(p.level_inside - p.level_outside);
    json["level_inside"] = p.level_inside;
    json["level_outside"] = p.level_outside;
    json["blur"] = p.blur;
    json["noise"] = p.noise;
    json["edge_share"] = p.edge_share;
    json["chi_square"] = p.chi_square;
    json["quality"] = p.quality;
    json["polarity"] = p.polarity == PANOVAL_MEASURE_BRIGHT ? "bright" : "dark";
    json["flags"] = Json::array();
    for (const char* const name : flag_names(p.flags))
        json["flags"].push_back(name);
    if (!choice.wants_covariance)
        return;
    json["covariance"] = Json::array();
    for (int row = 0; row < 5; ++row) {
        Json numbers = Json::array();
        for (int column = 0; column < 5; ++column)
            numbers.push_back(p.covariance[5 * row + column]);
        json["covariance"].push_back(numbers);
    }
}

Json json_of(const Target& target, std::size_t number, Method method, const ResultChoice& choice)
{
    Json json = {{"number", number},
                 {"x", target.x},
                 {"y", target.y},
                 {"semi_major", target.semi_major},
                 {"semi_minor", target.semi_minor},
                 {"angle", target.angle}};
    if (method == Method::Library) {
        json["rms"] = target.rms;
        json["outline_points"] = target.outline_points;
        json["labelled_pixels"] = target.pixel_count;
    } else {
        add_precise(target, choice, json);
    }
    if (!choice.wants_ring)
        return json;
    json["ring_inside_picture"] = target.is_ring_inside;
    json["ring"] = Json::array();
    for (const RingFeature& feature : target.ring)
        json["ring"].push_back({{"x", feature.x}, {"y", feature.y}, {"size", feature.size}});
    return json;
}

Json json_of(const Board& board)
{
    Json json = {{"rows", board.size.rows}, {"columns", board.size.columns}, {"found", board.is_found}};
    if (!board.is_found) {
        json["reason"] = board.reason;
        return json;
    }
    json["homography"] = Json::array();
    for (const double value : board.grid.homography)
        json["homography"].push_back(value);
    json["rms"] = board.grid.rms;
    json["max_residual"] = board.grid.max_residual;
    json["extra_targets"] = board.grid.extra;
    json["places"] = Json::array();
    json["missing"] = Json::array();
    for (std::size_t place = 0; place < board.cells.size(); ++place) {
        const PanovalMeasureGridCell& cell = board.cells[place];
        const auto columns = static_cast<std::size_t>(board.size.columns);
        Json json_place = {{"row", place / columns}, {"column", place % columns}, {"x", cell.x}, {"y", cell.y}};
        if (cell.target < 0) {
            json["missing"].push_back(json_place);
            continue;
        }
        json_place["number"] = cell.target + 1;
        json_place["centre_x"] = cell.centre_x;
        json_place["centre_y"] = cell.centre_y;
        json_place["residual_x"] = cell.residual_x;
        json_place["residual_y"] = cell.residual_y;
        json["places"].push_back(json_place);
    }
    return json;
}

Json json_of(const Measurement& measurement, const ResultChoice& choice)
{
    Json json = {{"file", measurement.file}};
    if (!measurement.error.empty()) {
        json["error"] = measurement.error;
        json["targets"] = Json::array();
        return json;
    }
    json["width"] = measurement.width;
    json["height"] = measurement.height;
    json["bits"] = measurement.bits;
    if (measurement.method == Method::Library)
        json["divisions"] = measurement.divisions;
    if (choice.wants_times)
        json["seconds"] = measurement.seconds;
    if (measurement.targets.empty())
        json["nothing_because"] = measurement.nothing_because;
    json["targets"] = Json::array();
    for (std::size_t i = 0; i < measurement.targets.size(); ++i)
        json["targets"].push_back(json_of(measurement.targets[i], i + 1, measurement.method, choice));
    if (measurement.board.has_value())
        json["board"] = json_of(*measurement.board);
    return json;
}

constexpr std::size_t kLongestResult = 1 << 30;

Json read_result(const std::string& name)
{
    return Json::parse(read_text_file(name, "results of an earlier run", kLongestResult));
}

const char* name_of(Method method)
{
    return method == Method::Precise ? "precise" : "library";
}

} // namespace

std::string json_text(const Json& json)
{
    // File names need not be UTF-8 on every system; JSON must be.
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

bool is_stored_result(const std::string& name, const std::string& picture, Method method)
{
    try {
        const Json json = read_result(name);
        const Json& image = json.at("images").at(0);
        return json.at("schema_version") == kSchemaVersion && json.at("method") == name_of(method) &&
               json.at("images").size() == 1 && image.at("file") == picture && image.contains("targets");
    } catch (const Failure&) {
        return false;
    } catch (const Json::exception&) {
        return false;
    }
}

Json results_json(const std::vector<Measurement>& measurements, Method method, const ResultChoice& choice)
{
    constexpr double kRightAngle = std::numbers::pi / 2;
    Json images = Json::array();
    Json failures = Json::array();
    for (const Measurement& measurement : measurements) {
        images.push_back(measurement.kept_in.empty() ? json_of(measurement, choice)
                                                     : read_result(measurement.kept_in).at("images").at(0));
        if (!measurement.error.empty())
            failures.push_back({{"file", measurement.file}, {"error", measurement.error}});
    }
    Json json = {{"schema_version", kSchemaVersion}, {"method", name_of(method)}};
    if (method == Method::Precise)
        json["angle_range"] = {-kRightAngle, kRightAngle};
    json["images"] = images;
    json["failures"] = failures;
    return json;
}

} // namespace panoval::cli
