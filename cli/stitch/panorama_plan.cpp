// SPDX-License-Identifier: MIT
#include "cli/stitch/panorama_plan.h"

#include "cli/base/errors.h"
#include "cli/stitch/layer_rows.h"
#include "image/image_read.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace panoval::cli
{

namespace
{

constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();

// The smallest rectangle around pictures, in wide numbers.
struct Bounds {
    std::int64_t left = std::numeric_limits<std::int64_t>::max();
    std::int64_t top = std::numeric_limits<std::int64_t>::max();
    std::int64_t right = std::numeric_limits<std::int64_t>::min();
    std::int64_t bottom = std::numeric_limits<std::int64_t>::min();

    void add(const PlacedLayer& layer)
    {
        left = std::min(left, layer.position.x);
        top = std::min(top, layer.position.y);
        right = std::max(right, layer.position.x + layer.info.width);
        bottom = std::max(bottom, layer.position.y + layer.info.height);
    }

    std::int64_t width() const { return right - left; }
    std::int64_t height() const { return bottom - top; }
    bool is_too_long() const { return width() > kMost || height() > kMost; }
};

void check_mask(const std::string& file, const PlacedLayer& layer)
{
    if (file.empty())
        return;
    const ImageInfo mask = probe_image(file).front();
    if (mask.channels != 1 || mask.has_alpha)
        fail_input(file, describe(mask), "a mask of one grey channel");
    if (mask.width != layer.info.width || mask.height != layer.info.height)
        fail_input(file, concat("a mask of ", mask.width, " x ", mask.height, " pixels"),
                   concat(layer.info.width, " x ", layer.info.height, ", the size of ", printable(layer.name())));
}

Offset position_of(const PlacedInput& input, const PlacedLayer& layer)
{
    if (!input.position && !layer.info.position)
        fail_input(layer.name(), "no position in the file", "one: FILE@X,Y, or x and y in a layout");
    // A place that the user gives moves the layers of a file together.
    const Offset own = layer.is_one_of_several || !input.position ? layer.info.position.value_or(Offset{}) : Offset{};
    const Offset given = input.position.value_or(Offset{});
    return {own.x + given.x, own.y + given.y};
}

// That the file is what the layout says about it.
void check_told(const PlacedInput& input, const std::vector<ImageInfo>& infos)
{
    const ImageInfo& found = infos.front();
    ImageInfo told = *input.told;
    told.channels = input.tells_channels ? told.channels : found.channels;
    told.bits = input.tells_bits ? told.bits : found.bits;
    if (infos.size() != 1 || found.width != told.width || found.height != told.height ||
        found.channels != told.channels || found.bits != told.bits)
        fail_input(input.file, infos.size() == 1 ? describe(found) : concat(infos.size(), " layers"),
                   describe(told) + " as the layout says");
}

std::vector<ImageInfo> layers_of(const PlacedInput& input, bool trusts_layout)
{
    if (trusts_layout && input.told)
        return {*input.told};
    std::vector<ImageInfo> infos = probe_image(input.file);
    if (input.told)
        check_told(input, infos);
    return infos;
}

void add_layers(const PlacedInput& input, bool trusts_layout, std::vector<PlacedLayer>& layers)
{
    const std::vector<ImageInfo> infos = layers_of(input, trusts_layout);
    for (const std::string* const mask : {&input.mask, &input.keep, &input.exclude})
        if (infos.size() > 1 && !mask->empty())
            fail_input(*mask, "one mask for a file of several layers", "none: their alpha channels are the masks");
    for (std::size_t i = 0; i < infos.size(); ++i) {
        PlacedLayer layer;
        layer.file = input.file;
        layer.layer = i;
        layer.mask = input.mask;
        layer.keep = input.keep;
        layer.exclude = input.exclude;
        layer.info = infos[i];
        layer.is_one_of_several = infos.size() > 1;
        layer.position = position_of(input, layer);
        for (const std::string* const mask : {&layer.mask, &layer.keep, &layer.exclude})
            if (!trusts_layout || !input.told)
                check_mask(*mask, layer);
        if (!trusts_layout || !input.told) {
            const ReadingCost cost = cost_of_reading(layer);
            layer.held_bytes = cost.held_bytes;
            layer.is_stored = cost.is_stored;
        }
        layers.push_back(layer);
    }
}

// Names the picture with which the canvas becomes too large.
void check_bounds(const std::vector<PlacedLayer>& layers)
{
    Bounds bounds;
    for (const PlacedLayer& layer : layers) {
        bounds.add(layer);
        if (bounds.is_too_long())
            fail_input(layer.name(),
                       concat("at ", layer.position.x, ",", layer.position.y, " a canvas of ", bounds.width(), " x ",
                              bounds.height(), " pixels"),
                       "at most 2^31 - 1 on a side");
    }
}

// Whether the border at `border` lies inside a picture from first to last, where they meet along the border.
bool goes_on(std::int64_t border, std::int64_t first, std::int64_t last)
{
    return first < border && border < last;
}

Sides inner_sides_of(const PlacedLayer& layer, const std::vector<PlacedLayer>& layers)
{
    Bounds own;
    own.add(layer);
    Sides sides;
    for (const PlacedLayer& other_layer : layers) {
        Bounds other;
        other.add(other_layer);
        if (other.top < own.bottom && own.top < other.bottom) {
            sides.left |= goes_on(own.left, other.left, other.right);
            sides.right |= goes_on(own.right, other.left, other.right);
        }
        if (other.left < own.right && own.left < other.right) {
            sides.top |= goes_on(own.top, other.top, other.bottom);
            sides.bottom |= goes_on(own.bottom, other.top, other.bottom);
        }
    }
    return sides;
}

} // namespace

std::string PlacedLayer::name() const
{
    return is_one_of_several ? concat(file, " (layer ", layer + 1, ")") : file;
}

PanoramaPlan plan_panorama(const std::vector<PlacedInput>& inputs, bool trusts_layout)
{
    std::vector<PlacedLayer> layers;
    for (const PlacedInput& input : inputs)
        add_layers(input, trusts_layout, layers);
    return plan_panorama(std::move(layers));
}

PanoramaPlan plan_panorama(std::vector<PlacedLayer> layers)
{
    PanoramaPlan plan;
    plan.layers = std::move(layers);
    const PlacedLayer& first = plan.layers.front();
    Bounds bounds;
    for (const PlacedLayer& layer : plan.layers) {
        if (layer.info.channels != first.info.channels)
            fail_input(layer.name(), concat(layer.info.channels, layer.info.channels == 1 ? " channel" : " channels"),
                       concat(first.info.channels, ", as in ", printable(first.name())));
        bounds.add(layer);
        plan.bits = std::max(plan.bits, layer.info.bits);
    }
    plan.channels = first.info.channels;
    check_bounds(plan.layers);
    plan.origin = {bounds.left, bounds.top};
    plan.width = static_cast<std::int32_t>(bounds.width());
    plan.height = static_cast<std::int32_t>(bounds.height());
    for (PlacedLayer& layer : plan.layers)
        layer.corner = {static_cast<std::int32_t>(layer.position.x - bounds.left),
                        static_cast<std::int32_t>(layer.position.y - bounds.top)};
    return plan;
}

void frame_inner_sides(PanoramaPlan& plan)
{
    for (PlacedLayer& layer : plan.layers)
        layer.frame = inner_sides_of(layer, plan.layers);
}

} // namespace panoval::cli
