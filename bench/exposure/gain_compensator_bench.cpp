// SPDX-License-Identifier: MIT
#include "bench/support/routine.h"
#include "panoval.h"
#include "tests/reference/gain_compensator.h"
#include "tests/support/pictures.h"

#include <cstdio>
#include <memory>
#include <vector>

namespace
{

using namespace panoval;
using test::OwnedMask;
using test::OwnedMat;

// Two pictures of 2000 x 1500 that share three quarters of their width.
struct Pair {
    Pair(int channels, int elem_size, int high)
    {
        for (int k = 0; k < 2; ++k) {
            const auto seed = static_cast<std::uint64_t>(k);
            images.emplace_back(kWidth, kHeight, channels, elem_size, 0, high, seed);
            masks.emplace_back(kWidth, kHeight, 1.0, seed);
            mats.push_back(*images.back());
            matbs.push_back(*masks.back());
            corners.push_back({k * kWidth / 4, 0});
        }
    }
    static constexpr int kWidth = 2000;
    static constexpr int kHeight = 1500;
    std::vector<OwnedMat> images;
    std::vector<OwnedMask> masks;
    std::vector<Mat> mats;
    std::vector<Matb> matbs;
    std::vector<Point> corners;
    reference::PairEntries expected;
    reference::GainTables expected_tables;
    GainCompensator gc = {};
};

constexpr double kShared = Pair::kWidth * 3.0 / 4 * Pair::kHeight;

bench::Case make_step(const char* content, int channels, int elem_size, int high)
{
    const auto pair = std::make_shared<Pair>(channels, elem_size, high);
    gain_compensator_init_start(&pair->gc, 2);
    return {.size = "2000x1500",
            .content = content,
            .pixels = kShared,
            .memcpy_bytes = static_cast<std::size_t>(kShared) * 2 * static_cast<std::size_t>(channels * elem_size + 1),
            .fast =
                [pair] {
                    gain_compensator_init_step(&pair->gc, 0, 1, pair->corners[0], &pair->mats[0], &pair->matbs[0],
                                               pair->corners[1], &pair->mats[1], &pair->matbs[1]);
                },
            .twin =
                [pair] {
                    pair->expected = reference::measure_pair(pair->corners[0], pair->mats[0], pair->matbs[0],
                                                             pair->corners[1], pair->mats[1], pair->matbs[1], true);
                },
            .same = [pair] { return pair->gc.intensities.data[1] == pair->expected.mean_i; }};
}

bench::Case make_batch(const char* content, int channels, int elem_size, int high)
{
    const auto pair = std::make_shared<Pair>(channels, elem_size, high);
    return {.size = "2000x1500",
            .content = content,
            .pixels = kShared + 2.0 * Pair::kWidth * Pair::kHeight,
            .fast =
                [pair] {
                    gain_compensator_init(&pair->gc, 2, pair->corners.data(), pair->mats.data(), pair->matbs.data());
                },
            .twin =
                [pair] {
                    pair->expected_tables = reference::measure_all_pairs(pair->corners, pair->mats, pair->matbs, false);
                },
            .same =
                [pair] {
                    const auto gains = reference::solve_gains(pair->expected_tables, 2, false);
                    return gains[0] == pair->gc.gains.data[0] && gains[1] == pair->gc.gains.data[1];
                }};
}

bench::Case make_apply(const char* content, int elem_size, int high)
{
    const auto image = std::make_shared<OwnedMat>(2000, 1500, 3, elem_size, 0, high, 1);
    const auto other = std::make_shared<OwnedMat>(2000, 1500, 3, elem_size, 0, high, 1);
    const auto gain = std::make_shared<double>(1.0371);
    return {.size = "2000x1500x3",
            .content = content,
            .pixels = 2000.0 * 1500,
            .memcpy_bytes = std::size_t{2000} * 1500 * 3 * static_cast<std::size_t>(elem_size),
            .fast =
                [image, gain] {
                    GainCompensator gc = {};
                    gc.gains = {1, 1, 1, gain.get()};
                    gain_compensator_apply(&gc, 0, image->get());
                },
            .twin = [other, gain] { reference::apply_gain(*other->get(), *gain); },
            .same =
                [image, other] {
                    return std::memcmp((**image).data, (**other).data, static_cast<std::size_t>((**image).size)) == 0;
                }};
}

void add_step(const char* content, int channels, int elem_size, int high)
{
    bench::add_case("gain_compensator_init_step", [=] { return make_step(content, channels, elem_size, high); });
}

void add_batch(const char* content, int channels, int elem_size, int high)
{
    bench::add_case("gain_compensator_init", [=] { return make_batch(content, channels, elem_size, high); });
}

void add_apply(const char* content, int elem_size, int high)
{
    bench::add_case("gain_compensator_apply", [=] { return make_apply(content, elem_size, high); });
}

const bench::Registration registration([] {
    add_step("8 bit x 3", 3, 1, 255);
    add_step("8 bit x 1", 1, 1, 255);
    add_step("16 bit x 3", 3, 2, 40000);
    add_batch("8 bit x 3", 3, 1, 255);
    add_batch("16 bit x 3", 3, 2, 40000);
    add_apply("8 bit", 1, 255);
    add_apply("16 bit", 2, 65535);
});

} // namespace
