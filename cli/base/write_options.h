// SPDX-License-Identifier: MIT
// How a picture is to be written, as the commands' options say it.
#pragma once

#include "image/formats.h"
#include "image/row_writer.h"

#include <string>

namespace panoval::cli
{

struct FormatOptions {
    std::string compression;  // --compression; empty = not given
    int quality = 0;          // --quality; 0 = not given
    bool has_pyramid = false; // --pyramid
};

// What --quality is for and may be, for help.
std::string quality_help();

// Fails where an option says something about another format than the output's: it would do nothing.
//
// has_alpha  whether the picture has an alpha channel
image::WriteOptions write_options(const FormatOptions& options, const image::OutputName& output, bool has_alpha);

} // namespace panoval::cli
