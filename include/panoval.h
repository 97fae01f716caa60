/* SPDX-License-Identifier: MIT */
/**
 * Panoval: panorama stitching and measurement of elliptical targets.
 *
 * One header for the whole library, plain C99. The families stand in the order in which a host meets them:
 *
 *   containers          MatInit, MatReset, MatDestroy, MatToImage, MatbReset ... MatdReset
 *   PGM files           read_pgm, write_pgm, write_pgm_float, write_pgm_short, write_fpgm
 *   regions and masks   overlapRoi, get_sub_image, get_sub_mask, get_mask_intersect
 *   gain compensation   gain_compensator_init (or _init_start, _init_step, _init_end), _apply, _free
 *   feather blending    feather_blender_prepare, _feed, _blend
 *   multi-band blending multi_band_blender_setbands, _prepare, _feed, _blend
 *   filters and edges   GetGaussianKernel, smooth_image, gradient_image, distanceTransform_3x3, canny
 *   inpainting          inpaint
 *   shape detection     histogram_count, find_threshold, find_trough, oval_fit, find_ellipse, find_small_ellipse
 *
 * What holds for every routine:
 *
 * - Samples are row-major with channels interleaved: sample (x, y, c) is element (y * width + x) * channels + c.
 *   x grows to the right, y downward; a pixel's centre has whole coordinates; angles are in radians, from +x
 *   towards +y.
 * - Sizes are signed 32-bit. Products of sizes are formed in 32-bit arithmetic and wrap.
 * - Arguments are not validated: a null pointer is dereferenced, a size is believed. Where an unusual argument has a
 *   defined outcome, the routine's description gives it.
 * - Heap blocks come from the C runtime (malloc, calloc, realloc) and are released with its free. On Windows a host
 *   must use the same C runtime as the library.
 * - No routine keeps state between calls or starts a thread. Different records and buffers may be used from
 *   different threads at once; one record must not be.
 * - When the heap is exhausted nothing crashes and nothing leaks: a container that cannot get its block is left empty
 *   (all sizes 0, data null); a routine that cannot get its scratch leaves its outputs empty or returns its "nothing"
 *   result. canny alone ends the process, with a message.
 * - Results are the same to the last bit on every processor. Conversions to integers truncate toward zero unless
 *   stated; one that leaves the integer range gives the most negative integer.
 */
#ifndef PANOVAL_H
#define PANOVAL_H

#include <stdint.h>

#if defined(_WIN32) && defined(PANOVAL_BUILDING)
#define PANOVAL_API __declspec(dllexport)
#elif defined(_WIN32) && !defined(PANOVAL_STATIC)
#define PANOVAL_API __declspec(dllimport)
#elif defined(__GNUC__)
#define PANOVAL_API __attribute__((visibility("default")))
#else
#define PANOVAL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------------ containers ---- */
/*
 * Six plain records that the caller owns; the library never allocates a record, only its block.
 * Mat:             MatInit once, MatReset any number of times, MatDestroy.
 * typed container: zero every field, reset any number of times, free(data).
 */

/** A generic image. Its sample width is a run-time value. */
typedef struct Mat {
    int32_t width;    /**< pixels per row, set by MatReset */
    int32_t height;   /**< rows, set by MatReset */
    int32_t channels; /**< interleaved samples per pixel, set by MatReset */
    int32_t elemSize; /**< bytes per sample: 1 (unsigned 8 bit) or 2 (16 bit, little-endian), set by MatReset */
    int32_t size;     /**< bytes in use: width * height * channels * elemSize, set by MatReset */
    int32_t capacity; /**< bytes allocated for data; never decreases while the heap lasts */
    uint8_t* data;    /**< the samples, a block of the C heap that the record owns */
} Mat;

/** A container of unsigned 8-bit elements: masks. */
typedef struct Matb {
    int32_t width;    /**< elements per row and channel */
    int32_t height;   /**< rows */
    int32_t channels; /**< interleaved elements per pixel */
    uint8_t* data;    /**< width * height * channels elements, a block of the C heap that the record owns */
} Matb;

/** A container of 16-bit elements; fields as in Matb. */
typedef struct Mats {
    int32_t width;    /**< elements per row and channel */
    int32_t height;   /**< rows */
    int32_t channels; /**< interleaved elements per pixel */
    int16_t* data;    /**< width * height * channels elements */
} Mats;

/** A container of 32-bit floats; fields as in Matb. */
typedef struct Matf {
    int32_t width;    /**< elements per row and channel */
    int32_t height;   /**< rows */
    int32_t channels; /**< interleaved elements per pixel */
    float* data;      /**< width * height * channels elements */
} Matf;

/** A container of signed 32-bit elements; fields as in Matb. */
typedef struct Mati {
    int32_t width;    /**< elements per row and channel */
    int32_t height;   /**< rows */
    int32_t channels; /**< interleaved elements per pixel */
    int32_t* data;    /**< width * height * channels elements */
} Mati;

/** A container of doubles; fields as in Matb. */
typedef struct Matd {
    int32_t width;    /**< elements per row and channel */
    int32_t height;   /**< rows */
    int32_t channels; /**< interleaved elements per pixel */
    double* data;     /**< width * height * channels elements */
} Matd;

/**
 * Sets every field of a record to zero, whatever it holds. Frees nothing.
 *
 * m  the record, out
 */
PANOVAL_API void MatInit(Mat* m);

/**
 * Gives an image a new shape and clears it.
 *
 * m         an initialised record, in and out
 * width, height, channels, elemSize  the new shape, stored as given
 *
 * Where the new size in bytes exceeds capacity the block is replaced; otherwise the same block is kept, also for a
 * smaller shape. Either way the first `size` bytes are zero afterwards and bytes beyond them are untouched. A size that
 * is zero or negative allocates and clears nothing. When the heap is exhausted the old block is freed and the record
 * is left empty.
 */
PANOVAL_API void MatReset(Mat* m, int32_t width, int32_t height, int32_t channels, int32_t elemSize);

/**
 * Frees the block. No field changes: pass the record to MatInit before it is used again.
 *
 * m  the record, in
 */
PANOVAL_API void MatDestroy(Mat* m);

/**
 * Converts an image to packed 8-bit pictures of three bytes a pixel.
 *
 * m    an image of 1 or 3 channels, elemSize 1 or 2, in
 * out  at least 3 * width * height bytes, out
 *
 * A grey sample is repeated three times; three channels keep their order. Of 16-bit samples the high byte is taken,
 * without rounding. Returns 1, also when there is no pixel; 0 for any other format, with out untouched.
 */
PANOVAL_API int32_t MatToImage(const Mat* m, uint8_t* out);

/**
 * Gives a typed container a new shape and clears it; one function per element type.
 *
 * m  a zeroed or earlier reset record, in and out
 * width, height, channels  the new shape, stored as given
 *
 * The block is reallocated on every call. A shape of zero or negative size frees it and leaves data null. When the heap
 * is exhausted the old block is freed and the record is left empty. MatfReset and MatiReset are one routine under
 * two names.
 */
PANOVAL_API void MatbReset(Matb* m, int32_t width, int32_t height, int32_t channels);
PANOVAL_API void MatsReset(Mats* m, int32_t width, int32_t height, int32_t channels);
PANOVAL_API void MatfReset(Matf* m, int32_t width, int32_t height, int32_t channels);
PANOVAL_API void MatiReset(Mati* m, int32_t width, int32_t height, int32_t channels);
PANOVAL_API void MatdReset(Matd* m, int32_t width, int32_t height, int32_t channels);

/* ------------------------------------------------------------------------------------------------- PGM files ---- */
/*
 * Raw PGM files: a text header, then one byte per pixel. File names are UTF-8 on every system.
 * The writers put width and height on two lines of the header; the reader wants both on one line. It therefore does
 * not understand the files that the writers make. Both are as hosts expect them, and both stay.
 */

/**
 * Reads an image as one byte per pixel.
 *
 * out_data       receives a new block of width * height bytes; the caller frees it
 * width, height  receive the size in pixels
 * name           file name, UTF-8
 *
 * The header has three lines: magic number, width and height, maximum value; a line that starts with # is skipped.
 * Lines are taken in pieces of at most 259 characters, and each piece counts as a line. Magic number and maximum value
 * are not tested: plain-text and 16-bit files are read as raw bytes as well. A header line that does not parse leaves
 * its values as the caller set them, and an empty line counts as one. Pixels that the file lacks are 0.
 *
 * A file that does not open: nothing is written, so set *out_data to null first. A size whose product is negative or
 * does not fit a signed 32-bit integer, or a block that the heap cannot give: *out_data is null.
 */
PANOVAL_API void read_pgm(uint8_t** out_data, int32_t* width, int32_t* height, const char* name);

/**
 * Writes bytes as they are.
 *
 * data  width * height bytes, in
 * name  file name, UTF-8
 *
 * Without pixels the file holds the header alone. A file that does not open: nothing happens.
 */
PANOVAL_API void write_pgm(const uint8_t* data, int32_t width, int32_t height, const char* name);

/**
 * Writes floats, stretched linearly so that the smallest becomes 0 and the largest 255 (or 254, where the double
 * product falls just below 255: values are floored, not rounded).
 *
 * data  width * height floats, in
 * name  file name, UTF-8
 *
 * A constant image is written as zeros, and so is what is not a number; the range of a picture that starts with one is
 * none. Without pixels the file holds the header alone. A file that does not open: nothing happens.
 */
PANOVAL_API void write_pgm_float(const float* data, int32_t width, int32_t height, const char* name);

/** Writes signed 16-bit samples, stretched as by write_pgm_float. -5, 0, 5 are written as 0, 127, 255. */
PANOVAL_API void write_pgm_short(const int16_t* data, int32_t width, int32_t height, const char* name);

/**
 * Writes a float image, stretched in single precision.
 *
 * img   1 channel, or 3 that are made grey with the weights 0.299, 0.587, 0.114; any other count gives zeros; in
 * name  file name, UTF-8
 *
 * The stretch starts from a maximum of 0, not from the first pixel: a picture of negative values alone is stretched
 * against 0 as its top; likewise its minimum starts from 1e10. Values are truncated. Without pixels the file holds the
 * header alone. A file that does not open: nothing happens.
 */
PANOVAL_API void write_fpgm(const Matf* img, const char* name);

/* ----------------------------------------------------------------------------------------- regions and masks ---- */
/*
 * Rectangles in the panorama's frame, and masks of one byte per pixel: 0 = not covered, anything else = covered.
 * Stateless; the gain compensator uses the same rules.
 */

/** A rectangle: columns x to x + width - 1, rows y to y + height - 1. */
typedef struct Roi {
    int32_t x;      /**< left column, pixels */
    int32_t y;      /**< top row, pixels */
    int32_t width;  /**< pixels */
    int32_t height; /**< pixels */
} Roi;

/** An image's top-left corner in the panorama's frame, in pixels; may be negative. */
typedef struct Point {
    int32_t x; /**< to the right */
    int32_t y; /**< downward */
} Point;

/** An image's extent in pixels. */
typedef struct Size {
    int32_t width;  /**< pixels */
    int32_t height; /**< pixels */
} Size;

/**
 * Intersects two placed rectangles.
 *
 * tl1, tl2  top-left corners
 * sz1, sz2  extents
 * roi       the common rectangle, out
 *
 * Returns 1 if they share at least one pixel. Returns 0 otherwise, also when they only touch, with roi untouched.
 */
PANOVAL_API int32_t overlapRoi(Point tl1, Point tl2, Size sz1, Size sz2, Roi* roi);

/**
 * Cuts a rectangle out of an image; what lies outside the image is 0.
 *
 * src  any channel count; elemSize 1 or 2, any other gives zeros; in
 * roi  in the image's own coordinates, in
 * dst  an initialised record, reset to roi's size and src's format, out; not src
 *
 * A rectangle without area gives an empty dst; one whose bytes do not fit 32 bits gives zeros. Without memory dst is
 * left empty.
 */
PANOVAL_API void get_sub_image(const Mat* src, const Roi* roi, Mat* dst);

/**
 * Cuts a rectangle out of a mask; what lies outside the mask is 0. Values are kept, not made binary.
 *
 * mask  one byte per pixel, in
 * roi   in the mask's own coordinates, in
 * dst   a zeroed or earlier reset record, reset to roi's size, out; not mask
 *
 * Rectangles without area or beyond 32 bits as in get_sub_image; without memory dst is left empty.
 */
PANOVAL_API void get_sub_mask(const Matb* mask, const Roi* roi, Matb* dst);

/**
 * Marks the pixels that two masks cover both.
 *
 * a    its size counts, in
 * b    at least as many bytes as a, addressed with a's indices, in
 * out  reset to a's size; 255 where both are covered, 0 elsewhere; out; neither a nor b
 *
 * Returns the number of pixels set to 255; without memory 0, with out left empty.
 */
PANOVAL_API int32_t get_mask_intersect(const Matb* a, const Matb* b, Matb* out);

/* ----------------------------------------------------------------------------------------- gain compensation ---- */
/*
 * One factor per image, so that overlapping images agree in brightness.
 * All at once:  gain_compensator_init, then _apply once per image, then _free.
 * Pair by pair: _init_start, _init_step for every pair i <= j (each image with itself, too), _init_end, then as above.
 */

/** The compensator's state. The caller allocates it and sets every byte to zero before the first call. */
typedef struct GainCompensator {
    Mati counts;      /**< n x n: pixels that images i and j share, at i * n + j; set by _init_start and _init_step */
    Matd intensities; /**< n x n: mean norm of image i's pixels that it shares with j; set as counts */
    Matd gains;       /**< width n, height 1: the gain of each image; set by _init or _init_end */
} GainCompensator;

/**
 * Measures every overlap, solves for the gains, and prints them: "%f\t" for each, then "\n", to standard output.
 *
 * gc       a zeroed record; gains is set, the rest untouched
 * n        number of images
 * corners  n top-left corners in the panorama's frame, in
 * images   n images of elemSize 1 or 2, any channel count, in
 * masks    n masks, each the size of its image, in
 *
 * The sum of squares of 16-bit samples above 46340 wraps at 32 bits, on purpose. A pair whose sample sizes or channel
 * counts differ is read by the first image's format, and never outside either image. A mask smaller than its image
 * covers nothing beyond its edge. An n of 0 or less prints "\n" alone, and so does an exhausted heap, which leaves
 * gains empty.
 */
PANOVAL_API void gain_compensator_init(GainCompensator* gc, int32_t n, const Point* corners, const Mat* images,
                                       const Matb* masks);

/**
 * Multiplies an image by its gain, in place: floor(v * gain + 0.5), clamped to the sample's range.
 *
 * gc     a record with gains, in
 * index  the image's number, 0 to n - 1
 * image  elemSize 1 or 2; any other is left unchanged; in and out
 */
PANOVAL_API void gain_compensator_apply(const GainCompensator* gc, int32_t index, Mat* image);

/** Frees the gains. Clears no pointer: set the record to zero before it is used again. */
PANOVAL_API void gain_compensator_free(GainCompensator* gc);

/**
 * Opens the tables for n images, all zero.
 *
 * gc  a zeroed record
 * n   number of images
 */
PANOVAL_API void gain_compensator_init_start(GainCompensator* gc, int32_t n);

/**
 * Measures one pair and stores its entries; stepping a pair again overwrites them.
 *
 * gc                  an opened record
 * i, j                image numbers, 0 to n - 1; equal, with the same image twice, for the diagonal
 * corner_i, corner_j  top-left corners in the panorama's frame
 * image_i, image_j    elemSize 1 or 2; the first one's format governs both; in
 * mask_i, mask_j      the size of their images, in
 *
 * Images that do not overlap leave the tables as they are, and so do images of different formats without memory.
 */
PANOVAL_API void gain_compensator_init_step(GainCompensator* gc, int32_t i, int32_t j, Point corner_i,
                                            const Mat* image_i, const Matb* mask_i, Point corner_j, const Mat* image_j,
                                            const Matb* mask_j);

/** Solves for the gains and frees the tables, whose pointers it does not clear. Prints nothing. */
PANOVAL_API void gain_compensator_init_end(GainCompensator* gc);

/* ------------------------------------------------------------------------------------------ feather blending ---- */
/*
 * The weighted mean of all images at each canvas pixel; weights grow from an image's edge inward.
 * Zero the record, then feather_blender_prepare once, _feed once per image, _blend once.
 */

/** The feather blender's state. The caller allocates it and sets every byte to zero before _prepare. */
typedef struct FeatherBlender {
    Matf dst;          /**< canvas size, channels as given to _prepare: sums of weight times sample */
    Matf spare;        /**< unused; keeps whatever the caller put there */
    Roi dstRoi;        /**< the canvas in panorama coordinates, set by _prepare */
    Matf distScratch;  /**< 32-bit integers of the distance transform, (width + 2) x (height + 2) of the last mask */
    float sharpness;   /**< weight per pixel of distance, 0.02, set by _prepare */
    Matf weightMap;    /**< the weights of the last image fed, the size of its mask */
    Matf dstWeightMap; /**< canvas size, one channel: sums of weights */
} FeatherBlender;

/**
 * Opens a canvas, all zero.
 *
 * blender   a zeroed record
 * channels  samples per pixel of every image to come
 * dst_roi   the canvas in panorama coordinates, in
 *
 * A canvas of more than 2^31 - 1 samples, or one that the heap cannot hold, leaves the record empty: feeding it adds
 * nothing, and blending gives an empty image. Sizes that are not positive are stored as given; nothing can be fed.
 */
PANOVAL_API void feather_blender_prepare(FeatherBlender* blender, int32_t channels, const Roi* dst_roi);

/**
 * Adds one image to the panorama.
 *
 * blender  a prepared record; its sums grow and its scratch maps are resized
 * img      width x height x channels samples, elemSize 1 or 2; channels as given to _prepare; in
 * mask     width x height x 1, the size of img; 0 = not covered, anything else = covered; in
 * tl       top-left corner of img in panorama coordinates, in pixels; what lies outside the canvas is cut away
 *
 * A covered pixel counts with 0.02 per pixel of city-block distance to the nearest uncovered one, at most 1. The
 * image's border is no edge: a mask without zeros counts fully everywhere. An img of any other elemSize adds weight
 * but no colour. Of an img of fewer channels the canvas gets these; of one of more, the samples too many fall on the
 * pixels that follow, never outside the canvas. Without memory for the scratch maps they are left empty and nothing is
 * added.
 */
PANOVAL_API void feather_blender_feed(FeatherBlender* blender, const Mat* img, const Matb* mask, Point tl);

/**
 * Writes the panorama and frees the record's buffers.
 *
 * blender    a prepared record; its four buffers are released and their pointers cleared
 * dst        an initialised record, reset to the canvas size; pixels without weight are 0; out
 * elem_size  bytes per sample: 1 keeps the low 8 bits of each value, 2 the low 16; any other leaves zeros
 *
 * Values are rounded half up after a division by (weight + 0.00001): exact halves round down, and large 16-bit samples
 * get smaller, by one from 50128 on where the weight is 1, and by one in 2000 where it is 0.02. Nothing saturates. When
 * the panorama cannot be allocated, or has more than 2^31 - 1 bytes, dst is left empty.
 */
PANOVAL_API void feather_blender_blend(FeatherBlender* blender, Mat* dst, int32_t elem_size);

/* --------------------------------------------------------------------------------------- multi-band blending ---- */
/*
 * Each spatial frequency band is blended by itself: wide transitions for low frequencies, narrow ones for high
 * (Burt and Adelson, A multiresolution spline with application to image mosaics, 1983).
 * multi_band_blender_setbands, _prepare, _feed once per image, _blend; then from setbands again.
 */

/** The multi-band blender's state. The caller allocates it and sets every byte to zero before _setbands. */
typedef struct MultiBandBlender {
    Roi dstRoi;             /**< the canvas, padded to multiples of 2 to the power numBands; set by _prepare */
    int32_t numBands;       /**< bands in use, set by _prepare */
    int32_t requestedBands; /**< upper limit of numBands, set by _setbands; there is no default */
    Matf* dstPyrLaplace;    /**< numBands + 1 levels: weighted sums of the bands; set by _prepare */
    Matf* dstBandWeights;   /**< numBands + 1 one-channel levels: sums of weights; set by _prepare */
    Roi dstRoiFinal;        /**< the canvas as given to _prepare */
} MultiBandBlender;

/**
 * Sets the upper limit of the number of bands.
 *
 * bands  at least 1
 */
PANOVAL_API void multi_band_blender_setbands(MultiBandBlender* blender, int32_t bands);

/**
 * Opens a canvas, all zero.
 *
 * blender   a record with bands set; buffers of an earlier use are not freed
 * channels  samples per pixel of every image to come
 * dst_roi   the canvas in panorama coordinates, in; its width and height receive the padded size, out
 *
 * Uses at most ceil(log2(larger side)) bands, and at least one. A canvas whose padding or levels leave 32 bits, or that
 * the heap cannot hold, leaves the record empty: feeding it does nothing and blending gives an empty image.
 */
PANOVAL_API void multi_band_blender_prepare(MultiBandBlender* blender, int32_t channels, Roi* dst_roi);

/**
 * Adds one image to the panorama.
 *
 * blender  a prepared record
 * img      elemSize 1 or 2, channels as given to _prepare; in
 * mask     the size of img: 0 excludes a pixel, 255 gives it full weight, values between count in proportion; in
 * tl       top-left corner of img in panorama coordinates; what lies outside the canvas is cut away
 *
 * An image that does not overlap the padded canvas changes nothing, nor does an img of any other elemSize. Channels
 * that img lacks count as 0, surplus ones are ignored. Without memory the image is left out.
 */
PANOVAL_API void multi_band_blender_feed(MultiBandBlender* blender, const Mat* img, const Matb* mask, Point tl);

/**
 * Collapses the bands into the panorama and frees the record's buffers.
 *
 * blender    a prepared record; the array pointers are left as they were
 * dst        an initialised record, reset to the canvas size before padding, out; or null: nothing is produced
 * elem_size  bytes per sample, 1 or 2; values are clamped and floored; any other leaves zeros
 *
 * A pixel that no image covers keeps what the bands give it, usually 0 or small values from its neighbours. Without
 * memory, and for an empty record, dst has all sizes 0.
 */
PANOVAL_API void multi_band_blender_blend(MultiBandBlender* blender, Mat* dst, int32_t elem_size);

/* ----------------------------------------------------------------------------------------- filters and edges ---- */
/*
 * Filters on plain 8-bit grey buffers of width x height bytes, and the distance transform on containers. Stateless.
 */

/**
 * Fills a square Gaussian kernel whose sum is 1.
 *
 * kernel  size x size doubles, row-major, out; element (i, j) has the offsets y = i - size/2, x = j - size/2
 * size    odd or even; below 1 nothing is written
 * sigma   standard deviation in pixels; 0 makes every element not a number
 */
PANOVAL_API void GetGaussianKernel(double* kernel, int32_t size, double sigma);

/**
 * Smooths an image with the 5 x 5 Gaussian kernel of sigma 1.
 *
 * src            width x height bytes, in
 * width, height  pixels
 * dst            width x height bytes, out; not src
 *
 * Values are floored, also where a sum ends just below a whole number: a flat area of 185 becomes 184, every other
 * level stays. The outermost two rows and columns are copied. Needs no heap.
 */
PANOVAL_API void smooth_image(const uint8_t* src, int32_t width, int32_t height, uint8_t* dst);

/**
 * Differences and their magnitude at every pixel.
 *
 * src            width x height bytes, in; both sizes at least 2
 * dx, dy         width x height differences to the right and downward, out: right minus left neighbour, not halved; on
 *                the border the difference to the one neighbour
 * magnitude      width x height, out: the root of dx * dx + dy * dy, truncated, at most 360
 *
 * A width or height below 1 writes nothing. In an image one pixel wide the right neighbour is the sample that follows
 * in memory, the next row's; a neighbour outside the buffer counts as the pixel itself.
 */
PANOVAL_API void gradient_image(const uint8_t* src, int32_t width, int32_t height, int16_t* dx, int16_t* dy,
                                uint16_t* magnitude);

/**
 * Chamfer distance of every mask pixel to the nearest zero (Borgefors, Distance transformations in digital images,
 * 1986).
 *
 * src      one byte per pixel, rows of width bytes, in
 * scratch  reset to (width + 2) x (height + 2); holds 32-bit integers, distances times 65536 with a frame of
 *          0x1FFFFFFF; stays with the caller
 * dist     width as src, at least height rows, sized by the caller; distances in pixels, out
 * metrics  two floats, in: the cost of a straight step and of a diagonal one
 *
 * The border counts as far away: in a mask without zeros distances grow inward from about 8193. A distance of at most
 * one straight step stays, even where a cheaper diagonal step would improve it. Costs are rounded to 1/65536, and sums
 * wrap at 32 bits. Rows of dist are its own width apart. Without memory for the scratch nothing is written.
 */
PANOVAL_API void distanceTransform_3x3(const Matb* src, Matf* scratch, Matf* dist, const float* metrics);

/**
 * Finds edges (Canny, A computational approach to edge detection, 1986).
 *
 * image        rows x cols bytes, in; at least 3 x 3, smaller ones give no edge and differences of 0
 * rows, cols   height and width: in this order, unlike everywhere else
 * edge         rows x cols bytes, out: 0 = edge, 255 = none; not image. The outermost pixels are never an edge, nor
 *              are the last row and column but one
 * sigma        standard deviation of the smoothing in pixels; 0 smooths everything away: no edge, differences of 0
 * tlow         low threshold as a fraction of the high one, 0 to 1
 * thigh        fraction of the candidate pixels that lie below the high threshold, 0 to 1
 * delta_x_out  null, or receives a new block of rows x cols differences of the smoothed image (90 per grey level); the
 *              caller frees it
 * delta_y_out  the same downward
 *
 * When an intermediate image cannot be allocated, a message goes to standard error and the process ends with exit(1).
 * A sigma of -0.4 or less, not a number, or too large for a kernel of 32-bit length ends it in the same way. Without
 * memory to follow an edge, the edge is left incomplete. Uses 130 KiB of the caller's stack.
 */
PANOVAL_API void canny(const uint8_t* image, int32_t rows, int32_t cols, uint8_t* edge, double sigma, double tlow,
                       double thigh, int16_t** delta_x_out, int16_t** delta_y_out);

/* ------------------------------------------------------------------------------------------------ inpainting ---- */

/**
 * Fills marked pixels inward from their edge by fast marching (Telea, An image inpainting technique based on the fast
 * marching method, 2004).
 *
 * image  3 channels of 8 bit; any other channel count is left unchanged; in and out
 * mask   8 bit, the size of image; the first channel of a pixel counts: nonzero = to be filled; in and out
 * range  radius of the neighbourhood in pixels, 3 to 10 as a rule; below 1 the pixels are filled with 0
 *
 * The marked region grows by one pixel on every side before it is filled. Runs of marked bytes that touch the mask's
 * border are cleared first: of every column from the top and from the bottom, of every row from the left, and of every
 * row its last byte. Row 0 and column 0 of the picture are never filled. A value of 256 is stored as 0: there is no
 * saturation. An empty mask, one that leaves no known pixel around the region, or an exhausted heap leaves the image
 * unchanged. In a mask of another size than image, marks outside the image do not count.
 */
PANOVAL_API void inpaint(Mat* image, Mat* mask, int32_t range);

/* ------------------------------------------------------------------------------------------- shape detection ---- */
/*
 * Histograms and thresholds of 8-bit grey images, and two finders of elliptical targets.
 * find_ellipse finds dark shapes; find_small_ellipse then looks for bright features on a ring around one of them.
 */

/** One found shape. */
typedef struct EllipseRegion {
    double cx;           /**< centre x, pixels */
    double cy;           /**< centre y, pixels */
    double major;        /**< semi-major axis, pixels; find_small_ellipse: the feature's size in samples */
    double minor;        /**< semi-minor axis, pixels, at most major; find_small_ellipse: as major */
    double angle;        /**< of the major axis, radians */
    int32_t pixel_count; /**< interior pixels that carry the outline's label */
    int32_t point_count; /**< elements of points */
    int32_t* points;     /**< outline pixels y * width + x in tracing order; a block of its own, the caller frees it */
    double reserved[2];  /**< 0 */
    double rms;          /**< root mean square residual of the fit: difference of the focal sum, pixels */
} EllipseRegion;

/** A fitted ellipse: x*x + B*x*y + C*y*y + D*x + E*y + F = 0. */
typedef struct OvalFit {
    double coef_a;       /**< 1 */
    double coef_b;       /**< B */
    double coef_c;       /**< C */
    double coef_d;       /**< D */
    double coef_e;       /**< E */
    double coef_f;       /**< F */
    double x0;           /**< centre x */
    double y0;           /**< centre y */
    double semi_major;   /**< semi-major axis */
    double semi_minor;   /**< semi-minor axis, at most semi_major */
    double theta;        /**< orientation of the major axis, radians */
    double rms;          /**< weighted root mean square of the residuals: focal sum minus 2 * semi_major */
    double max_residual; /**< the largest residual, not below 0 */
} OvalFit;

/**
 * Fractions of the pixels at each of the 256 grey levels.
 *
 * pixels         width * height bytes, in
 * width, height  pixels
 * histogram      address of the caller's pointer to 256 doubles, which are written
 *
 * Returns 1. Where width * height is 0 every bin is not a number; where it is negative nothing is counted and every bin
 * is -0.
 */
PANOVAL_API int32_t histogram_count(const uint8_t* pixels, int32_t width, int32_t height, double** histogram);

/**
 * The threshold with the largest variance between the two classes (Otsu, A threshold selection method from gray-level
 * histograms, 1979).
 *
 * bins  256 fractions, in
 *
 * Returns k, 0 to 255: levels 0 to k are one class, the rest the other; the lowest of equals. Returns -1 where no level
 * separates two classes.
 */
PANOVAL_API int32_t find_threshold(const double* bins);

/** find_threshold of the bins that *histogram points to. Despite its name it looks for no valley. */
PANOVAL_API int32_t find_trough(double** histogram);

/**
 * Fits an ellipse by iteratively reweighted least squares on the algebraic residual.
 *
 * count   number of points; 6 at least
 * points  count pairs x, y, in
 * result  out
 *
 * Returns 1. Returns 0 for 5 points or fewer and without memory, with result untouched; and for a conic that is no
 * ellipse or has an infinite coefficient, with the coefficients alone of meaning. A conic that is a circle to the last
 * bit has no angle: theta, both axes and rms are not numbers, and the result is 1. For points on a line the answer of
 * libmath to a singular matrix decides.
 */
PANOVAL_API int32_t oval_fit(int32_t count, const double* points, OvalFit* result);

/**
 * Finds dark, closed, roughly elliptical shapes.
 *
 * image       width x height bytes, in
 * width, height  pixels; below 3 nothing is found
 * regions     receives a new array, in raster order of the outlines' first pixels; the caller frees the points of each
 *             returned record, then the array. May be non-null also when 0 is returned: free it then, too. Records
 *             beyond the returned count must not be used
 * min_pixels  outlines of fewer labelled pixels are ignored
 * max_rms     fits whose rms is not below it are rejected, each with a line "rms=%.2f\n" on standard output
 * divisions   tiles across each dimension for the local threshold; 1 to the smaller side
 *
 * Ignored without a line are outlines within 3 pixels of the border, those ten times longer than wide or more along the
 * axes of the image, and those whose fit fails or has its centre left of or above the image.
 *
 * Returns the number of records; 0 without memory, with *regions null.
 */
PANOVAL_API int32_t find_ellipse(const uint8_t* image, int32_t width, int32_t height, EllipseRegion** regions,
                                 int32_t min_pixels, int32_t max_rms, int32_t divisions);

/**
 * Finds bright features on a ring of twice an ellipse's size.
 *
 * image          width x height bytes, in; the ring is painted into it where it was sampled, 0 = bright, 255 = not; out
 * width, height  pixels
 * ellipse        five doubles, in: centre x and y, A, B, orientation. A and B are the ellipse's full axes, and the ring
 *                has them as semi-axes
 * regions        receives a new array, or null without a result; the caller frees it; the records own no points
 *
 * Sets cx, cy (a pixel on the ring) and major = minor (size in ring samples) of each record; the other fields are 0.
 * The records follow the ring. A run of bright samples counts where it spans more than 0.2 and less than 1.2 radians,
 * as seen from the middle of the image, not of the ellipse; one of more than 0.6 radians gives two records. Bright is
 * what lies above the threshold between the ring's two classes and above 0.6 times the mean inside the ellipse; with B
 * above A that is the mean of the whole image.
 *
 * Where the samples do not separate into two classes, or separate at level 0, the image is left untouched. Ring
 * positions outside the image count as 0 and are not painted; one beside a row that is still an index of the image is
 * a pixel of the next row. A B of 0 or a ring of less than one sample gives nothing.
 *
 * Returns the number of records; 0 without memory, possibly with the ring painted.
 */
PANOVAL_API uint32_t find_small_ellipse(uint8_t* image, int32_t width, int32_t height, const double* ellipse,
                                        EllipseRegion** regions);

#ifdef __cplusplus
}
#endif

#endif /* PANOVAL_H */
