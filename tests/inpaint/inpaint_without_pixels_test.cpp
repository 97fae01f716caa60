// SPDX-License-Identifier: MIT
// Records that have a block but no pixels: nothing is read or written, in the block or beside it.
#include "panoval.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
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

TEST(InpaintWithoutPixels, RecordsWithoutABlockAreNone)
{
    Marks marks;
    Mat mask = marks.record({3, 3, 1});
    Mat image = marks.record({3, 3, 3});
    Mat nothing = {3, 3, 1, 1, 0, 0, nullptr};
    inpaint(&image, &nothing, 3);
    EXPECT_TRUE(marks.are_untouched());
    nothing.channels = 3;
    inpaint(&nothing, &mask, 3);
    EXPECT_EQ(nothing.data, nullptr);
}

// The frame around a picture has two more on each side.
TEST(InpaintWithoutPixels, APictureTooLongForItsFrameStaysAsItIs)
{
    constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
    for (const Shape& shape : {Shape{kMost - 1, 1, 3}, Shape{kMost, 1, 3}, Shape{1, kMost, 3}}) {
        Marks marks;
        Marks picture;
        Mat mask = marks.record({5, 5, 1});
        Mat image = picture.record(shape);
        inpaint(&image, &mask, 3);
        EXPECT_TRUE(picture.are_untouched()) << shape.width << " x " << shape.height;
    }
}

} // namespace
