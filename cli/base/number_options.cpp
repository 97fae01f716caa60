// SPDX-License-Identifier: MIT
#include "cli/base/number_options.h"

#include "cli/base/errors.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <string_view>

namespace panoval::cli
{

namespace
{

constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();

std::optional<std::uint64_t> parse_digits(std::string_view text)
{
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

// Powers of 1024: "", "b", "K", "KB", "KiB" ... "EiB".
std::optional<std::uint64_t> parse_unit(std::string_view text)
{
    constexpr std::string_view kPrefixes = "kmgtpe";
    std::string unit(text);
    std::transform(unit.begin(), unit.end(), unit.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    if (unit.empty() || unit == "b")
        return 1;
    const std::size_t prefix = kPrefixes.find(unit.front());
    const std::string rest = unit.substr(1);
    if (prefix == std::string_view::npos || (!rest.empty() && rest != "b" && rest != "i" && rest != "ib"))
        return std::nullopt;
    return std::uint64_t{1} << (10 * (prefix + 1));
}

// Digits behind the point as a part of a unit, at most 2^60; rounded down, exactly.
std::uint64_t part_of(std::uint64_t unit, std::string_view digits)
{
    std::uint64_t part = 0;
    for (std::size_t i = digits.size(); i-- > 0;)
        part = (static_cast<std::uint64_t>(digits[i] - '0') * unit + part) / 10;
    return part;
}

std::optional<std::uint64_t> parse_bytes(std::string_view text)
{
    constexpr std::string_view kDigits = "0123456789";
    const std::size_t number_end = std::min(text.find_first_not_of("0123456789."), text.size());
    const std::size_t unit_start = std::min(text.find_first_not_of(' ', number_end), text.size());
    const std::string_view number = text.substr(0, number_end);
    const std::size_t point = std::min(number.find('.'), number.size());
    const std::string_view fraction = number.substr(std::min(point + 1, number.size()));
    const auto whole = parse_digits(number.substr(0, point));
    const auto unit = parse_unit(text.substr(unit_start));
    const bool has_point = point < number.size();
    const bool is_fraction = !fraction.empty() && fraction.find_first_not_of(kDigits) == std::string_view::npos;
    if (!whole || !unit || (has_point && (!is_fraction || *unit == 1)))
        return std::nullopt;
    const std::uint64_t part = part_of(*unit, fraction);
    if (*whole > (kMost - part) / *unit)
        return std::nullopt;
    return *whole * *unit + part;
}

// An empty value is refused for all options alike.
template <class Parse>
CLI::Validator number_as(const Parse& parse, const std::string& expected, const std::string& description)
{
    const auto read = [parse, expected](std::string& text) {
        if (text.empty())
            return std::string();
        const std::optional<std::uint64_t> value = parse(text);
        if (!value)
            return concat("found '", printable(text, 100), "'; expected ", expected);
        text = concat(*value);
        return std::string();
    };
    return {read, description};
}

} // namespace

CLI::Validator whole_number(std::uint64_t least, std::uint64_t most, const std::string& besides)
{
    const auto parse = [least, most](const std::string& text) {
        const auto value = parse_digits(text);
        return value && *value >= least && *value <= most ? value : std::nullopt;
    };
    const std::string range = most == kMost ? concat("from ", least, " on") : concat("from ", least, " to ", most);
    const std::string description = most == kMost ? "" : concat("INT in [", least, " - ", most, "]");
    return number_as(parse, concat("a whole number ", range, besides), description);
}

CLI::Validator byte_size()
{
    return number_as([](const std::string& text) { return parse_bytes(text); },
                     "a number of bytes, as 1500000000, 800M or 1.5G", "SIZE [b, kb(=1024b), ...]");
}

} // namespace panoval::cli
