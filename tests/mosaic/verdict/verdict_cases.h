// SPDX-License-Identifier: MIT
// Made panoramas with one fault each, or none, and what is to be said about them.
#pragma once

#include "mosaic/verdict/verdict.h"
#include "tests/mosaic/memory_reader.h"
#include "tests/mosaic/mosaic_scene.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace panoval::mosaic::test
{

// What the words may be, and who is to blame.
struct Expected {
    bool may_be_good = false;
    bool may_be_look = false;
    bool may_be_bad = false;
    std::vector<std::size_t> misfits;
    bool misfits_matter = true;
};

struct VerdictCase {
    std::string scene;
    std::string fault;
    std::shared_ptr<MemoryReader> reader;
    Expected expected;
    double shift_x = 0; // of the misfit, where that is its fault
    double shift_y = 0;
    Rect thing; // that moved, on the canvas
};

std::vector<std::string> verdict_scenes();
std::vector<std::string> verdict_faults();

// A grid of 3 x 2 pictures, or a row of 4, in which picture 1 or another inner one is at fault.
VerdictCase make_verdict_case(const std::string& scene, const std::string& fault, std::uint64_t seed);

// Everything as the engine does it: overlaps, gains, seams, verdict.
Verdict judge_case(const VerdictCase& made);

// Looks at all overlaps, and judges.
Verdict judge_all(MemoryReader& reader, const std::vector<Overlap>& overlaps, const Corrections& corrections,
                  const SeamMap& seams, const VerdictOptions& options = {});

bool is_right(const VerdictCase& made, const Verdict& verdict);

} // namespace panoval::mosaic::test
