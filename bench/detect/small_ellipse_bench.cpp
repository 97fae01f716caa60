// SPDX-License-Identifier: MIT
// The small-ellipse finder on one target, in pictures of several sizes: the time must not follow the picture. "tight"
// is the smallest picture that holds the ring.
#include "bench/support/routine.h"
#include "panoval.h"
#include "tests/reference/small_ellipse.h"
#include "tests/support/noise.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace
{

struct Scene {
    std::int32_t width, height;
    std::array<double, 5> ellipse;
    std::vector<std::uint8_t> original, fast, twin;
    std::vector<EllipseRegion> fast_records = {}, twin_records = {};
    std::vector<std::size_t> painted = {};

    // Only what the ring's painting changed, so that a large picture does not leave the caches.
    void restore()
    {
        for (const std::size_t i : painted)
            fast[i] = twin[i] = original[i];
    }
    void find_painted()
    {
        EllipseRegion* regions = nullptr;
        panoval::reference::find_small_ellipse(twin.data(), width, height, ellipse.data(), &regions);
        std::free(regions);
        for (std::size_t i = 0; i < twin.size(); ++i)
            if (twin[i] != original[i])
                painted.push_back(i);
        restore();
    }
    bool found_the_same() const
    {
        return fast_records.size() == twin_records.size() &&
               std::memcmp(fast_records.data(), twin_records.data(), fast_records.size() * sizeof(EllipseRegion)) == 0;
    }
};

std::vector<EllipseRegion> take(EllipseRegion* regions, std::uint32_t count)
{
    std::vector<EllipseRegion> records(regions, regions + count);
    std::free(regions);
    return records;
}

// Grey surroundings, a dark target, bright marks around it.
std::vector<std::uint8_t> picture_with_target(std::int32_t width, std::int32_t height)
{
    auto pixels = panoval::test::noise<std::uint8_t>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height),
                                                     60, 90, 3);
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x) {
            const double angle = std::atan2(y - height / 2, x - width / 2);
            if (std::fabs(angle - 1) < 0.2 || std::fabs(angle + 2) < 0.4)
                pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)] =
                    210;
        }
    return pixels;
}

panoval::bench::Case make(std::int32_t width, std::int32_t height, double a, double b, const std::string& content)
{
    const auto picture = picture_with_target(width, height);
    const auto s = std::make_shared<Scene>(
        Scene{width, height, {width / 2.0, height / 2.0, a, b, 0.3}, picture, picture, picture});
    s->find_painted();
    return {.size = std::to_string(width) + "x" + std::to_string(height),
            .content = content,
            .pixels = static_cast<double>(width) * height,
            .fast =
                [s] {
                    EllipseRegion* regions = nullptr;
                    const auto count =
                        find_small_ellipse(s->fast.data(), s->width, s->height, s->ellipse.data(), &regions);
                    s->fast_records = take(regions, count);
                },
            .twin =
                [s] {
                    EllipseRegion* regions = nullptr;
                    const auto count = panoval::reference::find_small_ellipse(s->twin.data(), s->width, s->height,
                                                                              s->ellipse.data(), &regions);
                    s->twin_records = take(regions, count);
                },
            .same = [s] { return s->found_the_same(); },
            .restore = [s] { s->restore(); }};
}

void add(std::int32_t width, std::int32_t height, double a, double b, const std::string& content)
{
    panoval::bench::add_case("find_small_ellipse", [=] { return make(width, height, a, b, content); });
}

const panoval::bench::Registration registration([] {
    add(190, 150, 90, 60, "tight");
    add(640, 480, 90, 60, "target");
    add(2000, 1500, 90, 60, "target");
    add(2000, 1500, 20, 16, "small");
    add(640, 480, 60, 90, "B>A");
});

} // namespace
