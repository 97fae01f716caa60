// SPDX-License-Identifier: MIT
// The definition of the gradient image, for images of at least 2 x 2 pixels.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace panoval::reference
{

inline void gradient_image(const std::uint8_t* src, int width, int height, std::int16_t* dx, std::int16_t* dy,
                           std::uint16_t* magnitude)
{
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const std::ptrdiff_t w = width;
            const std::ptrdiff_t i = y * w + x;
            if (x == 0)
                dx[i] = static_cast<std::int16_t>(src[i + 1] - src[i]);
            else if (x == width - 1)
                dx[i] = static_cast<std::int16_t>(src[i] - src[i - 1]);
            else
                dx[i] = static_cast<std::int16_t>(src[i + 1] - src[i - 1]);
            if (y == 0)
                dy[i] = static_cast<std::int16_t>(src[i + w] - src[i]);
            else if (y == height - 1)
                dy[i] = static_cast<std::int16_t>(src[i] - src[i - w]);
            else
                dy[i] = static_cast<std::int16_t>(src[i + w] - src[i - w]);
            const int s = dx[i] * dx[i] + dy[i] * dy[i];
            magnitude[i] = static_cast<std::uint16_t>(static_cast<int>(std::sqrt(static_cast<double>(s))));
        }
}

} // namespace panoval::reference
