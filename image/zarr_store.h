// SPDX-License-Identifier: MIT
// A picture and its reduced levels as OME-Zarr (NGFF 0.4) on Zarr version 2: a folder that many processes, on many
// machines, may fill at once. Each writes chunks of its own beside their places and renames them, then a mark for each
// tile that is complete; nothing is locked, and the order does not matter.
//
//   .zgroup .zattrs     what the store is: the same bytes, whoever writes them
//   LEVEL/.zarray       an array c, y, x; with coverage the last channel is it
//   LEVEL/0/ROW/COLUMN  chunks; one that is all 0 has no file
//   .panoval/tiles/K    the mark of tile K: the plan, and how long the file of each of its chunks is
#pragma once

#include "image/image.h"
#include "image/zarr_array.h"

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace panoval::image
{

inline constexpr const char* kStoreEnding = ".zarr";

// Of chunks, by name, the usual one first.
std::vector<std::string> store_compressions();

// Whether a name means a store: it ends in kStoreEnding.
bool is_store_name(const std::string& name);

// What a store is made for.
struct StorePicture {
    ZarrArray array;        // of the full picture; 2 or 4 channels: the last one is the coverage
    Offset origin;          // of its corner
    std::string plan;       // names what the pixels follow from; empty = from anything
    std::int64_t tiles = 0; // that are to be marked
    Metadata metadata;

    bool has_coverage() const { return array.channels % 2 == 0; }
};

// The chunks of a tile and the bytes of each one's file, 0 for none.
using ChunkSizes = std::vector<std::pair<std::string, std::uint64_t>>;

class ZarrStore
{
public:
    // Makes a store, or goes on with one that the same plan began. Fails, naming `target`, where the folder is
    // something else. folder: where it is made, which may be another place than the target at first.
    static ZarrStore begin(const std::string& target, const std::filesystem::path& folder, const StorePicture& picture);

    // One that is there, of any program.
    static ZarrStore open(const std::string& name);

    const StorePicture& picture() const { return picture_; }
    std::size_t levels() const { return arrays_.size(); }
    const ZarrArray& array(std::size_t level) const { return arrays_[level]; }

    // What the chunks of a level hold, without their places.
    ImageInfo info(std::size_t level) const;

    // Writes the pixels from a chunk's corner on, to the end of chunks or of the picture.
    ChunkSizes write_pixels(std::size_t level, std::int64_t x, std::int64_t y, std::int32_t width, std::int32_t height,
                            const ConstRows& rows) const;

    // A chunk; all 0 where it has no file, which is told by false.
    bool read_chunk(std::size_t level, std::int64_t row, std::int64_t column, Chunk& chunk) const;

    // Whether this plan's tile is there as a whole.
    bool has_tile(std::int64_t tile) const;
    void mark_tile(std::int64_t tile, const ChunkSizes& chunks) const;

    // The first tile that is not marked; -1 where none is missing.
    std::int64_t first_missing_tile() const;

    // Forgets all levels but the full picture, until publish_levels only in this object.
    void drop_levels() { arrays_.resize(1); }

    // Begins a level behind those that there are, half as large as the last one; it belongs to the picture when
    // publish_levels has been called.
    void add_level();
    void publish_levels() const;

private:
    ZarrStore(std::string target, std::filesystem::path folder) : target_(std::move(target)), folder_(std::move(folder))
    {
    }
    void make_folder(const std::filesystem::path& folder) const;
    std::string name_of(const std::filesystem::path& place) const;
    void write_file(const std::filesystem::path& place, const void* data, std::size_t bytes) const;
    void write_text(const std::filesystem::path& place, const std::string& text) const;
    std::string attributes() const;
    void check_place() const;
    bool goes_on() const;
    std::filesystem::path mark_of(std::int64_t tile) const;
    std::uint64_t write_chunk(std::size_t level, const std::string& name, const Chunk& chunk) const;

    std::string target_; // for messages
    std::filesystem::path folder_;
    StorePicture picture_;
    std::vector<ZarrArray> arrays_;
};

} // namespace panoval::image
