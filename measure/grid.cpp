// SPDX-License-Identifier: MIT
// Boards: a lattice grown from several seeds, the window of rows and columns that holds most of it, a homography, and
// with it the places that growth has not reached. Then the images of the circles' centres, which the homography itself
// tells, take the place of the ellipses' centres.
#include "measure/grid_growth.h"
#include "measure/homography_fit.h"
#include "measure/perspective.h"
#include "panoval_measure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <map>
#include <new>
#include <vector>

namespace panoval::measure
{

namespace
{

constexpr std::size_t kSeeds = 7;
constexpr double kLeastShare = 0.5;     // of the places must have a target
constexpr double kMostBeside = 0.1;     // of them, points of the lattice that go beyond the board
constexpr double kLeastTurn = 0.35;     // sine between the two directions of a seed
constexpr double kPlaceTolerance = 0.2; // share of a step that a target may be off its place
constexpr int kCentreRounds = 4;

// Target indices by place, row after row; -1 where none stands.
struct Board {
    std::int32_t rows = 0;
    std::int32_t columns = 0;
    std::vector<std::int32_t> targets;
    std::int32_t found = 0;
    std::int32_t beside = 0; // points of the lattice outside the board

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

// The window of rows x columns of the lattice with the most points. Not if the lattice is smaller: where on the board
// it lies would be open.
bool cut_window(const std::vector<LatticePlace>& places, std::int32_t rows, std::int32_t columns, Board& board)
{
    std::int32_t low_i = 0, high_i = 0, low_j = 0, high_j = 0;
    for (const LatticePlace& p : places) {
        low_i = std::min(low_i, p.i);
        high_i = std::max(high_i, p.i);
        low_j = std::min(low_j, p.j);
        high_j = std::max(high_j, p.j);
    }
    if (high_i - low_i + 1 < columns || high_j - low_j + 1 < rows)
        return false;
    std::int32_t best_i = low_i, best_j = low_j;
    std::ptrdiff_t most = -1;
    for (std::int32_t j = low_j; j + rows - 1 <= high_j; ++j)
        for (std::int32_t i = low_i; i + columns - 1 <= high_i; ++i) {
            const auto inside = std::count_if(places.begin(), places.end(), [&](const LatticePlace& p) {
                return p.i >= i && p.i < i + columns && p.j >= j && p.j < j + rows;
            });
            if (inside > most) {
                most = inside;
                best_i = i;
                best_j = j;
            }
        }
    const auto found = static_cast<std::int32_t>(most);
    const std::size_t size = static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns);
    board = {rows, columns, std::vector<std::int32_t>(size, -1), found,
             static_cast<std::int32_t>(places.size()) - found};
    for (const LatticePlace& p : places)
        if (p.i >= best_i && p.i < best_i + columns && p.j >= best_j && p.j < best_j + rows)
            board.at(p.j - best_j, p.i - best_i) = p.point;
    return true;
}

// A quarter turn: the board's first row becomes its last column.
Board turned(Board& board)
{
    Board result = {board.columns, board.rows, std::vector<std::int32_t>(board.targets.size(), -1), board.found,
                    board.beside};
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
    const auto middle = static_cast<std::ptrdiff_t>(points.size() / 2);
    std::nth_element(xs.begin(), xs.begin() + middle, xs.end());
    std::nth_element(ys.begin(), ys.begin() + middle, ys.end());
    const GridPoint centre = {xs[points.size() / 2], ys[points.size() / 2]};
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

// Keeps the better one of two boards, in every way to turn the lattice that fits.
void keep_best(const std::vector<GridPoint>& points, std::vector<LatticePlace> places, std::int32_t rows,
               std::int32_t columns, Board& best)
{
    unmirror(points, places);
    for (const bool is_turned : {false, true}) {
        Board board;
        if (!cut_window(places, is_turned ? columns : rows, is_turned ? rows : columns, board))
            continue;
        // A lattice with oblique directions has many points, too, but its corners are beside the board.
        if (board.found - board.beside > best.found - best.beside && board.beside <= kMostBeside * board.found)
            best = is_turned ? turned(board) : board;
    }
}

Board find_board(const std::vector<GridPoint>& points, std::int32_t rows, std::int32_t columns)
{
    const auto neighbours = find_neighbours(points);
    Board best;
    for (const std::int32_t seed : choose_seeds(points)) {
        const auto& around = neighbours[static_cast<std::size_t>(seed)];
        for (std::size_t a = 0; a < around.size(); ++a)
            for (std::size_t b = a + 1; b < around.size(); ++b) {
                const auto at = [&points](std::int32_t n) { return points[static_cast<std::size_t>(n)]; };
                if (!are_across(at(seed), at(around[a]), at(around[b])))
                    continue;
                keep_best(points, grow_lattice(points, neighbours, seed, around[a], around[b]), rows, columns, best);
                if (best.found == rows * columns && best.beside == 0)
                    return best;
            }
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

// With the homography known, every place takes the target nearest to it.
void fill_places(const std::vector<GridPoint>& points, const Homography& h, Board& board)
{
    std::vector<bool> is_used(points.size(), false);
    board.found = 0;
    for (std::int32_t row = 0; row < board.rows; ++row)
        for (std::int32_t column = 0; column < board.columns; ++column) {
            const GridPoint place = map_place(h, column, row);
            const double reach = kPlaceTolerance * step_at(h, column, row);
            double least = reach * reach;
            std::int32_t& target = board.at(row, column);
            target = -1;
            for (std::size_t n = 0; n < points.size(); ++n) {
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
    for (std::int32_t n = 0; n < count; ++n)
        centres.push_back({targets[n].ellipse.x, targets[n].ellipse.y});
    Board board = find_board(centres, rows, columns);
    const double least = kLeastShare * rows * columns;
    if (board.found < 4 || board.found < least)
        return PANOVAL_MEASURE_NO_GRID;
    orient(centres, board);
    Homography h;
    for (int round = 0; round < kCentreRounds; ++round) {
        if (!fit_homography(placed_points(board, centres), h))
            return PANOVAL_MEASURE_NO_GRID;
        fill_places(centres, h, board);
        if (board.found < 4 || board.found < least)
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
    if (!fit_homography(placed_points(board, centres), h))
        return PANOVAL_MEASURE_NO_GRID;
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
