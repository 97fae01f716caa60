// SPDX-License-Identifier: MIT
// The cheapest cut of a graph in two parts: some nodes are drawn to the one part, some to the other, and neighbours
// cost something where they are separated.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// Costs are not negative. The largest one keeps a node in its part whatever its neighbours do, as long as what a node's
// links cost together stays below it.
inline constexpr std::int32_t kUncuttable = 1 << 28;

// About the bytes that a node of a grid takes: two links, in either direction, and its place in the search's trees.
inline constexpr std::size_t kBytesOfNode = 200;

class MinimumCut
{
public:
    // Begins a graph of nodes 0 to count - 1; memory is reused.
    void reset(std::size_t count);

    // What it costs to have the node in the second part instead of the first; negative: in the first instead of the
    // second. Sums up over the calls; beyond kUncuttable it is cut off.
    void draw_to_first(std::size_t node, std::int32_t cost);

    // What it costs to separate two nodes. A pair is linked at most once.
    void link(std::size_t a, std::size_t b, std::int32_t cost);

    // Finds the cut. Of several that cost the same, the first part is the smallest.
    void solve();

    bool is_first(std::size_t node) const { return is_first_[node] != 0; }

private:
    // a < b. What it costs to have a in the first part and b in the second, and the other way round.
    struct Link {
        std::int32_t a;
        std::int32_t b;
        std::int32_t forth;
        std::int32_t back;
    };
    // Links of which at most one leads from each node to a higher one, and one to a lower.
    struct Chains {
        std::vector<std::int32_t> forth; // of each node, number of the link to a higher one, or -1
        std::vector<std::int32_t> back;  // to a lower one
    };

    void add_to_chains(std::int32_t link);
    // Along one link after the other, each to the node `to`.
    void push_along(const std::vector<std::int32_t>& chain, std::int32_t Link::*to, std::int32_t Link::*cost,
                    std::int32_t Link::*cost_back);
    void build();
    void add_edge(std::int32_t from, std::int32_t to, std::int32_t forth, std::int32_t back);

    std::vector<std::int32_t> pull_; // of each node to the first part
    std::vector<Link> links_;
    Chains rows_;                      // of nodes that follow one another
    Chains columns_;                   // of others
    std::vector<std::int32_t> demand_; // what may flow into each node

    // The graph as the solver sees it: two more vertices, and directed edges sorted by their first vertex.
    std::vector<std::int32_t> first_edge_;
    std::vector<std::int32_t> next_edge_; // where to add a vertex's next one
    std::vector<std::int32_t> target_;
    std::vector<std::int32_t> reverse_;
    std::vector<std::int32_t> residual_;
    std::vector<std::int32_t> parent_;
    std::vector<std::int32_t> distance_;
    std::vector<std::uint8_t> tree_;
    std::vector<std::uint8_t> is_first_;
};

} // namespace panoval::mosaic
