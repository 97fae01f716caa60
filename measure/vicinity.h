// SPDX-License-Identifier: MIT
// Which of many disks may be near a place, without a look at each: disks of about the same size share a net of cells,
// so that a few cells of each net have them all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <tuple>
#include <vector>

namespace panoval::measure
{

struct Disk {
    double x = 0;
    double y = 0;
    double radius = 0; // 0 or more
};

class Vicinity
{
public:
    // The one of this index, new or moved. What is not a finite number is near to everything.
    void put(std::size_t index, const Disk& disk);

    // All that touch or overlap the disk, and some more, in ascending order.
    std::vector<std::size_t> near(const Disk& disk) const;

private:
    static constexpr std::int32_t kNets = 31; // net n has cells of 2^n pixels, for radii up to that
    static constexpr std::int32_t kEverywhere = kNets;

    struct Entry {
        std::int32_t net;
        std::int32_t row;
        std::int32_t column;
        std::size_t index;

        bool operator==(const Entry&) const = default;
        bool operator<(const Entry& other) const noexcept
        {
            return std::tie(net, row, column, index) < std::tie(other.net, other.row, other.column, other.index);
        }
    };
    static Entry entry_of(std::size_t index, const Disk& disk) noexcept;
    void add_near(std::int32_t net, const Disk& disk, std::vector<std::size_t>& found) const;

    std::set<Entry> entries_;
    std::vector<Entry> by_index_;        // net below 0: none yet
    std::size_t counts_[kNets + 1] = {}; // of the nets' entries
};

} // namespace panoval::measure
