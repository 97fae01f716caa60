// SPDX-License-Identifier: MIT
#include "cli/stitch/picture_files.h"

#include "cli/base/errors.h"
#include "cli/stitch/plan_file.h"
#include "image/image_read.h"
#include "image/row_reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace panoval::cli
{

PictureFiles::PictureFiles(const PanoramaPlan& plan, Notices notices)
    : plan_(plan), notices_(std::move(notices)), entries_(plan.layers.size())
{
}

PanovalMosaicHost PictureFiles::host()
{
    return {this, &PictureFiles::read_rows, &PictureFiles::release_picture, &PictureFiles::report};
}

PanovalMosaicPicture PictureFiles::describe(const PanoramaPlan& plan, std::size_t index)
{
    const PlacedLayer& layer = plan.layers[index];
    const Sides& frame = layer.frame;
    PanovalMosaicPicture picture{};
    picture.x = layer.position.x - (frame.left ? 1 : 0);
    picture.y = layer.position.y - (frame.top ? 1 : 0);
    picture.width = layer.info.width + (frame.left ? 1 : 0) + (frame.right ? 1 : 0);
    picture.height = layer.info.height + (frame.top ? 1 : 0) + (frame.bottom ? 1 : 0);
    picture.channels = plan.channels;
    picture.bits = plan.bits;
    picture.has_mask = layer.info.has_alpha || !layer.mask.empty() || !layer.exclude.empty() || frame.any() ? 1 : 0;
    picture.has_keep = layer.keep.empty() || frame.any() ? 0 : 1; // frames go with blending without seams
    return picture;
}

std::uint64_t PictureFiles::largest_picture() const
{
    std::uint64_t largest = 0;
    for (const PlacedLayer& layer : plan_.layers)
        largest = std::max<std::uint64_t>(largest, layer.info.samples() * static_cast<std::size_t>(plan_.bits / 8) +
                                                       layer.info.pixels());
    return largest;
}

void PictureFiles::rethrow()
{
    if (failure_ != nullptr)
        std::rethrow_exception(std::exchange(failure_, nullptr));
}

void PictureFiles::keep_failure()
{
    const std::lock_guard lock(mutex_);
    if (failure_ == nullptr)
        failure_ = std::current_exception();
}

std::int32_t PictureFiles::read_rows(void* user, const PanovalMosaicRows* rows)
{
    auto* const files = static_cast<PictureFiles*>(user);
    try {
        files->give(*rows);
        return 0;
    } catch (const std::exception& error) {
        std::strncpy(rows->message, error.what(), PANOVAL_MOSAIC_MESSAGE_SIZE - 1);
        files->keep_failure();
    } catch (...) {
        files->keep_failure();
    }
    return 1;
}

void PictureFiles::release_picture(void* user, std::int32_t picture)
{
    Entry& entry = static_cast<PictureFiles*>(user)->entries_[static_cast<std::size_t>(picture)];
    entry.image.reset();
    entry.keep.reset();
}

std::int32_t PictureFiles::report(void* user, std::int32_t phase, double fraction)
{
    auto* const files = static_cast<PictureFiles*>(user);
    const std::lock_guard lock(files->mutex_);
    files->notices_.progress(phase, fraction);
    return 0;
}

void PictureFiles::open(std::size_t index)
{
    const PlacedLayer& layer = plan_.layers[index];
    Entry& entry = entries_[index];
    if (!entry.was_read) {
        const std::lock_guard lock(mutex_);
        notices_.picture(layer);
    }
    check_fingerprint(layer);
    entry.image = std::make_unique<Image>(load_layer(layer, plan_.bits));
    if (!layer.keep.empty() && !layer.frame.any())
        entry.keep = std::make_unique<Image>(load_mask(layer.keep, layer));
    entry.metadata = std::move(entry.image->metadata);
    entry.was_read = true;
}

void PictureFiles::give(const PanovalMosaicRows& rows)
{
    const auto index = static_cast<std::size_t>(rows.picture);
    Entry& entry = entries_[index];
    if (entry.image == nullptr)
        open(index);
    const Image& image = *entry.image;
    const auto width = static_cast<std::size_t>(image.width);
    for (std::int32_t y = 0; y < rows.row_count; ++y) {
        const auto to = static_cast<std::size_t>(y);
        const std::int32_t from = rows.first_row + y;
        std::memcpy(static_cast<std::uint8_t*>(rows.samples) + to * rows.samples_stride, image.row(from),
                    image.row_bytes());
        const std::size_t pixel = static_cast<std::size_t>(from) * width;
        if (rows.mask != nullptr)
            std::memcpy(rows.mask + to * rows.mask_stride, image.mask.get() + pixel, width);
        if (rows.keep != nullptr)
            std::memcpy(rows.keep + to * rows.keep_stride, entry.keep->data.get() + pixel, width);
    }
}

const CommonMetadata& PictureFiles::metadata(bool of_all)
{
    if (metadata_ != nullptr)
        return *metadata_;
    metadata_ = std::make_unique<CommonMetadata>();
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        const std::string name = plan_.layers[i].name();
        if (entries_[i].was_read)
            metadata_->add(entries_[i].metadata, name);
        else if (of_all)
            metadata_->add(open_rows(plan_.layers[i].file, plan_.layers[i].layer)->metadata(), name);
    }
    return *metadata_;
}

} // namespace panoval::cli
