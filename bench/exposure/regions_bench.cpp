// SPDX-License-Identifier: MIT
// Cuts and intersections into a destination that is used again, as the compensator and a host use them. A cut that lies
// wholly inside is a copy; one that hangs over the edge clears the rest.
#include "bench/support/routine.h"
#include "panoval.h"
#include "tests/reference/regions.h"
#include "tests/support/noise.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace panoval::bench;
using panoval::test::Content;
using panoval::test::name_of;
using panoval::test::picture;

struct Images {
    std::vector<std::uint8_t> samples;
    Mat src = {};
    Mat fast = {};
    Mat twin = {};
    ~Images()
    {
        MatDestroy(&fast);
        MatDestroy(&twin);
    }
};

struct Masks {
    std::vector<std::uint8_t> first;
    std::vector<std::uint8_t> second;
    Matb a = {};
    Matb b = {};
    Matb fast = {};
    Matb twin = {};
    std::int32_t fast_count = 0;
    std::int32_t twin_count = 0;
    ~Masks()
    {
        std::free(fast.data);
        std::free(twin.data);
    }
};

std::string size_text(std::int32_t width, std::int32_t height)
{
    return std::to_string(width) + "x" + std::to_string(height);
}

std::size_t pixels_of(std::int32_t width, std::int32_t height)
{
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}

// Where the cut lies in the image. Whole rows are one run of memory and compare with a memcpy; other cuts read rows
// with gaps, which no copy does at memcpy's rate.
enum class Place { WholeRows, Inside, Over };

const char* name_of(Place place)
{
    return place == Place::WholeRows ? "rows" : place == Place::Inside ? "inside" : "over";
}

// Half of the image, or a part as large that hangs over its right edge by a quarter of the cut.
Roi half_of(std::int32_t width, std::int32_t height, Place place)
{
    if (place == Place::WholeRows)
        return {0, height / 4, width, height / 2};
    return {place == Place::Inside ? width / 4 : width - width * 3 / 8, 0, width / 2, height};
}

Case make_sub_image(std::int32_t width, std::int32_t height, std::int32_t elem_size, Place place)
{
    constexpr std::int32_t kChannels = 3;
    const auto data = std::make_shared<Images>();
    data->samples = panoval::test::noise<std::uint8_t>(
        pixels_of(width, height) * static_cast<std::size_t>(kChannels * elem_size), 0, 255, 1);
    const auto size = static_cast<std::int32_t>(data->samples.size());
    data->src = {width, height, kChannels, elem_size, size, size, data->samples.data()};
    const Roi roi = half_of(width, height, place);
    Case c;
    c.size = size_text(roi.width, roi.height);
    c.content = name_of(place);
    c.pixels = static_cast<double>(pixels_of(roi.width, roi.height));
    c.memcpy_bytes = pixels_of(roi.width, roi.height) * static_cast<std::size_t>(kChannels * elem_size);
    c.fast = [data, roi] { get_sub_image(&data->src, &roi, &data->fast); };
    c.twin = [data, roi] { panoval::reference::get_sub_image(&data->src, &roi, &data->twin); };
    c.same = [data] {
        return data->fast.size == data->twin.size &&
               std::memcmp(data->fast.data, data->twin.data, static_cast<std::size_t>(data->fast.size)) == 0;
    };
    return c;
}

std::shared_ptr<Masks> masks(Content content, std::int32_t width, std::int32_t height)
{
    const auto data = std::make_shared<Masks>();
    data->first = picture(content, width, height, 1);
    data->second = picture(content, width, height, 2);
    data->a = {width, height, 1, data->first.data()};
    data->b = {width, height, 1, data->second.data()};
    return data;
}

bool same_masks(const Masks& data)
{
    return data.fast_count == data.twin_count && data.fast.width == data.twin.width &&
           std::memcmp(data.fast.data, data.twin.data, pixels_of(data.fast.width, data.fast.height)) == 0;
}

Case make_sub_mask(std::int32_t width, std::int32_t height, Place place)
{
    const auto data = masks(Content::TwoLevel, width, height);
    const Roi roi = half_of(width, height, place);
    Case c;
    c.size = size_text(roi.width, roi.height);
    c.content = name_of(place);
    c.pixels = static_cast<double>(pixels_of(roi.width, roi.height));
    c.memcpy_bytes = pixels_of(roi.width, roi.height);
    c.fast = [data, roi] { get_sub_mask(&data->a, &roi, &data->fast); };
    c.twin = [data, roi] { panoval::reference::get_sub_mask(&data->a, &roi, &data->twin); };
    c.same = [data] { return same_masks(*data); };
    return c;
}

Case make_intersect(Content content, std::int32_t width, std::int32_t height)
{
    const auto data = masks(content, width, height);
    Case c;
    c.size = size_text(width, height);
    c.content = name_of(content);
    c.pixels = static_cast<double>(pixels_of(width, height));
    c.memcpy_bytes = 3 * pixels_of(width, height);
    c.fast = [data] { data->fast_count = get_mask_intersect(&data->a, &data->b, &data->fast); };
    c.twin = [data] { data->twin_count = panoval::reference::get_mask_intersect(&data->a, &data->b, &data->twin); };
    c.same = [data] { return same_masks(*data); };
    return c;
}

void add_sub_image(std::int32_t width, std::int32_t height, std::int32_t elem_size, Place place)
{
    add_case("get_sub_image, 3 x " + std::to_string(8 * elem_size) + " bit",
             [=] { return make_sub_image(width, height, elem_size, place); });
}

void add_sub_mask(std::int32_t width, std::int32_t height, Place place)
{
    add_case("get_sub_mask", [=] { return make_sub_mask(width, height, place); });
}

void add_intersect(Content content, std::int32_t width, std::int32_t height)
{
    add_case("get_mask_intersect", [=] { return make_intersect(content, width, height); });
}

const Registration registration([] {
    for (const Place place : {Place::WholeRows, Place::Inside, Place::Over}) {
        add_sub_image(640, 480, 1, place);
        add_sub_image(3000, 2000, 1, place);
        add_sub_image(3000, 2000, 2, place);
        add_sub_mask(640, 480, place);
        add_sub_mask(3000, 2000, place);
    }
    for (const Content content : {Content::Noise, Content::Flat, Content::Checkerboard, Content::Ramp}) {
        add_intersect(content, 640, 480);
        add_intersect(content, 3000, 2000);
    }
});

} // namespace
