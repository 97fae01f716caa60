// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_map.h"

#include <algorithm>

namespace panoval::mosaic
{

std::size_t end_of_run(std::span<const std::int32_t> labels, std::size_t x)
{
    constexpr std::size_t kAtOnce = 16;
    const std::int32_t label = labels[x];
    while (x + kAtOnce <= labels.size()) {
        std::int32_t difference = 0;
        for (std::size_t i = 0; i < kAtOnce; ++i)
            difference |= labels[x + i] ^ label;
        if (difference != 0)
            break;
        x += kAtOnce;
    }
    while (x < labels.size() && labels[x] == label)
        ++x;
    return x;
}

void SeamMap::add_row(std::span<const std::int32_t> labels)
{
    const std::size_t first = runs_.size();
    for (std::size_t x = 0; x < labels.size();) {
        const std::int32_t label = labels[x];
        x = end_of_run(labels, x);
        runs_.push_back({static_cast<std::int32_t>(x), label});
    }
    end_row(first);
}

void SeamMap::add_row(std::span<const Run> runs)
{
    const std::size_t first = runs_.size();
    for (const Run& run : runs) {
        if (runs_.size() > first && runs_.back().label == run.label)
            runs_.back().end = run.end;
        else
            runs_.push_back(run);
    }
    end_row(first);
}

// The last row's runs have been added from first_run on: they go if the row above has the same.
void SeamMap::end_row(std::size_t first_run)
{
    const std::size_t above = groups_.empty() ? first_run : groups_.back().first_run;
    const auto row = runs_.begin() + static_cast<std::ptrdiff_t>(first_run);
    const bool is_alike =
        !groups_.empty() && std::equal(runs_.begin() + static_cast<std::ptrdiff_t>(above), row, row, runs_.end());
    if (is_alike)
        runs_.resize(first_run);
    else
        groups_.push_back({height_, first_run});
    ++height_;
}

std::size_t SeamMap::group_of(std::int64_t y) const
{
    if (groups_.size() == static_cast<std::size_t>(height_))
        return static_cast<std::size_t>(y);
    const auto after = std::upper_bound(groups_.begin(), groups_.end(), y,
                                        [](std::int64_t row, const Group& group) { return row < group.first_row; });
    return static_cast<std::size_t>(after - groups_.begin()) - 1;
}

std::span<const SeamMap::Run> SeamMap::runs(std::int64_t y) const
{
    const std::size_t group = group_of(y);
    const std::size_t end = group + 1 < groups_.size() ? groups_[group + 1].first_run : runs_.size();
    return {runs_.data() + groups_[group].first_run, end - groups_[group].first_run};
}

void SeamMap::read_inside(std::int64_t y, std::int64_t first, std::int64_t count, std::int32_t* out) const
{
    const std::span<const Run> row = runs(y);
    auto run = std::upper_bound(row.begin(), row.end(), first, [](std::int64_t x, const Run& r) { return x < r.end; });
    for (std::int64_t x = 0; x < count; ++run) {
        const std::int64_t end = std::min<std::int64_t>(run->end - first, count);
        std::fill(out + x, out + end, run->label);
        x = end;
    }
}

void SeamMap::read(std::int64_t y, std::int64_t first, std::int64_t count, bool wraps, std::int32_t* out) const
{
    if (y < 0 || y >= height()) {
        std::fill_n(out, count, kNobody);
        return;
    }
    std::int64_t done = 0;
    while (done < count) {
        const std::int64_t x = first + done;
        const bool is_inside = x >= 0 && x < width_;
        if (!is_inside && !wraps) {
            const std::int64_t beside = x < 0 ? std::min(-x, count - done) : count - done;
            std::fill_n(out + done, beside, kNobody);
            done += beside;
            continue;
        }
        const std::int64_t column = ((x % width_) + width_) % width_;
        const std::int64_t part = std::min(count - done, width_ - column);
        read_inside(y, column, part, out + done);
        done += part;
    }
}

} // namespace panoval::mosaic
