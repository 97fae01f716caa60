// SPDX-License-Identifier: MIT
// panoval ellipses: measures the dark elliptical targets of pictures.
#include "cli/ellipses/command_ellipses.h"

#include "cli/base/common_options.h"
#include "cli/base/errors.h"
#include "cli/base/file_names.h"
#include "cli/ellipses/ellipse_measure.h"
#include "cli/ellipses/ellipse_overlay.h"
#include "image/image_read.h"
#include "image/image_write.h"
#include "image/output_file.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <numbers>

namespace panoval::cli
{

namespace
{

struct EllipsesOptions {
    std::vector<std::string> inputs;
    EllipseSettings settings;
    std::int32_t divisions = 0; // 0 = not given
    bool wants_csv = false;
    std::string svg;
    std::string picture;
    CommonOptions common;
};

const char* const kExplanation =
    "Finds dark, closed, roughly elliptical shapes on a lighter ground and fits an ellipse to each outline with\n"
    "sub-pixel precision. Pictures are PNG, TIFF, JPEG or PNM files of 8 or 16 bit; colour is made grey, 16 bit are\n"
    "scaled to 8. Of a TIFF file with several pictures the first is taken. Shapes within 3 pixels of the border are\n"
    "ignored.\n"
    "\n"
    "Results: centre x, y and semi-axes in pixels, x to the right, y downward, a pixel's centre at whole coordinates;\n"
    "the major axis' angle from +x towards +y; the fit's residual (rms) in pixels of focal sum; the number of pixels "
    "on\n"
    "the outline. The table shows degrees, JSON and CSV give radians.\n"
    "\n"
    "What to choose:\n"
    "  --min-pixels   outlines of fewer pixels are ignored. 30 is a disc of about 12 pixels across; lower it for\n"
    "                 smaller targets, raise it when specks are found\n"
    "  --max-rms      whole pixels. Clean targets stay below 1; raise it for rough shapes, lower it to 1 against\n"
    "                 shapes that are no ellipses\n"
    "  --divisions    the picture is cut into N x N tiles with a threshold each. Without it the smaller side of a\n"
    "                 tile is about 100 pixels. Fewer for targets larger than a tile, more for uneven light\n"
    "  --ring         also looks for bright marks on a ring of twice each target's size, as coded targets have them.\n"
    "                 A mark counts where it spans 0.2 to 1.2 radians of the ring; one of more than 0.6 gives two\n"
    "                 places. The table and CSV show how many there are, JSON also where, and their size: of round\n"
    "                 targets about the length along the ring in pixels. A ring that leaves the picture is not\n"
    "                 looked at\n"
    "\n"
    "Examples:\n"
    "  panoval ellipses board.png\n"
    "  panoval ellipses --json --ring sheet.png >targets.json\n"
    "  panoval ellipses --csv shots/*.png >targets.csv\n"
    "  panoval ellipses board.png --png found.png --svg found.svg\n"
    "  panoval ellipses a.png b.png --svg '{}-found.svg'\n"
    "      {} stands for each picture's name without folder and ending\n"
    "\n"
    "Of several pictures those that cannot be measured are reported, the rest is measured, and the exit code is 1.\n"
    "\n";

constexpr double kDegrees = 180 / std::numbers::pi;

// "{}" in an overlay's name becomes the picture's name.
std::string overlay_name(const std::string& pattern, const std::string& input)
{
    const auto place = pattern.find("{}");
    if (place == std::string::npos)
        return pattern;
    return pattern.substr(0, place) + utf8_from_path(path_from_utf8(input).stem()) + pattern.substr(place + 2);
}

void check_overlay(const EllipsesOptions& options, const std::string& option, const std::string& pattern)
{
    if (pattern.empty() || options.inputs.size() == 1)
        return;
    if (pattern.find("{}") == std::string::npos)
        fail_usage(concat(option, ": found one name, '", printable(pattern), "', for ", options.inputs.size(),
                          " pictures; expected {} in it, which stands for each picture's name"));
    std::vector<std::string> names;
    for (const std::string& input : options.inputs) {
        const std::string name = overlay_name(pattern, input);
        if (std::find(names.begin(), names.end(), name) != names.end())
            fail_usage(concat(option, ": '", printable(name),
                              "' would be written twice; expected pictures of different "
                              "names"));
        names.push_back(name);
    }
}

// The overlay of one picture may have the name of another one, as overlays of an earlier run have.
void refuse_to_overwrite_pictures(const EllipsesOptions& options, const std::string& pattern)
{
    for (const std::string& input : options.inputs) {
        const std::string name = overlay_name(pattern, input);
        if (name.empty() || !file_exists(name))
            continue;
        for (const std::string& picture : options.inputs)
            if (is_same_file(name, picture))
                fail_usage(concat("the overlay '", printable(name),
                                  "' is one of the pictures to measure; expected another name"));
    }
}

void check(const EllipsesOptions& options)
{
    if (options.wants_csv && options.common.wants_json)
        fail_usage("found both --json and --csv; expected one");
    check_overlay(options, "--svg", options.svg);
    check_overlay(options, "--png", options.picture);
    for (const std::string& pattern : {options.svg, options.picture})
        refuse_to_overwrite_pictures(options, pattern);
    for (const std::string& input : options.inputs) {
        if (!options.picture.empty())
            check_output_format(overlay_name(options.picture, input), 3, 8, false);
        if (!options.picture.empty() && !options.svg.empty())
            refuse_one_name({overlay_name(options.svg, input), overlay_name(options.picture, input)});
    }
}

void write_overlays(const EllipsesOptions& options, const Image& grey, const Measurement& measurement)
{
    if (!options.svg.empty()) {
        OutputFile output(overlay_name(options.svg, measurement.file));
        output.write(overlay_svg(grey, measurement));
        output.commit();
    }
    if (!options.picture.empty())
        write_image(overlay_name(options.picture, measurement.file), draw_overlay(grey, measurement));
}

Json json_of(const Target& target, std::size_t number, bool wants_ring)
{
    Json json = {{"number", number},
                 {"x", target.x},
                 {"y", target.y},
                 {"semi_major", target.semi_major},
                 {"semi_minor", target.semi_minor},
                 {"angle", target.angle},
                 {"rms", target.rms},
                 {"outline_points", target.outline_points},
                 {"labelled_pixels", target.pixel_count}};
    if (!wants_ring)
        return json;
    json["ring_inside_picture"] = target.is_ring_inside;
    json["ring"] = Json::array();
    for (const RingFeature& feature : target.ring)
        json["ring"].push_back({{"x", feature.x}, {"y", feature.y}, {"size", feature.size}});
    return json;
}

Json json_of(const Measurement& measurement, bool wants_ring)
{
    Json targets = Json::array();
    for (std::size_t i = 0; i < measurement.targets.size(); ++i)
        targets.push_back(json_of(measurement.targets[i], i + 1, wants_ring));
    return {{"file", measurement.file},           {"width", measurement.width},     {"height", measurement.height},
            {"divisions", measurement.divisions}, {"seconds", measurement.seconds}, {"targets", targets}};
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

void print_csv(const std::vector<Measurement>& measurements, bool wants_ring)
{
    std::printf("file,number,x,y,semi_major,semi_minor,angle,rms,outline_points,labelled_pixels%s\n",
                wants_ring ? ",ring_features" : "");
    for (const Measurement& measurement : measurements)
        for (std::size_t i = 0; i < measurement.targets.size(); ++i) {
            const Target& t = measurement.targets[i];
            std::printf("%s,%zu,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%d,%d", csv_field(measurement.file).c_str(), i + 1,
                        t.x, t.y, t.semi_major, t.semi_minor, t.angle, t.rms, static_cast<int>(t.outline_points),
                        static_cast<int>(t.pixel_count));
            if (wants_ring)
                std::printf(",%s", t.is_ring_inside ? std::to_string(t.ring.size()).c_str() : "");
            std::printf("\n");
        }
}

void print_table(const Measurement& measurement, bool wants_ring)
{
    std::printf("%s: %zu target%s in %d x %d pixels, %s ms\n", printable(measurement.file).c_str(),
                measurement.targets.size(), measurement.targets.size() == 1 ? "" : "s",
                static_cast<int>(measurement.width), static_cast<int>(measurement.height),
                fixed(measurement.seconds * 1e3, 1).c_str());
    if (!measurement.targets.empty())
        std::printf("%6s %10s %10s %9s %9s %8s %7s %7s%s\n", "number", "x", "y", "major", "minor", "degrees", "rms",
                    "points", wants_ring ? "  ring" : "");
    for (std::size_t i = 0; i < measurement.targets.size(); ++i) {
        const Target& t = measurement.targets[i];
        std::printf("%6zu %10.3f %10.3f %9.3f %9.3f %8.2f %7.3f %7d", i + 1, t.x, t.y, t.semi_major, t.semi_minor,
                    t.angle * kDegrees, t.rms, static_cast<int>(t.outline_points));
        if (wants_ring)
            std::printf("  %s", t.is_ring_inside ? std::to_string(t.ring.size()).c_str() : "outside");
        std::printf("\n");
    }
}

void print_all(const EllipsesOptions& options, const std::vector<Measurement>& measurements, const Json& failures)
{
    const bool wants_ring = options.settings.wants_ring;
    if (options.common.wants_json) {
        Json images = Json::array();
        for (const Measurement& measurement : measurements)
            images.push_back(json_of(measurement, wants_ring));
        print_results(options.common, {{"images", images}, {"failures", failures}}, {});
        return;
    }
    if (options.wants_csv)
        print_csv(measurements, wants_ring);
    else if (!options.common.is_quiet)
        for (const Measurement& measurement : measurements)
            print_table(measurement, wants_ring);
    flush_results();
}

Measurement measure_one(const EllipsesOptions& options, const std::string& file)
{
    const Image grey = read_grey_8(file);
    Measurement measurement = measure_ellipses(file, grey, options.settings);
    write_overlays(options, grey, measurement);
    return measurement;
}

void measure_all(EllipsesOptions& options)
{
    check(options);
    if (options.divisions > 0)
        options.settings.divisions = options.divisions;
    std::vector<Measurement> measurements;
    Json failures = Json::array();
    {
        Progress progress(options.common.progress_mode(), "measuring", options.inputs.size());
        for (const std::string& file : options.inputs) {
            progress.step(file);
            try {
                measurements.push_back(measure_one(options, file));
            } catch (const Failure& error) {
                if (options.inputs.size() == 1)
                    throw;
                progress.clear();
                std::fprintf(stderr, "panoval: %s\n", error.what());
                failures.push_back({{"file", file}, {"error", error.what()}});
            }
        }
    }
    print_all(options, measurements, failures);
    if (!failures.empty())
        throw ExitCode::SomeFailed;
}

} // namespace

void add_ellipses_command(CLI::App& program)
{
    const auto options = std::make_shared<EllipsesOptions>();
    CLI::App& command = *program.add_subcommand("ellipses", "Measure dark elliptical targets");
    constexpr std::int32_t kMost = 2147483647;
    command.add_option("IMAGE", options->inputs, "Pictures to measure")->required();
    command.add_option("--min-pixels", options->settings.min_pixels, "Smallest number of outline pixels (default 30)")
        ->check(CLI::Range(0, kMost))
        ->type_name("N");
    command
        .add_option("--max-rms", options->settings.max_rms, "Fits of this residual or more are rejected (default 2)")
        ->check(CLI::Range(1, kMost)) // nothing lies below 0
        ->type_name("N");
    command.add_option("--divisions", options->divisions, "Tiles of the local threshold across each dimension")
        ->check(CLI::Range(1, kMost))
        ->type_name("N");
    command.add_flag("--ring", options->settings.wants_ring, "Look for bright marks on a ring around each target");
    command.add_flag("--csv", options->wants_csv, "Print the results as comma-separated values");
    command.add_option("--svg", options->svg, "Write an overlay as SVG")->type_name("FILE");
    command.add_option("--png", options->picture, "Write an overlay as PNG, or as another format by the name's ending")
        ->type_name("FILE");
    add_common_options(command, options->common);
    command.footer(concat(kExplanation, kHelpEnd));
    command.callback([options] { measure_all(*options); });
}

} // namespace panoval::cli
