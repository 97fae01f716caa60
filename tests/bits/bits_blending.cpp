// SPDX-License-Identifier: MIT
// Gain compensation, both blenders and inpainting.
#include "tests/bits/bits_records.h"

namespace panoval::bits
{

namespace
{

// A row of overlapping pictures, each a little lower than the last.
struct Row {
    std::vector<Point> corners;
    std::vector<Image> images;
    std::vector<Owned<Matb>> masks;

    Row(int n, Kind kind, int channels, int bytes)
    {
        for (int i = 0; i < n; ++i) {
            const auto seed = static_cast<std::uint64_t>(i);
            const int width = 60 + i % 7;
            const int height = 45 + i % 5;
            corners.push_back({i * 21 - 9, i % 3 * 5 - 4});
            images.emplace_back(kind, width, height, channels, bytes, seed);
            masks.push_back(mask(width, height, seed));
        }
    }

    int size() const { return static_cast<int>(corners.size()); }
    Roi canvas() const { return {-12, -6, 21 * size() + 50, 63}; }
};

template <class Record>
std::vector<Record> records(const auto& owned)
{
    std::vector<Record> list;
    for (const auto& each : owned)
        list.push_back(*each.get());
    return list;
}

void apply_gains(Digest& digest, const GainCompensator& compensator, Row& row)
{
    digest.add(compensator.gains.data, count_of(compensator.gains.width, 1, 1));
    for (int i = 0; i < row.size(); ++i) {
        gain_compensator_apply(&compensator, i, row.images[static_cast<std::size_t>(i)].get());
        row.images[static_cast<std::size_t>(i)].add_to(digest);
    }
}

void gains_at_once(Digest& digest)
{
    for (const int n : {1, 2, 3, 5, 9, 24})
        for (const Kind kind : {Kind::Smooth, Kind::Noise, Kind::White, Kind::Black})
            for (const int bytes : {1, 2}) {
                Row row(n, kind, n % 2 == 0 ? 1 : 3, bytes);
                const auto images = records<Mat>(row.images);
                const auto masks = records<Matb>(row.masks);
                GainCompensator compensator = {};
                gain_compensator_init(&compensator, n, row.corners.data(), images.data(), masks.data());
                apply_gains(digest, compensator, row);
                gain_compensator_free(&compensator);
            }
}

void gains_pair_by_pair(Digest& digest)
{
    for (const int n : {1, 2, 3, 6, 13, 25})
        for (const Kind kind : {Kind::Smooth, Kind::Noise}) {
            Row row(n, kind, 3, 1 + n % 2);
            GainCompensator compensator = {};
            gain_compensator_init_start(&compensator, n);
            for (int i = 0; i < n; ++i)
                for (int j = i; j < n; ++j) {
                    const auto a = static_cast<std::size_t>(i);
                    const auto b = static_cast<std::size_t>(j);
                    gain_compensator_init_step(&compensator, i, j, row.corners[a], row.images[a].get(),
                                               row.masks[a].get(), row.corners[b], row.images[b].get(),
                                               row.masks[b].get());
                }
            digest.add(compensator.counts.data, count_of(n, n, 1));
            digest.add(compensator.intensities.data, count_of(n, n, 1));
            gain_compensator_init_end(&compensator);
            apply_gains(digest, compensator, row);
            gain_compensator_free(&compensator);
        }
}

void feather(Digest& digest)
{
    for (const Kind kind : kKinds)
        for (const int channels : {1, 3, 4})
            for (const int bytes : {1, 2}) {
                const Row row(4, kind, channels, bytes);
                const Roi canvas = row.canvas();
                FeatherBlender blender = {};
                feather_blender_prepare(&blender, channels, &canvas);
                for (std::size_t i = 0; i < row.corners.size(); ++i)
                    feather_blender_feed(&blender, row.images[i].get(), row.masks[i].get(), row.corners[i]);
                Image panorama;
                feather_blender_blend(&blender, panorama.get(), bytes);
                panorama.add_to(digest);
            }
}

void multi_band(Digest& digest)
{
    for (const Kind kind : kKinds)
        for (const int channels : {1, 3, 4})
            for (const int bytes : {1, 2})
                for (const int bands : {1, 2, 5}) {
                    const Row row(4, kind, channels, bytes);
                    Roi canvas = row.canvas();
                    MultiBandBlender blender = {};
                    multi_band_blender_setbands(&blender, bands);
                    multi_band_blender_prepare(&blender, channels, &canvas);
                    digest.add(blender.numBands);
                    for (std::size_t i = 0; i < row.corners.size(); ++i)
                        multi_band_blender_feed(&blender, row.images[i].get(), row.masks[i].get(), row.corners[i]);
                    Image panorama;
                    multi_band_blender_blend(&blender, panorama.get(), bytes);
                    panorama.add_to(digest);
                }
}

// Random blocks, some of them at the border.
Image damage(int width, int height, int channels, std::uint64_t seed)
{
    Image marks(Kind::Black, width, height, channels, 1, 0);
    Random random(seed);
    for (int block = 0; block < 4; ++block) {
        const auto left = static_cast<int>(random.integer(-3, width - 4));
        const auto top = static_cast<int>(random.integer(-3, height - 4));
        for (int y = top < 0 ? 0 : top; y < top + 9 && y < height; ++y)
            for (int x = left < 0 ? 0 : left; x < left + 7 && x < width; ++x)
                marks.get()->data[count_of(y, width, channels) + count_of(x, channels, 1)] = 255;
    }
    return marks;
}

void inpainting(Digest& digest)
{
    for (const Kind kind : kKinds)
        for (const Shape& shape : kShapes)
            for (const int range : {0, 1, 3, 5, 10}) {
                Image image(kind, shape.width, shape.height, 3, 1, 4);
                Image marks = damage(shape.width, shape.height, range == 3 ? 3 : 1, static_cast<std::uint64_t>(range));
                inpaint(image.get(), marks.get(), range);
                image.add_to(digest);
                marks.add_to(digest);
            }
}

} // namespace

std::vector<Section> blending_sections()
{
    return {{"gain_compensator_init gain_compensator_apply", gains_at_once},
            {"gain_compensator_init_start gain_compensator_init_step gain_compensator_init_end", gains_pair_by_pair},
            {"feather_blender", feather},
            {"multi_band_blender", multi_band},
            {"inpaint", inpainting}};
}

} // namespace panoval::bits
