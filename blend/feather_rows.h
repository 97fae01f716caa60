// SPDX-License-Identifier: MIT
// The feather blender's work on one row of pixels.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval
{

// Distances in pixels become weights: slope per pixel, at most 1.
void ramp_row(float* weights, std::size_t count, float slope) noexcept;

// Adds weight times sample to sums, and weight to weight_sums, for count pixels of interleaved samples.
void add_weighted_row(const std::uint8_t* samples, const float* weights, float* sums, float* weight_sums,
                      std::size_t count, std::size_t channels) noexcept;
void add_weighted_row(const std::uint16_t* samples, const float* weights, float* sums, float* weight_sums,
                      std::size_t count, std::size_t channels) noexcept;

// Stores the low bits of each sample's rounded mean, and 0 where a pixel's weight is no more than the epsilon.
void store_means_row(const float* sums, const float* weights, std::uint8_t* out, std::size_t count,
                     std::size_t channels) noexcept;
void store_means_row(const float* sums, const float* weights, std::uint16_t* out, std::size_t count,
                     std::size_t channels) noexcept;

} // namespace panoval
