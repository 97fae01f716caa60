// SPDX-License-Identifier: MIT
#include "tests/scenes/scene_kinds.h"

#include "tests/scenes/target_shapes.h"

#include <algorithm>
#include <cmath>

namespace panoval::test
{

namespace
{

using Matrix = std::array<double, 9>;
constexpr double kPi = 3.14159265358979323846;

Matrix product(const Matrix& a, const Matrix& b)
{
    Matrix c = {};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j)
            for (std::size_t k = 0; k < 3; ++k)
                c[3 * i + j] += a[3 * i + k] * b[3 * k + j];
    return c;
}

Matrix inverse(const Matrix& m)
{
    const auto minor = [&](std::size_t a, std::size_t b, std::size_t c, std::size_t d) {
        return m[a] * m[d] - m[b] * m[c];
    };
    Matrix r = {minor(4, 5, 7, 8),  -minor(1, 2, 7, 8), minor(1, 2, 4, 5),  -minor(3, 5, 6, 8), minor(0, 2, 6, 8),
                -minor(0, 2, 3, 5), minor(3, 4, 6, 7),  -minor(0, 1, 6, 7), minor(0, 1, 3, 4)};
    const double det = m[0] * r[0] + m[1] * r[3] + m[2] * r[6];
    for (double& value : r)
        value /= det;
    return r;
}

Matrix transposed(const Matrix& m)
{
    return {m[0], m[3], m[6], m[1], m[4], m[7], m[2], m[5], m[8]};
}

// Semi-axes and angle of a x^2 + 2 b x y + c y^2 = k.
void set_axes(TrueTarget& target, double a, double b, double c, double k)
{
    const double mean = (a + c) / 2;
    const double half = std::hypot((a - c) / 2, b);
    target.a = std::sqrt(k / (mean - half));
    target.b = std::sqrt(k / (mean + half));
    // The long axis is where the form is smallest.
    target.angle = 0.5 * std::atan2(-2 * b, c - a);
    if (target.angle < 0)
        target.angle += kPi;
}

// Of a camera of focal length f (pixels) that looks at the middle of a plane of unit width.
Matrix view_of_plane(const BoardView& view, double f, double middle_x, double middle_y)
{
    const double cx = std::cos(view.tilt_x), sx = std::sin(view.tilt_x);
    const double cy = std::cos(view.tilt_y), sy = std::sin(view.tilt_y);
    const double ct = std::cos(view.turn), st = std::sin(view.turn);
    const Matrix about_x = {1, 0, 0, 0, cx, -sx, 0, sx, cx};
    const Matrix about_y = {cy, 0, sy, 0, 1, 0, -sy, 0, cy};
    const Matrix turn = {ct, -st, 0, st, ct, 0, 0, 0, 1};
    const Matrix rotation = product(turn, product(about_x, about_y));
    const Matrix pose = {rotation[0], rotation[1], 0,           rotation[3],  rotation[4],
                         0,           rotation[6], rotation[7], view.distance};
    const Matrix camera = {f, 0, middle_x, 0, f, middle_y, 0, 0, 1};
    return product(camera, pose);
}

TargetScene empty_scene(const SceneConditions& conditions, Random& random)
{
    TargetScene scene;
    scene.width = conditions.width;
    scene.height = conditions.height;
    const double dark = std::clamp(random.real(20, 230 - conditions.contrast), 10.0, 240.0);
    scene.background = conditions.is_bright ? dark : dark + conditions.contrast;
    scene.blur = conditions.blur;
    scene.light_x = conditions.light * random.real(-1, 1);
    scene.light_y = conditions.light * random.real(-1, 1);
    scene.light_fall = conditions.light * random.real(0, 1);
    scene.noise = conditions.noise;
    scene.seed = random.next();
    return scene;
}

double target_grey(const SceneConditions& conditions, const TargetScene& scene)
{
    return scene.background + (conditions.is_bright ? conditions.contrast : -conditions.contrast);
}

bool lies_inside(const TargetScene& scene, const Extent& extent, double margin)
{
    return extent.left >= margin && extent.top >= margin && extent.right <= scene.width - 1 - margin &&
           extent.bottom <= scene.height - 1 - margin;
}

double shortest_gap(const std::vector<Extent>& taken, const Extent& extent)
{
    double gap = 1e9;
    for (const Extent& other : taken) {
        const double x = std::max(other.left - extent.right, extent.left - other.right);
        const double y = std::max(other.top - extent.bottom, extent.top - other.bottom);
        gap = std::min(gap, std::max(x, y));
    }
    return gap;
}

// Places discs of random size and shape where nothing is yet.
template <class Place>
void place_apart(TargetScene& scene, const SceneConditions& conditions, std::int32_t count, Random& random,
                 std::vector<Extent>& taken, double least_gap, const Place& place)
{
    for (std::int32_t tries = 0, done = 0; done < count && tries < 200 * count; ++tries) {
        const double ratio = conditions.most_radius / conditions.least_radius;
        const double b = conditions.least_radius * std::pow(ratio, random.unit());
        const double a = std::min(b / random.real(0.4, 1), std::max(b, conditions.most_radius));
        const Shape shape = {.x = random.real(0, scene.width),
                             .y = random.real(0, scene.height),
                             .a = a,
                             .b = b,
                             .angle = random.real(0, kPi)};
        const Extent extent = extent_of(shape);
        if (!lies_inside(scene, extent, 6) || shortest_gap(taken, extent) < least_gap)
            continue;
        taken.push_back(extent);
        place(shape);
        ++done;
    }
}

double gap_for(const SceneConditions& conditions)
{
    return std::max(6.0, 5 * conditions.blur + 3);
}

void add_text(TargetScene& scene, Random& random, std::vector<Extent>& taken, double grey)
{
    const double size = random.real(8, 30);
    const double left = random.real(5, scene.width - 60);
    const double top = random.real(5, scene.height - 40);
    const Extent line = {left, top, left + 6 * size, top + size * 1.4};
    if (shortest_gap(taken, line) < 8)
        return;
    taken.push_back(line);
    for (int letter = 0; letter < 6; ++letter) {
        const double x = left + letter * size;
        const auto strokes = random.integer(2, 4);
        for (std::int64_t i = 0; i < strokes; ++i)
            scene.shapes.push_back({.kind = Shape::Kind::Stroke,
                                    .x = x + random.real(0.3, 0.5) * size,
                                    .y = top + random.real(0.3, 1.1) * size,
                                    .a = random.real(0.15, 0.4) * size,
                                    .b = random.real(0.04, 0.09) * size,
                                    .angle = kPi / 4 * static_cast<double>(random.integer(0, 3)),
                                    .grey = grey});
        if (random.unit() < 0.4) { // an o, or a c with a gap
            const double r = random.real(0.25, 0.4) * size;
            const double cx = x + 0.45 * size, cy = top + 0.7 * size;
            scene.shapes.push_back({.x = cx, .y = cy, .a = 0.8 * r, .b = r, .grey = grey});
            scene.shapes.push_back(
                {.x = cx, .y = cy, .a = 0.8 * r - 0.14 * size, .b = r - 0.14 * size, .grey = scene.background});
            if (scene.shapes.back().a < 0.5 || random.unit() < 0.7)
                scene.shapes.push_back({.kind = Shape::Kind::Rectangle,
                                        .x = cx + r,
                                        .y = cy,
                                        .a = 0.8 * r,
                                        .b = 0.5 * r,
                                        .grey = scene.background});
            else
                for (std::size_t k = 2; k > 0; --k) {
                    const Shape& o = scene.shapes[scene.shapes.size() - k];
                    const bool is_outer = k == 2;
                    scene.targets.push_back({.x = o.x,
                                             .y = o.y,
                                             .a = o.b,
                                             .b = o.a,
                                             .angle = kPi / 2,
                                             .inside = is_outer ? grey : scene.background,
                                             .outside = is_outer ? scene.background : grey,
                                             .circle_x = o.x,
                                             .circle_y = o.y,
                                             .is_hard = true});
                }
        }
    }
}

// A large ellipse of which a part is hidden, as the rim of a cup is.
void add_cup(TargetScene& scene, Random& random, std::vector<Extent>& taken, double grey)
{
    const double a = random.real(30, 90);
    const Shape rim = {.x = random.real(0, scene.width),
                       .y = random.real(0, scene.height),
                       .a = a,
                       .b = a * random.real(0.5, 0.95),
                       .angle = random.real(0, kPi),
                       .grey = grey};
    const Extent extent = extent_of(rim);
    if (shortest_gap(taken, extent) < 10)
        return;
    taken.push_back(extent);
    scene.shapes.push_back(rim);
    const double cut = random.real(0, 2 * kPi);
    Shape cover = {.kind = Shape::Kind::Rectangle,
                   .x = rim.x + (0.5 + random.real(-0.2, 0.2) + 1) * a * std::cos(cut),
                   .y = rim.y + (0.5 + random.real(-0.2, 0.2) + 1) * a * std::sin(cut),
                   .a = a,
                   .b = 1.2 * a,
                   .angle = cut,
                   .grey = scene.background};
    scene.shapes.push_back(cover);
}

void add_hatching(TargetScene& scene, Random& random, std::vector<Extent>& taken, double grey)
{
    const double side = random.real(40, 120);
    const double left = random.real(0, scene.width - side);
    const double top = random.real(0, scene.height - side);
    const Extent box = {left - side / 5, top - side / 5, left + 1.2 * side, top + 1.2 * side};
    if (shortest_gap(taken, box) < 8)
        return;
    taken.push_back(box);
    const double step = random.real(4, 12);
    const double angle = random.real(0, kPi);
    const int lines = static_cast<int>(side / step);
    for (int i = 0; i < lines; ++i) {
        const double offset = (i - lines / 2.0) * step;
        scene.shapes.push_back({.kind = Shape::Kind::Stroke,
                                .x = left + side / 2 - offset * std::sin(angle),
                                .y = top + side / 2 + offset * std::cos(angle),
                                .a = side / 2,
                                .b = step * random.real(0.12, 0.3),
                                .angle = angle,
                                .grey = grey});
    }
}

void add_rectangle(TargetScene& scene, Random& random, std::vector<Extent>& taken, double grey)
{
    const Shape shape = {.kind = random.unit() < 0.7 ? Shape::Kind::Rectangle : Shape::Kind::Stroke,
                         .x = random.real(0, scene.width),
                         .y = random.real(0, scene.height),
                         .a = random.real(3, 50),
                         .b = random.real(3, 20),
                         .angle = random.real(0, kPi),
                         .grey = grey};
    if (shape.kind == Shape::Kind::Stroke && shape.a < shape.b)
        return; // nearly a disc
    const Extent extent = extent_of(shape);
    if (shortest_gap(taken, extent) < 8)
        return;
    taken.push_back(extent);
    scene.shapes.push_back(shape);
}

} // namespace

TrueTarget imaged_circle(const std::array<double, 9>& h, double x, double y, double r)
{
    // The conic C of the circle becomes H^-T C H^-1.
    const Matrix conic = {1, 0, -x, 0, 1, -y, -x, -y, x * x + y * y - r * r};
    const Matrix back = inverse(h);
    const Matrix c = product(transposed(back), product(conic, back));
    TrueTarget target;
    const double det = c[0] * c[4] - c[1] * c[1];
    target.x = (c[1] * c[5] - c[4] * c[2]) / det;
    target.y = (c[1] * c[2] - c[0] * c[5]) / det;
    const double value = c[2] * target.x + c[5] * target.y + c[8];
    const double sign = c[0] > 0 ? 1 : -1;
    set_axes(target, sign * c[0], sign * c[1], sign * c[4], -sign * value);
    const double w = h[6] * x + h[7] * y + h[8];
    target.circle_x = (h[0] * x + h[1] * y + h[2]) / w;
    target.circle_y = (h[3] * x + h[4] * y + h[5]) / w;
    return target;
}

BoardView random_view(Random& random)
{
    BoardView view;
    view.rows = static_cast<std::int32_t>(random.integer(4, 9));
    view.columns = static_cast<std::int32_t>(random.integer(4, 11));
    view.share = random.real(0.18, 0.4);
    view.tilt_x = random.real(-0.8, 0.8);
    view.tilt_y = random.real(-0.8, 0.8);
    view.turn = random.real(-kPi, kPi);
    view.distance = random.real(1.5, 4);
    return view;
}

TargetScene board_scene(const SceneConditions& conditions, const BoardView& view, std::uint64_t seed)
{
    Random random(seed);
    TargetScene scene = empty_scene(conditions, random);
    const double grey = target_grey(conditions, scene);
    const double width = std::max(view.rows, view.columns);
    const double f = 0.8 * std::min(scene.width, scene.height) * view.distance;
    const Matrix h = view_of_plane(view, f, scene.width / 2.0, scene.height / 2.0);
    for (std::int32_t row = 0; row < view.rows; ++row)
        for (std::int32_t column = 0; column < view.columns; ++column) {
            const double x = (column - (view.columns - 1) / 2.0) / width;
            const double y = (row - (view.rows - 1) / 2.0) / width;
            TrueTarget target = imaged_circle(h, x, y, view.share / width);
            target.inside = grey;
            target.outside = scene.background;
            const Shape shape = {
                .x = target.x, .y = target.y, .a = target.a, .b = target.b, .angle = target.angle, .grey = grey};
            target.is_hard = target.b < conditions.least_radius || !lies_inside(scene, extent_of(shape), 6);
            scene.shapes.push_back(shape);
            scene.targets.push_back(target);
        }
    return scene;
}

TargetScene scatter_scene(const SceneConditions& conditions, std::int32_t count, std::uint64_t seed)
{
    Random random(seed);
    TargetScene scene = empty_scene(conditions, random);
    std::vector<Extent> taken;
    place_apart(scene, conditions, count, random, taken, gap_for(conditions), [&](const Shape& s) {
        add_target(scene, s.x, s.y, s.a, s.b, s.angle, target_grey(conditions, scene), scene.background);
    });
    return scene;
}

TargetScene ring_scene(const SceneConditions& conditions, std::int32_t count, std::uint64_t seed)
{
    Random random(seed);
    TargetScene scene = empty_scene(conditions, random);
    std::vector<Extent> taken;
    place_apart(scene, conditions, count, random, taken, gap_for(conditions), [&](const Shape& s) {
        const auto outlines = random.integer(1, 4);
        const double shrink = random.real(0.45, 0.75);
        double scale = 1;
        bool is_ground = true;
        for (std::int64_t i = 0; i < outlines; ++i, scale *= shrink) {
            // Rings closer together than the blur are no longer rings.
            const double next_gap = scale / shrink * s.b * (1 - shrink);
            if (s.b * scale < conditions.least_radius || (i > 0 && next_gap < 3 + 3 * conditions.blur))
                break;
            const double own = target_grey(conditions, scene);
            add_target(scene, s.x, s.y, s.a * scale, s.b * scale, s.angle, is_ground ? own : scene.background,
                       is_ground ? scene.background : own);
            is_ground = !is_ground;
        }
    });
    return scene;
}

TargetScene pair_scene(const SceneConditions& conditions, std::int32_t count, double gap, std::uint64_t seed)
{
    Random random(seed);
    TargetScene scene = empty_scene(conditions, random);
    const double grey = target_grey(conditions, scene);
    const double step = 4.5 * conditions.most_radius;
    double x = step / 2;
    double y = step / 2;
    for (std::int32_t i = 0; i < count && y < scene.height - step / 2; ++i) {
        const double r = random.real(conditions.least_radius, conditions.most_radius);
        const double other = r * random.real(0.6, 1);
        const double direction = random.real(0, kPi);
        const double apart = r + other + gap;
        add_target(scene, x - apart / 2 * std::cos(direction), y - apart / 2 * std::sin(direction), r, r, 0, grey,
                   scene.background);
        add_target(scene, x + apart / 2 * std::cos(direction), y + apart / 2 * std::sin(direction), other, other, 0,
                   grey, scene.background);
        x += step;
        if (x > scene.width - step / 2) {
            x = step / 2;
            y += step;
        }
    }
    return scene;
}

TargetScene cluttered_scene(const SceneConditions& conditions, std::int32_t count, Clutter clutter, std::uint64_t seed)
{
    Random random(seed);
    TargetScene scene = scatter_scene(conditions, count, random.next());
    std::vector<Extent> taken;
    for (const Shape& shape : scene.shapes)
        taken.push_back(extent_of(shape));
    std::vector<Shape> targets;
    targets.swap(scene.shapes); // they come last: nothing of the clutter covers them
    const double grey = target_grey(conditions, scene);
    for (int i = 0; i < 30; ++i)
        switch (clutter) {
        case Clutter::Text:
            add_text(scene, random, taken, grey);
            break;
        case Clutter::Cups:
            add_cup(scene, random, taken, grey);
            break;
        case Clutter::Hatching:
            add_hatching(scene, random, taken, grey);
            break;
        case Clutter::Rectangles:
            add_rectangle(scene, random, taken, grey);
            break;
        }
    scene.shapes.insert(scene.shapes.end(), targets.begin(), targets.end());
    return scene;
}

} // namespace panoval::test
