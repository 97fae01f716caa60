// SPDX-License-Identifier: MIT
// Deep Zoom: NAME.dzi tells the size, NAME_files has a folder for each level, from a single pixel (0) to the full
// picture, with its tiles COLUMN_ROW.jpg, or .png where the picture has alpha. Neighbours share a pixel on each side.
//
// Each level keeps the rows of one row of tiles and halves what it gets for the level below, so that all levels
// together keep about twice as much as the full one.
#include "image/failure.h"
#include "image/jpeg_encoder.h"
#include "image/output_folder.h"
#include "image/png_encoder.h"
#include "image/row_halver.h"
#include "image/row_writer.h"
#include "image/text.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <vector>

namespace panoval::image
{

namespace
{

constexpr std::int32_t kTile = 254; // pixels on a side, what is shared not counted
constexpr std::int32_t kShared = 1;

// One level of the pyramid.
class Level
{
public:
    // smaller: the level below, or null
    Level(OutputFolder& folder, const PictureInfo& picture, int number, const WriteOptions& options, Level* smaller)
        : folder_(folder), picture_(picture), number_(number), quality_(options.quality), rows_(2 * kShared + kTile),
          row_bytes_(static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.channels)),
          samples_(row_bytes_ * static_cast<std::size_t>(rows_)),
          mask_(picture.has_alpha ? static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(rows_) : 0)
    {
        folder.make_folder(concat(number));
        if (smaller != nullptr)
            halver_.emplace(picture, [smaller](const ConstRows& row) { smaller->add(row); });
    }

    void add(const ConstRows& row)
    {
        std::memcpy(row_at(next_), row.samples, row_bytes_);
        if (picture_.has_alpha)
            std::memcpy(mask_at(next_), row.mask, static_cast<std::size_t>(picture_.width));
        ++next_;
        if (next_ == std::min<std::int64_t>(last_of_tiles() + kShared, picture_.height))
            write_tiles();
        if (halver_)
            halver_->add(row);
    }

    void finish()
    {
        if (halver_)
            halver_->finish();
    }

private:
    // Rows go round in the buffer.
    std::uint8_t* row_at(std::int32_t y) { return samples_.data() + static_cast<std::size_t>(y % rows_) * row_bytes_; }
    std::uint8_t* mask_at(std::int32_t y)
    {
        return mask_.data() + static_cast<std::size_t>(y % rows_) * static_cast<std::size_t>(picture_.width);
    }
    std::int64_t last_of_tiles() const
    {
        return std::min<std::int64_t>((std::int64_t{tile_row_} + 1) * kTile, picture_.height);
    }

    void write_tiles()
    {
        Span rows = span_of(tile_row_, picture_.height);
        for (std::int32_t column = 0; std::int64_t{column} * kTile < picture_.width; ++column)
            write_tile(column, span_of(column, picture_.width), rows);
        ++tile_row_;
        // The picture may end with rows that a further row of tiles has of its own.
        if (next_ == picture_.height && std::int64_t{tile_row_} * kTile < picture_.height)
            write_tiles();
    }

    // Columns or rows, the last one excluded.
    struct Span {
        std::int32_t first;
        std::int32_t end;
    };

    static Span span_of(std::int32_t tile, std::int32_t length)
    {
        const std::int64_t first = std::int64_t{tile} * kTile;
        return {static_cast<std::int32_t>(std::max<std::int64_t>(first - kShared, 0)),
                static_cast<std::int32_t>(std::min<std::int64_t>(first + kTile + kShared, length))};
    }

    void write_tile(std::int32_t column, Span columns, Span rows)
    {
        PictureInfo tile = picture_;
        tile.width = columns.end - columns.first;
        tile.height = rows.end - rows.first;
        tile.metadata.exif = {};
        const std::string name = concat(number_, "/", column, "_", tile_row_, picture_.has_alpha ? ".png" : ".jpg");
        const FileHandle file = folder_.make_file(name);
        const bool is_written = picture_.has_alpha ? write_png(file.get(), tile, columns.first, rows)
                                                   : write_jpeg(file.get(), tile, columns.first, rows);
        if (!is_written || std::fflush(file.get()) != 0)
            folder_.fail_writing();
    }

    const std::uint8_t* samples_at(std::int32_t x, std::int32_t y)
    {
        return row_at(y) + static_cast<std::size_t>(x) * static_cast<std::size_t>(picture_.channels);
    }

    bool write_png(std::FILE* file, const PictureInfo& tile, std::int32_t left, Span rows)
    {
        PngEncoder encoder;
        bool is_written = encoder.begin(file, tile);
        std::vector<std::uint8_t> row(stored_row_bytes(tile));
        for (std::int32_t y = rows.first; y < rows.end && is_written; ++y) {
            merge_row(tile, samples_at(left, y), mask_at(y) + left, row.data());
            is_written = encoder.write_row(row.data());
        }
        return is_written && encoder.finish(); // COUNT_EXCL_BRANCH: its last 12 bytes mostly lie in the stream's buffer
    }

    bool write_jpeg(std::FILE* file, const PictureInfo& tile, std::int32_t left, Span rows)
    {
        bool is_written = jpeg_.begin(file, tile, quality_);
        for (std::int32_t y = rows.first; y < rows.end && is_written; ++y)
            is_written = jpeg_.write_row(samples_at(left, y));
        return is_written && jpeg_.finish();
    }

    OutputFolder& folder_;
    PictureInfo picture_;
    int number_;
    int quality_;
    std::int32_t rows_; // that the buffer holds
    std::size_t row_bytes_;
    std::vector<std::uint8_t> samples_;
    std::vector<std::uint8_t> mask_;
    std::int32_t next_ = 0;     // row to come
    std::int32_t tile_row_ = 0; // to be written
    std::optional<RowHalver> halver_;
    JpegEncoder jpeg_;
};

class DeepZoomWriter : public RowWriter
{
public:
    DeepZoomWriter(OutputFile& output, const PictureInfo& picture, const WriteOptions& options)
        : folder_(output.make_companion("_files"))
    {
        output.write(concat("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Image "
                            "xmlns=\"http://schemas.microsoft.com/deepzoom/2008\" Format=\"",
                            picture.has_alpha ? "png" : "jpg", "\" Overlap=\"", kShared, "\" TileSize=\"", kTile,
                            "\">\n  <Size Width=\"", picture.width, "\" Height=\"", picture.height,
                            "\"/>\n</Image>\n"));
        std::vector<PictureInfo> sizes = {picture};
        while (sizes.back().width > 1 || sizes.back().height > 1) {
            PictureInfo half = picture;
            static_cast<ImageInfo&>(half) = half_of(sizes.back());
            sizes.push_back(half);
        }
        std::reverse(sizes.begin(), sizes.end()); // level 0 is the smallest
        for (std::size_t i = 0; i < sizes.size(); ++i)
            levels_.push_back(std::make_unique<Level>(folder_, sizes[i], static_cast<int>(i), options,
                                                      i == 0 ? nullptr : levels_.back().get()));
    }

    void add(const ConstRows& rows, std::int32_t count) override
    {
        for (std::int32_t y = 0; y < count; ++y)
            levels_.back()->add(rows.from(y));
    }

    void finish() override
    {
        for (auto level = levels_.rbegin(); level != levels_.rend(); ++level)
            (*level)->finish();
    }

private:
    OutputFolder& folder_;
    std::vector<std::unique_ptr<Level>> levels_;
};

} // namespace

std::unique_ptr<RowWriter> make_deep_zoom_writer(OutputFile& output, const PictureInfo& picture,
                                                 const WriteOptions& options)
{
    return std::make_unique<DeepZoomWriter>(output, picture, options);
}

} // namespace panoval::image
