// SPDX-License-Identifier: MIT
// Raw PGM, PPM and PAM files of 8 or 16 bit.
#include "image/row_writer.h"
#include "image/text.h"

#include <utility>
#include <vector>

namespace panoval::image
{

namespace
{

std::string pam_header(const ImageInfo& info, int max_value)
{
    const int samples = info.channels + (info.has_alpha ? 1 : 0);
    return concat("P7\nWIDTH ", info.width, "\nHEIGHT ", info.height, "\nDEPTH ", samples, "\nMAXVAL ", max_value,
                  "\nTUPLTYPE ", info.channels == 1 ? "GRAYSCALE" : "RGB", info.has_alpha ? "_ALPHA" : "",
                  "\nENDHDR\n");
}

class PnmWriter : public RowWriter
{
public:
    PnmWriter(OutputFile& output, const ImageInfo& info, bool is_pam)
        : output_(output), info_(info), row_(stored_row_bytes(info))
    {
        const int max_value = info.bits == 16 ? 65535 : 255;
        if (is_pam)
            output.write(pam_header(info, max_value));
        else
            output.write(
                concat(info.channels == 1 ? "P5" : "P6", "\n", info.width, " ", info.height, "\n", max_value, "\n"));
    }

    void add(const ConstRows& rows, std::int32_t count) override
    {
        for (std::int32_t y = 0; y < count; ++y) {
            merge_row(info_, rows.row(y), info_.has_alpha ? rows.mask_row(y) : nullptr, row_.data());
            if (info_.bits == 16) // the format has the high byte first
                for (std::size_t i = 0; i < row_.size(); i += 2)
                    std::swap(row_[i], row_[i + 1]);
            output_.write(row_.data(), row_.size());
        }
        output_.leave_to_disk();
    }

    void finish() override {}

private:
    OutputFile& output_;
    ImageInfo info_;
    std::vector<std::uint8_t> row_;
};

} // namespace

std::unique_ptr<RowWriter> make_pnm_writer(OutputFile& output, const PictureInfo& picture, const WriteOptions&)
{
    return std::make_unique<PnmWriter>(output, picture, false);
}

std::unique_ptr<RowWriter> make_pam_writer(OutputFile& output, const PictureInfo& picture, const WriteOptions&)
{
    return std::make_unique<PnmWriter>(output, picture, true);
}

} // namespace panoval::image
