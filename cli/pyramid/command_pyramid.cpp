// SPDX-License-Identifier: MIT
// The command line of panoval pyramid.
#include "cli/pyramid/command_pyramid.h"

#include "cli/base/errors.h"
#include "cli/base/number_options.h"
#include "cli/base/write_options.h"
#include "cli/pyramid/pyramid.h"
#include "image/formats.h"
#include "image/row_writer.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace panoval::cli
{

namespace
{

const char* const kExplanation =
    "INPUT is a store as panoval stitch -o NAME.zarr makes it (OME-Zarr: NGFF 0.4, Zarr version 2, zlib or no\n"
    "compression), or with -o any picture file that panoval reads. A store whose tiles are not all there is refused.\n"
    "\n"
    "Without -o reduced levels are added to the store, each half as large as the one before, until one fits a chunk.\n"
    "Viewers find them when the last one is complete; levels that are there already are made anew.\n"
    "\n"
    "Each pixel of a level is the mean of 2 x 2, rounded to nearest, halves upward; a last column or row that is left\n"
    "over stands for two. Where there is coverage, pixels count with it, and a covered pixel does not become "
    "uncovered.\n"
    "\n"
    "Memory follows from the width of the picture, never from its area: one row of chunks and what OUT's format "
    "keeps.\n"
    "Adding levels takes a few chunks a processor. The reduced pictures of a TIFF file wait in files without a name\n"
    "beside OUT.\n"
    "\n"
    "Examples:\n"
    "  panoval pyramid panorama.zarr\n"
    "      adds levels to the store\n"
    "  panoval pyramid panorama.zarr -o panorama.tif --compression deflate\n"
    "      a tiled TIFF file with all levels, BigTIFF where it may pass 4 GB\n"
    "  panoval pyramid panorama.zarr -o panorama.dzi\n"
    "      Deep Zoom for a web page\n"
    "\n";

} // namespace

void add_pyramid_command(CLI::App& program)
{
    const auto options = std::make_shared<PyramidOptions>();
    CLI::App& command = *program.add_subcommand("pyramid", "Add reduced levels to a panorama's store, or make a "
                                                           "pyramid of it");
    command.add_option("INPUT", options->input, "A store, or with -o a picture, see below")->required();
    command
        .add_option("-o,--output", options->output,
                    concat("Write the picture here instead: ", image::all_endings(), "; ", image::endings_with_levels(),
                           " with all levels. It takes its name when it is complete"))
        ->type_name("OUT");
    command.add_option("--depth", options->depth, "Bits per sample of OUT, 8 or 16; without it as INPUT has")
        ->check(CLI::IsMember({"8", "16"}))
        ->type_name("BITS");
    command
        .add_option("--compression", options->compression,
                    concat("Compression ", image::compression_help(image::Outputs::Files)))
        ->check(CLI::IsMember(image::all_compressions(image::Outputs::Files)))
        ->type_name("HOW");
    command.add_option("--quality", options->quality, quality_help())
        ->transform(whole_number(1, image::kBestQuality))
        ->type_name("N");
    add_common_options(command, options->common);
    command.footer(concat(kExplanation, kHelpEnd));
    command.callback([options] { make_pyramid(*options); });
}

} // namespace panoval::cli
