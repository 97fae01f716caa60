// SPDX-License-Identifier: MIT
// panoval ellipses: measures the elliptical targets of pictures.
#include "cli/ellipses/command_ellipses.h"

#include "cli/base/batch.h"
#include "cli/base/common_options.h"
#include "cli/base/errors.h"
#include "cli/base/file_names.h"
#include "cli/base/number_options.h"
#include "cli/ellipses/ellipse_measure.h"
#include "cli/ellipses/ellipse_overlay.h"
#include "cli/ellipses/ellipse_results.h"
#include "image/image_read.h"
#include "image/image_write.h"
#include "image/output_file.h"
#include "image/standard_streams.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace panoval::cli
{

namespace
{

struct EllipsesOptions {
    BatchOptions batch;
    std::vector<std::string> inputs;
    std::string output;
    EllipseSettings settings;
    ResultChoice choice;
    std::int32_t divisions = 0; // 0 = not given
    bool wants_csv = false;
    std::string method = "precise";
    std::string polarity = "both";
    std::string board;
    std::vector<std::string> foreign; // options given that belong to the other method
    std::string svg;
    std::string picture;
    CommonOptions common;
};

const char* const kExplanation = "Finds closed, elliptical outlines of every size from ";

// Behind the least radius.
const char* const kOfOutlines =
    " pixels of radius to a third of the picture, darker or\n"
    "brighter than their ground, and measures each as well as the picture's noise allows, with its uncertainty.\n"
    "Pictures are ";

const char* const kOfPictures =
    " files of 8 or 16 bit, measured as they are; colour is made grey. Of a TIFF\n"
    "file with several pictures the first is taken.\n"
    "\n"
    "Results: centre x, y and semi-axes in pixels, x to the right, y downward, a pixel's centre at whole coordinates;\n"
    "the major axis' angle from +x towards +y, above -90 and at most 90 degrees; standard deviations (sigma) of all\n"
    "of them; contrast and noise in levels of the picture; the blur's sigma in pixels; the share of the outline that\n"
    "has an edge; the quality from 0 to 1. The table shows degrees, JSON and CSV give radians. Flags:\n"
    "  border         the outline or its surroundings leave the picture\n"
    "  neighbour      something else is near; its pixels are left out\n"
    "  saturated      samples around the outline are at the end of their range\n"
    "  blurred        the blur is larger than a quarter of the smaller axis\n"
    "  not_converged  the numbers did not settle\n"
    "  round          the axes do not differ significantly: the angle means nothing\n"
    "  ring           another outline has the same centre\n"
    "\n"
    "What to choose:\n"
    "  --polarity     dark, bright, or both (default) against the ground\n"
    "  --min-quality  targets of less quality are left out\n"
    "  --board        orders the targets of a board, e.g. --board 7x9 of 7 rows and 9 columns: the image of each "
    "circle's\n"
    "                 centre, residuals against the plane, and the places that are missing\n"
    "  --covariance   also the 5 x 5 covariance of x, y, semi-axes and angle\n"
    "  --times        also how long it took, which makes results differ from run to run\n"
    "  --ring         also looks for bright marks on a ring of twice each target's size, as coded targets have them.\n"
    "                 A mark counts where it spans 0.2 to 1.2 radians of the ring; one of more than 0.6 gives two\n"
    "                 places. The table and CSV show how many there are, JSON also where, and their size: of round\n"
    "                 targets about the length along the ring in pixels. A ring that leaves the picture is not\n"
    "                 looked at\n"
    "\n"
    "--method library gives what the library's find_ellipse finds: dark shapes, without uncertainties; 16 bit are\n"
    "scaled to 8, shapes within 3 pixels of the border are ignored, rms is the fit's residual in pixels of focal sum.\n"
    "It has options of its own:\n"
    "  --min-pixels   outlines of fewer pixels are ignored. 30 are a disc of about 12 pixels across; lower it for\n"
    "                 smaller targets, raise it when specks are found\n"
    "  --max-rms      whole pixels. Clean targets stay below 1; raise it for rough shapes, lower it to 1 against\n"
    "                 shapes that are no ellipses\n"
    "  --divisions    the picture is cut into N x N tiles with a threshold each. Without it the smaller side of a\n"
    "                 tile is about 100 pixels. Fewer for targets larger than a tile, more for uneven light\n"
    "\n"
    "Examples:\n"
    "  panoval ellipses board.png\n"
    "  panoval ellipses --board 7x9 --json board.png >board.json\n"
    "  panoval ellipses --json --ring sheet.png >targets.json\n"
    "  panoval ellipses --csv shots/*.png >targets.csv\n"
    "  panoval ellipses board.png --png found.png --svg found.svg\n"
    "  panoval ellipses a.png b.png --svg \"{}-found.svg\"\n"
    "      {} stands for each picture's name without folder and ending, {path} for the name with its folder\n"
    "  panoval ellipses --files-from list.txt -o \"{path}.json\" --jobs 4 --resume --quiet\n"
    "      a long list; started anew, it goes on where it was stopped\n"
    "\n"
    "Of several pictures those that cannot be measured are reported, the rest is measured, and the exit code is 1, or\n"
    "6 where none can be. Results come in the order of the pictures. --resume leaves alone whose results, and "
    "overlays\n"
    "if asked for, are whole and not older than the picture, whatever options they were made with; they stand in the\n"
    "JSON results again, and the table and CSV say where they are.\n"
    "\n";

// Where each picture's file of this kind goes; standard output has the results.
std::vector<std::string> check_names(const EllipsesOptions& options, const std::string& option,
                                     const std::string& pattern)
{
    if (pattern.empty())
        return {};
    if (is_standard_stream(pattern))
        fail_usage(concat(option, ": found -, standard output, which has the results; expected the name of a file"));
    std::vector<std::string> names = names_for(option, pattern, options.inputs);
    if (options.inputs.size() == 1 && is_same_file(names.front(), options.inputs.front()))
        fail_usage(concat(option, ": '", printable(names.front()), "' is one of the pictures; expected another name"));
    return names;
}

// "7x9": rows, columns.
BoardSize parse_board(const std::string& text)
{
    constexpr int kMost = 1000;
    BoardSize size;
    int used = 0;
    int rows = 0;
    int columns = 0;
    if (std::sscanf(text.c_str(), "%4dx%4d%n", &rows, &columns, &used) == 2 &&
        static_cast<std::size_t>(used) == text.size() && std::min(rows, columns) >= 2 &&
        std::max(rows, columns) <= kMost) {
        size.rows = rows;
        size.columns = columns;
        return size;
    }
    fail_usage(
        concat("--board: found '", printable(text), "'; expected rows and columns from 2 to ", kMost, ", e.g. 7x9"));
}

void read_settings(EllipsesOptions& options)
{
    options.settings.method = options.method == "library" ? Method::Library : Method::Precise;
    options.settings.polarity = options.polarity == "dark"     ? PANOVAL_MEASURE_DARK
                                : options.polarity == "bright" ? PANOVAL_MEASURE_BRIGHT
                                                               : PANOVAL_MEASURE_BOTH;
    options.choice.wants_ring = options.settings.wants_ring;
    if (!options.board.empty())
        options.settings.board = parse_board(options.board);
    if (options.divisions > 0)
        options.settings.divisions = options.divisions;
}

void check(const EllipsesOptions& options)
{
    if (!options.foreign.empty())
        fail_usage(concat(options.foreign.front(), " belongs to --method ",
                          options.settings.method == Method::Precise ? "library" : "precise", "; found --method ",
                          options.method));
    if (options.wants_csv && options.common.wants_json)
        fail_usage("found both --json and --csv; expected one");
    if (options.batch.resumes && options.output.empty())
        fail_usage("found --resume without --output; expected --output, whose files tell what is done");
    const std::vector<std::string> names[] = {check_names(options, "--output", options.output),
                                              check_names(options, "--svg", options.svg),
                                              check_names(options, "--png", options.picture)};
    if (!names[2].empty())
        OutputName(names[2].front()).check(3, 8, false);
    for (std::size_t i = 0; i < options.inputs.size(); ++i) {
        std::vector<std::string> outputs;
        for (const auto& kind : names)
            outputs.push_back(kind.empty() ? "" : kind[i]);
        refuse_one_name(outputs);
    }
}

void write_overlays(const EllipsesOptions& options, const Image& grey, const Measurement& measurement)
{
    if (!options.svg.empty()) {
        OutputFile output(name_for(options.svg, measurement.file));
        output.write(overlay_svg(grey, measurement));
        output.commit();
    }
    if (!options.picture.empty())
        write_image(name_for(options.picture, measurement.file), draw_overlay(grey, measurement));
}

void print_all(const EllipsesOptions& options, const std::vector<Measurement>& measurements)
{
    const Method method = options.settings.method;
    if (options.common.wants_json) {
        print_results(options.common, results_json(measurements, method, options.choice), {});
        return;
    }
    if (options.wants_csv)
        print_csv(measurements, method, options.choice);
    else if (!options.common.is_quiet)
        for (const Measurement& measurement : measurements)
            print_table(measurement, options.choice);
    flush_results();
}

// Whether all that is asked for is there already.
bool is_done(const EllipsesOptions& options, const std::string& file)
{
    const std::string svg = name_for(options.svg, file);
    const std::string picture = name_for(options.picture, file);
    return is_stored_result(name_for(options.output, file), file, options.settings.method) &&
           is_newer(name_for(options.output, file), file) && (svg.empty() || is_newer(svg, file)) &&
           (picture.empty() || is_whole_picture(picture, file));
}

Measurement measure_one(const EllipsesOptions& options, const std::string& file)
{
    if (options.batch.resumes && is_done(options, file)) {
        Measurement kept;
        kept.file = file;
        kept.method = options.settings.method;
        kept.kept_in = name_for(options.output, file);
        return kept;
    }
    Image grey = read_grey(file);
    const EllipseSettings& settings = options.settings;
    const bool wants_8_bit = settings.wants_ring || !options.svg.empty() || !options.picture.empty();
    if (settings.method == Method::Library)
        convert_depth(grey, 8, file);
    Measurement measurement = measure_ellipses(file, grey, settings);
    if (wants_8_bit)
        convert_depth(grey, 8, file);
    if (settings.wants_ring)
        measure_rings(file, grey, measurement);
    write_overlays(options, grey, measurement);
    if (!options.output.empty()) { // the last one, for it says that all is done
        OutputFile output(name_for(options.output, file));
        output.write(json_text(results_json({measurement}, settings.method, options.choice)));
        output.commit();
    }
    return measurement;
}

void measure_all(EllipsesOptions& options)
{
    read_settings(options);
    options.inputs = batch_inputs(options.batch);
    check(options);
    std::vector<Measurement> measurements(options.inputs.size());
    const BatchEnd end = run_batch(options.batch, options.common, "measuring", options.inputs,
                                   [&](std::size_t i) { measurements[i] = measure_one(options, options.inputs[i]); });
    for (std::size_t i = 0; i < measurements.size(); ++i) {
        measurements[i].file = options.inputs[i];
        measurements[i].method = options.settings.method;
        measurements[i].error = end.errors[i];
    }
    print_all(options, measurements);
    end_batch(end);
}

} // namespace

void add_ellipses_command(CLI::App& program)
{
    const auto options = std::make_shared<EllipsesOptions>();
    CLI::App& command = *program.add_subcommand("ellipses", "Measure round and elliptical targets");
    constexpr std::int32_t kMost = 2147483647;
    constexpr const char* kDefault = " (default ";
    add_batch_options(command, options->batch);
    command
        .add_option("-o,--output", options->output,
                    "Also write each picture's results (JSON) into a file of its own; {} and {path} as below")
        ->type_name("FILE");
    command.add_option("--method", options->method, "precise (default), or library: what find_ellipse finds")
        ->check(CLI::IsMember({"precise", "library"}))
        ->type_name("HOW");
    CLI::Option* const of_precise[] = {
        command
            .add_option("--polarity", options->polarity, "Targets against their ground: dark, bright, both (default)")
            ->check(CLI::IsMember({"dark", "bright", "both"}))
            ->type_name("WHICH"),
        command
            .add_option("--min-quality", options->settings.min_quality,
                        concat("Targets of less are left out", kDefault, options->settings.min_quality, ")"))
            ->check(CLI::Range(0.0, 1.0))
            ->type_name("Q"),
        command.add_option("--board", options->board, "The targets form a board of so many rows and columns")
            ->type_name("ROWSxCOLS"),
        command.add_flag("--covariance", options->choice.wants_covariance,
                         "Also print the covariance of the geometry")};
    CLI::Option* const of_library[] = {
        command
            .add_option(
                "--min-pixels", options->settings.min_pixels,
                concat("Library: smallest number of outline pixels", kDefault, options->settings.min_pixels, ")"))
            ->transform(whole_number(0, kMost))
            ->type_name("N"),
        command
            .add_option(
                "--max-rms", options->settings.max_rms,
                concat("Library: fits of this residual or more are rejected", kDefault, options->settings.max_rms, ")"))
            ->transform(whole_number(1, kMost)) // nothing lies below 0
            ->type_name("N"),
        command.add_option("--divisions", options->divisions, "Library: tiles of the threshold across each dimension")
            ->transform(whole_number(1, kMost))
            ->type_name("N")};
    command.add_flag("--times", options->choice.wants_times, "Also say how long it took");
    command.add_flag("--ring", options->settings.wants_ring, "Look for bright marks on a ring around each target");
    command.add_flag("--csv", options->wants_csv, "Print the results as comma-separated values");
    command.add_option("--svg", options->svg, "Write an overlay as SVG")->type_name("FILE");
    command.add_option("--png", options->picture, "Write an overlay as PNG, or as another format by the name's ending")
        ->type_name("FILE");
    add_common_options(command, options->common);
    command.footer(
        concat(kExplanation, PANOVAL_MEASURE_USUAL_RADIUS, kOfOutlines, image::kReadFormats, kOfPictures, kHelpEnd));
    const std::vector<CLI::Option*> precise(std::begin(of_precise), std::end(of_precise));
    const std::vector<CLI::Option*> library(std::begin(of_library), std::end(of_library));
    command.callback([options, precise, library] {
        for (const CLI::Option* const option : options->method == "library" ? precise : library)
            if (option->count() > 0)
                options->foreign.push_back(option->get_name());
        measure_all(*options);
    });
}

} // namespace panoval::cli
