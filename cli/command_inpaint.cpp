// SPDX-License-Identifier: MIT
// panoval inpaint: fills marked pixels from their surroundings.
#include "cli/commands.h"
#include "cli/common_options.h"
#include "cli/errors.h"
#include "cli/image_read.h"
#include "cli/image_write.h"
#include "cli/output_file.h"
#include "cli/system_info.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

namespace panoval::cli
{

namespace
{

struct InpaintOptions {
    std::string input;
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
    "file with several pictures the first is taken.\n"
    "\n"
    "Examples:\n"
    "  panoval inpaint old-photo.png --mask scratches.png -o repaired.png\n"
    "  panoval inpaint cut-out.png -o filled.png --range 8\n"
    "\n";

// One byte a pixel: not 0 where the picture is to be filled.
std::vector<std::uint8_t> pixels_to_fill(const InpaintOptions& options, const Image& image)
{
    std::vector<std::uint8_t> marks(image.pixels());
    if (!options.mask.empty()) {
        const Image mask = read_mask(options.mask);
        if (mask.width != image.width || mask.height != image.height)
            fail_input(options.mask, concat("a mask of ", mask.width, " x ", mask.height, " pixels"),
                       concat(image.width, " x ", image.height, ", the size of '", printable(options.input), "'"));
        std::copy_n(mask.data.get(), marks.size(), marks.begin());
        return marks;
    }
    if (image.mask == nullptr)
        fail_input(options.input, "no alpha channel", "one, or a mask with --mask FILE");
    for (std::size_t i = 0; i < marks.size(); ++i)
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

// Fills the pixels where to_fill is not 0, in place. 3 channels of 8 bit.
void inpaint_picture(Image& colour, const std::uint8_t* to_fill, std::int32_t range, const std::string& file)
{
    const Block mask_block = allocate_block(colour.pixels(), file); // the routine changes the mask
    std::memcpy(mask_block.get(), to_fill, colour.pixels());
    Mat image = borrow_mat(colour);
    const auto size = static_cast<std::int32_t>(colour.pixels());
    Mat mask = {colour.width, colour.height, 1, 1, size, size, mask_block.get()};
    inpaint(&image, &mask, range);
}

void inpaint_file(const InpaintOptions& options)
{
    refuse_to_overwrite(options.output, {options.input, options.mask});
    Progress progress(options.common.progress_mode(), "inpainting", 3);
    progress.step("reading");
    Image image = read_image(options.input);
    const auto marks = pixels_to_fill(options, image);
    image.mask.reset();
    image.has_alpha = false;
    const bool is_grey = image.channels == 1;
    check_output_format(options.output, image.channels, 8, false);
    convert_depth(image, 8, options.input);
    convert_to_colour(image, options.input);

    progress.step("filling");
    Image filled = make_image(image.width, image.height, 3, 8, options.input);
    std::copy_n(image.data.get(), image.bytes(), filled.data.get());
    const Stopwatch stopwatch;
    inpaint_picture(filled, marks.data(), options.range, options.input);
    const double seconds = stopwatch.seconds();
    const std::size_t changed = changed_pixels(image, filled);
    if (is_grey)
        convert_to_grey(filled, options.input); // three equal channels give their value

    progress.step("writing");
    write_image(options.output, filled);
    const auto marked = static_cast<std::size_t>(
        std::count_if(marks.begin(), marks.end(), [](std::uint8_t mark) { return mark != 0; }));
    print_results(options.common,
                  {{"output", options.output},
                   {"width", filled.width},
                   {"height", filled.height},
                   {"marked_pixels", marked},
                   {"changed_pixels", changed},
                   {"seconds", seconds}},
                  {{"output", concat(printable(options.output), ", ", describe(filled))},
                   {"marked", concat(marked, " pixels")},
                   {"changed", concat(changed, " pixels")},
                   {"time", concat(fixed(seconds * 1e3, 1), " ms")}});
}

} // namespace

void add_inpaint_command(CLI::App& program)
{
    const auto options = std::make_shared<InpaintOptions>();
    CLI::App& command = *program.add_subcommand("inpaint", "Fill marked pixels from their surroundings");
    command.add_option("IMAGE", options->input, "The picture")->required();
    command.add_option("--mask", options->mask, "What to fill: a grey picture, not 0 = fill")->type_name("MASK");
    command.add_option("-o,--output", options->output, "The result; its ending names the format")
        ->required()
        ->type_name("OUT");
    command.add_option("--range", options->range, "Radius of the neighbourhood in pixels (default 5)")
        ->check(CLI::Range(1, 1000))
        ->type_name("PIXELS");
    add_common_options(command, options->common);
    command.footer(concat(kExplanation, kHelpEnd));
    command.callback([options] { inpaint_file(*options); });
}

} // namespace panoval::cli
