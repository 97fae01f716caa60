// SPDX-License-Identifier: MIT
#include "core/heap.h"
#include "panoval.h"
#include "tests/reference/multi_band.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>

namespace panoval::test
{
namespace
{

std::size_t area(int width, int height, int channels = 1)
{
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * static_cast<std::size_t>(channels);
}

enum class Cover { Full, None, Grey, Holes, LeftHalf };

std::vector<std::uint8_t> mask_of(Cover cover, int width, int height, std::uint64_t seed)
{
    std::vector<std::uint8_t> values(area(width, height), cover == Cover::None ? 0 : 255);
    Random random(seed);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const int x = static_cast<int>(i) % width;
        if (cover == Cover::Grey)
            values[i] = static_cast<std::uint8_t>(random.integer(0, 255));
        else if ((cover == Cover::Holes && random.integer(0, 9) == 0) || (cover == Cover::LeftHalf && x >= width / 2))
            values[i] = 0;
    }
    return values;
}

// A picture with its mask, in heap blocks of the exact size.
struct Picture {
    Picture(int width, int height, int channels, int elem_size, Cover cover, std::uint64_t seed)
        : samples(
              noise<std::uint8_t>(area(width, height, channels) * static_cast<std::size_t>(elem_size), 0, 255, seed)),
          covered(mask_of(cover, width, height, seed + 1)),
          img{width, height, channels, elem_size, width * height * channels * elem_size, 0, samples.data()},
          mask{width, height, 1, covered.data()}
    {
    }
    Picture(const Picture&) = delete;
    Picture& operator=(const Picture&) = delete;

    Guarded<std::uint8_t> samples;
    Guarded<std::uint8_t> covered;
    Mat img;
    Matb mask;
};

// A blender, and its twin that is fed the same.
struct Pair {
    Pair(int bands, int channels, Roi roi)
    {
        Roi twin_roi = roi;
        multi_band_blender_setbands(&blender, bands);
        multi_band_blender_prepare(&blender, channels, &roi);
        twin = reference::multi_band_prepare(bands, channels, twin_roi);
    }
    ~Pair()
    {
        if (!blended)
            multi_band_blender_blend(&blender, nullptr, 1);
        MatDestroy(&out);
    }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    void feed(const Picture& picture, Point tl)
    {
        multi_band_blender_feed(&blender, &picture.img, &picture.mask, tl);
        reference::multi_band_feed(twin, picture.img, picture.mask, tl);
    }

    testing::AssertionResult same_sums() const
    {
        for (std::size_t i = 0; i < twin.laplace.size(); ++i) {
            const auto same =
                same_bits(blender.dstPyrLaplace[i].data, twin.laplace[i].data.data(), twin.laplace[i].data.size());
            if (!same)
                return testing::AssertionFailure() << "bands, level " << i << ": " << same.message();
            const auto same_weights =
                same_bits(blender.dstBandWeights[i].data, twin.weights[i].data.data(), twin.weights[i].data.size());
            if (!same_weights)
                return testing::AssertionFailure() << "weights, level " << i << ": " << same_weights.message();
        }
        return testing::AssertionSuccess();
    }

    testing::AssertionResult same_panorama(int elem_size)
    {
        multi_band_blender_blend(&blender, &out, elem_size);
        blended = true;
        const std::vector<std::uint8_t> expected = reference::multi_band_blend(twin, elem_size);
        if (static_cast<std::size_t>(out.size) != expected.size())
            return testing::AssertionFailure() << out.size << " bytes instead of " << expected.size();
        return same_bits(out.data, expected.data(), expected.size());
    }

    MultiBandBlender blender{};
    reference::MultiBand twin;
    Mat out{};
    bool blended = false;
};

// ------------------------------------------------------------------------------------------------------ prepare ----

TEST(MultiBandPrepare, PadsTheCanvasAndTellsTheCaller)
{
    MultiBandBlender blender{};
    Roi roi{-7, 12, 1000, 600};
    multi_band_blender_setbands(&blender, 5);
    multi_band_blender_prepare(&blender, 3, &roi);
    EXPECT_EQ(blender.numBands, 5);
    for (const Roi& padded : {roi, blender.dstRoi}) {
        EXPECT_EQ(padded.x, -7);
        EXPECT_EQ(padded.y, 12);
        EXPECT_EQ(padded.width, 1024);
        EXPECT_EQ(padded.height, 608);
    }
    EXPECT_EQ(blender.dstRoiFinal.x, -7);
    EXPECT_EQ(blender.dstRoiFinal.width, 1000);
    EXPECT_EQ(blender.dstRoiFinal.height, 600);

    Mat out{};
    multi_band_blender_blend(&blender, &out, 1);
    EXPECT_EQ(out.width, 1000);
    EXPECT_EQ(out.height, 600);
    EXPECT_EQ(out.channels, 3);
    MatDestroy(&out);
}

TEST(MultiBandPrepare, UsesNoMoreBandsThanTheLargerSideAllows)
{
    const auto bands = [](int requested, int width, int height) {
        MultiBandBlender blender{};
        Roi roi{0, 0, width, height};
        multi_band_blender_setbands(&blender, requested);
        multi_band_blender_prepare(&blender, 1, &roi);
        const int used = blender.numBands;
        EXPECT_EQ(roi.width % (1 << used), 0);
        EXPECT_EQ(roi.height % (1 << used), 0);
        multi_band_blender_blend(&blender, nullptr, 1);
        return used;
    };
    EXPECT_EQ(bands(20, 100, 50), 7);
    EXPECT_EQ(bands(20, 50, 100), 7);
    EXPECT_EQ(bands(20, 128, 1), 7);
    EXPECT_EQ(bands(20, 129, 1), 8);
    EXPECT_EQ(bands(3, 100, 50), 3);
    EXPECT_EQ(bands(20, 2, 2), 1);
}

TEST(MultiBandPrepare, PadsToTheBandsInUse)
{
    MultiBandBlender blender{};
    Roi roi{0, 0, 100, 50};
    multi_band_blender_setbands(&blender, 20);
    multi_band_blender_prepare(&blender, 1, &roi);
    EXPECT_EQ(roi.width, 128);
    EXPECT_EQ(roi.height, 128);
    multi_band_blender_blend(&blender, nullptr, 1);
}

TEST(MultiBandPrepare, UsesOneBandAtLeast)
{
    for (const int requested : {1, 0, -5})
        for (const int size : {1, 9}) {
            MultiBandBlender blender{};
            Roi roi{0, 0, size, size};
            multi_band_blender_setbands(&blender, requested);
            EXPECT_EQ(blender.requestedBands, requested);
            multi_band_blender_prepare(&blender, 1, &roi);
            EXPECT_EQ(blender.numBands, 1);
            EXPECT_EQ(roi.width, size + 1);
            multi_band_blender_blend(&blender, nullptr, 1);
        }
}

TEST(MultiBandPrepare, OpensZeroLevelsOfHalvedSize)
{
    MultiBandBlender blender{};
    Roi roi{0, 0, 20, 9};
    multi_band_blender_setbands(&blender, 2);
    multi_band_blender_prepare(&blender, 3, &roi);
    const Size sizes[] = {{20, 12}, {10, 6}, {5, 3}};
    for (int i = 0; i <= 2; ++i) {
        const Matf& bands = blender.dstPyrLaplace[i];
        const Matf& weights = blender.dstBandWeights[i];
        EXPECT_EQ(bands.width, sizes[i].width);
        EXPECT_EQ(bands.height, sizes[i].height);
        EXPECT_EQ(bands.channels, 3);
        EXPECT_EQ(weights.width, sizes[i].width);
        EXPECT_EQ(weights.height, sizes[i].height);
        EXPECT_EQ(weights.channels, 1);
        const std::vector<float> zeros(area(bands.width, bands.height, 3));
        EXPECT_TRUE(same_bits(bands.data, zeros.data(), zeros.size()));
        EXPECT_TRUE(same_bits(weights.data, zeros.data(), zeros.size() / 3));
    }
    multi_band_blender_blend(&blender, nullptr, 1);
}

TEST(MultiBandPrepare, FreesNothingThatItFinds)
{
    MultiBandBlender first{};
    Roi roi{0, 0, 16, 16};
    multi_band_blender_setbands(&first, 2);
    multi_band_blender_prepare(&first, 1, &roi);
    MultiBandBlender second = first;
    {
        FailingHeap heap;
        multi_band_blender_prepare(&second, 1, &roi);
        EXPECT_EQ(heap.live_blocks(), static_cast<std::ptrdiff_t>(heap.allocations()));
        multi_band_blender_blend(&second, nullptr, 1);
        EXPECT_EQ(heap.live_blocks(), 0);
    }
    multi_band_blender_blend(&first, nullptr, 1);
}

void expect_empty_but_usable(MultiBandBlender& blender)
{
    EXPECT_EQ(blender.dstPyrLaplace, nullptr);
    EXPECT_EQ(blender.dstBandWeights, nullptr);
    EXPECT_EQ(blender.numBands, 0);
    EXPECT_EQ(blender.dstRoi.width, 0);
    EXPECT_EQ(blender.dstRoiFinal.width, 0);
    const Picture picture(4, 4, 3, 1, Cover::Full, 1);
    multi_band_blender_feed(&blender, &picture.img, &picture.mask, {0, 0});
    Mat out{};
    MatReset(&out, 5, 5, 1, 1);
    multi_band_blender_blend(&blender, &out, 1);
    EXPECT_EQ(out.width, 0);
    EXPECT_EQ(out.height, 0);
    EXPECT_EQ(out.size, 0);
    multi_band_blender_blend(&blender, nullptr, 1);
    MatDestroy(&out);
}

TEST(MultiBandPrepare, LeavesTheRecordEmptyWhereSizesLeave32Bits)
{
    constexpr int kMost = std::numeric_limits<int>::max();
    struct {
        Roi roi;
        int bands;
        int channels;
    } const cases[] = {
        {{0, 0, kMost, 1}, 1, 1},         // padding to 2^31
        {{0, 0, kMost, kMost}, 31, 3},    // a unit of 2^31
        {{0, 0, 1 << 30, 1}, 30, 1},      // padding of the height to 2^30
        {{0, 0, 1 << 16, 1 << 15}, 5, 1}, // 2^31 pixels
        {{0, 0, 1 << 15, 1 << 15}, 5, 3}, // 3 * 2^30 samples
        {{0, 0, 8, 8}, 2, kMost},         //
        {{0, 0, 8, 8}, 2, -1},            //
        {{0, 0, -40, -40}, 2, 1},         //
    };
    for (const auto& c : cases) {
        MultiBandBlender blender{};
        blender.dstPyrLaplace = reinterpret_cast<Matf*>(8); // what an earlier use left
        Roi roi = c.roi;
        multi_band_blender_setbands(&blender, c.bands);
        multi_band_blender_prepare(&blender, c.channels, &roi);
        EXPECT_EQ(blender.requestedBands, c.bands);
        expect_empty_but_usable(blender);
    }
}

TEST(MultiBandPrepare, TakesACanvasWithoutPixels)
{
    for (const Roi& canvas : {Roi{0, 0, 0, 0}, Roi{3, 4, 0, 600}, Roi{3, 4, 600, 0}}) {
        MultiBandBlender blender{};
        Roi roi = canvas;
        multi_band_blender_setbands(&blender, 5);
        multi_band_blender_prepare(&blender, 3, &roi);
        const Picture picture(4, 4, 3, 1, Cover::Full, 1);
        multi_band_blender_feed(&blender, &picture.img, &picture.mask, {3, 4});
        Mat out{};
        multi_band_blender_blend(&blender, &out, 1);
        EXPECT_EQ(out.width, canvas.width);
        EXPECT_EQ(out.height, canvas.height);
        EXPECT_EQ(out.size, 0);
        MatDestroy(&out);
    }
}

TEST(MultiBandPrepare, LeavesTheRecordEmptyWithoutMemory)
{
    for_each_failing_allocation([](FailingHeap& heap) {
        MultiBandBlender blender{};
        Roi roi{0, 0, 30, 20};
        multi_band_blender_setbands(&blender, 3);
        multi_band_blender_prepare(&blender, 3, &roi);
        if (heap.has_failed()) {
            EXPECT_EQ(blender.dstPyrLaplace, nullptr);
            EXPECT_EQ(blender.dstBandWeights, nullptr);
            EXPECT_EQ(heap.live_blocks(), 0);
        }
        multi_band_blender_blend(&blender, nullptr, 1);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

// --------------------------------------------------------------------------------------------------------- feed ----

struct Placement {
    int width, height;
    Point tl;
};

constexpr Roi kCanvas{-20, 10, 150, 90};
// inside, over each edge, larger than the canvas, one pixel, one row, one column
constexpr Placement kPlacements[] = {
    {61, 40, {10, 25}}, {50, 33, {-41, 0}},   {70, 50, {90, 70}},   {200, 150, {-45, -20}},
    {1, 1, {33, 44}},   {77, 1, {-10, 99}},   {1, 60, {129, 12}},   {2, 2, {-21, 9}},
    {3, 90, {-20, 10}}, {150, 90, {-20, 10}}, {64, 64, {-100, 40}}, {10, 10, {-25, 95}},
};

TEST(MultiBandFeed, EqualsItsTwinFrom1To7Bands)
{
    for_each_target([] {
        for (int bands = 1; bands <= 7; ++bands) {
            const int channels = 1 + bands % 4;
            Pair pair(bands, channels, kCanvas);
            std::uint64_t seed = static_cast<std::uint64_t>(bands) * 100;
            for (const Placement& p : kPlacements) {
                const Cover cover = static_cast<Cover>(seed % 5);
                const Picture picture(p.width, p.height, channels, 1 + static_cast<int>(seed / 5 % 2), cover, seed);
                pair.feed(picture, p.tl);
                ASSERT_TRUE(pair.same_sums()) << bands << " bands, " << p.width << " x " << p.height;
                ++seed;
            }
            ASSERT_TRUE(pair.same_panorama(1 + bands % 2));
        }
    });
}

TEST(MultiBandFeed, EqualsItsTwinForEveryFormat)
{
    for_each_target([] {
        for (const int channels : {1, 2, 3, 4, 5})
            for (const int elem_size : {1, 2}) {
                Pair pair(3, channels, {5, -6, 41, 37});
                const auto seed = static_cast<std::uint64_t>(channels * 10 + elem_size);
                pair.feed(Picture(30, 29, channels, elem_size, Cover::Grey, seed), {0, -10});
                pair.feed(Picture(23, 31, channels, elem_size, Cover::Holes, seed + 5), {20, 3});
                ASSERT_TRUE(pair.same_sums()) << channels << " channels, " << elem_size << " bytes";
                ASSERT_TRUE(pair.same_panorama(elem_size)) << channels << " channels, " << elem_size << " bytes";
            }
    });
}

TEST(MultiBandFeed, EqualsItsTwinOnTinyCanvases)
{
    for_each_target([] {
        for (int width = 1; width <= 9; ++width)
            for (int height = 1; height <= 9; ++height)
                for (const int bands : {1, 2, 7}) {
                    Pair pair(bands, 3, {1, 2, width, height});
                    const auto seed = static_cast<std::uint64_t>(width * 10 + height);
                    pair.feed(Picture(width, height, 3, 1, Cover::Full, seed), {1, 2});
                    pair.feed(Picture(2, 3, 3, 1, Cover::Grey, seed), {0, height});
                    ASSERT_TRUE(pair.same_sums()) << width << " x " << height << ", " << bands << " bands";
                    ASSERT_TRUE(pair.same_panorama(1)) << width << " x " << height << ", " << bands << " bands";
                }
    });
}

TEST(MultiBandFeed, EqualsItsTwinForEveryWidth)
{
    for_each_target([] {
        for (int width = 1; width <= 67; ++width) {
            Pair pair(2, width % 2 == 0 ? 3 : 4, {0, 0, 80, 9});
            const int channels = pair.twin.laplace[0].channels;
            pair.feed(Picture(width, 7, channels, 1, Cover::Holes, static_cast<std::uint64_t>(width)), {width % 11, 1});
            pair.feed(Picture(9, width, channels, 2, Cover::Grey, static_cast<std::uint64_t>(width)), {-3, -width / 2});
            ASSERT_TRUE(pair.same_sums()) << "width " << width;
            ASSERT_TRUE(pair.same_panorama(2)) << "width " << width;
        }
    });
}

TEST(MultiBandFeed, ChangesNothingForAnImageBesideTheCanvas)
{
    constexpr int kMost = std::numeric_limits<int>::max();
    constexpr int kLeast = std::numeric_limits<int>::min();
    Pair pair(3, 3, kCanvas);
    const Picture picture(20, 20, 3, 1, Cover::Full, 3);
    for (const Point tl : {Point{-40, 20}, Point{132, 20}, Point{0, -10}, Point{0, 106}, Point{kMost, kMost},
                           Point{kLeast, kLeast}, Point{kLeast, 20}})
        multi_band_blender_feed(&pair.blender, &picture.img, &picture.mask, tl);
    EXPECT_TRUE(pair.same_sums());
    EXPECT_TRUE(pair.same_panorama(1));
}

TEST(MultiBandFeed, ChangesNothingForAnImageWithoutPixels)
{
    Pair pair(3, 3, kCanvas);
    const Mat img{0, 5, 3, 1, 0, 0, nullptr};
    const Matb mask{0, 5, 1, nullptr};
    multi_band_blender_feed(&pair.blender, &img, &mask, {0, 20});
    EXPECT_TRUE(pair.same_sums());
}

TEST(MultiBandFeed, ChangesNothingForAnotherSampleSize)
{
    Pair pair(3, 1, kCanvas);
    Picture picture(20, 20, 4, 1, Cover::Full, 3);
    picture.img.channels = 1;
    for (const int elem_size : {0, 3, 4}) {
        picture.img.elemSize = elem_size;
        multi_band_blender_feed(&pair.blender, &picture.img, &picture.mask, {0, 20});
    }
    EXPECT_TRUE(pair.same_sums());
}

TEST(MultiBandFeed, TakesTheChannelsThatImageAndCanvasShare)
{
    for_each_target([] {
        for (const int canvas_channels : {1, 2, 3, 4})
            for (const int channels : {1, 2, 3, 4, 6})
                for (const int elem_size : {1, 2}) {
                    Pair pair(2, canvas_channels, {0, 0, 40, 30});
                    const Picture picture(33, 21, channels, elem_size, Cover::Grey, 8);
                    pair.feed(picture, {-5, 12});
                    ASSERT_TRUE(pair.same_sums()) << channels << " channels on " << canvas_channels;
                }
    });
}

TEST(MultiBandFeed, KeepsTheImageAndItsMask)
{
    const Picture picture(40, 40, 3, 1, Cover::Grey, 21);
    const Picture untouched(40, 40, 3, 1, Cover::Grey, 21);
    Pair pair(3, 3, kCanvas);
    pair.feed(picture, {0, 20});
    EXPECT_TRUE(same_bits(picture.samples.data(), untouched.samples.data(), picture.samples.size()));
    EXPECT_TRUE(same_bits(picture.covered.data(), untouched.covered.data(), picture.covered.size()));
}

TEST(MultiBandFeed, WeighsAMaskInProportion)
{
    Pair pair(1, 1, {0, 0, 8, 8});
    Picture picture(8, 8, 1, 1, Cover::Full, 4);
    picture.covered[0] = 0;
    picture.covered[1] = 51;
    pair.feed(picture, {0, 0});
    const float* const weights = pair.blender.dstBandWeights[0].data;
    EXPECT_EQ(weights[0], 0.0f);
    EXPECT_EQ(weights[1], 0.2f);
    EXPECT_EQ(weights[2], 1.0f);
}

TEST(MultiBandFeed, TakesLittleMemoryBesideTheCanvas)
{
    for (const int bands : {1, 5, 7}) {
        const Picture picture(1500, 900, 3, 1, Cover::Full, 31);
        Roi roi{0, 0, 1600, 1000};
        MultiBandBlender blender{};
        multi_band_blender_setbands(&blender, bands);
        multi_band_blender_prepare(&blender, 3, &roi);
        {
            FailingHeap heap;
            multi_band_blender_feed(&blender, &picture.img, &picture.mask, {50, 50});
            const std::size_t as_floats = area(1500, 900, 3) * sizeof(float);
            EXPECT_LE(heap.peak_bytes(), (std::size_t{4} << 20) + as_floats / 3) << bands << " bands";
            EXPECT_LE(heap.peak_bytes(), std::size_t{1} << 20) << bands << " bands";
            EXPECT_GT(heap.peak_bytes(), 0u);
        }
        multi_band_blender_blend(&blender, nullptr, 1);
    }
}

TEST(MultiBandBlend, LetsGoOfTheCoarserLevelsBeforeItWrites)
{
    Roi roi{0, 0, 512, 512};
    MultiBandBlender blender{};
    Mat out{};
    FailingHeap heap;
    multi_band_blender_setbands(&blender, 5);
    multi_band_blender_prepare(&blender, 3, &roi);
    multi_band_blender_blend(&blender, &out, 1);
    // 16 bytes a pixel for the finest level, 3 for the bands of the next and 3 for the output
    const std::size_t ring_of_rows = 3 * 512 * 3 * sizeof(float);
    EXPECT_LE(heap.peak_bytes(), 22 * area(512, 512) + ring_of_rows + 2 * 6 * sizeof(Matf));
    MatDestroy(&out);
}

TEST(MultiBandFeed, ChangesNothingWithoutMemory)
{
    const Picture picture(60, 45, 3, 1, Cover::Grey, 31);
    for_each_failing_allocation([&](FailingHeap& heap) {
        Roi roi{0, 0, 64, 64};
        MultiBandBlender blender{};
        multi_band_blender_setbands(&blender, 4);
        multi_band_blender_prepare(&blender, 3, &roi);
        const bool is_prepared = !heap.has_failed();
        const std::ptrdiff_t blocks = heap.live_blocks();
        multi_band_blender_feed(&blender, &picture.img, &picture.mask, {1, 2});
        EXPECT_EQ(heap.live_blocks(), blocks);
        if (is_prepared && heap.has_failed())
            for (int i = 0; i <= 4; ++i)
                for (std::size_t k = 0; k < area(64 >> i, 64 >> i); ++k) {
                    ASSERT_EQ(blender.dstPyrLaplace[i].data[3 * k], 0.0f);
                    ASSERT_EQ(blender.dstBandWeights[i].data[k], 0.0f);
                }
        multi_band_blender_blend(&blender, nullptr, 1);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

// -------------------------------------------------------------------------------------------------------- blend ----

TEST(MultiBandBlend, ReproducesASingleImageThatCoversTheCanvas)
{
    for (const int bands : {1, 3, 5}) {
        Pair pair(bands, 3, {0, 0, 90, 70});
        const auto channel = picture(Content::Photograph, 270, 70, 5);
        Picture image(90, 70, 3, 1, Cover::Full, 6);
        std::copy(channel.begin(), channel.end(), image.samples.data());
        pair.feed(image, {0, 0});
        ASSERT_TRUE(pair.same_panorama(1));
        for (std::size_t i = 0; i < channel.size(); ++i)
            ASSERT_NEAR(pair.out.data[i], channel[i], 1 + bands) << bands << " bands";
    }
}

// A canvas of one band whose finest level holds the given sums with weight 1; the coarser one is 0.
struct Sums {
    explicit Sums(const std::vector<float>& sums)
    {
        Roi roi{0, 0, static_cast<int>(sums.size()), 2};
        multi_band_blender_setbands(&blender, 1);
        multi_band_blender_prepare(&blender, 1, &roi);
        for (std::size_t i = 0; i < sums.size(); ++i) {
            blender.dstPyrLaplace[0].data[i] = sums[i];
            blender.dstBandWeights[0].data[i] = 1.0f;
        }
    }
    ~Sums() { MatDestroy(&out); }
    MultiBandBlender blender{};
    Mat out{};
};

TEST(MultiBandBlend, ClampsTo8Bit)
{
    for_each_target([] {
        Sums sums({-40.0f, -1.0f, 0.0f, 100.0f, 254.0f, 255.0f, 256.0f, 4e9f});
        multi_band_blender_blend(&sums.blender, &sums.out, 1);
        EXPECT_EQ(std::vector<std::uint8_t>(sums.out.data, sums.out.data + 8),
                  (std::vector<std::uint8_t>{0, 0, 0, 100, 254, 255, 255, 255}));
    });
}

TEST(MultiBandBlend, ClampsTo16Bit)
{
    for_each_target([] {
        Sums sums({-40.0f, 0.0f, 300.0f, 65534.0f, 65537.0f, 4e9f});
        multi_band_blender_blend(&sums.blender, &sums.out, 2);
        std::uint16_t values[6];
        std::memcpy(values, sums.out.data, sizeof values);
        // the epsilon costs a large sample one
        EXPECT_EQ(std::vector<std::uint16_t>(values, values + 6),
                  (std::vector<std::uint16_t>{0, 0, 300, 65533, 65535, 65535}));
    });
}

TEST(MultiBandBlend, FloorsWhatTheExpandedBandAdds)
{
    Sums sums({10.0f, 10.0f, 10.0f, 10.0f});
    sums.blender.dstPyrLaplace[1].data[0] = 3.0f; // expands to 3 * 7/8 * ... along the row
    sums.blender.dstBandWeights[1].data[0] = 1.0f;
    multi_band_blender_blend(&sums.blender, &sums.out, 1);
    // row 0: 10 + 3 * (6, 4, 1, 0) / 8
    EXPECT_EQ(std::vector<std::uint8_t>(sums.out.data, sums.out.data + 4), (std::vector<std::uint8_t>{12, 11, 10, 10}));
}

TEST(MultiBandBlend, LeavesOtherSampleSizesZero)
{
    Sums sums({10.0f, 20.0f});
    multi_band_blender_blend(&sums.blender, &sums.out, 4);
    EXPECT_EQ(sums.out.size, 16);
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(sums.out.data[i], 0);
}

TEST(MultiBandBlend, GivesZerosWithoutAnImage)
{
    Pair pair(3, 3, kCanvas);
    ASSERT_TRUE(pair.same_panorama(1));
    for (int i = 0; i < pair.out.size; ++i)
        ASSERT_EQ(pair.out.data[i], 0);
}

TEST(MultiBandBlend, SpreadsColourBeyondTheCoveredPixels)
{
    Pair pair(4, 1, {0, 0, 64, 16});
    Picture picture(64, 16, 1, 1, Cover::LeftHalf, 17);
    std::fill_n(picture.samples.data(), picture.samples.size(), std::uint8_t{200});
    pair.feed(picture, {0, 0});
    ASSERT_TRUE(pair.same_panorama(1));
    EXPECT_GT(pair.out.data[8 * 64 + 40], 0);
}

TEST(MultiBandBlend, ReleasesEverythingWithoutAnOutput)
{
    const Picture picture(60, 45, 3, 1, Cover::Grey, 31);
    FailingHeap heap;
    Roi roi{0, 0, 64, 64};
    MultiBandBlender blender{};
    multi_band_blender_setbands(&blender, 4);
    multi_band_blender_prepare(&blender, 3, &roi);
    multi_band_blender_feed(&blender, &picture.img, &picture.mask, {1, 2});
    Matf* const laplace = blender.dstPyrLaplace;
    Matf* const weights = blender.dstBandWeights;
    multi_band_blender_blend(&blender, nullptr, 1);
    EXPECT_EQ(heap.live_blocks(), 0);
    EXPECT_EQ(blender.dstPyrLaplace, laplace);
    EXPECT_EQ(blender.dstBandWeights, weights);
}

TEST(MultiBandBlend, LeaksNothingWhenARecordIsUsedTwice)
{
    const Picture picture(60, 45, 3, 2, Cover::Grey, 32);
    FailingHeap heap;
    MultiBandBlender blender{};
    Mat out{};
    std::vector<std::uint8_t> results[2];
    multi_band_blender_setbands(&blender, 4);
    for (auto& result : results) {
        Roi roi{0, 0, 64, 64};
        multi_band_blender_prepare(&blender, 3, &roi);
        multi_band_blender_feed(&blender, &picture.img, &picture.mask, {1, 2});
        multi_band_blender_blend(&blender, &out, 2);
        result.assign(out.data, out.data + out.size);
        EXPECT_EQ(heap.live_blocks(), 1); // the output's
    }
    EXPECT_EQ(results[0], results[1]);
    MatDestroy(&out);
}

TEST(MultiBandBlend, GivesAnEmptyImageWithoutMemory)
{
    const Picture picture(60, 45, 3, 1, Cover::Grey, 33);
    for_each_failing_allocation([&](FailingHeap& heap) {
        Roi roi{0, 0, 64, 64};
        MultiBandBlender blender{};
        Mat out{};
        multi_band_blender_setbands(&blender, 4);
        multi_band_blender_prepare(&blender, 3, &roi);
        multi_band_blender_feed(&blender, &picture.img, &picture.mask, {1, 2});
        const bool is_fed = !heap.has_failed();
        multi_band_blender_blend(&blender, &out, 1);
        if (is_fed && heap.has_failed()) {
            EXPECT_EQ(out.width, 0);
            EXPECT_EQ(out.height, 0);
            EXPECT_EQ(out.size, 0);
        }
        MatDestroy(&out);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

} // namespace
} // namespace panoval::test
