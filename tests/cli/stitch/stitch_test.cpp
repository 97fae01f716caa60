// SPDX-License-Identifier: MIT
// panoval stitch from outside, on the formats that every build knows.
#include "image/image_read.h"
#include "image/image_write.h"
#include "tests/cli/run_program.h"
#include "tests/support/buffers.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <sstream>

namespace panoval::cli::test
{

namespace
{

using Json = nlohmann::json;

class Stitch : public ScratchFolder
{
protected:
    std::string flat(const std::string& name, std::int32_t width, std::int32_t height, int value, int channels = 1,
                     int bits = 8)
    {
        Image image = make_image(width, height, channels, bits, "test");
        for (std::size_t i = 0; i < image.samples(); ++i) {
            const auto sample = static_cast<std::uint16_t>(value);
            std::memcpy(image.data.get() + i * image.sample_bytes(), &sample, image.sample_bytes());
        }
        write_image(in_folder(name), image);
        return in_folder(name);
    }

    std::string mask(const std::string& name, std::int32_t width, std::int32_t height, std::int32_t first_covered)
    {
        Image image = make_image(width, height, 1, 8, "test");
        for (std::size_t i = 0; i < image.pixels(); ++i)
            image.data[i] = static_cast<std::int32_t>(i) % width >= first_covered ? 255 : 0;
        write_image(in_folder(name), image);
        return in_folder(name);
    }

    Outcome stitch(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "stitch");
        return run_panoval(arguments);
    }

    Image panorama(const std::string& name, const std::vector<std::string>& arguments)
    {
        std::vector<std::string> all = {"-o", in_folder(name)};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const Outcome outcome = stitch(all);
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        EXPECT_TRUE(is_verdict(outcome.err)) << outcome.err;
        return read_image(in_folder(name));
    }

    // One line with the word for the panorama, and nothing else.
    static bool is_verdict(const std::string& text)
    {
        return text.starts_with("panoval: verdict: ") && std::count(text.begin(), text.end(), '\n') == 1;
    }

    // Expects a refusal with this exit code and one line, and that no file came into being.
    std::string refusal(int exit_code, const std::vector<std::string>& arguments)
    {
        const std::size_t files = names().size();
        const Outcome outcome = stitch(arguments);
        EXPECT_EQ(outcome.exit_code, exit_code) << outcome.err;
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(names().size(), files);
        EXPECT_EQ(outcome.err.substr(0, 9), "panoval: ");
        const auto lines = std::count(outcome.err.begin(), outcome.err.end(), '\n');
        EXPECT_EQ(lines, 1) << outcome.err;
        return outcome.err;
    }

    std::string refused_input(const std::string& input) { return refusal(3, {"-o", in_folder("out.pgm"), input}); }
};

TEST_F(Stitch, OnePictureStaysAsItIs)
{
    write_image(in_folder("a.ppm"), test_picture(33, 21, 3, 8));
    const std::string a = in_folder("a.ppm") + "@-7,12";
    expect_same_picture(panorama("out.ppm", {a, "--blend", "feather"}), test_picture(33, 21, 3, 8));
    expect_same_picture(panorama("bands.ppm", {a}), test_picture(33, 21, 3, 8));
}

TEST_F(Stitch, TwoPicturesFadeIntoEachOther)
{
    const Image image =
        panorama("out.pgm", {flat("dark.pgm", 60, 10, 60) + "@0,0", flat("bright.pgm", 60, 10, 200) + "@40,0",
                             "--blend", "feather", "--no-gain"});
    ASSERT_EQ(image.width, 100);
    ASSERT_EQ(image.height, 10);
    const std::uint8_t* const row = image.row(5);
    EXPECT_EQ(row[0], 60);
    EXPECT_EQ(row[39], 60);
    EXPECT_NEAR(row[49], 130, 8) << "half and half in the middle";
    EXPECT_EQ(row[60], 200);
    EXPECT_EQ(row[99], 200);
    for (int x = 40; x < 60; ++x)
        EXPECT_GE(row[x], row[x - 1]) << x;
    EXPECT_LT(row[40] - row[39], 20) << "no step at the border";
    EXPECT_LT(row[60] - row[59], 20) << "no step at the border";
}

TEST_F(Stitch, MasksKeepPixelsOut)
{
    const std::string bad = flat("bad.pgm", 20, 4, 255);
    const std::string m = mask("m.pgm", 20, 4, 10);
    const Image image = panorama(
        "out.pgm", {flat("good.pgm", 20, 4, 80) + "@-10,0", bad + "@0,0:" + m, "--blend", "feather", "--no-gain"});
    ASSERT_EQ(image.width, 30);
    EXPECT_EQ(image.row(2)[19], 80) << "masked out of the second picture";
    EXPECT_EQ(image.row(2)[20], 255);
}

TEST_F(Stitch, CoverageIsKeptAsAlpha)
{
    const Image image = panorama("out.pam", {"--alpha", flat("a.pgm", 4, 4, 80) + "@0,0",
                                             flat("b.pgm", 4, 4, 90) + "@6,2:" + mask("m.pgm", 4, 4, 1)});
    ASSERT_NE(image.mask, nullptr);
    ASSERT_EQ(image.width, 10);
    const auto row = [&](std::size_t y) {
        std::string text;
        for (std::size_t x = 0; x < 10; ++x)
            text += image.mask[y * 10 + x] == 0 ? '.' : image.mask[y * 10 + x] == 255 ? '#' : '?';
        return text;
    };
    EXPECT_EQ(row(0), "####......");
    EXPECT_EQ(row(3), "####...###");
    EXPECT_EQ(row(5), ".......###");
    EXPECT_EQ(image.row(5)[0], 0) << "what no picture covers is black";
}

TEST_F(Stitch, DepthFollowsThePicturesUnlessAskedFor)
{
    const std::string wide = flat("wide.pgm", 8, 8, 25700, 1, 16) + "@0,0";
    const std::string narrow = flat("narrow.pgm", 8, 8, 100) + "@0,0";
    EXPECT_EQ(panorama("a.pgm", {narrow}).bits, 8);
    EXPECT_EQ(panorama("b.pgm", {narrow, wide}).bits, 16);
    const Image reduced = panorama("c.pgm", {"--depth", "8", wide});
    EXPECT_EQ(reduced.bits, 8);
    EXPECT_EQ(reduced.data[0], 100);
    const Image raised = panorama("d.pgm", {"--depth", "16", narrow});
    EXPECT_EQ(raised.bits, 16);
    EXPECT_EQ(raised.data[0], 100);
    EXPECT_EQ(raised.data[1], 100);
}

TEST_F(Stitch, TakesALayoutFile)
{
    flat("a.pgm", 10, 10, 50);
    mask("am.pgm", 10, 10, 0);
    flat("b.pgm", 10, 10, 50);
    const std::string layout = write_text(
        "layout.json", R"([{"file": "a.pgm", "x": -5, "y": 0, "mask": "am.pgm"}, {"file": "b.pgm", "x": 2, "y": -3}])");
    const Image image = panorama("out.pgm", {"--layout", layout});
    EXPECT_EQ(image.width, 17);
    EXPECT_EQ(image.height, 13);
}

TEST_F(Stitch, TakesNamesOfAllScripts)
{
    const std::string name = "größe-снимок-写真";
    const std::string a = flat(name + ".pgm", 10, 10, 50);
    EXPECT_EQ(panorama("панорама.pgm", {a + "@0,0:" + mask(name + "-m.pgm", 10, 10, 0)}).width, 10);
}

TEST_F(Stitch, TellsItsResultsForPeopleAndForPrograms)
{
    const std::string a = flat("a.pgm", 40, 30, 50) + "@-3,4";
    const Outcome people = stitch({"-o", in_folder("out.pgm"), a});
    EXPECT_TRUE(contains(people.out, "40 x 30 pixels, 1 channel, 8 bit")) << people.out;
    for (const char* word : {"panorama ", "out.pgm", "images ", "MP/s", " s, ", "memory ", " MB "})
        EXPECT_TRUE(contains(people.out, word)) << word << " in " << people.out;
    const Outcome programs = stitch({"-o", in_folder("out.pgm"), a, "--json"});
    const Json json = Json::parse(programs.out);
    EXPECT_EQ(json["width"], 40);
    EXPECT_EQ(json["height"], 30);
    EXPECT_EQ(json["channels"], 1);
    EXPECT_EQ(json["bits"], 8);
    EXPECT_EQ(json["images"], 1);
    EXPECT_EQ(json["x"], -3);
    EXPECT_EQ(json["y"], 4);
    EXPECT_EQ(json["output"], in_folder("out.pgm"));
    EXPECT_GT(json["seconds"], 0.0);
    EXPECT_GT(json["megapixels_per_second"], 0.0);
    EXPECT_GT(json["peak_memory_bytes"], 100000);
}

TEST_F(Stitch, QuietAndProgressDoAsTheySay)
{
    const std::string a = flat("a.pgm", 40, 30, 50) + "@0,0";
    const std::string out = in_folder("out.pgm");
    const Outcome quiet = stitch({"-o", out, a, "--quiet"});
    EXPECT_EQ(quiet.exit_code, 0);
    EXPECT_EQ(quiet.out + quiet.err, "");
    EXPECT_TRUE(is_verdict(stitch({"-o", out, a}).err)) << "standard error is no terminal here";
    EXPECT_TRUE(contains(stitch({"-o", out, a, "--progress", "always"}).err, "stitching ["));
    EXPECT_TRUE(is_verdict(stitch({"-o", out, a, "--progress", "never"}).err));
    EXPECT_EQ(stitch({"-o", out, a, "--progress", "always", "--quiet"}).err, "");
    EXPECT_TRUE(contains(refusal(2, {"-o", out, a, "--progress", "often"}), "often"));
}

TEST_F(Stitch, TheProgressBarFitsANarrowTerminal)
{
    std::string name;
    for (int i = 0; i < 20; ++i)
        name += "写真";
    const Outcome outcome =
        stitch({"-o", in_folder("out.pgm"), flat(name + ".pgm", 40, 30, 50) + "@0,0", "--progress", "always"});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_TRUE(contains(outcome.err, "] 1/101 写真写真")) << "the name without its folder: " << outcome.err;
    EXPECT_TRUE(contains(outcome.err, "写...") || contains(outcome.err, "真...")) << outcome.err;
    std::istringstream bar(outcome.err);
    for (std::string line; std::getline(bar, line, '\r');)
        EXPECT_LE(line.size(), 79u) << line;
}

TEST_F(Stitch, HelpTeachesWithExamples)
{
    const Outcome outcome = stitch({"--help"});
    EXPECT_EQ(outcome.exit_code, 0);
    for (const char* word : {"Examples:", "FILE@X,Y:MASK", "--layout", "--depth", "--alpha", "Exit codes:"})
        EXPECT_TRUE(contains(outcome.out, word)) << word;
}

TEST_F(Stitch, BadCommandLinesAreExplained)
{
    const std::string a = flat("a.pgm", 4, 4, 50);
    const std::string out = in_folder("out.pgm");
    EXPECT_TRUE(contains(refusal(2, {"-o", out}), "there is nothing to stitch"));
    EXPECT_TRUE(contains(refusal(2, {a + "@0,0"}), "--output is required"));
    EXPECT_TRUE(contains(refusal(2, {"-o", out, a + "@zero,0"}), "found the position 'zero,0'"));
    EXPECT_TRUE(contains(refusal(2, {"-o", out, a + "@0,0", "--layout", "x.json"}), "found both INPUT"));
    for (const char* depth : {"12", "deep"})
        EXPECT_TRUE(contains(refusal(2, {"-o", out, a + "@0,0", "--depth", depth}),
                             concat("--depth: ", depth, " not in {8,16}")));
    EXPECT_TRUE(contains(refusal(2, {"-o", out, a + "@0,0", "--blend", "magic"}), "magic"));
    EXPECT_TRUE(contains(refusal(2, {"-o", out, a + "@0,0", "--nonsense"}), "--nonsense"));
}

TEST_F(Stitch, BadInputsAreExplained)
{
    EXPECT_TRUE(contains(refused_input(in_folder("none.pgm") + "@0,0"), "none.pgm: found no such file"));
    EXPECT_TRUE(contains(refused_input(in_folder("") + "@0,0"), "found a folder"));
    EXPECT_TRUE(contains(refused_input(write_text("t.pgm", "P5\n9 9\n255\nxx") + "@0,0"), "found a truncated file"));
    EXPECT_TRUE(contains(refused_input(write_text("o.pgm", "P2\n99999 99999\n255\n1") + "@0,0"),
                         "expected at most 1000000000 (--max-pixels)"));
    EXPECT_TRUE(contains(refused_input(write_text("w.txt", "words") + "@0,0"), "found contents of another kind"));
    EXPECT_TRUE(contains(refused_input(write_text("e.pgm", "") + "@0,0"), "found an empty file"));
    EXPECT_TRUE(contains(refused_input(flat("a.pgm", 4, 4, 1)), "a.pgm: found no position in the file"));
}

TEST_F(Stitch, AFileThatEndsInItsPixelsLeavesNoOutput)
{
    const std::string bad = write_text("plain.pgm", "P2\n2 2\n255\n1 2 3"); // seen only when the pixels are read
    write_text("out.pgm", "older");
    EXPECT_TRUE(contains(refused_input(bad + "@0,0"), "found the file's end where a sample stands"));
    EXPECT_EQ(read_text("out.pgm"), "older");
    const std::vector<std::string> badly_placed_gains = {"-o", in_folder("out.pgm"), bad + "@0,0", "--gains",
                                                         in_folder("none/gains.json")};
    EXPECT_TRUE(contains(refusal(4, badly_placed_gains), "gains.json: found no folder "))
        << "before the pixels are read";
}

TEST_F(Stitch, PicturesThatDoNotGoTogetherAreExplained)
{
    const std::string out = in_folder("out.pnm");
    const std::string a = flat("a.pgm", 4, 4, 1);
    const std::string c = flat("c.ppm", 4, 4, 1, 3);
    EXPECT_TRUE(contains(refusal(3, {"-o", out, a + "@0,0", c + "@0,0"}), "c.ppm: found 3 channels; expected 1"));
    EXPECT_TRUE(contains(refusal(3, {"-o", out, a + "@0,0:" + mask("m.pgm", 5, 4, 0)}),
                         "m.pgm: found a mask of 5 x 4 pixels; expected 4 x 4"));
    EXPECT_TRUE(contains(refusal(4, {"-o", in_folder("out.jpg"), a + "@0,0", a + "@99999,9"}), "100003"));
}

TEST_F(Stitch, OutputsThatCannotBeWrittenAreExplained)
{
    const std::string a = flat("a.pgm", 4, 4, 1);
    const std::string c = flat("c.ppm", 4, 4, 1, 3);
    const auto output = [&](const std::string& name, const std::string& input) {
        return refusal(4, {"-o", name, input + "@0,0"});
    };
    EXPECT_TRUE(contains(output(in_folder("none/out.pgm"), a), "out.pgm: found no folder "));
    EXPECT_TRUE(contains(refusal(2, {"-o", in_folder("out.xyz"), a + "@0,0"}), "out.xyz: found the ending .xyz; exp"));
    EXPECT_TRUE(contains(refusal(2, {"-o", in_folder("out"), a + "@0,0"}), "out: found no ending; expected "));
    EXPECT_TRUE(contains(output(in_folder("out.pgm"), c), "out.pgm: found 3 channels for a grey format"));
    EXPECT_TRUE(contains(output(a, a), "a.pgm: found a file that is also an input"));
    EXPECT_TRUE(contains(refusal(4, {"-o", in_folder("out.pgm"), "--alpha", a + "@0,0"}), "found an alpha channel"));
    const std::string out = in_folder("out.pgm");
    const std::string layout = write_text("layout.json", R"([{"file": "a.pgm", "x": 0, "y": 0}])");
    EXPECT_TRUE(contains(refusal(4, {"-o", out, "--layout", layout, "--report", layout}), "is also an input"));
    for (const char* option : {"--report", "--gains"})
        EXPECT_TRUE(contains(refusal(4, {"-o", out, a + "@0,0", option, out}), "found the name of two outputs"));
    EXPECT_TRUE(contains(refusal(4, {"-o", out, a + "@0,0", "--report", in_folder("r"), "--gains", in_folder("./r")}),
                         "found the name of two outputs"));
    std::filesystem::create_directory(path_from_utf8(in_folder("folder.pgm")));
    EXPECT_TRUE(contains(output(in_folder("folder.pgm"), a), "folder.pgm: found a folder; expected a file to write"));
}

TEST_F(Stitch, AMaskThatCoversNothingIsNamed)
{
    const std::string a = flat("a.pgm", 8, 8, 100);
    const std::string b = flat("b.pgm", 8, 8, 100);
    const std::string nothing = mask("nothing.pgm", 8, 8, 8);
    const Outcome outcome = stitch({"-o", in_folder("out.pgm"), a + "@0,0", b + "@4,0:" + nothing});
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_TRUE(contains(outcome.err, "b.pgm: its mask covers nothing")) << outcome.err;
    EXPECT_FALSE(contains(outcome.err, "a.pgm: ")) << outcome.err;
}

TEST_F(Stitch, WithoutSeamsNothingGoesRound)
{
    const std::string a = flat("a.pgm", 8, 8, 100);
    const auto refused = [&](std::vector<std::string> how) {
        how.insert(how.end(), {"-o", in_folder("out.pgm"), a + "@0,0", "--wrap", "8"});
        return refusal(2, how);
    };
    EXPECT_TRUE(contains(refused({"--seams", "none"}), "found --wrap with --seams none; expected it with "));
    EXPECT_TRUE(contains(refused({"--blend", "feather"}), "found --wrap with --blend feather; expected it with "));
}

// A picture of 48 MB within a budget of 32: it is read by rows.
TEST_F(Stitch, APictureMayBeLargerThanTheBudget)
{
    write_image(in_folder("small.ppm"), test_picture(64, 64, 3, 8));
    const auto peak = [&](const std::string& file) {
        const Outcome outcome = stitch(
            {file + "@0,0", "-o", in_folder("out.ppm"), "--json", "--memory", "32M", "--bands", "4", "--threads", "1"});
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        return outcome.exit_code == 0 ? Json::parse(outcome.out)["peak_memory_bytes"].get<double>() : 0.0;
    };
    const double least = peak(in_folder("small.ppm"));
    for (const char* const name : {"a.ppm", "a.tif"}) {
        write_image(in_folder(name), test_picture(4000, 4000, 3, 8));
        EXPECT_LT(peak(in_folder(name)) - least, 40e6) << name;
    }
}

// Thirty pictures of 3 MB: held all at once, they would take the budget one and a half times.
TEST_F(Stitch, MemoryStaysWithinTheBudgetWhateverTheNumberOfPictures)
{
    write_image(in_folder("a.ppm"), test_picture(1250, 800, 3, 8));
    std::vector<std::string> arguments;
    for (int i = 0; i < 30; ++i)
        arguments.push_back(concat(in_folder("a.ppm"), "@", 900 * (i % 6), ",", 600 * (i / 6)));
    arguments.insert(arguments.end(), {"-o", in_folder("out.tif"), "--json", "--memory", "64M"});
    const Outcome outcome = stitch(arguments);
    ASSERT_EQ(outcome.exit_code, 0) << outcome.err;
    const Json json = Json::parse(outcome.out);
    // The program itself and its libraries take what a panorama of one small picture takes; a decoder has rows of its
    // own.
    write_image(in_folder("small.ppm"), test_picture(64, 64, 3, 8));
    const Outcome small = stitch({in_folder("small.ppm") + "@0,0", "-o", in_folder("small.tif"), "--json"});
    ASSERT_EQ(small.exit_code, 0) << small.err;
    const double program = Json::parse(small.out)["peak_memory_bytes"].get<double>();
    // The address sanitizer keeps a byte of shadow for every eight, and rounds sizes up to its classes.
    const double sanitizer = panoval::test::kAddressSanitizer ? 1.25 : 1;
    EXPECT_LT(json["peak_memory_bytes"].get<double>() - program, (64 * 1048576 + 8e6) * sanitizer);
    EXPECT_LE(json["decodes_per_picture"].get<double>(), 1.3);
}

// The blender of the whole canvas alone would take 21, the pictures 5.
TEST_F(Stitch, TwoPicturesTakeAtMost24BytesAPixel)
{
    write_image(in_folder("a.ppm"), test_picture(1500, 1600, 3, 8));
    write_image(in_folder("small.ppm"), test_picture(64, 64, 3, 8));
    const auto peak = [&](const std::string& name, const std::string& second) {
        const Outcome outcome = stitch(
            {in_folder(name) + "@0,0", in_folder(name) + second, "--bands", "4", "-o", in_folder("out.ppm"), "--json"});
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        return Json::parse(outcome.out)["peak_memory_bytes"].get<double>();
    };
    EXPECT_LT(peak("a.ppm", "@750,0") - peak("small.ppm", "@32,0"), 24.0 * 2250 * 1600);
}

TEST_F(Stitch, AnOlderOutputIsReplaced)
{
    write_text("out.pgm", "older");
    EXPECT_EQ(panorama("out.pgm", {flat("a.pgm", 4, 4, 77) + "@0,0"}).data[5], 77);
}

} // namespace

} // namespace panoval::cli::test
