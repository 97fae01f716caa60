// SPDX-License-Identifier: MIT
// The butterfly of Fourier transforms down the columns.
#include "mosaic/verdict/butterfly_rows.h"

#include "bench/support/routine.h"
#include "tests/reference/butterfly_rows.h"
#include "tests/support/noise.h"

#include <memory>
#include <string>
#include <vector>

namespace panoval::bench
{
namespace
{

using namespace mosaic;

constexpr std::size_t kSide = 128; // of the patches of a verdict
constexpr Turn kTurn{0.8, -0.6};

// The first stage over a whole patch.
struct Patch {
    std::vector<double> fresh = panoval::test::noise<double>(2 * kSide * kSide, -1, 1, 1);
    std::vector<double> values = fresh;

    template <class Combine>
    void combine(const Combine& combine_two)
    {
        const auto row = [&](std::size_t y) {
            double* const real = values.data() + 2 * y * kSide;
            return ComplexRow{real, real + kSide};
        };
        for (std::size_t y = 0; y < kSide; y += 2)
            combine_two(row(y), row(y + 1), kTurn, kSide);
    }

    template <class Combine>
    std::vector<double> combined(const Combine& combine_two)
    {
        values = fresh;
        combine(combine_two);
        return values;
    }
};

Case combine_case()
{
    const auto patch = std::make_shared<Patch>();
    return {std::to_string(kSide) + "x" + std::to_string(kSide),
            "complex",
            static_cast<double>(kSide * kSide),
            2 * kSide * kSide * sizeof(double),
            [=] { patch->combine(combine_rows); },
            [=] { patch->combine(reference::combine_rows); },
            [=] { return patch->combined(combine_rows) == patch->combined(reference::combine_rows); },
            [=] { patch->values = patch->fresh; }};
}

const Registration registration([] { add_case("combine_rows", combine_case); });

} // namespace
} // namespace panoval::bench
