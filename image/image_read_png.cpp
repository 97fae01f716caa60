// SPDX-License-Identifier: MIT
// PNG files through libpng: all colour types, palettes and transparent colours expanded, interlaced or not. The oFFs
// chunk, in pixels, is the picture's position; pHYs its resolution, eXIf what the camera notes.

#include "image/exif.h"
#include "image/failure.h"
#include "image/image_read.h"
#include "image/text.h"

#include <png.h>

#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>
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
        info_ = png_ != nullptr ? png_create_info_struct(png_) : nullptr; // COUNT_EXCL_BRANCH: as below
        if (info_ == nullptr) { // COUNT_EXCL_START: libpng's heap; the program's tests of an exhausted heap come here
            png_destroy_read_struct(&png_, nullptr, nullptr);
            fail_memory(file.name, 1'000'000);
        } // COUNT_EXCL_STOP
    }
    PngInput(const PngInput&) = delete;
    PngInput& operator=(const PngInput&) = delete;
    ~PngInput() { png_destroy_read_struct(&png_, &info_, nullptr); }

    ImageInfo open()
    {
        if (!read_header())
            fail();
        check_sides(file_.name, png_get_image_width(png_, info_), png_get_image_height(png_, info_));
        check_pixels(file_.name, "a picture", png_get_image_width(png_, info_), png_get_image_height(png_, info_));
        if (!prepare_rows()) // COUNT_EXCL_BRANCH: as below
            fail();          // COUNT_EXCL: libpng's heap, in which it takes memory for them
        ImageInfo info;
        info.channels = (png_get_color_type(png_, info_) & PNG_COLOR_MASK_COLOR) != 0 ? 3 : 1;
        info.has_alpha = (png_get_color_type(png_, info_) & PNG_COLOR_MASK_ALPHA) != 0;
        info.bits = png_get_bit_depth(png_, info_);
        info.width = static_cast<std::int32_t>(png_get_image_width(png_, info_));
        info.height = static_cast<std::int32_t>(png_get_image_height(png_, info_));
        png_int_32 x = 0, y = 0;
        int unit = 0;
        if (png_get_oFFs(png_, info_, &x, &y, &unit) != 0 && unit == PNG_OFFSET_PIXEL)
            info.position = Offset{x, y};
        return info;
    }

    Metadata metadata() const
    {
        Metadata metadata;
        png_charp name = nullptr;
        int compression = 0;
        png_bytep data = nullptr;
        png_uint_32 size = 0;
        if (png_get_iCCP(png_, info_, &name, &compression, &data, &size) != 0)
            metadata.profile.assign(data, data + size);
        if (png_get_eXIf_1(png_, info_, &size, &data) != 0)
            metadata.exif = parse_exif(data, size).exif;
        png_uint_32 x = 0, y = 0;
        int unit = 0;
        if (png_get_pHYs(png_, info_, &x, &y, &unit) != 0 && unit == PNG_RESOLUTION_METER && x != 0 && y != 0)
            metadata.resolution = Resolution{per_inch(x), per_inch(y)};
        return metadata;
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
        return true;
    }

    bool prepare_rows()
    {
        if (setjmp(png_jmpbuf(png_)) != 0) // COUNT_EXCL_BRANCH: as below
            return false;                  // COUNT_EXCL: libpng's heap
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
        check_heap(file_.name);
        fail_input(file_.name, concat("a truncated or damaged PNG file (", printable(message_), ")"), "a complete one");
    }

    // Two digits after the point: whole numbers per metre give back what an inch had.
    static double per_inch(png_uint_32 per_metre) { return std::floor(per_metre * 2.54 + 0.5) / 100; }

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

class PngReader : public SequentialReader
{
public:
    explicit PngReader(InputFile file) : file_(std::move(file))
    {
        open();
        metadata_ = png_->metadata();
    }

    std::uint64_t held_bytes() const override
    {
        return is_interlaced() ? png_->row_bytes() * static_cast<std::uint64_t>(info_.height) : 3 * png_->row_bytes();
    }

protected:
    void restart() override
    {
        next_ = 0;
        if (rows_ == nullptr)
            open();
    }

    void read_next(std::uint8_t* interleaved) override
    {
        if (!is_interlaced())
            return png_->read_row(interleaved);
        if (rows_ == nullptr)
            read_passes();
        std::memcpy(interleaved, rows_.get() + next_++ * png_->row_bytes(), png_->row_bytes());
    }

    void finish() override
    {
        if (!is_interlaced())
            png_->finish();
    }

private:
    void open()
    {
        seek_in_file(file_.stream.get(), 0, SEEK_SET);
        png_ = std::make_unique<PngInput>(file_);
        info_ = png_->open();
    }

    bool is_interlaced() const { return png_->passes() > 1; }

    // Every pass adds to the rows of the ones before, so all of them are kept.
    void read_passes()
    {
        const auto height = static_cast<std::size_t>(info_.height);
        rows_ = allocate_block(height * png_->row_bytes(), file_.name);
        for (int pass = 0; pass < png_->passes(); ++pass)
            for (std::size_t y = 0; y < height; ++y)
                png_->read_row(rows_.get() + y * png_->row_bytes());
        png_->finish();
    }

    InputFile file_;
    std::unique_ptr<PngInput> png_;
    Block rows_;           // of an interlaced picture
    std::size_t next_ = 0; // row of it
};

} // namespace

std::vector<ImageInfo> probe_png(InputFile& file)
{
    return {PngInput(file).open()};
}

StoredPicture open_png(InputFile file, std::size_t)
{
    return {std::make_unique<PngReader>(std::move(file)), 1};
}

} // namespace panoval::image
