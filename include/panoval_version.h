/* SPDX-License-Identifier: MIT */
/**
 * The version of Panoval: of its libraries, its program and its packages.
 *
 * The macros are those of the header that a host was compiled with; panoval_version tells what it runs with. It belongs
 * to libpanoval_mosaic and to libpanoval_measure; libpanoval keeps its exports and has no such function.
 */
#ifndef PANOVAL_VERSION_H
#define PANOVAL_VERSION_H

#include <stdint.h>

#define PANOVAL_VERSION_MAJOR 1
#define PANOVAL_VERSION_MINOR 0
#define PANOVAL_VERSION_PATCH 0

/** major * 10000 + minor * 100 + patch */
#define PANOVAL_VERSION_NUMBER (PANOVAL_VERSION_MAJOR * 10000 + PANOVAL_VERSION_MINOR * 100 + PANOVAL_VERSION_PATCH)

#if defined(__GNUC__) && !defined(_WIN32)
#define PANOVAL_VERSION_API __attribute__((visibility("default")))
#else
#define PANOVAL_VERSION_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Returns PANOVAL_VERSION_NUMBER of the library that was loaded. */
PANOVAL_VERSION_API int32_t panoval_version(void);

#ifdef __cplusplus
}
#endif

#endif /* PANOVAL_VERSION_H */
