// SPDX-License-Identifier: MIT
#include "bench/support/routine.h"
#include "blend/border.h"
#include "blend/pyramid.h"
#include "core/heap.h"
#include "tests/reference/pyramid.h"
#include "tests/support/noise.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

namespace panoval::bench
{
namespace
{

constexpr int kWidth = 2000;
constexpr int kHeight = 1500;
constexpr int kBands = 5;

using reference::Image;

bool equal(const Matf& a, const Image& b)
{
    return std::memcmp(a.data, b.data.data(), b.data.size() * sizeof(float)) == 0;
}

// An image, half of it, twice that again, and its bands; each beside its twin.
struct Pyramids {
    explicit Pyramids(int channels)
        : image(kWidth, kHeight, channels), twin_half(Image::reduced(image)), twin_twice(kWidth, kHeight, channels)
    {
        const auto samples = test::picture(test::Content::Photograph, kWidth * channels, kHeight, 2);
        std::copy(samples.begin(), samples.end(), image.data.begin());
        MatfReset(&src, kWidth, kHeight, channels);
        std::copy(image.data.begin(), image.data.end(), src.data);
        MatfReset(&half, kWidth / 2, kHeight / 2, channels);
        MatfReset(&twice, kWidth, kHeight, channels);
        pyr_down(&src, &half, kBorderMirrorInner);
        reference::pyr_down(image, twin_half, 4);
    }
    ~Pyramids()
    {
        for (Matf* m : {&src, &half, &twice})
            empty_container(*m);
        for (Matf& level : levels)
            empty_container(level);
    }
    Pyramids(const Pyramids&) = delete;
    Pyramids& operator=(const Pyramids&) = delete;

    Image image, twin_half, twin_twice;
    Matf src{}, half{}, twice{};
    Matf levels[kBands + 1] = {};
    std::vector<Image> twin_levels;
};

constexpr std::size_t bytes_of(int channels)
{
    return static_cast<std::size_t>(kWidth * kHeight * channels) * sizeof(float);
}

Case case_of(int channels)
{
    Case c;
    c.size = std::to_string(kWidth) + "x" + std::to_string(kHeight) + "x" + std::to_string(channels);
    c.content = "photo";
    c.pixels = kWidth * kHeight;
    return c;
}

Case make_down(int channels)
{
    const auto p = std::make_shared<Pyramids>(channels);
    const std::size_t bytes = bytes_of(channels);
    Case down = case_of(channels);
    down.memcpy_bytes = bytes + bytes / 4;
    down.fast = [p] { pyr_down(&p->src, &p->half, kBorderMirrorInner); };
    down.twin = [p] { reference::pyr_down(p->image, p->twin_half, 4); };
    down.same = [p] { return equal(p->half, p->twin_half); };
    return down;
}

Case make_up(int channels)
{
    const auto p = std::make_shared<Pyramids>(channels);
    const std::size_t bytes = bytes_of(channels);
    Case up = case_of(channels);
    up.memcpy_bytes = bytes + bytes / 4;
    up.fast = [p] { pyr_up(&p->half, &p->twice); };
    up.twin = [p] { reference::pyr_up(p->twin_half, p->twin_twice); };
    up.same = [p] { return equal(p->twice, p->twin_twice); };
    return up;
}

Case make_laplace(int channels)
{
    const auto p = std::make_shared<Pyramids>(channels);
    const std::size_t bytes = bytes_of(channels);
    Case laplace = case_of(channels);
    laplace.memcpy_bytes = bytes + bytes * 4 / 3;
    laplace.fast = [p] { create_laplace_pyr(&p->src, kBands, p->levels); };
    laplace.twin = [p] { p->twin_levels = reference::create_laplace_pyr(p->image, kBands); };
    laplace.same = [p] {
        bool same = true;
        for (std::size_t i = 0; i < p->twin_levels.size(); ++i)
            same = same && equal(p->levels[i], p->twin_levels[i]);
        return same;
    };
    return laplace;
}

const Registration registration([] {
    for (const int channels : {1, 3}) {
        add_case("pyr_down", [=] { return make_down(channels); });
        add_case("pyr_up", [=] { return make_up(channels); });
        add_case("create_laplace_pyr", [=] { return make_laplace(channels); });
    }
});

} // namespace
} // namespace panoval::bench
