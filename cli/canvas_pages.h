// SPDX-License-Identifier: MIT
// The system's part in a fresh canvas. Clearing its pages takes about as long as blending a picture into them, so a
// second thread has it done a little ahead of the blender.
#pragma once

#include "cli/canvas_strips.h"
#include "cli/panorama_plan.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <thread>

namespace panoval::cli
{

class CanvasPages
{
public:
    // Begins with the buffers of a blender that is open for the strip. It must outlive this object.
    CanvasPages(const PanoramaPlan& plan, const CanvasStrip& strip, const MultiBandBlender& blender);
    CanvasPages(const CanvasPages&) = delete;
    CanvasPages& operator=(const CanvasPages&) = delete;
    ~CanvasPages(); // stops where it is

private:
    static constexpr std::size_t kParts = 32; // of the strip, one after the other

    void provide() const;

    const MultiBandBlender& blender_;
    std::array<bool, kParts> is_wanted_{};
    std::atomic<bool> is_stopped_{false};
    std::thread thread_;
};

// How many columns of the canvas any picture covers somewhere in these rows, the last one excluded.
std::int64_t covered_columns(const PanoramaPlan& plan, std::int64_t first, std::int64_t end);

} // namespace panoval::cli
