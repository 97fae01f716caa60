// SPDX-License-Identifier: MIT
// PNG files of grey or colour, with or without alpha, 8 or 16 bit.

#include "image/failure.h"
#include "image/image_write.h"

#include <png.h>

#include <csetjmp>
#include <vector>

namespace panoval::image
{

namespace
{

// Photographs gain little from a higher level, which costs several times the time.
constexpr int kCompressionLevel = 3;

// As in the reader: functions that call libpng hold nothing that needs a destructor.
class PngOutput
{
public:
    explicit PngOutput(OutputFile& output) : output_(output)
    {
        png_ = png_create_write_struct(PNG_LIBPNG_VER_STRING, this, on_error, on_warning);
        info_ = png_ != nullptr ? png_create_info_struct(png_) : nullptr;
        if (info_ == nullptr) {
            png_destroy_write_struct(&png_, nullptr);
            fail_memory(output.target(), 1'000'000);
        }
    }
    PngOutput(const PngOutput&) = delete;
    PngOutput& operator=(const PngOutput&) = delete;
    ~PngOutput() { png_destroy_write_struct(&png_, &info_); }

    void open(const Image& image)
    {
        if (!write_header(image))
            output_.fail_writing();
    }
    void write_row(const std::uint8_t* row)
    {
        if (!try_write_row(row))
            output_.fail_writing();
    }
    void finish()
    {
        if (!try_finish())
            output_.fail_writing();
    }

private:
    bool write_header(const Image& image)
    {
        if (setjmp(png_jmpbuf(png_)) != 0)
            return false;
        png_init_io(png_, output_.stream());
        png_set_user_limits(png_, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
        const int color =
            (image.channels == 3 ? PNG_COLOR_MASK_COLOR : 0) | (image.mask != nullptr ? PNG_COLOR_MASK_ALPHA : 0);
        png_set_IHDR(png_, info_, static_cast<png_uint_32>(image.width), static_cast<png_uint_32>(image.height),
                     image.bits, color, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        png_set_compression_level(png_, kCompressionLevel);
        png_set_filter(png_, 0, PNG_FILTER_SUB | PNG_FILTER_UP);
        if (!image.profile.empty())
            png_set_iCCP(png_, info_, "ICC profile", PNG_COMPRESSION_TYPE_BASE, image.profile.data(),
                         static_cast<png_uint_32>(image.profile.size()));
        png_write_info(png_, info_);
        png_set_swap(png_);
        return true;
    }

    bool try_write_row(const std::uint8_t* row)
    {
        if (setjmp(png_jmpbuf(png_)) != 0)
            return false;
        png_write_row(png_, row);
        return true;
    }

    bool try_finish()
    {
        if (setjmp(png_jmpbuf(png_)) != 0)
            return false;
        png_write_end(png_, nullptr);
        return true;
    }

    static void on_error(png_structp png, png_const_charp) { png_longjmp(png, 1); }
    static void on_warning(png_structp, png_const_charp) {}

    OutputFile& output_;
    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
};

} // namespace

void write_png(OutputFile& output, const Image& image)
{
    PngOutput png(output);
    png.open(image);
    std::vector<std::uint8_t> row(copied_row_bytes(image));
    for (std::int32_t y = 0; y < image.height; ++y) {
        copy_row(image, y, row.data());
        png.write_row(row.data());
    }
    png.finish();
}

} // namespace panoval::image
