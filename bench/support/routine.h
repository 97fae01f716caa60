// SPDX-License-Identifier: MIT
// One case of one routine, measured in one run as it stands, as its literal twin, and as a memcpy, so that both ratios
// hold on any machine.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace panoval::bench
{

struct Case {
    std::string size;                   // as "2000x1500"
    std::string content;                // as "photo"
    double pixels = 0;                  // per call, for the rate in MP/s
    std::size_t memcpy_bytes = 0;       // bytes that the memcpy of the same traffic copies; 0 = no such column
    std::function<void()> fast;         // the routine
    std::function<void()> twin;         // its twin under tests/reference; may be empty
    std::function<bool()> same = {};    // after both have run: are the results equal? May be empty
    std::function<void()> restore = {}; // untimed, before each call; may be empty
};

// Adds a case of a routine, by its exported or internal name. Its pictures are made when its turn comes and end with
// it: `make` builds them, and the case's functions capture shared pointers to them.
void add_case(std::string routine, std::function<Case()> make);

// At namespace scope of a benchmark file: static const Registration registration([] { add_case(...); });
struct Registration {
    explicit Registration(void (*add)()) { add(); }
};

} // namespace panoval::bench
