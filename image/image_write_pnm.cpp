// SPDX-License-Identifier: MIT
// Raw PGM, PPM and PAM files of 8 or 16 bit.
#include "image/failure.h"
#include "image/image_write.h"
#include "image/text.h"

#include <utility>
#include <vector>

namespace panoval::image
{

namespace
{

std::string pam_header(const Image& image, int max_value)
{
    const int samples = image.channels + (image.mask != nullptr ? 1 : 0);
    return concat("P7\nWIDTH ", image.width, "\nHEIGHT ", image.height, "\nDEPTH ", samples, "\nMAXVAL ", max_value,
                  "\nTUPLTYPE ", image.channels == 1 ? "GRAYSCALE" : "RGB", image.mask != nullptr ? "_ALPHA" : "",
                  "\nENDHDR\n");
}

} // namespace

void write_pnm(OutputFile& output, const Image& image, bool is_pam)
{
    const int max_value = image.bits == 16 ? 65535 : 255;
    if (is_pam)
        output.write(pam_header(image, max_value));
    else
        output.write(
            concat(image.channels == 1 ? "P5" : "P6", "\n", image.width, " ", image.height, "\n", max_value, "\n"));
    std::vector<std::uint8_t> row(copied_row_bytes(image));
    for (std::int32_t y = 0; y < image.height; ++y) {
        copy_row(image, y, row.data());
        if (image.bits == 16) // the format has the high byte first
            for (std::size_t i = 0; i < row.size(); i += 2)
                std::swap(row[i], row[i + 1]);
        output.write(row.data(), row.size());
    }
}

} // namespace panoval::image
