// SPDX-License-Identifier: MIT
// Included before everything else where Eigen is used (the build sees to it). Its kernels for 64-bit Arm ask for fused
// multiply-add by name, whatever the compiler is told about contraction; here those names become a product and a sum,
// each rounded. Their panels, too, have another width where multiply-add is one instruction; the plug-in takes that
// mark away again. What is left does the operations of the kernels for SSE2, vectors of two doubles, in their order, so
// that results are those of x86-64 to the last bit. (To leave out Eigen's vector code on every system would make them
// equal, too, but changes sums from 20 unknowns on.)
#pragma once

#if defined(__aarch64__)
#include <arm_neon.h>

#undef __ARM_FEATURE_FMA
#undef vfmaq_n_f64
#undef vfmaq_laneq_f64
#define vfmaq_n_f64(sum, a, b) vaddq_f64((sum), vmulq_n_f64((a), (b)))
#define vfmaq_laneq_f64(sum, a, b, lane) vaddq_f64((sum), vmulq_laneq_f64((a), (b), (lane)))
#define EIGEN_DENSEBASE_PLUGIN "libmath/unfused_eigen_plugin.h"
#endif
