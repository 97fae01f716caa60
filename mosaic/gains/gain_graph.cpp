// SPDX-License-Identifier: MIT
// Iteratively reweighted least squares: first towards least absolute residuals, which needs no starting point, then
// with Geman and McClure's weights, under which wild edges do not count at all. The matrix is the graph's Laplacian
// without the rows of each group's first picture.
#include "mosaic/gains/gain_graph.h"

#include "core/median.h"

#include <Eigen/SparseCholesky>
#include <Eigen/SparseCore>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>

namespace panoval::mosaic
{

namespace
{

constexpr double kModelError = 0.002; // of any ratio, beside its own error: what gains alone cannot describe
constexpr double kLeastScale = 0.01;  // residuals as small as that are no contradiction
constexpr int kAbsoluteRounds = 25;
constexpr int kRedescendingRounds = 15;
constexpr double kLeastContradiction = 0.05;

std::size_t find_root(std::vector<std::size_t>& parents, std::size_t i)
{
    while (parents[i] != i) {
        parents[i] = parents[parents[i]];
        i = parents[i];
    }
    return i;
}

double error_of(const GainEdge& edge)
{
    return std::sqrt(edge.error * edge.error + kModelError * kModelError);
}

double residual_scale(std::span<const GainEdge> edges, std::span<const double> brightness)
{
    std::vector<double> sizes;
    for (const GainEdge& edge : edges)
        if (edge.is_used)
            sizes.push_back(std::fabs(edge_residual(edge, brightness)));
    return kMedianToSigma * median_of(std::span(sizes));
}

class LaplacianSolver
{
public:
    LaplacianSolver(std::size_t pictures, std::span<const GainEdge> edges) : edges_(edges), unknown_(pictures, kPinned)
    {
        const std::vector<std::size_t> groups = find_groups(pictures, edges);
        std::size_t next_group = 0;
        for (std::size_t i = 0; i < pictures; ++i) {
            if (groups[i] == next_group)
                ++next_group; // the first picture of its group stands still
            else
                unknown_[i] = count_++;
        }
    }

    // Weighted least squares; what it was before in the pinned pictures.
    void solve(std::span<const double> weights, std::span<double> brightness)
    {
        if (count_ == 0)
            return;
        assemble(weights);
        if (!is_analyzed_)
            cholesky_.analyzePattern(matrix_);
        is_analyzed_ = true;
        cholesky_.factorize(matrix_);
        const Eigen::VectorXd solution = cholesky_.solve(right_);
        for (std::size_t i = 0; i < unknown_.size(); ++i)
            if (unknown_[i] != kPinned)
                brightness[i] = solution[unknown_[i]];
    }

private:
    static constexpr std::int32_t kPinned = -1;

    void assemble(std::span<const double> weights)
    {
        std::vector<Eigen::Triplet<double, std::int32_t>> entries;
        right_ = Eigen::VectorXd::Zero(count_);
        for (std::size_t k = 0; k < edges_.size(); ++k) {
            const GainEdge& edge = edges_[k];
            if (!edge.is_used)
                continue;
            const std::int32_t i = unknown_[edge.first];
            const std::int32_t j = unknown_[edge.second];
            add_end(i, j, weights[k], weights[k] * edge.log_ratio, entries);
            add_end(j, i, weights[k], -weights[k] * edge.log_ratio, entries);
        }
        matrix_.resize(count_, count_);
        matrix_.setFromTriplets(entries.begin(), entries.end());
    }

    void add_end(std::int32_t at, std::int32_t other, double weight, double value,
                 std::vector<Eigen::Triplet<double, std::int32_t>>& entries)
    {
        if (at == kPinned)
            return;
        entries.emplace_back(at, at, weight);
        right_[at] += value;
        if (other < at && other != kPinned)
            entries.emplace_back(at, other, -weight); // the lower triangle is enough
    }

    std::span<const GainEdge> edges_;
    std::vector<std::int32_t> unknown_;
    std::int32_t count_ = 0;
    bool is_analyzed_ = false;
    Eigen::SparseMatrix<double> matrix_;
    Eigen::VectorXd right_;
    Eigen::SimplicialLDLT<Eigen::SparseMatrix<double>> cholesky_;
};

double absolute_weight(const GainEdge& edge, double residual)
{
    const double error = error_of(edge);
    return 1 / (error * std::max(std::fabs(residual), error));
}

double redescending_weight(const GainEdge& edge, double residual, double scale)
{
    const double error = error_of(edge);
    const double u = residual / (3 * std::max({error, kLeastScale, scale}));
    const double v = 1 + u * u;
    return 1 / (error * error * v * v);
}

// How much speaks against a picture.
struct Votes {
    std::size_t edges = 0; // against it
    double against = 0;    // in pixels
    double all = 0;

    bool is_majority() const { return 2 * against > all; }
    // Whether this share is larger; of equal ones the one with more votes.
    bool outweighs(const Votes& other) const
    {
        const double mine = against * other.all;
        const double theirs = other.against * all;
        return mine != theirs ? mine > theirs : edges > other.edges;
    }
};

bool speaks_against_first(const Suspicion& edge)
{
    return edge.whose == Suspicion::Whose::Either || edge.whose == Suspicion::Whose::First;
}

bool speaks_against_second(const Suspicion& edge)
{
    return edge.whose == Suspicion::Whose::Either || edge.whose == Suspicion::Whose::Second;
}

void add_vote(Votes& votes, std::uint64_t pixels, bool is_against)
{
    const auto weight = static_cast<double>(pixels);
    votes.all += weight;
    votes.edges += is_against ? 1 : 0;
    votes.against += is_against ? weight : 0.0;
}

std::vector<Votes> count_votes(std::size_t pictures, std::span<const Suspicion> edges, const std::vector<char>& found)
{
    std::vector<Votes> votes(pictures);
    for (const Suspicion& edge : edges) {
        if (found[edge.first] || found[edge.second])
            continue;
        add_vote(votes[edge.first], edge.pixels, speaks_against_first(edge));
        add_vote(votes[edge.second], edge.pixels, speaks_against_second(edge));
    }
    return votes;
}

// Two pictures that only speak against each other: nobody knows which of them it is.
bool is_word_against_word(std::size_t picture, std::span<const Suspicion> edges, const std::vector<Votes>& votes)
{
    if (votes[picture].edges != 1)
        return false;
    for (const Suspicion& edge : edges) {
        if (edge.whose != Suspicion::Whose::Either || (edge.first != picture && edge.second != picture))
            continue;
        const Votes& other = votes[edge.first == picture ? edge.second : edge.first];
        if (other.edges == 1 && other.is_majority())
            return true;
    }
    return false;
}

} // namespace

std::vector<std::size_t> find_groups(std::size_t pictures, std::span<const GainEdge> edges)
{
    std::vector<std::size_t> parents(pictures);
    std::iota(parents.begin(), parents.end(), std::size_t{0});
    for (const GainEdge& edge : edges) {
        if (!edge.is_used)
            continue;
        const std::size_t a = find_root(parents, edge.first);
        const std::size_t b = find_root(parents, edge.second);
        parents[std::max(a, b)] = std::min(a, b); // a root is its group's first picture
    }
    std::vector<std::size_t> groups(pictures);
    std::size_t count = 0;
    for (std::size_t i = 0; i < pictures; ++i) {
        const std::size_t root = find_root(parents, i);
        groups[i] = root == i ? count++ : groups[root];
    }
    return groups;
}

double edge_residual(const GainEdge& edge, std::span<const double> brightness)
{
    return edge.log_ratio - (brightness[edge.first] - brightness[edge.second]);
}

std::vector<double> solve_brightness(std::size_t pictures, std::span<const GainEdge> edges)
{
    LaplacianSolver solver(pictures, edges);
    std::vector<double> brightness(pictures, 0.0);
    std::vector<double> weights(edges.size());
    for (std::size_t k = 0; k < edges.size(); ++k)
        weights[k] = absolute_weight(edges[k], 0);
    solver.solve(weights, brightness);
    for (int round = 0; round < kAbsoluteRounds; ++round) {
        for (std::size_t k = 0; k < edges.size(); ++k)
            weights[k] = absolute_weight(edges[k], edge_residual(edges[k], brightness));
        solver.solve(weights, brightness);
    }
    for (int round = 0; round < kRedescendingRounds; ++round) {
        const double scale = residual_scale(edges, brightness);
        for (std::size_t k = 0; k < edges.size(); ++k)
            weights[k] = redescending_weight(edges[k], edge_residual(edges[k], brightness), scale);
        solver.solve(weights, brightness);
    }
    return brightness;
}

std::vector<bool> find_contradictions(std::span<const GainEdge> edges, std::span<const double> brightness)
{
    const double scale = residual_scale(edges, brightness);
    std::vector<bool> found(edges.size());
    for (std::size_t k = 0; k < edges.size(); ++k) {
        const double limit = std::max({kLeastContradiction, 4 * error_of(edges[k]), 6 * scale});
        found[k] = edges[k].is_used && std::fabs(edge_residual(edges[k], brightness)) > limit;
    }
    return found;
}

std::vector<std::size_t> find_outliers(std::size_t pictures, std::span<const Suspicion> edges)
{
    std::vector<char> found(pictures, 0);
    for (;;) {
        const std::vector<Votes> votes = count_votes(pictures, edges, found);
        std::size_t worst = pictures;
        for (std::size_t i = 0; i < pictures; ++i)
            if (!found[i] && votes[i].is_majority() && !is_word_against_word(i, edges, votes) &&
                (worst == pictures || votes[i].outweighs(votes[worst])))
                worst = i;
        if (worst == pictures)
            break;
        found[worst] = 1;
    }
    std::vector<std::size_t> outliers;
    for (std::size_t i = 0; i < pictures; ++i)
        if (found[i])
            outliers.push_back(i);
    return outliers;
}

void settle_groups(std::span<double> brightness, std::span<const std::size_t> groups, std::span<const double> weights,
                   std::size_t anchor)
{
    const std::size_t pictures = brightness.size();
    std::vector<double> sums(pictures, 0.0);
    std::vector<double> shares(pictures, 0.0);
    for (std::size_t i = 0; i < pictures; ++i) {
        sums[groups[i]] += weights[i] * brightness[i];
        shares[groups[i]] += weights[i];
    }
    std::vector<double> middle(pictures, 0.0);
    for (std::size_t g = 0; g < pictures; ++g)
        middle[g] = shares[g] > 0 ? sums[g] / shares[g] : 0.0;
    if (anchor < pictures)
        middle[groups[anchor]] = brightness[anchor];
    for (std::size_t i = 0; i < pictures; ++i)
        brightness[i] -= middle[groups[i]];
}

} // namespace panoval::mosaic
