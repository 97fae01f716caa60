// SPDX-License-Identifier: MIT
// Inpainting of damaged scenes whose truth is known: what a user sees, as the error before and after.
#include "panoval.h"
#include "tests/reference/inpaint.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

namespace
{

using namespace panoval;
using namespace panoval::test;

using Bytes = std::vector<std::uint8_t>;

constexpr int kWidth = 240;
constexpr int kHeight = 180;

// A landscape: a sky that darkens upward, hills behind a wavy line, and a house with straight sides.
Bytes painted_scene()
{
    Bytes image;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const double hill = 95 + 18 * std::sin(x * 0.035) + 7 * std::sin(x * 0.11);
            const bool house = x >= 90 && x < 150 && y >= 70 && y < 130;
            const double shade = 12 * std::sin(x * 0.06) * std::cos(y * 0.05);
            const double sky[3] = {110 + 0.6 * y, 150 + 0.5 * y, 215 + 0.1 * y};
            const double ground[3] = {70 + 0.2 * y + shade, 110 + shade, 50.0};
            const double wall[3] = {190 + shade, 120 + 0.2 * (x - 90), 90.0};
            for (int c = 0; c < 3; ++c)
                image.push_back(static_cast<std::uint8_t>(house ? wall[c] : y > hill ? ground[c] : sky[c]));
        }
    return image;
}

using Mask = Bytes;

void mark(Mask& mask, int x, int y)
{
    if (x >= 0 && y >= 0 && x < kWidth && y < kHeight)
        mask[static_cast<std::size_t>(y * kWidth + x)] = 255;
}

Mask scratches()
{
    Mask mask(kWidth * kHeight, 0);
    for (int line = 0; line < 9; ++line)
        for (int t = 0; t < 150; ++t) {
            const double angle = 0.35 * line + 0.2;
            const int x = static_cast<int>(20 + 24 * line + t * std::cos(angle) * 0.8);
            const int y = static_cast<int>(15 + 9 * line + t * std::sin(angle) * 0.8);
            mark(mask, x, y);
            mark(mask, x + 1, y);
        }
    return mask;
}

// Rows of letters of 5 x 7 dots, each dot 2 pixels wide.
Mask text()
{
    const char* const kLetters[3][7] = {{"#   #", "##  #", "# # #", "#  ##", "#   #", "#   #", "#   #"},
                                        {" ### ", "#   #", "#   #", "#   #", "#   #", "#   #", " ### "},
                                        {"#####", "  #  ", "  #  ", "  #  ", "  #  ", "  #  ", "  #  "}};
    Mask mask(kWidth * kHeight, 0);
    for (int line = 0; line < 6; ++line)
        for (int letter = 0; letter < 16; ++letter)
            for (int dot = 0; dot < 35; ++dot)
                if (kLetters[(line + letter) % 3][dot / 5][dot % 5] == '#')
                    for (int i = 0; i < 4; ++i)
                        mark(mask, 10 + 14 * letter + 2 * (dot % 5) + i % 2, 12 + 28 * line + 2 * (dot / 5) + i / 2);
    return mask;
}

Mask holes()
{
    Mask mask(kWidth * kHeight, 0);
    Random random(4);
    for (int hole = 0; hole < 12; ++hole) {
        const auto cx = static_cast<int>(random.integer(15, kWidth - 16));
        const auto cy = static_cast<int>(random.integer(15, kHeight - 16));
        const auto radius = static_cast<int>(random.integer(3, 8));
        for (int y = -radius; y <= radius; ++y)
            for (int x = -radius; x <= radius; ++x)
                if (x * x + y * y <= radius * radius)
                    mark(mask, cx + x, cy + y);
    }
    return mask;
}

// Root mean square of the differences over the marked pixels.
double error(const Bytes& image, const Bytes& truth, const Mask& mask)
{
    double sum = 0;
    int count = 0;
    for (std::size_t i = 0; i < mask.size(); ++i)
        if (mask[i] != 0)
            for (std::size_t c = 0; c < 3; ++c, ++count)
                sum += (image[3 * i + c] - truth[3 * i + c]) * (image[3 * i + c] - truth[3 * i + c]);
    return std::sqrt(sum / count);
}

struct Errors {
    double before;
    double after;
};

// Paints the marked pixels white, fills them, and compares with the truth and with the twin.
Errors repair(const char* name, const Mask& marks, int range)
{
    const Bytes truth = painted_scene();
    Bytes image = truth;
    for (std::size_t i = 0; i < marks.size(); ++i)
        if (marks[i] != 0)
            std::fill_n(image.begin() + static_cast<std::ptrdiff_t>(3 * i), 3, std::uint8_t{255});
    const Bytes damaged = image;
    Mask mask = marks;
    Mat image_record = {kWidth, kHeight, 3, 1, kWidth * kHeight * 3, kWidth * kHeight * 3, image.data()};
    Mat mask_record = {kWidth, kHeight, 1, 1, kWidth * kHeight, kWidth * kHeight, mask.data()};
    inpaint(&image_record, &mask_record, range);

    Bytes twin = damaged;
    Mask twin_mask = marks;
    reference::inpaint(twin.data(), kWidth, kHeight, 3, twin_mask.data(), 1, range);
    EXPECT_TRUE(same_bits(image, twin)) << name;
    const Errors errors = {error(damaged, truth, mask), error(image, truth, mask)};
    std::printf("[ error    ] %-10s before %6.2f, after %5.2f grey levels\n", name, errors.before, errors.after);
    return errors;
}

TEST(InpaintScenes, RepairsScratches)
{
    const Errors e = repair("scratches", scratches(), 5);
    EXPECT_GT(e.before, 100);
    EXPECT_LT(e.after, e.before / 10);
}

TEST(InpaintScenes, RemovesText)
{
    const Errors e = repair("text", text(), 5);
    EXPECT_GT(e.before, 100);
    EXPECT_LT(e.after, e.before / 8);
}

TEST(InpaintScenes, ClosesHoles)
{
    const Errors e = repair("holes", holes(), 7);
    EXPECT_GT(e.before, 100);
    EXPECT_LT(e.after, e.before / 5);
}

} // namespace
