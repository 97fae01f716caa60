// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_swap.h"

#include "mosaic/seams/seam_cost.h"
#include "mosaic/seams/seam_map.h"

#include <algorithm>

namespace panoval::mosaic
{

void SwapWindow::reset(std::int64_t new_width, std::int64_t new_height)
{
    width_ = new_width;
    height_ = new_height;
    labels_.assign(static_cast<std::size_t>((width_ + 2) * (height_ + 2)), kNobody);
    movable_.assign(static_cast<std::size_t>(width_ * height_), 0);
}

void LabelSwapper::begin(SwapWindow& window, SwapCosts& costs)
{
    window_ = &window;
    provider_ = &costs;
    known_count_ = 0;
}

const std::vector<std::int32_t>& LabelSwapper::costs_of(std::int32_t a, std::int32_t b)
{
    const Labels labels{std::min(a, b), std::max(a, b)};
    for (std::size_t i = 0; i < known_count_; ++i)
        if (known_[i].labels == labels)
            return known_[i].costs;
    if (known_count_ == known_.size())
        known_.emplace_back();
    Known& next = known_[known_count_++];
    next.labels = labels;
    next.costs.resize(static_cast<std::size_t>(window_->width() * window_->height()));
    provider_->fill(static_cast<std::size_t>(labels.first), static_cast<std::size_t>(labels.second), next.costs);
    return next.costs;
}

// The cost of label a at p beside label b at its neighbour q.
std::int32_t LabelSwapper::separation(std::int32_t a, std::int32_t b, std::size_t p, std::int64_t qx, std::int64_t qy)
{
    if (a == b || b == kNobody)
        return 0;
    const std::vector<std::int32_t>& costs = costs_of(a, b);
    const bool is_inside = qx >= 0 && qx < window_->width() && qy >= 0 && qy < window_->height();
    const std::int32_t here = costs[p];
    const std::int32_t there = is_inside ? costs[window_->index(qx, qy)] : kNotShared;
    if (here == kNotShared && there == kNotShared)
        return kCostApart;
    return (here == kNotShared ? there : here) + (there == kNotShared ? here : there);
}

// Links a node to the nodes after it; the other places beside it draw it to one label.
void LabelSwapper::add_neighbours(std::size_t node, std::int64_t x, std::int64_t y)
{
    const std::size_t p = window_->index(x, y);
    const auto pitch = static_cast<std::size_t>(window_->width());
    const auto link_to = [&](std::size_t q) {
        cut_.link(node, static_cast<std::size_t>(nodes_[q]), pair_costs_[p] + pair_costs_[q]);
    };
    if (x == 0 || nodes_[p - 1] < 0)
        draw_beside(node, p, x - 1, y);
    if (x + 1 < window_->width() && nodes_[p + 1] >= 0)
        link_to(p + 1);
    else
        draw_beside(node, p, x + 1, y);
    if (y == 0 || nodes_[p - pitch] < 0)
        draw_beside(node, p, x, y - 1);
    if (y + 1 < window_->height() && nodes_[p + pitch] >= 0)
        link_to(p + pitch);
    else
        draw_beside(node, p, x, y + 1);
}

// What a neighbour that cannot change draws the node at p to.
void LabelSwapper::draw_beside(std::size_t node, std::size_t p, std::int64_t qx, std::int64_t qy)
{
    const std::int32_t other = window_->label(qx, qy);
    cut_.draw_to_first(node, separation(pair_.second, other, p, qx, qy) - separation(pair_.first, other, p, qx, qy));
}

// A place that cannot change draws the other one to its own label.
void LabelSwapper::add_tie(const SwapTie& tie)
{
    const std::int32_t a = nodes_[tie.a];
    const std::int32_t b = nodes_[tie.b];
    if (a >= 0 && b >= 0) {
        cut_.link(static_cast<std::size_t>(a), static_cast<std::size_t>(b), tie.cost);
    } else if (a >= 0 || b >= 0) {
        const std::size_t fixed = a >= 0 ? tie.b : tie.a;
        const auto pitch = static_cast<std::size_t>(window_->width());
        const std::int32_t label =
            window_->label(static_cast<std::int64_t>(fixed % pitch), static_cast<std::int64_t>(fixed / pitch));
        add_pull({a >= 0 ? tie.a : tie.b, label, tie.cost});
    }
}

void LabelSwapper::add_pull(const SwapPull& pull)
{
    const std::int32_t node = nodes_[pull.at];
    if (node >= 0 && (pull.label == pair_.first || pull.label == pair_.second))
        cut_.draw_to_first(static_cast<std::size_t>(node), pull.label == pair_.first ? pull.cost : -pull.cost);
}

std::size_t LabelSwapper::number_nodes()
{
    nodes_.assign(static_cast<std::size_t>(window_->width() * window_->height()), -1);
    std::int32_t count = 0;
    for (std::int64_t y = 0; y < window_->height(); ++y)
        for (std::int64_t x = 0; x < window_->width(); ++x) {
            const std::size_t p = window_->index(x, y);
            const std::int32_t label = window_->label(x, y);
            if (window_->is_movable(x, y) && (label == pair_.first || label == pair_.second) &&
                pair_costs_[p] != kNotShared)
                nodes_[p] = count++;
        }
    return static_cast<std::size_t>(count);
}

bool LabelSwapper::swap(std::size_t first, std::size_t second, const std::vector<SwapTie>& ties,
                        const std::vector<SwapPull>& pulls)
{
    pair_ = {static_cast<std::int32_t>(first), static_cast<std::int32_t>(second)};
    pair_costs_ = costs_of(pair_.first, pair_.second).data();
    const std::size_t count = number_nodes();
    if (count == 0)
        return false;
    cut_.reset(count);
    for (std::int64_t y = 0; y < window_->height(); ++y)
        for (std::int64_t x = 0; x < window_->width(); ++x)
            if (const std::int32_t node = nodes_[window_->index(x, y)]; node >= 0)
                add_neighbours(static_cast<std::size_t>(node), x, y);
    for (const SwapTie& tie : ties)
        add_tie(tie);
    for (const SwapPull& pull : pulls)
        add_pull(pull);
    cut_.solve();
    bool has_changed = false;
    for (std::int64_t y = 0; y < window_->height(); ++y)
        for (std::int64_t x = 0; x < window_->width(); ++x)
            if (const std::int32_t node = nodes_[window_->index(x, y)]; node >= 0) {
                const std::int32_t label = cut_.is_first(static_cast<std::size_t>(node)) ? pair_.first : pair_.second;
                has_changed = has_changed || window_->label(x, y) != label;
                window_->label(x, y) = label;
            }
    return has_changed;
}

std::vector<LabelSwapper::Labels> LabelSwapper::touching_labels() const
{
    std::vector<Labels> found;
    const auto add = [&found](std::int32_t a, std::int32_t b) {
        if (a == b || a == kNobody || b == kNobody)
            return;
        const Labels labels{std::min(a, b), std::max(a, b)};
        if (std::find(found.begin(), found.end(), labels) == found.end())
            found.push_back(labels);
    };
    for (std::int64_t y = 0; y < window_->height(); ++y) {
        const std::span<const std::int32_t> above = window_->row(y - 1);
        const std::span<const std::int32_t> row = window_->row(y);
        const std::span<const std::int32_t> below = window_->row(y + 1);
        for (std::size_t x = 1; x + 1 < row.size(); ++x)
            if (window_->is_movable(static_cast<std::int64_t>(x) - 1, y))
                for (const std::int32_t beside : {row[x - 1], row[x + 1], above[x], below[x]})
                    add(row[x], beside);
    }
    std::sort(found.begin(), found.end());
    return found;
}

void LabelSwapper::swap_all(int most_rounds)
{
    for (int round = 0; round < most_rounds; ++round) {
        bool has_changed = false;
        const std::vector<Labels> pairs = touching_labels();
        for (const Labels& labels : pairs)
            has_changed =
                swap(static_cast<std::size_t>(labels.first), static_cast<std::size_t>(labels.second)) || has_changed;
        if (!has_changed || pairs.size() < 2)
            return;
    }
}

} // namespace panoval::mosaic
