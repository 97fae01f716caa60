// SPDX-License-Identifier: MIT
// From ratios between pairs of pictures to the brightness of each: weighted least squares of logarithms over the graph
// whose nodes are pictures and whose edges are overlaps. Robust: edges that contradict the others are found and named.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace panoval::mosaic
{

struct GainEdge {
    std::size_t first = 0;
    std::size_t second = 0;
    double log_ratio = 0; // brightness of the first to that of the second
    double error = 0;     // standard error of log_ratio
    bool is_used = true;  // others do not exist
};

// Number of the connected group of each picture, counted from 0 in the order of their first pictures.
std::vector<std::size_t> find_groups(std::size_t pictures, std::span<const GainEdge> edges);

// What an edge says less what the brightnesses say.
double edge_residual(const GainEdge& edge, std::span<const double> brightness);

// Logarithmic brightness of each picture, 0 in the first picture of each group. Edges that contradict the others hardly
// count.
std::vector<double> solve_brightness(std::size_t pictures, std::span<const GainEdge> edges);

// Edges whose residual is too large to come from noise: one number each, false where the edge is not used.
std::vector<bool> find_contradictions(std::span<const GainEdge> edges, std::span<const double> brightness);

// What an overlap says about who is to blame.
struct Suspicion {
    std::size_t first = 0;
    std::size_t second = 0;
    std::uint64_t pixels = 0;                                                 // large overlaps have more to say
    enum class Whose { Nobody, Either, First, Second } whose = Whose::Nobody; // Nobody: the edge is good
};

// Pictures that more than half of their overlapping pixels speak against, found one after the other: an edge against a
// picture already found speaks against nobody else. Ascending.
std::vector<std::size_t> find_outliers(std::size_t pictures, std::span<const Suspicion> edges);

// Moves each group so that `anchor`, where it is in the group, or else the weighted mean of the group's pictures is 0.
// anchor: a picture's number, or `pictures` for none
void settle_groups(std::span<double> brightness, std::span<const std::size_t> groups, std::span<const double> weights,
                   std::size_t anchor);

} // namespace panoval::mosaic
