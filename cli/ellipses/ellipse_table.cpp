// SPDX-License-Identifier: MIT
// The table and the comma-separated values.
#include "cli/base/errors.h"
#include "cli/ellipses/ellipse_results.h"

#include <cmath>
#include <cstdio>
#include <numbers>
#include <string>

namespace panoval::cli
{

namespace
{

constexpr double kDegrees = 180 / std::numbers::pi;

std::string joined_flags(std::int32_t flags, const char* between)
{
    std::string text;
    for (const char* const name : flag_names(flags))
        text += (text.empty() ? "" : between) + std::string(name);
    return text;
}

const char* polarity_name(const Target& target)
{
    return target.precise.polarity == PANOVAL_MEASURE_BRIGHT ? "bright" : "dark";
}

double contrast_of(const Target& target)
{
    return std::fabs(target.precise.level_inside - target.precise.level_outside);
}

std::string ring_text(const Target& target, const char* outside)
{
    return target.is_ring_inside ? std::to_string(target.ring.size()) : outside;
}

void print_library_rows(const Measurement& measurement, const ResultChoice& choice)
{
    std::printf("%6s %10s %10s %9s %9s %8s %7s %7s%s\n", "number", "x", "y", "major", "minor", "degrees", "rms",
                "points", choice.wants_ring ? "  ring" : "");
    for (std::size_t i = 0; i < measurement.targets.size(); ++i) {
        const Target& t = measurement.targets[i];
        std::printf("%6zu %10.3f %10.3f %9.3f %9.3f %8.2f %7.3f %7d", i + 1, t.x, t.y, t.semi_major, t.semi_minor,
                    t.angle * kDegrees, t.rms, static_cast<int>(t.outline_points));
        if (choice.wants_ring)
            std::printf("  %s", ring_text(t, "outside").c_str());
        std::printf("\n");
    }
}

void print_covariance(const Target& target)
{
    static constexpr const char* kNames[] = {"x", "y", "major", "minor", "angle"};
    for (int row = 0; row < 5; ++row) {
        std::printf("%22s", kNames[row]);
        for (int column = 0; column < 5; ++column)
            std::printf(" %12.4e", target.precise.covariance[5 * row + column]);
        std::printf("\n");
    }
}

void print_precise_rows(const Measurement& measurement, const ResultChoice& choice)
{
    std::printf("%6s %10s %10s %9s %9s %8s %8s %8s %8s %8s %7s %6s %5s %-6s%s  %s\n", "number", "x", "y", "major",
                "minor", "degrees", "sigma x", "sigma y", "s major", "s minor", "contr.", "blur", "qual.", "ground",
                choice.wants_ring ? "  ring" : "", "flags");
    for (std::size_t i = 0; i < measurement.targets.size(); ++i) {
        const Target& t = measurement.targets[i];
        const PanovalMeasureTarget& p = t.precise;
        std::printf("%6zu %10.4f %10.4f %9.4f %9.4f %8.3f %8.5f %8.5f %8.5f %8.5f %7.1f %6.2f %5.2f %-6s", i + 1, t.x,
                    t.y, t.semi_major, t.semi_minor, t.angle * kDegrees, p.sigma_x, p.sigma_y, p.sigma_major,
                    p.sigma_minor, contrast_of(t), p.blur, p.quality, polarity_name(t));
        if (choice.wants_ring)
            std::printf("  %4s", ring_text(t, "outside").c_str());
        std::printf("  %s\n", joined_flags(p.flags, " ").c_str());
        if (choice.wants_covariance)
            print_covariance(t);
    }
}

void print_board(const Board& board)
{
    if (!board.is_found) {
        std::printf("board of %d x %d: not found: %s\n", static_cast<int>(board.size.rows),
                    static_cast<int>(board.size.columns), board.reason.c_str());
        return;
    }
    std::printf("board of %d x %d: %d found, %d missing, residuals of %.4f pixels (rms), %.4f at most\n",
                static_cast<int>(board.size.rows), static_cast<int>(board.size.columns),
                static_cast<int>(board.grid.found), static_cast<int>(board.grid.missing), board.grid.rms,
                board.grid.max_residual);
    std::printf("%6s %6s %6s %10s %10s %10s %10s\n", "row", "column", "number", "centre x", "centre y", "residual x",
                "residual y");
    for (std::size_t place = 0; place < board.cells.size(); ++place) {
        const PanovalMeasureGridCell& cell = board.cells[place];
        const auto columns = static_cast<std::size_t>(board.size.columns);
        if (cell.target < 0)
            std::printf("%6zu %6zu  missing, expected at %.1f, %.1f\n", place / columns, place % columns, cell.x,
                        cell.y);
        else
            std::printf("%6zu %6zu %6d %10.4f %10.4f %10.4f %10.4f\n", place / columns, place % columns,
                        static_cast<int>(cell.target) + 1, cell.centre_x, cell.centre_y, cell.residual_x,
                        cell.residual_y);
    }
}

std::string csv_field(const std::string& text)
{
    if (text.find_first_of(",\"\r\n") == std::string::npos)
        return text;
    std::string quoted = "\"";
    for (const char c : text)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + '"';
}

std::string csv_number(double value)
{
    char text[64];
    std::snprintf(text, sizeof text, ",%.17g", value);
    return text;
}

std::string csv_head(Method method, const ResultChoice& choice)
{
    std::string text = "file,status,number,x,y,semi_major,semi_minor,angle";
    if (method == Method::Library)
        text += ",rms,outline_points,labelled_pixels";
    else
        text += ",sigma_x,sigma_y,cov_xy,sigma_major,sigma_minor,sigma_angle,contrast,blur,noise,edge_share,"
                "chi_square,quality,polarity,flags,board_row,board_column,centre_x,centre_y,residual_x,residual_y";
    if (choice.wants_covariance)
        for (int row = 0; row < 5; ++row)
            for (int column = 0; column < 5; ++column)
                text += concat(",c", row, column);
    return text + (choice.wants_ring ? ",ring_features" : "");
}

std::string csv_board(const Measurement& measurement, const Target& t)
{
    if (t.board_place < 0 || !measurement.board.has_value())
        return ",,,,,,";
    const std::int32_t columns = measurement.board->size.columns;
    const PanovalMeasureGridCell& cell = measurement.board->cells[static_cast<std::size_t>(t.board_place)];
    return concat(",", t.board_place / columns, ",", t.board_place % columns) + csv_number(cell.centre_x) +
           csv_number(cell.centre_y) + csv_number(cell.residual_x) + csv_number(cell.residual_y);
}

std::string csv_precise(const Measurement& measurement, const Target& t, const ResultChoice& choice)
{
    const PanovalMeasureTarget& p = t.precise;
    std::string text;
    for (const double value : {p.sigma_x, p.sigma_y, p.covariance[1], p.sigma_major, p.sigma_minor, p.sigma_angle,
                               contrast_of(t), p.blur, p.noise, p.edge_share, p.chi_square, p.quality})
        text += csv_number(value);
    text += concat(",", polarity_name(t), ",", joined_flags(p.flags, " ")) + csv_board(measurement, t);
    if (choice.wants_covariance)
        for (const double value : p.covariance)
            text += csv_number(value);
    return text;
}

} // namespace

std::vector<const char*> flag_names(std::int32_t flags)
{
    static constexpr struct {
        std::int32_t bit;
        const char* name;
    } kNames[] = {{PANOVAL_MEASURE_BORDER, "border"},
                  {PANOVAL_MEASURE_NEIGHBOUR, "neighbour"},
                  {PANOVAL_MEASURE_SATURATED, "saturated"},
                  {PANOVAL_MEASURE_BLURRED, "blurred"},
                  {PANOVAL_MEASURE_NOT_CONVERGED, "not_converged"},
                  {PANOVAL_MEASURE_ROUND, "round"},
                  {PANOVAL_MEASURE_RING, "ring"}};
    std::vector<const char*> names;
    for (const auto& flag : kNames)
        if ((flags & flag.bit) != 0)
            names.push_back(flag.name);
    return names;
}

void print_table(const Measurement& measurement, const ResultChoice& choice)
{
    if (!measurement.error.empty()) {
        std::printf("%s: not measured\n", printable(measurement.file).c_str());
        return;
    }
    if (!measurement.kept_in.empty()) {
        std::printf("%s: kept, see %s\n", printable(measurement.file).c_str(), printable(measurement.kept_in).c_str());
        return;
    }
    std::printf("%s: %zu target%s in %d x %d pixels", printable(measurement.file).c_str(), measurement.targets.size(),
                measurement.targets.size() == 1 ? "" : "s", static_cast<int>(measurement.width),
                static_cast<int>(measurement.height));
    if (choice.wants_times)
        std::printf(", %s ms", fixed(measurement.seconds * 1e3, 1).c_str());
    if (measurement.targets.empty())
        std::printf(": %s", measurement.nothing_because.c_str());
    std::printf("\n");
    if (!measurement.targets.empty() && measurement.method == Method::Library)
        print_library_rows(measurement, choice);
    else if (!measurement.targets.empty())
        print_precise_rows(measurement, choice);
    if (measurement.board.has_value())
        print_board(*measurement.board);
}

void print_csv(const std::vector<Measurement>& measurements, Method method, const ResultChoice& choice)
{
    const std::string head = csv_head(method, choice);
    std::printf("%s\n", head.c_str());
    for (const Measurement& measurement : measurements) {
        const std::string file = csv_field(measurement.file);
        if (measurement.targets.empty()) { // a row as long as the others
            const std::string status = !measurement.error.empty()     ? "failed: " + measurement.error
                                       : !measurement.kept_in.empty() ? "kept: " + measurement.kept_in
                                                                      : "empty: " + measurement.nothing_because;
            std::string rest;
            for (const char c : head.substr(std::string("file,status").size()))
                rest += c == ',' ? "," : "";
            std::printf("%s,%s%s\n", file.c_str(), csv_field(status).c_str(), rest.c_str());
        }
        for (std::size_t i = 0; i < measurement.targets.size(); ++i) {
            const Target& t = measurement.targets[i];
            std::string line = concat(file, ",ok,", i + 1);
            for (const double value : {t.x, t.y, t.semi_major, t.semi_minor, t.angle})
                line += csv_number(value);
            line += method == Method::Library ? csv_number(t.rms) + concat(",", t.outline_points, ",", t.pixel_count)
                                              : csv_precise(measurement, t, choice);
            if (choice.wants_ring)
                line += "," + ring_text(t, "");
            std::printf("%s\n", line.c_str());
        }
    }
}

} // namespace panoval::cli
