// SPDX-License-Identifier: MIT
// From what was measured to words: good, look or bad for each overlap and for the panorama, who is to blame, and why.
#pragma once

#include "mosaic/verdict/verdict.h"

namespace panoval::mosaic
{

// Reads what is measured and sets every word, explanation, reason and misfit.
void put_into_words(const Layout& layout, Verdict& verdict);

} // namespace panoval::mosaic
