// SPDX-License-Identifier: MIT
// Bytes as text, in the letters of base 64 with padding (RFC 4648).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace panoval::image
{

std::string base64_of(const std::vector<std::uint8_t>& bytes);

// Nothing where the text is no such one.
std::optional<std::vector<std::uint8_t>> bytes_of_base64(std::string_view text);

} // namespace panoval::image
