// SPDX-License-Identifier: MIT
#include "image/row_halver.h"

#include <cstring>
#include <utility>

namespace panoval::image
{

namespace
{

template <class Sample>
std::uint32_t load(const std::uint8_t* row, std::size_t i)
{
    Sample sample;
    std::memcpy(&sample, row + i * sizeof sample, sizeof sample);
    return sample;
}

template <class Sample>
void store(std::uint8_t* row, std::size_t i, std::uint64_t value)
{
    const auto sample = static_cast<Sample>(value);
    std::memcpy(row + i * sizeof sample, &sample, sizeof sample);
}

// width: of the larger picture
template <class Sample, std::size_t Channels>
void halve(const std::uint8_t* above, const std::uint8_t* below, std::size_t width, std::uint8_t* half)
{
    for (std::size_t x = 0; x < width / 2; ++x)
        for (std::size_t c = 0; c < Channels; ++c) {
            const std::size_t at = 2 * x * Channels + c;
            const std::uint32_t sum = load<Sample>(above, at) + load<Sample>(above, at + Channels) +
                                      load<Sample>(below, at) + load<Sample>(below, at + Channels);
            store<Sample>(half, x * Channels + c, (sum + 2) / 4);
        }
    if (width % 2 != 0)
        for (std::size_t c = 0; c < Channels; ++c) {
            const std::size_t at = (width - 1) * Channels + c;
            store<Sample>(half, width / 2 * Channels + c, (load<Sample>(above, at) + load<Sample>(below, at) + 1) / 2);
        }
}

// The same weighted by the masks; a covered pixel does not become uncovered.
template <class Sample, std::size_t Channels>
void halve_covered(const ConstRows& above, const ConstRows& below, std::size_t width, std::uint8_t* half,
                   std::uint8_t* half_mask)
{
    for (std::size_t x = 0; x < (width + 1) / 2; ++x) {
        const std::size_t left = 2 * x;
        const std::size_t right = left + 1 < width ? left + 1 : left;
        const std::uint64_t weights[4] = {above.mask[left], above.mask[right], below.mask[left], below.mask[right]};
        const std::uint64_t weight = weights[0] + weights[1] + weights[2] + weights[3];
        for (std::size_t c = 0; c < Channels; ++c) {
            const std::uint64_t sum = weights[0] * load<Sample>(above.samples, left * Channels + c) +
                                      weights[1] * load<Sample>(above.samples, right * Channels + c) +
                                      weights[2] * load<Sample>(below.samples, left * Channels + c) +
                                      weights[3] * load<Sample>(below.samples, right * Channels + c);
            store<Sample>(half, x * Channels + c, weight == 0 ? 0 : (sum + weight / 2) / weight);
        }
        half_mask[x] = static_cast<std::uint8_t>(weight != 0 && weight < 2 ? 1 : (weight + 2) / 4);
    }
}

} // namespace

ImageInfo half_of(const ImageInfo& info)
{
    ImageInfo half = info;
    half.width = info.width / 2 + info.width % 2;
    half.height = info.height / 2 + info.height % 2;
    return half;
}

RowHalver::RowHalver(const ImageInfo& info, Emit emit) : info_(info), emit_(std::move(emit))
{
    const auto width = static_cast<std::size_t>(info.width);
    const std::size_t row_bytes = width * static_cast<std::size_t>(info.channels) * info.sample_bytes();
    held_.resize(row_bytes);
    half_.resize((width + 1) / 2 * static_cast<std::size_t>(info.channels) * info.sample_bytes());
    if (info.has_alpha) {
        held_mask_.resize(width);
        half_mask_.resize((width + 1) / 2);
    }
}

void RowHalver::add(const ConstRows& row)
{
    const ConstRows held = {held_.data(), held_.size(), info_.has_alpha ? held_mask_.data() : nullptr,
                            held_mask_.size()};
    if (holds_row_) {
        put(held, row);
    } else {
        std::memcpy(held_.data(), row.samples, held_.size());
        if (info_.has_alpha)
            std::memcpy(held_mask_.data(), row.mask, held_mask_.size());
    }
    holds_row_ = !holds_row_;
}

void RowHalver::finish()
{
    if (!holds_row_)
        return;
    const ConstRows held = {held_.data(), held_.size(), info_.has_alpha ? held_mask_.data() : nullptr,
                            held_mask_.size()};
    put(held, held);
    holds_row_ = false;
}

void RowHalver::put(const ConstRows& above, const ConstRows& below)
{
    const auto width = static_cast<std::size_t>(info_.width);
    const bool is_wide = info_.bits == 16;
    const bool is_colour = info_.channels == 3;
    if (info_.has_alpha) {
        const auto work = is_colour ? (is_wide ? halve_covered<std::uint16_t, 3> : halve_covered<std::uint8_t, 3>)
                                    : (is_wide ? halve_covered<std::uint16_t, 1> : halve_covered<std::uint8_t, 1>);
        work(above, below, width, half_.data(), half_mask_.data());
    } else {
        const auto work = is_colour ? (is_wide ? halve<std::uint16_t, 3> : halve<std::uint8_t, 3>)
                                    : (is_wide ? halve<std::uint16_t, 1> : halve<std::uint8_t, 1>);
        work(above.samples, below.samples, width, half_.data());
    }
    emit_({half_.data(), half_.size(), info_.has_alpha ? half_mask_.data() : nullptr, half_mask_.size()});
}

} // namespace panoval::image
