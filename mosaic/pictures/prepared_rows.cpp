// SPDX-License-Identifier: MIT
#include "mosaic/pictures/prepared_rows.h"

#include "blend/band_rows.h"
#include "exposure/gain_apply.h"
#include "mosaic/pictures/scaled_rows.h"

#include <algorithm>
#include <cstring>

namespace panoval::mosaic
{

namespace
{

// Pixels first to last - 1 of a row, between the covered ones before and after them, if there are any.
template <class Sample>
void fill_run(Sample* row, std::size_t channels, std::size_t width, std::size_t first, std::size_t last)
{
    for (std::size_t c = 0; c < channels; ++c) {
        const Sample left = row[(first > 0 ? first - 1 : last) * channels + c];
        const Sample right = last < width ? row[last * channels + c] : left;
        const auto steps = static_cast<std::int64_t>(last - first + 1);
        for (std::size_t x = first; x < last; ++x) {
            const auto step = static_cast<std::int64_t>(x - first + 1);
            const std::int64_t mixed = std::int64_t{left} * (steps - step) + std::int64_t{right} * step;
            row[x * channels + c] = static_cast<Sample>(mixed / steps);
        }
    }
}

// A row with at least one covered pixel.
template <class Sample>
void fill_row(Sample* row, const std::uint8_t* mask, std::size_t channels, std::size_t width)
{
    const std::uint8_t* const end = mask + width;
    const std::uint8_t* at = std::find(mask, end, 0);
    while (at != end) {
        const std::uint8_t* const next = std::find_if(at, end, [](std::uint8_t value) { return value != 0; });
        fill_run(row, channels, width, to_size(at - mask), to_size(next - mask));
        at = std::find(next, end, 0);
    }
}

bool is_one_gain(const ChannelGains& gains, int channels)
{
    return std::all_of(gains.begin(), gains.begin() + channels, [&](double gain) { return gain == gains[0]; });
}

} // namespace

PreparedRows::PreparedRows(const Layout& layout, const Corrections& corrections, PictureReader& reader,
                           std::size_t picture, bool fills)
    : layout_(layout), corrections_(corrections), reader_(reader), picture_(picture),
      fills_(fills && layout.pictures[picture].has_mask)
{
    if (fills_)
        has_colour_.assign(to_size(layout.pictures[picture].rect.height), -1);
}

void PreparedRows::read(std::int64_t y, std::int64_t first, std::int64_t count)
{
    const Rect wanted{first, y, count, 1};
    if (block_.rect.contains(wanted))
        return;
    const Rect& whole = layout_.pictures[picture_].rect;
    const std::int64_t rows = std::min(kPreparedRowsAtOnce, whole.height - y);
    reader_.read(picture_, fills_ ? Rect{0, y, whole.width, rows} : Rect{first, y, count, rows}, block_);
    prepared_y_ = -1;
}

// The row, which is in the block, corrected and rounded: as it stands there where nothing changes.
void PreparedRows::prepare_row(std::int64_t y)
{
    if (prepared_y_ == y)
        return;
    prepared_y_ = y;
    const std::int64_t in_block = y - block_.rect.y;
    const ChannelGains& gains = corrections_.gains[picture_];
    const bool is_plain = corrections_.falloff.is_flat() && is_one_gain(gains, layout_.channels);
    samples_ = block_.row(in_block);
    sample_bytes_ = is_plain ? to_size(block_.sample_bytes) : sizeof(std::uint16_t);
    if (is_plain && gains[0] == 1.0 && !fills_)
        return;
    prepared_.resize(to_size(block_.rect.width * block_.channels));
    auto* const bytes = reinterpret_cast<std::uint8_t*>(prepared_.data());
    if (is_plain)
        std::memcpy(bytes, samples_, block_.row_bytes());
    else
        correct(in_block);
    samples_ = bytes;
    if (is_plain && gains[0] != 1.0 && sample_bytes_ == 1)
        apply_gain(bytes, prepared_.size(), gains[0]);
    else if (is_plain && gains[0] != 1.0)
        apply_gain(prepared_.data(), prepared_.size(), gains[0]);
    if (!fills_ || !has_colour(y))
        return;
    const std::uint8_t* const mask = block_.mask_row(in_block);
    if (sample_bytes_ == 1)
        fill_row(bytes, mask, to_size(block_.channels), to_size(block_.rect.width));
    else
        fill_row(prepared_.data(), mask, to_size(block_.channels), to_size(block_.rect.width));
}

void PreparedRows::correct(std::int64_t in_block)
{
    const Rect& whole = layout_.pictures[picture_].rect;
    corrected_.resize(prepared_.size());
    correct_row(corrections_, picture_, {0, 0, whole.width, whole.height}, block_, in_block, corrected_.data());
    round_row(corrected_.data(), prepared_.size(), static_cast<float>(layout_.largest_sample()), prepared_.data());
}

bool PreparedRows::has_colour(std::int64_t y)
{
    signed char& known = has_colour_[to_size(y)];
    if (known < 0) {
        read(y, 0, layout_.pictures[picture_].rect.width);
        for (std::int64_t row = block_.rect.y; row < block_.rect.bottom(); ++row) {
            const std::uint8_t* const mask = block_.mask_row(row - block_.rect.y);
            const bool has_any =
                std::any_of(mask, mask + block_.rect.width, [](std::uint8_t value) { return value != 0; });
            has_colour_[to_size(row)] = has_any ? 1 : 0;
        }
    }
    return known != 0;
}

// The row itself where no row has any colour; of two that are as near the upper one.
std::int64_t PreparedRows::row_with_colour_near(std::int64_t y)
{
    const std::int64_t height = layout_.pictures[picture_].rect.height;
    for (std::int64_t away = 0; away < height; ++away) {
        if (y - away >= 0 && has_colour(y - away))
            return y - away;
        if (y + away < height && has_colour(y + away))
            return y + away;
    }
    return y;
}

void PreparedRows::load_samples(std::int64_t y, std::int64_t first, std::int64_t count, float* samples)
{
    const std::int64_t row = fills_ ? row_with_colour_near(y) : y;
    read(row, first, count);
    prepare_row(row);
    const std::size_t skipped = to_size((first - block_.rect.x) * block_.channels) * sample_bytes_;
    panoval::load_samples(samples_ + skipped, sample_bytes_, to_size(count * block_.channels), samples);
}

void PreparedRows::load_mask(std::int64_t y, std::int64_t first, std::int64_t count, std::uint8_t* mask)
{
    read(y, first, count);
    std::memcpy(mask, block_.mask_row(y - block_.rect.y) + (first - block_.rect.x), to_size(count));
}

} // namespace panoval::mosaic
