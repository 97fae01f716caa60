// SPDX-License-Identifier: MIT
// The gain compensator of no images: containers of that shape, not emptied ones, and nothing to be freed.
#include "panoval.h"

#include <gtest/gtest.h>

namespace
{

template <class Container>
void expect_shape(const Container& m, std::int32_t width, std::int32_t height)
{
    EXPECT_EQ(m.width, width);
    EXPECT_EQ(m.height, height);
    EXPECT_EQ(m.channels, 1);
    EXPECT_EQ(m.data, nullptr);
}

TEST(GainsWithoutImages, AreAColumnOfNone)
{
    GainCompensator compensator{};
    gain_compensator_init(&compensator, 0, nullptr, nullptr, nullptr);
    expect_shape(compensator.gains, 0, 1);
    gain_compensator_free(&compensator);
}

TEST(GainsWithoutImages, HaveTablesOfNoRows)
{
    GainCompensator compensator{};
    gain_compensator_init_start(&compensator, 0);
    expect_shape(compensator.counts, 0, 0);
    expect_shape(compensator.intensities, 0, 0);
    expect_shape(compensator.gains, 0, 1);
    gain_compensator_init_end(&compensator);
    gain_compensator_free(&compensator);
}

} // namespace
