// SPDX-License-Identifier: MIT
// JSON that others may have written.
#pragma once

#include <nlohmann/json.hpp>

namespace panoval::image
{

// The kind that keeps the order of keys copies values while it grows, which takes a stack as deep as they are nested.
using ParsedJson = nlohmann::json;

// The key of an object, or null.
inline const ParsedJson& at(const ParsedJson& json, const char* key)
{
    static const ParsedJson nothing;
    const auto found = json.is_object() ? json.find(key) : json.end();
    return json.is_object() && found != json.end() ? *found : nothing;
}

} // namespace panoval::image
