// SPDX-License-Identifier: MIT
// Samples of light with normal noise, rounded and cut off at both ends: how likely each is, and how that changes with
// the light and with the noise.
#pragma once

#include <cstddef>
#include <vector>

namespace panoval::mosaic
{

// The normal distribution, from a table: to 1e-7, the same on every system.
class NormalTable
{
public:
    struct Value {
        double below = 0;   // probability of less
        double density = 0; //
    };

    NormalTable();
    Value at(double z) const;

private:
    std::vector<Value> nodes_;
};

// Of each light of a row of lights: the samples that are at all likely.
class SampleChances
{
public:
    explicit SampleChances(std::size_t samples) : samples_(samples) {}

    // Samples are 0 to samples - 1; what is darker or brighter becomes the first or the last one.
    void compute(const std::vector<double>& means, const std::vector<double>& variances, const NormalTable& normal);

    std::size_t begin(std::size_t light) const { return begin_[light]; }
    std::size_t end(std::size_t light) const { return end_[light]; }
    // Of the samples, counted from 0.
    const double* chance(std::size_t light) const { return chance_.data() + light * samples_; }
    const double* by_mean(std::size_t light) const { return by_mean_.data() + light * samples_; } // derivative
    const double* by_variance(std::size_t light) const { return by_variance_.data() + light * samples_; }

private:
    std::size_t samples_;
    std::vector<std::size_t> begin_;
    std::vector<std::size_t> end_;
    std::vector<double> chance_;
    std::vector<double> by_mean_;
    std::vector<double> by_variance_;
};

} // namespace panoval::mosaic
