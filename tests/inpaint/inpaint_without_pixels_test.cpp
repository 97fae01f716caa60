// SPDX-License-Identifier: MIT
// Records that have a block but no pixels: nothing is read or written, in the block or beside it.
#include "panoval.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace
{

struct Shape {
    std::int32_t width;
    std::int32_t height;
    std::int32_t channels;
};
constexpr Shape kWithoutPixels[] = {{0, 3, 1}, {3, 0, 1}, {3, 3, 0}, {-1, 3, 1}, {3, -1, 1}, {3, 3, -1}, {0, 0, 0}};

// A block of marks with room before and behind what a record of it may own.
class Marks
{
public:
    Marks() : bytes_(64, 9) {}
    Mat record(const Shape& shape) { return {shape.width, shape.height, shape.channels, 1, 0, 0, bytes_.data() + 32}; }
    bool are_untouched() const { return bytes_ == std::vector<std::uint8_t>(64, 9); }

private:
    std::vector<std::uint8_t> bytes_;
};

TEST(InpaintWithoutPixels, LeavesTheMasksBlockAlone)
{
    for (const Shape& shape : kWithoutPixels) {
        Marks marks;
        Marks picture;
        Mat mask = marks.record(shape);
        Mat image = picture.record({3, 3, 3});
        inpaint(&image, &mask, 3);
        EXPECT_TRUE(marks.are_untouched()) << shape.width << " x " << shape.height << " x " << shape.channels;
        EXPECT_TRUE(picture.are_untouched());
    }
}

TEST(InpaintWithoutPixels, LeavesThePicturesBlockAlone)
{
    for (Shape shape : kWithoutPixels) {
        if (shape.channels == 1)
            shape.channels = 3;
        Marks marks;
        Marks picture;
        Mat mask = marks.record({5, 5, 1});
        Mat image = picture.record(shape);
        inpaint(&image, &mask, 3);
        EXPECT_TRUE(picture.are_untouched()) << shape.width << " x " << shape.height << " x " << shape.channels;
    }
}

} // namespace
