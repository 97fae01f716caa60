// SPDX-License-Identifier: MIT
// Results that were written down once: the files of tests/golden.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace panoval::test
{

// Whether the golden file of that name holds exactly this text; names the first line that differs. While the variable
// PANOVAL_WRITE_GOLDEN holds a folder, the text is written there instead.
testing::AssertionResult equals_golden(const std::string& name, const std::string& text);

} // namespace panoval::test
