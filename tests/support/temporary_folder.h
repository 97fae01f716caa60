// SPDX-License-Identifier: MIT
// A fresh folder for a test's files, and whole files in one call.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace panoval::test
{

// UTF-8 text as a path of this system.
inline std::filesystem::path path_of(std::string_view utf8)
{
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

inline std::string utf8_of(const std::filesystem::path& path)
{
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

// Removed with all that is in it at the end of its life.
class TemporaryFolder
{
public:
    TemporaryFolder()
    {
        std::random_device random;
        do
            path_ = std::filesystem::temp_directory_path() / ("panoval-test-" + std::to_string(random()));
        while (!std::filesystem::create_directory(path_));
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    const std::filesystem::path& path() const { return path_; }

    // A file's full name in UTF-8, as the library wants it.
    std::string name(std::string_view utf8) const { return utf8_of(path_ / path_of(utf8)); }

private:
    std::filesystem::path path_;
};

inline void write_file(const std::filesystem::path& path, std::string_view bytes)
{
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush())
        throw std::runtime_error("cannot write " + utf8_of(path));
}

inline std::string read_file(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + utf8_of(path));
    return std::string(std::istreambuf_iterator<char>(file), {});
}

} // namespace panoval::test
