// SPDX-License-Identifier: MIT
#include "cli/pyramid/pyramid.h"

#include "cli/base/errors.h"
#include "cli/base/file_names.h"
#include "cli/base/parallel.h"
#include "cli/base/system_info.h"
#include "cli/base/write_options.h"
#include "image/image_read.h"
#include "image/row_writer.h"
#include "image/zarr_rows.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <mutex>

namespace panoval::cli
{

namespace
{

constexpr std::int32_t kRowsAtOnce = 64;

bool is_folder(const std::string& name)
{
    std::error_code error;
    return std::filesystem::is_directory(path_from_utf8(name), error);
}

image::ZarrStore open_complete(const std::string& name)
{
    image::ZarrStore store = image::ZarrStore::open(name);
    if (const std::int64_t missing = store.first_missing_tile(); missing >= 0)
        fail_input(name, concat("no whole tile ", missing, " of ", store.picture().tiles),
                   "all of them; panoval stitch --plan PLAN --resume makes what is missing");
    return store;
}

std::int64_t chunks_of(const image::ZarrArray& array)
{
    return array.chunk_columns() * array.chunk_rows();
}

// A row of chunks a step.
void write_level(const image::ZarrStore& store, std::size_t level, Progress& bar)
{
    const image::ZarrArray& array = store.array(level);
    for (std::int64_t row = 0; row < array.chunk_rows(); ++row) {
        bar.step(concat("level ", level));
        run_in_parallel(static_cast<std::size_t>(array.chunk_columns()), [&](std::size_t column) {
            image::write_halved_chunk(store, level, row, static_cast<std::int64_t>(column));
        });
    }
}

Json sizes_of(const image::ZarrStore& store)
{
    Json sizes = Json::array();
    for (std::size_t level = 0; level < store.levels(); ++level)
        sizes.push_back({store.array(level).width, store.array(level).height});
    return sizes;
}

void add_levels(const PyramidOptions& options)
{
    const Stopwatch stopwatch;
    if (!is_folder(options.input))
        fail_input(options.input, "no store", "one as panoval stitch -o NAME.zarr makes it, or -o OUT");
    image::ZarrStore store = open_complete(options.input);
    store.drop_levels();
    std::int64_t steps = 0;
    while (chunks_of(store.array(store.levels() - 1)) > 1) {
        store.add_level();
        steps += store.array(store.levels() - 1).chunk_rows();
    }
    {
        Progress bar(options.common.progress_mode(), "reducing", static_cast<std::size_t>(steps));
        for (std::size_t level = 1; level < store.levels(); ++level)
            write_level(store, level, bar);
    }
    store.publish_levels();
    const std::uint64_t memory = peak_memory_bytes();
    const Json json = {{"store", options.input},
                       {"levels", sizes_of(store)},
                       {"seconds", stopwatch.seconds()},
                       {"peak_memory_bytes", memory}};
    print_results(options.common, json,
                  {{"store", printable(options.input)},
                   {"levels", concat(store.levels(), ", the full picture counted")},
                   {"time", concat(fixed(stopwatch.seconds(), 2), " s")},
                   {"memory", concat(fixed(1e-6 * static_cast<double>(memory), 0), " MB at most")}});
}

std::unique_ptr<image::RowReader> open_source(const std::string& name)
{
    return is_folder(name) ? image::open_store_rows(open_complete(name)) : image::open_rows(name);
}

// All rows, some at once.
void copy_rows(image::RowReader& source, int bits, image::RowWriter& writer, Progress& bar)
{
    const ImageInfo info = source.info();
    for (std::int32_t y = 0; y < info.height;) {
        bar.step(concat("row ", y));
        const std::int32_t count = std::min(kRowsAtOnce, info.height - y);
        Image rows = make_image(info.width, count, info.channels, info.bits, "rows");
        if (info.has_alpha)
            ensure_mask(rows, "rows");
        rows.has_alpha = info.has_alpha;
        source.read_rows(y, count, rows_of(rows));
        convert_depth(rows, bits, "rows");
        writer.add(rows_of(std::as_const(rows)), count);
        y += count;
    }
}

void write_picture(const PyramidOptions& options)
{
    const Stopwatch stopwatch;
    const image::OutputName output_name(options.output);
    const auto source = open_source(options.input);
    image::PictureInfo picture;
    static_cast<ImageInfo&>(picture) = source->info();
    picture.metadata = source->metadata();
    picture.bits = options.depth != 0 ? options.depth : picture.bits;
    output_name.check(picture.channels, picture.bits, picture.has_alpha);
    output_name.check_size(picture.width, picture.height);
    refuse_to_overwrite(options.output, {options.input});
    image::WriteOptions write =
        write_options({options.compression, options.quality, false}, output_name, picture.has_alpha);
    write.has_pyramid = true;
    OutputFile output(options.output);
    {
        Progress bar(options.common.progress_mode(), "writing",
                     static_cast<std::size_t>((picture.height - 1) / kRowsAtOnce + 1));
        const auto writer = make_row_writer(output, output_name, picture, write);
        copy_rows(*source, picture.bits, *writer, bar);
        writer->finish();
    }
    output.commit();
    const std::uint64_t memory = peak_memory_bytes();
    const Json json = {{"input", options.input},   {"output", options.output},       {"width", picture.width},
                       {"height", picture.height}, {"seconds", stopwatch.seconds()}, {"peak_memory_bytes", memory}};
    print_results(options.common, json,
                  {{"picture", printable(options.output)},
                   {"size", describe(picture)},
                   {"time", concat(fixed(stopwatch.seconds(), 2), " s")},
                   {"memory", concat(fixed(1e-6 * static_cast<double>(memory), 0), " MB at most")}});
}

} // namespace

void make_pyramid(const PyramidOptions& options)
{
    if (options.output.empty() && (options.depth != 0 || options.quality != 0 || !options.compression.empty()))
        fail_usage("found --depth, --quality or --compression without -o; expected them with a picture file as OUT");
    if (options.output.empty())
        add_levels(options);
    else
        write_picture(options);
}

} // namespace panoval::cli
