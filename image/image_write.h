// SPDX-License-Identifier: MIT
// Writing pictures that are in memory. The output's name decides the format (image/formats.h); a mask is written as the
// alpha channel.
#pragma once

#include "image/formats.h"
#include "image/image.h"
#include "image/output_file.h"
#include "image/row_writer.h"

#include <string>

namespace panoval::image
{

// Writes a picture into the file of that name, which is then complete but not yet committed.
void write_image(OutputFile& output, const OutputName& name, const Image& image, const WriteOptions& options = {});

// As above, and commits it.
void write_image(const OutputName& name, const Image& image, const WriteOptions& options = {});
void write_image(const std::string& target, const Image& image, const WriteOptions& options = {});

} // namespace panoval::image
