// SPDX-License-Identifier: MIT
// What messages say of names, files, formats and memory.
#include "image/failure.h"
#include "image/files.h"
#include "image/formats.h"
#include "image/image_read.h"
#include "image/image_write.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <optional>

#ifndef _WIN32
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#endif

namespace panoval::image::test
{

namespace
{

using Messages = ScratchFolder;

TEST_F(Messages, TextsAreFitForALine)
{
    EXPECT_EQ(printable("a\nb\x7F\x1F"), "a?b??");
    EXPECT_EQ(printable("Größe"), "Größe");
    EXPECT_EQ(printable("abcd", 4), "abcd");
    EXPECT_EQ(printable("abcde", 4), "abcd...");
    EXPECT_EQ(printable("aé", 2), "a...") << "no half of a character";
    EXPECT_EQ(printable("éa", 2), "é...");
    EXPECT_EQ(printable("\x80\x80", 1), "...") << "no UTF-8";
}

TEST_F(Messages, TooLittleMemoryIsRoundedUpToMegabytes)
{
    EXPECT_EQ(error_of([] { fail_memory("-", 1); }),
              "standard input: found too little memory; expected 1 MB to be free");
    EXPECT_EQ(error_of([] { fail_memory("", 2'000'001); }), "'': found too little memory; expected 3 MB to be free");
}

TEST_F(Messages, OnlyAnExhaustedHeapIsCalledSo)
{
    errno = ENOENT;
    EXPECT_EQ(error_of([] { check_heap("a.png"); }), "no error");
    errno = ENOMEM;
    EXPECT_EQ(error_of([] { check_heap("a.png"); }), "a.png: found too little memory; expected 1 MB to be free");
}

TEST_F(Messages, SayWhoseFaultItIs)
{
    const auto fault_of = [](const auto& call) -> std::optional<Fault> {
        try {
            call();
        } catch (const Failure& failure) {
            return failure.fault();
        }
        return std::nullopt;
    };
    EXPECT_EQ(fault_of([] { fail_input("a.png", "nothing", "something"); }), Fault::Input);
    EXPECT_EQ(fault_of([] { fail_output("a.png", "nothing", "something"); }), Fault::Output);
    EXPECT_EQ(fault_of([] { fail_memory("a.png", 1); }), Fault::Memory);
    EXPECT_EQ(fault_of([] { fail_name("a.png", "nothing", "something"); }), Fault::Name);
}

#ifndef _WIN32
// A file that is there and that nobody can open.
int make_socket(const std::string& name)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.size() >= sizeof address.sun_path)
        return -1;
    std::memcpy(address.sun_path, name.c_str(), name.size() + 1);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    if (descriptor >= 0 && bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(descriptor);
        return -1;
    }
    return descriptor;
}
#endif

TEST_F(Messages, InputsThatAreNoFilesAreNamed)
{
    const auto error = [](const std::string& name) { return error_of([&] { open_input(name, "a picture"); }); };
    EXPECT_TRUE(contains(error(""), "found an empty file name; expected a picture")) << error("");
    EXPECT_TRUE(contains(error(in_folder("none.png")), "none.png: found no such file; expected a picture"));
    EXPECT_TRUE(contains(error(in_folder("")), ": found a folder; expected a picture"));
#ifndef _WIN32
    EXPECT_EQ(error("/dev/null"), "/dev/null: found no regular file; expected a picture");
    std::filesystem::create_symlink(in_folder("ring"), in_folder("ring"));
    EXPECT_TRUE(contains(error(in_folder("ring")), "ring: found a file that does not open: "));
    const int socket = make_socket(in_folder("socket"));
    ASSERT_GE(socket, 0);
    EXPECT_TRUE(contains(error(in_folder("socket")), "socket: found a file that does not open: "));
    close(socket);
#endif
}

TEST_F(Messages, FormatsSayWhatTheyHold)
{
    const auto error = [](const std::string& name, int channels, int bits, bool has_alpha) {
        return error_of([&] { OutputName(name).check(channels, bits, has_alpha); });
    };
    EXPECT_EQ(error("a.jpg", 3, 16, false),
              "a.jpg: found 16 bits for a JPEG file; expected 8 (--depth 8), or another ending");
    EXPECT_EQ(error("a.jpg", 3, 8, true), "a.jpg: found an alpha channel for a format without one; expected .png, "
                                          ".tif, .tiff, .pam or .dzi");
    EXPECT_TRUE(contains(error_of([] { OutputName("a.jpg", Outputs::FilesAndStores).check(3, 8, true); }),
                         ".tiff, .pam, .dzi or .zarr"));
    EXPECT_EQ(error("a.PPM", 1, 16, false),
              "a.PPM: found 1 channel for a colour format; expected .png, .tif, .tiff, .pgm, .pnm or .pam");
    EXPECT_EQ(error("a.pgm", 3, 16, false),
              "a.pgm: found 3 channels for a grey format; expected .png, .tif, .tiff, .ppm, .pnm or .pam");
    EXPECT_EQ(error("a.pgm", 1, 16, false), "no error");
    EXPECT_EQ(error("-", 3, 16, true), "no error") << "standard output is PNG";
    EXPECT_EQ(all_endings(), ".png .tif .tiff .jpg .jpeg .pgm .ppm .pnm .pam .dzi");
}

TEST_F(Messages, NumbersWantAFormatThatKeepsThem)
{
    const auto error = [](const std::string& name) {
        return error_of([&] { OutputName(name, Outputs::FilesOfNumbers); });
    };
    for (const char* const name : {"a.png", "a.tif", "a.tiff", "a.pgm", "a.pnm", "a.pam"})
        EXPECT_EQ(error(name), "no error") << name;
    EXPECT_EQ(error("a.jpg"),
              "a.jpg: found the ending .jpg; expected .png, .tif, .tiff, .pgm, .pnm or .pam, which keep "
              "numbers as they are");
    for (const char* const name : {"a.dzi", "a.ppm", "a.zarr", "a"})
        EXPECT_TRUE(contains(error(name), "; expected .png, .tif, .tiff, .pgm, .pnm or .pam, which")) << error(name);
}

TEST_F(Messages, NamesWithoutAKnownEndingAreToldAllEndings)
{
    const auto error = [](const std::string& name) { return error_of([&] { OutputName{name}; }); };
    for (const char* const name : {"a", "a.b/c", "a.b\\c", "a."})
        EXPECT_TRUE(contains(error(name), ": found no ending; expected .png, .tif")) << name;
    EXPECT_TRUE(contains(error("a.gif"), "a.gif: found the ending .gif; expected .png, ")) << error("a.gif");
    EXPECT_TRUE(contains(error("a.gif"), ".pam or .dzi"));
    EXPECT_TRUE(contains(error_of([] { OutputName("a.gif", Outputs::FilesAndStores); }), ".pam, .dzi or .zarr"));
}

TEST_F(Messages, HelpIsMadeFromTheTableOfFormats)
{
    EXPECT_EQ(endings_with_levels(), ".tif .tiff .dzi");
    EXPECT_EQ(endings_with_optional_levels(), ".tif or .tiff");
    EXPECT_EQ(endings_with_alpha(Outputs::FilesAndStores), ".png .tif .tiff .pam .dzi .zarr");
    EXPECT_EQ(names_with_quality(), "a JPEG file, or Deep Zoom without alpha");
    EXPECT_EQ(endings_with_compression(Outputs::FilesAndStores), ".tif, .tiff or .zarr");
    EXPECT_TRUE(contains(compression_help(Outputs::FilesAndStores), "of .tif and .tiff: none (default), lzw"));
    EXPECT_TRUE(contains(compression_help(Outputs::FilesAndStores), "; of .zarr: deflate (default), none"));
    EXPECT_FALSE(contains(compression_help(Outputs::Files), ".zarr"));
    EXPECT_EQ(all_compressions(Outputs::FilesAndStores), tiff_compressions());
    EXPECT_EQ(all_compressions(Outputs::Files), tiff_compressions());
}

TEST_F(Messages, QualityIsOfJpegFilesAndTilesWithoutAlpha)
{
    const auto has_quality = [](const char* name, bool has_alpha) {
        return OutputName(name).format().has_quality(has_alpha);
    };
    for (const bool has_alpha : {false, true}) {
        EXPECT_TRUE(has_quality("a.jpg", has_alpha));
        EXPECT_FALSE(has_quality("a.png", has_alpha));
        EXPECT_FALSE(has_quality("a.tif", has_alpha));
        EXPECT_EQ(has_quality("a.dzi", has_alpha), !has_alpha) << "tiles with alpha are PNG files";
    }
}

TEST_F(Messages, AnOutputKnowsWhatItCouldHaveBeen)
{
    EXPECT_EQ(OutputName("a.tif").outputs(), Outputs::Files);
    EXPECT_EQ(OutputName("a.tif", Outputs::FilesAndStores).outputs(), Outputs::FilesAndStores);
}

TEST_F(Messages, AStoreIsAnOutputWhereStoresAreTaken)
{
    EXPECT_TRUE(OutputName("a.ZARR/", Outputs::FilesAndStores).is_store());
    EXPECT_FALSE(OutputName("a.tif", Outputs::FilesAndStores).is_store());
    EXPECT_TRUE(contains(error_of([] { OutputName("a.zarr"); }), "found the ending .zarr; expected .png"));
}

TEST_F(Messages, SidesBeyondAFormatAreRefused)
{
    const auto error = [](const std::string& name, std::int64_t width, std::int64_t height) {
        return error_of([&] { OutputName(name).check_size(width, height); });
    };
    EXPECT_EQ(error("a.jpg", 65500, 65500), "no error");
    EXPECT_EQ(
        error("a.jpg", 65501, 7),
        "a.jpg: found 65501 x 7 pixels for a JPEG file; expected at most 65500 in a direction, or another ending");
    EXPECT_TRUE(contains(error("a.jpg", 7, 65501), "found 7 x 65501 pixels"));
    EXPECT_TRUE(contains(error("a.png", std::int64_t{1} << 31, 1), "found 2147483648 x 1 pixels for a PNG file"));
}

TEST_F(Messages, SidesBeyondAnyPictureAreRefused)
{
    const auto error = [](std::int64_t width, std::int64_t height) {
        return error_of([&] { check_sides("a", width, height); });
    };
    constexpr std::int64_t kMost = 2147483647;
    EXPECT_EQ(error(1, kMost), "no error");
    EXPECT_TRUE(contains(error(0, 1), "at least one pixel"));
    EXPECT_TRUE(contains(error(1, -1), "at least one pixel"));
    EXPECT_TRUE(contains(error(kMost + 1, 1), "at most 2^31 - 1 on each side"));
    EXPECT_TRUE(contains(error(1, kMost + 1), "at most 2^31 - 1 on each side"));
    EXPECT_EQ(error(1 << 29, 1 << 29), "no error");
    EXPECT_TRUE(contains(error(1 << 29, (1 << 29) + 1), "at most 2^58"));
}

TEST_F(Messages, FilesAreKnownByTheirFirstBytes)
{
    write_image(in_folder("a.png"), test_picture(4, 3, 1, 8));
    EXPECT_TRUE(starts_as_picture(in_folder("a.png")));
    EXPECT_FALSE(starts_as_picture(write_text("a.txt", "a text")));
    EXPECT_FALSE(starts_as_picture(write_text("empty.png", "")));
    EXPECT_FALSE(starts_as_picture(in_folder("none.png")));
}

TEST_F(Messages, ColoursAreReadAsGreyWhereGreyIsAskedFor)
{
    write_image(in_folder("a.png"), test_picture(4, 3, 3, 8));
    Image expected = test_picture(4, 3, 3, 8);
    convert_to_grey(expected, "test");
    expect_same_picture(read_grey(in_folder("a.png")), expected);
}

TEST_F(Messages, AMaskIsOneGreyChannel)
{
    for (const auto& [channels, has_mask] : {std::pair{3, false}, {1, true}}) {
        write_image(in_folder("a.png"), test_picture(4, 3, channels, 8, has_mask));
        EXPECT_TRUE(contains(error_of([&] { (void)read_mask(in_folder("a.png")); }), "expected a mask of one grey"));
    }
    Image faint = make_image(2, 1, 1, 16, "test");
    const std::uint16_t values[] = {0, 1};
    std::memcpy(faint.data.get(), values, sizeof values);
    write_image(in_folder("a.png"), faint);
    const Image mask = read_mask(in_folder("a.png"));
    EXPECT_EQ(mask.bits, 8);
    EXPECT_EQ(mask.data[0], 0);
    EXPECT_EQ(mask.data[1], 1) << "what is not 0 covers";
}

} // namespace

} // namespace panoval::image::test
