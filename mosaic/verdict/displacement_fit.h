// SPDX-License-Identifier: MIT
// The exact displacement of two patches, found by least squares from a place nearby.
#pragma once

#include "mosaic/verdict/displacement_patch.h"

namespace panoval::mosaic
{

// Symmetric 2 x 2 matrix; as information it is the inverse of a covariance, in 1 / pixel^2.
struct Information {
    double xx = 0;
    double xy = 0;
    double yy = 0;

    double determinant() const { return xx * yy - xy * xy; }
    void add(const Information& other, double weight = 1)
    {
        xx += weight * other.xx;
        xy += weight * other.xy;
        yy += weight * other.yy;
    }
    // Of a displacement (x, y), in standard deviations, squared.
    double distance(double x, double y) const { return xx * x * x + 2 * xy * x * y + yy * y * y; }
    double weaker() const; // the smaller eigenvalue
    Information inverse() const;
};

struct ShiftFit {
    bool is_valid = false; // enough is known of both
    bool stands = false;   // the fit stood still; otherwise it was left on its way, or is a mere comparison
    double x = 0;          // what the first patch has at a place the second one has at that place + (x, y)
    double y = 0;
    double correlation = 0; // of both there
    double residual = 0;    // variance of their difference there, once their contrast is the same
    double count = 0;       // pixels
    double variance_first = 0;
    double variance_second = 0;
    Information information; // from the gradients that both share
    Information gradients;   // products of both patches' gradients, their mean; levels squared / pixel^2
};

// How much of what two patches show is the same at a place, by area: each small square that shows anything counts once,
// so that one bright thing which moved does not outweigh everything else.
struct Agreement {
    double agreeing = 0; // squares
    double strange = 0;
    std::vector<std::uint8_t> is_strange; // of the first patch's pixels
};

// noise  variance that noise leaves in each prepared patch
Agreement agreement_at(const Patch& first, const Patch& second, double x, double y, double noise);

// Both patches in one frame. Starts from (x, y).
ShiftFit fit_shift(const Patch& first, const Patch& second, double x, double y);

// As it is at (x, y), without looking for a better place.
ShiftFit compare_at(const Patch& first, const Patch& second, double x, double y);

} // namespace panoval::mosaic
