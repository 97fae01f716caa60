// SPDX-License-Identifier: MIT
// A folder of its own for each test, and small helpers for files, pictures and errors.
#pragma once

#include "image/files.h"
#include "image/image.h"
#include "image/text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace panoval::image::test
{

// Made empty at the start of a test and removed at its end.
class ScratchFolder : public testing::Test
{
protected:
    ScratchFolder()
    {
        const auto* const info = testing::UnitTest::GetInstance()->current_test_info();
        folder_ = std::filesystem::temp_directory_path() /
                  concat("panoval-", info->test_suite_name(), "-", info->name(), "-",
                         std::filesystem::hash_value(std::filesystem::current_path()));
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directories(folder_);
    }
    ~ScratchFolder() override
    {
        std::error_code error;
        std::filesystem::remove_all(folder_, error);
    }

    // UTF-8, absolute.
    std::string in_folder(const std::string& name) const { return utf8_from_path(folder_ / path_from_utf8(name)); }

    std::vector<std::string> names() const
    {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder_))
            found.push_back(utf8_from_path(entry.path().filename()));
        return found;
    }

    std::string write_text(const std::string& name, const std::string& text) const
    {
        const FileHandle file = open_utf8(in_folder(name), "wb");
        EXPECT_EQ(std::fwrite(text.data(), 1, text.size(), file.get()), text.size());
        return in_folder(name);
    }

    std::string read_text(const std::string& name) const
    {
        std::ifstream file(folder_ / path_from_utf8(name), std::ios::binary);
        EXPECT_TRUE(file.is_open()) << name;
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

private:
    std::filesystem::path folder_;
};

// Samples that differ from each other in every direction.
inline Image test_picture(std::int32_t width, std::int32_t height, int channels, int bits, bool has_mask = false)
{
    Image image = make_image(width, height, channels, bits, "test");
    std::uint32_t state = 12345u + static_cast<std::uint32_t>(width);
    for (std::size_t i = 0; i < image.bytes(); ++i) {
        state = state * 1664525u + 1013904223u;
        image.data[i] = static_cast<std::uint8_t>(state >> 24);
    }
    if (has_mask) {
        ensure_mask(image, "test");
        for (std::size_t i = 0; i < image.pixels(); ++i)
            image.mask[i] = static_cast<std::uint8_t>(i % 5 == 0 ? 0 : i % 3 == 0 ? 255 : i % 251);
    }
    return image;
}

inline void expect_same_picture(const Image& actual, const Image& expected)
{
    ASSERT_EQ(describe(actual), describe(expected));
    EXPECT_EQ(std::memcmp(actual.data.get(), expected.data.get(), expected.bytes()), 0) << "samples differ";
    ASSERT_EQ(actual.mask != nullptr, expected.mask != nullptr);
    if (expected.mask != nullptr) {
        EXPECT_EQ(std::memcmp(actual.mask.get(), expected.mask.get(), expected.pixels()), 0) << "masks differ";
    }
}

// The message of the error that the call ends in, or "no error".
template <class Call>
std::string error_of(const Call& call)
{
    try {
        call();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no error";
}

inline bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

} // namespace panoval::image::test

namespace panoval::cli::test
{

using namespace image;
using namespace image::test;

} // namespace panoval::cli::test
