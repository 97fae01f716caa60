// SPDX-License-Identifier: MIT
// Writing pictures. The ending of the target's name decides the format: .png, .tif or .tiff, .jpg or .jpeg, .pgm, .ppm,
// .pnm, .pam. A picture's mask is written as its alpha channel.
#pragma once

#include "image/image.h"
#include "image/output_file.h"

#include <cstdint>
#include <memory>
#include <string>

namespace panoval::image
{

// Most bits a sample that a file of this name can hold: 8 for JPEG, else 16. Fails for an unknown ending.
int most_bits_of(const std::string& target);

// Fails unless a file of this name can hold such a picture. To be asked before the work starts.
void check_output_format(const std::string& target, int channels, int bits, bool has_alpha);

// Writes a picture into an output, which is then complete but not yet committed.
void write_image(OutputFile& output, const Image& image);

// As above, and commits it.
void write_image(const std::string& target, const Image& image);

// Writes a picture whose rows come bit by bit, so that it never is in memory as a whole.
class RowWriter
{
public:
    virtual ~RowWriter() = default;

    // The next rows: those from first to end, the last one excluded, of an image in the picture's format.
    virtual void add(const Image& image, std::int32_t first, std::int32_t end) = 0;

    // To be called when all rows have been added. The output is complete then, but not yet committed.
    virtual void finish() = 0;
};

// Whether a file of this name can be written like that.
bool takes_rows(const std::string& target);

// header: the picture without samples and without alpha. For a name that takes_rows knows.
std::unique_ptr<RowWriter> make_row_writer(OutputFile& output, const Image& header);

// ---- for the writers of the formats ----

void write_pnm(OutputFile& output, const Image& image, bool is_pam);
void write_png(OutputFile& output, const Image& image);
void write_tiff(OutputFile& output, const Image& image);
std::unique_ptr<RowWriter> make_tiff_writer(OutputFile& output, const Image& header);
void write_jpeg(OutputFile& output, const Image& image);

// Copies row y with its alpha, if the picture has one, interleaved: (channels + 1) samples a pixel.
void copy_row(const Image& image, std::int32_t y, std::uint8_t* row);
std::size_t copied_row_bytes(const Image& image);

} // namespace panoval::image
