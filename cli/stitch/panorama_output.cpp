// SPDX-License-Identifier: MIT
#include "cli/stitch/panorama_output.h"

#include "cli/base/errors.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace panoval::cli
{

PreviewMaker::PreviewMaker(std::int64_t width, std::int64_t height, int channels, int bits)
    : width_(width), channels_(channels), bits_(bits)
{
    // High panoramas are bounded as well.
    step_ = std::max((width + kWidth - 1) / kWidth, (height + 2 * kWidth - 1) / (2 * kWidth));
    const auto small = [&](std::int64_t side) {
        return static_cast<std::int32_t>(std::max<std::int64_t>(1, side / step_));
    };
    preview_ = make_image(small(width), small(height), channels, 8, "the report");
    std::fill_n(preview_.data.get(), preview_.bytes(), std::uint8_t{0});
    sums_.resize(static_cast<std::size_t>(preview_.width) * static_cast<std::size_t>(channels));
}

void PreviewMaker::add_row(const std::uint8_t* samples)
{
    if (next_row_ == preview_.height) // what is left of a square
        return;
    const auto channels = static_cast<std::size_t>(channels_);
    for (std::size_t x = 0; x < static_cast<std::size_t>(preview_.width); ++x)
        for (std::size_t u = 0; u < static_cast<std::size_t>(std::min(step_, width_)); ++u)
            for (std::size_t c = 0; c < channels; ++c)
                sums_[x * channels + c] +=
                    image::sample_at(samples, bits_, (x * static_cast<std::size_t>(step_) + u) * channels + c);
    if (++rows_in_sums_ == step_)
        close_row();
}

void PreviewMaker::close_row()
{
    const auto count =
        static_cast<std::uint64_t>(rows_in_sums_ * std::min(step_, width_) * image::levels_per_byte(bits_));
    for (std::size_t i = 0; i < sums_.size(); ++i)
        preview_.row(next_row_)[i] = static_cast<std::uint8_t>((sums_[i] + count / 2) / count);
    std::fill(sums_.begin(), sums_.end(), 0);
    rows_in_sums_ = 0;
    ++next_row_;
}

Image PreviewMaker::finish()
{
    if (rows_in_sums_ > 0 && next_row_ < preview_.height)
        close_row();
    return std::move(preview_);
}

PanoramaOutput::PanoramaOutput(OutputFile& output, const image::OutputName& name, const image::PictureInfo& format,
                               const PanovalMosaicRect& region, const image::WriteOptions& options,
                               MetadataSource metadata)
    : output_(output), name_(name), format_(format), region_(region), options_(options), metadata_(std::move(metadata))
{
}

void PanoramaOutput::want_preview(std::int64_t width, std::int64_t height)
{
    preview_ = std::make_unique<PreviewMaker>(width, height, format_.channels, format_.bits);
}

PanovalMosaicSink PanoramaOutput::sink()
{
    PanovalMosaicSink sink{};
    sink.user = this;
    sink.write = &PanoramaOutput::write;
    sink.wants_coverage = format_.has_alpha ? 1 : 0;
    return sink;
}

void PanoramaOutput::rethrow()
{
    if (failure_ != nullptr)
        std::rethrow_exception(std::exchange(failure_, nullptr));
}

std::int32_t PanoramaOutput::write(void* user, const PanovalMosaicRect* rect, const void* samples, std::size_t stride,
                                   const std::uint8_t* coverage, std::size_t coverage_stride, char* message)
{
    auto* const output = static_cast<PanoramaOutput*>(user);
    try {
        output->take(*rect, {static_cast<const std::uint8_t*>(samples), stride, coverage, coverage_stride});
        return 0;
    } catch (const std::exception& error) {
        std::strncpy(message, error.what(), PANOVAL_MOSAIC_MESSAGE_SIZE - 1);
        output->failure_ = std::current_exception();
    } catch (...) {
        output->failure_ = std::current_exception();
    }
    return 1;
}

void PanoramaOutput::take(const PanovalMosaicRect& rect, const image::ConstRows& rows)
{
    const auto count = static_cast<std::int32_t>(rect.height);
    if (writer_ == nullptr) {
        format_.metadata = metadata_();
        writer_ = image::make_row_writer(output_, name_, format_, options_);
    }
    for (std::int32_t y = 0; preview_ != nullptr && y < count; ++y)
        preview_->add_row(rows.row(y));
    // What of these rows belongs to the region.
    const std::int64_t first = std::max(region_.y - rect.y, std::int64_t{0});
    const std::int64_t end = std::min(region_.y + region_.height - rect.y, rect.height);
    if (first >= end)
        return;
    image::ConstRows part = rows.from(static_cast<std::int32_t>(first));
    const auto left = static_cast<std::size_t>(region_.x);
    part.samples += left * static_cast<std::size_t>(format_.channels) * format_.sample_bytes();
    part.mask += part.mask != nullptr ? left : 0;
    writer_->add(part, static_cast<std::int32_t>(end - first));
}

void PanoramaOutput::finish()
{
    writer_->finish();
}

Image PanoramaOutput::preview()
{
    return preview_->finish();
}

} // namespace panoval::cli
