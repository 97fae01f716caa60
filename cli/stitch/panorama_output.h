// SPDX-License-Identifier: MIT
// Takes the panorama from the engine, rows from the top, into its file: at once where the format can be written by
// rows, else by way of memory. On the side it makes the small picture of the report.
#pragma once

#include "cli/base/image_names.h"
#include "image/formats.h"
#include "image/image.h"
#include "image/output_file.h"
#include "image/row_writer.h"
#include "panoval_mosaic.h"

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace panoval::cli
{

// Reduces rows that come one after the other: means over squares of pixels, 8 bit.
class PreviewMaker
{
public:
    static constexpr std::int32_t kWidth = 1200; // at most

    PreviewMaker(std::int64_t width, std::int64_t height, int channels, int bits);

    void add_row(const std::uint8_t* samples);
    Image finish();

private:
    void close_row();

    const std::int64_t width_;
    const int channels_;
    const int bits_;
    std::int64_t step_ = 1;
    Image preview_;
    std::vector<std::uint64_t> sums_;
    std::int64_t rows_in_sums_ = 0;
    std::int32_t next_row_ = 0;
};

class PanoramaOutput
{
public:
    // Asked for what the picture's file is to tell when the first rows come.
    using MetadataSource = std::function<image::Metadata()>;

    // name: the output's. format: the panorama without metadata, as large as the region. region: the part of the canvas
    // that it shows.
    PanoramaOutput(OutputFile& output, const image::OutputName& name, const image::PictureInfo& format,
                   const PanovalMosaicRect& region, const image::WriteOptions& options, MetadataSource metadata);

    // Has the small picture made, of the whole canvas.
    void want_preview(std::int64_t width, std::int64_t height);

    // For the engine; holds a pointer to this object.
    PanovalMosaicSink sink();

    // Throws what the sink has met, if any.
    void rethrow();

    // The output is complete then, but not committed.
    void finish();

    Image preview(); // where it is wanted, after the last row

private:
    static std::int32_t write(void* user, const PanovalMosaicRect* rect, const void* samples, std::size_t stride,
                              const std::uint8_t* coverage, std::size_t coverage_stride, char* message);
    void take(const PanovalMosaicRect& rect, const image::ConstRows& rows);

    OutputFile& output_;
    const image::OutputName& name_;
    image::PictureInfo format_;
    const PanovalMosaicRect region_;
    const image::WriteOptions options_;
    const MetadataSource metadata_;
    std::unique_ptr<image::RowWriter> writer_;
    std::unique_ptr<PreviewMaker> preview_;
    std::exception_ptr failure_;
};

} // namespace panoval::cli
