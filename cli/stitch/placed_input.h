// SPDX-License-Identifier: MIT
// What a user says about pictures and their places: FILE@X,Y, FILE@X,Y:MASK, or a layout file.
#pragma once

#include "cli/base/image_names.h"
#include "image/image.h"

#include <optional>
#include <string>
#include <vector>

namespace panoval::cli
{

struct PlacedInput {
    std::string file;
    std::optional<Offset> position;     // without one the file itself must tell
    std::string mask;                   // a file, or empty; so are the next two
    std::string keep = {};              // pixels that must come from this picture
    std::string exclude = {};           // pixels that must not
    std::optional<ImageInfo> told = {}; // what the layout says about the file, if it does
    bool tells_channels = false;        // else those of `told` are a guess
    bool tells_bits = false;            // likewise
};

// Takes an argument apart. Names may hold '@' and ':' themselves: an argument that is an existing file's name is that
// file; else the last '@' that a position follows ends the name, existing files preferred. Fractions of pixels are
// rounded, halves up.
//
// notes  out: says so where that happens
PlacedInput parse_placed_input(const std::string& argument, std::vector<std::string>& notes);

// A JSON array of objects with file, x, y and, if wanted, mask, keep and exclude, and width, height, channels (3
// without it) and bits (8) of the picture, or an object with such an array as "images"; names are relative to the
// layout's folder. Or a picture whose layers know their places.
//
// notes  out: what is odd about the layout without being wrong, a sentence each
std::vector<PlacedInput> read_layout(const std::string& name, std::vector<std::string>& notes);

} // namespace panoval::cli
