// SPDX-License-Identifier: MIT
// Seams half-way between the pictures' edges, against distances measured pixel by pixel.
#include "mosaic/seams/seam_nearest.h"

#include "tests/mosaic/memory_reader.h"
#include "tests/mosaic/seam_checks.h"
#include "tests/reference/seam_nearest.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

namespace panoval::mosaic::test
{

namespace
{

SeamMap nearest(SeamReader& reader, std::size_t threads = 1)
{
    NoProgress progress;
    return find_nearest_seams(reader.layout, reader, threads, progress);
}

void expect_as_defined(SeamReader& reader, const std::string& what)
{
    const std::vector<std::int32_t> expected = reference::nearest_labels(reader);
    for (const std::size_t threads : {1u, 3u})
        EXPECT_EQ(all_labels(nearest(reader, threads)), expected) << what << ", " << threads << " threads";
}

TEST(SeamNearest, LiesHalfWayBetweenTwoEdges)
{
    SeamReader reader(16, 5);
    reader.add(0, 0, MemoryPicture::blank(10, 5, 1, 8));
    reader.add(6, 0, MemoryPicture::blank(10, 5, 1, 8));
    const SeamMap map = nearest(reader);
    EXPECT_EQ(map.runs(2)[0], (SeamMap::Run{8, 0}));
    EXPECT_EQ(map.runs(2)[1], (SeamMap::Run{16, 1}));
    EXPECT_EQ(map.runs(0)[0], (SeamMap::Run{10, 0})) << "equally far from the upper edge: the lower number";
}

TEST(SeamNearest, IsNobodysWhereNothingLies)
{
    SeamReader reader(7, 4);
    reader.add(1, 1, MemoryPicture::blank(1, 1, 3, 16));
    reader.add(4, 2, MemoryPicture::blank(2, 1, 3, 16));
    EXPECT_EQ(all_labels(nearest(reader)), (std::vector<std::int32_t>{-1, -1, -1, -1, -1, -1, -1, //
                                                                      -1, 0,  -1, -1, -1, -1, -1, //
                                                                      -1, -1, -1, -1, 1,  1,  -1, //
                                                                      -1, -1, -1, -1, -1, -1, -1}));
}

TEST(SeamNearest, EqualsItsDefinitionForPicturesOfAnyShape)
{
    for (std::uint64_t seed = 0; seed < 30; ++seed) {
        SeamReader reader = scattered_pictures(seed);
        expect_as_defined(reader, "seed " + std::to_string(seed));
    }
}

TEST(SeamNearest, GivesAPixelToThePictureThatMustKeepIt)
{
    SeamReader reader(16, 5);
    reader.add(0, 0, MemoryPicture::blank(10, 5, 1, 8));
    reader.add(6, 0, MemoryPicture::blank(10, 5, 1, 8));
    reader.keep_rect(0, {9, 2, 1, 1});
    reader.keep_rect(1, {0, 2, 1, 2}); // column 6 of the canvas
    reader.keep_rect(0, {6, 3, 1, 1}); // and so does the first picture
    const std::vector<std::int32_t> labels = all_labels(nearest(reader));
    EXPECT_EQ(labels[2 * 16 + 9], 0);
    EXPECT_EQ(labels[2 * 16 + 6], 1);
    EXPECT_EQ(labels[3 * 16 + 6], 0);
    EXPECT_EQ(labels, reference::nearest_labels(reader));
}

} // namespace

} // namespace panoval::mosaic::test
