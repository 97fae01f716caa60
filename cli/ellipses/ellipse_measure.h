// SPDX-License-Identifier: MIT
// One picture's elliptical targets, as the library finds them.
#pragma once

#include "cli/base/image_names.h"
#include "image/image.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace panoval::cli
{

struct EllipseSettings {
    std::int32_t min_pixels = 30;
    std::int32_t max_rms = 2;
    std::optional<std::int32_t> divisions; // without it: default_divisions
    bool wants_ring = false;
};

// A bright feature on the ring around a target.
struct RingFeature {
    double x = 0; // pixels
    double y = 0;
    double size = 0; // ring samples
};

// Lengths in pixels, the angle in radians from +x towards +y; a pixel's centre has whole coordinates.
struct Target {
    double x = 0;
    double y = 0;
    double semi_major = 0;
    double semi_minor = 0;
    double angle = 0;
    double rms = 0;
    std::int32_t pixel_count = 0;
    std::int32_t outline_points = 0;
    std::vector<RingFeature> ring;
    bool is_ring_inside = true; // the ring lies within the picture
};

struct Measurement {
    std::string file;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t divisions = 0;
    double seconds = 0; // in the library
    std::vector<Target> targets;
};

// Tiles of about 100 pixels: smaller than uneven light, larger than most targets.
std::int32_t default_divisions(std::int32_t width, std::int32_t height);

// An 8-bit grey picture, named by file. Fails where the settings do not fit the picture.
Measurement measure_ellipses(const std::string& file, const Image& grey, const EllipseSettings& settings);

} // namespace panoval::cli
