// SPDX-License-Identifier: MIT
#include "cli/stitch/report_page.h"

#include "cli/base/common_options.h"
#include "cli/base/errors.h"
#include "cli/stitch/report_layout.h"
#include "cli/stitch/report_seams.h"
#include "cli/stitch/stitch_results.h"
#include "image/data_uri.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace panoval::cli
{

namespace
{

constexpr std::size_t kBars = 32;             // differences shown one by one; larger ones share the last bar
constexpr std::size_t kDrawnOverlaps = 40;    // with bars; the others have numbers
constexpr std::size_t kMostBytes = 2'800'000; // of the page
constexpr std::size_t kMostPreviewBytes = 1'300'000;

std::string escaped(const std::string& text)
{
    std::string result;
    for (const char c : printable(text, 1000)) {
        switch (c) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        default:
            result += c;
        }
    }
    return result;
}

// The worst first.
std::vector<const Json*> overlaps_of(const ReportData& data)
{
    std::vector<const Json*> overlaps;
    if (data.verdict.contains("overlaps"))
        for (const Json& overlap : data.verdict["overlaps"])
            overlaps.push_back(&overlap);
    const auto difference = [](const Json* overlap) { return (*overlap)["after"]["mean"].get<double>(); };
    std::stable_sort(overlaps.begin(), overlaps.end(), [&](const Json* a, const Json* b) {
        return badness(*a) != badness(*b) ? badness(*a) > badness(*b) : difference(a) > difference(b);
    });
    return overlaps;
}

// Half as wide and high.
Image halved(const Image& image)
{
    Image half =
        make_image(std::max(1, image.width / 2), std::max(1, image.height / 2), image.channels, 8, "the report");
    const auto channels = static_cast<std::size_t>(image.channels);
    for (std::int32_t y = 0; y < half.height; ++y)
        for (std::size_t i = 0; i < static_cast<std::size_t>(half.width) * channels; ++i) {
            const std::size_t from = i / channels * 2 * channels + i % channels;
            const std::uint8_t* const upper = image.row(std::min(2 * y, image.height - 1));
            const std::uint8_t* const lower = image.row(std::min(2 * y + 1, image.height - 1));
            const std::size_t next = image.width > 1 ? from + channels : from;
            half.row(y)[i] = static_cast<std::uint8_t>((upper[from] + upper[next] + lower[from] + lower[next] + 2) / 4);
        }
    return half;
}

// Photographs with much detail are shown smaller.
std::string preview_uri(const Image& preview)
{
    std::string uri = picture_data_uri(preview);
    if (uri.size() <= kMostPreviewBytes)
        return uri;
    Image smaller = halved(preview);
    while ((uri = picture_data_uri(smaller)).size() > kMostPreviewBytes)
        smaller = halved(smaller);
    return uri;
}

// Bars of the shares at each difference, after beside before. The last bar is cut off where it would leave the others
// flat.
std::string distribution_drawing(const Json& overlap)
{
    std::array<double, kBars> before = {};
    std::array<double, kBars> after = {};
    for (std::size_t d = 0; d < 256; ++d) {
        before[std::min(d, kBars - 1)] += overlap["before"]["distribution"][d].get<double>();
        after[std::min(d, kBars - 1)] += overlap["after"]["distribution"][d].get<double>();
    }
    const auto highest = [](const auto& shares) { return *std::max_element(shares.begin(), shares.end() - 1); };
    double top = std::max(highest(before), highest(after));
    if (top == 0)
        top = 1;
    std::string svg = "<svg class=\"bars\" viewBox=\"0 0 192 50\" role=\"img\" aria-label=\"distribution\">\n";
    const auto bar = [&](std::size_t d, double share, double offset, const char* color) {
        const double height = 48 * std::min(share / top, 1.0);
        svg += concat("<rect x=\"", fixed(6.0 * static_cast<double>(d) + offset, 1), "\" y=\"", fixed(50 - height, 2),
                      "\" width=\"2.5\" height=\"", fixed(height, 2), "\" fill=\"", color, "\"/>");
    };
    for (std::size_t d = 0; d < kBars; ++d) {
        bar(d, before[d], 0.3, "#b9a06a");
        bar(d, after[d], 2.9, "#2a6fb0");
    }
    return svg + "</svg>";
}

std::string picture_rows(const ReportData& data)
{
    std::string rows;
    for (std::size_t i = 0; i < data.job.plan.layers.size(); ++i) {
        const PlacedLayer& layer = data.job.plan.layers[i];
        rows += concat("<tr><td>", i + 1, "</td><td>", escaped(layer.name()), "</td><td>", layer.position.x, ", ",
                       layer.position.y, "</td><td>", layer.info.width, " x ", layer.info.height, "</td><td>",
                       fixed(data.gains.of_picture(i, data.job.plan.channels), 4), "</td></tr>\n");
    }
    return rows;
}

std::string difference_cells(const Json& differences)
{
    return concat("<td>", fixed(differences["mean"].get<double>(), 2), "</td><td>", differences["median"].get<int>(),
                  "</td><td>", differences["percentile_95"].get<int>(), "</td>");
}

std::string name_of(const ReportData& data, const Json& overlap, const char* which)
{
    const auto number = overlap[which].get<std::size_t>();
    return concat(number + 1, " <small>", escaped(data.job.plan.layers[number].name()), "</small>");
}

std::string overlap_rows(const ReportData& data)
{
    std::string rows;
    std::size_t shown = 0;
    for (const Json* const listed : overlaps_of(data)) {
        const Json& overlap = *listed;
        rows += concat("<tr><td>", name_of(data, overlap, "first"), "<br>", name_of(data, overlap, "second"),
                       "</td><td><b style=\"color:", color_of(overlap), "\">", overlap["verdict"].get<std::string>(),
                       "</b><br>", escaped(overlap["explanation"].get<std::string>()), "</td><td>",
                       overlap["shared_pixels"].get<std::uint64_t>(), "</td>", difference_cells(overlap["before"]),
                       difference_cells(overlap["after"]), "<td>",
                       shown++ < kDrawnOverlaps ? distribution_drawing(overlap) : "", "</td></tr>\n");
    }
    return rows;
}

// Pieces of the pictures where they do not fit, as long as the page has room.
std::string crops_of(const ReportData& data, std::size_t room)
{
    std::string text;
    OverlapCrops crops(data.job, data.gains);
    const auto overlaps = overlaps_of(data);
    const auto all = static_cast<std::size_t>(
        std::find_if(overlaps.begin(), overlaps.end(), [](const Json* overlap) { return badness(*overlap) == 0; }) -
        overlaps.begin());
    std::size_t shown = 0;
    for (; shown < all; ++shown) {
        const Json& overlap = *overlaps[shown];
        std::string figure = concat(
            "<h3>", name_of(data, overlap, "first"), " and ", name_of(data, overlap, "second"),
            ": <span style=\"color:", color_of(overlap), "\">", overlap["verdict"].get<std::string>(),
            "</span></h3>\n<p>", escaped(overlap["explanation"].get<std::string>()), "</p>\n", crops.figure(overlap));
        if (text.size() + figure.size() > room)
            break;
        text += figure;
    }
    if (shown > 0 && shown < all)
        text += concat("<p>", all - shown, " more have no room on this page.</p>\n");
    return text.empty() ? text : concat("<h2>Where to look</h2>\n", text);
}

std::string sentence_about_others(const ReportData& data)
{
    const auto others = data.job.layout.overlaps - static_cast<std::int64_t>(overlaps_of(data).size());
    if (others <= 0)
        return "";
    return concat("<p>", others, others == 1 ? " pair of rectangles meets" : " pairs of rectangles meet",
                  " without a pixel that both pictures cover.</p>\n");
}

std::string summary_of(const ReportData& data)
{
    if (overlaps_of(data).empty())
        return "No two pictures overlap: there is no seam to judge.";
    std::string text = concat("Verdict: ", data.verdict["verdict"].get<std::string>(), ".");
    for (const Json& reason : data.verdict["reasons"])
        text += concat(" ", reason.get<std::string>());
    if (data.verdict["reasons"].empty())
        text += " All overlaps fit, and nothing is left uncovered between them.";
    return text;
}

// As overlaps are coloured, where there is a verdict.
std::string summary_color(const ReportData& data)
{
    if (overlaps_of(data).empty())
        return "";
    return concat(" style=\"border-color:", color_of(data.verdict), "\"");
}

const char* const kStyle =
    "body{font:15px/1.45 system-ui,sans-serif;margin:2em auto;max-width:1240px;padding:0 1em;color:#1c2330}"
    "img{max-width:100%;border:1px solid #ccc}table{border-collapse:collapse;margin:1em 0}"
    "th,td{border-bottom:1px solid #ddd;padding:.35em .7em;text-align:left;vertical-align:top}"
    ".layout{width:100%;max-height:600px}.numbers{paint-order:stroke;stroke:#fff;stroke-width:.15em;stroke-linejoin:"
    "round}"
    ".bars{width:192px;height:50px}"
    ".summary{font-size:1.15em;padding:.6em .9em;background:#eef3f8;border-left:4px solid #2a6fb0}"
    ".before{color:#8a7238}.after{color:#2a6fb0}.wide{overflow-x:auto}"
    ".over{position:relative;width:fit-content}.over img{display:block;border:0}"
    ".over svg{position:absolute;inset:0;width:100%;height:100%;opacity:.7}"
    ".crops{display:flex;flex-wrap:wrap;gap:.6em}.crop{image-rendering:pixelated}"
    "h1,h3,td,.summary{overflow-wrap:anywhere}small{color:#567}";

} // namespace

std::string report_page(const ReportData& data)
{
    const PanoramaPlan& plan = data.job.plan;
    std::string page = concat("<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><meta "
                              "name=\"viewport\" content=\"width=device-width\"><title>Panorama ",
                              escaped(data.job.options.output), "</title><style>", kStyle, "</style></head><body>\n");
    page += concat("<h1>", escaped(data.job.options.output), "</h1>\n<p>", plan.width, " x ", plan.height,
                   " pixels of ", plan.layers.size(), plan.layers.size() == 1 ? " picture, " : " pictures, ",
                   escaped(blend_in_words(data.job)), "</p>\n<p class=\"summary\"", summary_color(data),
                   " id=\"summary\">", escaped(summary_of(data)), "</p>\n");
    page += concat("<p class=\"over\"><img id=\"panorama\" alt=\"the panorama\" src=\"", preview_uri(data.preview),
                   "\"><svg viewBox=\"0 0 ", plan.width, " ", plan.height,
                   "\" preserveAspectRatio=\"none\"><use href=\"#seams\"/></svg></p>\n");
    page +=
        concat("<h2>Layout</h2>\n<p>Overlaps are coloured by their verdict, seams are pink. Where there is no room for "
               "every number, pictures that do not fit have theirs.</p>\n",
               layout_drawing(data.job, overlaps_of(data)));
    std::string tables = concat("<h2>Pictures</h2>\n<div class=\"wide\"><table id=\"pictures\"><tr><th>number</th>"
                                "<th>picture</th><th>x, y</th><th>size</th><th>gain</th></tr>\n",
                                picture_rows(data), "</table></div>\n");
    tables +=
        "<h2>Overlaps</h2>\n<p>The worst first. Absolute differences in grey levels of 255, where both pictures are "
        "covered, <span class=\"before\">before</span> and <span class=\"after\">after</span> the gains. The bars "
        "show how often each difference from 0 to 30 occurs; the last one stands for all larger ones and may be "
        "cut off.</p>\n";
    tables += concat("<div class=\"wide\"><table id=\"overlaps\"><tr><th>pictures</th><th>verdict</th>"
                     "<th>shared pixels</th><th class=\"before\">mean</th><th class=\"before\">median</th>"
                     "<th class=\"before\">95 %</th><th class=\"after\">mean</th><th class=\"after\">median</th>"
                     "<th class=\"after\">95 %</th><th>distribution</th></tr>\n",
                     overlap_rows(data), "</table></div>\n", sentence_about_others(data), "</body></html>\n");
    const std::size_t used = page.size() + tables.size();
    page += crops_of(data, kMostBytes - std::min(kMostBytes, used));
    page += tables;
    return page;
}

} // namespace panoval::cli
