// SPDX-License-Identifier: MIT
// Blenders, regions and gain compensation against their literal twins.
#include "fuzz/input.h"
#include "panoval.h"
#include "tests/reference/feather_blender.h"
#include "tests/reference/gain_compensator.h"
#include "tests/reference/multi_band.h"
#include "tests/reference/regions.h"

namespace
{

using namespace panoval;
using namespace panoval::fuzz;

struct Picture {
    Point corner = {};
    std::vector<std::uint8_t> bytes;
    std::vector<std::uint8_t> covered;
    Mat mat = {};
    Matb mask = {};
};

Picture picture_of(Input& input, int channels, int elem_size)
{
    Picture picture;
    picture.corner = {input.number(-40, 60), input.number(-40, 60)};
    const int width = input.number(1, 40);
    const int height = input.number(1, 30);
    const std::size_t bytes = area(width, height) * static_cast<std::size_t>(channels * elem_size);
    picture.bytes = input.samples(bytes);
    picture.covered = input.mask(area(width, height));
    const auto size = static_cast<std::int32_t>(bytes);
    picture.mat = {width, height, channels, elem_size, size, size, picture.bytes.data()};
    picture.mask = {width, height, 1, picture.covered.data()};
    return picture;
}

bool same_mats(const Mat& a, const Mat& b)
{
    return a.width == b.width && a.height == b.height && a.size == b.size &&
           same_bits(a.data, b.data, static_cast<std::size_t>(b.size));
}

void feather(Input& input)
{
    const int channels = input.flag() ? 1 : 3;
    const int elem_size = input.number(1, 2);
    const Roi canvas = {input.number(-20, 20), input.number(-20, 20), input.number(1, 70), input.number(1, 50)};
    FeatherBlender fast = {};
    FeatherBlender twin = {};
    feather_blender_prepare(&fast, channels, &canvas);
    reference::feather_blender_prepare(&twin, channels, &canvas);
    for (int n = input.number(0, 4); n > 0; --n) {
        Picture picture = picture_of(input, channels, elem_size);
        feather_blender_feed(&fast, &picture.mat, &picture.mask, picture.corner);
        reference::feather_blender_feed(&twin, &picture.mat, &picture.mask, picture.corner);
    }
    Mat out = {};
    Mat expected = {};
    feather_blender_blend(&fast, &out, elem_size);
    reference::feather_blender_blend(&twin, &expected, elem_size);
    require(same_mats(out, expected));
    for (Matf* const map : {&twin.dst, &twin.distScratch, &twin.weightMap, &twin.dstWeightMap})
        std::free(map->data);
    std::free(out.data);
    std::free(expected.data);
}

void multi_band(Input& input)
{
    const int channels = input.flag() ? 1 : 3;
    const int elem_size = input.number(1, 2);
    const int bands = input.number(1, 7);
    Roi canvas = {input.number(-20, 20), input.number(-20, 20), input.number(1, 70), input.number(1, 50)};
    Roi twin_canvas = canvas;
    MultiBandBlender fast = {};
    multi_band_blender_setbands(&fast, bands);
    multi_band_blender_prepare(&fast, channels, &canvas);
    reference::MultiBand twin = reference::multi_band_prepare(bands, channels, twin_canvas);
    for (int n = input.number(0, 4); n > 0; --n) {
        Picture picture = picture_of(input, channels, elem_size);
        // Pictures lie on the canvas, at least in part.
        picture.corner.x = canvas.x + picture.corner.x % canvas.width;
        picture.corner.y = canvas.y + picture.corner.y % canvas.height;
        if (picture.corner.x + picture.mat.width <= canvas.x || picture.corner.y + picture.mat.height <= canvas.y)
            continue;
        multi_band_blender_feed(&fast, &picture.mat, &picture.mask, picture.corner);
        reference::multi_band_feed(twin, picture.mat, picture.mask, picture.corner);
    }
    Mat out = {};
    multi_band_blender_blend(&fast, &out, elem_size);
    const std::vector<std::uint8_t> expected = reference::multi_band_blend(twin, elem_size);
    require(static_cast<std::size_t>(out.size) == expected.size());
    require(same_bits<std::uint8_t>(out.data, expected.data(), expected.size()));
    std::free(out.data);
}

void cuts(Input& input)
{
    Picture picture = picture_of(input, input.number(1, 4), input.number(1, 2));
    const Roi roi = {input.number(-30, 50), input.number(-30, 50), input.number(0, 60), input.number(0, 60)};
    Mat cut = {};
    Mat expected = {};
    get_sub_image(&picture.mat, &roi, &cut);
    reference::get_sub_image(&picture.mat, &roi, &expected);
    require(same_mats(cut, expected));
    Matb mask = {};
    Matb expected_mask = {};
    get_sub_mask(&picture.mask, &roi, &mask);
    reference::get_sub_mask(&picture.mask, &roi, &expected_mask);
    require(mask.width == expected_mask.width && mask.height == expected_mask.height);
    require(same_bits(mask.data, expected_mask.data, area(mask.width, mask.height)));
    Matb both = {};
    Matb expected_both = {};
    require(get_mask_intersect(&mask, &expected_mask, &both) ==
            reference::get_mask_intersect(&mask, &expected_mask, &expected_both));
    require(same_bits(both.data, expected_both.data, area(both.width, both.height)));
    for (void* const block : {static_cast<void*>(cut.data), static_cast<void*>(expected.data),
                              static_cast<void*>(mask.data), static_cast<void*>(expected_mask.data),
                              static_cast<void*>(both.data), static_cast<void*>(expected_both.data)})
        std::free(block);
}

void overlaps(Input& input)
{
    const auto any = [&] { return input.number<std::int32_t>(-1'000'000, 1'000'000); };
    const Point a = {any(), any()};
    const Point b = {any(), any()};
    const Size size_a = {any(), any()};
    const Size size_b = {any(), any()};
    Roi roi = {1, 2, 3, 4};
    Roi expected = roi;
    require(overlapRoi(a, b, size_a, size_b, &roi) == reference::overlap_roi(a, b, size_a, size_b, &expected));
    require(roi.x == expected.x && roi.y == expected.y && roi.width == expected.width && roi.height == expected.height);
}

void gains(Input& input)
{
    const int channels = input.flag() ? 1 : 3;
    const int elem_size = input.number(1, 2);
    std::vector<Picture> pictures;
    for (int n = input.number(1, 4); n > 0; --n)
        pictures.push_back(picture_of(input, channels, elem_size));
    std::vector<Point> corners;
    std::vector<Mat> mats;
    std::vector<Matb> masks;
    for (Picture& picture : pictures) {
        corners.push_back(picture.corner);
        mats.push_back(picture.mat);
        masks.push_back(picture.mask);
    }
    GainCompensator compensator = {};
    gain_compensator_init(&compensator, static_cast<std::int32_t>(pictures.size()), corners.data(), mats.data(),
                          masks.data());
    const auto tables = reference::measure_all_pairs(corners, mats, masks, false);
    const std::vector<double> expected = reference::solve_gains(tables, pictures.size(), false);
    require(same_bits(compensator.gains.data, expected.data(), expected.size()));
    std::vector<std::uint8_t> bytes = pictures[0].bytes;
    Mat gained = mats[0];
    gained.data = bytes.data();
    gain_compensator_apply(&compensator, 0, &gained);
    reference::apply_gain(mats[0], expected[0]);
    require(bytes == pictures[0].bytes);
    gain_compensator_free(&compensator);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    [[maybe_unused]] static const bool is_silent = std::freopen("/dev/null", "w", stdout) != nullptr; // gains print
    Input input(data, size);
    void (*const all[])(Input&) = {feather, multi_band, cuts, overlaps, gains};
    all[input.number(0, 4)](input);
    return 0;
}
