// SPDX-License-Identifier: MIT
// Where a horizontal line meets a convex shape, from which its area in small cells follows.
#pragma once

#include "tests/scenes/target_scene.h"

namespace panoval::test
{

struct Span {
    double begin = 0;
    double end = 0; // not above begin: nothing
};

struct Extent {
    double left, top, right, bottom;
};

Span span_of(const Shape& shape, double y);

// The smallest box around the shape.
Extent extent_of(const Shape& shape);

} // namespace panoval::test
