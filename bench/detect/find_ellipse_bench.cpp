// SPDX-License-Identifier: MIT
#include "bench/support/routine.h"
#include "panoval.h"
#include "tests/reference/find_ellipse.h"
#include "tests/support/scene.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace panoval;

constexpr int kWidth = 2000;
constexpr int kHeight = 1500;
constexpr int kMinPixels = 20;
constexpr int kMaxRms = 2;

struct Data {
    std::vector<std::uint8_t> image;
    EllipseRegion* regions = nullptr;
    int count = 0;
    reference::FoundEllipses twin;

    void clear()
    {
        for (int i = 0; i < count; ++i)
            std::free(regions[i].points);
        std::free(regions);
        regions = nullptr;
        count = 0;
    }
    ~Data() { clear(); }
};

bench::Case make(const std::string& content, std::vector<std::uint8_t> image, int divisions)
{
    const auto data = std::make_shared<Data>();
    data->image = std::move(image);
    bench::Case c{"2000x1500", content, double{kWidth} * kHeight, data->image.size(), {}, {}};
    c.fast = [data, divisions] {
        data->clear();
        data->count = find_ellipse(data->image.data(), kWidth, kHeight, &data->regions, kMinPixels, kMaxRms, divisions);
    };
    c.twin = [data, divisions] {
        data->twin = reference::find_ellipse(data->image, kWidth, kHeight, kMinPixels, kMaxRms, divisions);
    };
    c.same = [data] {
        if (static_cast<std::size_t>(data->count) != data->twin.records.size())
            return false;
        for (int i = 0; i < data->count; ++i)
            if (data->regions[i].rms != data->twin.records[static_cast<std::size_t>(i)].rms)
                return false;
        return true;
    };
    return c;
}

// 60 targets as on a calibration board, their axes divided by `reduction`.
std::vector<std::uint8_t> board(double reduction)
{
    auto scene = test::target_board(kWidth, kHeight, 10, 6, 1);
    for (auto& ellipse : scene.ellipses) {
        ellipse.semi_major /= reduction;
        ellipse.semi_minor /= reduction;
    }
    return test::render(scene);
}

const bench::Registration registration([] {
    bench::add_case("find_ellipse", [] { return make("60 small", board(3), 8); });
    bench::add_case("find_ellipse", [] { return make("60 large", board(1), 8); });
    bench::add_case("find_ellipse",
                    [] { return make("photo", test::picture(test::Content::Photograph, kWidth, kHeight, 1), 8); });
});

} // namespace
