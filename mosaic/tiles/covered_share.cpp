// SPDX-License-Identifier: MIT
#include "mosaic/tiles/covered_share.h"

#include "blend/border.h"
#include "blend/pyramid_rows.h"
#include "mosaic/seams/seam_map.h"

#include <algorithm>
#include <cstddef>

namespace panoval::mosaic
{

namespace
{

bool has_nobody(const LabelRuns& labels, const Rect& part)
{
    for (std::int64_t y = part.y; y < part.bottom(); ++y)
        for (const LabelRun& run : labels.row(y, part.x, part.right()))
            if (run.label == kNobody)
                return true;
    return false;
}

} // namespace

void CoveredShare::reset(const LabelRuns& labels, const TileLevels& levels, const std::vector<Window>& products)
{
    const Rect& frame = levels.frame();
    const auto windows = picture_windows(products, frame.width, frame.height);
    const Rect seen = windows[0].rect().moved(frame.x, frame.y);
    is_whole_ = labels.rect().contains(seen) && !has_nobody(labels, seen);
    if (is_whole_)
        return;
    planes_.resize(windows.size());
    put_finest(labels, frame, windows[0]);
    for (std::size_t i = 1; i < windows.size(); ++i)
        reduce(planes_[i - 1], windows[i].rect(), planes_[i]);
}

void CoveredShare::put_finest(const LabelRuns& labels, const Rect& frame, const Window& window)
{
    Plane<float>& finest = planes_[0];
    finest.reset(window.rect(), 1);
    std::fill(finest.data.begin(), finest.data.end(), 0.0f);
    const Rect inside = intersect(window.rect().moved(frame.x, frame.y), labels.rect());
    for (std::int64_t y = inside.y; y < inside.bottom(); ++y)
        for (const LabelRun& run : labels.row(y, inside.x, inside.right())) {
            const Interval columns = intersect(Interval{run.first, run.end}, {inside.x, inside.right()});
            if (run.label != kNobody)
                std::fill_n(finest.at(columns.first - frame.x, y - frame.y), columns.length(), 1.0f);
        }
}

// Beyond the finer plane, which begins at even pixels and is as wide as the coarser one needs, lies nothing.
void CoveredShare::reduce(const Plane<float>& fine, const Rect& rect, Plane<float>& coarse)
{
    const std::size_t stride = to_size(fine.rect.width / 2) + 4; // whole vectors of four
    across_.assign(stride * to_size(fine.rect.height + 4), 0.0f);
    for (std::int64_t y = 0; y < fine.rect.height; ++y)
        reduce_across(fine.at(fine.rect.x, fine.rect.y + y), static_cast<std::int32_t>(fine.rect.width), 1,
                      kBorderConstant, across_.data() + to_size(y + 2) * stride,
                      static_cast<std::int32_t>(fine.rect.width / 2));
    coarse.reset(rect, 1);
    std::vector<float> row(stride);
    const std::int64_t skipped = rect.x - fine.rect.x / 2;
    for (std::int64_t y = rect.y; y < rect.bottom(); ++y) {
        const float* rows[5];
        for (std::int64_t k = 0; k < 5; ++k)
            rows[k] = across_.data() + to_size(2 * y + k - fine.rect.y) * stride;
        reduce_down(rows, stride / 4 * 4, row.data());
        std::copy_n(row.data() + skipped, rect.width, coarse.at(rect.x, y));
    }
}

void CoveredShare::normalize(int level, std::int64_t y, std::int64_t first, std::int64_t count, int channels,
                             float* samples, float* weights) const
{
    if (is_whole_)
        return;
    const float* const shares = planes_[to_size(level)].at(first, y);
    for (std::int64_t x = 0; x < count; ++x) {
        if (shares[x] == 1.0f)
            continue;
        float* const pixel = samples + x * channels;
        weights[x] = shares[x] > 0 ? weights[x] / shares[x] : 0.0f;
        for (int c = 0; c < channels; ++c)
            pixel[c] = shares[x] > 0 ? pixel[c] / shares[x] : 0.0f;
    }
}

} // namespace panoval::mosaic
