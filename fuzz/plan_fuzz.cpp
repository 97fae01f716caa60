// SPDX-License-Identifier: MIT
// Plans of any text into the panorama engine: each is taken, and then saved, loaded and saved again as the same text,
// or refused with a message. A small panorama of a plan that is taken is blended as a whole and by parts.
#include "fuzz/input.h"
#include "panoval_mosaic.h"

#include <string>

namespace
{

using panoval::fuzz::require;

constexpr std::int64_t kMostPixels = 1 << 15; // larger panoramas would take all the time

// Samples that depend on their place alone.
std::int32_t read_rows(void* user, const PanovalMosaicRows* rows)
{
    const auto row_bytes = static_cast<std::size_t>(static_cast<const std::int32_t*>(user)[rows->picture]);
    for (std::int32_t i = 0; i < rows->row_count; ++i) {
        const auto row = static_cast<std::size_t>(i);
        auto* const samples = static_cast<std::uint8_t*>(rows->samples) + row * rows->samples_stride;
        for (std::size_t x = 0; x < row_bytes; ++x)
            samples[x] =
                static_cast<std::uint8_t>(40 + x / 3 % 90 + row % 5 + static_cast<std::size_t>(9 * rows->picture));
    }
    return 0;
}

struct Owned {
    PanovalMosaic* mosaic = nullptr;
    Owned() { require(panoval_mosaic_create(&mosaic) == PANOVAL_MOSAIC_OK); }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() { panoval_mosaic_destroy(mosaic); }
    void require_message() const { require(panoval_mosaic_error(mosaic, nullptr, 0) > 0); }
};

std::string saved(const Owned& owned)
{
    const char* text = nullptr;
    std::size_t size = 0;
    require(panoval_mosaic_save_plan(owned.mosaic, &text, &size) == PANOVAL_MOSAIC_OK);
    return {text, size};
}

void blend(const Owned& owned, const PanovalMosaicLayout& layout)
{
    std::vector<std::int32_t> row_bytes;
    for (std::int64_t i = 0; i < layout.pictures; ++i) {
        PanovalMosaicPicture picture = {};
        require(panoval_mosaic_picture(owned.mosaic, i, &picture) == PANOVAL_MOSAIC_OK);
        if (picture.has_mask != 0 || picture.has_keep != 0 ||
            std::int64_t{picture.width} * picture.height > 4 * kMostPixels)
            return;
        row_bytes.push_back(picture.width * picture.channels * picture.bits / 8);
    }
    const PanovalMosaicHost host = {row_bytes.data(), read_rows, nullptr, nullptr};
    require(panoval_mosaic_set_host(owned.mosaic, &host) == PANOVAL_MOSAIC_OK);
    if (panoval_mosaic_measure(owned.mosaic, PANOVAL_MOSAIC_MEASURE_ALL) != PANOVAL_MOSAIC_OK) {
        owned.require_message();
        return;
    }
    const auto pixel_bytes = static_cast<std::size_t>(layout.channels * layout.bits / 8);
    const std::size_t stride = static_cast<std::size_t>(layout.width) * pixel_bytes;
    const PanovalMosaicRect whole = {0, 0, layout.width, layout.height};
    std::vector<std::uint8_t> at_once(stride * static_cast<std::size_t>(layout.height), 1);
    if (panoval_mosaic_blend(owned.mosaic, &whole, at_once.data(), stride, nullptr, 0) != PANOVAL_MOSAIC_OK) {
        owned.require_message();
        return;
    }
    std::vector<std::uint8_t> by_parts(at_once.size(), 2);
    const std::int64_t middle = layout.height / 3;
    for (const PanovalMosaicRect& part : {PanovalMosaicRect{0, 0, layout.width, middle},
                                          PanovalMosaicRect{0, middle, layout.width, layout.height - middle}})
        if (part.height > 0)
            require(panoval_mosaic_blend(owned.mosaic, &part, &by_parts[static_cast<std::size_t>(part.y) * stride],
                                         stride, nullptr, 0) == PANOVAL_MOSAIC_OK);
    require(at_once == by_parts);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Owned owned;
    const auto* const text = reinterpret_cast<const char*>(data);
    if (panoval_mosaic_load_plan(owned.mosaic, text, size) != PANOVAL_MOSAIC_OK) {
        owned.require_message();
        return 0;
    }
    PanovalMosaicLayout layout = {};
    if (panoval_mosaic_layout(owned.mosaic, &layout) != PANOVAL_MOSAIC_OK) {
        owned.require_message();
        return 0;
    }
    PanovalMosaicEstimate estimate = {};
    (void)panoval_mosaic_estimate(owned.mosaic, &estimate);
    const std::string first = saved(owned);
    const Owned again;
    require(panoval_mosaic_load_plan(again.mosaic, first.data(), first.size()) == PANOVAL_MOSAIC_OK);
    require(saved(again) == first);
    if (layout.width * layout.height <= kMostPixels && layout.pictures <= 8)
        blend(owned, layout);
    return 0;
}
