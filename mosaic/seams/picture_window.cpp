// SPDX-License-Identifier: MIT
#include "mosaic/seams/picture_window.h"

#include <algorithm>

namespace panoval::mosaic
{

PictureWindow::PictureWindow(const Layout& layout, std::size_t picture, const Rect& window)
    : layout_(layout), picture_(picture), window_(window)
{
    const Rect& rect = layout.pictures[picture].rect;
    const std::int64_t turns = layout.wraps ? 1 : 0;
    for (std::int64_t turn = -turns; turn <= turns; ++turn) {
        const Rect moved = window.moved(turn * layout.width - rect.x, -rect.y);
        const Rect own = intersect(moved, {0, 0, rect.width, rect.height});
        if (!own.is_empty())
            parts_.push_back({own, own.x - moved.x, own.y - moved.y});
    }
}

void PictureWindow::read_cover(PictureReader& reader, std::uint8_t* covered) const
{
    std::fill_n(covered, window_.pixels(), std::uint8_t{0});
    const bool has_mask = layout_.pictures[picture_].has_mask;
    PixelBlock block;
    for (const Part& part : parts_) {
        if (has_mask)
            reader.read(picture_, part.own, block);
        for (std::int64_t y = 0; y < part.own.height; ++y) {
            std::uint8_t* const to = covered + (part.y + y) * window_.width + part.x;
            if (has_mask)
                std::copy_n(block.mask_row(y), part.own.width, to);
            else
                std::fill_n(to, part.own.width, std::uint8_t{255});
        }
    }
}

void PictureWindow::read_samples(const Corrections& corrections, PictureReader& reader, PixelBlock& block,
                                 std::uint8_t* covered, float* samples) const
{
    std::fill_n(covered, window_.pixels(), std::uint8_t{0});
    for (const Part& part : parts_) {
        reader.read(picture_, part.own, block);
        for (std::int64_t y = 0; y < part.own.height; ++y) {
            const std::int64_t at = (part.y + y) * window_.width + part.x;
            std::copy_n(block.mask_row(y), part.own.width, covered + at);
            correct_row(corrections, picture_, layout_.pictures[picture_].rect, block, y,
                        samples + at * layout_.channels);
        }
    }
}

void PictureWindow::read_keep(PictureReader& reader, std::uint8_t* keep) const
{
    std::fill_n(keep, window_.pixels(), std::uint8_t{0});
    std::vector<std::uint8_t> own;
    for (const Part& part : parts_) {
        own.resize(static_cast<std::size_t>(part.own.pixels()));
        if (reader.read_keep(picture_, part.own, own.data()))
            for (std::int64_t y = 0; y < part.own.height; ++y)
                std::copy_n(own.data() + y * part.own.width, part.own.width,
                            keep + (part.y + y) * window_.width + part.x);
    }
}

} // namespace panoval::mosaic
