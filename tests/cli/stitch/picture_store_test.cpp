// SPDX-License-Identifier: MIT
#include "cli/stitch/picture_store.h"

#include "image/image_write.h"
#include "tests/support/scratch_folder.h"

#include <gtest/gtest.h>

namespace panoval::cli::test
{

namespace
{

// Three pictures of 10 x 4 pixels: 160 bytes each in colour with a mask.
class Store : public ScratchFolder
{
protected:
    static constexpr std::uint64_t kBytes = 160;

    void SetUp() override
    {
        std::vector<PlacedInput> inputs;
        for (const char* const name : {"a.ppm", "b.ppm", "c.ppm"}) {
            write_image(in_folder(name), test_picture(10, 4, 3, 8));
            inputs.push_back({in_folder(name), Offset{0, 0}, ""});
        }
        plan = plan_panorama(inputs);
    }

    // A picture that is not held any more cannot be had without its file.
    void remove_files()
    {
        for (const PlacedLayer& layer : plan.layers)
            std::filesystem::remove(path_from_utf8(layer.file));
    }

    PanoramaPlan plan;
};

TEST_F(Store, KnowsWhatAllPicturesTake)
{
    EXPECT_EQ(PictureStore(plan, 8).bytes_of_all(), 3 * kBytes);
    EXPECT_EQ(PictureStore(plan, 16).bytes_of_all(), 3u * (10 * 4 * 7));
}

TEST_F(Store, HoldsWhatFitsTheBudget)
{
    PictureStore store(plan, 8);
    store.set_budget(2 * kBytes, 1);
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(std::memcmp(store.get(i)->data.get(), test_picture(10, 4, 3, 8).data.get(), 10 * 4 * 3), 0);
    remove_files();
    EXPECT_NO_THROW(store.get(1));
    EXPECT_NO_THROW(store.get(2));
    EXPECT_ANY_THROW(store.get(0));
}

TEST_F(Store, HoldsTheLeastNumberOfPicturesBeyondTheBudget)
{
    PictureStore store(plan, 8);
    store.set_budget(1, 2);
    for (std::size_t i = 0; i < 3; ++i)
        (void)store.get(i);
    remove_files();
    EXPECT_NO_THROW(store.get(1));
    EXPECT_NO_THROW(store.get(2));
    store.drop(2);
    EXPECT_NO_THROW(store.get(1));
    EXPECT_ANY_THROW(store.get(2));
}

TEST_F(Store, PreparesEachPictureOnce)
{
    const auto brighten = [](std::size_t index, Image& image) {
        image.data[0] = static_cast<std::uint8_t>(image.data[0] + index + 1);
    };
    const std::uint8_t raw = test_picture(10, 4, 3, 8).data[0];
    PictureStore store(plan, 8);
    store.load_all();
    remove_files();
    EXPECT_EQ(store.get(0)->data[0], raw);
    store.prepare_with(brighten);
    store.prepare_all();
    for (int round = 0; round < 2; ++round)
        for (std::size_t i = 0; i < 3; ++i)
            EXPECT_EQ(store.get(i)->data[0], static_cast<std::uint8_t>(raw + i + 1));
}

TEST_F(Store, PreparesWhatItReadsAgain)
{
    PictureStore store(plan, 8);
    store.set_budget(kBytes, 1);
    store.prepare_with([](std::size_t, Image& image) { image.data[1] = 77; });
    for (const std::size_t i : {0u, 1u, 0u, 2u})
        EXPECT_EQ(store.get(i)->data[1], 77);
}

TEST_F(Store, NamesTheFirstPictureThatCannotBeRead)
{
    PictureStore store(plan, 8);
    std::filesystem::remove(path_from_utf8(plan.layers[1].file));
    std::filesystem::remove(path_from_utf8(plan.layers[2].file));
    EXPECT_NE(error_of([&] { store.load_all(); }).find("b.ppm"), std::string::npos);
}

} // namespace

} // namespace panoval::cli::test
