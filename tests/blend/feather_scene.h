// SPDX-License-Identifier: MIT
// Placed, masked pictures for the tests of the feather blender, and the record that they are blended in.
#pragma once

#include "panoval.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace panoval::test
{

// One image with its mask and place. Its buffers have their exact size.
class Placed
{
public:
    Placed(int width, int height, int channels, int elem_size, Point place)
        : tl(place), samples_(count(width, height) * static_cast<std::size_t>(channels * elem_size)),
          mask_(count(width, height))
    {
        img = {width, height, channels, elem_size, static_cast<int>(samples_.size()), 0, samples_.data()};
        mask = {width, height, 1, mask_.data()};
        std::memset(mask_.data(), 255, mask_.size());
        std::memset(samples_.data(), 0, samples_.size());
    }

    Placed& noisy(std::uint64_t seed)
    {
        const auto bytes = noise<std::uint8_t>(samples_.size(), 0, 255, seed);
        if (!bytes.empty())
            std::memcpy(samples_.data(), bytes.data(), bytes.size());
        return *this;
    }

    // Every sample is the same; of 16-bit images the 16-bit one.
    Placed& filled(int value)
    {
        for (std::size_t i = 0; i < samples_.size(); ++i)
            samples_[i] = static_cast<std::uint8_t>(img.elemSize == 2 && i % 2 != 0 ? value >> 8 : value & 0xFF);
        return *this;
    }

    // Zero outside an ellipse that touches the sides, and in about one pixel of `rarity`.
    Placed& masked(int rarity, std::uint64_t seed)
    {
        Random random(seed);
        for (std::size_t i = 0; i < mask_.size(); ++i) {
            const double x = 2.0 * static_cast<double>(i % static_cast<std::size_t>(mask.width)) / mask.width - 1;
            const double y = 2.0 * static_cast<double>(i / static_cast<std::size_t>(mask.width)) / mask.height - 1;
            const bool inside = x * x + y * y < 1 && random.integer(1, rarity) != 1;
            mask_[i] = inside ? static_cast<std::uint8_t>(random.integer(1, 255)) : std::uint8_t{0};
        }
        return *this;
    }

    bool intact() const { return samples_.intact() && mask_.intact(); }

    Mat img;
    Matb mask;
    Point tl;

private:
    static std::size_t count(int width, int height)
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    }
    Guarded<std::uint8_t> samples_;
    Guarded<std::uint8_t> mask_;
};

// A prepared record, and the blocks that it still owns when the test ends.
class Panorama
{
public:
    Panorama(const Roi& canvas, int channels)
    {
        MatInit(&out);
        feather_blender_prepare(&blender, channels, &canvas);
    }
    Panorama(const Panorama&) = delete;
    Panorama& operator=(const Panorama&) = delete;
    ~Panorama()
    {
        for (Matf* const m : {&blender.dst, &blender.distScratch, &blender.weightMap, &blender.dstWeightMap})
            std::free(m->data);
        MatDestroy(&out);
    }

    Panorama& feed(const Placed& image)
    {
        feather_blender_feed(&blender, &image.img, &image.mask, image.tl);
        return *this;
    }

    // The panorama's samples.
    std::vector<int> blend(int elem_size)
    {
        feather_blender_blend(&blender, &out, elem_size);
        const std::size_t bytes = out.data != nullptr ? static_cast<std::size_t>(out.size) : 0;
        std::vector<int> samples;
        for (std::size_t i = 0; i < bytes; i += elem_size == 2 ? 2 : 1)
            samples.push_back(elem_size == 2 ? out.data[i] + 256 * out.data[i + 1] : out.data[i]);
        return samples;
    }

    FeatherBlender blender{};
    Mat out;
};

inline std::vector<float> values_of(const Matf& m)
{
    if (m.data == nullptr)
        return {};
    return {m.data, m.data + std::ptrdiff_t{m.width} * m.height * m.channels};
}

} // namespace panoval::test
