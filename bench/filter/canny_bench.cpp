// SPDX-License-Identifier: MIT
// The edge detector on pictures of 12 megapixels, with a sigma whose kernel has nine taps and with one of 33.
#include "bench/support/routine.h"
#include "panoval.h"
#include "tests/reference/canny.h"
#include "tests/support/noise.h"

#include <memory>

namespace
{

using namespace panoval;

bench::Case make(test::Content content, int width, int height, double sigma)
{
    struct Data {
        std::vector<std::uint8_t> image;
        std::vector<std::uint8_t> edge;
        std::vector<std::uint8_t> twin_edge;
    };
    const auto data = std::make_shared<Data>();
    data->image = test::picture(content, width, height, 1);
    data->edge.resize(data->image.size());

    bench::Case c;
    c.size = std::to_string(width) + "x" + std::to_string(height);
    c.content = test::name_of(content);
    c.pixels = static_cast<double>(data->image.size());
    c.memcpy_bytes = data->image.size();
    c.fast = [=] { canny(data->image.data(), height, width, data->edge.data(), sigma, 0.5, 0.9, nullptr, nullptr); };
    c.twin = [=] { data->twin_edge = reference::canny(data->image.data(), height, width, sigma, 0.5, 0.9).edge; };
    c.same = [=] { return data->edge == data->twin_edge; };
    return c;
}

void add(test::Content content, int width, int height, double sigma, const char* name)
{
    bench::add_case(name, [=] { return make(content, width, height, sigma); });
}

const bench::Registration registration([] {
    for (const auto content : {test::Content::Photograph, test::Content::Noise, test::Content::Flat,
                               test::Content::Ramp, test::Content::Checkerboard, test::Content::TwoLevel})
        add(content, 4000, 3000, 1.4, "canny");
    add(test::Content::Photograph, 640, 480, 1.4, "canny");
    add(test::Content::Photograph, 2000, 1500, 6.4, "canny, sigma 6.4");
});

} // namespace
