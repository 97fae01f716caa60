// SPDX-License-Identifier: MIT
// The table of formats that are written. The ending of a file's name decides; what a format holds, the help texts and
// the checks are made from this table.
#pragma once

#include "image/image.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace panoval::image
{

enum class FileKind { Png, Tiff, Jpeg, Pnm, Pam, DeepZoom };

// Files of one ending.
struct OutputFormat {
    const char* ending; // in lower case
    FileKind kind;
    const char* name; // for messages
    int most_bits;    // per sample
    bool holds_alpha;
    int least_channels;
    int most_channels;
    std::int64_t most_side; // pixels

    bool holds(int channels, int bits, bool has_alpha) const
    {
        return channels >= least_channels && channels <= most_channels && bits <= most_bits &&
               (holds_alpha || !has_alpha);
    }
};

// By the name's ending, PNG for standard output; fails for one that is not known. other_ending: of what the caller
// writes besides, to be named in the message.
const OutputFormat& output_format_of(const std::string& target, std::string_view other_ending = {});

// Fails unless such a picture fits. target is named in the message. To be asked before the work starts.
void check_output_format(const std::string& target, const OutputFormat& format, int channels, int bits, bool has_alpha);
void check_output_format(const std::string& target, int channels, int bits, bool has_alpha);

// Fails unless so many pixels fit.
void check_output_size(const std::string& target, const OutputFormat& format, std::int64_t width, std::int64_t height);

// The endings of the formats that hold such a picture, e.g. ".png, .tif or .pam".
std::string endings_for(int channels, int bits, bool has_alpha);

// All of them, as help texts list them: ".png .tif ...".
std::string all_endings();

} // namespace panoval::image
