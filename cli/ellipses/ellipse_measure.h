// SPDX-License-Identifier: MIT
// One picture's elliptical targets, as the library finds them.
#pragma once

#include "cli/base/image_names.h"
#include "image/image.h"
#include "panoval_measure.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace panoval::cli
{

enum class Method {
    Precise, // libpanoval_measure: every polarity and size, 16 bit as 16 bit, with uncertainties
    Library  // find_ellipse
};

struct BoardSize {
    std::int32_t rows = 0;
    std::int32_t columns = 0;
};

struct EllipseSettings {
    Method method = Method::Precise;
    bool wants_ring = false;
    // of the precise method
    std::int32_t polarity = PANOVAL_MEASURE_BOTH;
    double min_quality = PANOVAL_MEASURE_USUAL_QUALITY;
    std::optional<BoardSize> board;
    // of the library's
    std::int32_t min_pixels = 30;
    std::int32_t max_rms = 2;
    std::optional<std::int32_t> divisions; // without it: default_divisions
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
    bool is_ring_inside = true;        // the ring lies within the picture
    PanovalMeasureTarget precise = {}; // of the precise method
    std::int32_t board_place = -1;     // row times columns plus column
};

// A board that the targets form.
struct Board {
    BoardSize size;
    bool is_found = false;
    std::string reason; // why it is not found
    PanovalMeasureGrid grid = {};
    std::vector<PanovalMeasureGridCell> cells;
};

struct Measurement {
    std::string file;
    std::int32_t width = 0;
    std::int32_t height = 0;
    int bits = 8;
    Method method = Method::Library;
    std::int32_t divisions = 0; // of the library's method
    double seconds = 0;         // in the library
    std::vector<Target> targets;
    std::optional<Board> board;
    std::string nothing_because; // where there are no targets
    std::string error;           // of a picture that could not be measured
    std::string kept_in;         // the file of results that are there already, and not here
};

// Tiles of about 100 pixels: smaller than uneven light, larger than most targets.
std::int32_t default_divisions(std::int32_t width, std::int32_t height);

// A grey picture of 8 or 16 bit, named by file; the library's method needs 8. Fails where the settings do not fit the
// picture.
Measurement measure_ellipses(const std::string& file, const Image& grey, const EllipseSettings& settings);

// The precise method.
Measurement measure_precisely(const std::string& file, const Image& grey, const EllipseSettings& settings);

// Looks for the bright marks around each target. An 8-bit grey picture.
void measure_rings(const std::string& file, const Image& grey, Measurement& measurement);

} // namespace panoval::cli
