// SPDX-License-Identifier: MIT
// The block is "Exif" and two zeros, then a small TIFF file: byte order, the place of a directory, entries of 12 bytes.
#include "image/exif_orientation.h"

#include <cstring>

namespace panoval::image
{

namespace
{

constexpr char kMagic[6] = {'E', 'x', 'i', 'f', 0, 0};
constexpr std::uint32_t kOrientationTag = 0x0112;
constexpr std::uint32_t kShortType = 3;
constexpr std::size_t kEntryBytes = 12;

// Numbers at a place in the block; 0 beyond its end.
class Numbers
{
public:
    Numbers(const std::uint8_t* data, std::size_t size) : data_(data), size_(size), is_big_endian_(byte(0) == 'M') {}

    std::uint32_t two_bytes(std::size_t at) const
    {
        return is_big_endian_ ? byte(at) << 8 | byte(at + 1) : byte(at + 1) << 8 | byte(at);
    }
    std::uint32_t four_bytes(std::size_t at) const
    {
        return is_big_endian_ ? two_bytes(at) << 16 | two_bytes(at + 2) : two_bytes(at + 2) << 16 | two_bytes(at);
    }

private:
    std::uint32_t byte(std::size_t at) const { return at < size_ ? data_[at] : 0u; }

    const std::uint8_t* data_;
    std::size_t size_;
    bool is_big_endian_;
};

} // namespace

int exif_orientation(const std::uint8_t* block, std::size_t size)
{
    if (size < sizeof kMagic || std::memcmp(block, kMagic, sizeof kMagic) != 0)
        return 1;
    const Numbers numbers(block + sizeof kMagic, size - sizeof kMagic);
    const std::size_t directory = numbers.four_bytes(4);
    const std::uint32_t entries = numbers.two_bytes(directory);
    for (std::uint32_t i = 0; i < entries; ++i) {
        const std::size_t entry = directory + 2 + i * kEntryBytes;
        if (numbers.two_bytes(entry) != kOrientationTag)
            continue;
        const std::uint32_t value = numbers.two_bytes(entry + 8);
        const bool makes_sense = numbers.two_bytes(entry + 2) == kShortType && value >= 1 && value <= 8;
        return makes_sense ? static_cast<int>(value) : 1;
    }
    return 1;
}

} // namespace panoval::image
