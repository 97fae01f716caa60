// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_pixel_costs.h"

#include "core/numbers.h"
#include "mosaic/seams/picture_window.h"

#include <algorithm>

namespace panoval::mosaic
{

void PixelCosts::fill(std::size_t first, std::size_t second, std::vector<std::int32_t>& out)
{
    std::fill(out.begin(), out.end(), kNotShared);
    const PicturePair* const pair = costs_.find_pair(first, second);
    if (pair == nullptr)
        return;
    const std::size_t index_a = load(first);
    const std::size_t index_b = load(second);
    const WindowPicture& a = scratch_.pictures[index_a];
    const WindowPicture& b = scratch_.pictures[index_b];
    compare(*pair, a, b);
    const Rect cells = costs_.grid().cells_of(window_);
    std::vector<std::int32_t>& cell_costs = scratch_.cells;
    cell_costs.resize(static_cast<std::size_t>(cells.pixels()));
    costs_.fill(*pair, cells, cell_costs.data());
    const std::int64_t side = costs_.grid().cell;
    for (std::int64_t y = 0; y < window_.height; ++y) {
        const std::int32_t* const row = cell_costs.data() + ((window_.y + y) / side - cells.y) * cells.width;
        std::int64_t column = window_.x / side - cells.x;
        std::int64_t next_column = (cells.x + column + 1) * side - window_.x; // where that begins in the window
        for (std::int64_t x = 0; x < window_.width; ++x) {
            if (x == next_column) {
                ++column;
                next_column += side;
            }
            const auto at = static_cast<std::size_t>((y + 1) * grown_.width + x + 1);
            if (a.covered[at] != 0 && b.covered[at] != 0)
                out[static_cast<std::size_t>(y * window_.width + x)] = std::max(row[column], 0) + pixel_cost(*pair, at);
        }
    }
}

// Where a picture is in the scratch.
std::size_t PixelCosts::load(std::size_t number)
{
    for (std::size_t i = 0; i < loaded_; ++i)
        if (scratch_.pictures[i].number == number)
            return i;
    if (loaded_ == scratch_.pictures.size())
        scratch_.pictures.emplace_back();
    WindowPicture& next = scratch_.pictures[loaded_];
    next.number = number;
    const auto pixels = static_cast<std::size_t>(grown_.pixels());
    next.covered.resize(pixels);
    next.samples.resize(pixels * static_cast<std::size_t>(layout_.channels));
    PictureWindow(layout_, number, grown_)
        .read_samples(corrections_, reader_, scratch_.block, next.covered.data(), next.samples.data());
    return loaded_++;
}

// The sums over 3 x 3 pixels, weighted 1 2 1 in either direction, of each channel's difference.
void PixelCosts::compare(const PicturePair& pair, const WindowPicture& a, const WindowPicture& b)
{
    const auto channels = static_cast<std::size_t>(layout_.channels);
    const auto width = static_cast<std::size_t>(grown_.width);
    const auto pixels = static_cast<std::size_t>(grown_.pixels());
    std::vector<float>& differences = scratch_.differences;
    std::vector<float>& rows = scratch_.rows;
    differences.assign(pixels * channels, 0.f);
    for (std::size_t p = 0; p < pixels; ++p)
        if (a.covered[p] != 0 && b.covered[p] != 0)
            for (std::size_t c = 0; c < channels; ++c)
                differences[p * channels + c] =
                    a.samples[p * channels + c] * pair.ratio[c] - b.samples[p * channels + c];
    rows.assign(pixels * channels, 0.f);
    const std::size_t pitch = width * channels;
    for (std::size_t i = channels; i + channels < differences.size(); ++i)
        rows[i] = differences[i - channels] + 2 * differences[i] + differences[i + channels];
    for (std::size_t i = pitch; i + pitch < rows.size(); ++i)
        differences[i] = rows[i - pitch] + 2 * rows[i] + rows[i + pitch];
}

std::int32_t PixelCosts::pixel_cost(const PicturePair& pair, std::size_t at) const
{
    const auto channels = static_cast<std::size_t>(layout_.channels);
    float sum = 0;
    for (std::size_t c = 0; c < channels; ++c) {
        const float d = scratch_.differences[at * channels + c];
        sum += d * d;
    }
    // Cells average more noise away than nine weighted pixels do: 1 / cell^2 of it is left against 0.14.
    const auto cell = static_cast<float>(costs_.grid().cell);
    const float noise = std::max(1.f, 0.14f * cell * cell);
    const auto scale = static_cast<float>(feature_scale(layout_) / 16);
    const float ratio = sum * (scale * scale) / static_cast<float>(channels) * pair.inverse_noise / noise;
    return truncate_to_int(static_cast<double>(difference_cost(ratio) * static_cast<float>(kCostUnit)));
}

} // namespace panoval::mosaic
