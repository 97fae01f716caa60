/* SPDX-License-Identifier: MIT */
/**
 * Panoval's panorama engine: pictures whose places are known become one picture without visible seams, of any size,
 * within a fixed memory.
 *
 * One header for the whole library, plain C99. The families stand in the order in which a host meets them:
 *
 *   the mosaic          panoval_mosaic_create, _destroy, _error, panoval_mosaic_version
 *   what it is made of  panoval_mosaic_set_options, _set_host, _add_picture
 *   the plan            panoval_mosaic_layout, _picture, _overlap, _estimate, _needs, _reach, _save_plan,
 *                       _load_plan
 *   measuring           panoval_mosaic_measure, _gains, _set_gains, _statistics, _set_statistics, _seam_row,
 *                       _set_seam_rows, _verdict
 *   pixels              panoval_mosaic_tile, _blend, _run, _counts
 *
 * A short run: create; set_host; add_picture for each picture; measure everything; run with a sink; destroy. A long one
 * on many machines: one process measures and saves the plan, others load it and blend a tile each.
 *
 * What holds for every routine:
 *
 * - The engine knows no file format. Pixels come through a callback of the host and leave through one.
 * - A routine that can fail returns a PanovalMosaicCode: 0, or a positive number. panoval_mosaic_error then has a
 *   sentence that names the thing, its value and what was expected.
 * - Every argument is checked. Records are as good as zeroed where a field is to have its default; their `reserved`
 *   fields must be zero.
 * - Samples are row-major with channels interleaved, 8 bit, or 16 bit in the machine's order. x grows to the right,
 *   y downward. Strides are in bytes. A mask has one byte a pixel: 0 = not covered.
 * - Canvas coordinates: (0, 0) is the canvas's top-left corner. Picture coordinates: that of the picture's.
 * - Results are the same to the last bit for any number of threads, any tile, any order of tiles, any budget of memory,
 *   and on every processor and system.
 * - One mosaic must not be used from two threads at once, but for panoval_mosaic_blend, _tile, _counts and _error,
 * which may be called from several as soon as panoval_mosaic_measure has returned.
 * - Callbacks may be called from any thread, also from several at once, though never twice at once for one picture; the
 *   progress is never reported twice at once, and the sink never called twice at once. None of them may call back into
 *   the mosaic.
 */
#ifndef PANOVAL_MOSAIC_H
#define PANOVAL_MOSAIC_H

#include "panoval_version.h"

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32) && !defined(PANOVAL_STATIC)
#define PANOVAL_MOSAIC_API __declspec(dllimport)
#elif defined(__GNUC__)
#define PANOVAL_MOSAIC_API __attribute__((visibility("default")))
#else
#define PANOVAL_MOSAIC_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------------------------------ the mosaic ---- */
/*
 * create once, destroy once. Everything else happens in between.
 */

/** The version of this header; panoval_mosaic_version has that of the library. */
#define PANOVAL_MOSAIC_VERSION_MAJOR PANOVAL_VERSION_MAJOR
#define PANOVAL_MOSAIC_VERSION_MINOR PANOVAL_VERSION_MINOR
#define PANOVAL_MOSAIC_VERSION_PATCH PANOVAL_VERSION_PATCH

#define PANOVAL_MOSAIC_LONGEST_SIDE INT64_C(2147483647) /**< of a canvas, in pixels */
#define PANOVAL_MOSAIC_MOST_BANDS 30                    /**< of multi-band blending */
#define PANOVAL_MOSAIC_FARTHEST (INT64_C(1) << 40)      /**< a picture's corner from 0, in pixels */
#define PANOVAL_MOSAIC_MOST_CHOSEN_BANDS 7              /**< where a host asks for no number of them */
#define PANOVAL_MOSAIC_STRUCTURES_PER_OVERLAP 8 /**< of the coarsest band that is chosen, one is 2^bands pixels */
#define PANOVAL_MOSAIC_LARGEST_GAIN 1e6         /**< and its inverse is the smallest */
#define PANOVAL_MOSAIC_LARGEST_FALLOFF 1e6      /**< of each number, whatever its sign */
#define PANOVAL_MOSAIC_SMALLEST_TILE 16         /**< width and height of tiles, in pixels */
#define PANOVAL_MOSAIC_MOST_THREADS 1024
#define PANOVAL_MOSAIC_DEFAULT_MEMORY (UINT64_C(512) << 20) /**< the budget of a host that sets none, in bytes */
#define PANOVAL_MOSAIC_LEAST_MEMORY (UINT64_C(1) << 20)     /**< the least budget that a host may set, in bytes */

/** What a routine returns. */
typedef enum PanovalMosaicCode {
    PANOVAL_MOSAIC_OK = 0,
    PANOVAL_MOSAIC_ARGUMENT = 1,  /**< an argument, or a call out of order */
    PANOVAL_MOSAIC_PICTURE = 2,   /**< the host could not give a picture's rows */
    PANOVAL_MOSAIC_MEMORY = 3,    /**< the heap is exhausted, or the budget is too small: the text names the least */
    PANOVAL_MOSAIC_CANCELLED = 4, /**< the host's progress callback asked for it */
    PANOVAL_MOSAIC_PLAN = 5,      /**< a stored plan that does not parse, or that another version wrote */
    PANOVAL_MOSAIC_SINK = 6,      /**< the host's sink could not take pixels */
    PANOVAL_MOSAIC_INTERNAL = 7   /**< a defect of the engine */
} PanovalMosaicCode;

/** A panorama in the making. */
typedef struct PanovalMosaic PanovalMosaic;

/**
 * The version that the library was built as, which may differ from the header's.
 *
 * Returns major * 10000 + minor * 100 + patch.
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_version(void);

/**
 * Makes an empty mosaic.
 *
 * mosaic  out: the mosaic, to be passed to panoval_mosaic_destroy; null where the heap is exhausted
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_create(PanovalMosaic** mosaic);

/**
 * Frees a mosaic and all that came from it.
 *
 * mosaic  may be null
 */
PANOVAL_MOSAIC_API void panoval_mosaic_destroy(PanovalMosaic* mosaic);

/**
 * The text of the last failure of this mosaic, in any thread: one sentence in UTF-8, empty where nothing failed.
 *
 * mosaic  may be null: the text is empty then
 * text    out, size bytes: the text, cut off where it is longer, with a zero at its end; null where size is 0
 * size    in bytes
 *
 * Returns the length of the whole text without its zero.
 */
PANOVAL_MOSAIC_API size_t panoval_mosaic_error(const PanovalMosaic* mosaic, char* text, size_t size);

/* -------------------------------------------------------------------------------------- what it is made of ---- */
/*
 * set_options (not needed where all defaults will do), set_host, add_picture for each picture in their order. The first
 * call of another family fixes the pictures; later on only threads and memory of the options may change.
 */

/** How pictures flow into each other. */
typedef enum PanovalMosaicBlend {
    PANOVAL_MOSAIC_MULTIBAND = 0, /**< coarse structures over a wide zone, fine ones over a narrow one */
    PANOVAL_MOSAIC_FEATHER =
        1 /**< weights that grow from the edges inward; there are no seams then, whatever the options say */
} PanovalMosaicBlend;

/** Where pictures meet. */
typedef enum PanovalMosaicSeams {
    PANOVAL_MOSAIC_SEAMS_OPTIMAL = 0, /**< where they differ least */
    PANOVAL_MOSAIC_SEAMS_NEAREST = 1, /**< in the middle of overlaps */
    PANOVAL_MOSAIC_SEAMS_NONE = 2     /**< nowhere: whole masks go into libpanoval's blenders */
} PanovalMosaicSeams;

/** How brightness is made even. */
typedef enum PanovalMosaicGains {
    PANOVAL_MOSAIC_GAINS_AUTOMATIC = 0, /**< a gain a picture; one a channel where the white balance differs clearly */
    PANOVAL_MOSAIC_GAINS_PER_PICTURE = 1, /**< one gain for all channels of a picture */
    PANOVAL_MOSAIC_GAINS_PER_CHANNEL = 2, /**< one gain for each channel */
    PANOVAL_MOSAIC_GAINS_OFF = 3          /**< samples stay as they are */
} PanovalMosaicGains;

/** What the engine is to do. A record of zeros has all defaults. */
typedef struct PanovalMosaicOptions {
    uint64_t memory;      /**< bytes for pictures, tiles and output together; 0 = 512 MiB */
    int64_t wrap;         /**< width of the canvas in pixels where its edges meet, with seams alone; 0 = they do not */
    int32_t threads;      /**< at most so many; 0 = one for each processor */
    int32_t bands;        /**< of multi-band blending, 1 to 30, an upper limit; 0 = chosen from the overlaps */
    int32_t blend;        /**< a PanovalMosaicBlend */
    int32_t seams;        /**< a PanovalMosaicSeams */
    int32_t gains;        /**< a PanovalMosaicGains */
    int32_t vignetting;   /**< 1 = one falloff of the lens is estimated and taken out of all pictures; 0 = none */
    int32_t anchor;       /**< number of the picture whose exposure stays, counted from 1; 0 = none in particular */
    int32_t tile_size;    /**< width and height of tiles in pixels, 16 or more; 0 = chosen from the memory */
    int32_t output_bits;  /**< of each sample of the panorama, 8 or 16; 0 = as the pictures have */
    int32_t reserved[11]; /**< zero */
} PanovalMosaicOptions;

/** One picture. */
typedef struct PanovalMosaicPicture {
    int64_t x;             /**< its top-left corner in the host's frame, which the canvas is cut from; +-2^40 at most */
    int64_t y;             /**< its top-left corner in the host's frame, which the canvas is cut from; +-2^40 at most */
    int32_t width;         /**< in pixels, 1 or more */
    int32_t height;        /**< in pixels, 1 or more */
    int32_t channels;      /**< 1, 3 or 4, the same for all pictures; a fourth one is blended like the others */
    int32_t bits;          /**< of each sample, 8 or 16, the same for all pictures */
    int32_t has_mask;      /**< 1 = rows come with a mask; 0 = covered everywhere */
    int32_t has_keep;      /**< 1 = rows come with a second mask: what is not 0 in it belongs to this picture */
    int32_t random_access; /**< 1 = any rows at any time; 0 = only from the first row on, one after the other */
    int32_t reserved[5];   /**< zero */
    const char* name;      /**< UTF-8, for messages, copied; null or empty = "picture N" */
} PanovalMosaicPicture;

/** Room for the text that a callback may leave, its zero included. */
#define PANOVAL_MOSAIC_MESSAGE_SIZE 512

/** Rows of a picture that the host is to give. */
typedef struct PanovalMosaicRows {
    int32_t picture;       /**< number of the picture, from 0, in the order in which they were added */
    int32_t first_row;     /**< in the picture */
    int32_t row_count;     /**< 1 or more */
    int32_t reserved;      /**< zero */
    void* samples;         /**< out: rows of the picture's full width */
    size_t samples_stride; /**< bytes from row to row of samples */
    uint8_t* mask;         /**< out: null unless the picture has a mask */
    size_t mask_stride;    /**< bytes from row to row of mask */
    uint8_t* keep;         /**< out: null unless the picture has a keep mask */
    size_t keep_stride;    /**< bytes from row to row of keep */
    char* message;         /**< out: PANOVAL_MOSAIC_MESSAGE_SIZE bytes for why it failed, empty on entry */
} PanovalMosaicRows;

/** What goes on, for the progress callback. Gains, seams and verdict are measured, then tiles are blended. */
typedef enum PanovalMosaicPhase {
    PANOVAL_MOSAIC_PHASE_GAINS = 0,
    PANOVAL_MOSAIC_PHASE_SEAMS = 1,
    PANOVAL_MOSAIC_PHASE_VERDICT = 2,
    PANOVAL_MOSAIC_PHASE_BLEND = 3
} PanovalMosaicPhase;

/** What the host does for the engine. */
typedef struct PanovalMosaicHost {
    void* user; /**< passed to each callback */

    /** Gives rows. Returns 0, or anything else where it cannot, with a text in rows->message if it likes. Of a picture
     *  without random access ascending rows are asked for, from 0 without a gap; where they are needed again, later on
     *  or after a failure, from 0 anew. */
    int32_t (*read_rows)(void* user, const PanovalMosaicRows* rows);

    /** The engine will not ask for this picture for a while: its file may be closed. May be null. */
    void (*release_picture)(void* user, int32_t picture);

    /** Says how far a phase has come, 0 to 1. Anything but 0 cancels the call that goes on. May be null. */
    int32_t (*progress)(void* user, int32_t phase, double fraction);
} PanovalMosaicHost;

/**
 * Sets what the engine is to do.
 *
 * mosaic   in and out
 * options  copied
 *
 * May be called several times; the last one counts. After the pictures are fixed, threads and memory are taken from the
 * record and the rest is left as it was.
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_set_options(PanovalMosaic* mosaic, const PanovalMosaicOptions* options);

/**
 * Sets who gives the pixels.
 *
 * mosaic  in and out
 * host    copied; its user pointer and functions must last as long as the mosaic
 *
 * Needed before anything is measured or blended, not for a plan without pixels.
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_set_host(PanovalMosaic* mosaic, const PanovalMosaicHost* host);

/**
 * Adds a picture behind those that there are. Its number is the count of those.
 *
 * mosaic   in and out
 * picture  copied
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_add_picture(PanovalMosaic* mosaic, const PanovalMosaicPicture* picture);

/* -------------------------------------------------------------------------------------------------- the plan ---- */
/*
 * Everything that is known without pixels. The first of these calls fixes the pictures: no more can be added.
 */

/** A rectangle: columns x to x + width - 1, rows y to y + height - 1. */
typedef struct PanovalMosaicRect {
    int64_t x;      /**< leftmost column */
    int64_t y;      /**< topmost row */
    int64_t width;  /**< columns */
    int64_t height; /**< rows */
} PanovalMosaicRect;

/** The panorama and the tiles that it is made in. Tiles stand row by row; those at the right and the bottom may be
 *  smaller. */
typedef struct PanovalMosaicLayout {
    int64_t width;        /**< of the canvas in pixels, each at most 2^31 - 1 */
    int64_t height;       /**< of the canvas in pixels, each at most 2^31 - 1 */
    int64_t origin_x;     /**< of the canvas in the host's frame */
    int64_t origin_y;     /**< of the canvas in the host's frame */
    int64_t pictures;     /**< how many */
    int64_t overlaps;     /**< pairs of pictures whose rectangles share pixels */
    int64_t tiles;        /**< tile_columns * tile_rows */
    int64_t tile_columns; /**< the grid */
    int64_t tile_rows;    /**< the grid */
    int64_t tile_width;   /**< of a whole tile in pixels */
    int64_t tile_height;  /**< of a whole tile in pixels */
    int32_t channels;     /**< of the panorama, as of the pictures */
    int32_t bits;         /**< of each sample of the panorama */
    int32_t bands;        /**< of multi-band blending, at most; 0 with feather */
    int32_t wraps;        /**< 1 = left and right edge meet */
} PanovalMosaicLayout;

/** Two pictures whose rectangles share pixels. first < second. */
typedef struct PanovalMosaicOverlap {
    int64_t first;            /**< numbers of the pictures */
    int64_t second;           /**< numbers of the pictures */
    PanovalMosaicRect region; /**< on the canvas; beyond its right edge where they meet round the horizon */
    int64_t first_x;          /**< the region's corner in the first picture */
    int64_t first_y;          /**< the region's corner in the first picture */
    int64_t second_x;         /**< the region's corner in the second picture */
    int64_t second_y;         /**< the region's corner in the second picture */
} PanovalMosaicOverlap;

/** What a run is going to take. */
typedef struct PanovalMosaicEstimate {
    uint64_t memory;         /**< most bytes that the engine holds at once, never beyond the budget */
    uint64_t least_memory;   /**< the least budget with which the run is possible */
    uint64_t scratch_file;   /**< bytes of a temporary file that keeps decoded pictures */
    uint64_t picture_bytes;  /**< of all pictures' samples and masks as they are asked for */
    uint64_t panorama_bytes; /**< of the panorama's samples */
    double decodes;          /**< how often each picture is asked for, on average */
    double seconds;          /**< of one processor, at 35 million pixels of the canvas a second, 40 without seams;
                                  the host's own time, e.g. for decoding, comes on top */
    int32_t threads;         /**< that the budget feeds */
    int32_t reserved;        /**< zero */
} PanovalMosaicEstimate;

/**
 * Tells size, tiles and bands of the panorama.
 *
 * mosaic  with one picture at least
 * layout  out
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_layout(PanovalMosaic* mosaic, PanovalMosaicLayout* layout);

/**
 * Tells what was said about a picture, e.g. of one that came with a plan.
 *
 * mosaic   in
 * index    number of the picture
 * picture  out; its name is the mosaic's and lasts until the mosaic is destroyed or loads a plan
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_picture(PanovalMosaic* mosaic, int64_t index, PanovalMosaicPicture* picture);

/**
 * Tells which pictures meet where. Overlaps are sorted by first, then by second.
 *
 * mosaic   in
 * index    0 to overlaps - 1 of the layout
 * overlap  out
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_overlap(PanovalMosaic* mosaic, int64_t index, PanovalMosaicOverlap* overlap);

/**
 * Estimates memory, reads and time. Reads no pixels.
 *
 * mosaic    in
 * estimate  out
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_estimate(PanovalMosaic* mosaic, PanovalMosaicEstimate* estimate);

/** What a panorama needs at least. */
typedef struct PanovalMosaicNeeds {
    uint64_t least_memory;          /**< the least budget for measuring, and for a run that gives whole rows */
    uint64_t least_memory_of_tiles; /**< the least budget for measuring, and for a run that gives tiles */
    uint64_t seam_memory;           /**< bytes of both for the seams of the whole canvas, a guess, rather too large; 0
                                         where there are none */
    uint64_t reserved;              /**< zero */
} PanovalMosaicNeeds;

/**
 * Tells what a panorama needs at least, also where the budget is too small for anything else. Reads no pixels, and
 * does not fix the pictures.
 *
 * mosaic  with one picture at least
 * needs   out
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_needs(PanovalMosaic* mosaic, PanovalMosaicNeeds* needs);

/**
 * How far beyond a tile pictures and seams may lie that its pixels depend on. Of such a picture they may depend on
 * pixels that lie farther away, too, without seams: colours go on behind masks and beyond edges.
 *
 * bands  as in the layout: 0 with feather, at most PANOVAL_MOSAIC_MOST_BANDS
 *
 * Returns pixels: 5 (2^bands - 1).
 */
PANOVAL_MOSAIC_API int64_t panoval_mosaic_reach(int32_t bands);

/**
 * Gives the plan as JSON text: options, pictures, tiles, and what has been measured or set so far:
 * statistics, gains and seams.
 *
 * mosaic  in
 * text    out: UTF-8 with a zero at its end; the mosaic's, until the next call of this routine or its end
 * size    out: bytes without the zero; may be null
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_save_plan(PanovalMosaic* mosaic, const char** text, size_t* size);

/**
 * Takes everything from a plan. Threads and memory stay as they are, so does the host.
 *
 * mosaic  without pictures
 * text    what panoval_mosaic_save_plan gave, here or in another process
 * size    in bytes
 *
 * The host then has to give the same pixels for the pictures of these numbers.
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_load_plan(PanovalMosaic* mosaic, const char* text, size_t size);

/* ------------------------------------------------------------------------------------------------- measuring ---- */
/*
 * measure, with everything or a part; then what was measured can be read. What has been set, or came with a plan, is
 * taken as it is. Tiles need gains and seams; the verdict is for people.
 */

/** Parts for panoval_mosaic_measure; to be added up. Each brings along what it needs: the verdict needs seams, seams
 *  need gains. */
typedef enum PanovalMosaicPart {
    PANOVAL_MOSAIC_MEASURE_GAINS = 1,
    PANOVAL_MOSAIC_MEASURE_SEAMS = 2,
    PANOVAL_MOSAIC_MEASURE_VERDICT = 4,
    PANOVAL_MOSAIC_MEASURE_ALL = 7
} PanovalMosaicPart;

/**
 * Measures what is not known yet.
 *
 * mosaic  with a host and one picture at least
 * parts   a sum of PanovalMosaicPart
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_measure(PanovalMosaic* mosaic, int32_t parts);

/**
 * Tells what a picture's samples are multiplied with.
 *
 * mosaic       with known gains
 * index        number of the picture
 * gains        out: 4 numbers, one a channel, 1 for channels that there are not
 * falloff      out: 3 numbers c, the same for all pictures; may be null. At r from the middle of a picture whose
 *              corners are R away, with q = (r/R)^2, samples are divided by 1 + c[0] q + c[1] q^2 + c[2] q^3
 * per_channel  out: 1 where channels of a picture have gains of their own; may be null
 * is_outlier   out: 1 where the picture does not fit the others; its gain is of little worth then. May be null
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_gains(PanovalMosaic* mosaic, int64_t index, double gains[4],
                                                double falloff[3], int32_t* per_channel, int32_t* is_outlier);

/**
 * Sets what samples are multiplied with, in place of measuring. Seams and verdict are to be measured anew, statistics
 * are forgotten.
 *
 * mosaic    with pictures
 * gains     4 numbers a picture, 1e-6 to 1e6
 * pictures  how many, all of them
 * falloff   3 numbers as in panoval_mosaic_gains; null = no falloff
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_set_gains(PanovalMosaic* mosaic, const double* gains, int64_t pictures,
                                                    const double falloff[3]);

/** What an overlap says about its two pictures. */
typedef enum PanovalMosaicSays {
    PANOVAL_MOSAIC_SAYS_NOTHING = 0,     /**< no pixel in common that is neither black nor saturated */
    PANOVAL_MOSAIC_SAYS_AGREE = 1,       /**< both show the same things: the ratios count */
    PANOVAL_MOSAIC_SAYS_DISAGREE = 2,    /**< they do not */
    PANOVAL_MOSAIC_SAYS_FIRST_BLANK = 3, /**< the first one is black or saturated there, the second one is not */
    PANOVAL_MOSAIC_SAYS_SECOND_BLANK = 4 /**< the other way round */
} PanovalMosaicSays;

/** A ratio of brightness, the first picture's to the second's, without gains. */
typedef struct PanovalMosaicRatio {
    double value;     /**< its natural logarithm, -1000 to 1000; 0 where it is not known */
    double error;     /**< standard error of value, 0 to 1000; 0 where it is not known */
    int32_t is_known; /**< 1 = there is one */
    int32_t reserved; /**< zero */
} PanovalMosaicRatio;

/** What gains follow from: one record an overlap. */
typedef struct PanovalMosaicStatistics {
    int64_t pixels;                 /**< that both pictures cover */
    int32_t says;                   /**< a PanovalMosaicSays */
    int32_t reserved;               /**< zero */
    PanovalMosaicRatio channels[4]; /**< of each channel with the falloff taken out; not known of those that there are
                                         not */
    PanovalMosaicRatio all;         /**< the same of all channels together */
    PanovalMosaicRatio seen;        /**< of all channels together with the falloff that is in the pictures: tells which
                                         overlaps contradict the others. As all where there is no falloff */
    double spread;                  /**< of the logarithms of single blocks, standard deviation; to be read alone */
    double correlation;             /**< of the two pictures' blocks, -1 to 1; to be read alone */
    double unevenness; /**< how much the logarithm differs between parts of the overlap; to be read alone */
} PanovalMosaicStatistics;

/**
 * Tells what an overlap says about the brightness of its pictures.
 *
 * mosaic      whose gains were measured, or follow from statistics that were set
 * index       of the overlap, as for panoval_mosaic_overlap
 * statistics  out
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_statistics(PanovalMosaic* mosaic, int64_t index,
                                                     PanovalMosaicStatistics* statistics);

/**
 * Sets what the overlaps say, in place of measuring, and solves for the gains: those that panoval_mosaic_measure has
 * where it finds the same. Seams and verdict are to be measured anew. No pixels are read.
 *
 * mosaic      with pictures; not with PANOVAL_MOSAIC_GAINS_OFF
 * statistics  of each overlap, in their order
 * overlaps    how many, all of them
 * falloff     that was taken out, 3 numbers as in panoval_mosaic_gains; null = none
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_set_statistics(PanovalMosaic* mosaic,
                                                         const PanovalMosaicStatistics* statistics, int64_t overlaps,
                                                         const double falloff[3]);

/**
 * Tells which picture each pixel of a row of the canvas belongs to.
 *
 * mosaic  with known seams; not with PANOVAL_MOSAIC_SEAMS_NONE
 * row     of the canvas
 * labels  out: the canvas's width of picture numbers; -1 where no picture is
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_seam_row(PanovalMosaic* mosaic, int64_t row, int32_t* labels);

/**
 * Sets the next rows of seams, in place of measuring. They count when all rows of the canvas have come.
 *
 * mosaic     with pictures
 * first_row  0 begins anew; else the row behind those that have come
 * rows       how many
 * labels     picture numbers or -1, row by row; a picture may be named only where its rectangle lies
 * stride     bytes from row to row
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_set_seam_rows(PanovalMosaic* mosaic, int64_t first_row, int64_t rows,
                                                        const int32_t* labels, size_t stride);

/**
 * Gives what was found out about the panorama as JSON text.
 *
 * mosaic              whose verdict was measured
 * with_distributions  1 = with 256 shares of differences for each overlap, before and after gains; 0 = without
 * text                out: UTF-8 with a zero at its end; the mosaic's, until the next call of this routine or its end
 * size                out: bytes without the zero; may be null
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_verdict(PanovalMosaic* mosaic, int32_t with_distributions, const char** text,
                                                  size_t* size);

/* ---------------------------------------------------------------------------------------------------- pixels ---- */
/*
 * run for all of it; or blend for a tile, or any other rectangle, in any order and any number of times. Gains and seams
 * that are not known are measured first by run; blend wants them to be known.
 */

/** Who takes the panorama. */
typedef struct PanovalMosaicSink {
    void* user; /**< passed to the callback */

    /** Takes pixels. Returns 0, or anything else where it cannot, which ends the run.
     *
     *  rect             on the canvas: whole rows from the top to the bottom without a gap, or, with by_tiles, the
     *                   tiles in their order
     *  samples          of the panorama's bits and channels
     *  coverage         1 byte a pixel: 255 = covered, 0 = no picture; null unless wants_coverage
     *  message          PANOVAL_MOSAIC_MESSAGE_SIZE bytes for why it failed, empty on entry */
    int32_t (*write)(void* user, const PanovalMosaicRect* rect, const void* samples, size_t samples_stride,
                     const uint8_t* coverage, size_t coverage_stride, char* message);

    int32_t by_tiles;       /**< 1 = a tile at a time; 0 = whole rows */
    int32_t wants_coverage; /**< 1 = with coverage */
    int32_t reserved[6];    /**< zero */
} PanovalMosaicSink;

/** What the mosaic has asked its host for since it was made. */
typedef struct PanovalMosaicCounts {
    uint64_t rows;           /**< of pictures, read by the host */
    double pictures;         /**< the same in whole pictures: the sum over all of rows / height */
    uint64_t scratch_bytes;  /**< written to the temporary file */
    uint64_t largest_memory; /**< most bytes that pictures, tiles and output took together */
} PanovalMosaicCounts;

/**
 * Tells where a tile lies.
 *
 * mosaic  in
 * tile    0 to tiles - 1 of the layout
 * rect    out: on the canvas
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_tile(PanovalMosaic* mosaic, int64_t tile, PanovalMosaicRect* rect);

/**
 * Blends a rectangle of the canvas, a tile or any other.
 *
 * mosaic           with known gains and seams, and a host
 * rect             on the canvas; its size decides how much memory is taken
 * samples          out: rect.width x rect.height pixels of the panorama's bits and channels; 0 where no picture is
 * samples_stride   bytes from row to row
 * coverage         out: 1 byte a pixel, 255 = covered, 0 = no picture; may be null
 * coverage_stride  bytes from row to row
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_blend(PanovalMosaic* mosaic, const PanovalMosaicRect* rect, void* samples,
                                                size_t samples_stride, uint8_t* coverage, size_t coverage_stride);

/**
 * Makes the whole panorama, on all threads that the budget feeds, and gives it to the sink.
 *
 * mosaic  with a host
 * sink    called from one thread at a time
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_run(PanovalMosaic* mosaic, const PanovalMosaicSink* sink);

/**
 * Tells what has been read so far.
 *
 * mosaic  in
 * counts  out
 * Fails where one of them is null, and leaves no sentence then.
 */
PANOVAL_MOSAIC_API int32_t panoval_mosaic_counts(const PanovalMosaic* mosaic, PanovalMosaicCounts* counts);

#ifdef __cplusplus
}
#endif

#endif
