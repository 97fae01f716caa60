// SPDX-License-Identifier: MIT
// The measure of the page for hosts: processor time and heap of a call, and the pictures that calls get.
#pragma once

#include "panoval.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace panoval::bench
{

// Width and height of all pictures.
extern int side;

struct Cost {
    double milliseconds = 1e30; // the processor's, the least of three calls
    double bytes = 0;           // the most of the heap in use during a call, above what was in use before
};

// restore is called before each of the three calls, and not counted.
Cost cost_of(
    const std::function<void()>& call, const std::function<void()>& restore = [] {});

// A line of the table, per megapixel of `side` times `side`, and one of the calls that pixels do not matter to.
void print_per_megapixel(const char* routine, const Cost& cost);
void print_per_call(const char* routine, const char* of_what, const Cost& cost);

// Waves with dark discs and some grain: something for every routine.
std::vector<std::uint8_t> scene(int channels);

Mat mat_of(std::vector<std::uint8_t>& pixels, int channels);

// The routines of libpanoval.
void print_library(std::vector<std::uint8_t>& grey, std::vector<std::uint8_t>& colour);
void print_library_calls(std::vector<std::uint8_t>& grey);

// Those of libmath.
void print_libmath_calls();

} // namespace panoval::bench
