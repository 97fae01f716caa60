/* SPDX-License-Identifier: MIT */
/**
 * Panoval measure: round targets in grey pictures, measured as well as the noise allows, each with its uncertainty.
 *
 * Plain C99. The families stand in the order in which a host meets them:
 *
 *   version and errors  panoval_measure_version, panoval_measure_error_text
 *   detection           panoval_measure_detect, panoval_measure_free
 *   refinement          panoval_measure_refine
 *   perspective         panoval_measure_centre_by_homography, _centre_by_focal_length, _centre_by_rings
 *   boards              panoval_measure_grid
 *
 * What holds for every routine:
 *
 * - x grows to the right, y downward; a pixel's centre has whole coordinates, so that the first pixel covers -0.5 to
 *   0.5; angles are in radians, from +x towards +y. Lengths are in pixels, levels in units of the samples.
 * - Every argument is checked. The result is a PanovalMeasureCode as an int32_t; whatever is not
 *   PANOVAL_MEASURE_OK has a text. When a call fails, nothing is written but what its description names.
 * - No exception leaves the library, nothing is printed, no state is kept between calls, and no thread is started.
 *   Different threads may call at once, also with the same picture.
 * - Results are the same to the last bit on every processor.
 */
#ifndef PANOVAL_MEASURE_H
#define PANOVAL_MEASURE_H

#include "panoval_version.h"

#include <stdint.h>

#if defined(_WIN32) && defined(PANOVAL_MEASURE_BUILDING)
#define PANOVAL_MEASURE_API __declspec(dllexport)
#elif defined(_WIN32) && !defined(PANOVAL_STATIC)
#define PANOVAL_MEASURE_API __declspec(dllimport)
#elif defined(__GNUC__)
#define PANOVAL_MEASURE_API __attribute__((visibility("default")))
#else
#define PANOVAL_MEASURE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------ version and errors ---- */

#define PANOVAL_MEASURE_VERSION_MAJOR PANOVAL_VERSION_MAJOR
#define PANOVAL_MEASURE_VERSION_MINOR PANOVAL_VERSION_MINOR
#define PANOVAL_MEASURE_VERSION_PATCH PANOVAL_VERSION_PATCH

/**
 * The version that the library was built as, which may differ from the header's.
 *
 * Returns major * 10000 + minor * 100 + patch.
 */
PANOVAL_MEASURE_API int32_t panoval_measure_version(void);

/** What a call, or one target of it, came to. */
typedef enum PanovalMeasureCode {
    PANOVAL_MEASURE_OK = 0,
    PANOVAL_MEASURE_NULL_ARGUMENT = 1,   /**< a pointer that must point somewhere is null */
    PANOVAL_MEASURE_BAD_IMAGE = 2,       /**< a picture without pixels, or a stride shorter than its rows */
    PANOVAL_MEASURE_BAD_SAMPLE_TYPE = 3, /**< not one of PanovalMeasureSampleType */
    PANOVAL_MEASURE_BAD_COUNT = 4,       /**< a negative count, or too few of what is needed */
    PANOVAL_MEASURE_NOT_A_NUMBER = 5,    /**< an argument, or a sample that is needed, is not finite */
    PANOVAL_MEASURE_BAD_START = 6,       /**< an axis of a start is not positive */
    PANOVAL_MEASURE_OUTSIDE = 7,         /**< the start lies outside the picture */
    PANOVAL_MEASURE_TOO_SMALL = 8,       /**< the target is too small to be measured */
    PANOVAL_MEASURE_TOO_LARGE = 9,       /**< the target is larger than the picture */
    PANOVAL_MEASURE_NO_EDGE = 10,        /**< the picture is constant around the start, or shows no closed edge there */
    PANOVAL_MEASURE_BAD_OPTION = 11,     /**< an option outside its range */
    PANOVAL_MEASURE_NO_MEMORY = 12,      /**< the heap is exhausted */
    PANOVAL_MEASURE_BAD_HOMOGRAPHY = 13, /**< a homography without an inverse, or the camera in the target's plane */
    PANOVAL_MEASURE_BAD_ELLIPSE = 14,    /**< an ellipse whose axes are not positive, or the outline of no circle */
    PANOVAL_MEASURE_NOT_CONCENTRIC = 15, /**< two outlines that are no images of concentric circles */
    PANOVAL_MEASURE_NO_GRID = 16         /**< the targets do not form a board of that many rows and columns */
} PanovalMeasureCode;

/**
 * A sentence in English for a code, without a full stop.
 *
 * code  any number
 *
 * Returns a text that stays valid; never null. A number that is no code has the text "unknown code".
 */
PANOVAL_MEASURE_API const char* panoval_measure_error_text(int32_t code);

/* ----------------------------------------------------------------------------------------------------- pictures ----
 */

/** The kinds of samples. */
typedef enum PanovalMeasureSampleType {
    PANOVAL_MEASURE_U8 = 1,  /**< uint8_t */
    PANOVAL_MEASURE_U16 = 2, /**< uint16_t in the machine's byte order, aligned or not */
    PANOVAL_MEASURE_F32 = 3  /**< float of any scale, aligned or not */
} PanovalMeasureSampleType;

/** A grey picture that the caller owns; it is only read. */
typedef struct PanovalMeasureImage {
    const void* data;    /**< the first sample of the first row */
    int32_t width;       /**< samples per row, at least 1 */
    int32_t height;      /**< rows, at least 1 */
    int64_t stride;      /**< bytes from a row to the next, at least width times the size of a sample */
    int32_t sample_type; /**< a PanovalMeasureSampleType */
    int32_t reserved;    /**< 0 */
} PanovalMeasureImage;

/* ------------------------------------------------------------------------------------------------------ targets ----
 */

/** What may be said about a target beside its numbers; bits of PanovalMeasureTarget.flags. */
typedef enum PanovalMeasureFlag {
    PANOVAL_MEASURE_BORDER = 1, /**< the outline or its surroundings leave the picture */
    PANOVAL_MEASURE_NEIGHBOUR =
        2, /**< something else is within reach: its pixels are left out, or it is measured, too */
    PANOVAL_MEASURE_SATURATED = 4,      /**< samples around the outline are at the end of their range */
    PANOVAL_MEASURE_BLURRED = 8,        /**< the blur is larger than a quarter of the smaller axis */
    PANOVAL_MEASURE_NOT_CONVERGED = 16, /**< the iterations ended before the numbers settled */
    PANOVAL_MEASURE_ROUND = 32,         /**< the axes do not differ significantly: the angle means nothing */
    PANOVAL_MEASURE_RING = 64           /**< the outline of a ring: another one lies inside or around it */
} PanovalMeasureFlag;

/** Whether a target is darker or brighter than what lies around it. */
typedef enum PanovalMeasurePolarity {
    PANOVAL_MEASURE_BOTH = 0,  /**< in options: either */
    PANOVAL_MEASURE_DARK = 1,  /**< darker than its surroundings */
    PANOVAL_MEASURE_BRIGHT = 2 /**< brighter than its surroundings */
} PanovalMeasurePolarity;

/** An ellipse: where a measurement starts, and the outline that the perspective routines take. */
typedef struct PanovalMeasureEllipse {
    double x;          /**< centre in pixels */
    double y;          /**< centre in pixels */
    double semi_major; /**< half the length in pixels, above 0 */
    double semi_minor; /**< half the width in pixels, above 0; in a start either axis may be the longer one */
    double angle;      /**< direction of semi_major in radians */
} PanovalMeasureEllipse;

/** A measured target. */
typedef struct PanovalMeasureTarget {
    PanovalMeasureEllipse ellipse; /**< the outline; the angle is above -pi/2 and at most pi/2 */
    /**
     * The covariance of (x, y, semi_major, semi_minor, angle), 5 x 5, row after row, in pixels and radians. Of a round
     * target the angle's variance is that of a direction of which nothing is known, pi * pi / 12.
     */
    double covariance[25];
    double sigma_x;         /**< standard deviation of ellipse.x in pixels; the root of covariance[0] */
    double sigma_y;         /**< standard deviation of ellipse.y in pixels */
    double sigma_major;     /**< standard deviation of semi_major in pixels */
    double sigma_minor;     /**< standard deviation of semi_minor in pixels */
    double sigma_angle;     /**< standard deviation of the angle in radians */
    double level_inside;    /**< level of the target at its centre */
    double level_outside;   /**< level of the surroundings, continued to the target's centre */
    double slope_inside_x;  /**< change of level_inside per pixel to the right */
    double slope_inside_y;  /**< change of level_inside per pixel downward */
    double slope_outside_x; /**< change of level_outside per pixel to the right */
    double slope_outside_y; /**< change of level_outside per pixel downward */
    double blur;            /**< standard deviation of the Gaussian blur before the pixel, in pixels */
    double sigma_blur;      /**< standard deviation of blur in pixels */
    double noise;           /**< standard deviation of a sample, in levels, rounding to integers included */
    double edge_share;      /**< the share of the outline where an edge was found, 0 to 1 */
    double chi_square;      /**< squared residuals over those that noise in the flat parts explains; about 1 */
    double quality;         /**< how sure it is that this is a target, 0 to 1 */
    int32_t polarity;       /**< PANOVAL_MEASURE_DARK or PANOVAL_MEASURE_BRIGHT */
    int32_t flags;          /**< PanovalMeasureFlag bits */
    int32_t iterations;     /**< steps of the last adjustment */
    int32_t pixels;         /**< samples that went into it */
    int32_t code;           /**< PANOVAL_MEASURE_OK, or why there are no numbers: all of them are then 0 */
    int32_t reserved;       /**< 0 */
} PanovalMeasureTarget;

/* ---------------------------------------------------------------------------------------------------- detection ----
 */
/*
 * Finds and measures every round target of a picture: fill the options, detect, read the records, free them.
 */

#define PANOVAL_MEASURE_USUAL_RADIUS 2.5  /**< min_radius where it is 0, in pixels */
#define PANOVAL_MEASURE_USUAL_ASPECT 0.3  /**< min_aspect where it is 0 */
#define PANOVAL_MEASURE_USUAL_QUALITY 0.5 /**< min_quality where it is 0 */

/** What to look for. A record of zeros stands for the defaults. */
typedef struct PanovalMeasureDetectOptions {
    int32_t polarity;   /**< a PanovalMeasurePolarity; default both */
    int32_t max_count;  /**< at most so many targets, those of the best quality; default and 0: all of them */
    double min_radius;  /**< smallest semi-minor axis in pixels, less two deviations that noise makes of it; 0: 2.5 */
    double max_radius;  /**< largest semi-major axis in pixels; 0: a third of the picture's longer side */
    double min_aspect;  /**< smallest quotient of the axes, 0 to 1; 0: 0.3 */
    double min_quality; /**< records of less quality are left out, 0 to 1; 0: 0.5; negative: every record */
    double reserved[4]; /**< 0 */
} PanovalMeasureDetectOptions;

/** What a detection has found, and why not more. The numbers help to say why a picture shows nothing. */
typedef struct PanovalMeasureDetection {
    PanovalMeasureTarget* targets; /**< the records, by rows from the top; null when there are none */
    int32_t count;                 /**< number of records */
    int32_t candidates;            /**< closed outlines that were looked at */
    int32_t too_small;             /**< of them, smaller than min_radius */
    int32_t too_large;             /**< of them, larger than max_radius */
    int32_t too_faint;             /**< of them, with less contrast than the noise allows to tell from nothing */
    int32_t not_oval;              /**< of them, whose outline is no ellipse */
    int32_t other_polarity;        /**< of them, targets of the polarity that was not asked for */
    int32_t below_quality;         /**< of them, measured, with less quality than min_quality */
} PanovalMeasureDetection;

/**
 * Finds the targets of a picture and measures each as panoval_measure_refine does.
 *
 * image      the picture
 * options    what to look for; null = the defaults
 * detection  out; to be given to panoval_measure_free. Empty when the call fails
 *
 * Returns PANOVAL_MEASURE_OK, also when nothing is found, or NULL_ARGUMENT, BAD_IMAGE, BAD_SAMPLE_TYPE, BAD_OPTION,
 * NO_MEMORY. Samples that are not finite are no part of any target.
 */
PANOVAL_MEASURE_API int32_t panoval_measure_detect(const PanovalMeasureImage* image,
                                                   const PanovalMeasureDetectOptions* options,
                                                   PanovalMeasureDetection* detection);

/**
 * Frees the records of a detection and leaves it empty.
 *
 * detection  filled by panoval_measure_detect, or all zero; null does nothing
 */
PANOVAL_MEASURE_API void panoval_measure_free(PanovalMeasureDetection* detection);

/* --------------------------------------------------------------------------------------------------- refinement ----
 */

/**
 * Measures targets whose places are known roughly: to 2 pixels or a fifth of the radius, whichever is more.
 *
 * image    the picture
 * starts   count ellipses
 * count    number of starts, at least 0
 * targets  out, count records; record i belongs to start i and is written whatever it comes to
 *
 * The outline is the one where an ideal sharp edge would lie; the blur does not shrink it. Targets of one call that
 * are near to each other are measured as if each stood alone.
 *
 * Returns PANOVAL_MEASURE_OK when every target has been measured, else the code of the first that has not:
 * NOT_A_NUMBER, BAD_START, OUTSIDE, TOO_SMALL, TOO_LARGE, NO_EDGE, NO_MEMORY; each record has its own code.
 * NULL_ARGUMENT, BAD_IMAGE, BAD_SAMPLE_TYPE and BAD_COUNT concern the call, and no record is written then.
 */
PANOVAL_MEASURE_API int32_t panoval_measure_refine(const PanovalMeasureImage* image,
                                                   const PanovalMeasureEllipse* starts, int32_t count,
                                                   PanovalMeasureTarget* targets);

/* -------------------------------------------------------------------------------------------------- perspective ----
 */
/*
 * The image of a circle is an ellipse, but the image of its centre is not the ellipse's centre. These routines give
 * the image of the circle's centre, from what is known about the camera or the scene. They are exact for a camera
 * without distortion.
 */

/** A point with its uncertainty. */
typedef struct PanovalMeasurePoint {
    double x;      /**< pixels */
    double y;      /**< pixels */
    double var_x;  /**< variance of x in pixels squared; 0 without a covariance of the ellipse */
    double cov_xy; /**< covariance of x and y */
    double var_y;  /**< variance of y */
} PanovalMeasurePoint;

/** One of the two ways in which a circle may lie in space to give the same outline. */
typedef struct PanovalMeasureCirclePose {
    PanovalMeasurePoint centre; /**< image of the circle's centre */
    double normal[3];           /**< unit normal of its plane, towards the camera (z < 0); x right, y down, z ahead */
    double distance;            /**< from the camera to the circle's centre, in radii of the circle */
} PanovalMeasureCirclePose;

/**
 * The image of a circle's centre from a homography of its plane.
 *
 * ellipse     the circle's outline in the picture
 * covariance  25 numbers as in PanovalMeasureTarget, or null
 * homography  9 numbers, row after row: maps (X, Y, 1) of the plane, in any unit, to the picture, up to a factor
 * centre      out
 *
 * Returns PANOVAL_MEASURE_OK, NULL_ARGUMENT, NOT_A_NUMBER, BAD_ELLIPSE, or BAD_HOMOGRAPHY.
 */
PANOVAL_MEASURE_API int32_t panoval_measure_centre_by_homography(const PanovalMeasureEllipse* ellipse,
                                                                 const double* covariance, const double* homography,
                                                                 PanovalMeasurePoint* centre);

/**
 * The image of a circle's centre from the camera's focal length. An outline alone leaves two planes open, so there are
 * two answers; of a circle seen from straight ahead they coincide.
 *
 * ellipse       the circle's outline in the picture
 * covariance    25 numbers as in PanovalMeasureTarget, or null
 * focal_length  in pixels, above 0
 * principal_x, principal_y  where the optical axis meets the picture, in pixels
 * poses         out, two records; first the one whose normal is turned less from the optical axis
 *
 * Returns PANOVAL_MEASURE_OK, NULL_ARGUMENT, NOT_A_NUMBER, BAD_OPTION (focal length), or BAD_ELLIPSE.
 */
PANOVAL_MEASURE_API int32_t panoval_measure_centre_by_focal_length(const PanovalMeasureEllipse* ellipse,
                                                                   const double* covariance, double focal_length,
                                                                   double principal_x, double principal_y,
                                                                   PanovalMeasureCirclePose* poses);

/**
 * The image of the common centre of two concentric circles; nothing about the camera is needed.
 *
 * outer, inner                        their outlines in the picture; the inner one at most 0.95 of the outer
 * covariance_outer, covariance_inner  25 numbers each as in PanovalMeasureTarget, or null
 * centre                              out
 *
 * Returns PANOVAL_MEASURE_OK, NULL_ARGUMENT, NOT_A_NUMBER, BAD_ELLIPSE, or NOT_CONCENTRIC.
 */
PANOVAL_MEASURE_API int32_t panoval_measure_centre_by_rings(const PanovalMeasureEllipse* outer,
                                                            const double* covariance_outer,
                                                            const PanovalMeasureEllipse* inner,
                                                            const double* covariance_inner,
                                                            PanovalMeasurePoint* centre);

/* ------------------------------------------------------------------------------------------------------- boards ----
 */

/** One place of a board. */
typedef struct PanovalMeasureGridCell {
    int32_t target;    /**< index of the target that stands there, or -1: the place is missing */
    int32_t reserved;  /**< 0 */
    double x;          /**< where the homography puts the place's centre, in pixels */
    double y;          /**< where the homography puts the place's centre, in pixels */
    double centre_x;   /**< image of the target's circle's centre, in pixels; 0 when missing */
    double centre_y;   /**< image of the target's circle's centre, in pixels; 0 when missing */
    double residual_x; /**< centre_x - x; 0 when missing */
    double residual_y; /**< centre_y - y; 0 when missing */
} PanovalMeasureGridCell;

/** A board. */
typedef struct PanovalMeasureGrid {
    double homography[9]; /**< maps (column, row, 1) to the picture, row after row, up to a factor; [8] is 1 */
    double rms;           /**< root mean square of the residuals, sqrt of the mean of x * x + y * y, in pixels */
    double max_residual;  /**< the longest residual in pixels */
    int32_t found;        /**< places with a target */
    int32_t missing;      /**< places without */
    int32_t extra;        /**< targets that stand at no place */
    int32_t reserved;     /**< 0 */
} PanovalMeasureGrid;

/**
 * Orders the targets of a board of rows and columns seen in perspective.
 *
 * targets  count measured targets, in any order; others than those of the board may be among them
 * count    number of targets, at least 4
 * rows     rows of the board, at least 2
 * columns  columns of the board, at least 2
 * grid     out
 * cells    out, rows * columns records, row after row
 *
 * Of the ways to turn the board that its shape leaves open the one is taken whose rows run most nearly to the right in
 * the picture, and whose columns run downward. A board is never mirrored. Residuals are those of the images of the
 * circles' centres.
 *
 * A board of which a whole outer row or column is missing is not found, for it could lie in two ways; nor is one with
 * fewer than half its targets, nor a part of a larger board. A target stands at a place when it is off by at most a
 * fifth of a step, and by at most 0.05 of a step or six times the median of all, whichever is more.
 *
 * Returns PANOVAL_MEASURE_OK, NULL_ARGUMENT, BAD_COUNT, NOT_A_NUMBER, BAD_ELLIPSE, NO_GRID, or NO_MEMORY.
 */
PANOVAL_MEASURE_API int32_t panoval_measure_grid(const PanovalMeasureTarget* targets, int32_t count, int32_t rows,
                                                 int32_t columns, PanovalMeasureGrid* grid,
                                                 PanovalMeasureGridCell* cells);

#ifdef __cplusplus
}
#endif

#endif
