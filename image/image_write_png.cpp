// SPDX-License-Identifier: MIT
// PNG files of grey or colour, with or without alpha, 8 or 16 bit.
#include "image/png_encoder.h"
#include "image/row_writer.h"

#include <vector>

namespace panoval::image
{

namespace
{

class PngWriter : public RowWriter
{
public:
    PngWriter(OutputFile& output, const PictureInfo& picture)
        : output_(output), info_(picture), row_(stored_row_bytes(picture))
    {
        need(encoder_.begin(output.stream(), picture));
    }

    void add(const ConstRows& rows, std::int32_t count) override
    {
        for (std::int32_t y = 0; y < count; ++y) {
            merge_row(info_, rows.row(y), info_.has_alpha ? rows.mask_row(y) : nullptr, row_.data());
            need(encoder_.write_row(row_.data()));
        }
        output_.leave_to_disk();
    }

    void finish() override { need(encoder_.finish()); }

private:
    void need(bool is_written) const
    {
        if (!is_written)
            output_.fail_writing();
    }

    OutputFile& output_;
    ImageInfo info_;
    std::vector<std::uint8_t> row_;
    PngEncoder encoder_;
};

} // namespace

std::unique_ptr<RowWriter> make_png_writer(OutputFile& output, const PictureInfo& picture, const WriteOptions&)
{
    return std::make_unique<PngWriter>(output, picture);
}

} // namespace panoval::image
