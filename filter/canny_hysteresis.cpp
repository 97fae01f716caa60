// SPDX-License-Identifier: MIT
// The edge detector's hysteresis: thresholds from the histogram of candidate magnitudes, and edges that grow from
// strong candidates through weaker ones.
//
// The magnitudes are compared with the thresholds once, in order; what following an edge then visits here and there is
// one byte per pixel.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "filter/canny_hysteresis.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set

#include <hwy/highway.h>

#include "core/numbers.h"
#include "filter/canny.h"
#include "filter/edge_queue.h"

#include <bit>
#include <cstring>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// Classes in place of marks.
void classify_pixels(const std::int16_t* magnitude, std::size_t count, std::int32_t high, std::int16_t low,
                     std::uint8_t* edge)
{
    const hn::ScalableTag<std::int16_t> d16;
    const hn::Rebind<std::uint8_t, decltype(d16)> d8;
    const auto candidate = hn::Set(d16, kCandidate);
    const auto neither = hn::Set(d16, kNeither);
    const auto below_high = hn::Set(d16, static_cast<std::int16_t>(high - 1)); // high is 1 to 32767
    std::size_t i = 0;
    for (; i + hn::Lanes(d16) <= count; i += hn::Lanes(d16)) {
        const auto m = hn::LoadU(d16, magnitude + i);
        const auto is_candidate = hn::Eq(hn::PromoteTo(d16, hn::LoadU(d8, edge + i)), candidate);
        const auto is_follower = hn::IfThenElseZero(hn::Gt(m, hn::Set(d16, low)), hn::Set(d16, kFollower));
        const auto is_seed = hn::IfThenElseZero(hn::Gt(m, below_high), hn::Set(d16, kSeed));
        const auto class_of_candidate = hn::Or(is_follower, is_seed);
        const auto is_none = hn::Eq(class_of_candidate, hn::Zero(d16));
        const auto classes = hn::IfThenElse(hn::AndNot(is_none, is_candidate), class_of_candidate, neither);
        hn::StoreU(hn::DemoteTo(d8, classes), d8, edge + i);
    }
    for (; i < count; ++i) {
        const int found = (magnitude[i] > low ? kFollower : 0) | (magnitude[i] >= high ? kSeed : 0);
        edge[i] = static_cast<std::uint8_t>(edge[i] == kCandidate && found != 0 ? found : kNeither);
    }
}

// kEdge stays, everything else becomes kNoEdge.
void finish_pixels(std::uint8_t* edge, std::size_t count)
{
    const hn::ScalableTag<std::uint8_t> d;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d)) {
        const auto is_edge = hn::Eq(hn::LoadU(d, edge + i), hn::Zero(d));
        hn::StoreU(hn::IfThenZeroElse(is_edge, hn::Set(d, kNoEdge)), d, edge + i);
    }
    for (; i < count; ++i)
        edge[i] = edge[i] == kEdge ? kEdge : kNoEdge;
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
HWY_EXPORT(classify_pixels);
HWY_EXPORT(finish_pixels);

void canny_classify_pixels(const std::int16_t* magnitude, std::size_t count, CannyThresholds thresholds,
                           std::uint8_t* edge)
{
    HWY_DYNAMIC_DISPATCH(classify_pixels)(magnitude, count, thresholds.high, thresholds.low, edge);
}

void canny_finish_pixels(std::uint8_t* edge, std::size_t count)
{
    HWY_DYNAMIC_DISPATCH(finish_pixels)(edge, count);
}

namespace
{

constexpr std::uint64_t kBit0OfBytes = 0x0101010101010101u;

std::uint64_t load_eight(const std::uint8_t* bytes)
{
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

std::uint32_t load_four(const std::uint8_t* bytes)
{
    std::uint32_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// Bit i for byte i of a word of which only the lowest bit of each byte may be set.
std::uint64_t pack_bits(std::uint64_t bits)
{
    return (bits * 0x0102040810204080u) >> 56;
}

// Bit i for mark i of 64 that is kCandidate; the marks are kCandidate (bit 0 clear) or kNoEdge (bit 0 set).
std::uint64_t candidates_of_64(const std::uint8_t* marks)
{
    std::uint64_t found = 0;
    for (unsigned i = 0; i < 8; ++i)
        found |= pack_bits(~load_eight(marks + 8 * i) & kBit0OfBytes) << (8 * i);
    return found;
}

// Calls use(i) for every seed, from the first pixel to the last. use may turn pixels into edges.
template <class Use>
void for_each_seed(const std::uint8_t* edge, std::size_t count, const Use& use)
{
    const auto use_if_seed = [&](std::size_t i) {
        if ((edge[i] & kSeed) != 0) // an earlier seed may have reached it
            use(i);
    };
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8)
        for (std::uint64_t seeds = load_eight(edge + i) & (kBit0OfBytes * kSeed); seeds != 0; seeds &= seeds - 1)
            use_if_seed(i + static_cast<std::size_t>(std::countr_zero(seeds)) / 8);
    for (; i < count; ++i)
        use_if_seed(i);
}

// The followers around a pixel: bit i for the neighbour at neighbour_offset(i). Reads the pixel's own row and the two
// beside it only, and nothing before the first or behind the last pixel that the eight neighbours span.
std::uint32_t followers_around(const std::uint8_t* pixel, std::ptrdiff_t cols)
{
    constexpr std::uint32_t kThree = 0x010101u; // followers of the first three bytes
    const std::uint32_t above = load_four(pixel - cols - 1) & kThree;
    const std::uint32_t beside = load_four(pixel - 1) & kThree; // the pixel itself is an edge already
    const std::uint32_t below = (load_four(pixel + cols - 2) >> 8) & kThree;
    return above | beside << 1 | below << 2;
}

std::ptrdiff_t neighbour_offset(int bit, std::ptrdiff_t cols)
{
    return bit / 8 - 1 + (bit % 8 - 1) * cols;
}

// Marks every pixel that a seed reaches, on offsets from the seed. It walks along the edge as long as that leads on;
// the queue keeps the pixels where it could have gone elsewhere. Without memory for one of these its branch ends there.
void canny_follow_edges(std::uint8_t* seed, std::ptrdiff_t cols, EdgeQueue* queue)
{
    std::int64_t p = 0;
    do {
        for (std::uint32_t found = followers_around(seed + p, cols); found != 0;
             found = followers_around(seed + p, cols)) {
            const std::int64_t next = p + neighbour_offset(std::countr_zero(found), cols);
            seed[next] = kEdge;
            for (found &= found - 1; found != 0; found &= found - 1) {
                const std::int64_t other = p + neighbour_offset(std::countr_zero(found), cols);
                seed[other] = kEdge;
                if (queue != nullptr)
                    edge_queue_push(queue, other);
            }
            p = next;
        }
    } while (queue != nullptr && edge_queue_pop(queue, &p) == kEdgeQueueDone);
}

} // namespace

void canny_count_candidates(const std::uint8_t* map, const std::int16_t* magnitude, std::size_t cols,
                            std::int32_t* histogram)
{
    std::size_t i = 0;
    for (; i + 64 <= cols; i += 64)
        for (std::uint64_t found = candidates_of_64(map + i); found != 0; found &= found - 1)
            ++histogram[magnitude[i + static_cast<std::size_t>(std::countr_zero(found))]];
    for (; i < cols; ++i)
        if (map[i] == kCandidate)
            ++histogram[magnitude[i]];
}

CannyThresholds canny_thresholds(const std::int32_t* histogram, double tlow, double thigh)
{
    std::int32_t total = 0;
    std::int32_t highest = 0;
    for (std::int32_t r = 1; r < kMagnitudes; ++r)
        if (histogram[r] != 0) {
            total += histogram[r];
            highest = r;
        }
    const std::int32_t below_high = truncate_to_int(total * thigh + 0.5);
    std::int32_t high = 1;
    std::int32_t counted = histogram[1];
    while (high < highest - 1 && counted < below_high)
        counted += histogram[++high];
    return {high, static_cast<std::int16_t>(low_half(truncate_to_int(high * tlow + 0.5)))};
}

void canny_hysteresis(const std::int16_t* magnitude, std::int32_t rows, std::int32_t cols, CannyThresholds thresholds,
                      std::uint8_t* edge)
{
    const std::size_t count = static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
    canny_classify_pixels(magnitude, count, thresholds, edge);
    EdgeQueue* queue = nullptr;
    for_each_seed(edge, count, [&](std::size_t i) {
        edge[i] = kEdge;
        if (queue == nullptr)
            edge_queue_create(&queue); // without memory it stays null
        canny_follow_edges(edge + i, cols, queue);
    });
    if (queue != nullptr)
        edge_queue_destroy(queue);
    canny_finish_pixels(edge, count);
}

} // namespace panoval
#endif
