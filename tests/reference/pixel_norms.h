// SPDX-License-Identifier: MIT
// The lengths of pixels as vectors, as they are defined.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace panoval::reference
{

template <class Sample>
void pixel_norms(const Sample* pixels, std::size_t channels, const std::uint8_t* covered, std::size_t count,
                 double* norms)
{
    for (std::size_t i = 0; i < count; ++i) {
        double sum = 0;
        for (std::size_t c = 0; c < channels; ++c) {
            const std::uint32_t sample = pixels[i * channels + c];
            sum += static_cast<double>(static_cast<std::int32_t>(sample * sample)); // wraps at 32 bits
        }
        norms[i] = covered[i] != 0 ? std::sqrt(sum) : 0.0;
    }
}

} // namespace panoval::reference
