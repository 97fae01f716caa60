// SPDX-License-Identifier: MIT
// Closed lines give the ellipse of the same area's moments. Stretches are fitted with the conic whose squared terms sum
// to 2, by linear least squares, weighted once with the distance that a residual means (Sampson, 1982).
#include "measure/detect_oval.h"

#include "core/numbers.h"
#include "measure/outline.h"

#include <Eigen/Cholesky>

#include <algorithm>
#include <cmath>

namespace panoval::measure
{

namespace
{

constexpr std::size_t kFewestArcPoints = 8;
constexpr double kLeastTurn = 1;      // radians of a stretch, below which it tells little about an ellipse
constexpr std::size_t kBins = 32;     // of directions, for the share that is covered
constexpr double kLeastCovered = 0.7; // less is the rim of something that is hidden
constexpr double kWidestAspect = 12;

double tolerance_of(double b) noexcept
{
    return 0.3 + 0.035 * b;
}

// Sets axes and their direction from a symmetric 2 x 2 matrix whose eigenvalues are the squared semi-axes.
bool set_axes(double xx, double xy, double yy, Oval& oval) noexcept
{
    const double mean = (xx + yy) / 2;
    const double half = std::sqrt((xx - yy) * (xx - yy) / 4 + xy * xy);
    if (!(mean - half > 0) || !(mean + half < 1e18))
        return false;
    oval.a = std::sqrt(mean + half);
    oval.b = std::sqrt(mean - half);
    // Of the two forms of the eigenvector the longer one, which does not vanish.
    const double ex = xx >= yy ? (xx - yy) / 2 + half : xy;
    const double ey = xx >= yy ? xy : (yy - xx) / 2 + half;
    const double length = std::sqrt(ex * ex + ey * ey);
    oval.ux = length > 0 ? ex / length : 1;
    oval.uy = length > 0 ? ey / length : 0;
    return true;
}

void set_rms(const std::vector<OutlinePoint>& points, Oval& oval) noexcept
{
    double sum = 0;
    for (const OutlinePoint& p : points) {
        const double d = distance_from(oval, p);
        sum += d * d;
    }
    oval.rms = std::sqrt(sum / static_cast<double>(points.size()));
}

// x^2 + y^2 + p (x^2 - y^2) + 2 q x y + r x + s y + t = 0
bool conic_to_oval(const Eigen::Matrix<double, 5, 1>& c, Oval& oval) noexcept
{
    const double xx = 1 + c[0];
    const double yy = 1 - c[0];
    const double xy = c[1];
    const double det = xx * yy - xy * xy;
    if (!(det > 1e-4)) // no ellipse, or one hundred times as long as wide
        return false;
    oval.x = (-c[2] * yy + c[3] * xy) / (2 * det);
    oval.y = (-c[3] * xx + c[2] * xy) / (2 * det);
    const double level = xx * oval.x * oval.x + 2 * xy * oval.x * oval.y + yy * oval.y * oval.y - c[4];
    if (!(level > 0))
        return false;
    // The squared semi-axes are the eigenvalues of level times the inverse.
    return set_axes(level * yy / det, -level * xy / det, level * xx / det, oval);
}

struct Frame {
    double x = 0, y = 0, size = 1;
};

Frame frame_of(const std::vector<OutlinePoint>& points)
{
    Frame frame;
    const auto count = static_cast<double>(points.size());
    for (const OutlinePoint& p : points) {
        frame.x += p.x / count;
        frame.y += p.y / count;
    }
    double sum = 0;
    for (const OutlinePoint& p : points)
        sum += (p.x - frame.x) * (p.x - frame.x) + (p.y - frame.y) * (p.y - frame.y);
    frame.size = std::sqrt(std::max(1e-9, sum / count));
    return frame;
}

bool fit_once(const std::vector<OutlinePoint>& points, const Frame& frame, const Oval* before, Oval& oval)
{
    Eigen::Matrix<double, 5, 5> normal = Eigen::Matrix<double, 5, 5>::Zero();
    Eigen::Matrix<double, 5, 1> right = Eigen::Matrix<double, 5, 1>::Zero();
    for (const OutlinePoint& p : points) {
        const double x = (p.x - frame.x) / frame.size;
        const double y = (p.y - frame.y) / frame.size;
        double weight = 1;
        if (before != nullptr) { // the residual grows with the distance by about the radius there
            const double dx = x - before->x;
            const double dy = y - before->y;
            weight = 1 / std::max(0.01, dx * dx + dy * dy);
        }
        const Eigen::Matrix<double, 5, 1> row(x * x - y * y, 2 * x * y, x, y, 1);
        normal += weight * row * row.transpose();
        right -= weight * (x * x + y * y) * row;
    }
    return conic_to_oval(normal.ldlt().solve(right), oval);
}

// Of kFewestArcPoints at least.
bool oval_of_points(const std::vector<OutlinePoint>& points, Oval& oval)
{
    const Frame frame = frame_of(points);
    Oval first;
    if (!fit_once(points, frame, nullptr, first) || !fit_once(points, frame, &first, oval))
        return false;
    oval.x = oval.x * frame.size + frame.x;
    oval.y = oval.y * frame.size + frame.y;
    oval.a *= frame.size;
    oval.b *= frame.size;
    if (oval.a > kWidestAspect * oval.b)
        return false;
    set_rms(points, oval);
    return true;
}

// A number that grows with the direction of (x, y), from 0 to 4.
double direction_number(double x, double y) noexcept
{
    const double sum = std::fabs(x) + std::fabs(y);
    const double slope = sum > 0 ? y / sum : 0; // COUNT_EXCL_BRANCH: no point of an outline is its very centre
    if (x < 0)
        return 2 - slope;
    return slope < 0 ? 4 + slope : slope;
}

double covered_share(const Oval& oval, const std::vector<OutlinePoint>& points)
{
    bool is_covered[kBins] = {};
    for (const OutlinePoint& p : points) {
        const double dx = p.x - oval.x;
        const double dy = p.y - oval.y;
        const double along = (dx * oval.ux + dy * oval.uy) / oval.a;
        const double across = (dy * oval.ux - dx * oval.uy) / oval.b;
        const double number = direction_number(along, across) * (kBins / 4.0);
        is_covered[std::min(kBins - 1, static_cast<std::size_t>(std::max(0.0, number)))] = true;
    }
    return static_cast<double>(std::count(is_covered, is_covered + kBins, true)) / kBins;
}

// Cross product of the way to point i and the way on, each over `step` points: above 0 where the line turns right.
class Line
{
public:
    explicit Line(const LevelLine& line) : line_(line), count_(line.points.size())
    {
        const double grown = std::sqrt(static_cast<double>(count_)) / 2;
        step_ = static_cast<std::size_t>(std::clamp(grown, 3.0, 12.0));
    }

    std::size_t count() const noexcept { return count_; }
    std::size_t step() const noexcept { return step_; }
    const OutlinePoint& at(std::size_t i) const noexcept { return line_.points[i < count_ ? i : i % count_]; }
    bool has_turn(std::size_t i) const noexcept { return line_.is_closed || (i >= step_ && i + step_ < count_); }

    // Sine of the turn at point i; beyond a right angle +-2.
    double turn(std::size_t i) const noexcept
    {
        const OutlinePoint& before = at(i + count_ - step_);
        const OutlinePoint& here = at(i);
        const OutlinePoint& after = at(i + step_);
        const double ax = here.x - before.x, ay = here.y - before.y;
        const double bx = after.x - here.x, by = after.y - here.y;
        const double length = std::sqrt((ax * ax + ay * ay) * (bx * bx + by * by));
        if (!(length > 0))
            return 0;
        const double sine = (ax * by - ay * bx) / length;
        return ax * bx + ay * by < 0 ? (sine < 0 ? -2 : 2) : sine;
    }

private:
    const LevelLine& line_;
    std::size_t count_;
    std::size_t step_;
};

struct Stretch {
    std::size_t begin, count;
    bool is_right;
};

// Maximal stretches without a turn to the other side. Straight parts belong to both neighbours.
std::vector<Stretch> stretches_of(const Line& line)
{
    constexpr double kStraight = 0.12; // sine; noise of the points makes about half of it
    std::vector<double> sines(line.count());
    std::vector<int> turns(line.count());
    for (std::size_t i = 0; i < line.count(); ++i) {
        sines[i] = line.has_turn(i) ? line.turn(i) : 0;
        turns[i] = sines[i] > kStraight ? 1 : sines[i] < -kStraight ? -1 : 0;
    }
    std::vector<Stretch> stretches;
    for (const int side : {1, -1}) {
        // Begin behind a turn to the other side, so that no stretch runs over the end of a closed line.
        std::size_t start = 0;
        while (start < line.count() && turns[start] != -side)
            ++start;
        if (start == line.count()) {
            stretches.push_back({0, line.count(), side > 0});
            continue;
        }
        std::size_t run = 0;
        double turned = 0;
        for (std::size_t k = 1; k <= line.count(); ++k) { // to the place where it began, a turn to the other side
            const std::size_t i = (start + k) % line.count();
            if (turns[i] != -side) {
                ++run;
                turned += side * sines[i] / static_cast<double>(line.step());
                continue;
            }
            if (run >= kFewestArcPoints && turned > kLeastTurn)
                stretches.push_back({(start + k - run) % line.count(), run, side > 0});
            run = 0;
            turned = 0;
        }
    }
    std::sort(stretches.begin(), stretches.end(), [](const Stretch& one, const Stretch& other) {
        return one.count != other.count ? one.count > other.count : one.begin < other.begin;
    });
    return stretches;
}

// The line's points that lie on the oval and run around it in the right direction.
std::vector<OutlinePoint> supporters(const Line& line, const Oval& oval, bool is_right)
{
    const double tolerance = tolerance_of(oval.b) + 0.3;
    const double reach = oval.a + tolerance;
    std::vector<OutlinePoint> points;
    for (std::size_t i = 0; i < line.count(); ++i) {
        const OutlinePoint& p = line.at(i);
        if (!(std::fabs(p.x - oval.x) < reach && std::fabs(p.y - oval.y) < reach))
            continue;
        const OutlinePoint& next = line.at(i + 1);
        const double cross = (p.x - oval.x) * (next.y - p.y) - (p.y - oval.y) * (next.x - p.x);
        if ((cross > 0) == is_right && std::fabs(distance_from(oval, p)) < tolerance)
            points.push_back(p);
    }
    return points;
}

bool grow_oval(const Line& line, bool is_right, double most_axis, std::vector<OutlinePoint> points, Oval& oval)
{
    for (int round = 0; round < 3; ++round) {
        if (!oval_of_points(points, oval) || !is_oval(oval) || oval.a > most_axis)
            return false;
        points = supporters(line, oval, is_right);
        if (points.size() < kFewestArcPoints)
            return false;
    }
    oval.covered = covered_share(oval, points);
    set_rms(points, oval);
    return oval.covered >= kLeastCovered && is_oval(oval);
}

} // namespace

double distance_from(const Oval& oval, const OutlinePoint& point) noexcept
{
    const double dx = point.x - oval.x;
    const double dy = point.y - oval.y;
    const double along = (dx * oval.ux + dy * oval.uy) / oval.a;
    const double across = (dy * oval.ux - dx * oval.uy) / oval.b;
    const double form = along * along + across * across;
    const double slope = std::sqrt(along * along / (oval.a * oval.a) + across * across / (oval.b * oval.b));
    return slope > 0 ? (form - 1) / ((1 + std::sqrt(form)) * slope) * std::sqrt(form) : -oval.b;
}

bool oval_of_closed_line(const std::vector<OutlinePoint>& points, Oval& oval)
{
    if (points.size() < 4)
        return false;
    const OutlinePoint origin = points[0];
    double area = 0, mx = 0, my = 0, mxx = 0, mxy = 0, myy = 0;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const OutlinePoint& p = points[i];
        const OutlinePoint& q = points[i + 1 < points.size() ? i + 1 : 0];
        const double px = p.x - origin.x, py = p.y - origin.y;
        const double qx = q.x - origin.x, qy = q.y - origin.y;
        const double cross = px * qy - qx * py;
        area += cross / 2;
        mx += cross * (px + qx) / 6;
        my += cross * (py + qy) / 6;
        mxx += cross * (px * px + px * qx + qx * qx) / 12;
        myy += cross * (py * py + py * qy + qy * qy) / 12;
        mxy += cross * (2 * px * py + px * qy + qx * py + 2 * qx * qy) / 24;
    }
    oval.is_dark = area > 0; // clockwise as seen, with the brighter side to the left
    if (!(std::fabs(area) > 1))
        return false;
    mx /= area;
    my /= area;
    if (!set_axes(4 * (mxx / area - mx * mx), 4 * (mxy / area - mx * my), 4 * (myy / area - my * my), oval))
        return false;
    oval.x = mx + origin.x;
    oval.y = my + origin.y;
    oval.covered = 1;
    set_rms(points, oval);
    // A line that crosses itself, or winds around, has the moments of something else.
    const double fill = std::fabs(area) / (kPi * oval.a * oval.b);
    return fill > 0.5 && fill < 1.5;
}

bool is_oval(const Oval& oval) noexcept
{
    return oval.rms <= tolerance_of(oval.b);
}

std::vector<Oval> ovals_of_arcs(const LevelLine& line, double least_axis, double most_axis)
{
    std::vector<Oval> ovals;
    const Line whole(line);
    if (whole.count() < 2 * kFewestArcPoints)
        return ovals;
    for (const Stretch& stretch : stretches_of(whole)) {
        std::vector<OutlinePoint> points(stretch.count);
        for (std::size_t i = 0; i < stretch.count; ++i)
            points[i] = whole.at(stretch.begin + i);
        Oval oval;
        oval.is_dark = stretch.is_right;
        if (!grow_oval(whole, stretch.is_right, most_axis, points, oval) || oval.b < least_axis)
            continue;
        ovals.push_back(oval);
    }
    return ovals;
}

} // namespace panoval::measure
