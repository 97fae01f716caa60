// SPDX-License-Identifier: MIT
// A disk is in the one cell of its net that has its centre. Cells are as wide as the net's largest radius, so what
// touches a small disk is in the cells beside it.
#include "measure/vicinity.h"

#include "core/numbers.h"

#include <algorithm>
#include <cmath>

namespace panoval::measure
{

namespace
{

constexpr double kFarthest = 1e9; // pixels; the cells of anything within are numbers of 32 bits
constexpr double kSlack = 1e-3;   // pixels: callers' distances are rounded, too

bool has_cell(const Disk& disk) noexcept
{
    return std::fabs(disk.x) <= kFarthest && std::fabs(disk.y) <= kFarthest && disk.radius <= kFarthest;
}

std::int32_t cell_of(double place, double side) noexcept
{
    return truncate_to_int(std::floor(place / side));
}

} // namespace

Vicinity::Entry Vicinity::entry_of(std::size_t index, const Disk& disk) noexcept
{
    if (!has_cell(disk))
        return {kEverywhere, 0, 0, index};
    std::int32_t net = 0;
    double side = 1;
    for (; side < disk.radius; side *= 2)
        ++net;
    return {net, cell_of(disk.y, side), cell_of(disk.x, side), index};
}

void Vicinity::put(std::size_t index, const Disk& disk)
{
    const Entry entry = entry_of(index, disk);
    if (index >= by_index_.size())
        by_index_.resize(index + 1, {-1, 0, 0, 0});
    Entry& own = by_index_[index];
    if (own == entry)
        return;
    entries_.insert(entry);
    ++counts_[entry.net];
    if (own.net >= 0) {
        entries_.erase(own);
        --counts_[own.net];
    }
    own = entry;
}

std::vector<std::size_t> Vicinity::near(const Disk& disk) const
{
    std::vector<std::size_t> found;
    if (!has_cell(disk)) {
        for (const Entry& entry : entries_)
            found.push_back(entry.index);
    } else {
        for (std::int32_t net = 0; net < kNets; ++net)
            if (counts_[net] > 0)
                add_near(net, disk, found);
        const Entry first = {kEverywhere, 0, 0, 0};
        for (auto entry = entries_.lower_bound(first); entry != entries_.end(); ++entry)
            found.push_back(entry->index);
    }
    std::sort(found.begin(), found.end());
    return found;
}

void Vicinity::add_near(std::int32_t net, const Disk& disk, std::vector<std::size_t>& found) const
{
    const double side = std::ldexp(1.0, net);
    const double reach = disk.radius + side + kSlack;
    const std::int32_t left = cell_of(disk.x - reach, side);
    const std::int32_t right = cell_of(disk.x + reach, side);
    const std::int32_t bottom = cell_of(disk.y + reach, side);
    auto entry = entries_.lower_bound({net, cell_of(disk.y - reach, side), left, 0});
    while (entry != entries_.end() && entry->net == net && entry->row <= bottom) {
        if (entry->column < left)
            entry = entries_.lower_bound({net, entry->row, left, 0});
        else if (entry->column > right)
            entry = entries_.lower_bound({net, entry->row + 1, left, 0});
        else
            found.push_back(entry++->index);
    }
}

} // namespace panoval::measure
