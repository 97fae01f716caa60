// SPDX-License-Identifier: MIT
// Tiles of any size against whole canvases: the literal composite, and the library's blenders fed by hand.
#include "mosaic/tiles/tile_blender.h"

#include "core/containers.h"
#include "panoval.h"
#include "tests/mosaic/random_layout.h"
#include "tests/reference/composite_blend.h"
#include "tests/support/failing_heap.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <random>

namespace panoval::mosaic::test
{

namespace
{

using Samples = std::vector<std::uint16_t>;

// The canvas from tiles of this size.
Samples blend_tiles(const TileBlender& blender, const Layout& layout, int bits, std::int64_t width, std::int64_t height,
                    std::vector<std::uint8_t>* coverage = nullptr)
{
    const auto n = static_cast<std::size_t>(layout.channels);
    const auto stride = static_cast<std::size_t>(layout.width);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(layout.height) * stride * n * 2);
    const std::size_t pixel = n * static_cast<std::size_t>(bits / 8);
    if (coverage != nullptr)
        coverage->assign(static_cast<std::size_t>(layout.height) * stride, 77);
    for (std::int64_t y = 0; y < layout.height; y += height)
        for (std::int64_t x = 0; x < layout.width; x += width) {
            const Rect tile{x, y, std::min(width, layout.width - x), std::min(height, layout.height - y)};
            const std::size_t at = static_cast<std::size_t>(y) * stride + static_cast<std::size_t>(x);
            blender.blend(tile, bytes.data() + at * pixel, stride * pixel,
                          coverage != nullptr ? coverage->data() + at : nullptr, stride);
        }
    Samples samples(static_cast<std::size_t>(layout.height) * stride * n);
    if (bits == 16)
        std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    else
        std::copy_n(bytes.begin(), samples.size(), samples.begin());
    return samples;
}

Corrections random_corrections(std::uint32_t seed, const Layout& layout)
{
    std::mt19937 random(seed);
    Corrections corrections = Corrections::none(layout);
    if (seed % 3 == 0)
        return corrections;
    for (ChannelGains& gains : corrections.gains) {
        const double gain = 0.6 + 0.01 * static_cast<double>(random() % 80);
        for (double& channel : gains)
            channel = seed % 3 == 1 ? gain : 0.6 + 0.01 * static_cast<double>(random() % 80);
    }
    if (seed % 5 == 0)
        corrections.falloff.c = {-0.3, 0.05, 0.01};
    return corrections;
}

void expect_twin(std::uint32_t seed, int bands, const std::vector<std::int64_t>& tile_sizes)
{
    const auto owned = random_panorama(seed);
    MemoryReader& reader = *owned;
    const Layout& layout = reader.layout;
    const std::vector<std::int32_t> labels = nearest_middle(reader);
    const SeamMap seams = seam_map_of(labels, layout.width);
    const Corrections corrections = random_corrections(seed, layout);
    const auto expected = reference::composite_blend(layout, corrections, labels, reader, bands);
    const TileBlender blender(layout, corrections, &seams, {BlendMode::MultiBand, bands, layout.bits}, reader);
    for (const std::int64_t size : tile_sizes)
        EXPECT_EQ(blend_tiles(blender, layout, layout.bits, size, size), expected)
            << "seed " << seed << ", bands " << bands << ", tiles of " << size;
}

TEST(TileBlender, EqualsItsTwinOnEveryTarget)
{
    panoval::test::for_each_target([] {
        for (std::uint32_t seed = 0; seed < 6; ++seed)
            expect_twin(seed, 1 + static_cast<int>(seed % 3), {64});
    });
}

TEST(TileBlender, EqualsItsTwinForTilesOfAnySize)
{
    for (std::uint32_t seed = 6; seed < 14; ++seed)
        expect_twin(seed, 1 + static_cast<int>(seed % 4), {1000, 64, 37});
}

TEST(TileBlender, TilesOfOnePixelGiveTheSamePixels)
{
    const auto owned = random_panorama(4);
    MemoryReader& reader = *owned;
    const SeamMap seams = seam_map_of(nearest_middle(reader), reader.layout.width);
    const Corrections corrections = random_corrections(1, reader.layout);
    for (const SeamMap* const map : {&seams, static_cast<const SeamMap*>(nullptr)}) {
        const TileBlender blender(reader.layout, corrections, map, {BlendMode::MultiBand, 3, 8}, reader);
        EXPECT_EQ(blend_tiles(blender, reader.layout, 8, 1, 1), blend_tiles(blender, reader.layout, 8, 500, 7));
    }
}

// Pictures cut from one scene.
std::unique_ptr<MemoryReader> cuts_of_one_scene(std::uint32_t seed, int bits)
{
    std::unique_ptr<MemoryReader> owned = random_panorama(seed);
    MemoryReader& reader = *owned;
    std::mt19937 random(seed);
    const auto scene = noise_picture(random, reader.layout.width, reader.layout.height, reader.layout.channels, bits);
    reader.layout.bits = bits;
    for (std::size_t k = 0; k < reader.pictures.size(); ++k) {
        const Rect& rect = reader.layout.pictures[k].rect;
        MemoryPicture& picture = reader.pictures[k];
        picture.bits = bits;
        for (std::int64_t y = 0; y < rect.height; ++y)
            for (std::int64_t x = 0; x < rect.width; ++x)
                for (int c = 0; c < picture.channels; ++c)
                    picture.at(x, y, c) = scene.at(rect.x + x, rect.y + y, c);
    }
    return owned;
}

std::uint8_t mask_of_owner(const MemoryReader& reader, const std::vector<std::int32_t>& labels, std::size_t pixel)
{
    if (labels[pixel] == kNobody)
        return 0;
    const auto owner = static_cast<std::size_t>(labels[pixel]);
    const Rect& rect = reader.layout.pictures[owner].rect;
    const auto at = static_cast<std::int64_t>(pixel);
    return reader.pictures[owner].mask_at(at % reader.layout.width - rect.x, at / reader.layout.width - rect.y);
}

TEST(TileBlender, PicturesThatAgreeComeOutAsTheyAre)
{
    for (std::uint32_t seed = 0; seed < 12; ++seed)
        for (const int bits : {8, 16}) {
            const auto owned = cuts_of_one_scene(seed, bits);
            MemoryReader& reader = *owned;
            std::mt19937 random(seed);
            const auto scene =
                noise_picture(random, reader.layout.width, reader.layout.height, reader.layout.channels, bits);
            const std::vector<std::int32_t> labels = nearest_middle(reader);
            const SeamMap seams = seam_map_of(labels, reader.layout.width);
            const Corrections none = Corrections::none(reader.layout);
            const TileBlender blender(reader.layout, none, &seams,
                                      {BlendMode::MultiBand, 1 + static_cast<int>(seed % 7), bits}, reader);
            std::vector<std::uint8_t> coverage;
            const Samples panorama = blend_tiles(blender, reader.layout, bits, 50, 50, &coverage);
            for (std::size_t i = 0; i < panorama.size(); ++i) {
                const std::size_t pixel = i / static_cast<std::size_t>(reader.layout.channels);
                ASSERT_EQ(panorama[i], labels[pixel] == kNobody ? 0 : scene.samples[i]) << "seed " << seed;
                ASSERT_EQ(coverage[pixel], mask_of_owner(reader, labels, pixel)) << "seed " << seed;
            }
        }
}

TEST(TileBlender, AStepOfBrightnessBecomesARamp)
{
    MemoryReader reader(256, 16);
    for (const int k : {0, 1}) {
        MemoryPicture picture = MemoryPicture::blank(192, 16, 1, 8);
        std::fill(picture.samples.begin(), picture.samples.end(), static_cast<std::uint16_t>(k == 0 ? 100 : 140));
        reader.add(64 * k, 0, std::move(picture));
    }
    const SeamMap seams = seam_map_of(nearest_middle(reader), 256);
    const Corrections none = Corrections::none(reader.layout);
    const TileBlender blender(reader.layout, none, &seams, {BlendMode::MultiBand, 4, 8}, reader);
    const Samples row = blend_tiles(blender, reader.layout, 8, 256, 16);
    EXPECT_EQ(row[0], 100);
    EXPECT_EQ(row[255], 140);
    EXPECT_NEAR(row[127], 120, 4);
    for (std::size_t x = 1; x < 256; ++x) {
        EXPECT_GE(row[x], row[x - 1]) << x;
        EXPECT_LE(row[x] - row[x - 1], 3) << x;
    }
}

TEST(TileBlender, RoundTheHorizonTheEdgesMeet)
{
    MemoryReader reader(200, 8, true); // one picture across the edge, one in the middle
    for (const int k : {0, 1}) {
        MemoryPicture picture = MemoryPicture::blank(120, 8, 1, 8);
        std::fill(picture.samples.begin(), picture.samples.end(), static_cast<std::uint16_t>(k == 0 ? 100 : 140));
        reader.add(k == 0 ? 40 : 140, 0, std::move(picture));
    }
    SeamMap seams(200);
    for (int y = 0; y < 8; ++y)
        seams.add_row(std::vector<SeamMap::Run>{{50, 1}, {150, 0}, {200, 1}});
    const Corrections none = Corrections::none(reader.layout);
    const TileBlender blender(reader.layout, none, &seams, {BlendMode::MultiBand, 3, 8}, reader);
    for (const std::int64_t width : {200, 30}) {
        const Samples row = blend_tiles(blender, reader.layout, 8, width, 8);
        EXPECT_EQ(row[0], 140);
        EXPECT_EQ(row[199], 140);
        EXPECT_EQ(row[100], 100);
        EXPECT_NEAR(row[50], 120, 6);
        EXPECT_NEAR(row[149], 120, 6);
    }
}

TEST(TileBlender, AnotherDepthScalesBy257)
{
    const auto owned = cuts_of_one_scene(3, 8);
    MemoryReader& reader = *owned;
    const std::vector<std::int32_t> labels = nearest_middle(reader);
    const SeamMap seams = seam_map_of(labels, reader.layout.width);
    const Corrections none = Corrections::none(reader.layout);
    const TileBlender narrow(reader.layout, none, &seams, {BlendMode::MultiBand, 4, 8}, reader);
    const TileBlender wide(reader.layout, none, &seams, {BlendMode::MultiBand, 4, 16}, reader);
    const Samples bytes = blend_tiles(narrow, reader.layout, 8, 40, 40);
    const Samples words = blend_tiles(wide, reader.layout, 16, 40, 40);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        ASSERT_EQ(words[i], bytes[i] * 257) << i;
}

// ------------------------------------------------------------------------------------------ the library's blenders
// ----

// A picture as it is fed by hand.
struct Fed {
    std::vector<std::uint8_t> bytes;
    std::vector<std::uint8_t> mask;
    Mat mat{};
    Matb matb{};
};

// Colours go on behind the mask: along each row, then from the nearest row that has some.
template <class Sample>
void fill_behind_mask(Sample* samples, const std::vector<std::uint8_t>& mask, std::int64_t width, std::int64_t height,
                      std::int64_t channels)
{
    std::vector<std::int64_t> filled;
    for (std::int64_t y = 0; y < height; ++y) {
        const std::uint8_t* const row_mask = mask.data() + y * width;
        Sample* const row = samples + y * width * channels;
        if (std::count(row_mask, row_mask + width, 0) == width)
            continue;
        filled.push_back(y);
        for (std::int64_t x = 0; x < width; ++x) {
            if (row_mask[x] != 0)
                continue;
            std::int64_t left = x, right = x;
            while (left >= 0 && row_mask[left] == 0)
                --left;
            while (right < width && row_mask[right] == 0)
                ++right;
            for (std::int64_t c = 0; c < channels; ++c) {
                const std::int64_t a = row[(left >= 0 ? left : right) * channels + c];
                const std::int64_t b = right < width ? row[right * channels + c] : a;
                const std::int64_t steps = right - left, step = x - left;
                row[x * channels + c] = static_cast<Sample>((a * (steps - step) + b * step) / steps);
            }
        }
    }
    for (std::int64_t y = 0; y < height && !filled.empty(); ++y) {
        std::int64_t best = filled[0];
        for (const std::int64_t row : filled)
            if (std::abs(row - y) < std::abs(best - y))
                best = row;
        if (best != y)
            std::copy_n(samples + best * width * channels, width * channels, samples + y * width * channels);
    }
}

Fed feed_of(const MemoryPicture& picture, double gain, bool fills)
{
    Fed fed;
    const std::size_t bytes = static_cast<std::size_t>(picture.bits / 8);
    fed.bytes.resize(picture.samples.size() * bytes);
    if (bytes == 2)
        std::memcpy(fed.bytes.data(), picture.samples.data(), fed.bytes.size());
    else
        std::copy(picture.samples.begin(), picture.samples.end(), fed.bytes.begin());
    const auto width = static_cast<std::int32_t>(picture.width);
    const auto height = static_cast<std::int32_t>(picture.height);
    fed.mask = picture.mask;
    if (fed.mask.empty())
        fed.mask.assign(static_cast<std::size_t>(picture.width * picture.height), 255);
    fed.mat = {width,
               height,
               picture.channels,
               static_cast<std::int32_t>(bytes),
               static_cast<std::int32_t>(fed.bytes.size()),
               static_cast<std::int32_t>(fed.bytes.size()),
               fed.bytes.data()};
    fed.matb = {width, height, 1, fed.mask.data()};
    GainCompensator record{};
    record.gains = {1, 1, 1, &gain};
    gain_compensator_apply(&record, 0, &fed.mat);
    if (fills && bytes == 1)
        fill_behind_mask(fed.bytes.data(), fed.mask, width, height, picture.channels);
    else if (fills)
        fill_behind_mask(reinterpret_cast<std::uint16_t*>(fed.bytes.data()), fed.mask, width, height, picture.channels);
    return fed;
}

Samples samples_of(Mat& mat)
{
    const auto count = static_cast<std::size_t>(mat.width) * static_cast<std::size_t>(mat.height) *
                       static_cast<std::size_t>(mat.channels);
    Samples samples(count);
    if (mat.elemSize == 2)
        std::memcpy(samples.data(), mat.data, count * 2);
    else
        std::copy_n(mat.data, count, samples.begin());
    MatDestroy(&mat);
    return samples;
}

Samples fed_by_hand(const MemoryReader& reader, const Corrections& corrections, BlendMode mode, int bands)
{
    const Layout& layout = reader.layout;
    Roi canvas{0, 0, static_cast<std::int32_t>(layout.width), static_cast<std::int32_t>(layout.height)};
    MultiBandBlender multi{};
    FeatherBlender feather{};
    if (mode == BlendMode::MultiBand) {
        multi_band_blender_setbands(&multi, bands);
        multi_band_blender_prepare(&multi, layout.channels, &canvas);
    } else {
        feather_blender_prepare(&feather, layout.channels, &canvas);
    }
    for (std::size_t k = 0; k < reader.pictures.size(); ++k) {
        Fed fed = feed_of(reader.pictures[k], corrections.gains[k][0], mode == BlendMode::MultiBand);
        const Point corner{static_cast<std::int32_t>(layout.pictures[k].rect.x),
                           static_cast<std::int32_t>(layout.pictures[k].rect.y)};
        if (mode == BlendMode::MultiBand)
            multi_band_blender_feed(&multi, &fed.mat, &fed.matb, corner);
        else
            feather_blender_feed(&feather, &fed.mat, &fed.matb, corner);
    }
    Mat panorama{};
    if (mode == BlendMode::MultiBand)
        multi_band_blender_blend(&multi, &panorama, layout.bits / 8);
    else
        feather_blender_blend(&feather, &panorama, layout.bits / 8);
    return samples_of(panorama);
}

TEST(TileBlender, WithoutSeamsTilesAreTheLibrarysPanorama)
{
    panoval::test::for_each_target([] {
        for (std::uint32_t seed = 0; seed < 40; ++seed) {
            const auto owned = random_panorama(seed);
            MemoryReader& reader = *owned;
            Corrections corrections = Corrections::none(reader.layout);
            for (std::size_t k = 0; k < corrections.gains.size() && seed % 2 == 1; ++k)
                corrections.gains[k].fill(0.7 + 0.13 * static_cast<double>(k));
            const int bands = 1 + static_cast<int>(seed % 7);
            for (const BlendMode mode : {BlendMode::MultiBand, BlendMode::Feather}) {
                const Samples expected = fed_by_hand(reader, corrections, mode, bands);
                const TileBlender blender(reader.layout, corrections, nullptr, {mode, bands, reader.layout.bits},
                                          reader);
                for (const std::int64_t size : {1000, 29})
                    ASSERT_EQ(blend_tiles(blender, reader.layout, reader.layout.bits, size, size + 3), expected)
                        << "seed " << seed << ", mode " << static_cast<int>(mode) << ", tiles of " << size;
            }
        }
    });
}

TEST(TileBlender, WithoutSeamsAnotherDepthScalesBy257)
{
    for (const BlendMode mode : {BlendMode::MultiBand, BlendMode::Feather})
        for (const int bits : {8, 16}) {
            const auto owned = cuts_of_one_scene(3, bits);
            MemoryReader& reader = *owned;
            const Corrections none = Corrections::none(reader.layout);
            const TileBlender narrow(reader.layout, none, nullptr, {mode, 4, 8}, reader);
            const TileBlender wide(reader.layout, none, nullptr, {mode, 4, 16}, reader);
            const Samples bytes = blend_tiles(narrow, reader.layout, 8, 40, 40);
            const Samples words = blend_tiles(wide, reader.layout, 16, 40, 40);
            for (std::size_t i = 0; i < bytes.size(); ++i) {
                ASSERT_EQ(bytes[i], (words[i] + 128) / 257) << i;
                ASSERT_TRUE(bits == 16 || words[i] == bytes[i] * 257) << i;
            }
        }
}

// The middle and the corner of one picture that feathering gives back as it is corrected, and their distance from what
// bands make of it; of 16 bits the blenders lose one to their epsilon.
TEST(TileBlender, WithoutSeamsPicturesAreCorrectedChannelByChannel)
{
    for (const bool has_mask : {false, true})
        for (const int bits : {8, 16}) {
            MemoryReader reader(41, 31);
            MemoryPicture picture = MemoryPicture::blank(41, 31, 3, bits);
            const int scale = bits == 8 ? 1 : 257;
            std::fill(picture.samples.begin(), picture.samples.end(), static_cast<std::uint16_t>(70 * scale));
            if (has_mask)
                picture.mask.assign(41 * 31, 255);
            reader.add(0, 0, std::move(picture));
            Corrections corrections = Corrections::none(reader.layout);
            corrections.gains[0] = {1, 2, 0.5, 1};
            corrections.falloff.c = {-0.3, 0, 0};
            for (const BlendMode mode : {BlendMode::Feather, BlendMode::MultiBand}) {
                const TileBlender blender(reader.layout, corrections, nullptr, {mode, 2, bits}, reader);
                const Samples samples = blend_tiles(blender, reader.layout, bits, 41, 31);
                const int off = mode == BlendMode::Feather && bits == 8 ? 0 : 1;
                const std::size_t middle = 3 * (15 * 41 + 20);
                for (const auto& [at, level] :
                     {std::pair(middle, 70), std::pair(middle + 1, 140), std::pair(middle + 2, 35),
                      std::pair(std::size_t{0}, 100), std::pair(std::size_t{1}, 200), std::pair(std::size_t{2}, 50)})
                    EXPECT_NEAR(samples[at], level * scale, off) << at;
            }
        }
}

// The most bytes that blending took, reading included.
std::size_t taken(const TileBlender& blender, const Layout& layout, const Rect& tile)
{
    const auto row = static_cast<std::size_t>(tile.width * layout.pixel_bytes());
    std::vector<std::uint8_t> samples(row * static_cast<std::size_t>(tile.height));
    std::vector<std::uint8_t> coverage(static_cast<std::size_t>(tile.pixels()));
    const panoval::test::FailingHeap heap(panoval::test::FailingHeap::kNever, false, true);
    blender.blend(tile, samples.data(), row, coverage.data(), static_cast<std::size_t>(tile.width));
    return heap.peak_bytes();
}

// Two pictures of 900 x 700 pixels on a canvas of 1300 x 800.
std::unique_ptr<MemoryReader> two_of_a_kind(int channels, int bits, bool has_masks)
{
    auto reader = std::make_unique<MemoryReader>(1300, 800);
    for (const std::int64_t at : {0, 100}) {
        MemoryPicture picture = MemoryPicture::blank(900, 700, channels, bits);
        if (has_masks)
            picture.mask.assign(900 * 700, 255);
        reader->add(4 * at, at, std::move(picture));
    }
    return reader;
}

TEST(TileBlender, WithoutSeamsTakesTheMemoryThatItSays)
{
    for (const bool has_masks : {false, true})
        for (const auto& [channels, bits] : {std::pair{1, 8}, std::pair{3, 8}, std::pair{4, 16}}) {
            const auto reader = two_of_a_kind(channels, bits, has_masks);
            const Corrections none = Corrections::none(reader->layout);
            for (const int bands : {1, 4, 7})
                for (const Rect& tile : {Rect{500, 300, 16, 16}, Rect{450, 200, 333, 256}, Rect{0, 300, 1300, 16},
                                         Rect{600, 0, 16, 800}, Rect{0, 0, 1300, 800}}) {
                    const TileBlender blender(reader->layout, none, nullptr, {BlendMode::MultiBand, bands, bits},
                                              *reader);
                    const std::size_t said = blender.scratch_bytes(tile.width, tile.height);
                    const std::size_t used = taken(blender, reader->layout, tile);
                    EXPECT_LE(used, said + said / 20 + 20000) << bands << " bands, " << channels << " x " << bits;
                    EXPECT_GE(used, said / 2) << bands << " bands, " << channels << " x " << bits;
                }
        }
}

// A little is taken whatever the size.
constexpr std::size_t kLittle = 20000;

// Wherever the tile lies it takes no more than that, and at the least fortunate place not much less.
void expect_taken_as_said(const MemoryReader& reader, const std::function<std::unique_ptr<TileBlender>()>& new_blender,
                          std::int64_t width, std::int64_t height)
{
    const Layout& layout = reader.layout;
    std::size_t said = 0;
    std::size_t most = 0;
    for (const auto& [x, y] : {std::pair{0, 0}, std::pair{201, 103}, std::pair{435, 275}, std::pair{800, 500}}) {
        const auto blender = new_blender(); // has no memory of earlier tiles
        const Rect tile{std::min<std::int64_t>(x, layout.width - width),
                        std::min<std::int64_t>(y, layout.height - height), width, height};
        said = blender->scratch_bytes(width, height);
        const std::size_t used = taken(*blender, layout, tile);
        EXPECT_LE(used, said + kLittle) << "at " << tile.x << ", " << tile.y;
        most = std::max(most, used);
    }
    EXPECT_LE(said, most + 3 * most / 10 + kLittle);
}

// Two pictures on all of the canvas, of each every other stripe across it, and gaps between: seams and outlines are
// everywhere.
TEST(TileBlender, WithSeamsTakesTheMemoryThatItSays)
{
    constexpr std::int64_t kWidth = 1300;
    constexpr std::int64_t kHeight = 800;
    std::vector<std::int32_t> labels;
    for (std::int64_t y = 0; y < kHeight; ++y)
        for (std::int64_t x = 0; x < kWidth; ++x)
            labels.push_back((x + y) % 150 < 3 ? kNobody : static_cast<std::int32_t>((x + y) / 150 % 2));
    const SeamMap seams = seam_map_of(labels, kWidth);
    for (const bool has_falloff : {false, true})
        for (const auto& [channels, bits] : {std::pair{1, 8}, std::pair{3, 8}, std::pair{4, 16}}) {
            MemoryReader reader(kWidth, kHeight);
            for (int i = 0; i < 2; ++i)
                reader.add(0, 0, MemoryPicture::blank(kWidth, kHeight, channels, bits));
            Corrections corrections = Corrections::none(reader.layout);
            if (has_falloff)
                corrections.falloff.c = {-0.3, 0.05, 0.01};
            for (const int bands : {1, 4, 6})
                for (const auto& [width, height] : {std::pair{16, 16}, std::pair{333, 256}, std::pair{1300, 16},
                                                    std::pair{16, 800}, std::pair{1300, 800}}) {
                    SCOPED_TRACE(testing::Message() << bands << " bands, " << channels << " x " << bits << ", " << width
                                                    << " x " << height);
                    const BlendOptions options{BlendMode::MultiBand, bands, bits};
                    const auto new_blender = [&] {
                        return std::make_unique<TileBlender>(reader.layout, corrections, &seams, options, reader);
                    };
                    expect_taken_as_said(reader, new_blender, width, height);
                }
        }
}

TEST(TileBlender, FeatheringTakesTheMemoryThatItSays)
{
    for (const bool has_masks : {false, true})
        for (const auto& [channels, bits] : {std::pair{1, 8}, std::pair{3, 8}, std::pair{4, 16}}) {
            const auto reader = two_of_a_kind(channels, bits, has_masks);
            const Corrections none = Corrections::none(reader->layout);
            const BlendOptions options{BlendMode::Feather, 5, bits};
            const auto new_blender = [&] {
                return std::make_unique<TileBlender>(reader->layout, none, nullptr, options, *reader);
            };
            for (const auto& [width, height] : {std::pair{16, 16}, std::pair{333, 256}, std::pair{1300, 16},
                                                std::pair{16, 800}, std::pair{1300, 800}}) {
                SCOPED_TRACE(testing::Message() << channels << " x " << bits << ", " << width << " x " << height);
                expect_taken_as_said(*reader, new_blender, width, height);
            }
        }
}

// Whoever hands a task the pictures and seams around its tile counts on that.
TEST(TileBlender, LooksNoFartherThanItSays)
{
    std::mt19937 random(11);
    for (int bands = 1; bands <= 14; ++bands)
        for (int i = 0; i < 300; ++i) {
            const auto number = [&](std::uint32_t most) { return static_cast<std::int64_t>(random() % most); };
            const Rect tile{number(100000) - 500, number(100000) - 500, 1 + number(3000), 1 + number(3000)};
            const Rect reach = composite_reach(tile, bands);
            const std::int64_t most = farthest_reach(bands);
            EXPECT_GE(reach.x, tile.x - most) << bands;
            EXPECT_GE(reach.y, tile.y - most) << bands;
            EXPECT_LE(reach.right(), tile.right() + most) << bands;
            EXPECT_LE(reach.bottom(), tile.bottom() + most) << bands;
        }
}

// A picture, and a tile of 8 x 8 pixels so many columns to the right of it.
bool reads_picture_beside(int bands, std::int64_t gap)
{
    MemoryReader reader(4000, 64);
    reader.add(0, 0, MemoryPicture::blank(1024, 64, 1, 8));
    const Corrections none = Corrections::none(reader.layout);
    const TileBlender blender(reader.layout, none, nullptr, {BlendMode::MultiBand, bands, 8}, reader);
    std::uint8_t samples[8 * 8];
    blender.blend({1024 + gap, 20, 8, 8}, samples, 8, nullptr, 0);
    return reader.pixels_read > 0;
}

TEST(TileBlender, WithoutSeamsReadsNoPictureFartherThanItSays)
{
    for (int bands = 1; bands <= 6; ++bands) {
        EXPECT_TRUE(reads_picture_beside(bands, 0)) << bands;
        EXPECT_FALSE(reads_picture_beside(bands, farthest_reach(bands))) << bands;
    }
}

} // namespace

} // namespace panoval::mosaic::test
