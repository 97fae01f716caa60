// SPDX-License-Identifier: MIT
#include "filter/chamfer_rows.h"

#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <algorithm>
#include <vector>

namespace panoval::test
{

namespace
{

constexpr std::size_t kRows = 7;
constexpr std::int32_t kPixel = 65536;

using Cells = std::vector<std::int32_t>;     // of a row with its frame
using Steps = ChamferSteps<std::int32_t>;    // costs of cells of 32 bits
using KeySteps = ChamferSteps<std::int16_t>; // and of keys

// The literal passes over one row.
Cells forward_twin(const std::uint8_t* src, const Cells& above, const Steps& steps)
{
    Cells row(above.size(), steps.far_away);
    for (std::size_t x = 1; x + 1 < row.size(); ++x)
        row[x] = src[x - 1] == 0 ? 0
                                 : std::min({above[x - 1] + steps.diagonal, above[x] + steps.straight,
                                             above[x + 1] + steps.diagonal, row[x - 1] + steps.straight});
    return row;
}

void backward_twin(const Cells& below, Cells& row, const Steps& steps, std::vector<float>& distances)
{
    for (std::size_t x = row.size() - 2; x > 0; --x) {
        if (row[x] > steps.straight)
            row[x] = std::min({row[x], below[x + 1] + steps.diagonal, below[x] + steps.straight,
                               below[x - 1] + steps.diagonal, row[x + 1] + steps.straight});
        distances[x - 1] = static_cast<float>(row[x]) * 1.52587890625e-05f;
    }
}

// A few marks, rows without any, and rows that are all marks.
std::vector<std::uint8_t> mask_of(std::size_t width)
{
    auto mask = noise<std::uint8_t>(kRows * width, 0, 9, width);
    std::fill_n(mask.begin(), width, std::uint8_t{1});
    std::fill_n(mask.begin() + static_cast<std::ptrdiff_t>(5 * width), width, std::uint8_t{0});
    return mask;
}

// A mask's rows after both passes, with the frame's rows first and last.
struct Passes {
    std::vector<Cells> forward;
    std::vector<Cells> backward;
    std::vector<std::vector<float>> distances;

    Passes(const std::vector<std::uint8_t>& mask, std::size_t width, const Steps& steps)
        : forward(kRows + 2, Cells(width + 2, steps.far_away)), distances(kRows, std::vector<float>(width))
    {
        for (std::size_t y = 0; y < kRows; ++y)
            forward[y + 1] = forward_twin(&mask[y * width], forward[y], steps);
        backward = forward;
        for (std::size_t y = kRows; y > 0; --y)
            backward_twin(backward[y + 1], backward[y], steps, distances[y - 1]);
    }
};

template <class Body>
void for_each_width(const Body& body)
{
    for_each_target([&] {
        for (std::size_t width = 1; width <= 70; ++width) {
            SCOPED_TRACE(testing::Message() << "width " << width);
            body(width, mask_of(width));
        }
    });
}

TEST(ChamferRows, EqualTheirTwinForEveryWidth)
{
    constexpr Steps kSteps[] = {{kFarAway, 62587, 89738}, {kFarAway, kPixel, 2 * kPixel}, {kFarAway, 0, 5}};
    for_each_width([&](std::size_t width, const std::vector<std::uint8_t>& mask) {
        for (const Steps& steps : kSteps)
            for (const bool exact : {false, true}) {
                const Passes expected(mask, width, steps);
                for (std::size_t y = 0; y < kRows; ++y) {
                    Cells row(width + 2, -1);
                    std::vector<float> distances(width, -1);
                    forward_row(&mask[y * width], expected.forward[y].data(), row.data(), width, steps, exact);
                    EXPECT_TRUE(same_bits(row, expected.forward[y + 1])) << "row " << y;
                    backward_row(expected.backward[y + 2].data(), row.data(), width, steps, exact, distances.data());
                    EXPECT_TRUE(same_bits(row, expected.backward[y + 1])) << "row " << y;
                    EXPECT_TRUE(same_bits(distances, expected.distances[y])) << "row " << y;
                }
            }
    });
}

// Costs that wrap are for the plain loop.
TEST(ChamferRows, WrapWhereCostsAreHuge)
{
    for_each_target([] {
        const std::uint8_t src[] = {1, 1};
        const std::int32_t above[] = {kFarAway, 2000000000, kFarAway, kFarAway};
        std::int32_t row[4] = {};
        forward_row(src, above, row, 2, {kFarAway, 2000000000, 2100000000}, false);
        EXPECT_EQ(row[1], static_cast<std::int32_t>(kFarAway + 2000000000u)) << "from the frame at the left";
    });
}

std::int16_t key_of(std::int32_t cell)
{
    return static_cast<std::int16_t>(cell / kPixel * 2 + (cell % kPixel != 0 ? 1 : 0));
}

std::vector<std::int16_t> keys_of(const Cells& cells)
{
    std::vector<std::int16_t> keys;
    for (const std::int32_t cell : cells)
        keys.push_back(key_of(cell));
    return keys;
}

TEST(ChamferRows, AsKeysEqualThoseAsCells)
{
    constexpr int kCosts[][2] = {{1, 1}, {1, 2}, {3, 4}, {2, 7}};
    for_each_width([&](std::size_t width, const std::vector<std::uint8_t>& mask) {
        for (const auto& [straight, diagonal] : kCosts) {
            const Passes expected(mask, width, {kFarAway, straight * kPixel, diagonal * kPixel});
            const KeySteps steps = {kFarKey, static_cast<std::int16_t>(2 * straight),
                                    static_cast<std::int16_t>(2 * diagonal)};
            for (std::size_t y = 0; y < kRows; ++y) {
                const auto above = keys_of(expected.forward[y]);
                const auto below = keys_of(expected.backward[y + 2]);
                Cells cells(width + 2, -1); // holds the keys first
                std::vector<std::int16_t> keys(width + 2, -1);
                std::vector<float> distances(width, -1);
                forward_key_row(&mask[y * width], above.data(), keys.data(), width, steps);
                EXPECT_TRUE(same_bits(keys, keys_of(expected.forward[y + 1]))) << "row " << y;
                std::memcpy(cells.data(), keys.data(), keys.size() * sizeof(std::int16_t));
                backward_key_row(below.data(), cells.data(), keys.data(), width, steps, distances.data());
                EXPECT_TRUE(same_bits(keys, keys_of(expected.backward[y + 1]))) << "row " << y;
                EXPECT_TRUE(same_bits(cells, expected.backward[y + 1])) << "row " << y;
                EXPECT_TRUE(same_bits(distances, expected.distances[y])) << "row " << y;
            }
        }
    });
}

} // namespace

} // namespace panoval::test
