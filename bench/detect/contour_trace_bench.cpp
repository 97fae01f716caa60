// SPDX-License-Identifier: MIT
#include "bench/support/routine.h"
#include "detect/contour_trace.h"
#include "tests/reference/contour_trace.h"
#include "tests/support/noise.h"

#include <memory>

namespace
{

using namespace panoval;

constexpr int kWidth = 2000;
constexpr int kHeight = 1500;

// A picture cut at a middle grey: foreground is dark.
std::vector<std::uint8_t> foreground_of(test::Content content)
{
    auto map = test::picture(content, kWidth, kHeight, 1);
    for (std::uint8_t& pixel : map)
        pixel = pixel <= 100 ? 1 : 0;
    return map;
}

bench::Case make(test::Content content)
{
    struct Data {
        std::vector<std::uint8_t> map;
        std::vector<std::uint32_t> wide_map;
        OutlineList list;
        reference::TracedContours twin;
    };
    const auto data = std::make_shared<Data>();
    data->map = foreground_of(content);
    data->wide_map.assign(data->map.begin(), data->map.end());
    bench::Case c{"2000x1500", test::name_of(content), double{kWidth} * kHeight, data->map.size() * 2, {}, {}};
    c.fast = [data] { (void)trace_contours(kWidth, kHeight, data->map.data(), data->list); };
    c.twin = [data] { data->twin = reference::trace_contours(kWidth, kHeight, data->wide_map); };
    c.same = [data] { return static_cast<std::size_t>(data->list.count) == data->twin.outlines.size(); };
    return c;
}

const bench::Registration registration([] {
    for (const auto content : {test::Content::Noise, test::Content::Photograph, test::Content::TwoLevel})
        bench::add_case("trace_contours", [=] { return make(content); });
});

} // namespace
