// SPDX-License-Identifier: MIT
#include "bench/support/routine.h"
#include "panoval.h"
#include "tests/reference/distance_transform.h"
#include "tests/support/noise.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace
{

using panoval::test::Content;

// One byte of mask is read, a cell of the scratch written, read and written again, and a distance written.
constexpr std::size_t kBytesPerPixel = 17;

struct Transform {
    std::vector<std::uint8_t> mask;
    std::vector<float> out[2]; // the routine's and the twin's
    Matb src{};
    Matf dist[2]{};
    Matf scratch[2]{};
    float metrics[2] = {1.f, 2.f};

    Transform(Content content, int width, int height) : mask(panoval::test::picture(content, width, height, 1))
    {
        if (content == Content::Photograph) // the dark parts are no picture
            for (auto& value : mask)
                value = value < 80 ? 0 : 255;
        src = {width, height, 1, mask.data()};
        for (int i = 0; i < 2; ++i) {
            out[i].resize(mask.size());
            dist[i] = {width, height, 1, out[i].data()};
        }
    }
    Transform(const Transform&) = delete;
    Transform& operator=(const Transform&) = delete;
    ~Transform()
    {
        std::free(scratch[0].data);
        std::free(scratch[1].data);
    }

    bool same() const
    {
        const std::size_t cells =
            static_cast<std::size_t>(scratch[0].width) * static_cast<std::size_t>(scratch[0].height);
        return std::memcmp(out[0].data(), out[1].data(), 4 * out[0].size()) == 0 &&
               std::memcmp(scratch[0].data, scratch[1].data, 4 * cells) == 0;
    }
};

panoval::bench::Case make(Content content, int width, int height, float straight, float diagonal)
{
    const auto t = std::make_shared<Transform>(content, width, height);
    t->metrics[0] = straight;
    t->metrics[1] = diagonal;
    const auto pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    return {std::to_string(width) + "x" + std::to_string(height),
            name_of(content),
            static_cast<double>(pixels),
            kBytesPerPixel * pixels,
            [t] { distanceTransform_3x3(&t->src, &t->scratch[0], &t->dist[0], t->metrics); },
            [t] { panoval::reference::distanceTransform_3x3(&t->src, &t->scratch[1], &t->dist[1], t->metrics); },
            [t] { return t->same(); }};
}

void add(Content content, int width, int height, float straight, float diagonal, const char* costs)
{
    panoval::bench::add_case(std::string("distanceTransform_3x3 ") + costs,
                             [=] { return make(content, width, height, straight, diagonal); });
}

const panoval::bench::Registration registration([] {
    for (const Content content :
         {Content::Noise, Content::Photograph, Content::Flat, Content::Ramp, Content::Checkerboard})
        add(content, 2000, 1500, 1.f, 2.f, "{1,2}");
    add(Content::Photograph, 400, 300, 1.f, 2.f, "{1,2}");
    add(Content::Photograph, 6000, 4000, 1.f, 2.f, "{1,2}");
    add(Content::Photograph, 2000, 1500, 0.955f, 1.3693f, "{.955,1.37}");
    add(Content::Photograph, 2000, 1500, 1.f, -1.f, "{1,-1}"); // the plain loop, whose sums may wrap
});

} // namespace
