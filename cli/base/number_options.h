// SPDX-License-Identifier: MIT
// Numbers on the command line. Whatever is no number as an option wants it ends in a line that says what was found and
// what is expected.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>

namespace panoval::cli
{

// For Option::transform: decimal digits alone, a value from least to most. besides: what could be meant by something
// else, behind the range in the message.
CLI::Validator whole_number(std::uint64_t least, std::uint64_t most, const std::string& besides = "");

// For Option::transform: bytes, as 1500000000, 800M, 1.5G or 2 GiB; units are powers of 1024, in either case. Parts of
// a byte are left out.
CLI::Validator byte_size();

} // namespace panoval::cli
