// SPDX-License-Identifier: MIT
#include "image/jpeg_encoder.h"

#include "image/exif.h"

#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <vector>

// after cstdio
#include <jpeglib.h>

namespace panoval::image
{

namespace
{

struct JpegErrors {
    jpeg_error_mgr base;
    std::jmp_buf leave;
};

void on_error(j_common_ptr jpeg)
{
    std::longjmp(reinterpret_cast<JpegErrors*>(jpeg->err)->leave, 1);
}

UINT16 density_of(double per_inch)
{
    return static_cast<UINT16>(std::floor(std::fmin(per_inch, 65535) + 0.5));
}

std::vector<std::uint8_t> exif_block(const Exif& exif)
{
    if (exif.is_empty())
        return {};
    std::vector<std::uint8_t> block(kExifMagic, kExifMagic + sizeof kExifMagic);
    const std::vector<std::uint8_t> chunk = make_exif(exif);
    block.insert(block.end(), chunk.begin(), chunk.end());
    return block;
}

void set_parameters(jpeg_compress_struct& jpeg, const PictureInfo& picture, int quality)
{
    jpeg.image_width = static_cast<JDIMENSION>(picture.width);
    jpeg.image_height = static_cast<JDIMENSION>(picture.height);
    jpeg.input_components = picture.channels;
    jpeg.in_color_space = picture.channels == 3 ? JCS_RGB : JCS_GRAYSCALE;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, quality, TRUE);
    jpeg.comp_info[0].h_samp_factor = 1;
    jpeg.comp_info[0].v_samp_factor = 1;
    if (picture.metadata.resolution) {
        jpeg.density_unit = 1; // an inch
        jpeg.X_density = density_of(picture.metadata.resolution->x);
        jpeg.Y_density = density_of(picture.metadata.resolution->y);
    }
}

} // namespace

struct JpegEncoder::State {
    JpegErrors errors{};
    jpeg_compress_struct jpeg{};
    std::vector<std::uint8_t> exif;
    bool is_made = false;
};

JpegEncoder::JpegEncoder() : state_(std::make_unique<State>()) {}

JpegEncoder::~JpegEncoder()
{
    if (state_->is_made)
        jpeg_destroy_compress(&state_->jpeg);
}

// As in the reader: functions that call libjpeg hold nothing that needs a destructor.
bool JpegEncoder::begin(std::FILE* stream, const PictureInfo& picture, int quality)
{
    State& state = *state_;
    jpeg_compress_struct& jpeg = state.jpeg;
    state.exif = exif_block(picture.metadata.exif);
    jpeg.err = jpeg_std_error(&state.errors.base);
    state.errors.base.error_exit = on_error;
    if (setjmp(state.errors.leave) != 0) // COUNT_EXCL_BRANCH: as below
        return false;                    // COUNT_EXCL: libjpeg's heap, or a profile that a full disk does not take
    if (!state.is_made)
        jpeg_create_compress(&jpeg);
    state.is_made = true;
    jpeg_stdio_dest(&jpeg, stream);
    set_parameters(jpeg, picture, quality);
    jpeg_start_compress(&jpeg, TRUE);
    if (!state.exif.empty())
        jpeg_write_marker(&jpeg, JPEG_APP0 + 1, state.exif.data(), static_cast<unsigned>(state.exif.size()));
    if (!picture.metadata.profile.empty())
        jpeg_write_icc_profile(&jpeg, picture.metadata.profile.data(),
                               static_cast<unsigned>(picture.metadata.profile.size()));
    return true;
}

bool JpegEncoder::write_row(const std::uint8_t* row)
{
    if (setjmp(state_->errors.leave) != 0)
        return false;
    JSAMPROW samples = const_cast<JSAMPROW>(row);
    jpeg_write_scanlines(&state_->jpeg, &samples, 1);
    return true;
}

bool JpegEncoder::finish()
{
    if (setjmp(state_->errors.leave) != 0)
        return false;
    jpeg_finish_compress(&state_->jpeg);
    return true;
}

} // namespace panoval::image
