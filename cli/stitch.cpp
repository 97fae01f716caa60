// SPDX-License-Identifier: MIT
#include "cli/stitch.h"

#include "cli/errors.h"
#include "cli/image_write.h"
#include "cli/panorama_blender.h"
#include "cli/panorama_plan.h"
#include "cli/system_info.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>

namespace panoval::cli
{

namespace
{

std::vector<PlacedInput> inputs_of(const StitchOptions& options)
{
    if (!options.layout.empty())
        return read_layout(options.layout);
    std::vector<PlacedInput> inputs;
    for (const std::string& argument : options.inputs)
        inputs.push_back(parse_placed_input(argument));
    return inputs;
}

int output_bits(const StitchOptions& options, const PanoramaPlan& plan)
{
    return options.depth != 0 ? options.depth : std::min(plan.bits, most_bits_of(options.output));
}

void refuse_to_overwrite(const PanoramaPlan& plan, const std::string& output)
{
    for (const PlacedLayer& layer : plan.layers)
        if (is_same_file(layer.file, output) || (!layer.mask.empty() && is_same_file(layer.mask, output)))
            fail_output(output, "a file that is also an input", "another name");
}

// Where the canvas is covered: at each pixel the largest value of any picture's mask.
class Coverage
{
public:
    Coverage(const PanoramaPlan& plan, const std::string& output)
        : width_(static_cast<std::size_t>(plan.width)),
          mask_(allocate_block(width_ * static_cast<std::size_t>(plan.height), output))
    {
        std::memset(mask_.get(), 0, width_ * static_cast<std::size_t>(plan.height));
    }

    void add(const Image& image, Point corner)
    {
        const auto width = static_cast<std::size_t>(image.width);
        for (std::int32_t y = 0; y < image.height; ++y) {
            const std::uint8_t* const from = image.mask.get() + static_cast<std::size_t>(y) * width;
            std::uint8_t* const to =
                mask_.get() + static_cast<std::size_t>(corner.y + y) * width_ + static_cast<std::size_t>(corner.x);
            for (std::size_t x = 0; x < width; ++x)
                to[x] = std::max(to[x], from[x]);
        }
    }

    Block release() { return std::move(mask_); }

private:
    std::size_t width_;
    Block mask_;
};

Image blend(const StitchOptions& options, const PanoramaPlan& plan, int bits)
{
    const int working_bits = std::max(plan.bits, bits);
    check_canvas(plan, working_bits);
    const auto blender = make_feather_blender(plan, options.output);
    std::unique_ptr<Coverage> coverage;
    if (options.wants_alpha)
        coverage = std::make_unique<Coverage>(plan, options.output);
    Progress progress(options.common.progress_mode(), "stitching", plan.layers.size() + 1);
    for (const PlacedLayer& layer : plan.layers) {
        progress.step(layer.name());
        const Image image = load_layer(layer, working_bits);
        blender->feed(layer, image);
        if (coverage != nullptr)
            coverage->add(image, layer.corner);
    }
    progress.step(options.output);
    Image panorama = blender->blend(working_bits);
    convert_depth(panorama, bits, options.output);
    if (coverage != nullptr) {
        panorama.mask = coverage->release();
        panorama.has_alpha = true;
    }
    return panorama;
}

void print_outcome(const StitchOptions& options, const PanoramaPlan& plan, int bits, double seconds)
{
    const double speed = plan.megapixels() / std::max(seconds, 1e-9);
    const std::uint64_t memory = peak_memory_bytes();
    Json json;
    json["output"] = options.output;
    json["width"] = plan.width;
    json["height"] = plan.height;
    json["channels"] = plan.channels;
    json["bits"] = bits;
    json["alpha"] = options.wants_alpha;
    json["x"] = plan.origin.x;
    json["y"] = plan.origin.y;
    json["blend"] = options.blend;
    json["images"] = plan.layers.size();
    json["seconds"] = seconds;
    json["megapixels_per_second"] = speed;
    json["peak_memory_bytes"] = memory;
    print_results(options.common, json,
                  {{"panorama", options.output},
                   {"size", concat(plan.width, " x ", plan.height, " pixels, ", plan.channels,
                                   plan.channels == 1 ? " channel" : " channels",
                                   options.wants_alpha ? " and alpha, " : ", ", bits, " bit")},
                   {"images", concat(plan.layers.size())},
                   {"time", concat(fixed(seconds, 2), " s, ", fixed(speed, 1), " MP/s")},
                   {"memory", concat(fixed(1e-6 * static_cast<double>(memory), 0), " MB at most")}});
}

} // namespace

void stitch(const StitchOptions& options)
{
    const Stopwatch stopwatch;
    (void)most_bits_of(options.output); // an unknown ending is known at once
    const PanoramaPlan plan = plan_panorama(inputs_of(options));
    const int bits = output_bits(options, plan);
    check_output_format(options.output, plan.channels, bits, options.wants_alpha);
    refuse_to_overwrite(plan, options.output);
    OutputFile output(options.output);
    write_image(output, blend(options, plan, bits));
    output.commit();
    print_outcome(options, plan, bits, stopwatch.seconds());
}

} // namespace panoval::cli
