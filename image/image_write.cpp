// SPDX-License-Identifier: MIT
#include "image/image_write.h"

namespace panoval::image
{

std::unique_ptr<RowWriter> make_row_writer(OutputFile& output, const OutputName& name, const PictureInfo& picture,
                                           const WriteOptions& options)
{
    name.check(picture.channels, picture.bits, picture.has_alpha);
    name.check_size(picture.width, picture.height);
    return name.format().make_writer(output, picture, options);
}

void write_image(OutputFile& output, const OutputName& name, const Image& image, const WriteOptions& options)
{
    PictureInfo picture = image;
    picture.has_alpha = image.mask != nullptr;
    const auto writer = make_row_writer(output, name, picture, options);
    writer->add(rows_of(image), image.height);
    writer->finish();
}

void write_image(const OutputName& name, const Image& image, const WriteOptions& options)
{
    name.check(image.channels, image.bits, image.mask != nullptr);
    name.check_size(image.width, image.height);
    OutputFile output(name.text());
    write_image(output, name, image, options);
    output.commit();
}

void write_image(const std::string& target, const Image& image, const WriteOptions& options)
{
    write_image(OutputName(target), image, options);
}

} // namespace panoval::image
