// SPDX-License-Identifier: MIT
#include "mosaic/tiles/share_pixels.h"

#include "mosaic/tiles/composite_rows.h"

#include <algorithm>

namespace panoval::mosaic
{

void SharePixels::read(PictureReader& reader, const Share& share, const Rect& part)
{
    picture_ = share.picture;
    factors_ = factors_of(corrections_, picture_);
    part_ = part;
    corrected_.clear();
    const Rect own = part.moved(-share.rect.x, -share.rect.y);
    is_held_ = !has_falloff() && reader.hold(picture_, own, held_);
    if (!is_held_)
        reader.read(picture_, own, block_);
}

const std::uint8_t* SharePixels::row(std::int64_t y) const
{
    return is_held_ ? held_.samples[to_size(y - part_.y)] : block_.row(y - part_.y);
}

RawRow SharePixels::raw(std::int64_t y, Interval columns) const
{
    const auto pixel_bytes = static_cast<std::int64_t>(layout_.pixel_bytes());
    return {row(y) + (columns.first - part_.x) * pixel_bytes, to_size(layout_.sample_bytes()),
            to_size(columns.length()), to_size(layout_.channels)};
}

const float* SharePixels::corrected(std::int64_t y, Interval columns)
{
    if (corrected_.empty() || corrected_row_ != y) {
        corrected_.resize(to_size(part_.width * block_.channels));
        corrected_row_ = y;
        const Rect& rect = layout_.pictures[picture_].rect;
        correct_row(corrections_, picture_, {0, 0, rect.width, rect.height}, block_, y - part_.y, corrected_.data());
    }
    return corrected_.data() + (columns.first - part_.x) * block_.channels;
}

void SharePixels::scaled(std::int64_t y, Interval columns, float* out)
{
    if (!has_falloff())
        return scale_row(raw(y, columns), factors_, out);
    std::copy_n(corrected(y, columns), columns.length() * block_.channels, out);
}

void SharePixels::difference(std::int64_t y, Interval columns, const float* composite, float* out)
{
    if (!has_falloff())
        return difference_row(raw(y, columns), factors_, composite, out);
    scaled(y, columns, out);
    subtract_row(out, composite, to_size(columns.length() * block_.channels));
}

void SharePixels::finished(std::int64_t y, Interval columns, float scale, void* out, std::size_t sample_bytes)
{
    if (!has_falloff())
        return finish_scaled_row(raw(y, columns), factors_, scale, out, sample_bytes);
    finish_row(corrected(y, columns), nullptr, scale, to_size(columns.length() * block_.channels), out, sample_bytes);
}

const std::uint8_t* SharePixels::mask(std::int64_t y, std::int64_t x) const
{
    if (!layout_.pictures[picture_].has_mask || (is_held_ && held_.masks.empty()))
        return nullptr;
    return (is_held_ ? held_.masks[to_size(y - part_.y)] : block_.mask_row(y - part_.y)) + (x - part_.x);
}

} // namespace panoval::mosaic
