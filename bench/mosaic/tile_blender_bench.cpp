// SPDX-License-Identifier: MIT
#include "mosaic/tiles/tile_blender.h"

#include "bench/support/routine.h"
#include "tests/mosaic/memory_reader.h"
#include "tests/reference/composite_blend.h"
#include "tests/support/noise.h"

#include <memory>
#include <string>
#include <vector>

namespace panoval::bench
{
namespace
{

using namespace mosaic;

// Two pictures side by side that share a quarter, with a seam that wanders.
struct Pair {
    Pair(std::int64_t width, std::int64_t height, int bands, bool with_seams)
        : reader(width * 7 / 4, height), seams(reader.layout.width)
    {
        for (const int k : {0, 1}) {
            auto picture = mosaic::test::MemoryPicture::blank(width, height, 3, 8);
            const auto samples = panoval::test::picture(panoval::test::Content::Photograph, static_cast<int>(3 * width),
                                                        static_cast<int>(height), static_cast<unsigned>(k + 1));
            picture.samples.assign(samples.begin(), samples.end());
            reader.add(k * width * 3 / 4, 0, std::move(picture));
        }
        const auto canvas = static_cast<std::int32_t>(reader.layout.width);
        for (std::int64_t y = 0; y < height; ++y) {
            const auto middle = static_cast<std::int32_t>(canvas / 2 + y / 8 * 37 % (width / 8) - width / 16);
            seams.add_row(std::vector<SeamMap::Run>{{middle, 0}, {canvas, 1}});
            for (std::int32_t x = 0; x < canvas; ++x)
                labels.push_back(x < middle ? 0 : 1);
        }
        corrections = Corrections::none(reader.layout);
        corrections.gains[1] = {1.02, 1.02, 1.02, 1};
        blender = std::make_unique<TileBlender>(reader.layout, corrections, with_seams ? &seams : nullptr,
                                                BlendOptions{BlendMode::MultiBand, bands, 8}, reader);
        const auto samples = static_cast<std::size_t>(canvas * height * 3);
        fast.resize(samples);
    }

    void blend()
    {
        const auto row_bytes = static_cast<std::size_t>(reader.layout.width * 3);
        for (std::int64_t x = 0; x < reader.layout.width; x += 1024) {
            const Rect tile{x, 0, std::min<std::int64_t>(1024, reader.layout.width - x), reader.layout.height};
            blender->blend(tile, fast.data() + 3 * x, row_bytes, nullptr, 0);
        }
    }

    mosaic::test::MemoryReader reader;
    SeamMap seams;
    std::vector<std::int32_t> labels;
    Corrections corrections;
    std::unique_ptr<TileBlender> blender;
    std::vector<std::uint8_t> fast;
    std::vector<std::uint16_t> twin;
};

Case make_case(std::int64_t width, std::int64_t height, int bands, bool with_seams)
{
    const auto pair = std::make_shared<Pair>(width, height, bands, with_seams);
    Case c;
    c.size = std::to_string(pair->reader.layout.width) + "x" + std::to_string(height) + "x3";
    c.content = std::string(with_seams ? "seams" : "whole masks") + "/" + std::to_string(bands);
    c.pixels = static_cast<double>(pair->reader.layout.width * height);
    c.memcpy_bytes = pair->fast.size();
    c.fast = [pair] { pair->blend(); };
    if (with_seams && width <= 400) {
        c.twin = [pair, bands] {
            pair->twin =
                reference::composite_blend(pair->reader.layout, pair->corrections, pair->labels, pair->reader, bands);
        };
        c.same = [pair] { return std::equal(pair->fast.begin(), pair->fast.end(), pair->twin.begin()); };
    }
    return c;
}

const Registration registration([] {
    add_case("blend_tile", [] { return make_case(400, 300, 4, true); });
    add_case("blend_tile", [] { return make_case(3000, 1000, 4, true); });
    add_case("blend_tile", [] { return make_case(3000, 1000, 6, true); });
    add_case("blend_tile", [] { return make_case(3000, 1000, 5, false); });
});

} // namespace
} // namespace panoval::bench
