// SPDX-License-Identifier: MIT
// Stores as folders in memory: a picture that is written is read as it was. Then one of the store's files is damaged,
// or has any bytes, and the store is read, or refused with a message that names a file.
#include "fuzz/input.h"
#include "image/failure.h"
#include "image/files.h"
#include "image/zarr_rows.h"
#include "image/zarr_store.h"

#include <unistd.h>

namespace
{

using namespace panoval::image;
using panoval::fuzz::Input;
using panoval::fuzz::require;
namespace fs = std::filesystem;
using Bytes = std::vector<std::uint8_t>;

constexpr std::int64_t kMaxSamples = 1 << 18; // larger pictures and chunks would take all the time

StorePicture any_picture(Input& input)
{
    StorePicture picture;
    picture.array.width = input.number(1, 40);
    picture.array.height = input.number(1, 40);
    picture.array.channels = input.number(1, 4);
    picture.array.bits = input.flag() ? 16 : 8;
    picture.array.chunk_width = input.number(1, 24);
    picture.array.chunk_height = input.number(1, 24);
    picture.array.is_compressed = input.flag();
    picture.origin = {input.number(-50, 50), input.number(-50, 50)};
    picture.plan = "a plan";
    picture.tiles = input.number(0, 2);
    return picture;
}

Image any_image(Input& input, const ImageInfo& info)
{
    Image image = make_image(info.width, info.height, info.channels, info.bits, "input");
    const Bytes samples = input.samples(image.bytes());
    std::copy(samples.begin(), samples.end(), image.data.get());
    if (!info.has_alpha)
        return image;
    ensure_mask(image, "input");
    const Bytes mask = input.mask(image.pixels());
    std::copy(mask.begin(), mask.end(), image.mask.get());
    return image;
}

// The full picture, from the last row to the first.
Image read_backwards(const ZarrStore& store)
{
    const ImageInfo info = store.info(0);
    Image image = make_image(info.width, info.height, info.channels, info.bits, "input");
    if (info.has_alpha)
        ensure_mask(image, "input");
    const auto reader = open_store_rows(store);
    for (std::int32_t y = info.height - 1; y >= 0; --y)
        reader->read_rows(y, 1, rows_of(image, y));
    return image;
}

void require_same(const Image& a, const Image& b)
{
    require(describe(a) == describe(b) && (a.mask == nullptr) == (b.mask == nullptr));
    require(panoval::fuzz::same_bits(a.data.get(), b.data.get(), a.bytes()));
    if (a.mask != nullptr)
        require(panoval::fuzz::same_bits(a.mask.get(), b.mask.get(), a.pixels()));
}

void damage(Input& input, const fs::path& place)
{
    Bytes bytes(1 << 16);
    if (const FileHandle file = open_utf8(place, "rb"))
        bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file.get()));
    else
        return; // a chunk of zeros
    for (int n = input.number(0, 3); n > 0 && !bytes.empty(); --n)
        bytes[input.number<std::size_t>(0, bytes.size() - 1)] = input.number<std::uint8_t>(0, 255);
    if (input.flag())
        bytes = input.bytes().ConsumeRemainingBytes<std::uint8_t>();
    const FileHandle file = open_utf8(place, "wb");
    require(std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size());
}

void write_and_read(Input& input, const fs::path& folder)
{
    const StorePicture picture = any_picture(input);
    const ZarrStore store = ZarrStore::begin(folder, folder, picture);
    const Image image = any_image(input, store.info(0));
    const ChunkSizes sizes = store.write_pixels(0, 0, 0, image.width, image.height, rows_of(image));
    for (std::int64_t tile = 0; tile < picture.tiles; ++tile)
        store.mark_tile(tile, sizes);
    require(ZarrStore::open(folder).first_missing_tile() == -1);
    require_same(read_backwards(ZarrStore::open(folder)), image);

    const char* const places[] = {".zattrs", "0/.zarray", "0/0/0/0", ".panoval/tiles/0"};
    damage(input, folder / places[input.number(0, 3)]);
    const ZarrStore damaged = ZarrStore::open(folder);
    (void)damaged.has_tile(0);
    const ZarrArray& array = damaged.array(0);
    if (array.width * array.height <= kMaxSamples && array.chunk_bytes() <= kMaxSamples &&
        array.width * array.chunk_height <= kMaxSamples)
        (void)read_backwards(damaged);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const fs::path folder = "/dev/shm/panoval_store_" + std::to_string(getpid()) + ".zarr";
    Input input(data, size);
    try {
        write_and_read(input, folder);
    } catch (const Failure& error) {
        require(std::string(error.what()).find(": found ") != std::string::npos);
    }
    fs::remove_all(folder);
    return 0;
}
