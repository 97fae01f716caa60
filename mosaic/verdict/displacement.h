// SPDX-License-Identifier: MIT
// By how much two overlapping pictures are displaced: a few blocks of what they share are measured one by one, and
// those that show enough vote.
#pragma once

#include "mosaic/verdict/displacement_fit.h"
#include "mosaic/verdict/overlap_cells.h"
#include "mosaic/verdict/verdict.h"
#include "mosaic/verdict/verdict_tone.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace panoval::mosaic
{

// What one block says.
struct BlockShift {
    Rect rect;              // in the frame of the overlap's region
    double step = 1;        // pixels a unit of its fit; 1, or that of cells
    ShiftFit fit;           // the best place that was found; in units
    double chance = 0.05;   // standard deviation of a correlation that means nothing
    double noise_first = 0; // variance that noise leaves in each prepared patch, from the block itself
    double noise_second = 0;
    double seen_first = -1;   // variance of what is certainly no noise; negative where nobody looked
    double seen_second = -1;  //
    bool is_coded = false;    // what little one of them shows is the squares of its coding; false where nobody looked
    double agreeing = 0;      // squares that show the same at the place that was found; 0 where nobody looked
    double strange = 0;       // that do not
    double detail_first = 0;  // variance of fine detail, noise included
    double detail_second = 0; //
    double detail_shared = 0; // covariance
};

// Noise of prepared patches that is known better than from one block, as variances.
struct KnownNoise {
    double first = 0;
    double second = 0;
};

struct ShiftVote {
    std::optional<Displacement> displacement;
    double displaced_by = 0;   // pixels
    double mismatch = 0;       // share of what the blocks show that is found nowhere in the other picture
    double weight = 0;         // of evidence, 0 to 1: blocks with texture enough to tell
    double uncertainty = 0;    // pixels, of displaced_by
    std::optional<bool> empty; // false: the first picture shows nothing where the other does; true: the second
};

// tone  of the same cells: what of their difference changes slowly is taken out
std::vector<BlockShift> measure_blocks(const PictureSource& source, const OverlapCells& cells, const ToneModel& tone,
                                       std::size_t threads);

// Of a correlation at the place that was found, where less than the whole block may be left.
double chance_at(const BlockShift& block);

// Whether what was compared there is less than half of the block: the rest lies outside, or moved. Of reduced copies,
// whose noise is not known, nobody can tell.
bool is_of_a_part(const BlockShift& block);

// Whether both blocks show the same at the place that was found.
bool is_matched(const BlockShift& block);

// Whether what it shows are faint squares of coding, which say nothing about places and sharpness.
bool is_coding_alone(const BlockShift& block);

// Whether a picture shows nothing where the other one does, as their cells say.
enum class Emptiness { No, Possible, Certain };

struct EmptySides {
    Emptiness first = Emptiness::No;
    Emptiness second = Emptiness::No;
};

// Possible where the other picture varies in brightness all over the overlap, and this one hardly does; certain where
// this one has one value everywhere, and no end of the range of samples explains it.
EmptySides find_empty(const OverlapCells& cells);

// unevenness  of light between the two pictures, levels of 255
ShiftVote vote(const std::vector<BlockShift>& blocks, const KnownNoise& noise, const EmptySides& empty_sides,
               double unevenness);

} // namespace panoval::mosaic
