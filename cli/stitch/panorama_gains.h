// SPDX-License-Identifier: MIT
// The first pass over the pictures: how bright they are where they overlap, and the gains that make them agree.
#pragma once

#include "cli/base/image_names.h"
#include "cli/base/progress.h"
#include "cli/stitch/panorama_plan.h"
#include "cli/stitch/picture_store.h"
#include "image/image.h"
#include "image/output_file.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace panoval::cli
{

// Two pictures whose rectangles meet.
struct Overlap {
    std::size_t first = 0;
    std::size_t second = 0;
    Roi region{}; // in the canvas's frame
};

std::vector<Overlap> find_overlaps(const PanoramaPlan& plan);

// Sees every overlapping pair while both pictures are in memory, before any gain is applied.
using PairObserver = std::function<void(const Overlap& overlap, const Image& first, const Image& second)>;

struct GainPass {
    bool wants_gains = true;
    PairObserver observe; // may be empty
};

// One gain for each picture; 1 for all where the pass wants none. The store is to hold two pictures at least.
std::vector<double> run_gain_pass(const PanoramaPlan& plan, const std::vector<Overlap>& overlaps, PictureStore& store,
                                  const GainPass& pass, Progress& progress);

// Steps that the pass announces to its progress bar.
std::size_t gain_pass_steps(const PanoramaPlan& plan);

// Multiplies the samples in place.
void apply_gain(Image& image, double gain);

// A JSON file of names and gains. Writing does not commit; loading fails unless the file has a gain for each picture,
// in the plan's order.
void write_gains(OutputFile& output, const PanoramaPlan& plan, const std::vector<double>& gains);
std::vector<double> load_gains(const std::string& name, const PanoramaPlan& plan);

} // namespace panoval::cli
