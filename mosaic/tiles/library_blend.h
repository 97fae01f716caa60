// SPDX-License-Identifier: MIT
// A tile as the library's blenders give it when they are fed the pictures' whole masks on the whole canvas, bit for
// bit: gains rounded to whole samples, colours continued behind masks before their bands are told.
#pragma once

#include "mosaic/base/band_window.h"
#include "mosaic/base/layout.h"
#include "mosaic/pictures/corrections.h"
#include "mosaic/pictures/pixel_block.h"

#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

struct LibraryJob {
    const Layout& layout;
    const Corrections& corrections;
    PictureReader& reader;
    int bands; // as the library counts them: see library_bands
    int output_bits;
    Rect tile;
    std::uint8_t* samples;
    std::size_t row_bytes;
    std::uint8_t* coverage; // or null
    std::size_t coverage_row_bytes;
};

// Memory that a tile takes and the next one uses again.
struct LibraryScratch {
    TileLevels levels;
    BandWindow bands;
};

void blend_bands(const LibraryJob& job, LibraryScratch& scratch);
void blend_feather(const LibraryJob& job);

// The bands that the library uses where so many are asked for: no more than the larger side allows, and at least one.
int library_bands(const Layout& layout, int requested);

// A tile depends on the pictures that lie here. Of bands near a picture's edge, and behind masks, on as much of the
// picture as its mirror image and the colours that go on there show, which may lie farther away.
Rect bands_reach(const Rect& tile, int bands);
Rect feather_reach(const Rect& tile);

} // namespace panoval::mosaic
