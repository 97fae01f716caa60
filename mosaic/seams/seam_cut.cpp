// SPDX-License-Identifier: MIT
// Boost.Graph's maximum flow (Boykov and Kolmogorov, An experimental comparison of min-cut/max-flow algorithms for
// energy minimization in vision, 2004) on a graph in plain arrays: vertices and edges are numbers, so that the solver's
// records of them are small.
#include "mosaic/seams/seam_cut.h"

#include <algorithm>
#include <cstdlib>

#include <boost/graph/boykov_kolmogorov_max_flow.hpp>
#include <boost/iterator/counting_iterator.hpp>

namespace panoval::mosaic
{

namespace
{

using Vertex = std::int32_t;
using Edge = std::int32_t;

// Edges of vertex v are first_edge[v] to first_edge[v + 1] - 1.
struct FlowGraph {
    Vertex vertices;
    Edge edges;
    const std::int32_t* first_edge;
    const std::int32_t* target;
    const std::int32_t* reverse;
};

// A property of an edge or vertex that lies in an array under its number, read as Value.
template <class Stored, class Value>
struct ArrayMap {
    using key_type = std::int32_t;
    using value_type = Value;
    using reference = Value;
    using category = boost::read_write_property_map_tag;
    Stored* values;

    friend Value get(const ArrayMap& map, std::int32_t key) { return static_cast<Value>(map.values[key]); }
    friend void put(const ArrayMap& map, std::int32_t key, Value value)
    {
        map.values[key] = static_cast<Stored>(value);
    }
};

} // namespace

} // namespace panoval::mosaic

namespace boost
{

template <>
struct graph_traits<panoval::mosaic::FlowGraph> {
    using vertex_descriptor = panoval::mosaic::Vertex;
    using edge_descriptor = panoval::mosaic::Edge;
    using vertex_iterator = counting_iterator<vertex_descriptor>;
    using edge_iterator = counting_iterator<edge_descriptor>;
    using out_edge_iterator = counting_iterator<edge_descriptor>;
    using vertices_size_type = std::int32_t;
    using edges_size_type = std::int32_t;
    using degree_size_type = std::int32_t;
    using directed_category = directed_tag;
    using edge_parallel_category = disallow_parallel_edge_tag;
    struct traversal_category : vertex_list_graph_tag, edge_list_graph_tag, incidence_graph_tag {
    };
    static vertex_descriptor null_vertex() { return -1; }
};

} // namespace boost

namespace panoval::mosaic
{

namespace
{

using Traits = boost::graph_traits<FlowGraph>;

std::pair<Traits::vertex_iterator, Traits::vertex_iterator> vertices(const FlowGraph& graph)
{
    return {Traits::vertex_iterator(0), Traits::vertex_iterator(graph.vertices)};
}
std::pair<Traits::edge_iterator, Traits::edge_iterator> edges(const FlowGraph& graph)
{
    return {Traits::edge_iterator(0), Traits::edge_iterator(graph.edges)};
}
std::pair<Traits::out_edge_iterator, Traits::out_edge_iterator> out_edges(Vertex v, const FlowGraph& graph)
{
    return {Traits::out_edge_iterator(graph.first_edge[v]), Traits::out_edge_iterator(graph.first_edge[v + 1])};
}
std::int32_t num_vertices(const FlowGraph& graph)
{
    return graph.vertices;
}
[[maybe_unused]] std::int32_t
num_edges(const FlowGraph& graph) // COUNT_EXCL_START: what a graph is to have; nobody asks
{
    return graph.edges;
}
[[maybe_unused]] std::int32_t out_degree(Vertex v, const FlowGraph& graph)
{
    return graph.first_edge[v + 1] - graph.first_edge[v];
} // COUNT_EXCL_STOP
Vertex target(Edge e, const FlowGraph& graph)
{
    return graph.target[e];
}
Vertex source(Edge e, const FlowGraph& graph)
{
    return graph.target[graph.reverse[e]];
}

} // namespace

void MinimumCut::reset(std::size_t count)
{
    pull_.assign(count, 0);
    links_.clear();
    links_.reserve(2 * count); // each node has two neighbours of a higher number at most
    for (Chains* const chains : {&rows_, &columns_}) {
        chains->forth.assign(count, -1);
        chains->back.assign(count, -1);
    }
}

void MinimumCut::draw_to_first(std::size_t node, std::int32_t cost)
{
    pull_[node] = std::clamp(pull_[node] + cost, -kUncuttable, kUncuttable);
}

void MinimumCut::link(std::size_t a, std::size_t b, std::int32_t cost)
{
    links_.push_back(
        {static_cast<std::int32_t>(std::min(a, b)), static_cast<std::int32_t>(std::max(a, b)), cost, cost});
    add_to_chains(static_cast<std::int32_t>(links_.size()) - 1);
}

void MinimumCut::add_to_chains(std::int32_t link)
{
    const Link& l = links_[static_cast<std::size_t>(link)];
    Chains& chains = l.b == l.a + 1 ? rows_ : columns_;
    std::int32_t& forth = chains.forth[static_cast<std::size_t>(l.a)];
    std::int32_t& back = chains.back[static_cast<std::size_t>(l.b)];
    if (forth < 0 && back < 0)
        forth = back = link;
}

// What can flow along a chain from nodes drawn to the first part to nodes drawn to the second does: the former and the
// latter are drawn less, and the links' costs change so that all cuts get cheaper by the same amount. The cuts that are
// cheapest remain the same ones, and little is left for the solver to find.
void MinimumCut::push_along(const std::vector<std::int32_t>& chain, std::int32_t Link::*to, std::int32_t Link::*cost,
                            std::int32_t Link::*cost_back)
{
    const std::size_t nodes = pull_.size();
    const bool is_rising = to == &Link::b;
    const auto step = [&](std::size_t i) { return is_rising ? i : nodes - 1 - i; };
    // What each node, and those behind it, can take.
    for (std::size_t i = nodes; i-- > 0;) {
        const std::size_t node = step(i);
        demand_[node] = std::max(-pull_[node], 0);
        if (const std::int32_t number = chain[node]; number >= 0) {
            const Link& l = links_[static_cast<std::size_t>(number)];
            demand_[node] += std::min(l.*cost, demand_[static_cast<std::size_t>(l.*to)]);
        }
    }
    for (std::size_t i = 0; i < nodes; ++i) {
        const std::size_t node = step(i);
        if (pull_[node] <= 0 || chain[node] < 0)
            continue;
        Link& l = links_[static_cast<std::size_t>(chain[node])];
        const std::int32_t flow = std::min({pull_[node], l.*cost, demand_[static_cast<std::size_t>(l.*to)]});
        pull_[node] -= flow;
        pull_[static_cast<std::size_t>(l.*to)] += flow;
        l.*cost -= flow;
        l.*cost_back += flow;
    }
}

void MinimumCut::add_edge(std::int32_t from, std::int32_t to, std::int32_t forth, std::int32_t back)
{
    const std::int32_t e = next_edge_[static_cast<std::size_t>(from)]++;
    const std::int32_t r = next_edge_[static_cast<std::size_t>(to)]++;
    target_[static_cast<std::size_t>(e)] = to;
    target_[static_cast<std::size_t>(r)] = from;
    reverse_[static_cast<std::size_t>(e)] = r;
    reverse_[static_cast<std::size_t>(r)] = e;
    residual_[static_cast<std::size_t>(e)] = forth;
    residual_[static_cast<std::size_t>(r)] = back;
}

void MinimumCut::build()
{
    const std::size_t nodes = pull_.size();
    const std::size_t source = nodes;
    const std::size_t sink = nodes + 1;
    first_edge_.assign(nodes + 3, 0);
    for (const Link& l : links_) {
        ++first_edge_[static_cast<std::size_t>(l.a) + 1];
        ++first_edge_[static_cast<std::size_t>(l.b) + 1];
    }
    for (std::size_t i = 0; i < nodes; ++i)
        if (pull_[i] != 0) {
            ++first_edge_[i + 1];
            ++first_edge_[(pull_[i] > 0 ? source : sink) + 1];
        }
    for (std::size_t i = 0; i < nodes + 2; ++i)
        first_edge_[i + 1] += first_edge_[i];
    next_edge_.assign(first_edge_.begin(), first_edge_.end() - 1);

    const auto edge_count = static_cast<std::size_t>(first_edge_.back());
    target_.resize(edge_count);
    reverse_.resize(edge_count);
    residual_.resize(edge_count);
    for (const Link& l : links_)
        add_edge(l.a, l.b, l.forth, l.back);
    for (std::size_t i = 0; i < nodes; ++i)
        if (pull_[i] > 0)
            add_edge(static_cast<std::int32_t>(source), static_cast<std::int32_t>(i), pull_[i], 0);
        else if (pull_[i] < 0)
            add_edge(static_cast<std::int32_t>(i), static_cast<std::int32_t>(sink), -pull_[i], 0);
}

void MinimumCut::solve()
{
    demand_.resize(pull_.size());
    for (const Chains* const chains : {&rows_, &columns_}) {
        push_along(chains->forth, &Link::b, &Link::forth, &Link::back);
        push_along(chains->back, &Link::a, &Link::back, &Link::forth);
    }
    build();
    const std::size_t nodes = pull_.size();
    parent_.assign(nodes + 2, 0);
    distance_.assign(nodes + 2, 0);
    tree_.assign(nodes + 2, 0);
    FlowGraph graph{static_cast<Vertex>(nodes + 2), static_cast<Edge>(target_.size()), first_edge_.data(),
                    target_.data(), reverse_.data()};
    // The residual capacities begin as the capacities do, so that one array serves for both; their sums need 64 bits.
    using Capacity = ArrayMap<std::int32_t, std::int64_t>;
    using Reverse = ArrayMap<std::int32_t, std::int32_t>;
    using Number = ArrayMap<std::int32_t, std::int32_t>;
    using Tree = ArrayMap<std::uint8_t, boost::default_color_type>;
    boost::boykov_kolmogorov_max_flow(graph, Capacity{residual_.data()}, Capacity{residual_.data()},
                                      Reverse{reverse_.data()}, Number{parent_.data()}, Tree{tree_.data()},
                                      Number{distance_.data()}, boost::typed_identity_property_map<std::int32_t>(),
                                      static_cast<Vertex>(nodes), static_cast<Vertex>(nodes + 1));
    is_first_.resize(nodes);
    for (std::size_t i = 0; i < nodes; ++i)
        is_first_[i] = tree_[i] == boost::black_color ? 1 : 0;
}

} // namespace panoval::mosaic
