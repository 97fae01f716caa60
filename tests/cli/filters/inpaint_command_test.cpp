// SPDX-License-Identifier: MIT
// panoval inpaint, from outside.
#include "image/image_read.h"
#include "image/image_write.h"
#include "tests/cli/run_program.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace panoval::cli::test
{

namespace
{

using Json = nlohmann::json;

// A smooth coloured picture with a damaged block, and the mask of the damage.
class Inpainting : public ScratchFolder
{
protected:
    Inpainting()
    {
        truth_ = make_image(60, 50, 3, 8, "test");
        for (std::int32_t y = 0; y < 50; ++y)
            for (std::int32_t x = 0; x < 60; ++x) {
                truth_.row(y)[3 * x] = static_cast<std::uint8_t>(60 + 2 * x);
                truth_.row(y)[3 * x + 1] = static_cast<std::uint8_t>(200 - 2 * y);
                truth_.row(y)[3 * x + 2] = static_cast<std::uint8_t>(40 + x + y);
            }
        Image damaged = make_image(60, 50, 3, 8, "test");
        Image mask = make_image(60, 50, 1, 8, "test");
        std::copy_n(truth_.data.get(), truth_.bytes(), damaged.data.get());
        std::fill_n(mask.data.get(), mask.bytes(), std::uint8_t{0});
        for (std::int32_t y = 20; y < 26; ++y)
            for (std::int32_t x = 25; x < 33; ++x) {
                mask.row(y)[x] = 1;
                std::fill_n(damaged.row(y) + 3 * x, 3, std::uint8_t{0});
            }
        write_image(in_folder("damaged.ppm"), damaged);
        write_image(in_folder("mask.pgm"), mask);
    }
    double error_of(const Image& image) const
    {
        double sum = 0;
        for (std::size_t i = 0; i < image.bytes(); ++i)
            sum += std::abs(image.data[i] - truth_.data[i]);
        return sum / (6.0 * 8 * 3);
    }
    Image truth_;
};

TEST_F(Inpainting, FillsWhatTheMaskMarks)
{
    const Outcome outcome = run_panoval(
        {"inpaint", "--json", in_folder("damaged.ppm"), "--mask", in_folder("mask.pgm"), "-o", in_folder("out.ppm")});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(Json::parse(outcome.out)["marked_pixels"], 48);
    EXPECT_GT(error_of(read_image(in_folder("damaged.ppm"))), 100);
    EXPECT_LT(error_of(read_image(in_folder("out.ppm"))), 15);
}

TEST_F(Inpainting, PassesTheRangeOnToTheLibrary)
{
    const auto expect_filled = [&](const std::vector<std::string>& options, std::int32_t range) {
        std::vector<std::string> arguments = {"inpaint", in_folder("damaged.ppm"), "--mask", in_folder("mask.pgm"),
                                              "-o",      in_folder("out.ppm")};
        arguments.insert(arguments.end(), options.begin(), options.end());
        ASSERT_EQ(run_panoval(arguments).exit_code, 0);
        Image expected = read_image(in_folder("damaged.ppm"));
        const Image marks = read_mask(in_folder("mask.pgm"));
        Mat image = borrow_mat(expected);
        Mat mask = borrow_mat(marks);
        inpaint(&image, &mask, range);
        expect_same_picture(read_image(in_folder("out.ppm")), expected);
    };
    expect_filled({}, 5);
    expect_filled({"--range", "1"}, 1);
    expect_filled({"--range", "12"}, 12);
}

TEST_F(Inpainting, ShowsItsProgressWhereItIsWanted)
{
    const auto errors = [&](const char* mode) {
        return run_panoval({"inpaint", in_folder("damaged.ppm"), "--mask", in_folder("mask.pgm"), "-o",
                            in_folder("out.ppm"), "--progress", mode})
            .err;
    };
    EXPECT_EQ(errors("auto"), "") << "standard error is no terminal here";
    EXPECT_TRUE(contains(errors("always"), "inpainting ["));
}

TEST_F(Inpainting, TellsWhatItDoesNotFill)
{
    const auto fill = [&](const std::vector<std::pair<int, int>>& marked_places) {
        Image mask = make_image(60, 50, 1, 8, "test");
        std::fill_n(mask.data.get(), mask.bytes(), std::uint8_t{0});
        for (const auto& [x, y] : marked_places)
            mask.row(y)[x] = 255;
        write_image(in_folder("places.pgm"), mask);
        return run_panoval({"inpaint", "--json", in_folder("damaged.ppm"), "--mask", in_folder("places.pgm"), "-o",
                            in_folder("out.ppm")});
    };
    const Outcome inside = fill({{1, 1}, {30, 30}, {58, 48}});
    EXPECT_EQ(inside.err, "");
    EXPECT_EQ(Json::parse(inside.out)["unfilled_pixels"], 0);
    // A run of three from the top, one at the left, and the last pixel of a row, which its neighbour's mark grows into.
    const Outcome border = fill({{30, 0}, {30, 1}, {30, 2}, {0, 20}, {58, 30}, {59, 30}});
    EXPECT_EQ(Json::parse(border.out)["unfilled_pixels"], 4);
    EXPECT_TRUE(contains(border.err, "damaged.ppm: found 4 of 6 marked pixels at the picture's border")) << border.err;
    const Image before = read_image(in_folder("damaged.ppm"));
    const Image after = read_image(in_folder("out.ppm"));
    EXPECT_EQ(after.row(2)[90], before.row(2)[90]);
    EXPECT_EQ(after.row(20)[0], before.row(20)[0]);
}

TEST_F(Inpainting, TakesAnAlphaChannelAsMask)
{
    Image with_alpha = read_image(in_folder("damaged.ppm"));
    const Image mask = read_mask(in_folder("mask.pgm"));
    ensure_mask(with_alpha, "test");
    for (std::size_t i = 0; i < mask.pixels(); ++i)
        with_alpha.mask[i] = mask.data[i] != 0 ? 0 : 255;
    write_image(in_folder("alpha.pam"), with_alpha);
    const Outcome outcome = run_panoval({"inpaint", in_folder("alpha.pam"), "-o", in_folder("out.ppm")});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_LT(error_of(read_image(in_folder("out.ppm"))), 15);
}

TEST_F(Inpainting, GreyPicturesStayGrey)
{
    Image grey = read_image(in_folder("damaged.ppm"));
    convert_to_grey(grey, "test");
    write_image(in_folder("grey.pgm"), grey);
    const Outcome outcome =
        run_panoval({"inpaint", in_folder("grey.pgm"), "--mask", in_folder("mask.pgm"), "-o", in_folder("out.pgm")});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const Image filled = read_image(in_folder("out.pgm"));
    EXPECT_EQ(filled.channels, 1);
    EXPECT_EQ(filled.row(5)[7], grey.row(5)[7]) << "known pixels stay";
    EXPECT_NE(filled.row(23)[29], 0);
}

TEST_F(Inpainting, NeedsAMaskOfThePicturesSize)
{
    write_image(in_folder("small.pgm"), make_image(10, 10, 1, 8, "test"));
    const Outcome small = run_panoval(
        {"inpaint", in_folder("damaged.ppm"), "--mask", in_folder("small.pgm"), "-o", in_folder("out.ppm")});
    EXPECT_EQ(small.exit_code, 3);
    EXPECT_TRUE(contains(small.err, "10 x 10") && contains(small.err, "60 x 50")) << small.err;
    const Outcome none = run_panoval({"inpaint", in_folder("damaged.ppm"), "-o", in_folder("out.ppm")});
    EXPECT_EQ(none.exit_code, 3);
    EXPECT_TRUE(contains(none.err, "--mask")) << none.err;
    EXPECT_FALSE(file_exists(in_folder("out.ppm")));
}

TEST_F(Inpainting, ItsInputsAreNoOutput)
{
    const std::string picture = in_folder("damaged.ppm");
    const std::string mask = in_folder("mask.pgm");
    const std::string before = read_text("damaged.ppm") + read_text("mask.pgm");
    for (const std::string& output : {picture, mask}) {
        const Outcome outcome = run_panoval({"inpaint", picture, "--mask", mask, "-o", output});
        EXPECT_EQ(outcome.exit_code, 4);
        EXPECT_TRUE(contains(outcome.err, output + ": found a file that is also an input")) << outcome.err;
    }
    EXPECT_EQ(read_text("damaged.ppm") + read_text("mask.pgm"), before);
}

} // namespace

} // namespace panoval::cli::test
