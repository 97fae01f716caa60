// SPDX-License-Identifier: MIT
#include "image/metadata.h"

#include "image/text.h"

namespace panoval::image
{

namespace
{

template <class Value>
void keep_if_same(Value& common, const Value& other)
{
    if (common != other)
        common = Value();
}

} // namespace

void CommonMetadata::add(const Metadata& metadata, const std::string& name)
{
    if (first_name_.empty()) {
        first_name_ = name;
        first_profile_ = metadata.profile;
        common_ = metadata;
        return;
    }
    if (metadata.profile != first_profile_)
        other_name_ = name;
    keep_if_same(common_.profile, metadata.profile);
    keep_if_same(common_.exif.make, metadata.exif.make);
    keep_if_same(common_.exif.model, metadata.exif.model);
    keep_if_same(common_.exif.date, metadata.exif.date);
    keep_if_same(common_.exif.exposure_seconds, metadata.exif.exposure_seconds);
    keep_if_same(common_.exif.f_number, metadata.exif.f_number);
    keep_if_same(common_.exif.iso, metadata.exif.iso);
    keep_if_same(common_.resolution, metadata.resolution);
}

std::string CommonMetadata::disagreement() const
{
    if (other_name_.empty())
        return "";
    return concat(printable(other_name_), ": found another colour profile than in ", printable(first_name_),
                  "; the panorama gets none");
}

} // namespace panoval::image
