// SPDX-License-Identifier: MIT
// What the fuzzer's bytes stand for: numbers in their documented ranges, and samples. A wrong bit ends the process,
// which the fuzzer takes for a finding.
#pragma once

#include "tests/support/noise.h"

#include <fuzzer/FuzzedDataProvider.h>
#include <hwy/targets.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace panoval::fuzz
{

inline void require(bool condition)
{
    if (!condition)
        std::abort();
}

class Input
{
public:
    // The first byte chooses the instruction set that the input runs on.
    Input(const std::uint8_t* data, std::size_t size) : bytes_(data, size)
    {
        static const std::vector<std::int64_t> targets = hwy::SupportedAndGeneratedTargets();
        hwy::SetSupportedTargetsForTest(targets[bytes_.ConsumeIntegral<std::uint8_t>() % targets.size()]);
    }

    template <class T = int>
    T number(T low, T high)
    {
        return bytes_.ConsumeIntegralInRange<T>(low, high);
    }
    double real(double low, double high) { return bytes_.ConsumeFloatingPointInRange<double>(low, high); }
    bool flag() { return bytes_.ConsumeBool(); }

    // As many as wanted: bytes of the input repeated, or one of the kinds of seeded samples, with bytes of the input on
    // top.
    std::vector<std::uint8_t> samples(std::size_t count)
    {
        const int kind = number(0, 5);
        const auto seed = number<std::uint64_t>(0, 0xFFFF);
        std::vector<std::uint8_t> values = test::noise<std::uint8_t>(count, 0, 255, seed);
        const auto level = static_cast<std::uint8_t>(seed);
        const std::size_t run = 1 + seed % 37;
        for (std::size_t i = 0; i < count; ++i) {
            if (kind == 1)
                values[i] = level;
            if (kind == 2)
                values[i] = i / run % 2 != 0 ? 200 : 40;
            if (kind == 3)
                values[i] = static_cast<std::uint8_t>(i * run / 8);
            if (kind == 4)
                values[i] = values[i] < level ? 0 : 255;
        }
        const std::vector<std::uint8_t> own = bytes_.ConsumeBytes<std::uint8_t>(number<std::size_t>(0, 64));
        const std::size_t step = 1 + seed % 13;
        for (std::size_t i = 0; i < own.size() && i * step < count; ++i)
            values[i * step] = own[i];
        return values;
    }

    std::vector<std::uint8_t> mask(std::size_t count)
    {
        std::vector<std::uint8_t> values = samples(count);
        if (number(0, 3) == 0)
            values.assign(count, 255);
        return values;
    }

    FuzzedDataProvider& bytes() { return bytes_; }

private:
    FuzzedDataProvider bytes_;
};

// -0 and 0 differ; a not-a-number equals itself.
template <class T>
bool same_bits(const T* a, const T* b, std::size_t count)
{
    return count == 0 || std::memcmp(a, b, count * sizeof(T)) == 0;
}

template <class T>
bool same_bits(const std::vector<T>& a, const std::vector<T>& b)
{
    return a.size() == b.size() && same_bits(a.data(), b.data(), a.size());
}

inline std::size_t area(int width, int height)
{
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}

} // namespace panoval::fuzz
