// SPDX-License-Identifier: MIT
// PNG files through libpng: all colour types, palettes and transparent colours expanded, interlaced or not. The oFFs
// chunk, in pixels, is the picture's position.

#include "image/failure.h"
#include "image/image_builder.h"
#include "image/image_read.h"
#include "image/text.h"

#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <vector>

namespace panoval::image
{

namespace
{

// libpng leaves its functions by longjmp. Each function here that calls it holds nothing that needs a destructor.
class PngInput
{
public:
    explicit PngInput(InputFile& file) : file_(file)
    {
        png_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, on_error, on_warning);
        info_ = png_ != nullptr ? png_create_info_struct(png_) : nullptr;
        if (info_ == nullptr) {
            png_destroy_read_struct(&png_, nullptr, nullptr);
            fail_memory(file.name, 1'000'000);
        }
    }
    PngInput(const PngInput&) = delete;
    PngInput& operator=(const PngInput&) = delete;
    ~PngInput() { png_destroy_read_struct(&png_, &info_, nullptr); }

    ImageInfo open()
    {
        if (!read_header())
            fail();
        ImageInfo info;
        info.channels = (png_get_color_type(png_, info_) & PNG_COLOR_MASK_COLOR) != 0 ? 3 : 1;
        info.has_alpha = (png_get_color_type(png_, info_) & PNG_COLOR_MASK_ALPHA) != 0;
        info.bits = png_get_bit_depth(png_, info_);
        check_image_size(file_.name, png_get_image_width(png_, info_), png_get_image_height(png_, info_), info.channels,
                         info.bits);
        info.width = static_cast<std::int32_t>(png_get_image_width(png_, info_));
        info.height = static_cast<std::int32_t>(png_get_image_height(png_, info_));
        png_int_32 x = 0, y = 0;
        int unit = 0;
        if (png_get_oFFs(png_, info_, &x, &y, &unit) != 0 && unit == PNG_OFFSET_PIXEL)
            info.position = Offset{x, y};
        return info;
    }

    std::vector<std::uint8_t> profile() const
    {
        png_charp name = nullptr;
        int compression = 0;
        png_bytep data = nullptr;
        png_uint_32 size = 0;
        if (png_get_iCCP(png_, info_, &name, &compression, &data, &size) == 0)
            return {};
        return std::vector<std::uint8_t>(data, data + size);
    }

    int passes() const { return passes_; }
    std::size_t row_bytes() const { return png_get_rowbytes(png_, info_); }

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
    bool read_header()
    {
        if (setjmp(png_jmpbuf(png_)) != 0)
            return false;
        png_init_io(png_, file_.stream.get());
        png_set_user_limits(png_, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
        png_read_info(png_, info_);
        png_set_expand(png_);
        png_set_swap(png_);
        passes_ = png_set_interlace_handling(png_);
        png_read_update_info(png_, info_);
        return true;
    }

    bool try_read_row(std::uint8_t* row)
    {
        if (setjmp(png_jmpbuf(png_)) != 0)
            return false;
        png_read_row(png_, row, nullptr);
        return true;
    }

    bool try_finish()
    {
        if (setjmp(png_jmpbuf(png_)) != 0)
            return false;
        png_read_end(png_, nullptr);
        return true;
    }

    [[noreturn]] void fail() const
    {
        fail_input(file_.name, concat("a truncated or damaged PNG file (", printable(message_), ")"), "a complete one");
    }

    static void on_error(png_structp png, png_const_charp message)
    {
        auto* const self = static_cast<PngInput*>(png_get_error_ptr(png));
        std::snprintf(self->message_, sizeof self->message_, "%s", message);
        png_longjmp(png, 1);
    }
    static void on_warning(png_structp, png_const_charp) {}

    InputFile& file_;
    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
    int passes_ = 1;
    char message_[160] = "";
};

} // namespace

std::vector<ImageInfo> probe_png(InputFile& file)
{
    return {PngInput(file).open()};
}

Image read_png(InputFile& file)
{
    PngInput png(file);
    const ImageInfo info = png.open();
    ImageBuilder builder(file.name, info);
    const std::size_t row_bytes = png.row_bytes();
    const auto width = static_cast<std::size_t>(info.width);
    // Every pass of an interlaced picture adds to the rows of the ones before, so all of them are kept.
    const bool keeps_rows = png.passes() > 1;
    const std::size_t kept = keeps_rows ? static_cast<std::size_t>(info.height) : 1;
    const Block rows = allocate_block(kept * row_bytes, file.name);
    const auto row = [&](std::int32_t y) {
        return rows.get() + (keeps_rows ? static_cast<std::size_t>(y) : 0u) * row_bytes;
    };
    for (int pass = 0; pass < png.passes(); ++pass)
        for (std::int32_t y = 0; y < info.height; ++y) {
            png.read_row(row(y));
            if (pass == png.passes() - 1)
                builder.put(0, y, width, row(y));
        }
    png.finish();
    Image image = builder.finish();
    image.profile = png.profile();
    return image;
}

} // namespace panoval::image
