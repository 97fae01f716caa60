// SPDX-License-Identifier: MIT
// The edge detector's hysteresis: thresholds from the histogram of candidate magnitudes, and edges that grow from
// strong candidates through weaker ones.
#include "filter/canny.h"

#include "core/numbers.h"
#include "filter/edge_queue.h"

#include <bit>
#include <cstring>

namespace panoval
{
namespace
{

constexpr std::uint64_t kHighBits = 0x8080808080808080u;

// Bit 7 of each byte of eight marks that is kCandidate, among marks of kEdge, kCandidate and kNoEdge.
std::uint64_t candidates_of_eight(const std::uint8_t* marks)
{
    std::uint64_t word;
    std::memcpy(&word, marks, sizeof word);
    return word & ~(word << 7) & kHighBits; // bit 7 set, bit 0 clear
}

// Calls use(i) for every candidate of a row, from the left.
template <class Use>
void for_each_candidate(const std::uint8_t* marks, std::size_t count, const Use& use)
{
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8)
        for (std::uint64_t found = candidates_of_eight(marks + i); found != 0; found &= found - 1)
            use(i + static_cast<std::size_t>(std::countr_zero(found)) / 8);
    for (; i < count; ++i)
        if (marks[i] == kCandidate)
            use(i);
}

// Follows the edge of one seed breadth-first, on offsets from the seed.
void canny_follow_edges(std::uint8_t* seed, const std::int16_t* magnitude, std::int16_t low, std::ptrdiff_t cols,
                        EdgeQueue* queue)
{
    const std::ptrdiff_t neighbours[8] = {1, -cols + 1, -cols, -cols - 1, -1, cols - 1, cols, cols + 1};
    std::int64_t p = 0;
    edge_queue_push(queue, p);
    while (edge_queue_pop(queue, &p) == kEdgeQueueDone)
        for (const std::ptrdiff_t neighbour : neighbours) {
            const std::int64_t offset = p + neighbour;
            if (seed[offset] != kCandidate || magnitude[offset] <= low)
                continue;
            seed[offset] = kEdge;
            edge_queue_push(queue, offset); // without memory the edge ends here
        }
}

} // namespace

void canny_count_candidates(const std::uint8_t* map, const std::int16_t* magnitude, std::size_t cols,
                            std::int32_t* histogram)
{
    for_each_candidate(map, cols, [&](std::size_t i) { ++histogram[magnitude[i]]; });
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
    EdgeQueue* queue = nullptr;
    for_each_candidate(edge, count, [&](std::size_t i) {
        if (edge[i] != kCandidate || magnitude[i] < thresholds.high) // an earlier seed may have reached it
            return;
        edge[i] = kEdge;
        if (queue != nullptr || edge_queue_create(&queue) == kEdgeQueueDone)
            canny_follow_edges(edge + i, magnitude + i, thresholds.low, cols, queue);
    });
    if (queue != nullptr)
        edge_queue_destroy(queue);
    for (std::size_t i = 0; i < count; ++i)
        edge[i] = edge[i] == kEdge ? kEdge : kNoEdge;
}

} // namespace panoval
