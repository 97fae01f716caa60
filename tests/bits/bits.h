// SPDX-License-Identifier: MIT
// A table of results: every exported routine over generated input, one digest a routine. The input is made of integers
// and of + - * / sqrt, so that it is the same everywhere; the table must be, too.
#pragma once

#include "tests/support/noise.h"

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace panoval::bits
{

using test::Random;

// FNV-1a of 64 bits over values, byte by byte, the lowest first. Which not-a-number a value is does not count.
class Digest
{
public:
    void add(std::uint64_t value, int bytes = 8)
    {
        for (int i = 0; i < bytes; ++i) {
            sum_ ^= (value >> (8 * i)) & 0xFFu;
            sum_ *= 0x100000001B3u;
        }
    }
    void add(std::int64_t value) { add(static_cast<std::uint64_t>(value)); }
    void add(std::int32_t value) { add(static_cast<std::uint64_t>(static_cast<std::uint32_t>(value)), 4); }
    void add(double value) { add(std::isnan(value) ? 0x7FF8000000000000u : std::bit_cast<std::uint64_t>(value)); }
    void add(float value)
    {
        add(std::isnan(value) ? 0x7FC00000u : std::uint64_t{std::bit_cast<std::uint32_t>(value)}, 4);
    }
    template <class T>
    void add(const T* values, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            if constexpr (sizeof(T) == 8 || std::is_floating_point_v<T>)
                add(values[i]);
            else
                add(static_cast<std::uint64_t>(values[i]), sizeof(T));
    }
    template <class T>
    void add(const std::vector<T>& values)
    {
        add(values.data(), values.size());
    }

    std::uint64_t value() const { return sum_; }

private:
    std::uint64_t sum_ = 0xCBF29CE484222325u;
};

// One line of the table.
struct Section {
    std::string name;
    void (*run)(Digest& digest);
};

// The routines of libpanoval, family by family. A library on top of it adds a list of its own to all_sections.
std::vector<Section> container_sections();
std::vector<Section> blending_sections();
std::vector<Section> filter_sections();
std::vector<Section> detection_sections();
std::vector<Section> seam_sections();
std::vector<Section> mosaic_sections();
std::vector<Section> measure_sections();

std::vector<Section> all_sections();

// How many threads the engine takes, or 0: as many as each case says.
extern int engine_threads;

enum class Kind { Noise, Smooth, Ramp, Checkerboard, Black, White, TwoLevel, Targets };
inline constexpr Kind kKinds[] = {Kind::Noise, Kind::Smooth, Kind::Ramp,     Kind::Checkerboard,
                                  Kind::Black, Kind::White,  Kind::TwoLevel, Kind::Targets};

// One channel of 8 bit.
std::vector<std::uint8_t> picture(Kind kind, int width, int height, std::uint64_t seed);

struct Shape {
    int width;
    int height;
};
inline constexpr Shape kShapes[] = {{3, 3}, {5, 17}, {31, 9}, {64, 48}, {97, 61}, {160, 120}};

} // namespace panoval::bits
