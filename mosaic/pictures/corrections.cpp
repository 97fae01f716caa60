// SPDX-License-Identifier: MIT
#include "mosaic/pictures/corrections.h"

#include "blend/band_rows.h"

namespace panoval::mosaic
{

namespace
{

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

void correct_raw_row(const Corrections& corrections, std::size_t picture, const Rect& size, const RawRow& row,
                     const Rect& part, std::int64_t y, float* out)
{
    if (corrections.falloff.is_flat())
        return scale_row(row, factors_of(corrections, picture), out);
    load_samples(row.samples, row.sample_bytes, row.pixels * row.channels, out);
    multiply_row(corrections.gains[picture], corrections.falloff, size, part, static_cast<int>(row.channels), y, out);
}

} // namespace

ChannelFactors factors_of(const Corrections& corrections, std::size_t picture)
{
    ChannelFactors factors;
    for (std::size_t c = 0; c < factors.size(); ++c)
        factors[c] = static_cast<float>(corrections.gains[picture][c]);
    return factors;
}

void correct_row(const Corrections& corrections, std::size_t picture, const Rect& size, const PixelBlock& block,
                 std::int64_t y, float* out)
{
    const RawRow row{block.row(y), static_cast<std::size_t>(block.sample_bytes),
                     static_cast<std::size_t>(block.rect.width), static_cast<std::size_t>(block.channels)};
    correct_raw_row(corrections, picture, size, row, block.rect, y, out);
}

void correct_row(const Corrections& corrections, std::size_t picture, const Rect& size, const PictureView& view,
                 std::int64_t y, float* out)
{
    const RawRow row{view.row(y), static_cast<std::size_t>(view.sample_bytes()),
                     static_cast<std::size_t>(view.rect().width), static_cast<std::size_t>(view.channels())};
    correct_raw_row(corrections, picture, size, row, view.rect(), y, out);
}

} // namespace panoval::mosaic
