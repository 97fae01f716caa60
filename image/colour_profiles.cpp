// SPDX-License-Identifier: MIT
#include "image/colour_profiles.h"

#include "image/text.h"

namespace panoval::image
{

void ColourProfiles::add(const Image& image, const std::string& name)
{
    if (first_name_.empty()) {
        first_name_ = name;
        first_ = image.profile;
    } else if (image.profile != first_) {
        other_name_ = name;
    }
}

std::vector<std::uint8_t> ColourProfiles::common() const
{
    return other_name_.empty() ? first_ : std::vector<std::uint8_t>();
}

std::string ColourProfiles::disagreement() const
{
    if (other_name_.empty())
        return "";
    return concat(printable(other_name_), ": found another colour profile than in ", printable(first_name_),
                  "; the panorama gets none");
}

} // namespace panoval::image
