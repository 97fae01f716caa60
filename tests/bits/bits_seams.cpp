// SPDX-License-Identifier: MIT
// Seams of pictures in memory, whose labels have to be the same everywhere.
#include "tests/bits/bits.h"

#include "mosaic/seams/seam_find.h"
#include "tests/mosaic/memory_reader.h"

namespace panoval::bits
{

namespace
{

using namespace mosaic;
using mosaic::test::MemoryPicture;
using mosaic::test::MemoryReader;

// Three rows of pictures of one scene, each with noise of its own and something that is in no other.
void add_pictures(MemoryReader& reader, int channels, int sample_bits, bool with_masks)
{
    Random random(7);
    for (std::int64_t i = 0; i < 9; ++i) {
        MemoryPicture picture = MemoryPicture::blank(150, 110, channels, sample_bits);
        const std::int64_t x0 = i % 3 * 105;
        const std::int64_t y0 = i / 3 * 70;
        for (std::int64_t y = 0; y < picture.height; ++y)
            for (std::int64_t x = 0; x < picture.width; ++x)
                for (int c = 0; c < channels; ++c) {
                    const std::int64_t u = x0 + x;
                    const std::int64_t v = y0 + y;
                    std::int64_t value = 60 + u % 90 / 2 + v % 37 + (u / 16 + v / 16) % 2 * 40 + random.integer(0, 6);
                    if (x > 10 * i && x < 10 * i + 25 && y > 20 && y < 70)
                        value += 30;
                    picture.at(x, y, c) = static_cast<std::uint16_t>(sample_bits == 8 ? value : 257 * value);
                }
        if (with_masks && i % 2 == 1) {
            picture.mask.assign(static_cast<std::size_t>(picture.width * picture.height), 255);
            for (std::size_t k = 0; k < picture.mask.size(); k += 5)
                picture.mask[k] = k % 150 < 20 + static_cast<std::size_t>(i) ? 0 : 255;
        }
        reader.add(x0, y0, std::move(picture));
    }
}

void add_seams(Digest& digest, SeamMode mode)
{
    for (const int channels : {1, 3})
        for (const int sample_bits : {8, 16})
            for (const bool with_masks : {false, true})
                for (const bool wraps : {false, true}) {
                    MemoryReader reader(wraps ? 330 : 360, 250, wraps);
                    add_pictures(reader, channels, sample_bits, with_masks);
                    Corrections corrections = Corrections::none(reader.layout);
                    corrections.gains[4] = {1.07, 0.93, 1.01, 1};
                    corrections.falloff.c = {-0.05, -0.02, 0};
                    NoProgress progress;
                    SeamOptions options;
                    options.mode = mode;
                    const SeamMap map =
                        find_seams(reader.layout, find_overlaps(reader.layout), corrections, reader, options, progress);
                    std::vector<std::int32_t> row(static_cast<std::size_t>(map.width()));
                    for (std::int64_t y = 0; y < map.height(); ++y) {
                        map.read(y, 0, map.width(), wraps, row.data());
                        digest.add(row);
                    }
                }
}

void nearest_seams(Digest& digest)
{
    add_seams(digest, SeamMode::Nearest);
}

void optimal_seams(Digest& digest)
{
    add_seams(digest, SeamMode::Optimal);
}

} // namespace

std::vector<Section> seam_sections()
{
    return {{"seams, nearest", nearest_seams}, {"seams, optimal", optimal_seams}};
}

} // namespace panoval::bits
