// SPDX-License-Identifier: MIT
// The library's blenders behind one face, with exhausted memory as an error.
#pragma once

#include "cli/base/image_names.h"
#include "cli/stitch/canvas_tiles.h"
#include "cli/stitch/panorama_plan.h"
#include "image/image.h"

#include <memory>
#include <string>

namespace panoval::cli
{

class PanoramaBlender
{
public:
    virtual ~PanoramaBlender() = default;

    // Adds a picture, as load_layer gives it.
    virtual void feed(const PlacedLayer& layer, const Image& image) = 0;

    // The panorama, or the tile of it. To be called once, at the end.
    virtual Image blend(int bits) = 0;
};

// A mean with weights that grow with the distance to the edge of the mask. A picture's border counts as an edge where
// another picture goes on behind it. output names the panorama in messages.
std::unique_ptr<PanoramaBlender> make_feather_blender(const PanoramaPlan& plan, const std::string& output);

// Each frequency band by itself, with transitions as wide as the band is coarse. Pixels that no picture covers are
// black. What is to blend of a tile of the canvas.
std::unique_ptr<PanoramaBlender> make_multi_band_blender(const PanoramaPlan& plan, const CanvasTile& tile, int bands,
                                                         const std::string& output);

} // namespace panoval::cli
