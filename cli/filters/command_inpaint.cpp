// SPDX-License-Identifier: MIT
// panoval inpaint: fills marked pixels from their surroundings.
#include "cli/filters/command_inpaint.h"

#include "cli/base/common_options.h"
#include "cli/base/errors.h"
#include "cli/base/file_names.h"
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
Block pixels_to_fill(const InpaintOptions& options, const Image& image)
{
    if (!options.mask.empty()) {
        Image mask = read_mask(options.mask);
        if (mask.width != image.width || mask.height != image.height)
            fail_input(options.mask, concat("a mask of ", mask.width, " x ", mask.height, " pixels"),
                       concat(image.width, " x ", image.height, ", the size of '", printable(options.input), "'"));
        return std::move(mask.data);
    }
    if (image.mask == nullptr)
        fail_input(options.input, "no alpha channel", "one, or a mask with --mask FILE");
    Block marks = allocate_block(image.pixels(), options.input);
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
    const auto side = static_cast<std::size_t>(2 * margin);
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
    inpaint(&image, &mask, range);
    return unfilled_pixels(colour, to_fill, mask_block.get());
}

void inpaint_file(const InpaintOptions& options)
{
    refuse_to_overwrite(options.output, {options.input, options.mask});
    Progress progress(options.common.progress_mode(), "inpainting", 3);
    progress.step("reading");
    Image image = read_image(options.input);
    const Block marks = pixels_to_fill(options, image);
    image.mask.reset();
    image.has_alpha = false;
    const bool is_grey = image.channels == 1;
    check_output_format(options.output, image.channels, 8, false);
    convert_depth(image, 8, options.input);
    convert_to_colour(image, options.input);

    progress.step("filling");
    Image filled = make_image(image.width, image.height, 3, 8, options.input);
    std::copy_n(image.data.get(), image.bytes(), filled.data.get());
    filled.metadata.profile = image.metadata.profile;
    const Stopwatch stopwatch;
    const std::size_t unfilled = inpaint_picture(filled, marks.get(), options.range, options.input);
    const double seconds = stopwatch.seconds();
    const std::size_t changed = changed_pixels(image, filled);
    if (is_grey)
        convert_to_grey(filled, options.input); // three equal channels give their value

    progress.step("writing");
    write_image(options.output, filled);
    const auto marked = static_cast<std::size_t>(
        std::count_if(marks.get(), marks.get() + filled.pixels(), [](std::uint8_t mark) { return mark != 0; }));
    progress.clear();
    if (unfilled != 0)
        print_warning(options.common, concat(printable(options.input), ": found ", unfilled, " of ", marked,
                                             " marked pixels at the picture's border; they stay as they are"));
    print_results(options.common,
                  {{"output", options.output},
                   {"width", filled.width},
                   {"height", filled.height},
                   {"marked_pixels", marked},
                   {"unfilled_pixels", unfilled},
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
