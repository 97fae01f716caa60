// SPDX-License-Identifier: MIT
// Boards: the lattice that explains the targets best, its window of rows and columns, a homography, and with it the
// target of each place. Then the images of the circles' centres, which the homography itself
// tells, take the place of the ellipses' centres.
#include "core/median.h"
#include "measure/grid_growth.h"
#include "measure/grid_lattice.h"
#include "measure/homography_fit.h"
#include "measure/perspective.h"
#include "panoval_measure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <map>
#include <new>
#include <utility>
#include <vector>

namespace panoval::measure
{

namespace
{

constexpr std::size_t kSeeds = 7;
constexpr double kLeastShare = 0.5; // of the places must have a target
constexpr double kLeastTurn = 0.35; // sine between the two directions of a seed
constexpr int kCentreRounds = 4;

// Target indices by place, row after row; -1 where none stands.
struct Board {
    std::int32_t rows = 0;
    std::int32_t columns = 0;
    std::vector<std::int32_t> targets;
    std::int32_t found = 0;

    std::int32_t& at(std::int32_t row, std::int32_t column)
    {
        return targets[static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) +
                       static_cast<std::size_t>(column)];
    }
};

// Exchanges the lattice's directions where it is mirrored, so that turning from the first to the second direction is
// turning from right to down.
void unmirror(const std::vector<GridPoint>& points, std::vector<LatticePlace>& places)
{
    std::map<std::pair<std::int32_t, std::int32_t>, GridPoint> by_place;
    for (const LatticePlace& p : places)
        by_place[{p.i, p.j}] = points[static_cast<std::size_t>(p.point)];
    double sum = 0;
    for (const LatticePlace& p : places) {
        const auto right = by_place.find({p.i + 1, p.j});
        const auto down = by_place.find({p.i, p.j + 1});
        if (right == by_place.end() || down == by_place.end())
            continue;
        const GridPoint& here = points[static_cast<std::size_t>(p.point)];
        sum += (right->second.x - here.x) * (down->second.y - here.y) -
               (right->second.y - here.y) * (down->second.x - here.x);
    }
    if (sum >= 0)
        return;
    for (LatticePlace& p : places)
        std::swap(p.i, p.j);
}

Board board_of(const Lattice& lattice, const Window& window)
{
    Board board = {window.j_end - window.j, window.i_end - window.i,
                   std::vector<std::int32_t>(static_cast<std::size_t>(window.size()), -1), 0};
    for (const LatticePlace& p : lattice.places)
        if (window.holds(p)) {
            board.at(p.j - window.j, p.i - window.i) = p.point;
            ++board.found;
        }
    return board;
}

// A quarter turn: the board's first row becomes its last column.
Board turned(Board& board)
{
    Board result = {board.columns, board.rows, std::vector<std::int32_t>(board.targets.size(), -1), board.found};
    for (std::int32_t row = 0; row < board.rows; ++row)
        for (std::int32_t column = 0; column < board.columns; ++column)
            result.at(column, board.rows - 1 - row) = board.at(row, column);
    return result;
}

std::vector<PlacedPoint> placed_points(Board& board, const std::vector<GridPoint>& points)
{
    std::vector<PlacedPoint> placed;
    for (std::int32_t row = 0; row < board.rows; ++row)
        for (std::int32_t column = 0; column < board.columns; ++column)
            if (board.at(row, column) >= 0)
                placed.push_back({static_cast<double>(column), static_cast<double>(row),
                                  points[static_cast<std::size_t>(board.at(row, column))]});
    return placed;
}

// How much the rows run to the right, -1 to 1, in the middle of the board.
double rightness(Board& board, const std::vector<GridPoint>& points)
{
    Homography h;
    if (!fit_homography(placed_points(board, points), h))
        return -2;
    const double row = (board.rows - 1) / 2.0;
    const double column = (board.columns - 1) / 2.0;
    const GridPoint left = map_place(h, column - 0.5, row);
    const GridPoint right = map_place(h, column + 0.5, row);
    const double dx = right.x - left.x;
    const double dy = right.y - left.y;
    return dx / std::sqrt(dx * dx + dy * dy);
}

// Points near the middle of all first: there the lattice has most to grow into.
std::vector<std::int32_t> choose_seeds(const std::vector<GridPoint>& points)
{
    std::vector<double> xs;
    std::vector<double> ys;
    for (const GridPoint& p : points) {
        xs.push_back(p.x);
        ys.push_back(p.y);
    }
    const GridPoint centre = {median_of(std::span(xs)), median_of(std::span(ys))};
    std::vector<std::pair<double, std::int32_t>> order;
    for (std::size_t n = 0; n < points.size(); ++n) {
        const double dx = points[n].x - centre.x;
        const double dy = points[n].y - centre.y;
        order.emplace_back(dx * dx + dy * dy, static_cast<std::int32_t>(n));
    }
    std::sort(order.begin(), order.end());
    std::vector<std::int32_t> seeds;
    for (std::size_t n = 0; n < std::min(kSeeds, order.size()); ++n)
        seeds.push_back(order[n].second);
    return seeds;
}

bool are_across(const GridPoint& seed, const GridPoint& first, const GridPoint& second) noexcept
{
    const double ax = first.x - seed.x, ay = first.y - seed.y, bx = second.x - seed.x, by = second.y - seed.y;
    const double cross = ax * by - ay * bx;
    return cross * cross > kLeastTurn * kLeastTurn * (ax * ax + ay * ay) * (bx * bx + by * by);
}

// Whether three points are neighbours in a lattice already known, so that growth from them would only give it again.
bool is_known(const Lattice& lattice, std::int32_t seed, std::int32_t first, std::int32_t second) noexcept
{
    const auto find = [&lattice](std::int32_t point) {
        return std::find_if(lattice.places.begin(), lattice.places.end(),
                            [point](const LatticePlace& p) { return p.point == point; });
    };
    const auto none = lattice.places.end();
    const auto here = find(seed), one = find(first), other = find(second);
    const auto is_step = [](const LatticePlace& a, const LatticePlace& b) {
        return std::abs(a.i - b.i) + std::abs(a.j - b.j) == 1;
    };
    return here != none && one != none && other != none && is_step(*one, *here) && is_step(*other, *here) &&
           (one->i == here->i) != (other->i == here->i);
}

// The lattice that explains the points best, whatever the size of its board. One with oblique directions has as many
// points, but its corners are empty or beside it; one with longer steps has points between its places.
Lattice find_lattice(const std::vector<GridPoint>& points)
{
    const auto neighbours = find_neighbours(points);
    const auto at = [&points](std::int32_t n) { return points[static_cast<std::size_t>(n)]; };
    Lattice best;
    std::int64_t most = 0;
    for (const std::int32_t seed : choose_seeds(points)) {
        const auto& around = neighbours[static_cast<std::size_t>(seed)];
        for (std::size_t a = 0; a < around.size(); ++a)
            for (std::size_t b = a + 1; b < around.size(); ++b) {
                if (!are_across(at(seed), at(around[a]), at(around[b])) || is_known(best, seed, around[a], around[b]))
                    continue;
                auto grown = grow_lattice(points, neighbours, seed, around[a], around[b]);
                unmirror(points, grown);
                Lattice lattice = fit_lattice(points, grown);
                const std::int64_t score = score_of(lattice, trimmed_window(lattice));
                if (score <= most)
                    continue;
                most = score;
                best = std::move(lattice);
                if (most == static_cast<std::int64_t>(points.size()))
                    return best;
            }
    }
    return best;
}

// Nothing found when the board that the targets form has another size: some window explains them better by a line.
Board find_board(const std::vector<GridPoint>& points, std::int32_t rows, std::int32_t columns)
{
    const Lattice lattice = find_lattice(points);
    std::int64_t most = score_of(lattice, trimmed_window(lattice)) - std::min(rows, columns);
    Board best;
    for (const bool is_turned : {false, true}) {
        Window window;
        if (!best_window(lattice, is_turned ? rows : columns, is_turned ? columns : rows, window))
            continue;
        const std::int64_t score = score_of(lattice, window);
        if (score <= most)
            continue;
        most = score;
        Board board = board_of(lattice, window);
        best = is_turned ? turned(board) : std::move(board);
    }
    return best;
}

// Turns the board so that its rows run to the right.
void orient(const std::vector<GridPoint>& points, Board& board)
{
    Board best = board;
    double most = rightness(board, points);
    const int quarter = board.rows == board.columns ? 1 : 2;
    Board next = board;
    for (int turn = quarter; turn < 4; turn += quarter) {
        for (int i = 0; i < quarter; ++i)
            next = turned(next);
        const double right = rightness(next, points);
        if (right > most) {
            most = right;
            best = next;
        }
    }
    board = best;
}

double step_at(const Homography& h, double column, double row) noexcept
{
    const GridPoint here = map_place(h, column, row);
    const GridPoint right = map_place(h, column + 1, row);
    const GridPoint down = map_place(h, column, row + 1);
    const double a = (right.x - here.x) * (right.x - here.x) + (right.y - here.y) * (right.y - here.y);
    const double b = (down.x - here.x) * (down.x - here.x) + (down.y - here.y) * (down.y - here.y);
    return std::sqrt(std::min(a, b));
}

// How far the board's targets may be from their places, in steps.
double tolerance_of(Board& board, const std::vector<GridPoint>& points, const Homography& h)
{
    std::vector<double> distances;
    for (const PlacedPoint& p : placed_points(board, points)) {
        const GridPoint place = map_place(h, p.column, p.row);
        const double dx = p.point.x - place.x;
        const double dy = p.point.y - place.y;
        distances.push_back(std::sqrt(dx * dx + dy * dy) / step_at(h, p.column, p.row));
    }
    return place_tolerance(std::move(distances));
}

// With the homography known, every place takes the target nearest to it.
void fill_places(const std::vector<GridPoint>& points, const Homography& h, Board& board)
{
    const double tolerance = tolerance_of(board, points, h);
    const Vicinity vicinity = vicinity_of(points, spacing_of(points));
    std::vector<bool> is_used(points.size(), false);
    board.found = 0;
    for (std::int32_t row = 0; row < board.rows; ++row)
        for (std::int32_t column = 0; column < board.columns; ++column) {
            const GridPoint place = map_place(h, column, row);
            const double reach = tolerance * step_at(h, column, row);
            double least = reach * reach;
            std::int32_t& target = board.at(row, column);
            target = -1;
            for (const std::size_t n : vicinity.near({place.x, place.y, reach})) {
                const double dx = points[n].x - place.x;
                const double dy = points[n].y - place.y;
                if (is_used[n] || !(dx * dx + dy * dy < least))
                    continue;
                least = dx * dx + dy * dy;
                target = static_cast<std::int32_t>(n);
            }
            if (target < 0)
                continue;
            is_used[static_cast<std::size_t>(target)] = true;
            ++board.found;
        }
}

void write_cells(Board& board, const std::vector<GridPoint>& centres, const Homography& h, PanovalMeasureGrid& grid,
                 PanovalMeasureGridCell* cells)
{
    double sum = 0;
    double most = 0;
    for (std::int32_t row = 0; row < board.rows; ++row)
        for (std::int32_t column = 0; column < board.columns; ++column) {
            PanovalMeasureGridCell cell = {};
            const GridPoint place = map_place(h, column, row);
            cell.target = board.at(row, column);
            cell.x = place.x;
            cell.y = place.y;
            if (cell.target >= 0) {
                const GridPoint& centre = centres[static_cast<std::size_t>(cell.target)];
                cell.centre_x = centre.x;
                cell.centre_y = centre.y;
                cell.residual_x = centre.x - place.x;
                cell.residual_y = centre.y - place.y;
                const double square = cell.residual_x * cell.residual_x + cell.residual_y * cell.residual_y;
                sum += square;
                most = std::max(most, square);
            }
            cells[static_cast<std::size_t>(row) * static_cast<std::size_t>(board.columns) +
                  static_cast<std::size_t>(column)] = cell;
        }
    std::copy(h.begin(), h.end(), grid.homography);
    grid.rms = std::sqrt(sum / std::max(1, board.found));
    grid.max_residual = std::sqrt(most);
}

std::int32_t order_targets(const PanovalMeasureTarget* targets, std::int32_t count, std::int32_t rows,
                           std::int32_t columns, PanovalMeasureGrid& grid, PanovalMeasureGridCell* cells)
{
    std::vector<GridPoint> centres;
    centres.reserve(static_cast<std::size_t>(count));
    for (std::int32_t n = 0; n < count; ++n)
        centres.push_back({targets[n].ellipse.x, targets[n].ellipse.y});
    Board board = find_board(centres, rows, columns);
    const double least = std::max(4.0, kLeastShare * rows * columns);
    if (board.found < least)
        return PANOVAL_MEASURE_NO_GRID;
    orient(centres, board);
    Homography h;
    for (int round = 0;; ++round) {
        if (!fit_homography(placed_points(board, centres), h))
            return PANOVAL_MEASURE_NO_GRID;
        if (round == kCentreRounds)
            break;
        fill_places(centres, h, board);
        if (board.found < least)
            return PANOVAL_MEASURE_NO_GRID;
        double line[3];
        if (!vanishing_line(h.data(), line))
            return PANOVAL_MEASURE_NO_GRID;
        for (std::int32_t n = 0; n < count; ++n) {
            PanovalMeasurePoint centre = {};
            if (centre_by_vanishing_line(targets[n].ellipse, nullptr, line, centre))
                centres[static_cast<std::size_t>(n)] = {centre.x, centre.y};
        }
    }
    grid = {};
    write_cells(board, centres, h, grid, cells);
    grid.found = board.found;
    grid.missing = rows * columns - board.found;
    grid.extra = count - board.found;
    return PANOVAL_MEASURE_OK;
}

} // namespace

} // namespace panoval::measure

extern "C" PANOVAL_MEASURE_API int32_t panoval_measure_grid(const PanovalMeasureTarget* targets, int32_t count,
                                                            int32_t rows, int32_t columns, PanovalMeasureGrid* grid,
                                                            PanovalMeasureGridCell* cells)
{
    if (targets == nullptr || grid == nullptr || cells == nullptr)
        return PANOVAL_MEASURE_NULL_ARGUMENT;
    if (count < 4 || rows < 2 || columns < 2 || rows > count * std::int64_t{2} / columns)
        return count < 4 || rows < 2 || columns < 2 ? PANOVAL_MEASURE_BAD_COUNT : PANOVAL_MEASURE_NO_GRID;
    for (std::int32_t n = 0; n < count; ++n) {
        const std::int32_t code = panoval::measure::check_ellipse(targets[n].ellipse);
        if (code != PANOVAL_MEASURE_OK)
            return code;
    }
    try {
        return panoval::measure::order_targets(targets, count, rows, columns, *grid, cells);
    } catch (const std::bad_alloc&) {
        return PANOVAL_MEASURE_NO_MEMORY;
    }
}
