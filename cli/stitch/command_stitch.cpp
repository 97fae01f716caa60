// SPDX-License-Identifier: MIT
// The command line of panoval stitch.
#include "cli/stitch/command_stitch.h"

#include "cli/base/errors.h"
#include "cli/base/number_options.h"
#include "cli/base/write_options.h"
#include "cli/stitch/plan_agreement.h"
#include "cli/stitch/stitch.h"
#include "image/image_read.h"
#include "image/row_writer.h"
#include "panoval_mosaic.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace panoval::cli
{

namespace
{

const char* const kExplanation =
    "INPUT is one of\n"
    "  FILE@X,Y        a picture and the place of its top-left corner in pixels; x grows to the right, y downward;\n"
    "                  fractions of pixels are rounded\n"
    "  FILE@X,Y:MASK   the same with a grey picture of its size as mask: 0 is not covered, anything else is\n"
    "  FILE            a TIFF file that carries its place (XPosition, YPosition and resolution), or a PNG file with "
    "an\n"
    "                  offset; with several layers each of them is a picture, and @X,Y moves them together\n"
    "Pictures are ";

const char* const kOfPictures =
    " files of 8 or 16 bit, all grey or all colour. An alpha channel is a mask, "
    "too;\n"
    "with both, a pixel counts where both cover it. Places may be negative: the canvas is what the pictures span.\n"
    "\n"
    "Pictures must be aligned already: stitch moves and bends nothing. A grey mask counts as covered where it is not "
    "0;\n"
    "feather weighs a pixel by its distance from what is not covered, the grey itself does not count. With --seams\n"
    "none, multi-band blending weighs a pixel by its grey.\n"
    "\n"
    "Brightness: every picture gets a gain, so that overlapping pictures agree; one a channel where the white balance\n"
    "differs clearly, or as --gains-per says. --vignetting takes the darkening towards the corners out. --gains FILE\n"
    "loads the gains when FILE exists, and otherwise saves there what was measured (JSON), for a second panorama of "
    "the\n"
    "same camera: gains go to the pictures in their order.\n"
    "\n"
    "Blending: multiband blends coarse structures over wide transitions and fine ones over narrow ones. The coarsest "
    "of\n"
    "N bands has structures of about 2^N pixels; without --bands N is the largest for which ";

// Behind how many structures are to fit the overlaps, and how many bands are chosen at most.
const char* const kOfBands =
    ". Each pixel comes from one picture: --seams optimal leads the seams between\n"
    "pictures through where they differ least, nearest through the middle of overlaps; none blends all that pictures\n"
    "cover. feather is a mean whose weights fall towards the edges of the masks, without seams.\n"
    "\n"
    "Memory: --memory holds for pictures, tiles and output together, whatever the number of pictures and the size of\n"
    "the panorama; a picture that is being decoded must fit besides. Decoded pictures that do not fit wait in a\n"
    "temporary file.\n"
    "\n"
    "Large panoramas in parts: --plan-only -o plan.json measures and saves everything but the pixels; --plan "
    "plan.json\n"
    "then blends without measuring, and with --tile those tiles alone, on any machine that has the pictures which "
    "they\n"
    "show. Into a .zarr (OME-Zarr) any number of processes may write their tiles at once; with --resume only what is\n"
    "missing is made. There --alpha adds the coverage as a last channel. panoval pyramid adds reduced levels, or makes "
    "a\n"
    "TIFF file or Deep Zoom of it.\n"
    "A plan settles ";

// Behind the options that a plan settles.
const char* const kOfVerdict =
    ": beside --plan they may be given as the plan was made, and\n"
    "anything else is refused.\n"
    "\n"
    "The verdict, one of good, look and bad, is on standard error, and with --strict in the exit code: 7 for look,\n"
    "8 for bad. --json tells what it comes from; --no-verdict leaves it out. Single tiles are not judged, and a plan "
    "is\n"
    "with --strict.\n"
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
    "      names are relative to the folder of the layout; mask may be left out. Two more masks can be given:\n"
    "      \"keep\" (what is not 0 must come from this picture) and \"exclude\" (what is not 0 must not)\n"
    "\n";

// As the option takes it, e.g. "512M".
std::string in_megabytes(std::uint64_t bytes)
{
    return concat(bytes >> 20, "M");
}

void check(const StitchOptions& options)
{
    if (options.memory < PANOVAL_MOSAIC_LEAST_MEMORY)
        fail_usage(concat("found --memory ", options.memory, "; expected ", PANOVAL_MOSAIC_LEAST_MEMORY, " bytes (",
                          in_megabytes(PANOVAL_MOSAIC_LEAST_MEMORY), ") or more"));
    if (options.bands != 0 && options.feathers())
        fail_usage("found --bands with --blend feather; expected it with multiband alone");
    if (options.wraps && (options.seams == kNoSeams || options.feathers()))
        fail_usage(concat("found --wrap with ", options.feathers() ? "--blend feather" : "--seams none",
                          "; expected it with --seams optimal or nearest: without seams nothing goes round"));
    if (options.inputs.empty() && options.layout.empty() && options.plan.empty())
        fail_usage("there is nothing to stitch; expected INPUT... or --layout FILE (see panoval stitch --help)");
    if (!options.inputs.empty() && !options.layout.empty())
        fail_usage(concat("found both INPUT ('", printable(options.inputs.front()), "') and --layout; expected one"));
    if (!options.plan.empty() && (!options.inputs.empty() || !options.layout.empty()))
        fail_usage("found --plan with pictures besides; expected the plan alone, it names them");
    const bool is_store = options.makes_store();
    if (options.is_plan_only && (!options.tiles.empty() || options.is_dry_run || !options.report.empty()))
        fail_usage("found --plan-only with --tile, --dry-run or --report; expected it without: no panorama is made");
    if (options.splits_seams && (!options.is_plan_only || options.output == "-"))
        fail_usage("found --split-seams without --plan-only and a file as OUT; expected both");
    if (!options.report.empty() && (!options.tiles.empty() || is_store))
        fail_usage("found --report with --tile or a .zarr; expected the report of a whole panorama in a file");
    if (options.resumes && (options.is_plan_only || !is_store))
        fail_usage("found --resume without a .zarr; expected one as OUT");
    if (options.wants_pyramid && is_store)
        fail_usage("found --pyramid with a .zarr; expected panoval pyramid afterwards, when all tiles are there");
    if (options.is_strict && (!options.tiles.empty() || options.resumes || options.is_dry_run))
        fail_usage("found --strict with --tile, --resume or --dry-run; expected it where all is judged: with a whole "
                   "panorama, or with --plan-only");
    if (options.finds_crop() && options.is_dry_run)
        fail_usage("found --crop with --dry-run; expected a plan that was made with it, for pixels must be read");
}

} // namespace

void add_stitch_command(CLI::App& program)
{
    const auto options = std::make_shared<StitchOptions>();
    CLI::App& command = *program.add_subcommand("stitch", "Blend placed pictures into a panorama");
    command.add_option("INPUT", options->inputs, "Pictures and their places, see below");
    command
        .add_option("-o,--output", options->output,
                    concat("The panorama: ", image::all_endings(image::Outputs::FilesAndStores),
                           "; - is standard output, in PNG. A file is written beside the target and takes its "
                           "name when it is complete"))
        ->required()
        ->type_name("OUT");
    command
        .add_option("--layout", options->layout,
                    "Take pictures and places from a JSON file instead, or the layers of a TIFF file")
        ->type_name("FILE");
    command.add_option("--blend", options->blend, "multiband (default) or feather, see below")
        ->check(CLI::IsMember({kMultiBand, kFeather}))
        ->type_name("HOW");
    command
        .add_option("--bands", options->bands,
                    concat("Bands of multiband blending, 1 to ", PANOVAL_MOSAIC_MOST_BANDS,
                           "; fewer where the canvas is small"))
        ->transform(whole_number(1, PANOVAL_MOSAIC_MOST_BANDS))
        ->type_name("N");
    auto* const no_gain = command.add_flag("--no-gain", options->has_no_gain, "Leave the brightness as it is");
    command.add_option("--gains", options->gains, "Load the gains from FILE, or save them there if it does not exist")
        ->type_name("FILE")
        ->excludes(no_gain);
    command
        .add_option("--gains-per", options->gains_per,
                    "picture: one gain for all channels; channel: one for each; chosen without it")
        ->check(CLI::IsMember({"picture", "channel"}))
        ->type_name("WHAT")
        ->excludes(no_gain);
    command.add_flag("--vignetting", options->vignetting, "Take the darkening towards the pictures' corners out");
    command.add_option("--anchor", options->anchor, "The picture whose exposure stays as it is")->type_name("FILE");
    command.add_option("--seams", options->seams, "optimal (default), nearest or none, see below")
        ->check(CLI::IsMember({kOptimalSeams, kNearestSeams, kNoSeams}))
        ->type_name("HOW");
    command
        .add_option("--save-seams", options->save_seams,
                    concat("Write a grey picture: 0 where no picture is, else the number of the picture a pixel is "
                           "from; ",
                           image::all_endings(image::Outputs::FilesOfNumbers)))
        ->type_name("FILE");
    auto* const wrap = command
                           .add_option("--wrap", options->wrap,
                                       "The left and right edge meet; WIDTH of the circle in pixels, without it what "
                                       "the pictures span")
                           ->transform(whole_number(1, PANOVAL_MOSAIC_LONGEST_SIDE,
                                                    ", or nothing: --wrap stands behind the pictures then"))
                           ->expected(0, 1)
                           ->type_name("WIDTH");
    command
        .add_option("--memory", options->memory,
                    concat("Most memory to use, e.g. 800M or 2G; ", in_megabytes(options->memory), " without it"))
        ->transform(byte_size())
        ->type_name("BYTES");
    command
        .add_option("--threads", options->threads, "Threads, at most what the memory feeds; all processors without it")
        ->transform(whole_number(1, PANOVAL_MOSAIC_MOST_THREADS))
        ->type_name("N");
    command.add_option("--tile-size", options->tile_size, "Width and height of tiles; chosen without it")
        ->transform(whole_number(PANOVAL_MOSAIC_SMALLEST_TILE, kLargestTile))
        ->type_name("PIXELS");
    command.add_flag("--plan-only", options->is_plan_only, "Write the plan (JSON) to OUT and no panorama");
    command.add_flag("--split-seams", options->splits_seams,
                     "With --plan-only: put the seams into OUT.seams, of which the task of a tile reads its part, and "
                     "leave the statistics out");
    command.add_option("--plan", options->plan, "Take pictures, gains, seams and all from this plan")
        ->type_name("FILE");
    command
        .add_option(
            "--tile", options->tiles,
            "Make these tiles alone, counted from 0 row by row: 7, or into a .zarr a list as 0-15,20, or part K "
            "of N as 3/600, K from 0 to N - 1")
        ->type_name("K");
    command.add_flag("--resume", options->resumes,
                     "Keep the tiles that a .zarr has from this plan, and make what is missing");
    command.add_flag("--crop", options->is_cropped,
                     "Cut down to the largest rectangle in which every pixel is covered");
    command.add_flag("--dry-run", options->is_dry_run,
                     "Tell size, tiles, memory, time, and what tasks cost, and make nothing. Pictures of a layout that "
                     "tells their width and height need not be there");
    auto* const no_verdict =
        command.add_flag("--no-verdict", options->is_unjudged, "Do not judge whether the pictures fit");
    command.add_flag("--strict", options->is_strict, "End with 7 where the verdict is look, with 8 where it is bad")
        ->excludes(no_verdict);
    command.add_flag("--distributions", options->wants_distributions,
                     "With --json: how often each difference occurs, 256 numbers an overlap");
    command.add_option("--report", options->report, "Write an HTML page about the panorama and its seams")
        ->type_name("FILE")
        ->excludes(no_verdict);
    command
        .add_option(
            "--depth", options->depth,
            "Bits per sample of the panorama, 8 or 16; without it 16 when a picture has 16 and OUT can hold them")
        ->check(CLI::IsMember({"8", "16"}))
        ->type_name("BITS");
    command
        .add_option("--compression", options->compression,
                    concat("Compression ", image::compression_help(image::Outputs::FilesAndStores)))
        ->check(CLI::IsMember(image::all_compressions(image::Outputs::FilesAndStores)))
        ->type_name("HOW");
    command.add_option("--quality", options->quality, quality_help())
        ->transform(whole_number(1, image::kBestQuality))
        ->type_name("N");
    command.add_flag("--pyramid", options->wants_pyramid,
                     concat("Write reduced pictures behind the full one (", image::endings_with_optional_levels(),
                            "), in tiles all"));
    command.add_flag(
        "--alpha", options->wants_alpha,
        concat("Write the coverage as alpha channel: ", image::endings_with_alpha(image::Outputs::FilesAndStores)));
    add_common_options(command, options->common);
    command.footer(concat(kExplanation, image::kReadFormats, kOfPictures, PANOVAL_MOSAIC_STRUCTURES_PER_OVERLAP,
                          " of them fit the overlaps\nalong most of the seams, from 1 to ",
                          PANOVAL_MOSAIC_MOST_CHOSEN_BANDS, kOfBands, kSettledByPlan, kOfVerdict, kHelpEnd));
    command.callback([options, wrap] {
        options->wraps = wrap->count() > 0;
        if (!options->is_plan_only)
            options->target.emplace(options->output, image::Outputs::FilesAndStores);
        if (!options->save_seams.empty())
            options->seams_target.emplace(options->save_seams, image::Outputs::FilesOfNumbers);
        check(*options);
        stitch(*options);
    });
}

} // namespace panoval::cli
