// SPDX-License-Identifier: MIT
// The multi-band blender on a part of the canvas. A picture's pyramids are made only where the part sees them, row by
// row, with the same operations in the same order as on the whole picture: sums are the same, bit for bit, for every
// part.
//
// All levels count from a frame, a rectangle whose corner and size are multiples of the coarsest level's pixel.
#pragma once

#include "blend/band_rows.h"
#include "blend/pyramid_rows.h"
#include "mosaic/base/level_windows.h"
#include "mosaic/base/rect.h"
#include "mosaic/base/row_spans.h"
#include "mosaic/base/unset_vector.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// The sums of all levels where a tile needs them.
class TileLevels
{
public:
    // frame   its corner is 0 for every level
    // tile    inside the frame, in the frame's pixels
    // has_weights  whether sums of weights are kept, too
    //
    // Sums are unset. Memory of earlier ones is used again.
    void reset(const Rect& frame, const Window& tile, int bands, int channels, bool has_weights);

    // All sums become 0, or those of some columns of level i.
    void clear();
    void clear(int i, const RowSpans& spans);

    const Rect& frame() const { return frame_; }
    int bands() const { return static_cast<int>(windows_.size()) - 1; }
    int channels() const { return channels_; }
    bool has_weights() const { return has_weights_; }
    const std::vector<Window>& windows() const { return windows_; }

    // Row y of level i, from the window's first column on.
    float* sums(int i, std::int64_t y);
    float* weights(int i, std::int64_t y);

private:
    Rect frame_;
    int channels_ = 1;
    bool has_weights_ = false;
    std::vector<Window> windows_;
    std::vector<UnsetVector<float>> sums_;
    std::vector<UnsetVector<float>> weights_;
};

// Where a picture's samples and weights come from.
class PictureRows
{
public:
    virtual ~PictureRows() = default;

    // Columns first to first + count - 1 of row y of the region: count * channels samples and count weights. Rows are
    // asked for once each, from the top; a row that nobody needs is left out.
    virtual void load(std::int64_t y, std::int64_t first, std::int64_t count, float* samples, float* weights) = 0;

    // A reduced row, level 1 and up, before its bands are told; rows of coarser levels are made of it as it was. The
    // arguments are as above, in pixels of the level.
    virtual void adjust(int level, std::int64_t y, std::int64_t first, std::int64_t count, float* samples,
                        float* weights)
    {
        (void)level, (void)y, (void)first, (void)count, (void)samples, (void)weights;
    }
};

// One picture on its way through its pyramids into the sums of a tile.
class BandWindow
{
public:
    // region    the picture's place with the margin that its bands spread into, in the frame's pixels; multiples of
    //           the coarsest level's pixel. Beyond it samples and weights go on as their mirror images
    // products  of each level, where the picture's bands are wanted; parts of levels.windows(). Spans are in the
    //           region's pixels of the level, windows in the frame's
    // needed    picture_spans() of the products
    //
    // Memory of earlier pictures is used again.
    void reset(TileLevels& levels, const Rect& region, std::vector<RowSpans> products, std::vector<RowSpans> needed);
    void reset(TileLevels& levels, const Rect& region, const std::vector<Window>& products);

    // Adds the picture; once.
    void run(PictureRows& rows);

private:
    static constexpr std::size_t kSlack = 8; // floats behind a row that whole vectors may write

    // The latest rows of a level's samples or of its weights. Row y lies in slot y mod kReducedRows.
    struct Rows {
        std::int32_t channels = 0;
        std::size_t stride = 0;
        std::size_t reduced_stride = 0;
        std::vector<float> full;
        std::vector<float> reduced; // filtered across to half the width

        float* row(std::int64_t y) { return full.data() + static_cast<std::size_t>(y) % kReducedRows * stride; }
        float* reduced_row(std::int64_t y)
        {
            return reduced.data() + static_cast<std::size_t>(y) % kReducedRows * reduced_stride;
        }
    };
    struct Level {
        std::int64_t width = 0; // of the whole region
        std::int64_t height = 0;
        RowSpans needed;  // in the region's pixels
        RowSpans product; // the same
        Interval columns; // around all that is needed; rows in memory begin with the first of them
        std::int64_t next = 0;
        Rows samples;
        Rows weights;
        std::size_t expanded_stride = 0;
        std::vector<float> expanded; // rows of the coarser level, filtered across to this level's width

        float* expanded_row(std::int64_t y)
        {
            return expanded.data() + static_cast<std::size_t>(y) % kExpandedRows * expanded_stride;
        }
    };

    static void lay_out(Rows& rows, const Level& level, std::int32_t channels, bool is_reduced);
    void lay_out_levels();
    void produce_row(std::size_t i, PictureRows& rows);
    void make_row(std::size_t i, std::int64_t y, Interval columns, PictureRows& rows);
    void reduce_from_finer(std::size_t i, std::int64_t y);
    void reduce_down_from(Rows& from, Rows& to, std::size_t i, std::int64_t y);
    void reduce_for_coarser(std::size_t i, std::int64_t y);
    void tell_finer_bands(std::size_t i, std::int64_t y);
    CoarseRows coarse_rows(std::size_t i, std::int64_t y);
    void add_row(std::size_t i, std::int64_t y);

    TileLevels* tile_ = nullptr;
    Rect region_;
    std::vector<Level> levels_;
    std::vector<float> no_weights_; // where sums of weights go that nobody keeps
    std::size_t top_ = 0;           // the coarsest level that is needed
    bool has_any_ = false;
};

// Rows of the coarser level, which has been collapsed, expanded to a level of a tile.
class TileExpander
{
public:
    // fine  of the level's rows, the columns that are wanted
    TileExpander(TileLevels& levels, int level, const RowSpans& fine);

    // What row y of the level is expanded from, from the level's first column in the tile on. y ascends; rows without
    // wanted columns are left out.
    CoarseRows around(std::int64_t y);

private:
    static constexpr std::size_t kRows = 3;

    const float* across(std::int64_t y);
    void expand(std::int64_t y);

    TileLevels& levels_;
    const int level_;
    const RowSpans& fine_;
    std::int64_t coarse_height_; // of the frame
    std::size_t stride_;
    std::size_t offset_; // floats before the level's first column
    std::int64_t done_;
    std::vector<float> ring_;
};

} // namespace panoval::mosaic
