// SPDX-License-Identifier: MIT
// Minimum cuts, against all cuts of graphs that are small enough to try every one, and against the literal twin.
#include "mosaic/seams/seam_cut.h"

#include "tests/reference/seam_cut.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

using panoval::test::Random;

struct SmallGraph {
    struct Link {
        std::size_t a;
        std::size_t b;
        std::int32_t cost;
    };
    std::vector<std::int32_t> pulls;
    std::vector<Link> links;

    // Bit i of parts says that node i is in the second part.
    std::int64_t cost(unsigned parts) const
    {
        std::int64_t sum = 0;
        const auto is_second = [parts](std::size_t node) { return (parts >> node & 1u) != 0; };
        for (std::size_t i = 0; i < pulls.size(); ++i)
            sum += is_second(i) ? std::max(pulls[i], 0) : std::max(-pulls[i], 0);
        for (const Link& link : links)
            sum += is_second(link.a) != is_second(link.b) ? link.cost : 0;
        return sum;
    }
    std::int64_t cheapest() const
    {
        std::int64_t best = std::numeric_limits<std::int64_t>::max();
        for (unsigned parts = 0; parts < 1u << pulls.size(); ++parts)
            best = std::min(best, cost(parts));
        return best;
    }
    unsigned cut(MinimumCut& solver) const
    {
        solver.reset(pulls.size());
        for (std::size_t i = 0; i < pulls.size(); ++i)
            solver.draw_to_first(i, pulls[i]);
        for (const Link& link : links)
            solver.link(link.a, link.b, link.cost);
        solver.solve();
        unsigned parts = 0;
        for (std::size_t i = 0; i < pulls.size(); ++i)
            parts |= solver.is_first(i) ? 0u : 1u << i;
        return parts;
    }
};

SmallGraph random_graph(Random& random)
{
    SmallGraph graph;
    const auto nodes = static_cast<std::size_t>(random.integer(1, 9));
    for (std::size_t i = 0; i < nodes; ++i)
        graph.pulls.push_back(static_cast<std::int32_t>(random.integer(0, 2) == 0 ? random.integer(-9, 9) : 0));
    for (std::size_t a = 0; a < nodes; ++a)
        for (std::size_t b = a + 1; b < nodes; ++b)
            if (random.integer(0, 1) == 0)
                graph.links.push_back({a, b, static_cast<std::int32_t>(random.integer(0, 6))});
    return graph;
}

TEST(SeamCut, IsTheCheapestOfAllCuts)
{
    Random random(1);
    MinimumCut solver;
    for (int i = 0; i < 2000; ++i) {
        const SmallGraph graph = random_graph(random);
        ASSERT_EQ(graph.cost(graph.cut(solver)), graph.cheapest()) << "graph " << i;
    }
}

// Windows as the search for seams has them: neighbours are linked, sides drawn, and a few places far from each other
// tied.
TEST(SeamCut, EqualsItsTwinOnGrids)
{
    Random random(2);
    MinimumCut solver;
    for (int i = 0; i < 400; ++i) {
        const auto width = static_cast<std::size_t>(random.integer(1, 11));
        const auto height = static_cast<std::size_t>(random.integer(1, 11));
        const auto most = random.integer(0, 2) == 0 ? 3 : 1000; // few costs make many cuts that cost the same
        solver.reset(width * height);
        reference::SeamCut twin(width * height);
        const auto link = [&](std::size_t a, std::size_t b) {
            const auto cost = static_cast<std::int32_t>(random.integer(0, most));
            solver.link(a, b, cost);
            twin.link(a, b, cost);
        };
        for (std::size_t at = 0; at < width * height; ++at) {
            const bool is_drawn = at % width == 0 || at % width + 1 == width || random.integer(0, 9) == 0;
            const auto pull = is_drawn ? static_cast<std::int32_t>(random.integer(-most, most)) : 0;
            solver.draw_to_first(at, pull);
            twin.draw_to_first(at, pull);
            if (at % width + 1 < width)
                link(at, at + 1);
            if (at + width < width * height)
                link(at, at + width);
            if (at + 3 * width < width * height && random.integer(0, 15) == 0)
                link(at, at + 3 * width);
        }
        solver.solve();
        const std::vector<bool> first = twin.solve();
        for (std::size_t at = 0; at < width * height; ++at)
            ASSERT_EQ(solver.is_first(at), first[at]) << "grid " << i << ", node " << at;
    }
}

TEST(SeamCut, LeavesNodesThatMayNotMoveWhereTheyAre)
{
    MinimumCut solver;
    const SmallGraph graph{{kUncuttable, 0, -kUncuttable}, {{0, 1, kUncuttable / 8}, {1, 2, kUncuttable / 9}}};
    EXPECT_EQ(graph.cut(solver), 0b100u) << "the cheaper link is cut";
}

// Flow that is pushed from node to node adds up in what draws them; links in every order and direction.
TEST(SeamCut, TheLargestCostsDoNotOverflow)
{
    Random random(3);
    MinimumCut solver;
    for (int i = 0; i < 300; ++i) {
        const auto nodes = static_cast<std::size_t>(random.integer(1, 24));
        solver.reset(nodes);
        reference::SeamCut twin(nodes);
        for (std::size_t node = 0; node < nodes; ++node) {
            const auto pull = static_cast<std::int32_t>(random.integer(-1, 1)) * kUncuttable;
            solver.draw_to_first(node, pull);
            twin.draw_to_first(node, pull);
        }
        for (std::size_t a = nodes; a-- > 0;)
            for (std::size_t b = 0; b < a; ++b)
                if (b + 1 == a || random.integer(0, 5) == 0) {
                    const auto cost = static_cast<std::int32_t>(random.integer(0, kUncuttable));
                    solver.link(a, b, cost);
                    twin.link(a, b, cost);
                }
        solver.solve();
        const std::vector<bool> first = twin.solve();
        for (std::size_t node = 0; node < nodes; ++node)
            ASSERT_EQ(solver.is_first(node), first[node]) << "graph " << i << ", node " << node;
    }
}

TEST(SeamCut, AddsUpWhatDrawsANode)
{
    MinimumCut solver;
    solver.reset(1);
    for (int i = 0; i < 20; ++i)
        solver.draw_to_first(0, kUncuttable / 4);
    solver.draw_to_first(0, -1);
    solver.solve();
    EXPECT_TRUE(solver.is_first(0)) << "and does not overflow";
}

TEST(SeamCut, CutsNothingOutOfNothing)
{
    MinimumCut solver;
    solver.reset(0);
    solver.solve();
    solver.reset(3);
    solver.link(0, 1, 5);
    solver.solve();
    EXPECT_EQ(solver.is_first(0), solver.is_first(1));
}

} // namespace

} // namespace panoval::mosaic::test
