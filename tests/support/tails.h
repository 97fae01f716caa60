// SPDX-License-Identifier: MIT
// The lengths and places of rows at which vectors begin, end and are left over.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>

namespace panoval::test
{

// Calls body(offset, count) for rows of count elements that begin offset elements into their block.
template <class Body>
void for_each_tail(const Body& body)
{
    for (std::size_t offset = 0; offset < 4; ++offset)
        for (std::size_t count = 0; count <= 37; ++count) {
            SCOPED_TRACE(testing::Message() << "offset " << offset << ", count " << count);
            body(offset, count);
        }
}

} // namespace panoval::test
