// SPDX-License-Identifier: MIT
// Which picture each pixel of the canvas belongs to, as runs along the rows. Rows that follow one another and are alike
// have their runs together: seams take little memory that way, whatever the canvas's size.
#pragma once

#include "mosaic/base/rect.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace panoval::mosaic
{

inline constexpr std::int32_t kNobody = -1; // the label of a pixel that no picture covers

// Behind the last label that equals the one at x without another one between.
std::size_t end_of_run(std::span<const std::int32_t> labels, std::size_t x);

class SeamMap
{
public:
    struct Run {
        std::int32_t end;   // column behind the run's last one
        std::int32_t label; // number of a picture, or kNobody
        friend bool operator==(const Run&, const Run&) = default;
    };

    SeamMap() = default;
    explicit SeamMap(std::int64_t width) : width_(width) {}

    std::int64_t width() const { return width_; }
    std::int64_t height() const { return height_; }
    std::size_t bytes() const { return bytes(groups_.size(), runs_.size()); }
    static constexpr std::size_t bytes(std::size_t groups, std::size_t runs)
    {
        return groups * sizeof(Group) + runs * sizeof(Run);
    }

    // Rows are added from the top. Neighbouring runs of one label become one.
    void add_row(std::span<const std::int32_t> labels);
    void add_row(std::span<const Run> runs); // the last one ends at the canvas's width

    std::span<const Run> runs(std::int64_t y) const;

    // Labels of columns first to first + count - 1 of row y. Columns may lie outside the canvas by up to its width
    // where it wraps; a column or row that lies outside otherwise is nobody's.
    void read(std::int64_t y, std::int64_t first, std::int64_t count, bool wraps, std::int32_t* out) const;

private:
    // Rows that are alike, to where the next group begins.
    struct Group {
        std::int64_t first_row;
        std::size_t first_run;
    };

    void end_row(std::size_t first_run);
    std::size_t group_of(std::int64_t y) const;
    void read_inside(std::int64_t y, std::int64_t first, std::int64_t count, std::int32_t* out) const;

    std::int64_t width_ = 0;
    std::int64_t height_ = 0;
    std::vector<Group> groups_;
    std::vector<Run> runs_;
};

} // namespace panoval::mosaic
