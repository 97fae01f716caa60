// SPDX-License-Identifier: MIT
#include "bench/support/routine.h"
#include "panoval.h"
#include "tests/reference/mat_to_image.h"
#include "tests/support/noise.h"

#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace panoval::bench;

struct Data {
    std::vector<std::uint8_t> samples;
    std::vector<std::uint8_t> fast;
    std::vector<std::uint8_t> twin;
    Mat image;
};

Case make(std::int32_t width, std::int32_t height, std::int32_t channels, std::int32_t elem_size)
{
    const auto pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    const auto bytes = pixels * static_cast<std::size_t>(channels * elem_size);
    const auto data = std::make_shared<Data>();
    data->samples = panoval::test::noise<std::uint8_t>(bytes, 0, 255, 1);
    data->fast.resize(3 * pixels);
    data->twin.resize(3 * pixels);
    const auto size = static_cast<std::int32_t>(bytes);
    data->image = {width, height, channels, elem_size, size, size, data->samples.data()};
    Case c;
    c.size = std::to_string(width) + "x" + std::to_string(height);
    c.content = std::to_string(channels) + " x " + std::to_string(8 * elem_size) + " bit";
    c.pixels = static_cast<double>(pixels);
    c.memcpy_bytes = channels * elem_size == 3 ? bytes : bytes + 3 * pixels; // three bytes a pixel are a plain copy
    c.fast = [data] { MatToImage(&data->image, data->fast.data()); };
    c.twin = [data] { panoval::reference::mat_to_image(data->image, data->twin.data()); };
    c.same = [data] { return data->fast == data->twin; };
    return c;
}

const Registration registration([] {
    for (const std::int32_t channels : {1, 3})
        for (const std::int32_t elem_size : {1, 2}) {
            add_case("MatToImage", [=] { return make(200, 150, channels, elem_size); });
            add_case("MatToImage", [=] { return make(2000, 1500, channels, elem_size); });
        }
});

} // namespace
