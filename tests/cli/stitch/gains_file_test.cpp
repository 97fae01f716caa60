// SPDX-License-Identifier: MIT
#include "cli/stitch/gains_file.h"

#include "image/output_file.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace panoval::cli::test
{

namespace
{

PanoramaPlan plan_of(const std::vector<std::string>& files)
{
    PanoramaPlan plan;
    plan.channels = 3;
    for (const std::string& file : files) {
        plan.layers.emplace_back();
        plan.layers.back().file = file;
    }
    return plan;
}

class GainsFile : public ScratchFolder
{
protected:
    std::string saved(const PanoramaPlan& plan, const PanoramaGains& gains)
    {
        OutputFile output(in_folder("gains.json"));
        write_gains(output, plan, gains);
        output.commit();
        return in_folder("gains.json");
    }

    // What is wrong with such a file for two pictures.
    std::string fault_of(const std::string& text)
    {
        const std::string name = write_text("faulty.json", text);
        return error_of([&] {
            std::vector<std::string> notes;
            (void)load_gains(name, plan_of({"a.png", "b.png"}), notes);
        });
    }
};

TEST_F(GainsFile, GivesBackEveryBitOfWhatWasSaved)
{
    const PanoramaPlan plan = plan_of({"a.png", "b.png"});
    for (const bool per_channel : {false, true}) {
        PanoramaGains gains;
        gains.pictures = {{0.1, 0.1, 0.1, 0.1}, {1.0 / 3, 1.0 / 3, 1.0 / 3, 1.0 / 3}};
        if (per_channel)
            gains.pictures[1] = {1.0 / 3, 2.0 / 3, 1e-6, 1};
        gains.per_channel = per_channel;
        gains.falloff = {-0.1, 1.0 / 7, 0};
        std::vector<std::string> notes;
        const PanoramaGains loaded = load_gains(saved(plan, gains), plan, notes);
        EXPECT_EQ(loaded.per_channel, per_channel);
        EXPECT_EQ(loaded.falloff, gains.falloff);
        for (std::size_t i = 0; i < 2; ++i)
            for (std::size_t c = 0; c < 3; ++c)
                EXPECT_EQ(loaded.pictures[i][c], gains.pictures[i][c]) << i << ", " << c;
        EXPECT_TRUE(notes.empty());
    }
}

TEST_F(GainsFile, GoesToPicturesInTheirOrderAndNotesOtherNames)
{
    PanoramaGains gains;
    gains.pictures = {{2, 2, 2, 2}, {3, 3, 3, 3}};
    const std::string name = saved(plan_of({"old/a.png", "old/b.png"}), gains);
    std::vector<std::string> notes;
    const PanoramaGains loaded = load_gains(name, plan_of({"new/a.png", "c.png"}), notes);
    EXPECT_EQ(loaded.pictures[0][0], 2);
    EXPECT_EQ(loaded.pictures[1][0], 3);
    ASSERT_EQ(notes.size(), 1u) << "folders do not count";
    EXPECT_TRUE(contains(notes[0], "entry 2 is for 'old/b.png' and is taken for 'c.png'")) << notes[0];
}

TEST_F(GainsFile, RefusesWhatIsNoListOfGains)
{
    const std::string one = R"({"file": "a.png", "gain": 1})";
    EXPECT_TRUE(contains(fault_of("{"), "found no valid JSON"));
    EXPECT_TRUE(contains(fault_of("[]"), "found JSON of another kind"));
    EXPECT_TRUE(contains(fault_of(R"({"gains": 1})"), "found JSON of another kind"));
    EXPECT_TRUE(contains(fault_of("{\"gains\": [" + one + "]}"), "found 1 gains; expected one for each of 2 pictures"));
    EXPECT_TRUE(contains(fault_of("{\"gains\": [" + one + ", {}]}"), "found no number \"gain\" in entry 2"));
    EXPECT_TRUE(contains(fault_of("{\"gains\": [" + one + ", " + R"({"gain": 1, "channels": 1}]})"), "\"channels\""));
}

TEST_F(GainsFile, RefusesGainsAndFalloffsOutOfRange)
{
    const auto with = [&](const std::string& gain) {
        return fault_of(R"({"gains": [{"gain": 1}, {"gain": )" + gain + "}]}");
    };
    for (const char* const gain : {"0", "-1", "1e-7", "1000001"})
        EXPECT_TRUE(contains(with(gain), "for 'b.png'; expected a number from 0.000001 to 1000000;")) << with(gain);
    const auto with_falloff = [&](const std::string& falloff) {
        return fault_of(R"({"gains": [{"gain": 1}, {"gain": 1}], "falloff": )" + falloff + "}");
    };
    EXPECT_EQ(with_falloff("[0.1, 0, 0]"), "no error");
    EXPECT_TRUE(contains(with_falloff("[1, 2]"), "no three numbers"));
    EXPECT_EQ(with_falloff("[1, 2, -1e6]"), "no error");
    EXPECT_TRUE(contains(with_falloff("[1, 2, 1e7]"), "no number from -1000000 to 1000000"));
    EXPECT_TRUE(contains(with_falloff("[1, 2, null]"), "no number from -1000000 to 1000000"));
}

TEST(PanoramaGains, OfAPictureAreTheMeanOfItsChannels)
{
    PanoramaGains gains;
    gains.pictures = {{1, 2, 6, 100}};
    EXPECT_EQ(gains.of_picture(0, 3), 1) << "the same for all channels";
    gains.per_channel = true;
    EXPECT_EQ(gains.of_picture(0, 3), 3);
}

} // namespace

} // namespace panoval::cli::test
