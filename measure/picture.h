// SPDX-License-Identifier: MIT
// Pictures as hosts hand them over: the check of the record, and samples of every type as numbers.
#pragma once

#include "panoval_measure.h"

#include <cstddef>
#include <cstdint>

namespace panoval::measure
{

// PANOVAL_MEASURE_OK, or what is wrong with the record. The samples themselves are not looked at.
std::int32_t check_image(const PanovalMeasureImage* image) noexcept;

// Bytes of a sample; 0 for a type that does not exist.
std::size_t sample_size(std::int32_t sample_type) noexcept;

// The level at which samples saturate; 0 for float samples, which have none.
double highest_sample(std::int32_t sample_type) noexcept;

// Samples x to x + count - 1 of row y, all of them inside the picture.
void read_samples(const PanovalMeasureImage& image, std::int32_t x, std::int32_t y, std::int32_t count,
                  double* samples) noexcept;
void read_samples(const PanovalMeasureImage& image, std::int32_t x, std::int32_t y, std::int32_t count,
                  float* samples) noexcept; // exact, too

} // namespace panoval::measure
