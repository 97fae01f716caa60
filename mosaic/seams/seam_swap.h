// SPDX-License-Identifier: MIT
// Moves the border between two pictures' areas to where it costs least, while all others stay (Boykov, Veksler, Zabih,
// Fast approximate energy minimization via graph cuts, 2001: the swap move). The same for cells and for pixels.
#pragma once

#include "mosaic/base/rect.h"
#include "mosaic/seams/seam_cut.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace panoval::mosaic
{

// A rectangle of labels with those around it.
class SwapWindow
{
public:
    void reset(std::int64_t new_width, std::int64_t new_height);

    std::int64_t width() const { return width_; }
    std::int64_t height() const { return height_; }
    std::size_t index(std::int64_t x, std::int64_t y) const { return static_cast<std::size_t>(y * width_ + x); }

    // x from -1 to width, y from -1 to height.
    std::int32_t& label(std::int64_t x, std::int64_t y) { return labels_[ring_index(x, y)]; }
    std::int32_t label(std::int64_t x, std::int64_t y) const { return labels_[ring_index(x, y)]; }

    // A row's labels from x = -1 on.
    std::span<const std::int32_t> row(std::int64_t y) const
    {
        return {labels_.data() + ring_index(-1, y), static_cast<std::size_t>(width_ + 2)};
    }

    // Whether an inner label may change.
    void set_movable(std::int64_t x, std::int64_t y, bool movable) { movable_[index(x, y)] = movable ? 1 : 0; }
    bool is_movable(std::int64_t x, std::int64_t y) const { return movable_[index(x, y)] != 0; }

private:
    std::size_t ring_index(std::int64_t x, std::int64_t y) const
    {
        return static_cast<std::size_t>((y + 1) * (width_ + 2) + x + 1);
    }

    std::int64_t width_ = 0;
    std::int64_t height_ = 0;
    std::vector<std::int32_t> labels_;
    std::vector<std::uint8_t> movable_;
};

// Tells what it costs to separate two pictures at each place of a window.
class SwapCosts
{
public:
    virtual ~SwapCosts() = default;
    // first < second; kNotShared where not both cover a place.
    virtual void fill(std::size_t first, std::size_t second, std::vector<std::int32_t>& out) = 0;
};

// Two places of a window that should come from one picture, and what it costs if they do not.
struct SwapTie {
    std::size_t a;
    std::size_t b;
    std::int32_t cost;
};

// A place of a window that should come from one picture, and what it costs if it does not.
struct SwapPull {
    std::size_t at;
    std::int32_t label;
    std::int32_t cost;
};

// One for each thread; memory is reused.
class LabelSwapper
{
public:
    // Begins a window. Both must outlive the swaps.
    void begin(SwapWindow& window, SwapCosts& costs);

    // Swaps the two labels where that makes the window cheaper. True if a label has changed.
    bool swap(std::size_t first, std::size_t second, const std::vector<SwapTie>& ties = {},
              const std::vector<SwapPull>& pulls = {});

    // All pairs of pictures whose areas touch in the window, in ascending order, until nothing changes.
    void swap_all(int most_rounds);

private:
    using Labels = std::pair<std::int32_t, std::int32_t>;

    const std::vector<std::int32_t>& costs_of(std::int32_t a, std::int32_t b);
    std::int32_t separation(std::int32_t a, std::int32_t b, std::size_t p, std::int64_t qx, std::int64_t qy);
    void add_neighbours(std::size_t node, std::int64_t x, std::int64_t y);
    void draw_beside(std::size_t node, std::size_t p, std::int64_t qx, std::int64_t qy);
    void add_tie(const SwapTie& tie);
    void add_pull(const SwapPull& pull);
    std::size_t number_nodes();
    std::vector<Labels> touching_labels() const;

    struct Known {
        Labels labels;
        std::vector<std::int32_t> costs;
    };

    SwapWindow* window_ = nullptr;
    SwapCosts* provider_ = nullptr;
    std::vector<Known> known_;
    std::size_t known_count_ = 0;
    Labels pair_{};
    const std::int32_t* pair_costs_ = nullptr;
    std::vector<std::int32_t> nodes_; // number of each place, or -1
    MinimumCut cut_;
};

} // namespace panoval::mosaic
