// SPDX-License-Identifier: MIT
// Pictures with masks, and a multi-band blender that runs beside its twin.
#pragma once

#include "panoval.h"
#include "tests/reference/multi_band.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::test
{

inline constexpr Roi kCanvas{-20, 10, 150, 90};

inline std::size_t area(int width, int height, int channels = 1)
{
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * static_cast<std::size_t>(channels);
}

enum class Cover { Full, None, Grey, Holes, LeftHalf };

inline std::vector<std::uint8_t> mask_of(Cover cover, int width, int height, std::uint64_t seed)
{
    std::vector<std::uint8_t> values(area(width, height), cover == Cover::None ? 0 : 255);
    Random random(seed);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const int x = static_cast<int>(i) % width;
        if (cover == Cover::Grey)
            values[i] = static_cast<std::uint8_t>(random.integer(0, 255));
        else if ((cover == Cover::Holes && random.integer(0, 9) == 0) || (cover == Cover::LeftHalf && x >= width / 2))
            values[i] = 0;
    }
    return values;
}

// A picture with its mask, in heap blocks of the exact size.
struct Picture {
    Picture(int width, int height, int channels, int elem_size, Cover cover, std::uint64_t seed)
        : samples(
              noise<std::uint8_t>(area(width, height, channels) * static_cast<std::size_t>(elem_size), 0, 255, seed)),
          covered(mask_of(cover, width, height, seed + 1)),
          img{width, height, channels, elem_size, width * height * channels * elem_size, 0, samples.data()},
          mask{width, height, 1, covered.data()}
    {
    }
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    Guarded<std::uint8_t> samples;
    Guarded<std::uint8_t> covered;
    Mat img;
    Matb mask;
};

// A blender, and its twin that is fed the same.
struct Pair {
    Pair(int bands, int channels, Roi roi)
    {
        Roi twin_roi = roi;
        multi_band_blender_setbands(&blender, bands);
        multi_band_blender_prepare(&blender, channels, &roi);
        twin = reference::multi_band_prepare(bands, channels, twin_roi);
    }
    ~Pair()
    {
        if (!blended)
            multi_band_blender_blend(&blender, nullptr, 1);
        MatDestroy(&out);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    void feed(const Picture& picture, Point tl)
    {
        multi_band_blender_feed(&blender, &picture.img, &picture.mask, tl);
        reference::multi_band_feed(twin, picture.img, picture.mask, tl);
    }

    testing::AssertionResult same_sums() const
    {
        for (std::size_t i = 0; i < twin.laplace.size(); ++i) {
            const auto same =
                same_bits(blender.dstPyrLaplace[i].data, twin.laplace[i].data.data(), twin.laplace[i].data.size());
            if (!same)
                return testing::AssertionFailure() << "bands, level " << i << ": " << same.message();
            const auto same_weights =
                same_bits(blender.dstBandWeights[i].data, twin.weights[i].data.data(), twin.weights[i].data.size());
            if (!same_weights)
                return testing::AssertionFailure() << "weights, level " << i << ": " << same_weights.message();
        }
        return testing::AssertionSuccess();
    }

    testing::AssertionResult same_panorama(int elem_size)
    {
        multi_band_blender_blend(&blender, &out, elem_size);
        blended = true;
        const std::vector<std::uint8_t> expected = reference::multi_band_blend(twin, elem_size);
        if (static_cast<std::size_t>(out.size) != expected.size())
            return testing::AssertionFailure() << out.size << " bytes instead of " << expected.size();
        return same_bits(out.data, expected.data(), expected.size());
    }

    MultiBandBlender blender{};
    reference::MultiBand twin;
    Mat out{};
    bool blended = false;
};

} // namespace panoval::test
