// SPDX-License-Identifier: MIT
// From the full size to the smallest: at full size targets are found most exactly, at smaller ones those are found that
// are too faint or too blurred to show edges at full size. The same target at several sizes counts once, as it was
// found first.
#include "measure/detect_candidates.h"

#include "core/numbers.h"
#include "measure/detect_edges.h"
#include "measure/detect_outline.h"

#include <algorithm>
#include <cmath>

namespace panoval::measure
{

namespace
{

constexpr double kSlack = 0.8;         // by which a rough axis may be below the smallest
constexpr double kLeastCoarseAxis = 3; // pixels of a smaller scale
constexpr double kLeastEdgeShare = 0.7;
constexpr double kLeastLength = 3; // pixels, of silhouettes

// Of 32 equal turns.
constexpr std::size_t kDirections = 32;
constexpr double kCosines[kDirections] = {
    1.0,  0.98078528,  0.92387953,  0.83146961,  0.70710678,  0.55557023,  0.38268343,  0.19509032,
    0.0,  -0.19509032, -0.38268343, -0.55557023, -0.70710678, -0.83146961, -0.92387953, -0.98078528,
    -1.0, -0.98078528, -0.92387953, -0.83146961, -0.70710678, -0.55557023, -0.38268343, -0.19509032,
    0.0,  0.19509032,  0.38268343,  0.55557023,  0.70710678,  0.83146961,  0.92387953,  0.98078528};

Oval in_picture(const Scale& scale, Oval oval) noexcept
{
    oval.x = scale.to_picture(oval.x);
    oval.y = scale.to_picture(oval.y);
    oval.a *= scale.pixels();
    oval.b *= scale.pixels();
    oval.rms *= scale.pixels();
    return oval;
}

// The share of directions in which the picture has an edge of the right sign across the oval's outline: at least a
// third as steep as the usual one.
double edge_share_of(const Scale& scale, const Oval& oval)
{
    double slopes[kDirections];
    for (std::size_t i = 0; i < kDirections; ++i) {
        const double along = kCosines[i] * oval.a;
        const double across = kCosines[(i + kDirections - kDirections / 4) % kDirections] * oval.b;
        const std::int32_t x = truncate_to_int(oval.x + along * oval.ux - across * oval.uy + 0.5);
        const std::int32_t y = truncate_to_int(oval.y + along * oval.uy + across * oval.ux + 0.5);
        slopes[i] = 0;
        if (x < 1 || y < 1 || x >= scale.width - 1 || y >= scale.height - 1)
            continue;
        // The normal of the outline there, of any length: along / a^2, across / b^2.
        const double na = along / (oval.a * oval.a);
        const double nb = across / (oval.b * oval.b);
        const double nx = na * oval.ux - nb * oval.uy;
        const double ny = na * oval.uy + nb * oval.ux;
        const Gradient g = gradient_at(scale, x, y);
        const double outward =
            (static_cast<double>(g.x) * nx + static_cast<double>(g.y) * ny) / std::sqrt(nx * nx + ny * ny);
        slopes[i] = oval.is_dark ? outward : -outward;
    }
    double sorted[kDirections];
    std::copy(slopes, slopes + kDirections, sorted);
    std::sort(sorted, sorted + kDirections);
    const double least = std::max(sorted[kDirections / 2] / 3, static_cast<double>(scale.edge_gradient) / 4);
    return static_cast<double>(std::count_if(slopes, slopes + kDirections, [&](double s) { return s > least; })) /
           kDirections;
}

class Search
{
public:
    Search(const CandidateLimits& limits, const UnitScale& units, CandidateList& list)
        : limits_(limits), units_(units), list_(list)
    {
    }

    void search(Scale& scale)
    {
        const std::int32_t end = scale.width - 1;
        for (std::int32_t y = 1; y < scale.height - 1; ++y) {
            const std::uint8_t* const marks = scale.edges.get() + scale.at(0, y);
            for (std::int32_t x = next_mark(marks, 1, end); x < end; x = next_mark(marks, x + 1, end))
                if (marks[x] == kEdge)
                    look_at(scale, x, y);
        }
    }

private:
    void look_at(Scale& scale, std::int32_t x, std::int32_t y)
    {
        scale.edges[scale.at(x, y)] = kSeen;
        const double level = level_of_edge(scale, x, y);
        if (!follow_level(scale, x, y, level, line_))
            return;
        Oval oval;
        const bool is_closed = line_.is_closed && oval_of_closed_line(line_.points, oval);
        const bool is_whole = is_closed && is_oval(oval);
        mark_seen(scale, line_, is_whole);
        list_.lines += line_.is_closed;
        if (line_.is_closed && scale.index == 0)
            keep_silhouette(level, oval.is_dark);
        if (is_whole) {
            add(scale, oval);
            return;
        }
        const double least = kSlack * limits_.least_axis / scale.pixels();
        bool any = false;
        const double most = limits_.most_axis / kSlack / scale.pixels();
        for (const Oval& part : ovals_of_arcs(line_, std::max(least, scale.index > 0 ? kLeastCoarseAxis : 0.0), most))
            any = add(scale, part) || any;
        list_.not_oval += line_.is_closed && !any;
    }

    void keep_silhouette(double level, bool is_dark)
    {
        SilhouetteOf line;
        for (const OutlinePoint& point : line_.points)
            line.add(point.x, point.y);
        const Silhouette silhouette = line.result(level / units_.factor + units_.offset, is_dark);
        const double length = silhouette.longest();
        if (length >= kLeastLength && length <= Silhouette::kLongest)
            list_.closed.push_back(silhouette);
    }

    bool add(const Scale& scale, const Oval& found)
    {
        const Oval oval = in_picture(scale, found);
        if (oval.b < kSlack * limits_.least_axis) {
            ++list_.too_small;
            return false;
        }
        if (oval.a * kSlack > limits_.most_axis) {
            ++list_.too_large;
            return false;
        }
        if (oval.b < kSlack * limits_.least_aspect * oval.a) {
            ++list_.not_oval;
            return false;
        }
        if (scale.index > 0 && found.b < kLeastCoarseAxis)
            return false;
        if (edge_share_of(scale, found) < kLeastEdgeShare) {
            ++list_.not_oval;
            return false;
        }
        list_.candidates.push_back({oval, scale.index});
        return true;
    }

    const CandidateLimits& limits_;
    const UnitScale& units_;
    CandidateList& list_;
    LevelLine line_;
};

bool is_same(const Oval& one, const Oval& other) noexcept
{
    const double near = std::max(0.75, 0.1 * std::min(one.b, other.b));
    const double dx = one.x - other.x;
    const double dy = one.y - other.y;
    return one.is_dark == other.is_dark && dx * dx + dy * dy < near * near &&
           std::fabs(one.a - other.a) < std::max(0.75, 0.1 * one.a) &&
           std::fabs(one.b - other.b) < std::max(0.75, 0.1 * one.b);
}

// Keeps the best of the same ones. Sorted by rows, only near ones need to be compared.
void drop_doubles(std::vector<Candidate>& candidates)
{
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Candidate& one, const Candidate& other) { return one.oval.y < other.oval.y; });
    std::vector<bool> is_double(candidates.size());
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        const Oval& oval = candidates[i].oval;
        const double reach = std::max(0.75, 0.1 * oval.b);
        for (std::size_t k = i + 1; k < candidates.size() && candidates[k].oval.y <= oval.y + reach; ++k)
            if (is_same(oval, candidates[k].oval))
                is_double[rank_of(candidates[k]) < rank_of(candidates[i]) ? i : k] = true;
    }
    std::vector<Candidate> kept;
    for (std::size_t i = 0; i < candidates.size(); ++i)
        if (!is_double[i])
            kept.push_back(candidates[i]);
    candidates.swap(kept);
}

} // namespace

std::tuple<double, std::int32_t, double> rank_of(const Candidate& candidate) noexcept
{
    return {-candidate.oval.covered, candidate.scale, candidate.oval.rms};
}

CandidateList find_candidates(const PanovalMeasureImage& image, const CandidateLimits& limits)
{
    CandidateList list;
    const UnitScale units = unit_scale_of(image);
    const double noise = noise_of(image, units);
    list.noise = noise / units.factor;
    std::vector<Scale> scales = scales_of(image, units);
    list.is_out_of_memory = scales.empty();
    Search search(limits, units, list);
    for (Scale& scale : scales) {
        mark_edges(scale, noise);
        search.search(scale);
    }
    drop_doubles(list.candidates);
    return list;
}

} // namespace panoval::measure
