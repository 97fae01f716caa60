// SPDX-License-Identifier: MIT
#include "mosaic/pictures/picture_view.h"

#include <algorithm>

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

} // namespace panoval::mosaic
