// SPDX-License-Identifier: MIT
// Images of circles' centres. With the outline centre + S u, |u| = 1, and P = S S', the pole of a line l in coordinates
// around the ellipse's centre is -P (l1, l2) / l3.
#include "measure/perspective.h"

#include "core/elementary.h"

#include <Eigen/Core>
#include <Eigen/Eigenvalues>
#include <Eigen/LU>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace panoval::measure
{

namespace
{

using Eigen::Matrix3d;
using Eigen::Vector2d;
using Eigen::Vector3d;

constexpr double kLeastDeterminant = 1e-12; // of a matrix whose columns have length 1
constexpr double kNearestRings = 0.95;      // quotient of the radii of rings
constexpr double kRingTolerance = 0.1;      // relative difference of eigenvalues that concentric circles have in common
constexpr int kEllipseElements = 5;

bool are_finite(const double* values, std::size_t count) noexcept
{
    return std::all_of(values, values + count, [](double value) { return std::isfinite(value); });
}

struct Axes {
    Vector2d major; // directions
    Vector2d minor;
    Eigen::Matrix2d shape; // P
};

Axes axes_of(const PanovalMeasureEllipse& ellipse) noexcept
{
    Axes axes;
    const double cosine = panoval::cos(ellipse.angle);
    const double sine = panoval::sin(ellipse.angle);
    axes.major = {cosine, sine};
    axes.minor = {-sine, cosine};
    axes.shape = ellipse.semi_major * ellipse.semi_major * axes.major * axes.major.transpose() +
                 ellipse.semi_minor * ellipse.semi_minor * axes.minor * axes.minor.transpose();
    return axes;
}

// Points p of the ellipse have (p, 1)' C (p, 1) = 0; C is positive outside.
Matrix3d conic_of(const PanovalMeasureEllipse& ellipse) noexcept
{
    const Eigen::Matrix2d inverse = axes_of(ellipse).shape.inverse();
    const Vector2d centre(ellipse.x, ellipse.y);
    const Vector2d side = -(inverse * centre);
    Matrix3d conic;
    conic.topLeftCorner<2, 2>() = inverse;
    conic.topRightCorner<2, 1>() = side;
    conic.bottomLeftCorner<1, 2>() = side.transpose();
    conic(2, 2) = -side.dot(centre) - 1;
    return conic;
}

void write_variance(const Eigen::Matrix2d& variance, PanovalMeasurePoint& point) noexcept
{
    point.var_x = variance(0, 0);
    point.cov_xy = variance(0, 1);
    point.var_y = variance(1, 1);
}

using Change = Eigen::Matrix<double, 2, kEllipseElements>;
using Covariance = Eigen::Matrix<double, kEllipseElements, kEllipseElements, Eigen::RowMajor>;

Eigen::Matrix2d propagate(const Change& change, const double* covariance) noexcept
{
    const Eigen::Map<const Covariance> given(covariance);
    return change * given * change.transpose();
}

double* element(PanovalMeasureEllipse& ellipse, int index) noexcept
{
    double* const elements[] = {&ellipse.x, &ellipse.y, &ellipse.semi_major, &ellipse.semi_minor, &ellipse.angle};
    return elements[index];
}

// The derivative of a point by an ellipse's elements, by differences.
template <class Locate>
Change differentiate(const PanovalMeasureEllipse& ellipse, const Locate& locate) noexcept
{
    Change change = Change::Zero();
    for (int i = 0; i < kEllipseElements; ++i) {
        const double step = i < 4 ? 1e-4 * ellipse.semi_minor : 1e-4;
        PanovalMeasureEllipse more = ellipse;
        PanovalMeasureEllipse less = ellipse;
        *element(more, i) += step;
        *element(less, i) -= step;
        Vector2d after;
        Vector2d before;
        if (locate(more, after) && locate(less, before))
            change.col(i) = (after - before) / (2 * step);
    }
    return change;
}

// An orientation of the circle's plane, in the camera's coordinates.
struct Facing {
    Vector3d normal;
    double second = 0; // the cone's middle eigenvalue
    Matrix3d cone;
};

// The cone of rays through the outline is cut in circles by two families of planes.
bool find_facings(const PanovalMeasureEllipse& seen, Facing* facings) noexcept
{
    const Matrix3d cone = conic_of(seen);
    const Eigen::SelfAdjointEigenSolver<Matrix3d> solver(cone);
    if (solver.info() != Eigen::Success)
        return false;
    const Vector3d& values = solver.eigenvalues(); // rising: the first one is negative
    if (!(values[0] < 0) || !(values[1] > 0))
        return false;
    const double range = values[2] - values[0];
    const Vector3d across = std::sqrt(std::max(0.0, (values[2] - values[1]) / range)) * solver.eigenvectors().col(2);
    const Vector3d along = std::sqrt(std::max(0.0, (values[1] - values[0]) / range)) * solver.eigenvectors().col(0);
    for (int i = 0; i < 2; ++i) {
        Vector3d normal = i == 0 ? Vector3d(along + across) : Vector3d(along - across);
        normal /= normal.norm();
        // Towards the camera: against the ray to the target.
        if (normal.dot(Vector3d(seen.x, seen.y, 1)) > 0)
            normal = -normal;
        facings[i] = {normal, values[1], cone};
    }
    if (std::fabs(facings[1].normal[2]) > std::fabs(facings[0].normal[2]))
        std::swap(facings[0], facings[1]);
    return true;
}

// Of the two, the one that is more nearly a given one.
bool find_facing_near(const PanovalMeasureEllipse& seen, const Vector3d& normal, Facing& facing) noexcept
{
    Facing both[2];
    if (!find_facings(seen, both))
        return false;
    facing = both[0].normal.dot(normal) >= both[1].normal.dot(normal) ? both[0] : both[1];
    return true;
}

// The ellipse as a camera of focal length 1 sees it.
PanovalMeasureEllipse normalised(const PanovalMeasureEllipse& ellipse, double focal_length, double x, double y) noexcept
{
    return {(ellipse.x - x) / focal_length, (ellipse.y - y) / focal_length, ellipse.semi_major / focal_length,
            ellipse.semi_minor / focal_length, ellipse.angle};
}

bool locate_by_facing(const PanovalMeasureEllipse& seen, const Facing& facing, PanovalMeasureCirclePose& pose) noexcept
{
    const Vector3d& normal = facing.normal;
    if (!centre_by_vanishing_line(seen, nullptr, normal.data(), pose.centre))
        return false;
    // In the circle's plane the cone is second * distance^2 + ray' C ray: the radius is 1 where that is 0.
    const Vector3d ray(pose.centre.x, pose.centre.y, 1);
    const double depth = -ray.dot(facing.cone * ray);
    if (!(depth > 0))
        return false;
    pose.distance = std::sqrt(facing.second / depth) * ray.norm();
    for (int i = 0; i < 3; ++i)
        pose.normal[i] = normal[i];
    return true;
}

Vector3d longest(const Vector3d& a, const Vector3d& b, const Vector3d& c) noexcept
{
    const Vector3d& first = a.squaredNorm() >= b.squaredNorm() ? a : b;
    return first.squaredNorm() >= c.squaredNorm() ? first : c;
}

// Scaled to a determinant of -1.
Matrix3d unit_conic(const PanovalMeasureEllipse& ellipse) noexcept
{
    const Matrix3d conic = conic_of(ellipse);
    // The determinant is -1 / (major minor)^2; its cube root by Newton's steps.
    const double target = 1 / (ellipse.semi_major * ellipse.semi_minor);
    const double square = target * target;
    double root = std::max(1.0, square);
    for (int i = 0; i < 200; ++i) {
        const double next = (2 * root + square / (root * root)) / 3;
        if (!(next < root))
            break;
        root = next;
    }
    return conic / root;
}

// inner^-1 outer has the eigenvalues k, k, k' of concentric circles; the last one's eigenvector is the common centre.
bool locate_by_rings(const PanovalMeasureEllipse& outer, const PanovalMeasureEllipse& inner, Vector2d& centre) noexcept
{
    const Matrix3d pencil = unit_conic(inner).inverse() * unit_conic(outer);
    const double trace = pencil.trace();
    const double minors = (trace * trace - (pencil * pencil).trace()) / 2;
    const double determinant = pencil.determinant();
    // The largest root of the characteristic polynomial, from above.
    double root = pencil.norm();
    for (int i = 0; i < 200; ++i) {
        const double value = ((root - trace) * root + minors) * root - determinant;
        const double slope = (3 * root - 2 * trace) * root + minors;
        if (!(slope > 0))
            break;
        const double next = root - value / slope;
        if (!(next < root))
            break;
        root = next;
    }
    const double sum = trace - root;
    const double product = determinant / root;
    if (!(product > 0) || !(root * kNearestRings * kNearestRings > std::sqrt(product)) ||
        !(std::fabs(sum * sum / 4 - product) < kRingTolerance * kRingTolerance * product))
        return false;
    const Matrix3d rest = pencil - root * Matrix3d::Identity();
    const Vector3d rows[3] = {rest.row(0), rest.row(1), rest.row(2)};
    const Vector3d vector = longest(rows[0].cross(rows[1]), rows[1].cross(rows[2]), rows[2].cross(rows[0]));
    if (!(std::fabs(vector[2]) > 1e-9 * vector.norm()))
        return false;
    centre = vector.head<2>() / vector[2];
    return true;
}

} // namespace

std::int32_t check_ellipse(const PanovalMeasureEllipse& ellipse) noexcept
{
    const double values[] = {ellipse.x, ellipse.y, ellipse.semi_major, ellipse.semi_minor, ellipse.angle};
    if (!are_finite(values, 5))
        return PANOVAL_MEASURE_NOT_A_NUMBER;
    return ellipse.semi_major > 0 && ellipse.semi_minor > 0 ? PANOVAL_MEASURE_OK : PANOVAL_MEASURE_BAD_ELLIPSE;
}

bool centre_by_vanishing_line(const PanovalMeasureEllipse& ellipse, const double* covariance, const double* line,
                              PanovalMeasurePoint& centre) noexcept
{
    const Axes axes = axes_of(ellipse);
    const Vector2d direction(line[0], line[1]);
    const double at_centre = line[0] * ellipse.x + line[1] * ellipse.y + line[2];
    const Vector2d pole = axes.shape * direction;
    if (!(at_centre * at_centre > direction.dot(pole)))
        return false;
    centre = {};
    centre.x = ellipse.x - pole[0] / at_centre;
    centre.y = ellipse.y - pole[1] / at_centre;
    if (covariance == nullptr)
        return true;
    const double along = axes.major.dot(direction);
    const double across = axes.minor.dot(direction);
    const double a = ellipse.semi_major;
    const double b = ellipse.semi_minor;
    Change change;
    change.leftCols<2>() = Eigen::Matrix2d::Identity() + pole * direction.transpose() / (at_centre * at_centre);
    change.col(2) = -2 * a * along / at_centre * axes.major;
    change.col(3) = -2 * b * across / at_centre * axes.minor;
    change.col(4) = -(a * a - b * b) / at_centre * (across * axes.major + along * axes.minor);
    write_variance(propagate(change, covariance), centre);
    return true;
}

bool vanishing_line(const double* homography, double* line) noexcept
{
    const Vector3d first(homography[0], homography[3], homography[6]);
    const Vector3d second(homography[1], homography[4], homography[7]);
    const Vector3d third(homography[2], homography[5], homography[8]);
    const double length = first.norm() * second.norm() * third.norm();
    const Vector3d cross = first.cross(second);
    if (!(length > 0) || !(std::fabs(cross.dot(third)) > kLeastDeterminant * length))
        return false;
    for (int i = 0; i < 3; ++i)
        line[i] = cross[i] / cross.norm();
    return true;
}

} // namespace panoval::measure

using namespace panoval::measure;

namespace
{

// Numbers near the ends of their range lead beyond it.
bool is_finite(const PanovalMeasurePoint& point, double distance = 0)
{
    const std::array<double, 6> numbers = {point.x, point.y, point.var_x, point.cov_xy, point.var_y, distance};
    return are_finite(numbers.data(), numbers.size());
}

} // namespace

extern "C" {

PANOVAL_MEASURE_API int32_t panoval_measure_centre_by_homography(const PanovalMeasureEllipse* ellipse,
                                                                 const double* covariance, const double* homography,
                                                                 PanovalMeasurePoint* centre)
{
    if (ellipse == nullptr || homography == nullptr || centre == nullptr)
        return PANOVAL_MEASURE_NULL_ARGUMENT;
    if (!are_finite(homography, 9) || (covariance != nullptr && !are_finite(covariance, 25)))
        return PANOVAL_MEASURE_NOT_A_NUMBER;
    const std::int32_t code = check_ellipse(*ellipse);
    if (code != PANOVAL_MEASURE_OK)
        return code;
    double line[3];
    if (!vanishing_line(homography, line))
        return PANOVAL_MEASURE_BAD_HOMOGRAPHY;
    PanovalMeasurePoint found = {};
    if (!centre_by_vanishing_line(*ellipse, covariance, line, found) || !is_finite(found))
        return PANOVAL_MEASURE_BAD_HOMOGRAPHY;
    *centre = found;
    return PANOVAL_MEASURE_OK;
}

PANOVAL_MEASURE_API int32_t panoval_measure_centre_by_focal_length(const PanovalMeasureEllipse* ellipse,
                                                                   const double* covariance, double focal_length,
                                                                   double principal_x, double principal_y,
                                                                   PanovalMeasureCirclePose* poses)
{
    if (ellipse == nullptr || poses == nullptr)
        return PANOVAL_MEASURE_NULL_ARGUMENT;
    const double camera[] = {focal_length, principal_x, principal_y};
    if (!are_finite(camera, 3) || (covariance != nullptr && !are_finite(covariance, 25)))
        return PANOVAL_MEASURE_NOT_A_NUMBER;
    const std::int32_t code = check_ellipse(*ellipse);
    if (code != PANOVAL_MEASURE_OK)
        return code;
    if (!(focal_length > 0))
        return PANOVAL_MEASURE_BAD_OPTION;
    const PanovalMeasureEllipse seen = normalised(*ellipse, focal_length, principal_x, principal_y);
    Facing facings[2];
    PanovalMeasureCirclePose found[2] = {};
    if (!find_facings(seen, facings))
        return PANOVAL_MEASURE_BAD_ELLIPSE;
    for (int i = 0; i < 2; ++i) {
        if (!locate_by_facing(seen, facings[i], found[i]))
            return PANOVAL_MEASURE_BAD_ELLIPSE;
        found[i].centre.x = principal_x + focal_length * found[i].centre.x;
        found[i].centre.y = principal_y + focal_length * found[i].centre.y;
        const auto locate = [&](const PanovalMeasureEllipse& other, Eigen::Vector2d& place) {
            const PanovalMeasureEllipse moved = normalised(other, focal_length, principal_x, principal_y);
            Facing facing;
            PanovalMeasureCirclePose pose = {};
            if (!find_facing_near(moved, facings[i].normal, facing) || !locate_by_facing(moved, facing, pose))
                return false;
            place = focal_length * Eigen::Vector2d(pose.centre.x, pose.centre.y);
            return true;
        };
        if (covariance != nullptr)
            write_variance(propagate(differentiate(*ellipse, locate), covariance), found[i].centre);
        if (!is_finite(found[i].centre, found[i].distance))
            return PANOVAL_MEASURE_BAD_ELLIPSE;
    }
    std::copy_n(found, 2, poses);
    return PANOVAL_MEASURE_OK;
}

PANOVAL_MEASURE_API int32_t panoval_measure_centre_by_rings(const PanovalMeasureEllipse* outer,
                                                            const double* covariance_outer,
                                                            const PanovalMeasureEllipse* inner,
                                                            const double* covariance_inner, PanovalMeasurePoint* centre)
{
    if (outer == nullptr || inner == nullptr || centre == nullptr)
        return PANOVAL_MEASURE_NULL_ARGUMENT;
    for (const PanovalMeasureEllipse* ellipse : {outer, inner}) {
        const std::int32_t code = check_ellipse(*ellipse);
        if (code != PANOVAL_MEASURE_OK)
            return code;
    }
    for (const double* covariance : {covariance_outer, covariance_inner})
        if (covariance != nullptr && !are_finite(covariance, 25))
            return PANOVAL_MEASURE_NOT_A_NUMBER;
    // Around the outer ring's centre and in units of its size, all numbers are near 1.
    const double unit = std::sqrt(outer->semi_major * outer->semi_minor);
    const auto near = [&](const PanovalMeasureEllipse& ellipse) {
        return normalised(ellipse, unit, outer->x, outer->y);
    };
    Eigen::Vector2d place;
    if (!locate_by_rings(near(*outer), near(*inner), place))
        return PANOVAL_MEASURE_NOT_CONCENTRIC;
    Eigen::Matrix2d variance = Eigen::Matrix2d::Zero();
    if (covariance_outer != nullptr)
        variance += propagate(differentiate(*outer,
                                            [&](const PanovalMeasureEllipse& other, Eigen::Vector2d& moved) {
                                                const bool is_found = locate_by_rings(near(other), near(*inner), moved);
                                                moved *= unit;
                                                return is_found;
                                            }),
                              covariance_outer);
    if (covariance_inner != nullptr)
        variance += propagate(differentiate(*inner,
                                            [&](const PanovalMeasureEllipse& other, Eigen::Vector2d& moved) {
                                                const bool is_found = locate_by_rings(near(*outer), near(other), moved);
                                                moved *= unit;
                                                return is_found;
                                            }),
                              covariance_inner);
    PanovalMeasurePoint found = {};
    found.x = outer->x + unit * place[0];
    found.y = outer->y + unit * place[1];
    write_variance(variance, found);
    if (!is_finite(found))
        return PANOVAL_MEASURE_NOT_CONCENTRIC;
    *centre = found;
    return PANOVAL_MEASURE_OK;
}

} // extern "C"
