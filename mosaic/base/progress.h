// SPDX-License-Identifier: MIT
// How far the engine has come, and whether the host wants it to go on.
#pragma once

namespace panoval::mosaic
{

enum class Phase : int { Gains = 0, Seams = 1, Verdict = 2, Blend = 3 };

// May be called from several threads at once.
class Progress
{
public:
    virtual ~Progress() = default;

    // fraction: 0 to 1 of the phase is done. Throws an Error (Failure::Cancelled) where the host has had enough.
    virtual void report(Phase phase, double fraction) = 0;
};

// For those who do not want to know.
class NoProgress : public Progress
{
public:
    void report(Phase, double) override {}
};

} // namespace panoval::mosaic
