// SPDX-License-Identifier: MIT
// Inpainting with a radius of 5: one blob of 10^4, 10^5 and 10^6 pixels, whose rates show that time follows the filled
// area, and scratches all over a picture. Rates are of filled pixels.
#include "bench/support/routine.h"
#include "panoval.h"
#include "tests/reference/inpaint.h"
#include "tests/support/noise.h"

#include <cmath>
#include <memory>

namespace
{

using namespace panoval;

using Bytes = std::vector<std::uint8_t>;

constexpr int kRange = 5;

struct Data {
    int width;
    int height;
    Bytes original;
    Bytes marks;
    Bytes image;
    Bytes mask;
    Bytes twin_image;
};

std::shared_ptr<Data> make_data(test::Content content, int width, int height)
{
    const auto count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    const auto data = std::make_shared<Data>(Data{width, height, Bytes(3 * count), Bytes(count, 0), {}, {}, {}});
    for (std::size_t c = 0; c < 3; ++c) {
        const Bytes channel = test::picture(content, width, height, 1 + c);
        for (std::size_t i = 0; i < count; ++i)
            data->original[3 * i + c] = channel[i];
    }
    return data;
}

bench::Case make(const std::shared_ptr<Data>& data, test::Content content, bool has_twin)
{
    std::size_t marked = 0;
    for (const std::uint8_t mark : data->marks)
        marked += mark != 0 ? 1 : 0;
    bench::Case c;
    c.size = std::to_string(data->width) + "x" + std::to_string(data->height);
    c.content = test::name_of(content);
    c.pixels = static_cast<double>(marked);
    c.restore = [data] {
        data->image = data->original;
        data->mask = data->marks;
    };
    c.fast = [data] {
        const int count = data->width * data->height;
        Mat image = {data->width, data->height, 3, 1, 3 * count, 3 * count, data->image.data()};
        Mat mask = {data->width, data->height, 1, 1, count, count, data->mask.data()};
        inpaint(&image, &mask, kRange);
    };
    if (has_twin) {
        c.twin = [data] {
            reference::inpaint(data->image.data(), data->width, data->height, 3, data->mask.data(), 1, kRange);
            data->twin_image = data->image;
        };
        c.same = [data] { return data->image == data->twin_image; };
    }
    return c;
}

bench::Case make_blob(test::Content content, double pixels, bool has_twin)
{
    const double radius = std::sqrt(pixels / 3.14159265);
    const int side = static_cast<int>(2 * radius) + 40;
    const auto data = make_data(content, side, side);
    for (int i = 0; i < side * side; ++i)
        if (std::hypot(i % side - side / 2, i / side - side / 2) <= radius)
            data->marks[static_cast<std::size_t>(i)] = 255;
    return make(data, content, has_twin);
}

bench::Case make_scratches(test::Content content, int width, int height)
{
    const auto data = make_data(content, width, height);
    for (int line = 0; line < 40; ++line)
        for (int t = 0; t < width; ++t) {
            const int x = 20 + (t * 7 + line * 131) % (width - 40);
            const int y = 20 + (t * (line % 9) / 8 + line * 97) % (height - 40);
            for (int i = 0; i < 4; ++i)
                data->marks[static_cast<std::size_t>((y + i / 2) * width + x + i % 2)] = 255;
        }
    return make(data, content, true);
}

void add_blob(test::Content content, const char* name, double pixels, bool has_twin)
{
    bench::add_case(name, [=] { return make_blob(content, pixels, has_twin); });
}

const bench::Registration registration([] {
    add_blob(test::Content::Photograph, "inpaint, blob of 10^4", 1e4, true);
    add_blob(test::Content::Noise, "inpaint, blob of 10^4", 1e4, true);
    add_blob(test::Content::Flat, "inpaint, blob of 10^4", 1e4, true);
    add_blob(test::Content::Photograph, "inpaint, blob of 10^5", 1e5, true);
    add_blob(test::Content::Photograph, "inpaint, blob of 10^6", 1e6, false); // the twin's list makes it wait
    bench::add_case("inpaint, scratches", [] { return make_scratches(test::Content::Photograph, 640, 480); });
});

} // namespace
