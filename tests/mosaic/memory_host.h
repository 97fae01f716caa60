// SPDX-License-Identifier: MIT
// A host of the engine's C interface whose pictures are in memory, and short ways to run a panorama.
#pragma once

#include "panoval_mosaic.h"
#include "tests/mosaic/memory_reader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace panoval::mosaic::test
{

// Owns a mosaic.
class Mosaic
{
public:
    Mosaic() { EXPECT_EQ(panoval_mosaic_create(&mosaic_), PANOVAL_MOSAIC_OK); }
    Mosaic(const Mosaic&) = delete;
    Mosaic& operator=(const Mosaic&) = delete;
    ~Mosaic() { panoval_mosaic_destroy(mosaic_); }

    PanovalMosaic* get() const { return mosaic_; }
    std::string error() const
    {
        std::string text(panoval_mosaic_error(mosaic_, nullptr, 0) + 1, '\0');
        panoval_mosaic_error(mosaic_, text.data(), text.size());
        text.pop_back();
        return text;
    }
    PanovalMosaicLayout layout() const
    {
        PanovalMosaicLayout layout{};
        EXPECT_EQ(panoval_mosaic_layout(mosaic_, &layout), PANOVAL_MOSAIC_OK) << error();
        return layout;
    }

private:
    PanovalMosaic* mosaic_ = nullptr;
};

// The panorama as it came out of a mosaic.
struct Panorama {
    std::int64_t width = 0;
    std::int64_t height = 0;
    std::size_t pixel_bytes = 0;
    std::vector<std::uint8_t> samples;
    std::vector<std::uint8_t> coverage;

    explicit Panorama(const PanovalMosaicLayout& layout)
        : width(layout.width), height(layout.height),
          pixel_bytes(static_cast<std::size_t>(layout.channels * layout.bits / 8)),
          samples(static_cast<std::size_t>(width * height) * pixel_bytes, 77),
          coverage(static_cast<std::size_t>(width * height), 77)
    {
    }
    std::size_t index(std::int64_t x, std::int64_t y) const { return static_cast<std::size_t>(y * width + x); }
    void put(const PanovalMosaicRect& rect, const std::uint8_t* from, std::size_t stride, const std::uint8_t* mask,
             std::size_t mask_stride)
    {
        for (std::int64_t y = 0; y < rect.height; ++y) {
            const auto row = static_cast<std::size_t>(y);
            const std::size_t at = index(rect.x, rect.y + y);
            std::memcpy(&samples[at * pixel_bytes], from + row * stride,
                        static_cast<std::size_t>(rect.width) * pixel_bytes);
            if (mask != nullptr)
                std::memcpy(&coverage[at], mask + row * mask_stride, static_cast<std::size_t>(rect.width));
        }
    }
    friend bool operator==(const Panorama&, const Panorama&) = default;
};

class MemoryHost
{
public:
    bool random_access = false;
    std::int64_t failing_picture = -1;
    std::function<bool(int phase, double fraction)> cancels; // may be empty
    std::atomic<int> broken_promises{0};

    explicit MemoryHost(const MemoryReader& reader) : reader_(reader), next_(reader.pictures.size()) {}

    PanovalMosaicHost record() { return {this, &MemoryHost::read_rows, nullptr, &MemoryHost::report}; }

    void add_pictures(PanovalMosaic* mosaic, std::int64_t origin_x = 0, std::int64_t origin_y = 0) const
    {
        for (const PlacedPicture& placed : reader_.layout.pictures) {
            PanovalMosaicPicture picture{};
            picture.x = placed.rect.x + origin_x;
            picture.y = placed.rect.y + origin_y;
            picture.width = static_cast<std::int32_t>(placed.rect.width);
            picture.height = static_cast<std::int32_t>(placed.rect.height);
            picture.channels = reader_.layout.channels;
            picture.bits = reader_.layout.bits;
            picture.has_mask = placed.has_mask ? 1 : 0;
            picture.random_access = random_access ? 1 : 0;
            EXPECT_EQ(panoval_mosaic_add_picture(mosaic, &picture), PANOVAL_MOSAIC_OK);
        }
    }

    // origin: where the canvas's corner lies in the host's frame
    void prepare(const Mosaic& mosaic, const PanovalMosaicOptions& options, std::int64_t origin_x = 0,
                 std::int64_t origin_y = 0)
    {
        const PanovalMosaicHost host = record();
        EXPECT_EQ(panoval_mosaic_set_options(mosaic.get(), &options), PANOVAL_MOSAIC_OK) << mosaic.error();
        EXPECT_EQ(panoval_mosaic_set_host(mosaic.get(), &host), PANOVAL_MOSAIC_OK);
        add_pictures(mosaic.get(), origin_x, origin_y);
    }

private:
    static std::int32_t read_rows(void* user, const PanovalMosaicRows* rows)
    {
        return static_cast<MemoryHost*>(user)->read(*rows);
    }
    static std::int32_t report(void* user, std::int32_t phase, double fraction)
    {
        auto* const host = static_cast<MemoryHost*>(user);
        return host->cancels && host->cancels(phase, fraction) ? 1 : 0;
    }

    std::int32_t read(const PanovalMosaicRows& rows)
    {
        const auto number = static_cast<std::size_t>(rows.picture);
        const MemoryPicture& picture = reader_.pictures[number];
        if (rows.picture == failing_picture) {
            std::strcpy(rows.message, "the card is gone");
            return 5;
        }
        if (rows.first_row < 0 || rows.row_count < 1 || rows.first_row + rows.row_count > picture.height)
            ++broken_promises;
        if (!random_access && rows.first_row != 0 && rows.first_row != next_[number])
            ++broken_promises;
        next_[number] = rows.first_row + rows.row_count;
        if ((rows.mask == nullptr) != picture.mask.empty())
            ++broken_promises;
        for (std::int32_t y = 0; y < rows.row_count; ++y)
            give_row(picture, rows, y);
        return 0;
    }

    static void give_row(const MemoryPicture& picture, const PanovalMosaicRows& rows, std::int32_t y)
    {
        const auto at = static_cast<std::size_t>(y);
        const auto count = static_cast<std::size_t>(picture.width * picture.channels);
        auto* const to = static_cast<std::uint8_t*>(rows.samples) + at * rows.samples_stride;
        const std::uint16_t* const from = picture.samples.data() + picture.index(0, rows.first_row + y);
        if (picture.bits == 16)
            std::memcpy(to, from, 2 * count);
        else
            std::transform(from, from + count, to, [](std::uint16_t v) { return static_cast<std::uint8_t>(v); });
        if (rows.mask != nullptr)
            std::memcpy(rows.mask + at * rows.mask_stride, picture.mask.data() + (rows.first_row + y) * picture.width,
                        static_cast<std::size_t>(picture.width));
    }

    const MemoryReader& reader_;
    std::vector<std::int64_t> next_;
};

// Runs into a panorama. Checks that pieces come in their order and fit the canvas.
class PanoramaSink
{
public:
    PanoramaSink(const PanovalMosaicLayout& layout, bool by_tiles) : panorama(layout), by_tiles_(by_tiles) {}

    Panorama panorama;
    int pieces = 0;
    int failing_piece = -1;

    std::int32_t run(PanovalMosaic* mosaic)
    {
        const PanovalMosaicSink sink = {this, &PanoramaSink::write, by_tiles_ ? 1 : 0, 1, {}};
        return panoval_mosaic_run(mosaic, &sink);
    }

private:
    static std::int32_t write(void* user, const PanovalMosaicRect* rect, const void* samples, std::size_t stride,
                              const std::uint8_t* coverage, std::size_t coverage_stride, char* message)
    {
        auto& sink = *static_cast<PanoramaSink*>(user);
        if (sink.pieces == sink.failing_piece) {
            std::strcpy(message, "the disk is full");
            return 1;
        }
        if (!sink.by_tiles_) {
            EXPECT_EQ(rect->x, 0);
            EXPECT_EQ(rect->y, sink.next_row_);
            EXPECT_EQ(rect->width, sink.panorama.width);
            sink.next_row_ += rect->height;
        }
        ++sink.pieces;
        sink.panorama.put(*rect, static_cast<const std::uint8_t*>(samples), stride, coverage, coverage_stride);
        return 0;
    }

    const bool by_tiles_;
    std::int64_t next_row_ = 0;
};

inline Panorama run(const Mosaic& mosaic, bool by_tiles = false)
{
    PanoramaSink sink(mosaic.layout(), by_tiles);
    EXPECT_EQ(sink.run(mosaic.get()), PANOVAL_MOSAIC_OK) << mosaic.error();
    return std::move(sink.panorama);
}

} // namespace panoval::mosaic::test
