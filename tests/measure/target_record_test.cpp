// SPDX-License-Identifier: MIT
#include "measure/target_record.h"

#include "panoval_measure.h"

#include <gtest/gtest.h>

namespace
{

using panoval::measure::quality_of;

TEST(QualityOf, IsNoneWithoutContrast)
{
    PanovalMeasureTarget target = {};
    target.level_inside = target.level_outside = 90;
    target.edge_share = 1;
    target.ellipse = {20, 20, 5, 5, 0};
    EXPECT_EQ(quality_of(target, {}, 1), 0);
    target.level_inside = 190;
    target.blur = 0.7;
    EXPECT_GT(quality_of(target, {}, 1), 0.9);
    target.edge_share = 0.6;
    EXPECT_EQ(quality_of(target, {}, 1), 0) << "the rim of something that is hidden";
}

} // namespace
