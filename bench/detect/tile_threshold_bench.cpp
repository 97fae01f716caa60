// SPDX-License-Identifier: MIT
#include "bench/support/routine.h"
#include "detect/level_counts.h"
#include "detect/tile_otsu.h"
#include "detect/tile_threshold.h"
#include "tests/reference/tile_threshold.h"
#include "tests/support/noise.h"

#include <memory>
#include <vector>

namespace
{

using namespace panoval;

std::string size_of(int width, int height)
{
    return std::to_string(width) + "x" + std::to_string(height);
}

bench::Case make_tile(test::Content content, int side)
{
    struct Data {
        std::vector<std::uint8_t> tile;
        std::int32_t fast = -1, twin = -1;
    };
    const auto data = std::make_shared<Data>();
    const auto sides = static_cast<std::size_t>(side);
    data->tile = test::picture(content, side, side, 1);
    bench::Case c{size_of(side, side), test::name_of(content), double{1} * side * side, 0, {}, {}};
    c.fast = [=] {
        std::uint32_t counts[kGreyLevels];
        count_levels(data->tile.data(), sides, sides, sides, counts);
        data->fast = otsu_threshold(counts, side * side);
    };
    c.twin = [=] { data->twin = reference::tile_otsu_threshold(side, side, data->tile.data()); };
    c.same = [=] { return data->fast == data->twin; };
    return c;
}

// The threshold of a tile whose levels are counted already.
bench::Case make_counts(test::Content content, int side)
{
    struct Data {
        std::uint32_t counts[kGreyLevels];
        std::int32_t fast = -1, twin = -1;
    };
    const auto data = std::make_shared<Data>();
    const auto tile = test::picture(content, side, side, 1);
    count_levels(tile.data(), 0, tile.size(), 1, data->counts);
    bench::Case c{"256", test::name_of(content), 256, 0, {}, {}};
    c.fast = [=] { data->fast = otsu_threshold(data->counts, side * side); };
    c.twin = [=] { data->twin = reference::otsu_threshold(data->counts, side * side); };
    c.same = [=] { return data->fast == data->twin; };
    return c;
}

template <class Mark>
bench::Case make_map(test::Content content, int divisions)
{
    constexpr int kWidth = 2000;
    constexpr int kHeight = 1500;
    struct Data {
        std::vector<std::uint8_t> image;
        std::vector<Mark> fast, twin;
    };
    const auto data = std::make_shared<Data>();
    data->image = test::picture(content, kWidth, kHeight, 1);
    data->fast.resize(data->image.size());
    data->twin.resize(data->image.size());
    bench::Case c{size_of(kWidth, kHeight),
                  test::name_of(content) + "/" + std::to_string(divisions),
                  double{kWidth} * kHeight,
                  data->image.size() * (1 + sizeof(Mark)),
                  {},
                  {}};
    c.fast = [=] { (void)adaptive_tile_threshold(kWidth, kHeight, data->image.data(), data->fast.data(), divisions); };
    c.twin = [=] {
        reference::adaptive_tile_threshold(kWidth, kHeight, data->image.data(), data->twin.data(), divisions);
    };
    c.same = [=] { return data->fast == data->twin; };
    return c;
}

void add_tile(test::Content content, int side)
{
    bench::add_case("threshold of a tile", [=] { return make_tile(content, side); });
}

template <class Mark>
void add_map(const char* routine, test::Content content, int divisions)
{
    bench::add_case(routine, [=] { return make_map<Mark>(content, divisions); });
}

const bench::Registration registration([] {
    for (const auto content :
         {test::Content::Noise, test::Content::Photograph, test::Content::Ramp, test::Content::TwoLevel})
        bench::add_case("otsu_threshold", [=] { return make_counts(content, 64); });
    for (const auto content : {test::Content::Noise, test::Content::Photograph, test::Content::Ramp,
                               test::Content::Flat, test::Content::TwoLevel})
        add_tile(content, 64);
    add_tile(test::Content::Noise, 200);
    add_tile(test::Content::Photograph, 200);
    for (const auto content : {test::Content::Noise, test::Content::Photograph, test::Content::Ramp,
                               test::Content::Flat, test::Content::TwoLevel}) {
        add_map<std::uint8_t>("adaptive_tile_threshold, bytes", content, 10);
        add_map<std::uint32_t>("adaptive_tile_threshold, words", content, 10);
    }
    for (const int divisions : {1, 60})
        for (const auto content : {test::Content::Noise, test::Content::Photograph}) {
            add_map<std::uint8_t>("adaptive_tile_threshold, bytes", content, divisions);
            add_map<std::uint32_t>("adaptive_tile_threshold, words", content, divisions);
        }
});

} // namespace
