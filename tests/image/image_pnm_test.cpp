// SPDX-License-Identifier: MIT
#include "image/image_read.h"
#include "image/image_write.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

namespace panoval::image::test
{

namespace
{

class PnmFile : public ScratchFolder
{
protected:
    std::string error_for(const std::string& text)
    {
        const std::string name = write_text("picture.pnm", text);
        const std::string error = error_of([&] { (void)read_image(name); });
        EXPECT_EQ(error.substr(0, name.size() + 8), name + ": found ") << error;
        EXPECT_TRUE(contains(error, "; expected ")) << error;
        return error.substr(name.size() + 2);
    }

    std::string samples_of(const std::string& text)
    {
        const Image image = read_image(write_text("picture.pnm", text));
        return std::string(reinterpret_cast<const char*>(image.data.get()), image.bytes());
    }
};

TEST_F(PnmFile, KeepsEverySampleOfEveryFormat)
{
    for (const int bits : {8, 16})
        for (const int channels : {1, 3})
            for (const bool has_mask : {false, true}) {
                const Image image = test_picture(7, 5, channels, bits, has_mask);
                const std::string name = in_folder(has_mask ? "a.pam" : "a.pnm");
                write_image(name, image);
                expect_same_picture(read_image(name), image);
                EXPECT_EQ(describe(probe_image(name).at(0)), describe(image));
            }
}

TEST_F(PnmFile, CommentsAndAnyWhiteSpaceStandBetweenTheNumbers)
{
    EXPECT_EQ(samples_of("P5 # a comment\n# another 9 9\n 2\t1\r\n255\nAB"), "AB");
    EXPECT_EQ(samples_of("P5\n2\n1\n255\nAB"), "AB") << "width and height on two lines";
    EXPECT_EQ(samples_of("P2 2 1 255 65 # x\n 66"), "AB");
    EXPECT_EQ(samples_of("P3\n1 1\n255\n65 66 67\n"), "ABC");
}

TEST_F(PnmFile, RawSamplesMayLookLikeWhiteSpaceOrComments)
{
    EXPECT_EQ(samples_of("P5\n2 1\n255\n#\n"), "#\n");
}

TEST_F(PnmFile, OtherMaximumValuesAreStretched)
{
    EXPECT_EQ(samples_of("P2 3 1 15 0 7 15"), std::string("\0\x77\xFF", 3));
    EXPECT_EQ(samples_of("P2 2 1 1023 0 1023"), std::string("\0\0\xFF\xFF", 4));
}

TEST_F(PnmFile, HighBytesComeFirst)
{
    EXPECT_EQ(samples_of(std::string("P5 1 1 65535\n\x12\x34", 15)), "\x34\x12");
}

TEST_F(PnmFile, PamHasAlpha)
{
    const Image image = read_image(write_text("a.pam", "P7\nWIDTH 2\n# words\nHEIGHT 1\nDEPTH 2\nMAXVAL 255\nTUPLTYPE "
                                                       "GRAYSCALE_ALPHA\nENDHDR\nA\xFF"
                                                       "B\x01"));
    EXPECT_EQ(image.channels, 1);
    EXPECT_EQ(std::memcmp(image.data.get(), "AB", 2), 0);
    EXPECT_EQ(std::memcmp(image.mask.get(), "\xFF\x01", 2), 0);
}

TEST_F(PnmFile, WrongFilesAreExplained)
{
    EXPECT_EQ(error_for("P5\n4 4\n255\nABC"),
              "found a truncated file with 3 bytes of samples; expected 16 for 4 x 4 pixels, 1 channel, 8 bit");
    EXPECT_EQ(error_for("P2\n2 2\n255\n1 2 3"), "found the file's end where a sample stands; expected a whole number");
    EXPECT_EQ(error_for("P5\nfour 4\n255\n"), "found something else where the width stands; expected a whole number");
    EXPECT_EQ(error_for("P5\n4x 4\n255\n"), "found a letter after the width; expected white space");
    EXPECT_EQ(error_for("P5\n-4 4\n255\n"), "found something else where the width stands; expected a whole number");
    EXPECT_EQ(error_for("P5\n0 4\n255\n"), "found a picture of 0 x 4 pixels; expected at least one pixel");
    EXPECT_EQ(error_for("P5\n4 4\n0\n"), "found a maximum value of 0; expected 1 to 65535");
    EXPECT_EQ(error_for("P5\n4 4\n65536\n"), "found the maximum value above 65535; expected at most 65535");
    EXPECT_EQ(error_for("P5\n99999999999 4\n255\n"), "found the width above 2147483647; expected at most 2147483647");
    EXPECT_EQ(error_for("P2\n1 1\n100\n101"), "found a sample above 100; expected at most 100");
    EXPECT_EQ(error_for("P5\n1 1\n100\n\xFF"), "found a sample of 255; expected at most 100");
    EXPECT_EQ(error_for("P4\n1 1\n\1"), "found a bitmap (P4); expected P2, P3, P5, P6 or P7");
    EXPECT_EQ(error_for("P1\n1 1\n1"), "found a bitmap (P1); expected P2, P3, P5, P6 or P7");
    EXPECT_EQ(error_for("P7\nWIDTH 1\nHEIGHT 1\nDEPTH 99999999999\nMAXVAL 255\nENDHDR\n1"),
              "found 1000 samples a pixel; expected 1 to 4");
    EXPECT_EQ(error_for("P7\nWIDTH 1\nHEIGHT 1\nDEPTH -1\nMAXVAL 255\nENDHDR\n1"),
              "found 1000 samples a pixel; expected 1 to 4");
    EXPECT_EQ(error_for("P7\nWIDTH 1\nHEIGHT 1\nDEPTH 1\nMAXVAL 65536\nENDHDR\n1"),
              "found a maximum value of 65536; expected 1 to 65535");
    EXPECT_EQ(error_for("P7\nWIDTH 1\n"), "found a PAM header without ENDHDR; expected a complete header");
    EXPECT_EQ(error_for("P7\nWIDTH 1\nHEIGHT 1\nDEPTH 5\nMAXVAL 255\nENDHDR\n12345"),
              "found 5 samples a pixel; expected 1 to 4");
}

// 100000 x 100000 colour pixels would be 30 GB: refused by the header alone.
TEST_F(PnmFile, OversizedPicturesAreRefusedBeforeAnyMemoryIsTaken)
{
    EXPECT_EQ(error_for("P3\n100000 100000\n255\n"), "found a picture of 100000 x 100000 pixels with 3 x 8 bit; "
                                                     "expected at most 2^31 - 1 bytes of samples");
    EXPECT_TRUE(contains(error_for("P2\n2147483647 1\n255\n"), "expected at most 2^31 - 1 bytes"));
    EXPECT_TRUE(contains(error_for("P2\n1 2147483647\n255\n"), "expected at most 2^31 - 1 bytes"));
    EXPECT_TRUE(contains(error_for("P3\n26755 26755\n255\n"), "expected at most 2^31 - 1 bytes"));
    EXPECT_TRUE(contains(error_for("P6\n26754 26754\n255\n"), "found a truncated file")) << "the largest square";
}

TEST_F(PnmFile, WhatIsNoPictureIsNamed)
{
    const std::string folder = in_folder("");
    EXPECT_TRUE(contains(error_of([&] { (void)read_image(in_folder("none.pgm")); }), ": found no such file; expected"));
    EXPECT_TRUE(contains(error_of([&] { (void)read_image(folder); }), ": found a folder; expected a picture: "));
    EXPECT_TRUE(contains(error_for(""), "found an empty file; expected P"));
    EXPECT_TRUE(contains(error_for("hello"), "found contents of another kind; expected P"));
}

TEST_F(PnmFile, EndingsDecideTheFormatAndWhatItHolds)
{
    const Image grey = test_picture(2, 2, 1, 8);
    const Image colour = test_picture(2, 2, 3, 8);
    const Image masked = test_picture(2, 2, 3, 8, true);
    write_image(in_folder("A.PGM"), grey);
    EXPECT_EQ(read_text("A.PGM").substr(0, 2), "P5");
    write_image(in_folder("b.pnm"), colour);
    EXPECT_EQ(read_text("b.pnm").substr(0, 2), "P6");
    const auto refusal = [&](const char* name, const Image& image) {
        return error_of([&] { write_image(in_folder(name), image); });
    };
    EXPECT_TRUE(contains(refusal("c.pgm", colour), "found 3 channels for a grey format; expected .png, "));
    EXPECT_TRUE(contains(refusal("c.ppm", grey), "found 1 channel for a colour format; expected .png, "));
    EXPECT_TRUE(contains(refusal("c.ppm", masked), "found an alpha channel for a format without one"));
    EXPECT_TRUE(contains(refusal("c.xyz", grey), "found the ending .xyz; expected "));
    EXPECT_TRUE(contains(refusal("c", grey), "found no ending; expected "));
    EXPECT_EQ(names().size(), 2u) << "a refused output leaves no file";
}

TEST_F(PnmFile, MasksAreOneGreyChannel)
{
    Image mask = test_picture(3, 2, 1, 16);
    std::memset(mask.data.get(), 0, mask.bytes());
    mask.data[0] = 1;
    write_image(in_folder("m.pgm"), mask);
    const Image read = read_mask(in_folder("m.pgm"));
    EXPECT_EQ(read.bits, 8);
    EXPECT_EQ(read.data[0], 1) << "above zero stays above zero";
    EXPECT_EQ(read.data[1], 0);
    write_image(in_folder("c.ppm"), test_picture(3, 2, 3, 8));
    EXPECT_TRUE(
        contains(error_of([&] { (void)read_mask(in_folder("c.ppm")); }), "expected a mask of one grey channel"));
}

// No damage may crash the reader: it either reads a picture or explains itself.
TEST_F(PnmFile, AnyDamageIsEitherReadOrExplained)
{
    const std::string whole =
        "P7\nWIDTH 3\nHEIGHT 2\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n" + std::string(24, 'x');
    std::size_t read = 0, explained = 0;
    for (std::size_t i = 0; i < whole.size(); ++i)
        for (const char change : {'\0', '9', '\n', '-', '\xFF'}) {
            std::string damaged = whole;
            damaged[i] = change;
            const std::string name = write_text("damaged.pam", damaged);
            (error_of([&] { (void)read_image(name); }) == "no error" ? read : explained) += 1;
        }
    EXPECT_GT(read, 100u);
    EXPECT_GT(explained, 100u);
}

} // namespace

} // namespace panoval::image::test
