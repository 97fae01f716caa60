// SPDX-License-Identifier: MIT
// Targets by libpanoval_measure, and the board that they form.
#include "cli/base/errors.h"
#include "cli/ellipses/ellipse_measure.h"

#include <algorithm>
#include <cmath>

namespace panoval::cli
{

namespace
{

constexpr std::int32_t kLeastOfBoard = 4; // targets, that panoval_measure_grid takes

class Detection
{
public:
    Detection() = default;
    Detection(const Detection&) = delete;
    Detection& operator=(const Detection&) = delete;
    ~Detection() { panoval_measure_free(&record); }

    PanovalMeasureDetection record = {};
};

Target target_of(const PanovalMeasureTarget& measured)
{
    Target target;
    target.x = measured.ellipse.x;
    target.y = measured.ellipse.y;
    target.semi_major = measured.ellipse.semi_major;
    target.semi_minor = measured.ellipse.semi_minor;
    target.angle = measured.ellipse.angle;
    target.precise = measured;
    return target;
}

// The nearest reason first: what a change of the command line would show, then what the picture lacks.
std::string why_nothing(const PanovalMeasureDetection& detection, const EllipseSettings& settings)
{
    const auto of = [](std::int32_t count, const char* what) { return concat(count, " ", what); };
    const auto outlines = [](std::int32_t count, const char* what) {
        return concat(count, count == 1 ? " outline" : " outlines", ", ", what);
    };
    if (detection.other_polarity > 0)
        return of(detection.other_polarity, settings.polarity == PANOVAL_MEASURE_DARK
                                                ? "found that are bright, not dark: see --polarity"
                                                : "found that are dark, not bright: see --polarity");
    if (detection.below_quality > 0)
        return of(detection.below_quality, "found of less quality than --min-quality");
    if (detection.too_faint > 0)
        return outlines(detection.too_faint, "too faint against the noise");
    if (detection.too_large > 0)
        return outlines(detection.too_large, "too large: more than a third of the picture in radius");
    if (detection.too_small > 0)
        return concat(outlines(detection.too_small, "too small: less than "), PANOVAL_MEASURE_USUAL_RADIUS,
                      " pixels in radius");
    if (detection.not_oval > 0)
        return outlines(detection.not_oval, detection.not_oval == 1 ? "not oval" : "none of them oval");
    return "no closed outline stands out of the noise";
}

Board board_of(const std::string& file, const BoardSize& size, const PanovalMeasureDetection& detection,
               std::vector<Target>& targets)
{
    Board board;
    board.size = size;
    if (detection.count < kLeastOfBoard) {
        board.reason = concat("too few targets; expected ", kLeastOfBoard, " or more");
        return board;
    }
    board.cells.resize(static_cast<std::size_t>(size.rows) * static_cast<std::size_t>(size.columns));
    const std::int32_t code = panoval_measure_grid(detection.targets, detection.count, size.rows, size.columns,
                                                   &board.grid, board.cells.data());
    if (code == PANOVAL_MEASURE_NO_MEMORY)
        fail_memory(file, board.cells.size() * sizeof(PanovalMeasureGridCell));
    board.is_found = code == PANOVAL_MEASURE_OK;
    if (!board.is_found) {
        board.reason = panoval_measure_error_text(code);
        board.cells.clear();
        return board;
    }
    for (std::size_t place = 0; place < board.cells.size(); ++place) {
        const std::int32_t target = board.cells[place].target;
        if (target >= 0)
            targets[static_cast<std::size_t>(target)].board_place = static_cast<std::int32_t>(place);
    }
    return board;
}

} // namespace

Measurement measure_precisely(const std::string& file, const Image& grey, const EllipseSettings& settings)
{
    const PanovalMeasureImage image = {grey.data.get(),
                                       grey.width,
                                       grey.height,
                                       static_cast<std::int64_t>(grey.row_bytes()),
                                       grey.bits == 16 ? PANOVAL_MEASURE_U16 : PANOVAL_MEASURE_U8,
                                       0};
    PanovalMeasureDetectOptions options = {};
    options.polarity = settings.polarity;
    options.min_quality = settings.min_quality > 0 ? settings.min_quality : -1; // 0 would be the default
    Detection detection;
    const std::int32_t code = panoval_measure_detect(&image, &options, &detection.record);
    if (code == PANOVAL_MEASURE_NO_MEMORY)
        fail_memory(file, 8 * grey.pixels());
    if (code != PANOVAL_MEASURE_OK)
        fail_input(file, panoval_measure_error_text(code), "a picture that can be measured");
    Measurement result;
    for (std::int32_t i = 0; i < detection.record.count; ++i)
        result.targets.push_back(target_of(detection.record.targets[i]));
    if (result.targets.empty())
        result.nothing_because = why_nothing(detection.record, settings);
    if (settings.board.has_value())
        result.board = board_of(file, *settings.board, detection.record, result.targets);
    return result;
}

} // namespace panoval::cli
