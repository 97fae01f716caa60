// SPDX-License-Identifier: MIT
// Differences of neighbours and their magnitude.
#include "core/numbers.h"
#include "panoval.h"

#include <cmath>

extern "C" {

void gradient_image(const std::uint8_t* src, std::int32_t width, std::int32_t height, std::int16_t* dx,
                    std::int16_t* dy, std::uint16_t* magnitude)
{
    const std::size_t row_bytes = panoval::to_count(width);
    const std::size_t count = row_bytes * panoval::to_count(height);
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x) {
            const std::size_t i = static_cast<std::size_t>(y) * row_bytes + static_cast<std::size_t>(x);
            const std::size_t right = (x == 0 || x < width - 1) && i + 1 < count ? i + 1 : i;
            const std::size_t left = x > 0 ? i - 1 : i;
            const std::size_t below = y < height - 1 ? i + row_bytes : i;
            const std::size_t above = y > 0 ? i - row_bytes : i;
            dx[i] = static_cast<std::int16_t>(src[right] - src[left]);
            dy[i] = static_cast<std::int16_t>(src[below] - src[above]);
            const double sum = dx[i] * dx[i] + dy[i] * dy[i];
            magnitude[i] = panoval::low_half(panoval::truncate_to_int(std::sqrt(sum)));
        }
}

} // extern "C"
