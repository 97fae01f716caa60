// SPDX-License-Identifier: MIT
// What a panorama of made pictures must be like, from the first row that is read to the last sample that is written:
// nothing is lost where pictures agree, detail stays, exposures and colours meet without a step, and what moved is
// whole or absent.
#include "tests/mosaic/memory_host.h"
#include "tests/mosaic/mosaic_scene.h"

#include <gtest/gtest.h>

#include <cmath>

namespace panoval::mosaic::test
{

namespace
{

constexpr SceneOptions kBright{.mean = 0.3, .contrast = 0.4};

// The panorama's samples in levels of 255.
class Result
{
public:
    Result(const MemoryReader& reader, const PanovalMosaicOptions& options)
        : channels_(reader.layout.channels), panorama_(make(reader, options))
    {
    }

    double at(std::int64_t x, std::int64_t y, int c) const
    {
        const std::size_t pixel = panorama_.index(x, y) * static_cast<std::size_t>(channels_);
        const std::size_t i = pixel + static_cast<std::size_t>(c);
        if (panorama_.pixel_bytes == static_cast<std::size_t>(channels_))
            return panorama_.samples[i];
        std::uint16_t value = 0;
        std::memcpy(&value, &panorama_.samples[2 * i], sizeof value);
        return value / 257.0;
    }
    bool is_covered(std::int64_t x, std::int64_t y) const { return panorama_.coverage[panorama_.index(x, y)] != 0; }

private:
    static Panorama make(const MemoryReader& reader, const PanovalMosaicOptions& options)
    {
        MemoryHost host(reader);
        Mosaic mosaic;
        host.prepare(mosaic, options);
        return run(mosaic);
    }

    int channels_;
    Panorama panorama_;
};

PanovalMosaicOptions with_bands(int bands)
{
    PanovalMosaicOptions options{};
    options.threads = 2;
    options.bands = bands;
    return options;
}

// A way in which pictures lie.
struct Places {
    const char* name;
    std::vector<Rect> rects;
    bool is_ragged = false;
};

std::vector<Places> all_places()
{
    std::vector<Places> all{{"a row", {{0, 0, 150, 120}, {100, 9, 150, 111}, {200, 0, 140, 115}}},
                            {"overlaps of 10 pixels", {{0, 0, 100, 90}, {90, 0, 100, 90}, {180, 0, 100, 90}}},
                            {"ragged masks", {{0, 0, 160, 140}, {90, 10, 170, 150}, {60, 60, 150, 110}}, true},
                            {"one within the other", {{0, 0, 260, 180}, {40, 30, 120, 100}, {70, 50, 30, 30}}}};
    Places stack{"six over one pixel", {}};
    for (std::int64_t i = 0; i < 6; ++i)
        stack.rects.push_back({i * 7 % 40, i * 11 % 30, 140, 110});
    Places tiny{"tiny ones", {}};
    for (std::int64_t i = 0; i < 12; ++i)
        tiny.rects.push_back({i * 3, i % 4, 1 + i % 7, 1 + i % 5});
    all.push_back(stack);
    all.push_back(tiny);
    return all;
}

std::unique_ptr<MemoryReader> cut(const Scene& scene, const Places& places, int bits)
{
    auto reader = std::make_unique<MemoryReader>(scene.width, scene.height);
    for (const Rect& rect : places.rects) {
        MemoryPicture picture = take_picture(scene, {.rect = rect, .bits = bits});
        if (places.is_ragged)
            give_ragged_mask(picture, static_cast<std::uint64_t>(rect.x));
        reader->add(rect.x, rect.y, std::move(picture));
    }
    return reader;
}

struct Errors {
    double equal = 0; // part of the samples
    double mean = 0;
    double largest = 0;
};

// Where the canvas begins on the scene: pictures may leave its corner free.
Errors errors_of(const Result& result, const MemoryPicture& truth, const Rect& canvas)
{
    Errors errors;
    double count = 0;
    const double scale = truth.bits == 8 ? 1 : 257;
    for (std::int64_t y = 0; y < canvas.height; ++y)
        for (std::int64_t x = 0; x < canvas.width; ++x)
            for (int c = 0; c < truth.channels && result.is_covered(x, y); ++c) {
                const double off = std::abs(result.at(x, y, c) - truth.at(canvas.x + x, canvas.y + y, c) / scale);
                ++count;
                errors.equal += off == 0;
                errors.mean += off;
                errors.largest = std::max(errors.largest, off);
            }
    errors.equal /= count;
    errors.mean /= count;
    return errors;
}

TEST(PanoramaGoals, CutsOfOneSceneComeOutAsTheyAre)
{
    for (const Places& places : all_places())
        for (const int bits : {8, 16})
            for (const int channels : {1, 3}) {
                Rect canvas;
                for (const Rect& rect : places.rects)
                    canvas = bounding(canvas, rect);
                SceneOptions options = kBright;
                options.channels = channels;
                const Scene scene = make_scene(canvas.right(), canvas.bottom(), options);
                const MemoryPicture truth =
                    take_picture(scene, {.rect = {0, 0, scene.width, scene.height}, .bits = bits});
                const auto reader = cut(scene, places, bits);
                for (const int bands : {0, 1, 4, 9}) {
                    const Errors errors = errors_of(Result(*reader, with_bands(bands)), truth, canvas);
                    const std::string what = std::string(places.name) + ", " + std::to_string(bits) + " bits, " +
                                             std::to_string(channels) + " channels, bands " + std::to_string(bands);
                    EXPECT_LE(errors.mean, bands == 0 ? 0.005 : 0.05) << what;
                    if (bands != 0)
                        continue;
                    EXPECT_GE(errors.equal, 0.999) << what;
                    EXPECT_LE(errors.largest, 2) << what;
                }
            }
}

TEST(PanoramaGoals, OnePictureComesOutAsItIs)
{
    for (const int bits : {8, 16})
        for (const int channels : {1, 3}) {
            SceneOptions options = kBright;
            options.channels = channels;
            const Scene scene = make_scene(131, 87, options);
            const auto reader = cut(scene, {"one", {{0, 0, 131, 87}}}, bits);
            const Errors errors = errors_of(Result(*reader, with_bands(0)), reader->pictures[0], {0, 0, 131, 87});
            EXPECT_EQ(errors.equal, 1.0) << bits << " bits, " << channels << " channels";
        }
}

// Root of the mean square of a sample's difference to the mean of its four neighbours.
template <class At>
double fine_detail(const Rect& rect, const At& at)
{
    double sum = 0;
    for (std::int64_t y = rect.y; y < rect.bottom(); ++y)
        for (std::int64_t x = rect.x; x < rect.right(); ++x) {
            const double around = at(x - 1, y) + at(x + 1, y) + at(x, y - 1) + at(x, y + 1);
            sum += (at(x, y) - around / 4) * (at(x, y) - around / 4);
        }
    return std::sqrt(sum / static_cast<double>(rect.pixels()));
}

// Where pictures lie a pixel beside each other, as registration leaves it, an average would lose half of it.
TEST(PanoramaGoals, FineDetailKeepsItsContrast)
{
    for (std::uint64_t seed = 1; seed <= 6; ++seed) {
        SceneOptions options = kBright;
        options.seed = seed;
        const int bits = seed % 2 == 0 ? 16 : 8;
        const Scene scene = make_scene(360, 200, options);
        MemoryReader reader(360, 200);
        reader.add(0, 0, take_picture(scene, {.rect = {0, 0, 240, 200}, .bits = bits, .noise = 0.7}));
        reader.add(
            120, 0,
            take_picture(
                scene,
                {.rect = {120, 0, 240, 200}, .bits = bits, .shift_x = 1, .shift_y = 1, .gain = 0.75, .noise = 0.7}));
        const Result result(reader, with_bands(0));
        const Rect overlap{121, 1, 118, 198};
        const double of_result = fine_detail(overlap, [&](auto x, auto y) { return result.at(x, y, 1); });
        double of_sources = 0;
        const double gain[] = {std::sqrt(0.75), 1 / std::sqrt(0.75)};
        for (const std::int64_t i : {0, 1}) {
            const MemoryPicture& picture = reader.pictures[static_cast<std::size_t>(i)];
            const double scale = gain[i] / (bits == 8 ? 1 : 257) / 2;
            of_sources += fine_detail(overlap, [&](auto x, auto y) { return scale * picture.at(x - 120 * i, y, 1); });
        }
        EXPECT_GE(of_result, 0.98 * of_sources) << "seed " << seed;
    }
}

// The largest difference between neighbouring squares of how far the panorama is off, but for one factor a channel.
double largest_step(const Result& result, const Scene& scene, int c)
{
    constexpr std::int64_t kSide = 20;
    const auto sums = [&](const Rect& rect, double factor) {
        double off = 0;
        double light = 0;
        for (std::int64_t y = rect.y; y < rect.bottom(); ++y)
            for (std::int64_t x = rect.x; x < rect.right(); ++x) {
                off += result.at(x, y, c) - factor * scene.at(x, y, c);
                light += scene.at(x, y, c);
            }
        return std::pair(off, light);
    };
    const auto [all, light] = sums({0, 0, scene.width, scene.height}, 0);
    double largest = 0;
    for (std::int64_t y = 0; y + kSide <= scene.height; y += kSide)
        for (std::int64_t x = 0; x + 2 * kSide <= scene.width; x += kSide) {
            const double left = sums({x, y, kSide, kSide}, all / light).first;
            const double right = sums({x + kSide, y, kSide, kSide}, all / light).first;
            largest = std::max(largest, std::abs(left - right) / (kSide * kSide));
        }
    return largest;
}

TEST(PanoramaGoals, ExposuresColoursAndVignettingLeaveNoStep)
{
    const Scene scene = make_scene(480, 200, kBright);
    const double gains[] = {1, 1 / 1.62, 0.9};
    const std::array<double, 4> whites[] = {{1, 0.95, 1.05, 1}, {1.1, 1, 0.9, 1}, {0.95, 1.05, 1, 1}};
    for (const int bits : {8, 16})
        for (const double falloff : {0.0, 0.2, 0.35}) {
            MemoryReader reader(480, 200);
            for (const std::int64_t i : {0, 1, 2}) {
                Cut cut{.rect = {120 * i, 0, 240, 200}, .bits = bits, .gain = gains[i], .noise = 0.5};
                cut.white = whites[i];
                cut.falloff.c = {-falloff, 0, 0};
                cut.seed = static_cast<std::uint64_t>(i);
                reader.add(cut.rect.x, 0, take_picture(scene, cut));
            }
            PanovalMosaicOptions options = with_bands(0);
            options.vignetting = falloff > 0 ? 1 : 0;
            const Result result(reader, options);
            for (int c = 0; c < 3; ++c)
                EXPECT_LE(largest_step(result, scene, c), 1)
                    << bits << " bits, falloff " << falloff << ", channel " << c;
        }
}

TEST(PanoramaGoals, AThingInOnePictureOnlyIsWholeOrAbsent)
{
    for (std::uint64_t seed = 0; seed < 12; ++seed) {
        SceneOptions options = kBright;
        options.seed = seed + 1;
        options.channels = seed % 3 == 0 ? 1 : 3;
        const int bits = seed % 4 == 0 ? 16 : 8;
        const Scene scene = make_scene(330, 180, options);
        const Rect thing{126 + static_cast<std::int64_t>(seed) * 4, 20 + static_cast<std::int64_t>(seed) * 5, 24, 90};
        MemoryReader reader(330, 180);
        for (const std::int64_t i : {0, 1}) {
            Cut cut{.rect = {110 * i, 0, 220, 180}, .bits = bits, .noise = 0.7};
            if (static_cast<std::uint64_t>(i) == seed % 2)
                cut.things = {{thing, 0.9}};
            reader.add(cut.rect.x, 0, take_picture(scene, cut));
        }
        const Result result(reader, with_bands(0));
        const MemoryPicture& with = reader.pictures[seed % 2];
        const MemoryPicture& without = reader.pictures[1 - seed % 2];
        const std::int64_t left = seed % 2 == 0 ? 0 : 110;
        int shown = 0;
        int half = 0;
        for (std::int64_t y = thing.y; y < thing.bottom(); ++y)
            for (std::int64_t x = thing.x; x < thing.right(); ++x) {
                const double scale = bits == 8 ? 1 : 257;
                const double there = with.at(x - left, y, 0) / scale;
                const double away = without.at(x - (110 - left), y, 0) / scale;
                const double part = std::abs(there - away) < 40 ? -1 : (result.at(x, y, 0) - away) / (there - away);
                shown += part > 0.9;
                half += part > 0.1 && part <= 0.9;
            }
        EXPECT_EQ(half, 0) << "seed " << seed;
        EXPECT_TRUE(shown == 0 || shown > thing.pixels() * 3 / 4) << "seed " << seed << ": " << shown << " pixels";
    }
}

} // namespace

} // namespace panoval::mosaic::test
