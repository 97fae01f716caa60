// SPDX-License-Identifier: MIT
#include "panoval_measure.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace
{

using panoval::test::Random;

using Matrix = std::array<double, 9>;

// A board's plane (column, row), tilted by an angle about its column axis, turned, and seen from 1.6 widths.
Matrix view(double columns, double rows, double tilt, double turn)
{
    const double c = std::cos(turn), s = std::sin(turn), ct = std::cos(tilt), st = std::sin(tilt);
    const double f = 1200, distance = 1.6 * std::max(columns, rows);
    const double mx = (columns - 1) / 2, my = (rows - 1) / 2;
    // (X, Y) -> x = cX - sY, y = ct (sX + cY), z = distance + st (sX + cY)
    const double a[3][2] = {{c, -s}, {ct * s, ct * c}, {st * s, st * c}};
    Matrix h{};
    for (std::size_t i = 0; i < 3; ++i) {
        h[3 * i] = a[i][0];
        h[3 * i + 1] = a[i][1];
        h[3 * i + 2] = -a[i][0] * mx - a[i][1] * my + (i == 2 ? distance : 0);
    }
    for (std::size_t j = 0; j < 3; ++j) {
        h[j] = f * h[j] + 900 * h[6 + j];
        h[3 + j] = f * h[3 + j] + 700 * h[6 + j];
    }
    return h;
}

void map(const Matrix& h, double x, double y, double& u, double& v)
{
    const double w = h[6] * x + h[7] * y + h[8];
    u = (h[0] * x + h[1] * y + h[2]) / w;
    v = (h[3] * x + h[4] * y + h[5]) / w;
}

PanovalMeasureTarget image_of_circle(const Matrix& h, double x, double y, double r)
{
    const double dual[3][3] = {{r * r - x * x, -x * y, -x}, {-x * y, r * r - y * y, -y}, {-x, -y, -1}};
    double d[3][3] = {};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j)
            for (std::size_t k = 0; k < 3; ++k)
                for (std::size_t l = 0; l < 3; ++l)
                    d[i][j] += h[3 * i + k] * dual[k][l] * h[3 * j + l];
    const double u = d[0][2] / d[2][2], v = d[1][2] / d[2][2];
    const double pxx = u * u - d[0][0] / d[2][2], pxy = u * v - d[0][1] / d[2][2], pyy = v * v - d[1][1] / d[2][2];
    const double mean = (pxx + pyy) / 2;
    const double off = std::hypot((pxx - pyy) / 2, pxy);
    PanovalMeasureTarget target = {};
    target.ellipse = {u, v, std::sqrt(mean + off), std::sqrt(mean - off), std::atan2(2 * pxy, pxx - pyy) / 2};
    return target;
}

struct Placed {
    std::vector<PanovalMeasureTarget> targets;
    std::vector<std::int32_t> index; // of the target at each place, -1 = left out
};

// All places but those left out, in random order, and `extra` targets elsewhere.
Placed place_board(const Matrix& h, std::int32_t rows, std::int32_t columns, const std::vector<std::int32_t>& without,
                   int extra, std::uint64_t seed)
{
    Placed placed;
    Random random(seed);
    std::vector<std::int32_t> order;
    for (std::int32_t n = 0; n < rows * columns; ++n)
        if (std::find(without.begin(), without.end(), n) == without.end())
            order.push_back(n);
    for (int n = 0; n < extra; ++n)
        order.push_back(-1);
    for (std::size_t n = order.size(); n > 1; --n)
        std::swap(order[n - 1], order[static_cast<std::size_t>(random.integer(0, static_cast<std::int64_t>(n) - 1))]);
    placed.index.assign(static_cast<std::size_t>(rows * columns), -1);
    for (const std::int32_t n : order) {
        if (n < 0) {
            PanovalMeasureTarget other = {};
            other.ellipse = {random.real(0, 300), random.real(0, 1400), 9, 8, 0};
            placed.targets.push_back(other);
            continue;
        }
        placed.index[static_cast<std::size_t>(n)] = static_cast<std::int32_t>(placed.targets.size());
        placed.targets.push_back(image_of_circle(h, n % columns, static_cast<double>(n / columns), 0.3));
    }
    return placed;
}

struct Answer {
    std::int32_t code = 0;
    PanovalMeasureGrid grid = {};
    std::vector<PanovalMeasureGridCell> cells;
};

Answer order(const Placed& placed, std::int32_t rows, std::int32_t columns)
{
    Answer answer;
    answer.cells.resize(static_cast<std::size_t>(rows * columns));
    answer.code = panoval_measure_grid(placed.targets.data(), static_cast<std::int32_t>(placed.targets.size()), rows,
                                       columns, &answer.grid, answer.cells.data());
    return answer;
}

std::vector<std::int32_t> targets_of(const Answer& answer)
{
    std::vector<std::int32_t> targets;
    for (const auto& cell : answer.cells)
        targets.push_back(cell.target);
    return targets;
}

TEST(Grid, OrdersABoardUnderEveryTiltAndTurn)
{
    for (const double tilt : {0.0, 0.3, 0.6, 0.9, 1.05})
        for (const double turn : {0.0, 0.2, -0.6, 0.75}) {
            const Matrix h = view(9, 6, tilt, turn);
            const Placed placed = place_board(h, 6, 9, {}, 0, 7);
            const Answer answer = order(placed, 6, 9);
            ASSERT_EQ(answer.code, PANOVAL_MEASURE_OK) << "tilt " << tilt << ", turn " << turn;
            EXPECT_EQ(targets_of(answer), placed.index) << "tilt " << tilt << ", turn " << turn;
            EXPECT_LT(answer.grid.max_residual, 1e-6) << "circles' centres, not ellipses'";
            EXPECT_EQ(answer.grid.found, 54);
            for (std::size_t i = 0; i < 9; ++i)
                EXPECT_NEAR(answer.grid.homography[i], h[i] / h[8], 1e-7 * std::fabs(h[i] / h[8]) + 1e-9);
            double x = 0, y = 0;
            map(h, 3, 2, x, y);
            EXPECT_NEAR(answer.cells[2 * 9 + 3].x, x, 1e-6);
            EXPECT_NEAR(answer.cells[2 * 9 + 3].centre_y, y, 1e-6);
        }
}

TEST(Grid, NamesMissingPlacesAndCountsExtraTargets)
{
    const std::vector<std::int32_t> without = {0, 8, 13, 22, 23, 53};
    const Placed placed = place_board(view(9, 6, 0.7, 0.3), 6, 9, without, 5, 3);
    const Answer answer = order(placed, 6, 9);
    ASSERT_EQ(answer.code, PANOVAL_MEASURE_OK);
    EXPECT_EQ(targets_of(answer), placed.index);
    EXPECT_EQ(answer.grid.missing, 6);
    EXPECT_EQ(answer.grid.extra, 5);
    for (const std::int32_t n : without) {
        const auto& cell = answer.cells[static_cast<std::size_t>(n)];
        EXPECT_EQ(cell.target, -1);
        EXPECT_EQ(cell.residual_x, 0);
        EXPECT_GT(cell.x, 0) << "where it should be";
    }
}

TEST(Grid, TurnsASquareBoardsRowsToTheRight)
{
    for (const double turn : {0.0, 1.4, 3.0, -1.7}) {
        const Placed placed = place_board(view(5, 5, 0.4, turn), 5, 5, {}, 0, 9);
        const Answer answer = order(placed, 5, 5);
        ASSERT_EQ(answer.code, PANOVAL_MEASURE_OK);
        const auto& cells = answer.cells;
        EXPECT_GT(cells[14].x - cells[10].x, std::fabs(cells[14].y - cells[10].y) * 0.9) << "turn " << turn;
        EXPECT_GT(cells[22].y, cells[2].y) << "not mirrored";
        EXPECT_LT(answer.grid.max_residual, 1e-6);
    }
}

TEST(Grid, MeasuresWhatATargetIsOff)
{
    Placed placed = place_board(view(7, 5, 0.5, 0.1), 5, 7, {}, 0, 5);
    auto& moved = placed.targets[static_cast<std::size_t>(placed.index[17])];
    moved.ellipse.x += 0.5;
    const Answer answer = order(placed, 5, 7);
    ASSERT_EQ(answer.code, PANOVAL_MEASURE_OK);
    EXPECT_NEAR(answer.cells[17].residual_x, 0.5, 0.07);
    EXPECT_NEAR(answer.grid.max_residual, 0.5, 0.07);
    EXPECT_GT(answer.grid.rms, 0.05);
    EXPECT_LT(answer.grid.rms, 0.1);
}

// Neither a part of the board, nor oblique directions, nor places that nothing stands at.
void expect_no_other_size(const Placed& placed, std::int32_t rows, std::int32_t columns, const std::string& which)
{
    EXPECT_EQ(order(placed, rows, columns).code, PANOVAL_MEASURE_OK) << which;
    for (std::int32_t r = std::max(2, rows - 2); r <= rows + 2; ++r)
        for (std::int32_t c = std::max(2, columns - 3); c <= columns + 2; ++c) {
            if (std::minmax(r, c) == std::minmax(rows, columns))
                continue;
            EXPECT_EQ(order(placed, r, c).code, PANOVAL_MEASURE_NO_GRID) << which << ": " << r << " x " << c;
        }
}

TEST(Grid, FindsNoBoardOfAnotherSize)
{
    for (const double tilt : {0.0, 0.9}) {
        const Matrix h = view(9, 6, tilt, 0.3);
        expect_no_other_size(place_board(h, 6, 9, {}, 0, 7), 6, 9, "whole, tilt " + std::to_string(tilt));
        expect_no_other_size(place_board(h, 6, 9, {0, 8, 13, 22, 23, 53}, 0, 7), 6, 9, "with gaps");
        expect_no_other_size(place_board(h, 6, 9, {0, 8, 13, 22, 23, 53}, 9, 7), 6, 9, "with gaps, others beside");
    }
    expect_no_other_size(place_board(view(4, 3, 0.6, 0.2), 3, 4, {}, 0, 1), 3, 4, "small");
}

TEST(Grid, OrdersABoardWithManyGaps)
{
    Random random(12);
    for (int trial = 0; trial < 10; ++trial) {
        std::vector<std::int32_t> without;
        for (std::int32_t n = 0; n < 70; ++n)
            if (n % 3 != 0 && random.real(0, 1) < 0.4)
                without.push_back(n);
        const Placed placed = place_board(view(10, 7, 0.8, -0.4), 7, 10, without, 3, 2);
        const Answer answer = order(placed, 7, 10);
        ASSERT_EQ(answer.code, PANOVAL_MEASURE_OK) << trial;
        EXPECT_EQ(targets_of(answer), placed.index) << trial;
    }
}

// Such an ellipse is no circle's image: where its centre is seen follows from nothing.
TEST(Grid, BearsATargetThatReachesTheHorizon)
{
    const Matrix h = view(7, 5, 0.6, 0.2);
    Placed placed = place_board(h, 5, 7, {}, 0, 3);
    PanovalMeasureTarget& target = placed.targets[static_cast<std::size_t>(placed.index[17])];
    target.ellipse.semi_major = target.ellipse.semi_minor = 1e6;
    const Answer answer = order(placed, 5, 7);
    ASSERT_EQ(answer.code, PANOVAL_MEASURE_OK);
    EXPECT_EQ(targets_of(answer), placed.index);
    EXPECT_EQ(answer.cells[17].centre_x, target.ellipse.x);
}

TEST(Grid, LeavesOutATargetThatGoesOnWithARow)
{
    const Matrix h = view(7, 5, 0.3, 0.2);
    Placed placed = place_board(h, 5, 7, {}, 0, 3);
    placed.targets.push_back(image_of_circle(h, 7, 1, 0.3));
    const Answer answer = order(placed, 5, 7);
    ASSERT_EQ(answer.code, PANOVAL_MEASURE_OK);
    EXPECT_EQ(targets_of(answer), placed.index);
    EXPECT_EQ(answer.grid.extra, 1);
}

TEST(Grid, LeavesOutWhatIsNearAPlaceThatHasNoTarget)
{
    const Matrix h = view(9, 6, 0.5, 0.1);
    Placed placed = place_board(h, 6, 9, {13}, 0, 5);
    const PanovalMeasureTarget stray = image_of_circle(h, 13 % 9 + 0.15, 1, 0.3);
    placed.targets.push_back(stray);
    const Answer answer = order(placed, 6, 9);
    ASSERT_EQ(answer.code, PANOVAL_MEASURE_OK);
    EXPECT_EQ(answer.cells[13].target, -1);
    EXPECT_EQ(answer.grid.extra, 1);
    EXPECT_LT(answer.grid.max_residual, 1e-6);
}

TEST(Grid, SaysWhenThereIsNoBoard)
{
    Random random(4);
    for (int trial = 0; trial < 20; ++trial) {
        Placed scattered;
        for (int n = 0; n < 40; ++n) {
            PanovalMeasureTarget target = {};
            target.ellipse = {random.real(0, 1000), random.real(0, 1000), 8, 7, 0};
            scattered.targets.push_back(target);
        }
        EXPECT_EQ(order(scattered, 5, 8).code, PANOVAL_MEASURE_NO_GRID);
        EXPECT_EQ(order(scattered, 4, 4).code, PANOVAL_MEASURE_NO_GRID);
    }
    EXPECT_EQ(order(place_board(view(9, 6, 0.5, 0.1), 6, 9, {}, 0, 5), 30, 30).code, PANOVAL_MEASURE_NO_GRID);
}

// Seven targets tell the view of all places, but of the two rows that explain most of them the second has one target
// alone.
TEST(Grid, FindsNoBoardWhoseTargetsLeaveItsViewOpen)
{
    Placed placed;
    for (const auto& [x, y] : {std::array{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 0}, {3, 1}, {2, 2}}) {
        PanovalMeasureTarget target = {};
        target.ellipse = {200.0 + 30 * x, 300.0 + 30 * y, 9, 9, 0};
        placed.targets.push_back(target);
    }
    EXPECT_EQ(order(placed, 2, 5).code, PANOVAL_MEASURE_NO_GRID);
}

// Sixteen of thirty places have a target, some of them so far off that they are lost when the others have told the
// view.
TEST(Grid, FindsNoBoardWithLessThanHalfOfItsTargetsInPlace)
{
    using Points = std::vector<std::array<double, 2>>;
    const Points few = {{338, 300}, {236, 336}, {266, 333}, {292, 331}, {315, 329}, {337, 326}, {265, 365}, {290, 360},
                        {332, 353}, {200, 410}, {234, 402}, {288, 388}, {332, 375}, {200, 443}, {233, 432}, {327, 402}};
    const Points others = {{200, 300}, {237, 300}, {200, 338}, {200, 372}, {234, 368}};
    Placed placed;
    const auto add = [&placed](const Points& points) {
        for (const auto& [x, y] : points) {
            placed.targets.emplace_back();
            placed.targets.back().ellipse = {x, y, 9, 9, 0};
        }
    };
    add(few);
    EXPECT_EQ(order(placed, 5, 6).code, PANOVAL_MEASURE_NO_GRID);
    add(others);
    const Answer answer = order(placed, 5, 6);
    ASSERT_EQ(answer.code, PANOVAL_MEASURE_OK);
    EXPECT_GE(answer.grid.found, 15);
    EXPECT_GT(answer.grid.extra, 0) << "those that are off";
}

// So far away the horizon is too near to a line through the targets to be told from it.
TEST(Grid, FindsNoBoardAtTheEndOfAllPictures)
{
    for (const double away : {0.0, 1e6, 1e13}) {
        Placed placed = place_board(view(5, 4, 0, 0), 4, 5, {}, 0, 5);
        for (PanovalMeasureTarget& target : placed.targets)
            target.ellipse.x += away;
        EXPECT_EQ(order(placed, 4, 5).code, away < 1e9 ? PANOVAL_MEASURE_OK : PANOVAL_MEASURE_NO_GRID) << away;
    }
}

TEST(Grid, NamesWhatIsWrong)
{
    Placed placed = place_board(view(9, 6, 0.5, 0.1), 6, 9, {}, 0, 5);
    PanovalMeasureGrid grid = {};
    std::vector<PanovalMeasureGridCell> cells(54);
    const auto run = [&](std::int32_t count, std::int32_t rows, std::int32_t columns) {
        return panoval_measure_grid(placed.targets.data(), count, rows, columns, &grid, cells.data());
    };
    EXPECT_EQ(panoval_measure_grid(nullptr, 54, 6, 9, &grid, cells.data()), PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(panoval_measure_grid(placed.targets.data(), 54, 6, 9, nullptr, cells.data()),
              PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(panoval_measure_grid(placed.targets.data(), 54, 6, 9, &grid, nullptr), PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(run(3, 6, 9), PANOVAL_MEASURE_BAD_COUNT);
    EXPECT_EQ(run(-1, 6, 9), PANOVAL_MEASURE_BAD_COUNT);
    EXPECT_EQ(run(54, 1, 9), PANOVAL_MEASURE_BAD_COUNT);
    EXPECT_EQ(run(54, 6, std::numeric_limits<std::int32_t>::min()), PANOVAL_MEASURE_BAD_COUNT);
    EXPECT_EQ(run(54, std::numeric_limits<std::int32_t>::max(), std::numeric_limits<std::int32_t>::max()),
              PANOVAL_MEASURE_NO_GRID);
    placed.targets[5].ellipse.y = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(run(54, 6, 9), PANOVAL_MEASURE_NOT_A_NUMBER);
    placed.targets[5].ellipse = {1, 1, 0, 1, 0};
    EXPECT_EQ(run(54, 6, 9), PANOVAL_MEASURE_BAD_ELLIPSE);
}

} // namespace
