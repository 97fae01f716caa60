// SPDX-License-Identifier: MIT
#include "bench/support/routine.h"
#include "panoval.h"
#include "tests/reference/gradient.h"
#include "tests/support/noise.h"

#include <memory>
#include <vector>

namespace
{

using namespace panoval;

struct Gradient {
    explicit Gradient(std::size_t count) : dx(count), dy(count), magnitude(count) {}
    std::vector<std::int16_t> dx, dy;
    std::vector<std::uint16_t> magnitude;
    bool operator==(const Gradient&) const = default;
};

bench::Case make(test::Content content, int width, int height)
{
    struct Data {
        std::vector<std::uint8_t> src;
        Gradient fast, twin;
    };
    auto src = test::picture(content, width, height, 1);
    const std::size_t count = src.size();
    const auto data = std::make_shared<Data>(Data{std::move(src), Gradient(count), Gradient(count)});
    bench::Case c{std::to_string(width) + "x" + std::to_string(height),
                  test::name_of(content),
                  double{1} * width * height,
                  count * 7,
                  {},
                  {}};
    c.fast = [=] {
        gradient_image(data->src.data(), width, height, data->fast.dx.data(), data->fast.dy.data(),
                       data->fast.magnitude.data());
    };
    c.twin = [=] {
        reference::gradient_image(data->src.data(), width, height, data->twin.dx.data(), data->twin.dy.data(),
                                  data->twin.magnitude.data());
    };
    c.same = [=] { return data->fast == data->twin; };
    return c;
}

void add(test::Content content, int width, int height)
{
    bench::add_case("gradient_image", [=] { return make(content, width, height); });
}

const bench::Registration registration([] {
    for (const auto content : {test::Content::Noise, test::Content::Photograph, test::Content::Flat})
        add(content, 2000, 1500);
    add(test::Content::Photograph, 200, 150);
});

} // namespace
