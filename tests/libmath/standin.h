// SPDX-License-Identifier: MIT
// What the stand-in for libmath tells about its calls, and how a test tells it what to answer.
#pragma once

#include <cstdint>

namespace panoval::test
{

enum StandInRoutine { kMatrixInvert, kMatrixSymmetricInvert, kMatrixMult, kPnrml, kSolveLsq, kRoutines };

struct Observation {
    double row[5];
    double value;
    double weight;
};

struct StandInState {
    static constexpr std::int32_t kMaxObservations = 8192;
    static constexpr std::int32_t kMaxAnswers = 64;

    std::int32_t calls[kRoutines];
    Observation observations[kMaxObservations]; // one for each call of pnrml
    std::int32_t answers;                       // scripted calls of solve_lsq; later ones solve
    double answer[kMaxAnswers][5];              // the solutions of the first calls
    std::int32_t result;                        // what solve_lsq returns; 0: its own result
    std::int32_t solution_was_zero;             // whether every call of solve_lsq found its solution cleared
    std::int32_t scratch_was_zero;              // whether every call of matrix_invert found both scratch arrays cleared
    std::int32_t equations_were_zero;           // whether the first observation of each pass found cleared sums
};

} // namespace panoval::test
