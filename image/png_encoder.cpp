// SPDX-License-Identifier: MIT
#include "image/png_encoder.h"

#include "image/exif.h"
#include "image/rows.h"

#include <png.h>

#include <cmath>
#include <csetjmp>
#include <cstdlib>
#include <vector>

namespace panoval::image
{

namespace
{

// Photographs gain little from a higher level, which costs several times the time.
constexpr int kCompressionLevel = 3;

// What the format has room for, in pixels: -2^31 is no number of it.
constexpr std::int64_t kFarthestOffset = 2147483647;

png_uint_32 per_metre(double per_inch)
{
    return static_cast<png_uint_32>(std::floor(std::fmin(per_inch, 1e6) / 0.0254 + 0.5));
}

void on_error(png_structp png, png_const_charp)
{
    png_longjmp(png, 1);
}

void on_warning(png_structp, png_const_charp) {}

bool fits_offset(std::int64_t value)
{
    return std::abs(value) <= kFarthestOffset;
}

void set_position(png_structp png, png_infop info, const std::optional<Offset>& position)
{
    if (position && fits_offset(position->x) && fits_offset(position->y))
        png_set_oFFs(png, info, static_cast<png_int_32>(position->x), static_cast<png_int_32>(position->y),
                     PNG_OFFSET_PIXEL);
}

void set_metadata(png_structp png, png_infop info, const Metadata& metadata, std::vector<std::uint8_t>& exif)
{
    if (!metadata.profile.empty())
        png_set_iCCP(png, info, "ICC profile", PNG_COMPRESSION_TYPE_BASE, metadata.profile.data(),
                     static_cast<png_uint_32>(metadata.profile.size()));
    if (metadata.resolution)
        png_set_pHYs(png, info, per_metre(metadata.resolution->x), per_metre(metadata.resolution->y),
                     PNG_RESOLUTION_METER);
    if (!metadata.exif.is_empty())
        png_set_eXIf_1(png, info, static_cast<png_uint_32>(exif.size()), exif.data());
}

} // namespace

struct PngEncoder::State {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::vector<std::uint8_t> exif;
};

PngEncoder::PngEncoder() : state_(std::make_unique<State>()) {}

PngEncoder::~PngEncoder()
{
    png_destroy_write_struct(&state_->png, &state_->info);
}

// As in the reader: functions that call libpng hold nothing that needs a destructor.
bool PngEncoder::begin(std::FILE* stream, const PictureInfo& picture)
{
    png_structp& png = state_->png;
    png_infop& info = state_->info;
    state_->exif = make_exif(picture.metadata.exif);
    png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, on_error, on_warning);
    info = png != nullptr ? png_create_info_struct(png) : nullptr; // COUNT_EXCL_BRANCH: as below
    if (info == nullptr)                                           // COUNT_EXCL_BRANCH: as below
        return false;                                              // COUNT_EXCL: libpng's heap
    if (setjmp(png_jmpbuf(png)) != 0)                              // COUNT_EXCL_BRANCH: as below
        return false; // COUNT_EXCL: libpng's heap, or a header that does not fit the stream's buffer on a full disk
    png_init_io(png, stream);
    png_set_user_limits(png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_benign_errors(png, 1); // a profile that the format does not take, as one of other channels, is left out
    const int color =
        (picture.channels == 3 ? PNG_COLOR_MASK_COLOR : 0) | (picture.has_alpha ? PNG_COLOR_MASK_ALPHA : 0);
    png_set_IHDR(png, info, static_cast<png_uint_32>(picture.width), static_cast<png_uint_32>(picture.height),
                 picture.bits, color, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_compression_level(png, kCompressionLevel);
    png_set_filter(png, 0, PNG_FILTER_SUB | PNG_FILTER_UP);
    set_metadata(png, info, picture.metadata, state_->exif);
    set_position(png, info, picture.position);
    png_write_info(png, info);
    png_set_swap(png);
    return true;
}

bool PngEncoder::write_row(const std::uint8_t* row)
{
    if (setjmp(png_jmpbuf(state_->png)) != 0)
        return false;
    png_write_row(state_->png, row);
    return true;
}

bool PngEncoder::finish()
{
    if (setjmp(png_jmpbuf(state_->png)) != 0) // COUNT_EXCL_BRANCH: as below
        return false; // COUNT_EXCL: twelve bytes, which the stream's buffer takes but for one time in some hundreds
    png_write_end(state_->png, nullptr);
    return true;
}

} // namespace panoval::image
