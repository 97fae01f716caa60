// SPDX-License-Identifier: MIT
// Reading pictures. The format is known by the file's first bytes, never by its name. A file is a sequence of layers,
// one for most formats, any number for TIFF. Whatever is wrong with a file ends in an input error that names it.
#pragma once

#include "image/files.h"
#include "image/image.h"
#include "image/row_reader.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace panoval::image
{

// Whether there is a file that starts as pictures do, known ones or not, whatever its name.
bool starts_as_picture(const std::string& name);

// The formats that are read, for messages and help texts.
inline constexpr const char* kReadFormats = "PNG, TIFF, JPEG or PNM";

// A small file may claim, and even hold, a picture that fills any memory. Pictures of more pixels are refused before
// any is decoded, by probe_image and by read_image. 0 = no limit but that of a picture's sides.
inline constexpr std::uint64_t kUsualMostPixels = 1'000'000'000;
void set_most_pixels(std::uint64_t pixels);

// Sizes and formats of all layers, without reading pixels.
std::vector<ImageInfo> probe_image(const std::string& name);

// One layer with its pixels: grey or colour, 8 or 16 bit, an alpha channel as mask. Samples that were stored multiplied
// with their alpha are divided by it. Pictures of more samples than the library takes are refused; open_rows
// (image/row_reader.h) reads them.
Image read_image(const std::string& name, std::size_t layer = 0);

// The first layer as grey, of the depth that it has.
Image read_grey(const std::string& name);

// The first layer of a file as a mask of one byte a pixel: one grey channel without alpha, 16 bit are scaled to 8.
Image read_mask(const std::string& name);

// ---- for the readers of the formats ----

// A file that is open at its first byte.
struct InputFile {
    std::string name;
    FileHandle stream;
    std::int64_t size = 0; // bytes
};

// A layer as it is stored, and how it is to be turned: 1 to 8 as in TIFF.
struct StoredPicture {
    std::unique_ptr<RowReader> rows;
    int orientation = 1;
};

std::vector<ImageInfo> probe_pnm(InputFile& file);
std::vector<ImageInfo> probe_png(InputFile& file);
std::vector<ImageInfo> probe_jpeg(InputFile& file);
std::vector<ImageInfo> probe_tiff(InputFile& file);
StoredPicture open_pnm(InputFile file, std::size_t layer);
StoredPicture open_png(InputFile file, std::size_t layer);
StoredPicture open_jpeg(InputFile file, std::size_t layer);
StoredPicture open_tiff(InputFile file, std::size_t layer);

// Fails unless there is at least one pixel, no side has more than 2^31 - 1, and 8 bytes a pixel are far from what 64
// bits count.
void check_sides(const std::string& name, std::int64_t width, std::int64_t height);

// Fails where what is decoded at once, with sides that check_sides would take, has more pixels than are allowed.
void check_pixels(const std::string& name, const char* what, std::int64_t width, std::int64_t height);

} // namespace panoval::image
