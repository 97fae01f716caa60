// SPDX-License-Identifier: MIT
// Pictures written by rows, so that they need not be in memory as a whole.
#pragma once

#include "image/formats.h"
#include "image/image.h"
#include "image/output_file.h"
#include "image/rows.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace panoval::image
{

enum class Compression { None, Lzw, Deflate, Zstd };

inline constexpr int kUsualQuality = 93; // of JPEG: from 90 on no artefacts show
inline constexpr int kBestQuality = 100; // from 1 on

// What a format does not know it leaves alone.
struct WriteOptions {
    int quality = kUsualQuality;                 // of JPEG
    Compression compression = Compression::None; // of TIFF
    bool is_tiled = false;                       // TIFF in tiles rather than strips
    bool has_pyramid = false;                    // TIFF with reduced pictures behind the full one, in tiles all
};

// Of TIFF, those that this build's library has, by name: "none", "lzw" ... The first one is the usual one.
std::vector<std::string> tiff_compressions();

// Fails for a name that is not among them.
Compression compression_of(const std::string& name);

class RowWriter
{
public:
    virtual ~RowWriter() = default;

    // The next rows from the top on, `count` of them. Their mask is taken where the picture has alpha.
    virtual void add(const ConstRows& rows, std::int32_t count) = 0;

    // To be called when all rows have been added. The output is complete then, but not yet committed.
    virtual void finish() = 0;
};

// Begins a picture in the file of that name, which has to hold it. The memory that a writer takes follows from the
// picture's width alone.
std::unique_ptr<RowWriter> make_row_writer(OutputFile& output, const OutputName& name, const PictureInfo& picture,
                                           const WriteOptions& options = {});

// ---- the writers of the formats, for the table ----

std::unique_ptr<RowWriter> make_pnm_writer(OutputFile& output, const PictureInfo& picture, const WriteOptions& options);
std::unique_ptr<RowWriter> make_pam_writer(OutputFile& output, const PictureInfo& picture, const WriteOptions& options);
std::unique_ptr<RowWriter> make_png_writer(OutputFile& output, const PictureInfo& picture, const WriteOptions& options);
std::unique_ptr<RowWriter> make_jpeg_writer(OutputFile& output, const PictureInfo& picture,
                                            const WriteOptions& options);
std::unique_ptr<RowWriter> make_tiff_writer(OutputFile& output, const PictureInfo& picture,
                                            const WriteOptions& options);
std::unique_ptr<RowWriter> make_deep_zoom_writer(OutputFile& output, const PictureInfo& picture,
                                                 const WriteOptions& options);

} // namespace panoval::image
