// SPDX-License-Identifier: MIT
// Results that were written down once: the files of tests/golden.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace panoval::test
{

// Lines "word ... = number" whose number may differ a little.
struct LooseLines {
    std::vector<std::string> words; // the first words of these lines
    double tolerance = 0;
};

// Whether the golden file of that name holds exactly this text, but for the loose lines; names the first line that
// differs. While the variable PANOVAL_WRITE_GOLDEN holds a folder, the text is written there instead.
testing::AssertionResult equals_golden(const std::string& name, const std::string& text, const LooseLines& loose = {});

} // namespace panoval::test
