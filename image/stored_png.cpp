// SPDX-License-Identifier: MIT
// A PNG file is a signature and chunks with a checksum each; the pixels are a zlib stream (RFC 1950) whose deflate
// blocks (RFC 1951) may be stored as they are.
#include "image/stored_png.h"

#include <algorithm>
#include <array>

namespace panoval::image
{

namespace
{

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kLongestBlock = 65535; // of deflate
constexpr std::size_t kLongestChunk = std::size_t{1} << 20;

void put_32(Bytes& to, std::uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        to.push_back(static_cast<std::uint8_t>(value >> shift));
}

constexpr std::array<std::uint32_t, 256> make_crc_table()
{
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        table[i] = i;
        for (int bit = 0; bit < 8; ++bit)
            table[i] = (table[i] >> 1) ^ ((table[i] & 1u) != 0 ? 0xEDB88320u : 0u);
    }
    return table;
}

constexpr std::array<std::uint32_t, 256> kCrcTable = make_crc_table();

std::uint32_t crc_32(const std::uint8_t* bytes, std::size_t count)
{
    std::uint32_t crc = 0xFFFFFFFFu;
    for (std::size_t i = 0; i < count; ++i)
        crc = kCrcTable[(crc ^ bytes[i]) & 255u] ^ (crc >> 8);
    return ~crc;
}

std::uint32_t adler_32(const Bytes& bytes)
{
    std::uint32_t a = 1;
    std::uint32_t b = 0;
    for (const std::uint8_t byte : bytes) {
        a = (a + byte) % 65521;
        b = (b + a) % 65521;
    }
    return (b << 16) | a;
}

void put_chunk(Bytes& file, const char* kind, const std::uint8_t* body, std::size_t length)
{
    put_32(file, static_cast<std::uint32_t>(length));
    const std::size_t start = file.size();
    file.insert(file.end(), kind, kind + 4);
    file.insert(file.end(), body, body + length);
    put_32(file, crc_32(file.data() + start, file.size() - start));
}

// Each row behind its filter, which is none.
Bytes filtered_rows(const Image& image)
{
    Bytes rows;
    rows.reserve((image.row_bytes() + 1) * static_cast<std::size_t>(image.height));
    for (std::int32_t y = 0; y < image.height; ++y) {
        rows.push_back(0);
        rows.insert(rows.end(), image.row(y), image.row(y) + image.row_bytes());
    }
    return rows;
}

Bytes stored_stream(const Bytes& bytes)
{
    Bytes stream = {0x78, 0x01};
    stream.reserve(bytes.size() + bytes.size() / kLongestBlock * 5 + 16);
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t length = std::min(kLongestBlock, bytes.size() - at);
        const bool is_last = at + length == bytes.size();
        for (const std::size_t value : {std::size_t{is_last}, length & 255, length >> 8, ~length & 255, ~length >> 8})
            stream.push_back(static_cast<std::uint8_t>(value & 255));
        stream.insert(stream.end(), bytes.data() + at, bytes.data() + at + length);
        at += length;
    }
    put_32(stream, adler_32(bytes));
    return stream;
}

} // namespace

std::vector<std::uint8_t> stored_png(const Image& image)
{
    Bytes header;
    put_32(header, static_cast<std::uint32_t>(image.width));
    put_32(header, static_cast<std::uint32_t>(image.height));
    const std::uint8_t kind = image.channels == 3 ? 2 : 0;
    for (const std::uint8_t value : {std::uint8_t{8}, kind, std::uint8_t{0}, std::uint8_t{0}, std::uint8_t{0}})
        header.push_back(value);
    const Bytes stream = stored_stream(filtered_rows(image));

    Bytes file = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    file.reserve(stream.size() + stream.size() / kLongestChunk * 12 + 128);
    put_chunk(file, "IHDR", header.data(), header.size());
    for (std::size_t at = 0; at < stream.size(); at += kLongestChunk)
        put_chunk(file, "IDAT", stream.data() + at, std::min(kLongestChunk, stream.size() - at));
    put_chunk(file, "IEND", nullptr, 0);
    return file;
}

} // namespace panoval::image
