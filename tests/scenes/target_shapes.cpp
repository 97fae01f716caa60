// SPDX-License-Identifier: MIT
#include "tests/scenes/target_shapes.h"

#include <algorithm>
#include <cmath>

namespace panoval::test
{

namespace
{

// (c x^2 + 2 h x dy + v dy^2) = 1 around the centre.
Span ellipse_span(double a, double b, double cosine, double sine, double dy)
{
    const double ia = 1 / (a * a);
    const double ib = 1 / (b * b);
    const double quadratic = cosine * cosine * ia + sine * sine * ib;
    const double half_linear = cosine * sine * (ia - ib) * dy;
    const double constant = (sine * sine * ia + cosine * cosine * ib) * dy * dy - 1;
    const double root = half_linear * half_linear - quadratic * constant;
    if (root <= 0)
        return {};
    const double half = std::sqrt(root) / quadratic;
    return {-half_linear / quadratic - half, -half_linear / quadratic + half};
}

// Of -half <= x cosine + dy sine <= half.
Span stripe_span(double half, double cosine, double sine, double dy)
{
    if (std::fabs(cosine) < 1e-12)
        return std::fabs(dy * sine) <= half ? Span{-1e9, 1e9} : Span{};
    const double one = (-half - dy * sine) / cosine;
    const double other = (half - dy * sine) / cosine;
    return {std::min(one, other), std::max(one, other)};
}

Span common(const Span& one, const Span& other)
{
    return {std::max(one.begin, other.begin), std::min(one.end, other.end)};
}

Span rectangle_span(double a, double b, double cosine, double sine, double dy)
{
    return common(stripe_span(a, cosine, sine, dy), stripe_span(b, -sine, cosine, dy));
}

// The hull of a rectangle and the discs at its ends.
Span stroke_span(double a, double b, double cosine, double sine, double dy)
{
    Span all = rectangle_span(a, b, cosine, sine, dy);
    for (const double side : {-a, a}) {
        Span disc = ellipse_span(b, b, 1, 0, dy - side * sine);
        if (disc.end <= disc.begin)
            continue;
        disc = {disc.begin + side * cosine, disc.end + side * cosine};
        all = all.end <= all.begin ? disc : Span{std::min(all.begin, disc.begin), std::max(all.end, disc.end)};
    }
    return all;
}

} // namespace

Span span_of(const Shape& shape, double y)
{
    const double cosine = std::cos(shape.angle);
    const double sine = std::sin(shape.angle);
    const double dy = y - shape.y;
    Span span;
    switch (shape.kind) {
    case Shape::Kind::Ellipse:
        span = ellipse_span(shape.a, shape.b, cosine, sine, dy);
        break;
    case Shape::Kind::Rectangle:
        span = rectangle_span(shape.a, shape.b, cosine, sine, dy);
        break;
    case Shape::Kind::Stroke:
        span = stroke_span(shape.a, shape.b, cosine, sine, dy);
        break;
    }
    return {span.begin + shape.x, span.end + shape.x};
}

Extent extent_of(const Shape& shape)
{
    const double cosine = std::fabs(std::cos(shape.angle));
    const double sine = std::fabs(std::sin(shape.angle));
    double x = shape.a * cosine + shape.b * sine;
    double y = shape.a * sine + shape.b * cosine;
    if (shape.kind == Shape::Kind::Ellipse) {
        x = std::hypot(shape.a * cosine, shape.b * sine);
        y = std::hypot(shape.a * sine, shape.b * cosine);
    } else if (shape.kind == Shape::Kind::Stroke) {
        x = shape.a * cosine + shape.b;
        y = shape.a * sine + shape.b;
    }
    return {shape.x - x, shape.y - y, shape.x + x, shape.y + y};
}

} // namespace panoval::test
