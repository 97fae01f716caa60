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
    std::optional<Offset> position; // without one the file itself must tell
    std::string mask;               // a file, or empty
};

// Takes an argument apart. Names may hold '@' and ':' themselves: an argument that is an existing file's name is that
// file; else the last '@' that a position follows ends the name, existing files preferred.
PlacedInput parse_placed_input(const std::string& argument);

// A JSON array of objects with file, x, y and, if wanted, mask; names are relative to the layout's folder. Or a picture
// whose layers know their places.
std::vector<PlacedInput> read_layout(const std::string& name);

} // namespace panoval::cli
