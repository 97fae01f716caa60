// SPDX-License-Identifier: MIT
// JPEG files through libjpeg: grey and colour of 8 bit, turned as the camera was held. Damage that the decoder would
// paint over is an error here.

#include "image/exif.h"
#include "image/failure.h"
#include "image/image_read.h"
#include "image/text.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <memory>
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

// Files have a dozen. Each scan goes over the whole picture, and takes hardly a byte of the file to say so.
constexpr int kMostScans = 500;

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

void on_progress(j_common_ptr jpeg)
{
    if (reinterpret_cast<j_decompress_ptr>(jpeg)->input_scan_number <= kMostScans)
        return;
    auto* const errors = reinterpret_cast<JpegErrors*>(jpeg->err);
    std::snprintf(errors->message, sizeof errors->message, "more than %d scans", kMostScans);
    std::longjmp(errors->leave, 1);
}

class JpegInput
{
public:
    explicit JpegInput(InputFile& file) : file_(file)
    {
        jpeg_.err = jpeg_std_error(&errors_.base);
        errors_.base.error_exit = on_error;
        errors_.base.emit_message = on_message;
        if (!create())                         // COUNT_EXCL_BRANCH: as below
            fail_memory(file.name, 1'000'000); // COUNT_EXCL: libjpeg's heap, as the program's tests exhaust it
        progress_.progress_monitor = on_progress;
        jpeg_.progress = &progress_;
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
        check_sides(file_.name, jpeg_.image_width, jpeg_.image_height);
        info.width = static_cast<std::int32_t>(jpeg_.image_width);
        info.height = static_cast<std::int32_t>(jpeg_.image_height);
        return info;
    }

    // What the camera notes, and how it was held.
    ExifBlock exif() const
    {
        ExifBlock all;
        for (auto* block = jpeg_.marker_list; block != nullptr; block = block->next) {
            if (block->marker != kExifBlock)
                continue;
            ExifBlock found = parse_exif(block->data, block->data_length);
            if (all.orientation == 1)
                all.orientation = found.orientation;
            if (all.exif.is_empty())
                all.exif = std::move(found.exif);
        }
        return all;
    }

    Metadata metadata()
    {
        Metadata metadata;
        metadata.profile = profile();
        metadata.exif = exif().exif;
        const double per_inch = jpeg_.density_unit == 1 ? 1 : 2.54;
        if (jpeg_.saw_JFIF_marker == TRUE && jpeg_.density_unit != 0 && jpeg_.X_density != 0 && jpeg_.Y_density != 0)
            metadata.resolution = Resolution{jpeg_.X_density * per_inch, jpeg_.Y_density * per_inch};
        return metadata;
    }

    // Progressive, or the components one behind the other.
    bool has_several_scans() { return jpeg_has_multiple_scans(&jpeg_) == TRUE; }

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

    bool create()
    {
        if (setjmp(errors_.leave) != 0) // COUNT_EXCL_BRANCH: as below
            return false;               // COUNT_EXCL: libjpeg's heap
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
        if (setjmp(errors_.leave) != 0) // COUNT_EXCL_BRANCH: as below
            return false;               // COUNT_EXCL: libjpeg's heap
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
        check_heap(file_.name);
        fail_input(file_.name, concat("a truncated or damaged JPEG file (", printable(errors_.message), ")"),
                   "a complete one");
    }

    InputFile& file_;
    JpegErrors errors_{};
    jpeg_progress_mgr progress_{};
    jpeg_decompress_struct jpeg_{};
};

class JpegReader : public SequentialReader
{
public:
    explicit JpegReader(InputFile file) : file_(std::move(file))
    {
        open();
        metadata_ = jpeg_->metadata();
    }

    int orientation() const { return jpeg_->exif().orientation; }
    // Files of one scan are decoded a few rows at a time; one of several keeps 2 bytes a sample.
    std::uint64_t held_bytes() const override
    {
        return jpeg_->has_several_scans() ? 2 * info_.samples() : 32 * stored_row_bytes(info_);
    }

protected:
    void restart() override { open(); }
    void read_next(std::uint8_t* interleaved) override
    {
        if (!is_started_)
            jpeg_->start();
        is_started_ = true;
        jpeg_->read_row(interleaved);
    }
    void finish() override { jpeg_->finish(); }

private:
    void open()
    {
        seek_in_file(file_.stream.get(), 0, SEEK_SET);
        jpeg_ = std::make_unique<JpegInput>(file_);
        info_ = jpeg_->open();
        is_started_ = false;
    }

    InputFile file_;
    std::unique_ptr<JpegInput> jpeg_;
    bool is_started_ = false;
};

} // namespace

std::vector<ImageInfo> probe_jpeg(InputFile& file)
{
    JpegInput jpeg(file);
    ImageInfo info = jpeg.open();
    if (jpeg.exif().orientation >= 5)
        std::swap(info.width, info.height);
    return {info};
}

StoredPicture open_jpeg(InputFile file, std::size_t)
{
    auto reader = std::make_unique<JpegReader>(std::move(file));
    const int orientation = reader->orientation();
    return {std::move(reader), orientation};
}

} // namespace panoval::image
