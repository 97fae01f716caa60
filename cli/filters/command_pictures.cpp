// SPDX-License-Identifier: MIT
// The commands that make one picture of another: edges, smooth, gradient, distance, threshold.
#include "cli/filters/command_pictures.h"

#include "cli/base/batch.h"
#include "cli/base/common_options.h"
#include "cli/base/errors.h"
#include "cli/base/file_names.h"
#include "cli/base/number_options.h"
#include "cli/base/system_info.h"
#include "cli/filters/picture_filters.h"
#include "image/image_read.h"
#include "image/image_write.h"
#include "image/output_file.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <functional>
#include <memory>

namespace panoval::cli
{

namespace
{

struct PictureOptions {
    BatchOptions batch;
    std::string output;
    EdgeSettings edges;
    std::string metric = "chamfer";
    std::int32_t level = -1;
    CommonOptions common;
};

// Accepts numbers from least to most, and nothing that is not a number.
CLI::Validator between(double least, double most)
{
    const auto check = [least, most](const std::string& text) {
        double value = 0;
        const bool is_inside = CLI::detail::lexical_cast(text, value) && value >= least && value <= most;
        return is_inside ? std::string() : concat("Value ", text, " not in range ", least, " to ", most);
    };
    return CLI::Validator(check, concat("FLOAT in [", least, " - ", most, "]"));
}

// What a command found out beside its picture.
struct PictureResult {
    Image image;
    Json numbers = Json::object(); // for --json
    ResultLines lines;             // for people
};

using MakePicture =
    std::function<PictureResult(const Image& grey, const PictureOptions& options, const std::string& input)>;

const char* const kInputHelp =
    " file. Colour is made grey (0.299 red, 0.587 green, 0.114 blue), 16 bit are\n"
    "scaled to 8, an alpha channel is ignored. OUT is grey, 8 bit; its ending names the format.\n"
    "Of a TIFF file with several pictures the first is taken. As OUT, - is standard output, in PNG.\n"
    "\n";

void need_size(const Image& image, const std::string& file, std::int32_t least)
{
    if (image.width < least || image.height < least)
        fail_input(file, describe(image), concat("at least ", least, " x ", least, " pixels"));
}

void make_one(const PictureOptions& options, const MakePicture& make, const std::string& input,
              const std::string& output, FileResult& result)
{
    const OutputName output_name(output);
    output_name.check(1, 8, false);
    refuse_to_overwrite(output, {input});
    if (options.batch.resumes && is_whole_picture(output, input)) {
        result = kept_result(output);
        return;
    }
    Image grey = read_grey(input);
    convert_depth(grey, 8, input);
    const Stopwatch stopwatch;
    PictureResult made = make(grey, options, input);
    const double seconds = stopwatch.seconds();
    write_image(output_name, made.image);
    result.json = {{"output", output}, {"width", grey.width}, {"height", grey.height}, {"seconds", seconds}};
    result.json.update(made.numbers);
    result.lines = {{"output", concat(printable(output), ", ", describe(made.image))},
                    {"time", concat(fixed(seconds * 1e3, 1), " ms")}};
    result.lines.insert(result.lines.end(), made.lines.begin(), made.lines.end());
}

void run(const PictureOptions& options, const std::string& label, const MakePicture& make)
{
    const std::vector<std::string> inputs = batch_inputs(options.batch);
    const std::vector<std::string> outputs = names_for("--output", options.output, inputs);
    OutputName(outputs.front()).check(1, 8, false);
    std::vector<FileResult> results(inputs.size());
    const BatchEnd end = run_batch(options.batch, options.common, label, inputs,
                                   [&](std::size_t i) { make_one(options, make, inputs[i], outputs[i], results[i]); });
    print_file_results(options.batch, options.common, inputs, results, end);
    end_batch(end);
}

PictureResult make_edges(const Image& grey, const PictureOptions& options, const std::string& input)
{
    need_size(grey, input, 3);
    FilteredPicture edges = edge_picture(grey, options.edges, input);
    const auto count = static_cast<std::uint64_t>(edges.value);
    return {std::move(edges.image), {{"edge_pixels", count}}, {{"edges", concat(count, " pixels")}}};
}

PictureResult make_smooth(const Image& grey, const PictureOptions&, const std::string& input)
{
    return {smooth_picture(grey, input), Json::object(), {}};
}

PictureResult make_gradient(const Image& grey, const PictureOptions&, const std::string& input)
{
    need_size(grey, input, 2);
    FilteredPicture gradient = gradient_picture(grey, input);
    return {std::move(gradient.image),
            {{"largest_magnitude", gradient.value}},
            {{"largest", concat(fixed(gradient.value, 0), " grey levels, shown as 255")}}};
}

struct Metric {
    const char* name;
    float straight, diagonal;
};

// Costs of a straight and of a diagonal step; those of "chamfer" come closest to the true distance.
constexpr Metric kMetrics[] = {{"chamfer", 0.955f, 1.3693f}, {"city-block", 1.0f, 2.0f}, {"chessboard", 1.0f, 1.0f}};

PictureResult make_distance(const Image& grey, const PictureOptions& options, const std::string& input)
{
    const auto* const data = grey.data.get();
    if (std::find(data, data + grey.pixels(), 0) == data + grey.pixels())
        fail_input(input, "no black pixel", "at least one pixel of value 0 to measure from");
    const auto* const metric = std::find_if(std::begin(kMetrics), std::end(kMetrics),
                                            [&](const Metric& m) { return options.metric == m.name; });
    FilteredPicture distance = distance_picture(grey, metric->straight, metric->diagonal, input);
    return {std::move(distance.image),
            {{"largest_distance", distance.value}},
            {{"largest", concat(fixed(distance.value, 3), " pixels, shown as 255")}}};
}

PictureResult make_threshold(const Image& grey, const PictureOptions& options, const std::string& input)
{
    FilteredPicture binary = threshold_picture(grey, options.level, input);
    const auto level = static_cast<std::int32_t>(binary.value);
    if (level < 0)
        fail_input(input, concat("a single grey level, ", static_cast<int>(grey.data[0])),
                   "at least two to tell apart, or --level");
    return {std::move(binary.image), {{"level", level}}, {{"level", concat(level)}}};
}

CLI::App& add_picture_command(CLI::App& program, const std::string& name, const std::string& what,
                              const std::shared_ptr<PictureOptions>& options, MakePicture make,
                              const std::string& explanation)
{
    CLI::App& command = *program.add_subcommand(name, what);
    command
        .add_option("-o,--output", options->output,
                    concat("The result: ", endings_for(1, 8, false), "; of several pictures a name with {} or {path}"))
        ->required()
        ->type_name("OUT");
    add_batch_options(command, options->batch);
    add_common_options(command, options->common);
    command.footer(concat("IMAGE is a ", image::kReadFormats, kInputHelp, kBatchHelp, explanation, "\n", kHelpEnd));
    command.callback([options, name, make = std::move(make)] { run(*options, name, make); });
    return command;
}

} // namespace

void add_edges_command(CLI::App& program)
{
    const auto options = std::make_shared<PictureOptions>();
    CLI::App& command = add_picture_command(
        program, "edges", "Find edges (Canny)", options, make_edges,
        "Edges are black on white. The high threshold is found from the picture: --high is the share of the candidate\n"
        "pixels that lie below it; an edge is followed from there down to --low times that threshold.\n"
        "\n"
        "Examples:\n"
        "  panoval edges photo.jpg -o edges.png\n"
        "  panoval edges photo.jpg -o coarse.png --sigma 3 --high 0.95\n"
        "  panoval edges shots/*.png -o \"{path}-edges.tif\" --jobs 4 --resume\n"
        "  panoval edges - -o - <photo.jpg >edges.png\n");
    // Larger sigmas than the picture is wide only cost time.
    command.add_option("--sigma", options->edges.sigma, "Smoothing before, in pixels (default 1)")
        ->check(between(0.1, 1000))
        ->type_name("PIXELS");
    command.add_option("--low", options->edges.low, "Low threshold as a share of the high one (default 0.4)")
        ->check(between(0, 1))
        ->type_name("SHARE");
    command.add_option("--high", options->edges.high, "Share of candidates below the high threshold (default 0.9)")
        ->check(between(0, 1))
        ->type_name("SHARE");
}

void add_smooth_command(CLI::App& program)
{
    add_picture_command(program, "smooth", "Smooth with a Gaussian of sigma 1", std::make_shared<PictureOptions>(),
                        make_smooth,
                        "The kernel has 5 x 5 pixels; the outermost two rows and columns stay as they are.\n"
                        "\n"
                        "Example:\n"
                        "  panoval smooth photo.jpg -o smooth.png\n");
}

void add_gradient_command(CLI::App& program)
{
    add_picture_command(program, "gradient", "Show the gradient's magnitude", std::make_shared<PictureOptions>(),
                        make_gradient,
                        "The largest magnitude is shown as 255, the others in proportion.\n"
                        "\n"
                        "Example:\n"
                        "  panoval gradient photo.jpg -o gradient.png\n");
}

void add_distance_command(CLI::App& program)
{
    const auto options = std::make_shared<PictureOptions>();
    CLI::App& command = add_picture_command(
        program, "distance", "Show the distance to the nearest black pixel", options, make_distance,
        "The largest distance is shown as 255, the others in proportion. The picture's border is no edge.\n"
        "\n"
        "Examples:\n"
        "  panoval distance mask.png -o distance.png\n"
        "  panoval distance mask.png -o blocks.png --metric city-block\n");
    command
        .add_option("--metric", options->metric,
                    "chamfer (default, close to the true distance), city-block, chessboard")
        ->check(CLI::IsMember({"chamfer", "city-block", "chessboard"}))
        ->type_name("HOW");
}

void add_threshold_command(CLI::App& program)
{
    const auto options = std::make_shared<PictureOptions>();
    CLI::App& command = add_picture_command(
        program, "threshold", "Make a picture black and white", options, make_threshold,
        "Pixels up to the level become black, the others white. Without --level the one with the largest variance\n"
        "between the two classes is taken (Otsu).\n"
        "\n"
        "Examples:\n"
        "  panoval threshold page.png -o page-bw.png\n"
        "  panoval threshold page.png -o page-bw.png --level 128\n");
    command.add_option("--level", options->level, "The level, 0 to 255")
        ->transform(whole_number(0, 255))
        ->type_name("N");
}

} // namespace panoval::cli
