// SPDX-License-Identifier: MIT
// Eigen includes this between its vector operations, which set the mark, and its products, which look at it; see
// unfused_eigen.h. It may be included as often as Eigen likes.
#undef EIGEN_HAS_SINGLE_INSTRUCTION_MADD
