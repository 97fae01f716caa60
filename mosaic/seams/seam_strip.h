// SPDX-License-Identifier: MIT
#pragma once

#include "mosaic/base/rect.h"
#include "mosaic/seams/seam_map.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace panoval::mosaic
{

// Some rows of the canvas, in tiles beside each other. Most tiles lie inside one picture and have one label, which
// stands for all their pixels.
class SeamStrip
{
public:
    SeamStrip(std::int64_t canvas_width, std::int64_t tile_side, std::int64_t most_rows);

    // Begins rows y to y + height - 1; nothing is known of their labels. Without rows it is below the canvas.
    void begin(std::int64_t y, std::int64_t height);

    std::int64_t y() const { return y_; }
    std::int64_t height() const { return height_; }
    std::int64_t tile_count() const { return static_cast<std::int64_t>(tiles_.size()); }
    Rect tile(std::int64_t number) const; // on the canvas
    bool is_uniform(std::int64_t number) const { return state(number).is_uniform; }

    // The labels of a row, counted from the strip's first one; set in tiles that are not uniform only.
    std::int32_t* row(std::int64_t number) { return labels_.get() + number * width_; }
    const std::int32_t* row(std::int64_t number) const { return labels_.get() + number * width_; }

    // Of any pixel; row counts from the strip's first one.
    std::int32_t label(std::int64_t x, std::int64_t row_number) const;

    // One label for a whole tile.
    void set_uniform(std::int64_t number, std::int32_t label) { tiles_[at(number)] = {true, label}; }
    // Sets the pixels of a tile that is uniform, which it is no longer.
    void spell_out(std::int64_t number);

    // Pixels whose labels stay; begin_pins() after begin(), before any of them.
    void begin_pins() { pinned_.assign(at(height_ * width_), 0); }
    void pin(std::int64_t x, std::int64_t row_number, std::int32_t label);
    bool is_pinned(std::int64_t x, std::int64_t row_number) const
    {
        return !pinned_.empty() && pinned_[at(row_number * width_ + x)] != 0;
    }

    // Whether pixels of a tile belong to another picture than label's. part: on the canvas.
    bool has_other(std::int32_t label, std::int64_t number, const Rect& part) const;

    void copy_row(std::int64_t number, std::int32_t* to) const;
    void list_runs(std::int64_t row_number, std::vector<SeamMap::Run>& runs) const;

private:
    struct Tile {
        bool is_uniform = false;
        std::int32_t label = kNobody; // if it is
    };

    static std::size_t at(std::int64_t number) { return static_cast<std::size_t>(number); }
    const Tile& state(std::int64_t number) const { return tiles_[at(number)]; }

    std::int64_t width_;
    std::int64_t side_;
    std::int64_t y_ = 0;
    std::int64_t height_ = 0;
    std::unique_ptr<std::int32_t[]> labels_;
    std::vector<Tile> tiles_;
    std::vector<std::uint8_t> pinned_; // of each pixel; empty where none is
};

inline bool is_seam(std::int32_t a, std::int32_t b)
{
    return a != b && a != kNobody && b != kNobody;
}

} // namespace panoval::mosaic
