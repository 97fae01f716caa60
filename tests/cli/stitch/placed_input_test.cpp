// SPDX-License-Identifier: MIT
#include "cli/stitch/placed_input.h"

#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

namespace panoval::cli::test
{

namespace
{

// FILE | X,Y | MASK
std::string parsed(const std::string& argument)
{
    std::vector<std::string> notes;
    const PlacedInput input = parse_placed_input(argument, notes);
    return input.file + " | " + (input.position ? concat(input.position->x, ",", input.position->y) : "-") + " | " +
           input.mask;
}

std::string refused(const std::string& argument)
{
    std::vector<std::string> notes;
    return error_of([&] { (void)parse_placed_input(argument, notes); });
}

TEST(PlacedInputs, AFileHasAPositionAndAMask)
{
    EXPECT_EQ(parsed("a.png@10,20"), "a.png | 10,20 | ");
    EXPECT_EQ(parsed("a.png@-10,+20"), "a.png | -10,20 | ");
    EXPECT_EQ(parsed("a.png@0,0:m.png"), "a.png | 0,0 | m.png");
    EXPECT_EQ(parsed("a.tif"), "a.tif | - | ");
}

TEST(PlacedInputs, NamesMayHoldAtSignsAndColons)
{
    EXPECT_EQ(parsed("me@home.png@1,2"), "me@home.png | 1,2 | ");
    EXPECT_EQ(parsed("a.png@1,2:me@home.pgm"), "a.png | 1,2 | me@home.pgm");
    EXPECT_EQ(parsed("12:30.png@1,2:12:31.pgm"), "12:30.png | 1,2 | 12:31.pgm");
    EXPECT_EQ(parsed("C:\\pictures\\a.png@1,2:D:\\masks\\a.png"), "C:\\pictures\\a.png | 1,2 | D:\\masks\\a.png");
    EXPECT_EQ(parsed("C:/pictures/a.tif"), "C:/pictures/a.tif | - | ");
}

TEST(PlacedInputs, WhatIsNoPositionIsShown)
{
    for (const char* place :
         {"", "x,5", "1", "1,", ",1", "1,2,3", ".,2", "1,2:", "1;2", "1,2 ", "+-1,2", "0x1,2", "9999999999999,0",
          "0,-1099511627777", "nan,0", "0,inf", "1.5.2,0", "1e3,0", "0,99999999999999999999999"})
        EXPECT_EQ(refused(std::string("a.png@") + place),
                  concat("a.png@", place, ": found the position '", place,
                         "'; expected FILE@X,Y or FILE@X,Y:MASK with numbers of pixels, at most 1099511627776 from 0"));
}

TEST(PlacedInputs, FractionsOfPixelsAreRoundedWithANote)
{
    EXPECT_EQ(parsed("a.png@300.4,0.6"), "a.png | 300,1 | ");
    EXPECT_EQ(parsed("a.png@-0.5,+2.5:m.png"), "a.png | 0,3 | m.png");
    std::vector<std::string> notes;
    (void)parse_placed_input("a.png@300.4,0.6", notes);
    (void)parse_placed_input("b.png@7.0,-1", notes);
    EXPECT_EQ(notes, std::vector<std::string>{"a.png@300.4,0.6 is taken as 300,1; places are whole pixels"});
}

class PlacedFiles : public ScratchFolder
{
protected:
    std::string layout_error(const std::string& text)
    {
        const std::string name = write_text("layout.json", text);
        const std::string error = error_of([&] {
            std::vector<std::string> notes;
            (void)read_layout(name, notes);
        });
        EXPECT_EQ(error.substr(0, name.size() + 2), name + ": ");
        return error.size() > name.size() + 2 ? error.substr(name.size() + 2) : error;
    }
};

TEST_F(PlacedFiles, ExistingFilesDecideWhereANameEnds)
{
    const std::string odd = write_text("a@1,2", "");
    EXPECT_EQ(parsed(odd), odd + " | - | ") << "the whole argument is a file's name";
    EXPECT_EQ(parsed(odd + "@3,4"), odd + " | 3,4 | ");
    const std::string plain = write_text("b", "");
    EXPECT_EQ(parsed(plain + "@1,2:m@3,4"), plain + " | 1,2 | m@3,4");
}

TEST_F(PlacedFiles, ALayoutIsRelativeToItsFolder)
{
    const std::string name = write_text("layout.json", R"([{"file": "a.png", "x": -3, "y": 4.0, "mask": "m/b.png"},
                                                            {"file": "c.tif"}])");
    std::vector<std::string> notes;
    const auto inputs = read_layout(name, notes);
    EXPECT_TRUE(notes.empty());
    ASSERT_EQ(inputs.size(), 2u);
    EXPECT_EQ(path_from_utf8(inputs[0].file), path_from_utf8(in_folder("a.png")));
    EXPECT_EQ(path_from_utf8(inputs[0].mask), path_from_utf8(in_folder("m/b.png")));
    EXPECT_EQ(inputs[0].position, (Offset{-3, 4}));
    EXPECT_FALSE(inputs[1].position.has_value());
    EXPECT_EQ(inputs[1].mask, "");
}

TEST_F(PlacedFiles, LayoutsThatMakeNoSenseAreExplained)
{
    const std::string kLayout = "an array of objects with file, x and y, or an object with one as \"images\"";
    EXPECT_EQ(layout_error("[{]"), "found no valid JSON (at byte 3); expected " + kLayout);
    EXPECT_EQ(layout_error("{}"), "found JSON of another kind; expected " + kLayout);
    EXPECT_EQ(layout_error("[]"), "found an empty array; expected " + kLayout);
    EXPECT_EQ(layout_error("[7]"), "found 7 in entry 1; expected an object with file, x, y and perhaps mask");
    EXPECT_EQ(layout_error(R"([{"x": 1, "y": 2}])"), "found no \"file\" in entry 1; expected the name of a picture");
    EXPECT_EQ(layout_error(R"([{"file": 5, "x": 1, "y": 2}])"),
              "found \"file\": 5 in entry 1; expected the name of a file");
    EXPECT_EQ(layout_error(R"([{"file": "a", "x": 1}])"), "found no \"y\" in entry 1; expected x and y, or neither");
    for (const char* x : {"\"1\"", "1e99", "null"})
        EXPECT_TRUE(contains(layout_error(concat(R"([{"file": "a", "x": )", x, R"(, "y": 2}])")),
                             "in entry 1; expected a number of pixels"))
            << x;
    EXPECT_EQ(layout_error(R"([{"file": "a", "x": 1, "y": 2, "x": 3}])"),
              "found the key \"x\" twice in one object; expected each key once");
    EXPECT_TRUE(contains(layout_error(R"([{"file": "a\u0000b", "x": 1, "y": 2}])"), "found a zero byte in \"file\""));
    EXPECT_EQ(layout_error(R"([{"file": "a", "x": 1e999, "y": 2}])"),
              "found a number that is too large; expected places of at most 1099511627776 from 0");
    EXPECT_TRUE(contains(error_of([&] {
                             std::vector<std::string> notes;
                             (void)read_layout(in_folder("none.json"), notes);
                         }),
                         "found no such file"));
}

TEST_F(PlacedFiles, WhatIsOddAboutALayoutIsNoted)
{
    const std::string name = write_text(
        "odd.json",
        R"({"images": [{"file": "a", "x": 1.5, "y": -2.5, "maks": "m", "keep": "k", "exclude": "e"}], "scale": 2})");
    std::vector<std::string> notes;
    const auto inputs = read_layout(name, notes);
    ASSERT_EQ(inputs.size(), 1u);
    EXPECT_EQ(inputs[0].position, (Offset{2, -2}));
    EXPECT_EQ(path_from_utf8(inputs[0].keep), path_from_utf8(in_folder("k")));
    EXPECT_EQ(path_from_utf8(inputs[0].exclude), path_from_utf8(in_folder("e")));
    ASSERT_EQ(notes.size(), 2u);
    EXPECT_EQ(notes[0], name + ": found keys that are not known and do nothing: \"maks\" in entry 1, \"scale\"");
    EXPECT_EQ(notes[1], name + ": \"x\": 1.5 in entry 1 is taken as 2 (and 1 more such); places are whole pixels");
}

TEST_F(PlacedFiles, WhatIsOddInEveryEntryIsNotedOnce)
{
    std::string entries;
    for (int i = 0; i < 500; ++i)
        entries += concat(i > 0 ? ", " : "", R"({"file": "a", "x": )", i, R"(.25, "y": 0, "angle": 1, "zoom": 2})");
    std::vector<std::string> notes;
    EXPECT_EQ(read_layout(write_text("many.json", "[" + entries + "]"), notes).size(), 500u);
    ASSERT_EQ(notes.size(), 2u);
    EXPECT_TRUE(
        contains(notes[0], ": \"angle\" in entry 1 (and 499 more such), \"zoom\" in entry 1 (and 499 more such)"))
        << notes[0];
    EXPECT_TRUE(contains(notes[1], "\"x\": 0.25 in entry 1 is taken as 0 (and 499 more such);")) << notes[1];
}

TEST_F(PlacedFiles, OfManyForeignKeysTwentyAreNamed)
{
    std::string keys;
    for (int i = 0; i < 30; ++i)
        keys += concat(", \"key", i, "\": 1");
    std::vector<std::string> notes;
    (void)read_layout(write_text("keys.json", R"([{"file": "a", "x": 0, "y": 0)" + keys + "}]"), notes);
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_TRUE(contains(notes[0], "\"key0\" in entry 1, ")) << notes[0];
    EXPECT_TRUE(contains(notes[0], " and 10 other keys")) << notes[0];
}

TEST_F(PlacedFiles, LayoutsThatAreNestedWithoutEndAreExplained)
{
    const std::string deep = std::string(300000, '[') + std::string(300000, ']');
    EXPECT_EQ(layout_error("[" + deep + "]"),
              "found an array in entry 1; expected an object with file, x, y and perhaps mask");
    EXPECT_EQ(layout_error(concat(R"([{"file": )", deep, "}]")),
              "found \"file\": an array in entry 1; expected the name of a file");
    EXPECT_TRUE(contains(layout_error(concat(R"([{"file": "a", "y": 1, "x": {"a": )", deep, "}}]")),
                         "found \"x\": an object in entry 1; expected a number"));
}

} // namespace

} // namespace panoval::cli::test
