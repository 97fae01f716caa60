// SPDX-License-Identifier: MIT
// What a picture tells besides its samples, as JSON: plans and stores carry it to the files that are made of them.
//
//   {"profile": base 64, "resolution": [x, y] in pixels per inch,
//    "exif": {"make", "model", "date", "exposure_seconds": [numerator, denominator], "f_number": the same, "iso"}}
#pragma once

#include "image/metadata.h"

#include <nlohmann/json.hpp>

namespace panoval::image
{

// An object; what is not known is not in it.
nlohmann::ordered_json json_of(const Metadata& metadata);

// The reverse. What makes no sense is left out.
Metadata metadata_of_json(const nlohmann::json& json);

} // namespace panoval::image
