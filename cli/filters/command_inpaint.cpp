// SPDX-License-Identifier: MIT
// panoval inpaint: fills marked pixels from their surroundings.
#include "cli/filters/command_inpaint.h"

#include "cli/base/batch.h"
#include "cli/base/common_options.h"
#include "cli/base/errors.h"
#include "cli/base/exhausted_heap.h"
#include "cli/base/file_names.h"
#include "cli/base/number_options.h"
#include "cli/base/system_info.h"
#include "image/image_read.h"
#include "image/image_write.h"
#include "image/output_file.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

namespace panoval::cli
{

namespace
{

struct InpaintOptions {
    BatchOptions batch;
    std::string mask;
    std::string output;
    std::int32_t range = 5;
    CommonOptions common;
};

const char* const kExplanation =
    "Marked pixels are filled inward from the known ones around them. The mask is a grey picture of IMAGE's size in\n"
    "which everything but 0 is marked; without --mask IMAGE's alpha channel is taken, and what is fully transparent\n"
    "is filled. The marked region grows by one pixel on each side. Runs of marked pixels that touch the picture's\n"
    "border are not filled, and the first row and column never are.\n"
    "Grey pictures are worked on as colour and stay grey; 16 bit are scaled to 8. OUT has no alpha channel. Of a TIFF\n"
    "file with several pictures the first is taken. As OUT, - is standard output, in PNG.\n"
    "\n";

const char* const kExamples =
    "Examples:\n"
    "  panoval inpaint old-photo.png --mask scratches.png -o repaired.png\n"
    "  panoval inpaint --files-from list.txt --mask \"{path}-mask.png\" -o \"{path}-repaired.png\" --jobs 4\n"
    "  panoval inpaint cut-out.png -o filled.png --range 8\n"
    "\n";

// One byte a pixel: not 0 where the picture is to be filled.
Block pixels_to_fill(const std::string& input, const std::string& mask_name, const Image& image)
{
    if (!mask_name.empty()) {
        Image mask = read_mask(mask_name);
        if (mask.width != image.width || mask.height != image.height)
            fail_input(mask_name, concat("a mask of ", mask.width, " x ", mask.height, " pixels"),
                       concat(image.width, " x ", image.height, ", the size of '", printable(input), "'"));
        return std::move(mask.data);
    }
    if (image.mask == nullptr)
        fail_input(input, "no alpha channel", "one, or a mask with --mask FILE");
    Block marks = allocate_block(image.pixels(), input);
    for (std::size_t i = 0; i < image.pixels(); ++i)
        marks[i] = image.mask[i] == 0 ? 255 : 0;
    return marks;
}

std::size_t changed_pixels(const Image& before, const Image& after)
{
    std::size_t changed = 0;
    const std::size_t bytes = 3;
    for (std::size_t i = 0; i < before.pixels(); ++i)
        changed += !std::equal(&before.data[i * bytes], &before.data[i * bytes] + bytes, &after.data[i * bytes]);
    return changed;
}

// What the routine takes: 11 bytes for every pixel of the rectangle that its neighbourhoods reach, and 16 for every one
// that its front can meet: of each mark 5 x 5.
std::size_t inpaint_bytes(const Image& image, const std::uint8_t* to_fill, std::int32_t range)
{
    const std::int32_t margin = range + 3;
    std::int32_t left = image.width, top = image.height, right = 0, bottom = 0;
    std::size_t marked = 0;
    for (std::int32_t y = 0; y < image.height; ++y)
        for (std::int32_t x = 0; x < image.width; ++x)
            if (*to_fill++ != 0) {
                ++marked;
                left = std::min(left, x);
                right = std::max(right, x + 1);
                top = std::min(top, y);
                bottom = std::max(bottom, y + 1);
            }
    if (marked == 0)
        return 0;
    constexpr std::size_t kBehindRow = 16;
    const auto width = static_cast<std::size_t>(std::min(right - left + 2 * margin, image.width + 2)) + kBehindRow;
    const auto height = static_cast<std::size_t>(std::min(bottom - top + 2 * margin, image.height + 2));
    const auto side = 2 * static_cast<std::size_t>(margin);
    return 11 * width * height + 16 * std::min(width * height, 25 * marked) +
           sizeof(float) * side * (side + kBehindRow);
}

// Marked pixels that stay as they are: those of the first row and column, and runs at the border, whose marks the
// routine has taken away, as far as no mark is left beside them.
std::size_t unfilled_pixels(const Image& image, const std::uint8_t* to_fill, const std::uint8_t* left_marks)
{
    const auto is_left_beside = [&](std::int32_t x, std::int32_t y) {
        for (std::int32_t row = std::max(y - 1, 0); row <= std::min(y + 1, image.height - 1); ++row)
            for (std::int32_t col = std::max(x - 1, 0); col <= std::min(x + 1, image.width - 1); ++col)
                if (left_marks[static_cast<std::size_t>(row) * static_cast<std::size_t>(image.width) +
                               static_cast<std::size_t>(col)] != 0)
                    return true;
        return false;
    };
    std::size_t unfilled = 0;
    for (std::int32_t y = 0; y < image.height; ++y)
        for (std::int32_t x = 0; x < image.width; ++x)
            if (*to_fill++ != 0 && (x == 0 || y == 0 || !is_left_beside(x, y)))
                ++unfilled;
    return unfilled;
}

// Fills the pixels where to_fill is not 0, in place, and returns how many of them it did not fill. 3 channels of 8 bit.
std::size_t inpaint_picture(Image& colour, const std::uint8_t* to_fill, std::int32_t range, const std::string& file)
{
    const Block mask_block = allocate_block(colour.pixels(), file); // the routine changes the mask
    std::memcpy(mask_block.get(), to_fill, colour.pixels());
    need_memory(inpaint_bytes(colour, to_fill, range), file); // without it the picture would stay as it is
    Mat image = borrow_mat(colour);
    const auto size = static_cast<std::int32_t>(colour.pixels());
    Mat mask = {colour.width, colour.height, 1, 1, size, size, mask_block.get()};
    const HeapWatch watch;
    inpaint(&image, &mask, range);
    if (watch.has_failed())
        fail_memory(file, inpaint_bytes(colour, to_fill, range));
    return unfilled_pixels(colour, to_fill, mask_block.get());
}

struct FilledPicture {
    Image image;
    std::size_t marked = 0;
    std::size_t unfilled = 0;
    std::size_t changed = 0;
    double seconds = 0;
};

FilledPicture fill(const std::string& input, const std::string& mask, const OutputName& output, std::int32_t range)
{
    Image image = read_image(input);
    const Block marks = pixels_to_fill(input, mask, image);
    image.mask.reset();
    image.has_alpha = false;
    const bool is_grey = image.channels == 1;
    output.check(image.channels, 8, false);
    convert_depth(image, 8, input);
    convert_to_colour(image, input);

    FilledPicture filled;
    filled.image = make_image(image.width, image.height, 3, 8, input);
    std::copy_n(image.data.get(), image.bytes(), filled.image.data.get());
    filled.image.metadata.profile = image.metadata.profile;
    const Stopwatch stopwatch;
    filled.unfilled = inpaint_picture(filled.image, marks.get(), range, input);
    filled.seconds = stopwatch.seconds();
    filled.changed = changed_pixels(image, filled.image);
    filled.marked = static_cast<std::size_t>(
        std::count_if(marks.get(), marks.get() + image.pixels(), [](std::uint8_t mark) { return mark != 0; }));
    if (is_grey)
        convert_to_grey(filled.image, input); // three equal channels give their value
    return filled;
}

void inpaint_file(const InpaintOptions& options, const std::string& input, const std::string& output,
                  FileResult& result)
{
    const std::string mask = name_for(options.mask, input);
    refuse_to_overwrite(output, {input, mask});
    if (options.batch.resumes && is_whole_picture(output, input) && (mask.empty() || is_newer(output, mask))) {
        result = kept_result(output);
        return;
    }
    const OutputName output_name(output);
    const FilledPicture filled = fill(input, mask, output_name, options.range);
    write_image(output_name, filled.image);
    result.json = {{"output", output},
                   {"width", filled.image.width},
                   {"height", filled.image.height},
                   {"marked_pixels", filled.marked},
                   {"unfilled_pixels", filled.unfilled},
                   {"changed_pixels", filled.changed},
                   {"seconds", filled.seconds}};
    result.lines = {{"output", concat(printable(output), ", ", describe(filled.image))},
                    {"marked", concat(filled.marked, " pixels")},
                    {"changed", concat(filled.changed, " pixels")},
                    {"time", concat(fixed(filled.seconds * 1e3, 1), " ms")}};
}

// About marks that had to stay, once all pictures are done.
void warn_of_unfilled(const InpaintOptions& options, const std::vector<std::string>& inputs,
                      const std::vector<FileResult>& results)
{
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        const auto unfilled = results[i].json.value("unfilled_pixels", std::size_t{0});
        if (unfilled != 0)
            print_warning(options.common, concat(printable(inputs[i]), ": found ", unfilled, " of ",
                                                 results[i].json.at("marked_pixels").get<std::size_t>(),
                                                 " marked pixels at the picture's border; they stay as they are"));
    }
}

void inpaint_all(const InpaintOptions& options)
{
    const std::vector<std::string> inputs = batch_inputs(options.batch);
    const std::vector<std::string> outputs = names_for("--output", options.output, inputs);
    (void)OutputName(outputs.front()); // an unknown ending is known at once
    std::vector<FileResult> results(inputs.size());
    const BatchEnd end = run_batch(options.batch, options.common, "inpainting", inputs,
                                   [&](std::size_t i) { inpaint_file(options, inputs[i], outputs[i], results[i]); });
    warn_of_unfilled(options, inputs, results);
    print_file_results(options.batch, options.common, inputs, results, end);
    end_batch(end);
}

} // namespace

void add_inpaint_command(CLI::App& program)
{
    const auto options = std::make_shared<InpaintOptions>();
    CLI::App& command = *program.add_subcommand("inpaint", "Fill marked pixels from their surroundings");
    command
        .add_option("--mask", options->mask,
                    "What to fill: a grey picture, not 0 = fill; with {} or {path} in it, one for each picture")
        ->type_name("MASK");
    command
        .add_option("-o,--output", options->output,
                    concat("The result: ", all_endings(), "; of several pictures a name with {} or {path}"))
        ->required()
        ->type_name("OUT");
    command.add_option("--range", options->range, "Radius of the neighbourhood in pixels (default 5)")
        ->transform(whole_number(1, 1000))
        ->type_name("PIXELS");
    add_batch_options(command, options->batch);
    add_common_options(command, options->common);
    command.footer(concat(kExplanation, kBatchHelp, kExamples, kHelpEnd));
    command.callback([options] { inpaint_all(*options); });
}

} // namespace panoval::cli
