// SPDX-License-Identifier: MIT
#include "cli/strip_collector.h"

#include <cstring>
#include <utility>

namespace panoval::cli
{

StripCollector::StripCollector(const std::vector<CanvasStrip>& strips, Image header, std::unique_ptr<RowWriter> writer,
                               const std::string& output)
    : strips_(strips), panorama_(std::move(header)), writer_(std::move(writer)), waiting_(strips.size())
{
    if (writer_ == nullptr)
        panorama_.data = allocate_block(panorama_.bytes(), output);
}

void StripCollector::put(std::size_t index, Image blended)
{
    if (writer_ == nullptr)
        return keep(strips_[index], blended);
    {
        const std::lock_guard lock(mutex_);
        waiting_[index] = std::move(blended);
        if (std::exchange(is_writing_, true))
            return;
    }
    Image next;
    while (take_next(next)) {
        const CanvasStrip& strip = strips_[next_ - 1];
        writer_->add(next, strip.first_kept - strip.first, strip.end_kept - strip.first);
    }
}

// Only the thread that is writing calls it. False, and the writing is over for now, where the next strip is not here.
bool StripCollector::take_next(Image& blended)
{
    const std::lock_guard lock(mutex_);
    is_writing_ = next_ < waiting_.size() && waiting_[next_].data != nullptr;
    if (is_writing_)
        blended = std::move(waiting_[next_++]);
    return is_writing_;
}

void StripCollector::keep(const CanvasStrip& strip, const Image& blended)
{
    std::memcpy(panorama_.row(strip.first_kept), blended.row(strip.first_kept - strip.first),
                static_cast<std::size_t>(strip.end_kept - strip.first_kept) * panorama_.row_bytes());
}

Image StripCollector::finish()
{
    if (writer_ != nullptr)
        writer_->finish();
    return std::move(panorama_);
}

} // namespace panoval::cli
