// SPDX-License-Identifier: MIT
// What becomes of a picture for which the library has no memory: it would be missing in the panorama.
#include "cli/base/errors.h"
#include "cli/stitch/panorama_blender.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/resource.h>
#include <unistd.h>

namespace panoval::cli::test
{

namespace
{

// Wide, so that the rows at work are too large to come out of what the process has.
constexpr std::int32_t kWidth = 60000;
constexpr std::int32_t kHeight = 8;

PanoramaPlan wide_plan()
{
    PanoramaPlan plan;
    plan.width = kWidth;
    plan.height = kHeight;
    plan.channels = 3;
    plan.bits = 8;
    PlacedLayer layer;
    layer.corner = {0, 0};
    layer.info.width = kWidth;
    layer.info.height = kHeight;
    layer.info.channels = 3;
    layer.info.bits = 8;
    plan.layers.push_back(layer);
    return plan;
}

Image wide_picture()
{
    Image image = make_image(kWidth, kHeight, 3, 8, "test");
    std::memset(image.data.get(), 100, image.bytes());
    ensure_mask(image, "test");
    return image;
}

// From here on the process gets no more than it has.
void close_the_heap()
{
    std::FILE* const status = std::fopen("/proc/self/statm", "r");
    unsigned long pages = 0;
    if (status == nullptr || std::fscanf(status, "%20lu", &pages) != 1)
        std::_Exit(1);
    std::fclose(status);
    const rlim_t bytes = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
    const rlimit limit = {bytes, bytes};
    if (setrlimit(RLIMIT_AS, &limit) != 0)
        std::_Exit(1);
}

// Ends the process with 0, or with the exit code of the error that stopped it.
void feed_with_little_memory(bool has_memory)
{
    const PanoramaPlan plan = wide_plan();
    const Image image = wide_picture();
    const auto blender = make_multi_band_blender(plan, cut_canvas(plan, 3, 1, 1).tile(0), 3, "panorama.tif");
    if (!has_memory)
        close_the_heap();
    try {
        blender->feed(plan.layers[0], image);
    } catch (const Failure& error) {
        std::fputs(error.what(), stderr);
        std::_Exit(static_cast<int>(exit_code_of(error.fault())));
    }
    std::_Exit(0);
}

TEST(PanoramaBlenderDeathTest, LeavesNoPictureOutForLackOfMemory)
{
    const int code = static_cast<int>(ExitCode::Memory);
    EXPECT_EXIT(feed_with_little_memory(true), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(feed_with_little_memory(false), testing::ExitedWithCode(code), "panorama.tif.*memory");
}

} // namespace

} // namespace panoval::cli::test
