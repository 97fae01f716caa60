// SPDX-License-Identifier: MIT
// How the brightness of two overlapping pictures differs after corrections: as a slow function of the place, as
// vignetting leaves it, and of the level, as different curves do. And the step that is left where they meet.
#pragma once

#include "mosaic/seams/seam_map.h"
#include "mosaic/verdict/overlap_cells.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace panoval::mosaic
{

// The second picture minus the first, levels of 255, fitted robustly to all cells of an overlap.
class ToneModel
{
public:
    static constexpr std::size_t kTerms = 8; // 1, x, y, x^2, xy, y^2, level, level^2

    explicit ToneModel(const OverlapCells& cells);

    // Of each cell in a row of them.
    void at_row(std::size_t y, std::size_t c, std::span<double> out) const;
    // The part that depends on the place alone, of brightness, at (x + i * step, y) for each i; in cells, 0 the first
    // one's middle.
    void surface_row(double x, double y, double step, std::span<double> out) const;
    // What remains: its robust standard deviation.
    double spread(std::size_t c) const { return channels_[c].spread; }
    // Standard deviation over the overlap of the part that depends on the level; of the channel with most of it.
    double curve() const;
    // Root mean square over the overlap of the part that depends on the place; of the channel with most of it.
    double unevenness() const;
    // Median difference over the overlap; of the channel with the largest.
    double offset() const;

private:
    struct Channel {
        std::array<double, kTerms> factor{};
        double mean_level = 0;
        double level_scale = 1;
        double lowest = 0;
        double highest = 0;
        double spread = 0;
        std::array<double, 3> level_covariance{}; // of the two factors of the level, per square of the spread
        double curve = 0;
        double unevenness = 0;
        double offset = 0;
    };

    using Terms = std::array<double, kTerms>;

    // What a fit is made of, for one channel.
    struct Samples {
        std::vector<Terms> terms;
        std::vector<double> differences;
        std::vector<double> rest; // what the fit leaves of them
    };

    double most(double Channel::*value) const;
    Terms terms(std::size_t cell, double level, const Channel& channel) const;
    double level_around(std::size_t cell, std::size_t c) const;
    void scale_levels(const std::vector<std::size_t>& sample, std::size_t c, Channel& channel) const;
    Samples gather(const std::vector<std::size_t>& sample, std::size_t c, const Channel& channel) const;
    static double start(Samples& samples, const Channel& channel);
    static void fit(Samples& samples, Channel& channel);
    static void measure_spread(Samples& samples, Channel& channel);
    static void measure_parts(const Samples& samples, Channel& channel);

    const OverlapCells& cells_;
    std::vector<double> across_; // of each column, where it lies
    std::vector<double> down_;
    std::array<Channel, 4> channels_;
};

// Whose each cell is: 1 the first picture's, 2 the second's, 0 another one's.
std::vector<std::uint8_t> owners_of_cells(const OverlapCells& cells, const Layout& layout, const SeamMap& seams);

struct SeamStep {
    double levels = 0;
    bool has_seam = false; // otherwise the levels are those of the whole overlap
};

SeamStep measure_step(const OverlapCells& cells, const ToneModel& tone, const std::vector<std::uint8_t>& owners);

} // namespace panoval::mosaic
