// SPDX-License-Identifier: MIT
#include "mosaic/pictures/picture_view.h"

#include <algorithm>
#include <cstring>

namespace panoval::mosaic
{

void PictureView::read(PictureReader& reader, std::size_t picture, const Rect& new_rect, int channels, int sample_bytes)
{
    rect_ = new_rect;
    channels_ = channels;
    sample_bytes_ = sample_bytes;
    is_held_ = reader.hold(picture, rect_, held_);
    if (!is_held_)
        reader.read(picture, rect_, block_);
    else if (held_.masks.empty())
        whole_.resize(std::max(whole_.size(), at(rect_.width)), 255);
}

bool PictureView::is_covered(std::int64_t y, std::int64_t rows) const
{
    if (is_held_ && held_.masks.empty())
        return true;
    for (std::int64_t i = y; i < y + rows; ++i)
        if (std::memchr(mask_row(i), 0, at(rect_.width)) != nullptr)
            return false;
    return true;
}

} // namespace panoval::mosaic
