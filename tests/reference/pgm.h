// SPDX-License-Identifier: MIT
// PGM files by their definition: the reader on a file's bytes in memory, the writers with whole pictures as scratch.
#pragma once

#include "panoval.h"
#include "tests/reference/stretch.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace panoval::reference
{

#ifdef _WIN32
inline constexpr auto scan_text = __ms_sscanf; // MinGW's own limits large numbers in another way
#else
inline constexpr auto scan_text = std::sscanf;
#endif

struct ReadPgm {
    std::int32_t width;
    std::int32_t height;
    bool has_pixels = false; // false: the reader gives a null pointer
    std::vector<std::uint8_t> pixels = {};
};

// A stream as the C library presents it: at its end once a line could not be read completely.
class Lines
{
public:
    explicit Lines(std::string_view bytes) : rest_(bytes) {}

    bool at_end() const { return at_end_; }
    std::string_view rest() const { return rest_; }

    // Up to 259 characters, the line feed included.
    std::vector<char> next()
    {
        std::vector<char> line(260, '\0');
        for (std::size_t i = 0; i < 259; ++i) {
            if (rest_.empty()) {
                at_end_ = true;
                break;
            }
            line[i] = rest_.front();
            rest_.remove_prefix(1);
            if (line[i] == '\n')
                break;
        }
        return line;
    }

private:
    std::string_view rest_;
    bool at_end_ = false;
};

// width and height: as the caller set them. Pictures of more than max_pixels are left out.
inline ReadPgm read_pgm(std::string_view bytes, std::int32_t width, std::int32_t height, std::int64_t max_pixels)
{
    Lines lines(bytes);
    ReadPgm result{width, height};
    int magic = 0;
    int maximum = 0;
    for (int field = 0; field < 3 && !lines.at_end();) {
        const std::vector<char> line = lines.next();
        if (line[0] == '#')
            continue;
        if (field == 0)
            scan_text(line.data(), "P%d", &magic);
        if (field == 1)
            scan_text(line.data(), "%d%d", &result.width, &result.height);
        if (field == 2)
            scan_text(line.data(), "%d", &maximum);
        ++field;
    }
    const std::int64_t count = static_cast<std::int64_t>(result.width) * static_cast<std::int64_t>(result.height);
    if (count < 0 || count > 2147483647)
        return result;
    result.has_pixels = true;
    if (count > max_pixels)
        return result;
    result.pixels.assign(static_cast<std::size_t>(count), 0);
    for (std::size_t i = 0; i < result.pixels.size() && i < lines.rest().size(); ++i)
        result.pixels[i] = static_cast<std::uint8_t>(lines.rest()[i]);
    return result;
}

inline void write_picture(const std::uint8_t* pixels, std::int32_t width, std::int32_t height, const char* name)
{
    std::FILE* const file = std::fopen(name, "wb");
    std::fprintf(file, "P5\n%d\n%d\n%d\n", width, height, 255);
    std::fwrite(pixels, 1, static_cast<std::size_t>(width * height), file);
    std::fclose(file);
}

template <class Sample>
void write_stretched(const Sample* data, std::int32_t width, std::int32_t height, const char* name)
{
    const auto n = static_cast<std::size_t>(width * height);
    double minimum = data[0];
    double maximum = data[0];
    for (std::size_t i = 0; i < n; ++i) {
        const double v = data[i];
        if (v < minimum)
            minimum = v;
        if (v > maximum)
            maximum = v;
    }
    const double scale = 255.0 / (maximum - minimum);
    auto* const out = static_cast<std::uint8_t*>(std::malloc(n));
    stretch(data, n, minimum, scale, out);
    write_picture(out, width, height, name);
    std::free(out);
}

inline void write_fpgm(const Matf& img, const char* name)
{
    const auto n = static_cast<std::size_t>(img.width * img.height);
    auto* const out = static_cast<std::uint8_t*>(std::calloc(n == 0 ? 1 : n, 1));
    auto* const grey = static_cast<float*>(std::calloc(n == 0 ? 1 : n, sizeof(float)));
    if (img.channels == 3)
        mix_grey(img.data, n, grey);
    if (img.channels == 1)
        for (std::size_t i = 0; i < n; ++i)
            grey[i] = img.data[i];
    float minimum = 1e10f;
    float maximum = 0.0f;
    widen_range(grey, n, minimum, maximum);
    stretch_single(grey, n, minimum, 255.0f / (maximum - minimum), out);
    write_picture(out, img.width, img.height, name);
    std::free(grey);
    std::free(out);
}

} // namespace panoval::reference
