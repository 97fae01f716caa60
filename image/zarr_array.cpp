// SPDX-License-Identifier: MIT
#include "image/zarr_array.h"

#include "image/failure.h"
#include "image/json_keys.h"
#include "image/text.h"

#include <nlohmann/json.hpp>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

namespace panoval::image
{

namespace
{

using Json = nlohmann::ordered_json;

// Photographs gain little from a higher one, which costs several times the time.
constexpr int kLevel = 1;

constexpr std::int64_t kLongestSide = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kLargestChunk = std::int64_t{1} << 30; // bytes
constexpr const char* kExpected =
    "axes c, y, x of unsigned numbers of 8 or 16 bit, zlib or no compressor, all channels "
    "in a chunk, chunks in folders";

[[noreturn]] void fail_kind(const std::string& name, const std::string& what)
{
    fail_input(name, concat("an array with ", what), kExpected);
}

std::int64_t number_at(const std::string& name, const ParsedJson& json, const char* key, std::size_t index)
{
    const auto found = json.find(key);
    if (found == json.end() || !found->is_array() || found->size() != 3 || !(*found)[index].is_number_integer())
        fail_kind(name, concat("no three numbers \"", key, "\""));
    const std::int64_t value = (*found)[index].get<std::int64_t>();
    if (value < 1 || value > kLongestSide)
        fail_kind(name, concat(value, " in \"", key, "\""));
    return value;
}

bool is_text(const ParsedJson& json, const char* key, const char* text)
{
    const auto found = json.find(key);
    return found != json.end() && found->is_string() && *found == text;
}

bool is_null(const ParsedJson& json, const char* key)
{
    const auto found = json.find(key);
    return found != json.end() && found->is_null();
}

bool is_compressed_kind(const std::string& name, const ParsedJson& json)
{
    if (is_null(json, "compressor"))
        return false;
    const auto found = json.find("compressor");
    if (found == json.end() || !found->is_object() || !is_text(*found, "id", "zlib"))
        fail_kind(name, "another compressor");
    return true;
}

template <std::size_t Bytes>
void spread(const std::uint8_t* interleaved, std::size_t count, std::size_t step, std::uint8_t* plane)
{
    for (std::size_t i = 0; i < count; ++i) {
        if constexpr (Bytes == 1) {
            plane[i] = interleaved[i * step];
        } else {
            std::uint16_t value;
            std::memcpy(&value, interleaved + i * step, 2);
            plane[2 * i] = static_cast<std::uint8_t>(value & 255u);
            plane[2 * i + 1] = static_cast<std::uint8_t>(value >> 8);
        }
    }
}

template <std::size_t Bytes>
void gather(const std::uint8_t* plane, std::size_t count, std::size_t step, std::uint8_t* interleaved)
{
    for (std::size_t i = 0; i < count; ++i) {
        if constexpr (Bytes == 1) {
            interleaved[i * step] = plane[i];
        } else {
            const auto value = static_cast<std::uint16_t>(plane[2 * i] | plane[2 * i + 1] << 8);
            std::memcpy(interleaved + i * step, &value, 2);
        }
    }
}

// Full coverage is the largest sample: the byte is repeated in 16 bit.
void put_mask(const std::uint8_t* mask, std::size_t count, std::size_t bytes, std::uint8_t* plane)
{
    for (std::size_t i = 0; i < count; ++i)
        std::memset(plane + i * bytes, mask[i], bytes);
}

void get_mask(const std::uint8_t* plane, std::size_t count, std::size_t bytes, std::uint8_t* mask)
{
    if (bytes == 1) {
        std::memcpy(mask, plane, count);
        return;
    }
    std::vector<std::uint8_t> alpha(2 * count);
    gather<2>(plane, count, 2, alpha.data());
    narrow_alpha(alpha.data(), count, mask);
}

} // namespace

std::string json_of(const ZarrArray& array)
{
    const Json compressor = array.is_compressed ? Json{{"id", "zlib"}, {"level", kLevel}} : Json(nullptr);
    const Json json = {{"chunks", {array.channels, array.chunk_height, array.chunk_width}},
                       {"compressor", compressor},
                       {"dimension_separator", "/"},
                       {"dtype", array.bits == 16 ? "<u2" : "|u1"},
                       {"fill_value", 0},
                       {"filters", nullptr},
                       {"order", "C"},
                       {"shape", {array.channels, array.height, array.width}},
                       {"zarr_format", 2}};
    return json.dump(1) + "\n";
}

ZarrArray parse_zarr_array(const std::string& name, const std::string& text)
{
    const ParsedJson json = ParsedJson::parse(text, nullptr, false);
    if (json.is_discarded() || !json.is_object())
        fail_input(name, "no valid JSON object", kExpected);
    if (json.value("zarr_format", ParsedJson()) != 2)
        fail_kind(name, "another \"zarr_format\" than 2");
    ZarrArray array;
    const std::int64_t channels = number_at(name, json, "shape", 0);
    if (channels > 4)
        fail_kind(name, concat(channels, " channels"));
    array.channels = static_cast<int>(channels);
    array.height = number_at(name, json, "shape", 1);
    array.width = number_at(name, json, "shape", 2);
    if (number_at(name, json, "chunks", 0) != channels)
        fail_kind(name, "channels in chunks of their own");
    array.chunk_height = static_cast<std::int32_t>(number_at(name, json, "chunks", 1));
    array.chunk_width = static_cast<std::int32_t>(number_at(name, json, "chunks", 2));
    array.bits = is_text(json, "dtype", "<u2") ? 16 : 8;
    if (array.bits == 8 && !is_text(json, "dtype", "|u1"))
        fail_kind(name, "another \"dtype\"");
    if (!is_text(json, "order", "C") || !is_text(json, "dimension_separator", "/") || !is_null(json, "filters"))
        fail_kind(name, "another order, other names of chunks, or filters");
    if (json.value("fill_value", ParsedJson()) != 0)
        fail_kind(name, "another \"fill_value\" than 0");
    array.is_compressed = is_compressed_kind(name, json);
    if (std::int64_t{array.chunk_width} * array.chunk_height > kLargestChunk / 8)
        fail_kind(name, concat("chunks of ", array.chunk_width, " x ", array.chunk_height, " pixels"));
    return array;
}

std::string chunk_name(std::int64_t row, std::int64_t column)
{
    return concat("0/", row, "/", column);
}

std::vector<std::uint8_t> pack_chunk(const ZarrArray& array, const Chunk& chunk)
{
    if (std::all_of(chunk.begin(), chunk.end(), [](std::uint8_t byte) { return byte == 0; }))
        return {};
    if (!array.is_compressed)
        return chunk;
    uLongf size = compressBound(static_cast<uLong>(chunk.size()));
    std::vector<std::uint8_t> bytes(size);
    const int code = compress2(bytes.data(), &size, chunk.data(), static_cast<uLong>(chunk.size()), kLevel);
    if (code != Z_OK)           // COUNT_EXCL_BRANCH: as below
        throw std::bad_alloc(); // COUNT_EXCL: of zlib's; nothing else can happen
    bytes.resize(size);
    return bytes;
}

void unpack_chunk(const ZarrArray& array, const std::string& name, const std::vector<std::uint8_t>& bytes, Chunk& chunk)
{
    chunk.resize(array.chunk_bytes());
    if (!array.is_compressed) {
        if (bytes.size() != chunk.size())
            fail_input(name, concat("a chunk of ", bytes.size(), " bytes"), concat(chunk.size()));
        std::copy(bytes.begin(), bytes.end(), chunk.begin());
        return;
    }
    uLongf size = static_cast<uLongf>(chunk.size());
    const int code = uncompress(chunk.data(), &size, bytes.data(), static_cast<uLong>(bytes.size()));
    if (code == Z_MEM_ERROR)    // COUNT_EXCL_BRANCH: as below
        throw std::bad_alloc(); // COUNT_EXCL: of zlib's
    if (code != Z_OK || size != chunk.size())
        fail_input(name, "a truncated or damaged chunk", concat("zlib of ", chunk.size(), " bytes"));
}

void put_pixels(const ZarrArray& array, const ConstRows& from, std::int32_t width, std::int32_t height, Chunk& chunk)
{
    const std::size_t bytes = static_cast<std::size_t>(array.bits) / 8;
    const std::size_t channels = static_cast<std::size_t>(array.channels) - (from.mask != nullptr ? 1 : 0);
    const std::size_t plane = array.chunk_pixels() * bytes;
    const auto count = static_cast<std::size_t>(width);
    const auto work = bytes == 2 ? spread<2> : spread<1>;
    for (std::int32_t y = 0; y < height; ++y) {
        std::uint8_t* const row =
            chunk.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(array.chunk_width) * bytes;
        for (std::size_t c = 0; c < channels; ++c)
            work(from.row(y) + c * bytes, count, channels * bytes, row + c * plane);
        if (from.mask != nullptr)
            put_mask(from.mask_row(y), count, bytes, row + channels * plane);
    }
}

void get_pixels(const ZarrArray& array, const Chunk& chunk, std::int32_t width, std::int32_t height, const Rows& to)
{
    const std::size_t bytes = static_cast<std::size_t>(array.bits) / 8;
    const std::size_t channels = static_cast<std::size_t>(array.channels) - (to.mask != nullptr ? 1 : 0);
    const std::size_t plane = array.chunk_pixels() * bytes;
    const auto count = static_cast<std::size_t>(width);
    const auto work = bytes == 2 ? gather<2> : gather<1>;
    for (std::int32_t y = 0; y < height; ++y) {
        const std::uint8_t* const row =
            chunk.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(array.chunk_width) * bytes;
        for (std::size_t c = 0; c < channels; ++c)
            work(row + c * plane, count, channels * bytes, to.row(y) + c * bytes);
        if (to.mask != nullptr)
            get_mask(row + channels * plane, count, bytes, to.mask_row(y));
    }
}

} // namespace panoval::image
