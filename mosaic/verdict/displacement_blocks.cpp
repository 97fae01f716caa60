// SPDX-License-Identifier: MIT
// What each block says in the vote on a displacement. Most blocks fit where they are, which least squares alone shows;
// of the others phase correlation knows where to look.
#include "mosaic/base/parallel.h"
#include "mosaic/base/scratch_pool.h"
#include "mosaic/verdict/block_choice.h"
#include "mosaic/verdict/displacement.h"
#include "mosaic/verdict/phase_correlation.h"

#include "core/elementary.h"
#include "core/numbers.h"

#include <algorithm>
#include <cmath>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kReach = 16;  // of the window whose mean is taken out
constexpr std::int64_t kMargin = 10; // pixels around a block that are read of the second picture
constexpr std::int64_t kNarrow = 40; // sides of blocks on which spectra are too coarse
constexpr double kGoodFit = 0.85;    // correlation that needs no second look
constexpr double kNear = 0.5;        // pixels, likewise

// The slow difference of brightness between the two pictures, as vignetting leaves it, which would look like a
// displacement in scenes that change slowly themselves.
struct Surface {
    const ToneModel& tone;
    const OverlapCells& cells;

    // A patch of the second picture in the frame of the overlap's region.
    void subtract_from(Patch& patch) const
    {
        const double step = 1 / static_cast<double>(cells.step); // a power of two
        const double left = (static_cast<double>(patch.rect.x - cells.overlap.region.x) + 0.5) * step - 0.5;
        const double top = (static_cast<double>(patch.rect.y - cells.overlap.region.y) + 0.5) * step - 0.5;
        subtract_from(patch, left, top, step);
    }

    // Likewise; the first pixel lies at (left, top), in cells.
    void subtract_from(Patch& patch, double left, double top, double step) const
    {
        std::vector<double> row(patch.width());
        for (std::size_t y = 0; y < patch.height(); ++y) {
            tone.surface_row(left, top + static_cast<double>(y) * step, step, row);
            for (std::size_t x = 0, i = y * patch.width(); x < patch.width(); ++x, ++i)
                if (patch.known[i] != 0)
                    patch.value[i] = static_cast<float>(static_cast<double>(patch.value[i]) - row[x]);
        }
    }
};

// A rectangle of the region's frame as prepared brightness, with a margin as far as the picture reaches.
Patch read_patch(const PictureSource& source, const Overlap& overlap, bool is_second, const Rect& rect,
                 std::int64_t margin, const Surface& surface)
{
    const std::size_t picture = is_second ? overlap.second : overlap.first;
    const Rect placed = source.layout.pictures[picture].rect.moved(is_second ? overlap.second_shift_x : 0, 0);
    const Rect in_frame = intersect(rect.grown(margin), placed);
    if (in_frame.is_empty())
        return {};
    Patch patch = read_brightness(source, picture, in_frame.moved(-placed.x, -placed.y));
    patch.rect = in_frame;
    if (is_second)
        surface.subtract_from(patch);
    // Smoothing leaves the outermost pixels of a picture unknown, which lie elsewhere in the other one.
    prepare_patch(patch, kReach, rect.grown(-1));
    return patch;
}

// The patch's values in a rectangle; 0 outside it.
std::vector<float> values_in(const Patch& patch, const Rect& rect)
{
    std::vector<float> values(static_cast<std::size_t>(rect.pixels()));
    const Rect common = intersect(patch.rect, rect);
    for (std::int64_t y = common.y; y < common.bottom(); ++y)
        for (std::int64_t x = common.x; x < common.right(); ++x)
            values[static_cast<std::size_t>((y - rect.y) * rect.width + x - rect.x)] =
                patch.value[static_cast<std::size_t>((y - patch.rect.y) * patch.rect.width + x - patch.rect.x)];
    return values;
}

void take_better(ShiftFit& best, const ShiftFit& other)
{
    // The place where the block lies is believed unless another is clearly better; but not one beside a better place
    // that it was still on its way to.
    constexpr double kClearly = 0.03;
    const double margin = best.stands ? kClearly : 0;
    if (other.is_valid && (!best.is_valid || other.correlation > best.correlation + margin))
        best = other;
}

// Every second place nearby, for blocks too narrow for spectra.
ShiftFit search_nearby(const Patch& first, const Patch& second, double x, double y)
{
    constexpr int kFar = 8;
    ShiftFit best;
    for (int dy = -kFar; dy <= kFar; dy += 2)
        for (int dx = -kFar; dx <= kFar; dx += 2) {
            const ShiftFit fit = compare_at(first, second, x + dx, y + dy);
            if (fit.is_valid && 6 * fit.count >= static_cast<double>(first.rect.pixels()) &&
                (!best.is_valid || fit.correlation > best.correlation))
                best = fit;
        }
    return best.is_valid ? fit_shift(first, second, best.x, best.y) : best;
}

// Without the pixels that are strange at (x, y), in a patch whose pixels lie that far from the first one's.
Patch without_strangers(const Patch& patch, const Patch& first, const Agreement& agreement, int x, int y)
{
    Patch rest = patch;
    const Rect common = intersect(first.rect, patch.rect.moved(-x, -y));
    for (std::int64_t v = common.y; v < common.bottom(); ++v)
        for (std::int64_t u = common.x; u < common.right(); ++u)
            if (agreement
                    .is_strange[static_cast<std::size_t>((v - first.rect.y) * first.rect.width + u - first.rect.x)] !=
                0)
                rest.known[static_cast<std::size_t>((v + y - patch.rect.y) * patch.rect.width + u + x - patch.rect.x)] =
                    0;
    prepare_again(rest, kReach);
    return rest;
}

bool is_far(const ShiftFit& fit, int x, int y)
{
    constexpr double kFar = 8; // pixels
    return std::fabs(fit.x - x) > kFar || std::fabs(fit.y - y) > kFar;
}

// Where most of the area agrees with what lies there, the rest, which moved, is left out.
Agreement look_beside_strangers(const Patch& first, const Patch& second, int x, int y, BlockShift& block)
{
    constexpr double kBelieved = 0.7;  // correlation of the rest
    constexpr double kFewest = 4;      // squares that agree
    constexpr double kOfStrange = 0.6; // as many of those that do not
    const bool moved_far = is_far(block.fit, x, y);
    if (block.fit.is_valid && block.fit.correlation > kGoodFit && !moved_far)
        return {};
    const double noise = std::max(block.noise_first, block.noise_second);
    Agreement agreement = agreement_at(first, second, x, y, noise);
    if (agreement.agreeing >= kFewest && agreement.agreeing > kOfStrange * agreement.strange && agreement.strange > 0) {
        const ShiftFit fit = fit_shift(without_strangers(first, first, agreement, 0, 0),
                                       without_strangers(second, first, agreement, x, y), x, y);
        // What agrees here, by area, is believed rather than a thing of much contrast that agrees with itself far away.
        if (fit.is_valid && fit.correlation > kBelieved && moved_far)
            block.fit = fit;
        else if (fit.is_valid && fit.correlation > kBelieved)
            take_better(block.fit, fit);
    }
    if (block.fit.is_valid)
        agreement = agreement_at(first, second, block.fit.x, block.fit.y, noise);
    block.agreeing = agreement.agreeing;
    block.strange = agreement.strange;
    return agreement;
}

// From where the block lies, and on from where a fit was left on its way, as long as that gets better.
ShiftFit fit_on(const Patch& first, const Patch& second, double x, double y)
{
    constexpr int kMostTimes = 3;
    ShiftFit fit = fit_shift(first, second, x, y);
    for (int k = 0; k < kMostTimes && fit.is_valid && !fit.stands; ++k) {
        const ShiftFit next = fit_shift(first, second, fit.x, fit.y);
        if (!next.is_valid || next.correlation < fit.correlation)
            break;
        fit = next;
    }
    return fit;
}

// The best place, looked for around (x, y); and what does not agree there, as far as anybody looked.
Agreement find_place(const Patch& first, const Patch& second, int x, int y, PhaseScratch& scratch, BlockShift& block)
{
    block.fit = fit_on(first, second, x, y);
    const bool is_near = std::fabs(block.fit.x) < kNear && std::fabs(block.fit.y) < kNear;
    if (block.fit.is_valid && is_near && block.fit.correlation > kGoodFit)
        return {};
    const std::vector<float> here = values_in(first, first.rect);
    const std::vector<float> there = values_in(second, first.rect.moved(x, y));
    const PhaseCorrelation phases = correlate_phases(here, there, first.width(), first.height(), scratch);
    block.chance = std::clamp(phases.chance, 0.01, 1.0);
    block.is_coded = shows_coding(first) || shows_coding(second);
    block.seen_first = seen_beyond_noise(first);
    block.seen_second = seen_beyond_noise(second);
    for (const ShiftCandidate& peak : phases.peaks)
        take_better(block.fit, fit_shift(first, second, x + peak.x, y + peak.y));
    if (std::min(first.rect.width, first.rect.height) < kNarrow)
        take_better(block.fit, search_nearby(first, second, x, y));
    return look_beside_strangers(first, second, x, y, block);
}

// Smoothing carries a thing's edge some pixels farther.
bool is_beside_strangers(const Agreement& agreement, std::size_t i, std::size_t width)
{
    constexpr std::size_t kSmeared = 3;
    const std::vector<std::uint8_t>& strange = agreement.is_strange;
    const std::size_t far = kSmeared * width;
    return !strange.empty() &&
           (strange[i - std::min(i, kSmeared)] | strange[std::min(i + kSmeared, strange.size() - 1)] |
            strange[i - std::min(i, far)] | strange[std::min(i + far, strange.size() - 1)]) != 0;
}

// What is finer than smoothing once more would leave, where both are known.
void measure_detail(const Patch& first, const Patch& second, const Agreement& agreement, BlockShift& block)
{
    if (!block.fit.is_valid)
        return;
    const auto shift_x = static_cast<std::int64_t>(std::floor(block.fit.x + 0.5));
    const auto shift_y = static_cast<std::int64_t>(std::floor(block.fit.y + 0.5));
    const auto detail = [](const Patch& patch, std::size_t i) {
        const std::size_t w = patch.width();
        const float* const v = patch.value.data() + i;
        const auto across = [w, v](std::ptrdiff_t row) {
            const float* const r = v + row * static_cast<std::ptrdiff_t>(w);
            return 0.25f * (r[-1] + r[1]) + 0.5f * r[0];
        };
        return static_cast<double>(v[0] - (0.25f * (across(-1) + across(1)) + 0.5f * across(0)));
    };
    const auto is_inside = [](const Patch& patch, std::size_t i) {
        const std::size_t w = patch.width();
        return (patch.known[i] & patch.known[i - w - 1] & patch.known[i - w + 1] & patch.known[i + w - 1] &
                patch.known[i + w + 1]) != 0;
    };
    const Rect inner_second = second.rect.grown(-1);
    const Rect common = intersect(first.rect.grown(-1), inner_second.moved(-shift_x, -shift_y));
    double count = 0;
    for (std::int64_t y = common.y; y < common.bottom(); ++y)
        for (std::int64_t x = common.x; x < common.right(); ++x) {
            const auto i = static_cast<std::size_t>((y - first.rect.y) * first.rect.width + x - first.rect.x);
            const auto j = static_cast<std::size_t>((y + shift_y - second.rect.y) * second.rect.width + x + shift_x -
                                                    second.rect.x);
            if (is_beside_strangers(agreement, i, first.width()) || !is_inside(first, i) || !is_inside(second, j))
                continue;
            const double a = detail(first, i);
            const double b = detail(second, j);
            block.detail_first += a * a;
            block.detail_second += b * b;
            block.detail_shared += a * b;
            count += 1;
        }
    for (double* value : {&block.detail_first, &block.detail_second, &block.detail_shared})
        *value /= std::max(count, 1.0);
}

BlockShift measure_block(const PictureSource& source, const Surface& surface, const Rect& rect, int x, int y,
                         PhaseScratch& scratch)
{
    BlockShift block;
    block.rect = rect;
    const Overlap& overlap = surface.cells.overlap;
    const Patch first = read_patch(source, overlap, false, rect, 1, surface);
    const Patch second = read_patch(source, overlap, true, rect.moved(x, y), kMargin, surface);
    if (first.rect.is_empty() || second.rect.is_empty())
        return block;
    block.noise_first = kNoiseLeft * first.noise;
    block.noise_second = kNoiseLeft * second.noise;
    const Agreement agreement = find_place(first, second, x, y, scratch, block);
    measure_detail(first, second, agreement, block);
    return block;
}

// All of the overlap, reduced: shows what is too soft for the blocks, and displacements too large for them.
BlockShift measure_cells(const Surface& surface, PhaseScratch& scratch)
{
    const OverlapCells& cells = surface.cells;
    BlockShift block;
    block.rect = cells.overlap.region;
    block.step = static_cast<double>(cells.step);
    Patch first = brightness_of_cells(cells, false);
    Patch second = brightness_of_cells(cells, true);
    surface.subtract_from(second, 0, 0, 1);
    prepare_patch(first, kReach, first.rect);
    prepare_patch(second, kReach, second.rect);
    (void)find_place(first, second, 0, 0, scratch, block);
    return block;
}

// Where it lies, and so exactly that nobody need look elsewhere.
bool fits_clearly(const BlockShift& block)
{
    constexpr double kStill = 0.25; // pixels
    constexpr double kExact = 0.1;  // pixels, a standard deviation
    return is_matched(block) && block.fit.correlation > kGoodFit && std::fabs(block.fit.x) < kStill &&
           std::fabs(block.fit.y) < kStill && block.fit.information.weaker() > 1 / (kExact * kExact);
}

} // namespace

namespace
{

double area_of(const BlockShift& block)
{
    return static_cast<double>(block.rect.pixels()) / (block.step * block.step);
}

} // namespace

double chance_at(const BlockShift& block)
{
    return block.chance * std::sqrt(std::max(1.0, area_of(block) / std::max(block.fit.count, 1.0)));
}

bool is_of_a_part(const BlockShift& block)
{
    return block.step <= 1 && 2 * block.fit.count < area_of(block);
}

bool is_matched(const BlockShift& block)
{
    constexpr double kBeyondChance = 4.5;
    const double agreeing = is_of_a_part(block) ? 1 : 0.5; // relative to what does not: a part may be a chosen one
    // By Fisher's transformation: its deviation is that of small correlations, however large this one is.
    const double shrink = exp(-2 * kBeyondChance * chance_at(block));
    return block.fit.is_valid && block.fit.correlation > std::max(0.1, (1 - shrink) / (1 + shrink)) &&
           block.agreeing >= agreeing * block.strange;
}

std::vector<BlockShift> measure_blocks(const PictureSource& source, const OverlapCells& cells, const ToneModel& tone,
                                       std::size_t threads)
{
    constexpr std::int64_t kSmallestSide = 6; // pixels
    constexpr std::size_t kEnough = 3;        // blocks that fit clearly
    const Rect& region = cells.overlap.region;
    if (std::min(region.width, region.height) < kSmallestSide || cells.shared_pixels == 0)
        return {};
    const Blocks chosen = choose_blocks(cells);
    const Surface surface{tone, cells};
    std::vector<BlockShift> blocks;
    ScratchPool<PhaseScratch> scratch;
    const auto measure_to = [&](std::size_t end) {
        const std::size_t begin = blocks.size();
        blocks.resize(end);
        run_in_parallel(end - begin, threads, [&](std::size_t i) {
            blocks[begin + i] = measure_block(source, surface, chosen.rects[begin + i], 0, 0, *scratch.take());
        });
    };
    measure_to(std::min(chosen.first_half, chosen.rects.size()));
    if (chosen.first_half < chosen.rects.size() && blocks.size() >= kEnough &&
        std::all_of(blocks.begin(), blocks.end(), fits_clearly))
        return blocks;
    measure_to(chosen.rects.size());
    if (cells.step == 1)
        return blocks;
    const BlockShift whole = measure_cells(surface, *scratch.take());
    const double far_x = std::floor(whole.fit.x * whole.step + 0.5);
    const double far_y = std::floor(whole.fit.y * whole.step + 0.5);
    const bool is_far = std::fabs(far_x) + std::fabs(far_y) > 16;
    const auto matched = static_cast<std::size_t>(std::count_if(blocks.begin(), blocks.end(), is_matched));
    if (2 * matched < blocks.size() && is_far && is_matched(whole))
        for (BlockShift& block : blocks)
            if (!is_matched(block)) {
                const BlockShift moved = measure_block(source, surface, block.rect, truncate_to_int(far_x),
                                                       truncate_to_int(far_y), *scratch.take());
                if (is_matched(moved))
                    block = moved;
            }
    blocks.push_back(whole);
    return blocks;
}

} // namespace panoval::mosaic
