// SPDX-License-Identifier: MIT
#include "mosaic/engine_host.h"

#include "mosaic/base/errors.h"

#include <algorithm>

namespace panoval::mosaic
{

namespace
{

// What a callback left, whatever that is.
class Message
{
public:
    char* text() { return text_; }

    std::string reason(const char* otherwise)
    {
        text_[PANOVAL_MOSAIC_MESSAGE_SIZE - 1] = 0;
        return text_[0] != 0 ? std::string(text_) : std::string(otherwise);
    }

private:
    char text_[PANOVAL_MOSAIC_MESSAGE_SIZE] = {};
};

} // namespace

void HostSource::read_rows(std::size_t picture, std::int64_t first_row, std::int64_t row_count,
                           const RowBuffers& buffers)
{
    Message message;
    PanovalMosaicRows rows{};
    rows.picture = static_cast<std::int32_t>(picture);
    rows.first_row = static_cast<std::int32_t>(first_row);
    rows.row_count = static_cast<std::int32_t>(row_count);
    rows.samples = buffers.samples;
    rows.samples_stride = buffers.samples_stride;
    rows.mask = buffers.mask;
    rows.mask_stride = buffers.mask_stride;
    rows.keep = buffers.keep;
    rows.keep_stride = buffers.keep_stride;
    rows.message = message.text();
    if (host_.read_rows(host_.user, &rows) != 0)
        fail(Failure::Picture, layout_.pictures[picture].name, ": ",
             message.reason("its rows could not be read; the host gives no reason"));
}

void HostSource::release(std::size_t picture)
{
    if (host_.release_picture != nullptr)
        host_.release_picture(host_.user, static_cast<std::int32_t>(picture));
}

void HostProgress::report(Phase phase, double fraction)
{
    if (host_.progress == nullptr)
        return;
    const std::lock_guard lock(mutex_);
    if (phase != phase_)
        most_ = -1;
    phase_ = phase;
    most_ = std::max(most_, std::clamp(fraction, 0.0, 1.0));
    if (host_.progress(host_.user, static_cast<std::int32_t>(phase), most_) != 0)
        fail(Failure::Cancelled, "the host cancelled the work");
}

void HostSink::take(const Piece& piece)
{
    Message message;
    const PanovalMosaicRect rect = {piece.rect.x, piece.rect.y, piece.rect.width, piece.rect.height};
    if (sink_.write(sink_.user, &rect, piece.samples, piece.samples_stride, piece.coverage, piece.coverage_stride,
                    message.text()) != 0)
        fail(Failure::Sink, message.reason("the host could not take pixels and gives no reason"));
}

} // namespace panoval::mosaic
