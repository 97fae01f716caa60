// SPDX-License-Identifier: MIT
// Everything that a panorama's pixels depend on besides the pictures' own pixels. Whoever has the plan and the pictures
// can blend any part of it.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/gains/gain_statistics.h"
#include "mosaic/pictures/row_source.h"
#include "mosaic/seams/seam_map.h"
#include "mosaic/tiles/tile_blender.h"
#include "mosaic/tiles/tile_grid.h"
#include "panoval_mosaic.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace panoval::mosaic
{

enum class SeamChoice : int { Optimal = 0, Nearest = 1, None = 2 };
enum class GainChoice : int { Automatic = 0, PerPicture = 1, PerChannel = 2, Off = 3 };

// What the host asked for.
struct Settings {
    std::int64_t wrap = 0; // width of a canvas that goes round, or 0
    int bands = 0;         // at most; 0 = chosen
    BlendMode blend = BlendMode::MultiBand;
    SeamChoice seams = SeamChoice::Optimal;
    GainChoice gains = GainChoice::Automatic;
    bool vignetting = false;
    std::optional<std::size_t> anchor; // number of a picture
    std::int64_t tile_size = 0;        // 0 = chosen
    int output_bits = 0;               // 0 = as the pictures have

    bool has_seams() const { return seams != SeamChoice::None && blend == BlendMode::MultiBand; }
    friend bool operator==(const Settings&, const Settings&) = default;
};

struct Gains {
    Corrections corrections;
    bool per_channel = false;
    std::vector<std::size_t> outliers; // pictures that do not fit the others, ascending
};

struct Plan {
    Settings settings;
    Layout layout;
    std::vector<PictureTraits> traits; // of each picture
    int bands = 1;                     // that are used
    int output_bits = 8;
    TileGrid grid;
    std::optional<GainStatistics> statistics; // that the gains follow from; none where the host has set the gains
    std::optional<Gains> gains;
    std::optional<SeamMap> seams;

    // Bytes of a pixel of the panorama.
    std::size_t pixel_bytes() const { return static_cast<std::size_t>(layout.channels * output_bits / 8); }
};

inline constexpr std::int64_t kLongestSide = PANOVAL_MOSAIC_LONGEST_SIDE; // of the canvas
inline constexpr int kMostBands = PANOVAL_MOSAIC_MOST_BANDS;
inline constexpr std::int64_t kFarthest = PANOVAL_MOSAIC_FARTHEST;
inline constexpr std::int64_t kSmallestTileSize = PANOVAL_MOSAIC_SMALLEST_TILE;
inline constexpr double kLargestGain = PANOVAL_MOSAIC_LARGEST_GAIN; // and 1 / kLargestGain the smallest

// Throws an Error (Failure::Argument) that names the first setting that has no meaning.
void check_settings(const Settings& settings, std::size_t pictures);

// A picture as the host places it.
struct PlacementWish {
    std::int64_t x = 0;
    std::int64_t y = 0;
    std::int64_t width = 0;
    std::int64_t height = 0;
    int channels = 0;
    int bits = 0;
    bool has_mask = false;
    PictureTraits traits;
    std::string name; // for messages, never empty
};

// What a picture without a name is called: "picture 3".
std::string name_or_number(const std::string& name, std::size_t number);

// Throws an Error (Failure::Argument) that names the picture and what is wrong with it.
void check_picture(const PlacementWish& picture);

// The canvas around all pictures. Throws an Error (Failure::Argument) where they do not go together.
Layout make_layout(const std::vector<PlacementWish>& pictures, std::int64_t wrap);

// Bands within the host's limit and what the overlaps have room for.
int bands_within(const Settings& settings, const Layout& layout, const std::vector<Overlap>& overlaps);

} // namespace panoval::mosaic
