// SPDX-License-Identifier: MIT
#include "mosaic/tiles/share_pixels.h"

#include "mosaic/tiles/composite_rows.h"

#include <algorithm>

namespace panoval::mosaic
{

namespace
{

std::size_t to_size(std::int64_t value)
{
    return static_cast<std::size_t>(value);
}

} // namespace

void SharePixels::read(PictureReader& reader, const Share& share, const Rect& part)
{
    picture_ = share.picture;
    factors_ = factors_of(corrections_, picture_);
    part_ = part;
    corrected_.clear();
    reader.read(picture_, part.moved(-share.rect.x, -share.rect.y), block_);
}

RawRow SharePixels::raw(std::int64_t y, Interval columns) const
{
    const std::size_t skipped = to_size((columns.first - part_.x) * block_.channels * block_.sample_bytes);
    return {block_.row(y - part_.y) + skipped, to_size(block_.sample_bytes), to_size(columns.length()),
            to_size(block_.channels)};
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
    return layout_.pictures[picture_].has_mask ? block_.mask_row(y - part_.y) + (x - part_.x) : nullptr;
}

} // namespace panoval::mosaic
