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
    picture.random_access = layer.is_stored ? 1 : 0;
    picture.has_keep = layer.keep.empty() || frame.any() ? 0 : 1; // frames go with blending without seams
    return picture;
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
    entry.rows.reset();
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
    entry.rows = std::make_unique<LayerRows>(layer, plan_.bits);
    entry.metadata = entry.rows->metadata();
    entry.was_read = true;
}

void PictureFiles::give(const PanovalMosaicRows& rows)
{
    const auto index = static_cast<std::size_t>(rows.picture);
    Entry& entry = entries_[index];
    if (entry.rows == nullptr)
        open(index);
    const image::Rows to{static_cast<std::uint8_t*>(rows.samples), rows.samples_stride, rows.mask, rows.mask_stride};
    entry.rows->read(rows.first_row, rows.row_count, to);
    if (rows.keep != nullptr)
        entry.rows->read_keep(rows.first_row, rows.row_count, rows.keep, rows.keep_stride);
    entry.rows_given += rows.row_count;
    if (rows.mask != nullptr && !entry.covers_any)
        note_cover(index, rows);
}

// Rows come in any order and more than once.
void PictureFiles::note_cover(std::size_t index, const PanovalMosaicRows& rows)
{
    Entry& entry = entries_[index];
    const PanovalMosaicPicture picture = describe(plan_, index);
    entry.was_given.resize(static_cast<std::size_t>(picture.height));
    for (std::int32_t i = 0; i < rows.row_count; ++i) {
        const std::uint8_t* const mask = rows.mask + static_cast<std::size_t>(i) * rows.mask_stride;
        const auto y = static_cast<std::size_t>(rows.first_row) + static_cast<std::size_t>(i);
        if (std::any_of(mask, mask + picture.width, [](std::uint8_t value) { return value != 0; })) {
            entry.covers_any = true;
            return;
        }
        if (!entry.was_given[y])
            ++entry.empty_rows;
        entry.was_given[y] = true;
    }
}

double PictureFiles::decodes() const
{
    double all = 0;
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        const double given =
            static_cast<double>(entries_[i].rows_given) / static_cast<double>(describe(plan_, i).height);
        all += plan_.layers[i].is_stored ? std::min(given, 1.0) : given;
    }
    return all;
}

std::vector<std::string> PictureFiles::uncovered_names() const
{
    std::vector<std::string> names;
    for (std::size_t i = 0; i < entries_.size(); ++i)
        if (!entries_[i].covers_any && entries_[i].empty_rows == describe(plan_, i).height)
            names.push_back(plan_.layers[i].name());
    return names;
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
