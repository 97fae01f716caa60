// SPDX-License-Identifier: MIT
// Conversion of an image to packed 8-bit pictures of three bytes a pixel. One row is like the next, so the kernels run
// over all pixels at once.
#include "core/mat_to_image_rows.h"
#include "core/numbers.h"
#include "panoval.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "core/mat_to_image.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

using Bytes = hn::ScalableTag<std::uint8_t>;
using Halves = hn::Half<Bytes>;
using Words = hn::Rebind<std::uint16_t, Halves>;

// The high bytes of as many samples as Words has lanes.
HWY_INLINE hn::Vec<Halves> load_high_bytes(const std::uint16_t* samples)
{
    const hn::Rebind<std::int16_t, Halves> d_signed;
    const auto high = hn::ShiftRight<8>(hn::LoadU(Words(), samples));
    return hn::DemoteTo(Halves(), hn::BitCast(d_signed, high)); // at most 255: nothing saturates
}

void repeat_bytes(const std::uint8_t* grey, std::uint8_t* out, std::size_t count)
{
    const Bytes d;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d)) {
        const auto v = hn::LoadU(d, grey + i);
        hn::StoreInterleaved3(v, v, v, d, out + 3 * i);
    }
    for (; i < count; ++i)
        std::memset(out + 3 * i, grey[i], 3);
}

void take_high_bytes(const std::uint16_t* samples, std::uint8_t* out, std::size_t count)
{
    const Halves d;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        hn::StoreU(load_high_bytes(samples + i), d, out + i);
    for (; i < count; ++i)
        out[i] = static_cast<std::uint8_t>(samples[i] >> 8);
}

// In two steps, because a full vector of bytes interleaves better than a half one.
void repeat_high_bytes(const std::uint16_t* grey, std::uint8_t* out, std::size_t count)
{
    constexpr std::size_t kTile = 2048;
    std::uint8_t tile[kTile];
    for (std::size_t i = 0; i < count; i += kTile) {
        const std::size_t part = std::min(kTile, count - i);
        take_high_bytes(grey + i, tile, part);
        repeat_bytes(tile, out + 3 * i, part);
    }
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{

HWY_EXPORT(repeat_bytes);
HWY_EXPORT(repeat_high_bytes);
HWY_EXPORT(take_high_bytes);

void repeat_bytes(const std::uint8_t* grey, std::uint8_t* out, std::size_t count)
{
    HWY_DYNAMIC_DISPATCH(repeat_bytes)(grey, out, count);
}

void repeat_high_bytes(const std::uint16_t* grey, std::uint8_t* out, std::size_t count)
{
    HWY_DYNAMIC_DISPATCH(repeat_high_bytes)(grey, out, count);
}

void take_high_bytes(const std::uint16_t* samples, std::uint8_t* out, std::size_t count)
{
    HWY_DYNAMIC_DISPATCH(take_high_bytes)(samples, out, count);
}

} // namespace panoval

extern "C" std::int32_t MatToImage(const Mat* m, std::uint8_t* out)
{
    if (m->channels != 1 && m->channels != 3)
        return 0;
    if (m->elemSize != 1 && m->elemSize != 2)
        return 0;
    const std::size_t pixels = panoval::to_count(panoval::wrapping_mul(m->width, m->height));
    if (pixels == 0)
        return 1;
    const auto* const words = reinterpret_cast<const std::uint16_t*>(m->data); // a heap block is aligned for any sample
    if (m->elemSize == 1 && m->channels == 1)
        panoval::repeat_bytes(m->data, out, pixels);
    else if (m->elemSize == 1)
        std::memcpy(out, m->data, 3 * pixels);
    else if (m->channels == 1)
        panoval::repeat_high_bytes(words, out, pixels);
    else
        panoval::take_high_bytes(words, out, 3 * pixels);
    return 1;
}
#endif
