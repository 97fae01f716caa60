// SPDX-License-Identifier: MIT
#include "bench/support/routine.h"
#include "panoval.h"
#include "tests/reference/histogram.h"
#include "tests/support/noise.h"

#include <array>
#include <memory>
#include <vector>

namespace
{

using panoval::test::Content;

struct Histogram {
    std::vector<std::uint8_t> pixels;
    std::array<double, 256> fast = {};
    std::array<double, 256> twin = {};
    std::int32_t fast_threshold = 0;
    std::int32_t twin_threshold = 0;
};

panoval::bench::Case make_count(Content content, int width, int height)
{
    const auto h = std::make_shared<Histogram>();
    h->pixels = panoval::test::picture(content, width, height, 1);
    return {.size = std::to_string(width) + "x" + std::to_string(height),
            .content = panoval::test::name_of(content),
            .pixels = static_cast<double>(width) * height,
            .memcpy_bytes = h->pixels.size(),
            .fast =
                [=] {
                    double* holder = h->fast.data();
                    histogram_count(h->pixels.data(), width, height, &holder);
                },
            .twin =
                [=] {
                    double* holder = h->twin.data();
                    panoval::reference::histogram_count(h->pixels.data(), width, height, &holder);
                },
            .same = [h] { return h->fast == h->twin; }};
}

panoval::bench::Case make_threshold(Content content)
{
    const auto h = std::make_shared<Histogram>();
    h->pixels = panoval::test::picture(content, 640, 480, 1);
    double* holder = h->fast.data();
    histogram_count(h->pixels.data(), 640, 480, &holder);
    return {.size = "256",
            .content = panoval::test::name_of(content),
            .pixels = 256,
            .fast = [h] { h->fast_threshold = find_threshold(h->fast.data()); },
            .twin = [h] { h->twin_threshold = panoval::reference::find_threshold(h->fast.data()); },
            .same = [h] { return h->fast_threshold == h->twin_threshold; }};
}

const panoval::bench::Registration registration([] {
    for (const Content content : panoval::test::kAllContents)
        panoval::bench::add_case("histogram_count", [=] { return make_count(content, 2000, 1500); });
    panoval::bench::add_case("histogram_count", [] { return make_count(Content::Noise, 32, 32); });
    for (const Content content : {Content::Noise, Content::Photograph, Content::Flat, Content::TwoLevel})
        panoval::bench::add_case("find_threshold", [=] { return make_threshold(content); });
});

} // namespace
