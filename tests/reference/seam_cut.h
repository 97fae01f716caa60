// SPDX-License-Identifier: MIT
// The smallest of the cheapest cuts, as plain as it can be: flow along the shortest path that lets any through, until
// there is none (Edmonds and Karp, Theoretical improvements in algorithmic efficiency for network flow problems, 1972);
// then what the source still reaches.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace panoval::mosaic::reference
{

class SeamCut
{
public:
    explicit SeamCut(std::size_t nodes) : nodes_(nodes), rest_((nodes + 2) * (nodes + 2)) {}

    void draw_to_first(std::size_t node, std::int64_t cost)
    {
        if (cost > 0)
            rest(source(), node) += cost;
        else
            rest(node, sink()) -= cost;
    }
    void link(std::size_t a, std::size_t b, std::int64_t cost)
    {
        rest(a, b) += cost;
        rest(b, a) += cost;
    }

    // Whether each node belongs to the first part.
    std::vector<bool> solve()
    {
        while (find_path())
            fill_path();
        std::vector<bool> first;
        for (std::size_t i = 0; i < nodes_; ++i)
            first.push_back(came_from_[i] != kNowhere);
        return first;
    }

private:
    static constexpr std::size_t kNowhere = std::numeric_limits<std::size_t>::max();

    std::size_t source() const { return nodes_; }
    std::size_t sink() const { return nodes_ + 1; }
    std::int64_t& rest(std::size_t from, std::size_t to) { return rest_[from * (nodes_ + 2) + to]; }

    bool find_path()
    {
        came_from_.assign(nodes_ + 2, kNowhere);
        came_from_[source()] = source();
        std::vector<std::size_t> reached{source()};
        for (std::size_t i = 0; i < reached.size(); ++i)
            for (std::size_t to = 0; to < nodes_ + 2; ++to)
                if (came_from_[to] == kNowhere && rest(reached[i], to) > 0) {
                    came_from_[to] = reached[i];
                    reached.push_back(to);
                }
        return came_from_[sink()] != kNowhere;
    }

    void fill_path()
    {
        std::int64_t flow = std::numeric_limits<std::int64_t>::max();
        for (std::size_t to = sink(); to != source(); to = came_from_[to])
            flow = std::min(flow, rest(came_from_[to], to));
        for (std::size_t to = sink(); to != source(); to = came_from_[to]) {
            rest(came_from_[to], to) -= flow;
            rest(to, came_from_[to]) += flow;
        }
    }

    std::size_t nodes_;
    std::vector<std::int64_t> rest_; // what may flow from each to each
    std::vector<std::size_t> came_from_;
};

} // namespace panoval::mosaic::reference
