// SPDX-License-Identifier: MIT
// The command line of panoval stitch.
#include "cli/stitch/command_stitch.h"

#include "cli/base/errors.h"
#include "cli/stitch/stitch.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace panoval::cli
{

namespace
{

const char* const kExplanation =
    "INPUT is one of\n"
    "  FILE@X,Y        a picture and the place of its top-left corner in pixels; x grows to the right, y downward\n"
    "  FILE@X,Y:MASK   the same with a grey picture of its size as mask: 0 is not covered, anything else is\n"
    "  FILE            a TIFF file that carries its place (XPosition, YPosition and resolution), or a PNG file with "
    "an\n"
    "                  offset; with several layers each of them is a picture, and @X,Y moves them together\n"
    "Pictures are PNG, TIFF, JPEG or PNM files of 8 or 16 bit, all grey or all colour. An alpha channel is a mask, "
    "too;\n"
    "with both, a pixel counts where both cover it. Places may be negative: the canvas is what the pictures span.\n"
    "\n"
    "Brightness: every picture gets one gain, so that overlapping pictures agree. --gains FILE loads the gains when\n"
    "FILE exists, and otherwise saves there what was measured (JSON), for a second panorama of the same camera.\n"
    "\n"
    "Blending: multiband blends coarse structures over wide transitions and fine ones over narrow ones. The coarsest "
    "of\n"
    "N bands has structures of about 2^N pixels; without --bands N is the largest for which 8 of them fit the "
    "narrowest\n"
    "overlap, from 1 to 7. feather is a mean whose weights fall towards the edges of the masks.\n"
    "\n"
    "--report FILE.html writes a page with the panorama, the layout, the gains, and for every overlap how far the\n"
    "pictures differ before and after the gains, and whether its seam can be trusted. --json has the same numbers.\n"
    "\n"
    "Examples:\n"
    "  panoval stitch -o both.png left.png@0,0 right.png@700,-12\n"
    "      two pictures, the right one 700 pixels to the right and 12 higher\n"
    "  panoval stitch -o pano.tif --alpha a.tif@0,0:a_mask.pgm b.tif@812,4:b_mask.pgm\n"
    "      with masks; what no picture covers is transparent\n"
    "  panoval stitch -o pano.jpg remapped0000.tif remapped0001.tif remapped0002.tif\n"
    "      layers of a remapping program, which know their places\n"
    "  panoval stitch -o pano.png --layout places.json --report pano.html\n"
    "      with a page that tells whether the result can be trusted\n"
    "  panoval stitch -o pano.png --layout places.json --json\n"
    "      places.json: [{\"file\": \"a.png\", \"x\": 0, \"y\": 0, \"mask\": \"a_mask.png\"}, ...]\n"
    "      names are relative to the folder of the layout; mask may be left out\n"
    "\n";

void check(const StitchOptions& options)
{
    if (options.bands != 0 && options.blend != "multiband")
        fail_usage("found --bands with --blend feather; expected it with multiband alone");
    if (options.inputs.empty() && options.layout.empty())
        fail_usage("there is nothing to stitch; expected INPUT... or --layout FILE (see panoval stitch --help)");
    if (!options.inputs.empty() && !options.layout.empty())
        fail_usage(concat("found both INPUT ('", printable(options.inputs.front()), "') and --layout; expected one"));
}

} // namespace

void add_stitch_command(CLI::App& program)
{
    const auto options = std::make_shared<StitchOptions>();
    CLI::App& command = *program.add_subcommand("stitch", "Blend placed pictures into a panorama");
    command.add_option("INPUT", options->inputs, "Pictures and their places, see below");
    command
        .add_option("-o,--output", options->output,
                    "The panorama: .png .tif .tiff .jpg .jpeg .pgm .ppm .pnm or .pam. The file is written beside the "
                    "target and takes its name when it is complete")
        ->required()
        ->type_name("OUT");
    command
        .add_option("--layout", options->layout,
                    "Take pictures and places from a JSON file instead, or the layers of a TIFF file")
        ->type_name("FILE");
    command.add_option("--blend", options->blend, "multiband (default) or feather, see below")
        ->check(CLI::IsMember({"multiband", "feather"}))
        ->type_name("HOW");
    command
        .add_option("--bands", options->bands, "Bands of multiband blending, 1 to 30; fewer where the canvas is small")
        ->check(CLI::Range(1, 30))
        ->type_name("N");
    auto* const no_gain = command.add_flag("--no-gain", options->has_no_gain, "Leave the brightness as it is");
    command.add_option("--gains", options->gains, "Load the gains from FILE, or save them there if it does not exist")
        ->type_name("FILE")
        ->excludes(no_gain);
    command.add_option("--report", options->report, "Write an HTML page about the panorama and its seams")
        ->type_name("FILE");
    command
        .add_option("--depth", options->depth,
                    "Bits per sample of the panorama, 8 or 16; without it 16 when a picture has 16, except for JPEG")
        ->check(CLI::IsMember({"8", "16"}))
        ->type_name("BITS");
    command.add_flag("--alpha", options->wants_alpha, "Write the coverage as alpha channel (PNG, TIFF, PAM)");
    add_common_options(command, options->common);
    command.footer(concat(kExplanation, kHelpEnd));
    command.callback([options] {
        check(*options);
        stitch(*options);
    });
}

} // namespace panoval::cli
