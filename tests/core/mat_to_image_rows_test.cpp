// SPDX-License-Identifier: MIT
#include "core/mat_to_image_rows.h"
#include "tests/reference/mat_to_image.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

namespace
{

using namespace panoval::test;
namespace reference = panoval::reference;

template <class Sample>
using Kernel = void (*)(const Sample*, std::uint8_t*, std::size_t);

// Rows of every length around the vectors', and of lengths around the tile of 2048 samples, at any address of out.
template <class Sample>
void expect_twin(Kernel<Sample> kernel, Kernel<Sample> twin, std::size_t bytes_per_sample)
{
    for_each_target([&] {
        for (std::size_t count = 0; count < 2300; count += count < 200 ? 1 : count < 2040 ? 230 : 1) {
            const std::size_t offset = count % 7;
            const auto samples = noise<Sample>(count, 0, std::numeric_limits<Sample>::max(), count);
            const Guarded<Sample> in(samples);
            Guarded<std::uint8_t> out(offset + count * bytes_per_sample);
            std::vector<std::uint8_t> expected = out.values();
            twin(samples.data(), expected.data() + offset, count);
            kernel(in.data(), out.data() + offset, count);
            ASSERT_TRUE(same_bits(out.values(), expected)) << count << " samples";
            ASSERT_TRUE(out.intact());
        }
    });
}

TEST(MatToImageRows, RepeatBytesAsTheirTwinDoes)
{
    expect_twin<std::uint8_t>(panoval::repeat_bytes, reference::repeat_bytes, 3);
}

TEST(MatToImageRows, RepeatHighBytesAsTheirTwinDoes)
{
    expect_twin<std::uint16_t>(panoval::repeat_high_bytes, reference::repeat_high_bytes, 3);
}

TEST(MatToImageRows, TakeHighBytesAsTheirTwinDoes)
{
    expect_twin<std::uint16_t>(panoval::take_high_bytes, reference::take_high_bytes, 1);
}

TEST(MatToImageRows, DropTheLowByteOfEverySample)
{
    for_each_target([] {
        std::vector<std::uint16_t> all(65536);
        for (std::size_t i = 0; i < all.size(); ++i)
            all[i] = static_cast<std::uint16_t>(i);
        std::vector<std::uint8_t> bytes(all.size());
        panoval::take_high_bytes(all.data(), bytes.data(), all.size());
        for (std::size_t i = 0; i < all.size(); ++i)
            ASSERT_EQ(bytes[i], i >> 8);
    });
}

} // namespace
