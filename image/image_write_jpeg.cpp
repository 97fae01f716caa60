// SPDX-License-Identifier: MIT
// JPEG files of grey or colour.
#include "image/jpeg_encoder.h"
#include "image/row_writer.h"

namespace panoval::image
{

namespace
{

class JpegWriter : public RowWriter
{
public:
    JpegWriter(OutputFile& output, const PictureInfo& picture, int quality) : output_(output)
    {
        need(encoder_.begin(output.stream(), picture, quality));
    }

    void add(const ConstRows& rows, std::int32_t count) override
    {
        for (std::int32_t y = 0; y < count; ++y)
            need(encoder_.write_row(rows.row(y)));
    }

    void finish() override { need(encoder_.finish()); }

private:
    void need(bool is_written) const
    {
        if (!is_written)
            output_.fail_writing();
    }

    OutputFile& output_;
    JpegEncoder encoder_;
};

} // namespace

std::unique_ptr<RowWriter> make_jpeg_writer(OutputFile& output, const PictureInfo& picture, const WriteOptions& options)
{
    return std::make_unique<JpegWriter>(output, picture, options.quality);
}

} // namespace panoval::image
