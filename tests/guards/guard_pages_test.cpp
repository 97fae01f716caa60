// SPDX-License-Identifier: MIT
// Every exported routine that is handed buffers, with each of them up against a page that nobody may touch, on every
// instruction set. What comes out is what comes out of buffers on the heap.
#include "panoval.h"
#include "tests/guards/at_every_fence.h"
#include "tests/support/noise.h"
#include "tests/support/temporary_folder.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

namespace
{

using panoval::test::append;
using panoval::test::Bytes;
using panoval::test::Content;
using panoval::test::expect_the_same_at_every_fence;
using panoval::test::Fenced;
using panoval::test::Place;
using panoval::test::Random;

struct Shape {
    int width;
    int height;
};
constexpr Shape kShapes[] = {{1, 1}, {3, 3}, {5, 17}, {31, 9}, {64, 33}, {97, 41}};

std::size_t count_of(int width, int height, int channels = 1)
{
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * static_cast<std::size_t>(channels);
}

Bytes noise(int width, int height, int channels = 1, std::uint64_t seed = 3)
{
    return panoval::test::picture(Content::Noise, width * channels, height, seed);
}

Bytes photograph(int width, int height, std::uint64_t seed = 3)
{
    return panoval::test::picture(Content::Photograph, width, height, seed);
}

// Mostly covered, with holes.
Bytes mask_of(int width, int height, std::uint64_t seed)
{
    Bytes mask = noise(width, height, 1, seed);
    for (std::uint8_t& value : mask)
        value = value < 40 ? std::uint8_t{0} : std::uint8_t{255};
    return mask;
}

// A picture of an exact size at the fence.
struct FencedMat {
    FencedMat(Place place, Shape shape, int channels, int bytes, std::uint64_t seed)
        : block(place, noise(shape.width * bytes, shape.height, channels, seed))
    {
        const auto size = static_cast<std::int32_t>(block.size());
        mat = {shape.width, shape.height, channels, bytes, size, size, block.data()};
    }
    Fenced<std::uint8_t> block;
    Mat mat;
};

struct FencedMask {
    FencedMask(Place place, Shape shape, std::uint64_t seed) : block(place, mask_of(shape.width, shape.height, seed))
    {
        mask = {shape.width, shape.height, 1, block.data()};
    }
    Fenced<std::uint8_t> block;
    Matb mask;
};

// The first byte beside a buffer, on the side of its fence.
void touch_beside(Place place)
{
    Fenced<std::uint8_t> buffer(place, 37);
    const volatile std::uint8_t* const beside =
        place == Place::BeforeFence ? buffer.data() + buffer.size() : buffer.data() - 1;
    const std::uint8_t value = *beside;
    std::fprintf(stderr, "%d\n", value);
}

TEST(GuardPagesDeathTest, EndTheProgramWhereOneByteBesideABufferIsRead)
{
    EXPECT_DEATH(touch_beside(Place::BeforeFence), "");
    EXPECT_DEATH(touch_beside(Place::BehindFence), "");
}

TEST(GuardPages, OfContainersThatAreClearedAndConverted)
{
    for (const Shape& shape : kShapes)
        for (const int channels : {1, 2, 3, 4})
            for (const int bytes : {1, 2})
                expect_the_same_at_every_fence([&](Place place) {
                    FencedMat image(place, shape, channels, bytes, 1);
                    Fenced<std::uint8_t> packed(place, count_of(shape.width, shape.height, 3), 7);
                    Bytes out;
                    if (channels != 2)
                        MatToImage(&image.mat, packed.data());
                    append(out, packed);
                    MatReset(&image.mat, shape.width, shape.height, channels, bytes);
                    append(out, image.block);
                    return out;
                });
}

TEST(GuardPages, OfKernels)
{
    for (int size = 1; size <= 9; ++size)
        expect_the_same_at_every_fence([&](Place place) {
            Fenced<double> kernel(place, count_of(size, size));
            GetGaussianKernel(kernel.data(), size, 1.3);
            Bytes out;
            append(out, kernel);
            return out;
        });
}

TEST(GuardPages, OfSmoothingAndGradients)
{
    for (const Shape& shape : kShapes)
        expect_the_same_at_every_fence([&](Place place) {
            const std::size_t count = count_of(shape.width, shape.height);
            Fenced<std::uint8_t> image(place, noise(shape.width, shape.height));
            Fenced<std::uint8_t> smooth(place, count);
            Fenced<std::int16_t> dx(place, count);
            Fenced<std::int16_t> dy(place, count);
            Fenced<std::uint16_t> magnitude(place, count);
            smooth_image(image.data(), shape.width, shape.height, smooth.data());
            gradient_image(image.data(), shape.width, shape.height, dx.data(), dy.data(), magnitude.data());
            Bytes out;
            append(out, smooth);
            append(out, dx);
            append(out, dy);
            append(out, magnitude);
            return out;
        });
}

TEST(GuardPages, OfDistances)
{
    for (const Shape& shape : kShapes)
        expect_the_same_at_every_fence([&](Place place) {
            FencedMask covered(place, shape, 4);
            Fenced<float> dist(place, count_of(shape.width, shape.height));
            Fenced<float> metrics(place, {0.955f, 1.3693f});
            Matf scratch = {};
            Matf record{shape.width, shape.height, 1, dist.data()};
            distanceTransform_3x3(&covered.mask, &scratch, &record, metrics.data());
            std::free(scratch.data);
            Bytes out;
            append(out, dist);
            return out;
        });
}

TEST(GuardPages, OfEdges)
{
    for (const Shape& shape : kShapes)
        for (const double sigma : {0.6, 2.3})
            expect_the_same_at_every_fence([&](Place place) {
                const std::size_t count = count_of(shape.width, shape.height);
                Fenced<std::uint8_t> image(place, photograph(shape.width, shape.height));
                Fenced<std::uint8_t> edge(place, count);
                std::int16_t* dx = nullptr;
                std::int16_t* dy = nullptr;
                canny(image.data(), shape.height, shape.width, edge.data(), sigma, 0.4, 0.8, &dx, &dy);
                Bytes out;
                append(out, edge);
                append(out, dx, count);
                append(out, dy, count);
                std::free(dx);
                std::free(dy);
                return out;
            });
}

TEST(GuardPages, OfRegionsAndMasks)
{
    constexpr Roi kRois[] = {{-2, -3, 9, 8}, {0, 0, 5, 4}, {1, 2, 30, 20}, {-5, 1, 3, 3}};
    for (const Shape& shape : kShapes)
        for (const Roi& roi : kRois)
            for (const int bytes : {1, 2})
                expect_the_same_at_every_fence([&](Place place) {
                    FencedMat source(place, shape, 3, bytes, 5);
                    FencedMat cut(place, {roi.width, roi.height}, 3, bytes, 6);
                    FencedMask mask(place, shape, 7);
                    FencedMask other(place, shape, 8);
                    Matb both = {}; // the library's own blocks: typed containers are allocated anew
                    Matb cut_mask = {};
                    get_sub_image(&source.mat, &roi, &cut.mat);
                    get_sub_mask(&mask.mask, &roi, &cut_mask);
                    const std::int32_t covered = get_mask_intersect(&mask.mask, &other.mask, &both);
                    Bytes out;
                    append(out, cut.block);
                    append(out, cut_mask.data, count_of(roi.width, roi.height));
                    append(out, both.data, count_of(shape.width, shape.height));
                    append(out, &covered, 1);
                    std::free(cut_mask.data);
                    std::free(both.data);
                    return out;
                });
}

TEST(GuardPages, OfGains)
{
    for (const Shape& shape : kShapes)
        for (const int channels : {1, 3, 4})
            for (const int bytes : {1, 2})
                expect_the_same_at_every_fence([&](Place place) {
                    FencedMat a(place, shape, channels, bytes, 10);
                    FencedMat b(place, shape, channels, bytes, 11);
                    FencedMask of_a(place, shape, 12);
                    FencedMask of_b(place, shape, 13);
                    Fenced<Point> corners(place, {{0, 0}, {shape.width / 3, 1}});
                    Fenced<Mat> images(place, {a.mat, b.mat});
                    Fenced<Matb> masks(place, {of_a.mask, of_b.mask});
                    GainCompensator compensator = {};
                    gain_compensator_init(&compensator, 2, corners.data(), images.data(), masks.data());
                    gain_compensator_apply(&compensator, 1, &b.mat);
                    Bytes out;
                    append(out, compensator.gains.data, 2);
                    append(out, b.block);
                    gain_compensator_free(&compensator);
                    return out;
                });
}

TEST(GuardPages, OfGainsPairByPair)
{
    for (const Shape& shape : kShapes)
        expect_the_same_at_every_fence([&](Place place) {
            FencedMat a(place, shape, 3, 1, 14);
            FencedMat b(place, shape, 1, 2, 15); // read in the format of the first
            FencedMask of_a(place, shape, 16);
            FencedMask of_b(place, shape, 17);
            GainCompensator compensator = {};
            gain_compensator_init_start(&compensator, 2);
            gain_compensator_init_step(&compensator, 0, 0, {0, 0}, &a.mat, &of_a.mask, {0, 0}, &a.mat, &of_a.mask);
            gain_compensator_init_step(&compensator, 0, 1, {0, 0}, &a.mat, &of_a.mask, {1, 0}, &b.mat, &of_b.mask);
            gain_compensator_init_step(&compensator, 1, 1, {1, 0}, &b.mat, &of_b.mask, {1, 0}, &b.mat, &of_b.mask);
            Bytes out;
            append(out, compensator.intensities.data, 4);
            gain_compensator_init_end(&compensator);
            append(out, compensator.gains.data, 2);
            gain_compensator_free(&compensator);
            return out;
        });
}

// Two pictures on a canvas, and the panorama in a block that it just fits.
template <class Blender, class Prepare, class Feed, class Blend>
Bytes panorama(Place place, const Shape& shape, int channels, int bytes, const Prepare& prepare, const Feed& feed,
               const Blend& blend)
{
    Fenced<Roi> canvas(place, {{-1, -2, shape.width + 3, shape.height + 4}});
    const Roi size = *canvas.data();
    FencedMat out(place, {size.width, size.height}, channels, bytes, 18);
    Blender blender = {};
    prepare(blender, *canvas.data());
    for (const std::uint64_t seed : {19u, 20u}) {
        FencedMat image(place, shape, channels, bytes, seed);
        FencedMask mask(place, shape, seed);
        feed(blender, image.mat, mask.mask, Point{static_cast<int>(seed) - 20, 1});
    }
    blend(blender, out.mat);
    Bytes result;
    append(result, out.block);
    return result;
}

TEST(GuardPages, OfFeatherBlending)
{
    for (const Shape& shape : kShapes)
        for (const int channels : {1, 3, 4})
            for (const int bytes : {1, 2})
                expect_the_same_at_every_fence([&](Place place) {
                    return panorama<FeatherBlender>(
                        place, shape, channels, bytes,
                        [&](FeatherBlender& b, Roi& canvas) { feather_blender_prepare(&b, channels, &canvas); },
                        [](FeatherBlender& b, const Mat& image, const Matb& mask, Point at) {
                            feather_blender_feed(&b, &image, &mask, at);
                        },
                        [&](FeatherBlender& b, Mat& out) { feather_blender_blend(&b, &out, bytes); });
                });
}

TEST(GuardPages, OfMultiBandBlending)
{
    for (const Shape& shape : kShapes)
        for (const int channels : {1, 2, 3, 4})
            for (const int bytes : {1, 2})
                expect_the_same_at_every_fence([&](Place place) {
                    return panorama<MultiBandBlender>(
                        place, shape, channels, bytes,
                        [&](MultiBandBlender& b, Roi& canvas) {
                            multi_band_blender_setbands(&b, 4);
                            multi_band_blender_prepare(&b, channels, &canvas);
                        },
                        [](MultiBandBlender& b, const Mat& image, const Matb& mask, Point at) {
                            multi_band_blender_feed(&b, &image, &mask, at);
                        },
                        [&](MultiBandBlender& b, Mat& out) { multi_band_blender_blend(&b, &out, bytes); });
                });
}

TEST(GuardPages, OfInpainting)
{
    for (const Shape& shape : kShapes)
        for (const int channels : {1, 3})
            expect_the_same_at_every_fence([&](Place place) {
                FencedMat image(place, shape, 3, 1, 21);
                Bytes marks = noise(shape.width, shape.height, channels, 22);
                for (std::uint8_t& mark : marks)
                    mark = mark < 60 ? std::uint8_t{255} : std::uint8_t{0};
                Fenced<std::uint8_t> block(place, marks);
                const auto size = static_cast<std::int32_t>(block.size());
                Mat mask{shape.width, shape.height, channels, 1, size, size, block.data()};
                inpaint(&image.mat, &mask, 3);
                Bytes out;
                append(out, image.block);
                append(out, block);
                return out;
            });
}

TEST(GuardPages, OfHistogramsAndThresholds)
{
    for (const Shape& shape : kShapes)
        expect_the_same_at_every_fence([&](Place place) {
            Fenced<std::uint8_t> image(place, photograph(shape.width, shape.height));
            Fenced<double> bins(place, 256);
            double* at = bins.data();
            histogram_count(image.data(), shape.width, shape.height, &at);
            const std::int32_t levels[] = {find_threshold(bins.data()), find_trough(&at)};
            Bytes out;
            append(out, bins);
            append(out, levels, 2);
            return out;
        });
}

TEST(GuardPages, OfPointsOfAnEllipse)
{
    for (const std::size_t count : {6u, 7u, 8u, 9u, 23u, 64u, 513u})
        expect_the_same_at_every_fence([&](Place place) {
            Random random(count);
            std::vector<double> points;
            for (std::size_t i = 0; i < 2 * count; ++i)
                points.push_back(random.real(-9, 9));
            Fenced<double> fenced(place, points);
            Fenced<OvalFit> result(place, 1);
            oval_fit(static_cast<std::int32_t>(count), fenced.data(), result.data());
            Bytes out;
            append(out, &result.data()->coef_a, 6);
            return out;
        });
}

TEST(GuardPages, OfPicturesWithTargets)
{
    for (const Shape& shape : {Shape{64, 48}, {97, 61}, {161, 120}})
        expect_the_same_at_every_fence([&](Place place) {
            Bytes picture = photograph(shape.width, shape.height);
            for (int y = 10; y < 34; ++y) // a dark disc on white, and another one that is bright
                for (int x = 10; x < 58; ++x) {
                    const int dx = (x - 10) % 24 - 12;
                    const int dy = y - 22;
                    const bool is_inside = dx * dx + dy * dy < 70;
                    picture[count_of(y, shape.width) + static_cast<std::size_t>(x)] =
                        is_inside == (x < 34) ? std::uint8_t{20} : std::uint8_t{230};
                }
            Fenced<std::uint8_t> image(place, picture);
            Fenced<double> ellipse(place, {22, 22, 9, 8, 0.3});
            EllipseRegion* regions = nullptr;
            const int found = find_ellipse(image.data(), shape.width, shape.height, &regions, 10, 1000, 2);
            Bytes out;
            append(out, &found, 1);
            for (int i = 0; i < found; ++i) {
                append(out, &regions[i].cx, 4);
                std::free(regions[i].points);
            }
            std::free(regions);
            const std::uint32_t features =
                find_small_ellipse(image.data(), shape.width, shape.height, ellipse.data(), &regions);
            append(out, &features, 1);
            append(out, image);
            std::free(regions);
            return out;
        });
}

TEST(GuardPages, OfPicturesThatAreWritten)
{
    const panoval::test::TemporaryFolder folder;
    const std::string name = folder.name("fenced.pgm");
    const auto add_file = [&](Bytes& out) {
        std::ifstream file(name, std::ios::binary);
        out.insert(out.end(), std::istreambuf_iterator<char>(file), {});
    };
    for (const Shape& shape : kShapes)
        expect_the_same_at_every_fence([&](Place place) {
            const std::size_t count = count_of(shape.width, shape.height);
            Fenced<std::uint8_t> bytes(place, noise(shape.width, shape.height));
            std::vector<float> values(count);
            std::vector<std::int16_t> numbers(count);
            for (std::size_t i = 0; i < count; ++i) {
                values[i] = static_cast<float>(bytes.data()[i]) * 1.7f - 90.f;
                numbers[i] = static_cast<std::int16_t>(bytes.data()[i] * 100 - 9000);
            }
            Fenced<float> floats(place, values);
            Fenced<std::int16_t> shorts(place, numbers);
            const Matf record{shape.width, shape.height, 1, floats.data()};
            Bytes out;
            write_pgm(bytes.data(), shape.width, shape.height, name.c_str());
            add_file(out);
            write_pgm_float(floats.data(), shape.width, shape.height, name.c_str());
            add_file(out);
            write_pgm_short(shorts.data(), shape.width, shape.height, name.c_str());
            add_file(out);
            write_fpgm(&record, name.c_str());
            add_file(out);
            return out;
        });
}

} // namespace
