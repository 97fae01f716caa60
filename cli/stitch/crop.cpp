// SPDX-License-Identifier: MIT
// Each row of the canvas is the ground of a skyline: how many pixels above each column are covered without a gap. A
// stack of ascending steps finds the largest rectangle on this ground in one pass; the best of all rows counts.
#include "cli/stitch/crop.h"

#include "cli/base/errors.h"

#include <tuple>

namespace panoval::cli
{

namespace
{

// Which pixels are covered does not depend on where seams run; with seams in the middle only masks are read.
void set_up_coverage(const PanoramaJob& job, PictureFiles& files, const MosaicHandle& mosaic)
{
    PanovalMosaicOptions options = job.engine_options();
    options.blend = PANOVAL_MOSAIC_MULTIBAND;
    options.seams = PANOVAL_MOSAIC_SEAMS_NEAREST;
    options.gains = PANOVAL_MOSAIC_GAINS_OFF;
    options.vignetting = 0;
    options.tile_size = 0;
    options.bands = 0;
    mosaic.check(panoval_mosaic_set_options(mosaic.get(), &options));
    for (std::size_t i = 0; i < job.plan.layers.size(); ++i) {
        const PanovalMosaicPicture picture = PictureFiles::describe(job.plan, i);
        mosaic.check(panoval_mosaic_add_picture(mosaic.get(), &picture));
    }
    const PanovalMosaicHost host = files.host();
    mosaic.check(panoval_mosaic_set_host(mosaic.get(), &host));
    const std::int32_t code = panoval_mosaic_measure(mosaic.get(), PANOVAL_MOSAIC_MEASURE_SEAMS);
    files.rethrow();
    mosaic.check(code);
}

} // namespace

void LargestRectangle::consider(const Step& step, std::int64_t end)
{
    const PanovalMosaicRect rect{step.left, next_row_ - step.height + 1, end - step.left, step.height};
    const std::int64_t area = rect.width * rect.height;
    const std::int64_t best = best_.width * best_.height;
    if (area > best || (area == best && area > 0 &&
                        std::tuple(rect.y, rect.x, -rect.width) < std::tuple(best_.y, best_.x, -best_.width)))
        best_ = rect;
}

void LargestRectangle::add_row(const std::int32_t* labels)
{
    const std::size_t width = heights_.size() - 1;
    steps_.clear();
    for (std::size_t x = 0; x <= width; ++x) {
        if (x < width)
            heights_[x] = labels[x] < 0 ? 0 : heights_[x] + 1;
        const std::int64_t height = heights_[x];
        auto left = static_cast<std::int64_t>(x);
        while (!steps_.empty() && steps_.back().height > height) {
            consider(steps_.back(), static_cast<std::int64_t>(x));
            left = steps_.back().left;
            steps_.pop_back();
        }
        if (height > 0 && (steps_.empty() || steps_.back().height < height))
            steps_.push_back({left, height});
    }
    ++next_row_;
}

PanovalMosaicRect find_crop(const PanoramaJob& job, PictureFiles& files)
{
    const MosaicHandle coverage;
    if (!job.has_seams())
        set_up_coverage(job, files, coverage);
    const MosaicHandle& source = job.has_seams() ? job.mosaic : coverage;
    const PanovalMosaicLayout layout = source.layout();
    LargestRectangle largest(layout.width);
    std::vector<std::int32_t> labels(static_cast<std::size_t>(layout.width));
    for (std::int64_t y = 0; y < layout.height; ++y) {
        source.check(panoval_mosaic_seam_row(source.get(), y, labels.data()));
        largest.add_row(labels.data());
    }
    if (largest.found().width == 0)
        throw Failure(Fault::Input, "found no covered pixel in all pictures; expected one to crop to");
    return largest.found();
}

} // namespace panoval::cli
