// SPDX-License-Identifier: MIT
#include "mosaic/corrections.h"

#include "blend/band_rows.h"

namespace panoval::mosaic
{

namespace
{

void multiply_row(const ChannelGains& gains, int channels, std::size_t pixels, float* samples)
{
    float factors[4];
    for (int c = 0; c < channels; ++c)
        factors[c] = static_cast<float>(gains[static_cast<std::size_t>(c)]);
    const auto n = static_cast<std::size_t>(channels);
    for (std::size_t x = 0; x < pixels; ++x)
        for (std::size_t c = 0; c < n; ++c)
            samples[x * n + c] *= factors[c];
}

void multiply_row(const ChannelGains& gains, const Falloff& falloff, const Rect& size, const Rect& part, int channels,
                  std::int64_t y, float* samples)
{
    const double middle_x = 0.5 * static_cast<double>(size.width - 1);
    const double middle_y = 0.5 * static_cast<double>(size.height - 1);
    const double corner = middle_x * middle_x + middle_y * middle_y;
    const double dy = static_cast<double>(part.y + y) - middle_y;
    const auto n = static_cast<std::size_t>(channels);
    for (std::int64_t x = 0; x < part.width; ++x) {
        const double dx = static_cast<double>(part.x + x) - middle_x;
        const double q = corner > 0 ? (dx * dx + dy * dy) / corner : 0.0;
        const double inverse = 1.0 / falloff.at(q);
        float* const pixel = samples + static_cast<std::size_t>(x) * n;
        for (std::size_t c = 0; c < n; ++c)
            pixel[c] *= static_cast<float>(gains[c] * inverse);
    }
}

} // namespace

void correct_row(const Corrections& corrections, std::size_t picture, const Rect& size, const PixelBlock& block,
                 std::int64_t y, float* out)
{
    const auto pixels = static_cast<std::size_t>(block.rect.width);
    load_samples(block.row(y), static_cast<std::size_t>(block.sample_bytes),
                 pixels * static_cast<std::size_t>(block.channels), out);
    if (corrections.is_identity(picture))
        return;
    if (corrections.falloff.is_flat())
        multiply_row(corrections.gains[picture], block.channels, pixels, out);
    else
        multiply_row(corrections.gains[picture], corrections.falloff, size, block.rect, block.channels, y, out);
}

} // namespace panoval::mosaic
