// SPDX-License-Identifier: MIT
// The table of formats that are written. The ending of an output's name decides, and is looked at once; what a format
// holds, its writer, the options that it takes, the help texts and the checks are made from this table.
#pragma once

#include "image/image.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace panoval::image
{

class OutputFile;
class RowWriter;
struct WriteOptions;

// What an output may be: a store is no file, and has writers of its own (image/zarr_store.h); grey pixels that are
// numbers of something want a file of which every pixel comes back as it was.
enum class Outputs { Files, FilesAndStores, FilesOfNumbers };

// Where a quality of JPEG says something.
enum class QualityUse { None, WithoutAlpha, Always };

// Whether reduced pictures go with the full one.
enum class LevelUse { None, OnDemand, Always };

// Which places in the panorama's frame go with a picture.
enum class PlaceUse { None, NotNegative, Any };

// Outputs of one ending.
struct OutputFormat {
    const char* ending; // in lower case
    const char* name;   // for messages
    int most_bits;      // per sample
    bool holds_alpha;
    int least_channels;
    int most_channels;
    std::int64_t most_side;                     // pixels
    std::vector<std::string> (*compressions)(); // by name, the usual one first; null = there is no choice
    QualityUse quality;
    LevelUse levels;
    PlaceUse places;
    std::unique_ptr<RowWriter> (*make_writer)(OutputFile&, const PictureInfo&, const WriteOptions&); // null: a store

    bool is_store() const { return make_writer == nullptr; }
    bool holds(int channels, int bits, bool has_alpha) const
    {
        return channels >= least_channels && channels <= most_channels && bits <= most_bits &&
               (holds_alpha || !has_alpha);
    }
    // Whether a place is left out that others of the format have.
    bool drops_place(const Offset& place) const
    {
        return places == PlaceUse::NotNegative && (place.x < 0 || place.y < 0);
    }
    // Whether samples come back as they were.
    bool is_exact(bool has_alpha) const { return !has_quality(has_alpha); }
    bool has_quality(bool has_alpha) const
    {
        return quality == QualityUse::Always || (quality == QualityUse::WithoutAlpha && !has_alpha);
    }
};

// The name of an output and what its ending says.
class OutputName
{
public:
    // PNG for standard output; fails for an ending that is not known.
    explicit OutputName(std::string name, Outputs outputs = Outputs::Files);

    const std::string& text() const { return text_; }
    const OutputFormat& format() const { return *format_; }
    bool is_store() const { return format_->is_store(); }

    // What it could have been.
    Outputs outputs() const { return outputs_; }

    // Fail unless such a picture, or one of so many pixels, fits. To be asked before the work starts.
    void check(int channels, int bits, bool has_alpha) const;
    void check_size(std::int64_t width, std::int64_t height) const;

private:
    std::string text_;
    Outputs outputs_;
    const OutputFormat* format_;
};

// ---- for help texts and messages ----

// The endings of the formats that hold such a picture, e.g. ".png, .tif or .pam".
std::string endings_for(int channels, int bits, bool has_alpha, Outputs outputs = Outputs::Files);

// All of them, as help texts list them: ".png .tif ...", and those with alpha, or with reduced pictures.
std::string all_endings(Outputs outputs = Outputs::Files);
std::string endings_with_alpha(Outputs outputs = Outputs::Files);
std::string endings_with_levels();

// Those that know what the options say, for messages: ".tif or .tiff".
std::string endings_with_compression(Outputs outputs);
std::string endings_with_optional_levels();

// "of .tif and .tiff: none (default), lzw ..."
std::string compression_help(Outputs outputs);

// "a JPEG file, or Deep Zoom without alpha"
std::string names_with_quality();

// Every compression of any of them.
std::vector<std::string> all_compressions(Outputs outputs);

} // namespace panoval::image
