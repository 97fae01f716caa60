// SPDX-License-Identifier: MIT
// What a picture file tells besides its samples, and what of it holds for a picture that is made of several.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace panoval::image
{

struct Rational {
    std::uint32_t numerator = 0;
    std::uint32_t denominator = 1;
    // By value: formats reduce fractions, or write them over powers of ten.
    friend bool operator==(const Rational& a, const Rational& b)
    {
        return std::uint64_t{a.numerator} * b.denominator == std::uint64_t{b.numerator} * a.denominator;
    }
};

// Of a camera and a shot. What is empty is not known.
struct Exif {
    std::string make;
    std::string model;
    std::string date; // "YYYY:MM:DD HH:MM:SS"
    std::optional<Rational> exposure_seconds;
    std::optional<Rational> f_number;
    std::optional<std::uint32_t> iso;

    bool is_empty() const { return *this == Exif(); }
    friend bool operator==(const Exif&, const Exif&) = default;
};

// Pixels per inch.
struct Resolution {
    double x = 0;
    double y = 0;
    friend bool operator==(const Resolution&, const Resolution&) = default;
};

struct Metadata {
    std::vector<std::uint8_t> profile; // ICC, which says what the colours look like; empty for none
    Exif exif;
    std::optional<Resolution> resolution;
    friend bool operator==(const Metadata&, const Metadata&) = default;
};

// What all of several pictures agree in.
class CommonMetadata
{
public:
    void add(const Metadata& metadata, const std::string& name);

    // What holds for a picture that is made of them: what they agree in, and nothing where they do not.
    const Metadata& common() const { return common_; }

    // What to tell the user if their colour profiles differ, or nothing.
    std::string disagreement() const;

private:
    std::string first_name_;
    std::string other_name_; // of a picture with another profile
    std::vector<std::uint8_t> first_profile_;
    Metadata common_;
};

} // namespace panoval::image
