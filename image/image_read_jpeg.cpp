// SPDX-License-Identifier: MIT
// JPEG files through libjpeg: grey and colour of 8 bit, turned as the camera was held. Damage that the decoder would
// paint over is an error here.

#include "image/exif_orientation.h"
#include "image/failure.h"
#include "image/image_builder.h"
#include "image/image_read.h"
#include "image/text.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

// after cstdio
#include <jerror.h>
#include <jpeglib.h>

namespace panoval::image
{

namespace
{

constexpr int kExifBlock = JPEG_APP0 + 1;
constexpr int kProfileBlock = JPEG_APP0 + 2;

// libjpeg reports through a record that starts with its own fields; leaving its functions is our part, by longjmp.
struct JpegErrors {
    jpeg_error_mgr base;
    std::jmp_buf leave;
    char message[JMSG_LENGTH_MAX];
};

void on_error(j_common_ptr jpeg)
{
    auto* const errors = reinterpret_cast<JpegErrors*>(jpeg->err);
    errors->base.format_message(jpeg, errors->message);
    std::longjmp(errors->leave, 1);
}

// Samples that had to be invented are as bad as an error. Stray bytes between the markers are harmless.
void on_message(j_common_ptr jpeg, int level)
{
    const int code = jpeg->err->msg_code;
    if (level < 0 && code != JWRN_EXTRANEOUS_DATA && code != JWRN_ADOBE_XFORM && code != JWRN_JFIF_MAJOR)
        on_error(jpeg);
}

class JpegInput
{
public:
    explicit JpegInput(InputFile& file) : file_(file)
    {
        jpeg_.err = jpeg_std_error(&errors_.base);
        errors_.base.error_exit = on_error;
        errors_.base.emit_message = on_message;
        if (!create())
            fail_memory(file.name, 1'000'000);
    }
    JpegInput(const JpegInput&) = delete;
    JpegInput& operator=(const JpegInput&) = delete;
    ~JpegInput() { jpeg_destroy_decompress(&jpeg_); }

    ImageInfo open()
    {
        if (!read_header())
            fail();
        if (jpeg_.num_components != 1 && jpeg_.num_components != 3)
            fail_input(file_.name, concat("a JPEG file with ", jpeg_.num_components, " components"),
                       "1 (grey) or 3 (colour)");
        ImageInfo info;
        info.channels = jpeg_.num_components;
        info.bits = 8;
        check_image_size(file_.name, jpeg_.image_width, jpeg_.image_height, info.channels, info.bits);
        info.width = static_cast<std::int32_t>(jpeg_.image_width);
        info.height = static_cast<std::int32_t>(jpeg_.image_height);
        return info;
    }

    // As the picture is stored: 1 to 8, as in TIFF.
    int orientation() const
    {
        for (auto* block = jpeg_.marker_list; block != nullptr; block = block->next)
            if (block->marker == kExifBlock)
                if (const int orientation = exif_orientation(block->data, block->data_length); orientation != 1)
                    return orientation;
        return 1;
    }

    std::vector<std::uint8_t> profile()
    {
        JOCTET* data = nullptr;
        unsigned size = 0;
        std::vector<std::uint8_t> copy;
        if (try_read_profile(data, size))
            copy.assign(data, data + size);
        std::free(data);
        return copy;
    }

    void start()
    {
        if (!try_start())
            fail();
    }

    void read_row(std::uint8_t* row)
    {
        if (!try_read_row(row))
            fail();
    }

    void finish()
    {
        if (!try_finish())
            fail();
    }

private:
    bool create()
    {
        if (setjmp(errors_.leave) != 0)
            return false;
        jpeg_create_decompress(&jpeg_);
        return true;
    }

    bool read_header()
    {
        if (setjmp(errors_.leave) != 0)
            return false;
        jpeg_stdio_src(&jpeg_, file_.stream.get());
        jpeg_save_markers(&jpeg_, kExifBlock, 0xFFFF);
        jpeg_save_markers(&jpeg_, kProfileBlock, 0xFFFF);
        jpeg_read_header(&jpeg_, TRUE);
        return true;
    }

    bool try_read_profile(JOCTET*& data, unsigned& size)
    {
        if (setjmp(errors_.leave) != 0)
            return false;
        return jpeg_read_icc_profile(&jpeg_, &data, &size) == TRUE;
    }

    bool try_start()
    {
        if (setjmp(errors_.leave) != 0)
            return false;
        jpeg_.out_color_space = jpeg_.num_components == 1 ? JCS_GRAYSCALE : JCS_RGB;
        jpeg_.dct_method = JDCT_ISLOW;
        jpeg_start_decompress(&jpeg_);
        return true;
    }

    bool try_read_row(std::uint8_t* row)
    {
        if (setjmp(errors_.leave) != 0)
            return false;
        jpeg_read_scanlines(&jpeg_, &row, 1);
        return true;
    }

    bool try_finish()
    {
        if (setjmp(errors_.leave) != 0)
            return false;
        jpeg_finish_decompress(&jpeg_);
        return true;
    }

    [[noreturn]] void fail() const
    {
        fail_input(file_.name, concat("a truncated or damaged JPEG file (", printable(errors_.message), ")"),
                   "a complete one");
    }

    InputFile& file_;
    JpegErrors errors_{};
    jpeg_decompress_struct jpeg_{};
};

} // namespace

std::vector<ImageInfo> probe_jpeg(InputFile& file)
{
    JpegInput jpeg(file);
    ImageInfo info = jpeg.open();
    if (jpeg.orientation() >= 5)
        std::swap(info.width, info.height);
    return {info};
}

Image read_jpeg(InputFile& file)
{
    JpegInput jpeg(file);
    const ImageInfo info = jpeg.open();
    jpeg.start();
    ImageBuilder builder(file.name, info);
    std::vector<std::uint8_t> row(static_cast<std::size_t>(info.width) * static_cast<std::size_t>(info.channels));
    for (std::int32_t y = 0; y < info.height; ++y) {
        jpeg.read_row(row.data());
        builder.put(0, y, static_cast<std::size_t>(info.width), row.data());
    }
    const int orientation = jpeg.orientation();
    Image image = builder.finish();
    image.profile = jpeg.profile();
    jpeg.finish();
    return apply_orientation(std::move(image), orientation, file.name);
}

} // namespace panoval::image
