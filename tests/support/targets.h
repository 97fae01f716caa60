// SPDX-License-Identifier: MIT
// Runs a test once for every instruction set that this machine offers.
#pragma once

#include <gtest/gtest.h>
#include <hwy/targets.h>

namespace panoval::test
{

// Calls body() with dynamic dispatch pinned to each instruction set in turn, the fastest last.
template <class Body>
void for_each_target(const Body& body)
{
    const auto targets = hwy::SupportedAndGeneratedTargets();
    ASSERT_FALSE(targets.empty());
    for (auto target = targets.rbegin(); target != targets.rend(); ++target) {
        SCOPED_TRACE(hwy::TargetName(*target));
        hwy::SetSupportedTargetsForTest(*target);
        body();
    }
    hwy::SetSupportedTargetsForTest(0);
}

} // namespace panoval::test
