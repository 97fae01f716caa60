// SPDX-License-Identifier: MIT
// Numbers are as large as pictures leave room for, within limits. Where some would still cover each other, those of
// pictures that fit give way; the pointer tells them.
#include "cli/stitch/report_layout.h"

#include "cli/base/errors.h"
#include "cli/stitch/report_seams.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace panoval::cli
{

namespace
{

constexpr double kLine = 1.0 / 400;     // of the canvas's longer side: a stroke
constexpr double kLargest = 12 * kLine; // likewise: the height of a number
constexpr double kSmallest = 7 * kLine;
constexpr double kDigit = 0.62; // width of a digit relative to its height

std::string overlap_areas(const PanoramaJob& job, const std::vector<const Json*>& worst_first)
{
    std::string svg;
    for (auto drawn = worst_first.rbegin(); drawn != worst_first.rend(); ++drawn) {
        const Json& overlap = **drawn;
        svg += concat("<rect x=\"", overlap["x"].get<std::int64_t>() - job.plan.origin.x, "\" y=\"",
                      overlap["y"].get<std::int64_t>() - job.plan.origin.y, "\" width=\"",
                      overlap["width"].get<std::int64_t>(), "\" height=\"", overlap["height"].get<std::int64_t>(),
                      "\" fill=\"", color_of(overlap), "\" fill-opacity=\"", badness(overlap) == 0 ? "0.3" : "0.6",
                      "\"/>\n");
    }
    return svg;
}

std::string outlines(const PanoramaPlan& plan, double line)
{
    std::string svg;
    for (std::size_t i = 0; i < plan.layers.size(); ++i) {
        const PlacedLayer& layer = plan.layers[i];
        svg += concat("<rect x=\"", layer.corner.x, "\" y=\"", layer.corner.y, "\" width=\"", layer.info.width,
                      "\" height=\"", layer.info.height,
                      "\" fill=\"none\" pointer-events=\"all\" stroke=\"#234\""
                      " stroke-width=\"",
                      line, "\"><title>", i + 1, "</title></rect>\n");
    }
    return svg;
}

// Pictures that do not fit are numbered first.
std::vector<std::size_t> order_of_numbers(std::size_t pictures, const std::vector<const Json*>& worst_first)
{
    std::vector<std::size_t> order;
    std::vector<char> is_listed(pictures);
    const auto list = [&](std::size_t picture) {
        if (is_listed[picture] == 0)
            order.push_back(picture);
        is_listed[picture] = 1;
    };
    for (const Json* const overlap : worst_first)
        if (badness(*overlap) > 0)
            for (const char* which : {"first", "second"})
                list((*overlap)[which].get<std::size_t>());
    for (std::size_t picture = 0; picture < pictures; ++picture)
        list(picture);
    return order;
}

struct Label {
    double x; // its middle
    double y;
    double width;
    double height;
};

bool cover_each_other(const Label& a, const Label& b)
{
    return 2 * std::fabs(a.x - b.x) < a.width + b.width && 2 * std::fabs(a.y - b.y) < a.height + b.height;
}

double height_of_numbers(const PanoramaPlan& plan, double side)
{
    constexpr double kOfRoom = 0.85;
    const auto pictures = static_cast<double>(plan.layers.size());
    const double room = std::sqrt(static_cast<double>(plan.width) * static_cast<double>(plan.height) / pictures);
    const auto digits = static_cast<double>(std::to_string(plan.layers.size()).size());
    return std::clamp(kOfRoom * room / (kDigit * digits), kSmallest * side, kLargest * side);
}

std::string numbers(const PanoramaPlan& plan, const std::vector<const Json*>& worst_first, double side)
{
    const double height = height_of_numbers(plan, side);
    std::string svg = concat("<g class=\"numbers\" font-size=\"", fixed(height, 2), "\" text-anchor=\"middle\">\n");
    std::vector<Label> shown;
    for (const std::size_t i : order_of_numbers(plan.layers.size(), worst_first)) {
        const PlacedLayer& layer = plan.layers[i];
        const std::string text = std::to_string(i + 1);
        const Label label{layer.corner.x + 0.5 * layer.info.width, layer.corner.y + 0.5 * layer.info.height,
                          kDigit * height * static_cast<double>(text.size()), height};
        if (std::any_of(shown.begin(), shown.end(), [&](const Label& other) { return cover_each_other(label, other); }))
            continue;
        shown.push_back(label);
        svg += concat("<text x=\"", fixed(label.x, 1), "\" y=\"", fixed(label.y + 0.35 * height, 1), "\">", text,
                      "</text>\n");
    }
    return svg + "</g>\n";
}

} // namespace

const char* color_of(const Json& overlap)
{
    const std::string word = overlap["verdict"];
    return word == "good" ? "#1a7f37" : word == "look" ? "#b58900" : "#c4291c";
}

int badness(const Json& overlap)
{
    const std::string word = overlap["verdict"];
    return word == "bad" ? 2 : word == "look" ? 1 : 0;
}

std::string layout_drawing(const PanoramaJob& job, const std::vector<const Json*>& worst_first)
{
    const PanoramaPlan& plan = job.plan;
    const auto side = static_cast<double>(std::max(plan.width, plan.height));
    const double line = kLine * side;
    return concat("<svg class=\"layout\" viewBox=\"", -line, " ", -line, " ", plan.width + 2 * line, " ",
                  plan.height + 2 * line, "\" role=\"img\" aria-label=\"layout\">\n", overlap_areas(job, worst_first),
                  seam_drawing(job), outlines(plan, line), numbers(plan, worst_first, side), "</svg>\n");
}

} // namespace panoval::cli
