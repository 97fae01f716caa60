// SPDX-License-Identifier: MIT
#include "cli/stitch/layer_rows.h"

#include "cli/base/errors.h"
#include "image/image_read.h"

#include <algorithm>
#include <cstring>

namespace panoval::cli
{

using image::Rows;

namespace
{

std::size_t to_size(std::int32_t value)
{
    return static_cast<std::size_t>(value);
}

} // namespace

MaskRows::MaskRows(const std::string& file, const PlacedLayer& layer) : reader_(image::open_rows(file))
{
    const ImageInfo& info = reader_->info();
    if (info.channels != 1 || info.has_alpha)
        fail_input(file, describe(info), "a mask of one grey channel");
    if (info.width != layer.info.width || info.height != layer.info.height)
        fail_input(file, describe(info), "the mask's size of a moment ago");
    if (info.bits == 16)
        wide_.resize(2 * to_size(info.width));
}

void MaskRows::read(std::int32_t first, std::int32_t count, std::uint8_t* mask, std::size_t stride)
{
    if (wide_.empty())
        return reader_->read_rows(first, count, {mask, stride, nullptr, 0});
    for (std::int32_t y = 0; y < count; ++y) {
        reader_->read_rows(first + y, 1, {wide_.data(), wide_.size(), nullptr, 0});
        image::narrow_alpha(wide_.data(), wide_.size() / 2, mask + to_size(y) * stride);
    }
}

LayerRows::LayerRows(const PlacedLayer& layer, int bits)
    : layer_(layer), bits_(bits), reader_(image::open_rows(layer.file, layer.layer))
{
    if (describe(reader_->info()) != describe(layer.info))
        fail_input(layer.name(), concat(describe(reader_->info()), " while reading"),
                   describe(layer.info) + " as a moment ago");
    const auto open = [&layer](const std::string& file) {
        return file.empty() ? nullptr : std::make_unique<MaskRows>(file, layer);
    };
    mask_ = open(layer.mask);
    exclude_ = open(layer.exclude);
    keep_ = layer.frame.any() ? nullptr : open(layer.keep);
}

void LayerRows::merge_masks(std::int32_t first, std::int32_t count, const Rows& to)
{
    const std::size_t width = to_size(layer_.info.width);
    mask_rows_.resize(mask_ != nullptr || exclude_ != nullptr ? width : 0);
    for (std::int32_t y = 0; y < count; ++y) {
        std::uint8_t* const covered = to.mask_row(y);
        if (mask_ != nullptr) {
            mask_->read(first + y, 1, mask_rows_.data(), width);
            std::transform(covered, covered + width, mask_rows_.begin(), covered,
                           [](std::uint8_t a, std::uint8_t b) { return std::min(a, b); });
        }
        if (exclude_ != nullptr) {
            exclude_->read(first + y, 1, mask_rows_.data(), width);
            std::transform(covered, covered + width, mask_rows_.begin(), covered,
                           [](std::uint8_t mask, std::uint8_t out) { return out != 0 ? std::uint8_t{0} : mask; });
        }
    }
}

void LayerRows::read_inside(std::int32_t first, std::int32_t count, const Rows& to)
{
    reader_->read_rows(first, count, to);
    if (bits_ != layer_.info.bits)
        for (std::int32_t y = 0; y < count; ++y)
            image::widen_samples(to.row(y), to_size(layer_.info.width) * to_size(layer_.info.channels), to.row(y));
    if (to.mask != nullptr)
        merge_masks(first, count, to);
}

void LayerRows::read(std::int32_t first, std::int32_t count, const Rows& to)
{
    const Sides& frame = layer_.frame;
    if (!frame.any())
        return read_inside(first, count, to);
    const std::size_t pixel = to_size(layer_.info.channels) * (bits_ == 16 ? 2u : 1u);
    const std::size_t left = frame.left ? 1 : 0;
    const std::size_t width = to_size(layer_.info.width) + left + (frame.right ? 1 : 0);
    for (std::int32_t i = 0; i < count; ++i) {
        Rows row = to.from(i);
        std::memset(row.samples, 0, width * pixel);
        if (row.mask != nullptr)
            std::memset(row.mask, 0, width);
        const std::int32_t y = first + i - (frame.top ? 1 : 0);
        if (y < 0 || y >= layer_.info.height)
            continue;
        row.samples += left * pixel;
        row.mask = row.mask != nullptr ? row.mask + left : nullptr;
        read_inside(y, 1, row);
    }
}

void LayerRows::read_keep(std::int32_t first, std::int32_t count, std::uint8_t* keep, std::size_t stride)
{
    keep_->read(first, count, keep, stride);
}

ReadingCost cost_of_reading(const PlacedLayer& layer)
{
    ReadingCost cost;
    const auto add = [&cost](const image::RowReader& reader) {
        cost.held_bytes += reader.held_bytes();
        cost.is_stored = cost.is_stored && reader.is_stored();
    };
    add(*image::open_rows(layer.file, layer.layer));
    for (const std::string* const mask : {&layer.mask, &layer.keep, &layer.exclude})
        if (!mask->empty())
            add(*image::open_rows(*mask));
    return cost;
}

} // namespace panoval::cli
