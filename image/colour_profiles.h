// SPDX-License-Identifier: MIT
// What the colours of several pictures look like, as far as their files say. A picture that is made of them gets their
// common profile, or none where they disagree.
#pragma once

#include "image/image.h"

#include <cstdint>
#include <string>
#include <vector>

namespace panoval::image
{

class ColourProfiles
{
public:
    void add(const Image& image, const std::string& name);

    // Empty for none.
    std::vector<std::uint8_t> common() const;

    // What to tell the user if they disagree, or nothing.
    std::string disagreement() const;

private:
    std::string first_name_;
    std::string other_name_;
    std::vector<std::uint8_t> first_;
};

} // namespace panoval::image
