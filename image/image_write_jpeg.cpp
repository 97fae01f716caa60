// SPDX-License-Identifier: MIT
// JPEG files of grey or colour, at a quality that shows no artefacts and without lowering the colours' resolution.

#include "image/failure.h"
#include "image/image_write.h"
#include "image/text.h"

#include <csetjmp>
#include <cstdio>

// after cstdio
#include <jpeglib.h>

namespace panoval::image
{

namespace
{

constexpr int kQuality = 93;

struct JpegErrors {
    jpeg_error_mgr base;
    std::jmp_buf leave;
};

void on_error(j_common_ptr jpeg)
{
    std::longjmp(reinterpret_cast<JpegErrors*>(jpeg->err)->leave, 1);
}

// Holds nothing that needs a destructor while libjpeg may leave by longjmp.
bool write_rows(jpeg_compress_struct& jpeg, JpegErrors& errors, const Image& image, std::FILE* stream)
{
    if (setjmp(errors.leave) != 0)
        return false;
    jpeg_create_compress(&jpeg);
    jpeg_stdio_dest(&jpeg, stream);
    jpeg.image_width = static_cast<JDIMENSION>(image.width);
    jpeg.image_height = static_cast<JDIMENSION>(image.height);
    jpeg.input_components = image.channels;
    jpeg.in_color_space = image.channels == 3 ? JCS_RGB : JCS_GRAYSCALE;
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, kQuality, TRUE);
    jpeg.comp_info[0].h_samp_factor = 1;
    jpeg.comp_info[0].v_samp_factor = 1;
    jpeg_start_compress(&jpeg, TRUE);
    if (!image.profile.empty())
        jpeg_write_icc_profile(&jpeg, image.profile.data(), static_cast<unsigned>(image.profile.size()));
    while (jpeg.next_scanline < jpeg.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(image.row(static_cast<std::int32_t>(jpeg.next_scanline)));
        jpeg_write_scanlines(&jpeg, &row, 1);
    }
    jpeg_finish_compress(&jpeg);
    return true;
}

} // namespace

void write_jpeg(OutputFile& output, const Image& image)
{
    if (image.width > JPEG_MAX_DIMENSION || image.height > JPEG_MAX_DIMENSION)
        fail_output(output.target(), concat(image.width, " x ", image.height, " pixels for a JPEG file"),
                    concat("at most ", JPEG_MAX_DIMENSION, " in a direction, or another ending"));
    JpegErrors errors{};
    jpeg_compress_struct jpeg{};
    jpeg.err = jpeg_std_error(&errors.base);
    errors.base.error_exit = on_error;
    const bool is_written = write_rows(jpeg, errors, image, output.stream());
    jpeg_destroy_compress(&jpeg);
    if (!is_written)
        output.fail_writing();
}

} // namespace panoval::image
