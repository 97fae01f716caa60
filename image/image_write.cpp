// SPDX-License-Identifier: MIT
// Choosing the writer by a name's ending, and what all writers share.
#include "image/image_write.h"

#include "image/failure.h"
#include "image/text.h"

#include <cctype>
#include <cstring>

namespace panoval::image
{

namespace
{

enum class Ending { Unknown, Png, Tiff, Jpeg, Pgm, Ppm, Pnm, Pam };

const char* const kKnownEndings = ".png, .tif, .tiff, .jpg, .jpeg, .pgm, .ppm, .pnm or .pam";

std::string ending_text(const std::string& target)
{
    const std::size_t dot = target.find_last_of("./\\");
    if (dot == std::string::npos || target[dot] != '.')
        return "";
    std::string ending = target.substr(dot + 1);
    for (char& c : ending)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return ending;
}

Ending ending_of(const std::string& target)
{
    const std::string text = ending_text(target);
    if (text == "pgm")
        return Ending::Pgm;
    if (text == "ppm")
        return Ending::Ppm;
    if (text == "pnm")
        return Ending::Pnm;
    if (text == "pam")
        return Ending::Pam;
    if (text == "png")
        return Ending::Png;
    if (text == "tif" || text == "tiff")
        return Ending::Tiff;
    if (text == "jpg" || text == "jpeg")
        return Ending::Jpeg;
    return Ending::Unknown;
}

Ending known_ending_of(const std::string& target)
{
    const Ending ending = ending_of(target);
    if (ending == Ending::Unknown)
        fail_output(target, ending_text(target).empty() ? "no ending" : "the ending ." + ending_text(target),
                    kKnownEndings);
    return ending;
}

bool holds_alpha(Ending ending)
{
    return ending == Ending::Png || ending == Ending::Tiff || ending == Ending::Pam;
}

template <std::size_t ColorBytes, std::size_t AlphaBytes>
void merge_pixels(const std::uint8_t* color, const std::uint8_t* mask, std::size_t count, std::uint8_t* row)
{
    for (std::size_t i = 0; i < count; ++i) {
        std::memcpy(row, color + i * ColorBytes, ColorBytes);
        std::memset(row + ColorBytes, mask[i], AlphaBytes); // twice for 16 bit, which is a factor of 257
        row += ColorBytes + AlphaBytes;
    }
}

} // namespace

int most_bits_of(const std::string& target)
{
    return known_ending_of(target) == Ending::Jpeg ? 8 : 16;
}

void check_output_format(const std::string& target, int channels, int bits, bool has_alpha)
{
    const Ending ending = known_ending_of(target);
    if (bits > most_bits_of(target))
        fail_output(target, concat(bits, " bits for a JPEG file"), "8 (--depth 8), or another ending");
    if (has_alpha && !holds_alpha(ending))
        fail_output(target, "an alpha channel for a format without one", ".png, .tif or .pam");
    if (ending == Ending::Pgm && channels != 1)
        fail_output(target, concat(channels, " channels for a grey format"), ".ppm or .pnm");
    if (ending == Ending::Ppm && channels != 3)
        fail_output(target, "1 channel for a colour format", ".pgm or .pnm");
}

void write_image(OutputFile& output, const Image& image)
{
    check_output_format(output.target(), image.channels, image.bits, image.mask != nullptr);
    switch (const Ending ending = known_ending_of(output.target())) {
    case Ending::Png:
        return write_png(output, image);
    case Ending::Tiff:
        return write_tiff(output, image);
    case Ending::Jpeg:
        return write_jpeg(output, image);
    default:
        return write_pnm(output, image, ending == Ending::Pam);
    }
}

void write_image(const std::string& target, const Image& image)
{
    check_output_format(target, image.channels, image.bits, image.mask != nullptr);
    OutputFile output(target);
    write_image(output, image);
    output.commit();
}

bool takes_rows(const std::string& target)
{
    return known_ending_of(target) == Ending::Tiff;
}

std::unique_ptr<RowWriter> make_row_writer(OutputFile& output, const Image& header)
{
    return make_tiff_writer(output, header);
}

std::size_t copied_row_bytes(const Image& image)
{
    const auto width = static_cast<std::size_t>(image.width);
    return image.row_bytes() + (image.mask != nullptr ? width * image.sample_bytes() : 0);
}

void copy_row(const Image& image, std::int32_t y, std::uint8_t* row)
{
    if (image.mask == nullptr) {
        std::memcpy(row, image.row(y), image.row_bytes());
        return;
    }
    const auto width = static_cast<std::size_t>(image.width);
    const std::uint8_t* const mask = image.mask.get() + static_cast<std::size_t>(y) * width;
    if (image.bits == 16 && image.channels == 3)
        merge_pixels<6, 2>(image.row(y), mask, width, row);
    else if (image.bits == 16)
        merge_pixels<2, 2>(image.row(y), mask, width, row);
    else if (image.channels == 3)
        merge_pixels<3, 1>(image.row(y), mask, width, row);
    else
        merge_pixels<1, 1>(image.row(y), mask, width, row);
}

} // namespace panoval::image
