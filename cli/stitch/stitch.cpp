// SPDX-License-Identifier: MIT
#include "cli/stitch/stitch.h"

#include "cli/base/errors.h"
#include "cli/base/file_names.h"
#include "cli/base/system_info.h"
#include "cli/base/write_options.h"
#include "cli/stitch/panorama_job.h"
#include "cli/stitch/panorama_output.h"
#include "cli/stitch/plan_file.h"
#include "cli/stitch/report_page.h"
#include "cli/stitch/stitch_results.h"
#include "cli/stitch/store_output.h"
#include "cli/stitch/temporary_room.h"
#include "image/image_write.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>

namespace panoval::cli
{

namespace
{

constexpr std::size_t kBlendSteps = 100; // of the progress bar

void check_outputs(const PanoramaJob& job)
{
    const StitchOptions& options = job.options;
    std::vector<std::string> inputs = {options.layout, options.plan};
    for (const PlacedLayer& layer : job.plan.layers)
        inputs.insert(inputs.end(), {layer.file, layer.mask, layer.keep, layer.exclude});
    if (const std::string seams = seam_file_name(options.output); options.is_plan_only && file_exists(seams))
        refuse_to_overwrite(seams, inputs);
    for (const std::string* const output : {&options.output, &options.gains, &options.report, &options.save_seams})
        if (file_exists(*output)) // what is not there is no input; a look at every picture takes time
            refuse_to_overwrite(*output, inputs);
    refuse_one_name({options.output, options.gains, options.report, options.save_seams});
}

image::PictureInfo format_of(const PanoramaJob& job)
{
    image::PictureInfo format;
    const PanovalMosaicRect region = job.region();
    format.width = static_cast<std::int32_t>(region.width);
    format.height = static_cast<std::int32_t>(region.height);
    format.channels = job.layout.channels;
    format.bits = job.output_bits();
    format.has_alpha = job.options.wants_alpha;
    format.position = Offset{job.layout.origin_x + region.x, job.layout.origin_y + region.y};
    return format;
}

image::WriteOptions write_options_of(const StitchOptions& options)
{
    return write_options({options.compression, options.quality, options.wants_pyramid}, *options.target,
                         options.wants_alpha);
}

int seam_bits(const PanoramaJob& job)
{
    return job.plan.layers.size() > 255 ? 16 : 8;
}

// What a tile is made of must be known: nobody wants all pictures to be measured for each of them.
void check_tiles(const PanoramaJob& job, bool is_store)
{
    const StitchOptions& options = job.options;
    if (options.tiles.empty())
        return;
    const std::vector<std::int64_t> numbers = parse_tiles(options.tiles, output_tiles(job).count());
    if (!is_store && numbers.size() != 1)
        fail_usage(concat("found --tile ", printable(options.tiles, 60), "; expected one number, or a .zarr as OUT"));
    if (!options.plan.empty() && !job.is_measured)
        fail_input(options.plan, "no gains or seams", "a plan with both, as panoval stitch --plan-only writes it");
}

// What is put out as one picture.
PanovalMosaicRect made_region(const PanoramaJob& job)
{
    if (job.options.tiles.empty() || job.options.makes_store())
        return job.region();
    const OutputTiles tiles = output_tiles(job);
    return tiles.rect(parse_tiles(job.options.tiles, tiles.count()).front());
}

void check_sizes(const PanoramaJob& job)
{
    const StitchOptions& options = job.options;
    const PanovalMosaicRect region = job.region();
    const PanovalMosaicRect made = made_region(job);
    if (options.target)
        options.target->check_size(made.width, made.height);
    if (options.seams_target)
        options.seams_target->check_size(region.width, region.height);
}

void check_seams_target(const PanoramaJob& job)
{
    const StitchOptions& options = job.options;
    if (!options.seams_target)
        return;
    if (!job.has_seams())
        fail_usage("found --save-seams without seams; expected --seams optimal or nearest and --blend multiband");
    if (job.plan.layers.size() > 65535)
        fail_usage(concat("found --save-seams with ", job.plan.layers.size(), " pictures; expected at most 65535"));
}

// What can be told before a pixel is read.
void check_formats(const PanoramaJob& job)
{
    const StitchOptions& options = job.options;
    if (options.target) {
        const image::PictureInfo format = format_of(job);
        options.target->check(format.channels, format.bits, format.has_alpha);
        (void)write_options_of(options);
    }
    check_seams_target(job);
    if (!options.finds_crop()) // what is left is not known yet
        check_sizes(job);
}

std::unique_ptr<OutputFile> open_output(const std::string& name, bool is_wanted = true)
{
    return name.empty() || !is_wanted ? nullptr : std::make_unique<OutputFile>(name);
}

// A grey picture: 0 where no picture is, else the number of the picture, counted from 1.
void write_seams(OutputFile& output, const PanoramaJob& job)
{
    image::PictureInfo format = format_of(job);
    format.channels = 1;
    format.bits = seam_bits(job);
    format.has_alpha = false;
    const auto writer = make_row_writer(output, *job.options.seams_target, format);
    const PanovalMosaicRect region = job.region();
    const auto left = static_cast<std::size_t>(region.x);
    std::vector<std::int32_t> labels(static_cast<std::size_t>(job.layout.width));
    std::vector<std::uint8_t> row(static_cast<std::size_t>(region.width) * format.sample_bytes());
    for (std::int64_t y = region.y; y < region.y + region.height; ++y) {
        job.mosaic.check(panoval_mosaic_seam_row(job.mosaic.get(), y, labels.data()));
        for (std::size_t x = 0; x < static_cast<std::size_t>(region.width); ++x) {
            const auto number = static_cast<std::uint16_t>(labels[left + x] + 1);
            if (format.bits == 16)
                std::memcpy(&row[2 * x], &number, sizeof number);
            else
                row[x] = static_cast<std::uint8_t>(number);
        }
        writer->add({row.data(), row.size(), nullptr, 0}, 1);
    }
    writer->finish();
}

// The one tile that is wanted, as a picture.
void write_tile(OutputFile& output, PanoramaJob& job, PictureFiles& files)
{
    const PanovalMosaicRect rect = made_region(job);
    Image tile = make_image(static_cast<std::int32_t>(rect.width), static_cast<std::int32_t>(rect.height),
                            job.layout.channels, job.output_bits(), output.target());
    if (job.options.wants_alpha)
        ensure_mask(tile, output.target());
    tile.has_alpha = job.options.wants_alpha;
    const std::int32_t code = panoval_mosaic_blend(job.mosaic.get(), &rect, tile.data.get(), tile.row_bytes(),
                                                   tile.mask.get(), static_cast<std::size_t>(tile.width));
    files.rethrow();
    job.mosaic.check(code);
    tile.metadata = job.metadata ? *job.metadata : files.metadata(false).common();
    tile.position = Offset{job.layout.origin_x + rect.x, job.layout.origin_y + rect.y};
    write_image(output, *job.options.target, tile, write_options_of(job.options));
}

// The panorama into its file; its small picture where the report wants one.
Image write_panorama(OutputFile& output, PanoramaJob& job, PictureFiles& files)
{
    const image::PictureInfo format = format_of(job);
    PanoramaOutput panorama(output, *job.options.target, format, job.region(), write_options_of(job.options),
                            [&] { return job.metadata ? *job.metadata : files.metadata(true).common(); });
    if (!job.options.report.empty())
        panorama.want_preview(job.layout.width, job.layout.height);
    const PanovalMosaicSink sink = panorama.sink();
    const std::int32_t code = panoval_mosaic_run(job.mosaic.get(), &sink);
    panorama.rethrow();
    files.rethrow();
    job.mosaic.check(code);
    panorama.finish();
    return job.options.report.empty() ? Image() : panorama.preview();
}

// The bar of a run: a step for each picture that is opened, then the tiles.
class RunProgress
{
public:
    explicit RunProgress(const PanoramaJob& job)
        : bar_(job.options.common.progress_mode(), "stitching", job.plan.layers.size() + kBlendSteps),
          output_(job.options.output)
    {
    }

    PictureFiles::Notices notices()
    {
        return {[this](const PlacedLayer& layer) {
                    const std::lock_guard lock(mutex_);
                    bar_.step(layer.name());
                },
                [this](std::int32_t phase, double fraction) { report(phase, fraction); }};
    }

    void report(std::int32_t phase, double fraction)
    {
        if (phase != PANOVAL_MOSAIC_PHASE_BLEND)
            return;
        const std::lock_guard lock(mutex_);
        for (; static_cast<double>(blended_) < fraction * static_cast<double>(kBlendSteps); ++blended_)
            bar_.step(output_);
    }

private:
    std::mutex mutex_;
    Progress bar_;
    const std::string output_;
    std::size_t blended_ = 0;
};

void write_plan(OutputFile& output, const PanoramaJob& job)
{
    Json plan = job.plan_json(output.target());
    std::unique_ptr<OutputFile> seams;
    if (job.options.splits_seams && plan.contains("seams")) {
        seams = std::make_unique<OutputFile>(seam_file_name(output.target()));
        move_seams(plan, *seams);
        plan.erase("statistics"); // every task reads all of the plan, and needs the gains alone
    }
    plan["id"] = id_of_plan(plan);
    output.write(text_of_plan(plan));
    if (seams != nullptr)
        seams->commit();
}

// Several outputs, of which one may fail and the others come all the same.
class Attempts
{
public:
    template <class Write>
    void make(OutputFile* output, const Write& write)
    {
        if (output == nullptr)
            return;
        try {
            write();
            output->commit();
        } catch (...) {
            if (failure_ == nullptr)
                failure_ = std::current_exception();
        }
    }

    void rethrow() const
    {
        if (failure_ != nullptr)
            std::rethrow_exception(failure_);
    }

private:
    std::exception_ptr failure_;
};

void print_notes(const PanoramaJob& job)
{
    for (const std::string& note : job.notes)
        print_warning(job.options.common, note);
}

// Of the picture's corner, where it has a place that its format has no room for.
void print_lost_place(const StitchOptions& options, const image::Offset& place)
{
    if (options.target && options.target->format().drops_place(place))
        print_warning(options.common, concat(printable(options.output), ": its place, ", place.x, ",", place.y,
                                             ", is left out: ", options.target->format().name,
                                             " holds no negative one (a .png does, and --json tells it)"));
}

void exit_if_strict(const StitchOptions& options, const Json& verdict)
{
    if (!options.is_strict || !verdict.contains("verdict"))
        return;
    if (verdict["verdict"] == "bad")
        throw ExitCode::Bad;
    if (verdict["verdict"] != "good")
        throw ExitCode::Look;
}

} // namespace

void stitch(const StitchOptions& options)
{
    const Stopwatch stopwatch;
    const bool is_store = options.makes_store();
    PanoramaJob job(options);
    check_tiles(job, is_store);
    check_formats(job);
    if (options.is_dry_run) {
        print_notes(job);
        return print_estimate(job);
    }
    check_outputs(job);
    const auto output = open_output(options.output, !is_store);
    const auto store = is_store ? std::make_unique<StoreOutput>(options) : nullptr;
    const auto report = open_output(options.report);
    const auto gains = open_output(options.gains, job.saves_gains);
    const auto seams = open_output(options.save_seams);
    const TemporaryRoom room(job);
    PictureFiles* opened = nullptr;
    std::unique_ptr<PictureFiles> files;
    Image preview;
    {
        RunProgress progress(job);
        files = std::make_unique<PictureFiles>(job.plan, progress.notices());
        opened = files.get();
        job.measure(*opened);
        check_sizes(job);
        if (options.is_plan_only)
            write_plan(*output, job);
        else if (is_store)
            store->make(job, *opened, [&](double fraction) { progress.report(PANOVAL_MOSAIC_PHASE_BLEND, fraction); });
        else if (!options.tiles.empty())
            write_tile(*output, job, *opened);
        else
            preview = write_panorama(*output, job, *opened);
    }
    StitchOutcome outcome{job, made_region(job), job.gains(), job.verdict(), 0, 0};
    if (store != nullptr)
        store->commit();
    else
        output->commit();
    // The panorama is there; what goes beside it does not depend on each other.
    Attempts others;
    others.make(gains.get(), [&] { write_gains(*gains, job.plan, outcome.gains); });
    others.make(seams.get(), [&] { write_seams(*seams, job); });
    others.make(report.get(), [&] { report->write(report_page({job, outcome.gains, outcome.verdict, preview})); });
    if (store != nullptr && (options.resumes || !options.tiles.empty())) {
        print_tiles(job, store->done(), stopwatch.seconds());
        others.rethrow();
        return exit_if_failed(store->done());
    }
    print_notes(job);
    print_lost_place(options, {job.layout.origin_x + outcome.made.x, job.layout.origin_y + outcome.made.y});
    for (const std::string& name : opened->uncovered_names())
        print_warning(options.common, concat(printable(name), ": its mask covers nothing; it is not in the panorama"));
    if (const std::string disagreement = opened->metadata(options.tiles.empty()).disagreement(); !disagreement.empty())
        print_warning(options.common, disagreement);
    outcome.seconds = stopwatch.seconds();
    outcome.decodes = opened->decodes();
    room.look_back(outcome.decodes);
    print_outcome(outcome);
    print_verdict(options, outcome.verdict);
    others.rethrow();
    exit_if_strict(options, outcome.verdict);
}

} // namespace panoval::cli
