// SPDX-License-Identifier: MIT
#include "mosaic/plan.h"

#include "mosaic/base/errors.h"
#include "mosaic/tiles/band_choice.h"

#include <algorithm>
#include <limits>

namespace panoval::mosaic
{

namespace
{

constexpr int kBandsBeyond = 2;

// What the header tells hosts.
static_assert(kMostChosenBands == PANOVAL_MOSAIC_MOST_CHOSEN_BANDS);
static_assert(kStructuresPerOverlap == PANOVAL_MOSAIC_STRUCTURES_PER_OVERLAP);
static_assert(kLargestFalloff == PANOVAL_MOSAIC_LARGEST_FALLOFF);

// expected: what one was to find, in parts
template <class... Parts>
void require(bool is_right, const char* what, std::int64_t value, const Parts&... expected)
{
    if (!is_right)
        fail(Failure::Argument, "found ", what, " ", value, "; expected ", expected...);
}

bool is_among(int value, int last)
{
    return value >= 0 && value <= last;
}

Rect bounds_of(const std::vector<PlacementWish>& pictures)
{
    Rect bounds;
    for (const PlacementWish& picture : pictures)
        bounds = bounding(bounds, {picture.x, picture.y, picture.width, picture.height});
    return bounds;
}

void check_canvas(const Layout& layout)
{
    if (layout.width > kLongestSide || layout.height > kLongestSide)
        fail(Failure::Argument, "found a canvas of ", layout.width, " x ", layout.height, " pixels; expected at most ",
             kLongestSide, " on a side");
    const std::int64_t most = (std::int64_t{1} << 62) / layout.channels;
    if (layout.width > most / layout.height)
        fail(Failure::Argument, "found a canvas of ", layout.width, " x ", layout.height, " pixels with ",
             layout.channels, " channels; expected at most 2^62 samples");
}

} // namespace

void check_settings(const Settings& settings, std::size_t pictures)
{
    require(settings.wrap == 0 || (settings.wrap > 0 && settings.wrap <= kLongestSide), "a wrapping canvas of width",
            settings.wrap, "0, or 1 to ", kLongestSide, " pixels");
    require(settings.bands >= 0 && settings.bands <= kMostBands, "bands", settings.bands, "0, or 1 to ", kMostBands);
    require(is_among(static_cast<int>(settings.blend), 1), "blend", static_cast<int>(settings.blend), "0 or 1");
    require(is_among(static_cast<int>(settings.seams), 2), "seams", static_cast<int>(settings.seams), "0, 1 or 2");
    require(is_among(static_cast<int>(settings.gains), 3), "gains", static_cast<int>(settings.gains), "0 to 3");
    require(settings.tile_size == 0 || (settings.tile_size >= kSmallestTileSize && settings.tile_size <= kLongestSide),
            "a tile size of", settings.tile_size, "0, or ", kSmallestTileSize, " or more pixels");
    require(settings.output_bits == 0 || settings.output_bits == 8 || settings.output_bits == 16, "output bits",
            settings.output_bits, "0, 8 or 16");
    if (settings.wrap > 0 && !settings.has_seams())
        fail(Failure::Argument, "found a wrapping canvas of width ", settings.wrap,
             settings.blend == BlendMode::Feather ? " with feathering" : " without seams",
             "; expected 0, or multi-band blending with seams");
    if (settings.anchor && *settings.anchor >= pictures)
        fail(Failure::Argument, "found picture ", *settings.anchor + 1, " of ", pictures,
             " as anchor; expected one that there is");
}

std::string name_or_number(const std::string& name, std::size_t number)
{
    return name.empty() ? "picture " + std::to_string(number) : name;
}

void check_picture(const PlacementWish& picture)
{
    const auto check = [&](bool is_right, const char* what, std::int64_t value, const char* expected) {
        if (!is_right)
            fail(Failure::Argument, picture.name, ": found ", what, " ", value, "; expected ", expected);
    };
    constexpr std::int64_t kLongest = std::numeric_limits<std::int32_t>::max();
    check(picture.width >= 1 && picture.width <= kLongest, "a width of", picture.width, "1 or more");
    check(picture.height >= 1 && picture.height <= kLongest, "a height of", picture.height, "1 or more");
    check(picture.x >= -kFarthest && picture.x <= kFarthest, "x", picture.x, "at most 2^40 from 0");
    check(picture.y >= -kFarthest && picture.y <= kFarthest, "y", picture.y, "at most 2^40 from 0");
    check(picture.channels == 1 || picture.channels == 3 || picture.channels == 4, "channels", picture.channels,
          "1, 3 or 4");
    check(picture.bits == 8 || picture.bits == 16, "bits", picture.bits, "8 or 16");
}

Layout make_layout(const std::vector<PlacementWish>& pictures, std::int64_t wrap)
{
    if (pictures.empty())
        fail(Failure::Argument, "there are no pictures; expected one or more");
    const Rect bounds = bounds_of(pictures);
    Layout layout;
    layout.width = wrap > 0 ? wrap : bounds.width;
    layout.height = bounds.height;
    layout.channels = pictures.front().channels;
    layout.bits = pictures.front().bits;
    layout.wraps = wrap > 0;
    layout.origin_x = bounds.x;
    layout.origin_y = bounds.y;
    check_canvas(layout);
    for (const PlacementWish& picture : pictures) {
        if (picture.channels != layout.channels || picture.bits != layout.bits)
            fail(Failure::Argument, picture.name, ": found ", picture.channels, " x ", picture.bits, " bit; expected ",
                 layout.channels, " x ", layout.bits, " bit as in ", pictures.front().name);
        if (layout.wraps && picture.width > layout.width)
            fail(Failure::Argument, picture.name, ": found a width of ", picture.width,
                 "; expected at most that of the canvas that goes round, ", layout.width);
        std::int64_t x = picture.x - layout.origin_x;
        if (layout.wraps)
            x %= layout.width;
        layout.pictures.push_back(
            {{x, picture.y - layout.origin_y, picture.width, picture.height}, picture.has_mask, picture.name});
    }
    return layout;
}

int bands_within(const Settings& settings, const Layout& layout, const std::vector<Overlap>& overlaps)
{
    if (settings.bands == 0)
        return choose_bands(layout, overlaps);
    // More bands than the canvas has octaves change nothing.
    int most = 1;
    while ((std::int64_t{1} << most) < std::max(layout.width, layout.height))
        ++most;
    // Seams fade over what the overlaps have room for; a little more does no harm, much more only takes time.
    if (settings.has_seams())
        most = std::min(most, choose_bands(layout, overlaps, kMostBands) + kBandsBeyond);
    return std::min(settings.bands, most);
}

} // namespace panoval::mosaic
