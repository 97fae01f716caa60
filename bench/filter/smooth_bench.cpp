// SPDX-License-Identifier: MIT
#include "bench/support/routine.h"
#include "panoval.h"
#include "tests/reference/smooth.h"
#include "tests/support/noise.h"

#include <memory>
#include <vector>

namespace
{

using namespace panoval;

constexpr int kWidth = 2000;
constexpr int kHeight = 1500;

bench::Case make(const std::string& content, std::vector<std::uint8_t> source)
{
    struct Data {
        std::vector<std::uint8_t> src, fast, twin;
    };
    const auto data = std::make_shared<Data>();
    data->fast.resize(source.size());
    data->twin.resize(source.size());
    data->src = std::move(source);
    bench::Case c{"2000x1500", content, double{kWidth} * kHeight, data->src.size() * 2, {}, {}};
    c.fast = [data] { smooth_image(data->src.data(), kWidth, kHeight, data->fast.data()); };
    c.twin = [data] { reference::smooth_image(data->src.data(), kWidth, kHeight, data->twin.data()); };
    c.same = [data] { return data->fast == data->twin; };
    return c;
}

// One level a pixel along both axes: every sum is a whole number and no window is flat.
std::vector<std::uint8_t> steep_ramp()
{
    std::vector<std::uint8_t> values;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            values.push_back(static_cast<std::uint8_t>((x + y) & 0xFF));
    return values;
}

const bench::Registration registration([] {
    for (const auto content : {test::Content::Noise, test::Content::Photograph, test::Content::Flat,
                               test::Content::Ramp, test::Content::Checkerboard, test::Content::TwoLevel})
        bench::add_case("smooth_image",
                        [=] { return make(test::name_of(content), test::picture(content, kWidth, kHeight, 1)); });
    bench::add_case("smooth_image", [] { return make("steep ramp", steep_ramp()); });
});

} // namespace
