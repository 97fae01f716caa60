// SPDX-License-Identifier: MIT
// The panorama before any pixel is read: which pictures there are, that they go together, where each lies, and the
// canvas that holds them all. Pictures are read from here one at a time, so that memory grows with the canvas alone.
#pragma once

#include "cli/base/image_names.h"
#include "cli/stitch/placed_input.h"
#include "image/image.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace panoval::cli
{

// One picture of the panorama.
struct PlacedLayer {
    std::string file;
    std::size_t layer = 0; // in the file
    std::string mask;      // a file, or empty; so are the next two
    std::string keep;      // pixels that must come from this picture
    std::string exclude;   // pixels that must not
    ImageInfo info;
    Offset position; // of its top-left corner, in the frame that the user speaks of
    Point corner{};  // the same in the canvas's frame, whose corner is (0, 0)

    Sides frame; // where a row or column that is not covered is put around the picture; see frame_inner_sides

    std::string name() const; // for messages: the file, and the layer where there are several
    bool is_one_of_several = false;
    std::optional<std::uint64_t> held_bytes; // by whoever reads the picture and its masks, if that is known
    bool is_stored = false;                  // its files hold their rows as they are, as far as is known

    std::string fingerprint; // of its files when a plan was made, or empty
};

struct PanoramaPlan {
    std::vector<PlacedLayer> layers;
    Offset origin; // of the canvas in the user's frame
    std::int32_t width = 0;
    std::int32_t height = 0;
    int channels = 0;
    int bits = 0; // the most of any picture
};

// Looks into every file. Fails when one is missing or unsuitable, when pictures do not go together, or when the canvas
// would be longer than 2^31 - 1 pixels. trusts_layout: files of which the layout tells the size are not opened.
PanoramaPlan plan_panorama(const std::vector<PlacedInput>& inputs, bool trusts_layout = false);

// The same for pictures that are known already. Reads nothing.
PanoramaPlan plan_panorama(std::vector<PlacedLayer> layers);

// Gives each picture a frame on the sides behind which another picture goes on. Weights that grow with the distance to
// what is not covered need it there: beyond a picture's edge they know nothing.
void frame_inner_sides(PanoramaPlan& plan);

} // namespace panoval::cli
