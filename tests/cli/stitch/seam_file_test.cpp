// SPDX-License-Identifier: MIT
#include "cli/stitch/seam_file.h"

#include "image/base64.h"
#include "image/files.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

#include <random>

namespace panoval::cli::test
{

namespace
{

constexpr SeamGrid kGrid{300, 200, 64};
const std::string kId = "0123456789abcdef";

using Labels = std::vector<std::vector<std::uint64_t>>; // rows of labels

Labels made_labels()
{
    std::mt19937 random(3);
    Labels labels;
    for (std::int64_t y = 0; y < kGrid.height; ++y) {
        if (y > 0 && random() % 3 == 0) { // as the row above
            labels.push_back(labels.back());
            continue;
        }
        std::vector<std::uint64_t> row;
        while (row.size() < static_cast<std::size_t>(kGrid.width)) {
            const std::size_t length = std::min<std::size_t>(1 + random() % 90, 300 - row.size());
            row.insert(row.end(), length, random() % 400);
        }
        labels.push_back(row);
    }
    return labels;
}

std::string text_of(const Labels& labels)
{
    SeamRowWriter writer;
    for (const auto& row : labels) {
        SeamRow runs;
        for (const std::uint64_t label : row)
            append_run(runs, {1, label});
        writer.add(runs);
    }
    std::string text = image::base64_of(writer.bytes());
    text.erase(text.find_last_not_of('=') + 1);
    return text;
}

Labels labels_of(std::string text)
{
    text.append((4 - text.size() % 4) % 4, '=');
    const auto bytes = image::bytes_of_base64(text).value();
    const std::string name = "test";
    SeamRowReader reader(bytes, name, kGrid.width);
    Labels labels;
    for (std::int64_t y = 0; y < kGrid.height; ++y) {
        labels.emplace_back();
        for (const SeamRun& run : reader.next())
            labels.back().insert(labels.back().end(), static_cast<std::size_t>(run.length), run.label);
    }
    EXPECT_TRUE(reader.is_at_end());
    return labels;
}

class SeamFiles : public ScratchFolder
{
protected:
    void write(const Labels& labels)
    {
        image::OutputFile output(name());
        write_seam_file(output, kGrid, text_of(labels), kId, "the plan");
        output.commit();
    }
    std::string name() const { return in_folder("plan.seams"); }
    std::string read(const SeamSelection& selection, const SeamGrid& grid = kGrid, const std::string& id = kId) const
    {
        return read_seam_file(name(), grid, id, selection);
    }
    static SeamSelection all()
    {
        SeamSelection selection(kGrid, false);
        selection.add({0, 0, kGrid.width, kGrid.height}, 0);
        return selection;
    }
};

TEST_F(SeamFiles, GiveBackTheTextThatTheyWereMadeOf)
{
    const Labels labels = made_labels();
    write(labels);
    EXPECT_EQ(read(all()), text_of(labels));
}

TEST_F(SeamFiles, GiveTheSquaresAroundATileAndNobodyElsewhere)
{
    const Labels labels = made_labels();
    write(labels);
    for (const bool wraps : {false, true})
        for (const PanovalMosaicRect& tile :
             {PanovalMosaicRect{0, 0, 64, 64}, {130, 70, 60, 58}, {250, 150, 50, 50}, {5, 199, 1, 1}}) {
            SeamSelection selection(kGrid, wraps);
            selection.add(tile, 10);
            const Labels found = labels_of(read(selection));
            for (std::int64_t y = 0; y < kGrid.height; ++y)
                for (std::int64_t x = 0; x < kGrid.width; ++x) {
                    const std::uint64_t label = found[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)];
                    const std::uint64_t given = labels[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)];
                    const bool is_chosen = selection.has(y / kGrid.side, x / kGrid.side);
                    ASSERT_EQ(label, is_chosen ? given : 0) << x << "," << y;
                    const auto near = [&](std::int64_t column) {
                        return column >= tile.x - 10 && column < tile.x + tile.width + 10;
                    };
                    const bool is_near = near(x) || (wraps && (near(x - kGrid.width) || near(x + kGrid.width)));
                    if (is_near && y >= tile.y - 10 && y < tile.y + tile.height + 10) {
                        ASSERT_TRUE(is_chosen) << x << "," << y;
                    }
                }
        }
}

TEST_F(SeamFiles, OfSomethingElseAreRefused)
{
    write(made_labels());
    EXPECT_TRUE(contains(error_of([&] { read(all(), kGrid, "fedcba9876543210"); }), "the seams of another plan"));
    EXPECT_TRUE(contains(error_of([&] { read(all(), kGrid, ""); }), "the seams of another plan"));
    EXPECT_TRUE(contains(error_of([&] { read(all(), {300, 200, 32}); }), "the seams of another canvas"));
    EXPECT_TRUE(contains(error_of([&] { read(all(), {301, 200, 64}); }), "the seams of another canvas"));
    EXPECT_TRUE(contains(error_of([&] { read_seam_file(in_folder("no"), kGrid, kId, all()); }), "no"));
}

// Each byte of the file changed, and the file cut anywhere: an error that names it, or rows of the right width.
TEST_F(SeamFiles, ThatAreDamagedAreRefusedOrRead)
{
    write(made_labels());
    const std::string whole = read_text("plan.seams");
    std::size_t refused = 0;
    for (std::size_t at = 0; at < whole.size(); at += 7) {
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x81);
        write_text("plan.seams", damaged);
        std::string text;
        const std::string error = error_of([&] { text = read(all()); });
        const bool was_read = error == "no error";
        refused += was_read ? 0 : 1;
        if (was_read)
            EXPECT_EQ(labels_of(text).back().size(), 300u);
        else
            EXPECT_TRUE(contains(error, "plan.seams")) << error;
    }
    EXPECT_GT(refused, whole.size() / 7 / 4);
    for (std::size_t size = 0; size < whole.size(); size += 11) {
        write_text("plan.seams", whole.substr(0, size));
        EXPECT_TRUE(contains(error_of([&] { read(all()); }), "plan.seams")) << size;
    }
}

} // namespace

} // namespace panoval::cli::test
