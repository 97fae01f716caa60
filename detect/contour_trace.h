// SPDX-License-Identifier: MIT
// Outlines of the foreground of a map, followed as closed chains of 8-connected boundary pixels.
#pragma once

#include "core/heap.h"

#include <cstddef>
#include <cstdint>

namespace panoval
{

// One closed outline: a stretch of OutlineList::pixels.
struct Outline {
    std::int32_t labelled_begin; // from here to begin: first pixels of abandoned outlines that share the label
    std::int32_t begin;          // the outline's own pixels in tracing order
    std::int32_t end;
};

// All outlines of one map, in raster order of their first pixels. Each boundary pixel stands in the list at most once,
// so one block of known size holds them all and an abandoned outline costs nothing.
struct OutlineList {
    HeapArray<std::int32_t> pixels; // y * width + x
    HeapArray<Outline> outlines;
    std::int32_t count = 0;       // outlines in use
    std::int32_t pixel_count = 0; // elements of pixels in use; above 0 as soon as any outline was opened
};

// Marks the pixels of interior that are foreground and have a background pixel to the left, right, above or below.
//
// up, row, down  three rows of width bytes, 0 or 1
// marks          width bytes, out: 1 = boundary; the first and the last stay untouched
//
// Returns the number of marks set to 1.
std::size_t mark_boundary_row(const std::uint8_t* up, const std::uint8_t* row, const std::uint8_t* down, int width,
                              std::uint8_t* marks);

// Follows every outline of a foreground map (width x height bytes, 0 or 1). The image's outermost pixels are on no
// outline. False, with an empty list, when the heap is exhausted.
[[nodiscard]] bool trace_contours(std::int32_t width, std::int32_t height, const std::uint8_t* foreground,
                                  OutlineList& list);

} // namespace panoval
