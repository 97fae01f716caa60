// SPDX-License-Identifier: MIT
// Homography fit: linear first, then Gauss-Newton on the distances. Both sides are moved to their centroids and scaled,
// so that all coefficients are near 1.
#include "measure/homography_fit.h"

#include <Eigen/Cholesky>
#include <Eigen/Core>
#include <Eigen/Geometry>

#include <algorithm>
#include <cmath>

namespace panoval::measure
{

namespace
{

constexpr double kLeastPivot = 1e-10;

using Vector8 = Eigen::Matrix<double, 8, 1>;
using Matrix8 = Eigen::Matrix<double, 8, 8>;

struct Frame {
    double x = 0, y = 0, scale = 1;
};

template <class Get>
Frame frame_of(const std::vector<PlacedPoint>& placed, const Get& get)
{
    Frame frame;
    const auto count = static_cast<double>(placed.size());
    for (const PlacedPoint& p : placed) {
        frame.x += get(p).x / count;
        frame.y += get(p).y / count;
    }
    double square = 0;
    for (const PlacedPoint& p : placed) {
        const double dx = get(p).x - frame.x;
        const double dy = get(p).y - frame.y;
        square += (dx * dx + dy * dy) / count;
    }
    frame.scale = square > 0 ? 1 / std::sqrt(square) : 1;
    return frame;
}

GridPoint into(const Frame& frame, const GridPoint& point) noexcept
{
    return {(point.x - frame.x) * frame.scale, (point.y - frame.y) * frame.scale};
}

// Adds a point's two equations. Linear ones are the distances times the denominator.
void add_point(const GridPoint& from, const GridPoint& to, const Vector8& h, bool is_linear, Matrix8& normal,
               Vector8& rhs) noexcept
{
    const double denominator = h[6] * from.x + h[7] * from.y + 1;
    const double weight = is_linear ? 1 : 1 / denominator;
    const double mapped[2] = {(h[0] * from.x + h[1] * from.y + h[2]) / denominator,
                              (h[3] * from.x + h[4] * from.y + h[5]) / denominator};
    const double wanted[2] = {to.x, to.y};
    for (int axis = 0; axis < 2; ++axis) {
        const double factor = is_linear ? wanted[axis] : mapped[axis];
        Vector8 row = Vector8::Zero();
        row[3 * axis] = weight * from.x;
        row[3 * axis + 1] = weight * from.y;
        row[3 * axis + 2] = weight;
        row[6] = -weight * factor * from.x;
        row[7] = -weight * factor * from.y;
        normal += row * row.transpose();
        rhs += row * (is_linear ? wanted[axis] : wanted[axis] - mapped[axis]);
    }
}

bool solve_round(const std::vector<PlacedPoint>& placed, const Frame& board, const Frame& picture, bool is_linear,
                 Vector8& h)
{
    Matrix8 normal = Matrix8::Zero();
    Vector8 rhs = Vector8::Zero();
    for (const PlacedPoint& p : placed)
        add_point(into(board, {p.column, p.row}), into(picture, p.point), h, is_linear, normal, rhs);
    const Eigen::LDLT<Matrix8> solver(normal);
    const Vector8 pivots = solver.vectorD().cwiseAbs();
    if (!(pivots.minCoeff() > kLeastPivot * pivots.maxCoeff()))
        return false;
    const Vector8 solution = solver.solve(rhs);
    h = is_linear ? solution : Vector8(h + solution);
    return h.allFinite();
}

using Matrix3 = Eigen::Matrix<double, 3, 3, Eigen::RowMajor>;

Matrix3 matrix_of(const Frame& frame) noexcept
{
    Matrix3 matrix;
    matrix << frame.scale, 0, -frame.scale * frame.x, 0, frame.scale, -frame.scale * frame.y, 0, 0, 1;
    return matrix;
}

Matrix3 inverse_of(const Frame& frame) noexcept
{
    Matrix3 matrix;
    matrix << 1 / frame.scale, 0, frame.x, 0, 1 / frame.scale, frame.y, 0, 0, 1;
    return matrix;
}

} // namespace

bool fit_homography(const std::vector<PlacedPoint>& placed, Homography& homography, int rounds)
{
    if (placed.size() < 4)
        return false;
    const Frame board = frame_of(placed, [](const PlacedPoint& p) { return GridPoint{p.column, p.row}; });
    const Frame picture = frame_of(placed, [](const PlacedPoint& p) { return p.point; });
    Vector8 h = Vector8::Zero();
    for (int round = 0; round < rounds; ++round)
        if (!solve_round(placed, board, picture, round == 0, h))
            return false;
    Matrix3 matrix;
    matrix << h[0], h[1], h[2], h[3], h[4], h[5], h[6], h[7], 1;
    const Matrix3 whole = inverse_of(picture) * matrix * matrix_of(board);
    // COUNT_EXCL_START: the place (0, 0) on the horizon, where rounding has left just 0 of its depth
    if (!(std::fabs(whole(2, 2)) > 0))
        return false;
    // COUNT_EXCL_STOP
    for (int i = 0; i < 9; ++i)
        homography[static_cast<std::size_t>(i)] = whole(i / 3, i % 3) / whole(2, 2);
    return true;
}

bool invert(const Homography& homography, Homography& inverse) noexcept
{
    const Eigen::Map<const Matrix3> matrix(homography.data());
    Matrix3 adjugate;
    adjugate.col(0) = matrix.row(1).cross(matrix.row(2)).transpose();
    adjugate.col(1) = matrix.row(2).cross(matrix.row(0)).transpose();
    adjugate.col(2) = matrix.row(0).cross(matrix.row(1)).transpose();
    const double determinant = matrix.row(0).dot(adjugate.col(0));
    adjugate /= determinant;
    std::copy_n(adjugate.data(), inverse.size(), inverse.begin());
    return adjugate.allFinite();
}

GridPoint map_place(const Homography& h, double column, double row) noexcept
{
    const double denominator = h[6] * column + h[7] * row + h[8];
    return {(h[0] * column + h[1] * row + h[2]) / denominator, (h[3] * column + h[4] * row + h[5]) / denominator};
}

} // namespace panoval::measure
