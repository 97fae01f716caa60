// SPDX-License-Identifier: MIT
#include "cli/stitch/report_page.h"

#include "cli/base/common_options.h"
#include "cli/base/errors.h"
#include "image/data_uri.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace panoval::cli
{

namespace
{

constexpr std::int32_t kPreviewWidth = 1200; // pixels
constexpr std::size_t kBars = 32;            // differences shown one by one; larger ones share the last bar

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

std::uint32_t sample_8(const Image& image, std::size_t index)
{
    if (image.bits == 8)
        return image.data[index];
    std::uint16_t value = 0;
    std::memcpy(&value, image.data.get() + 2 * index, 2);
    return value >> 8;
}

// Means over squares of pixels, 8 bit, at most kPreviewWidth wide.
Image preview_of(const Image& panorama)
{
    const std::int32_t step = (panorama.width + kPreviewWidth - 1) / kPreviewWidth;
    const std::int32_t width = std::max(1, panorama.width / step);
    const std::int32_t height = std::max(1, panorama.height / step);
    Image preview = make_image(width, height, panorama.channels, 8, "the report");
    const auto channels = static_cast<std::size_t>(panorama.channels);
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x)
            for (std::size_t c = 0; c < channels; ++c) {
                std::uint64_t sum = 0;
                std::uint64_t count = 0;
                for (std::int64_t v = std::int64_t{y} * step;
                     v < std::min<std::int64_t>((y + 1) * step, panorama.height); ++v)
                    for (std::int64_t u = std::int64_t{x} * step;
                         u < std::min<std::int64_t>((x + 1) * step, panorama.width); ++u, ++count)
                        sum += sample_8(panorama, static_cast<std::size_t>(v * panorama.width + u) * channels + c);
                preview.row(y)[static_cast<std::size_t>(x) * channels + c] =
                    static_cast<std::uint8_t>((sum + count / 2) / count);
            }
    return preview;
}

const char* color_of(Verdict verdict)
{
    switch (verdict) {
    case Verdict::Invisible:
        return "#1a7f37";
    case Verdict::Good:
        return "#4d8f1a";
    case Verdict::Fair:
        return "#b58900";
    case Verdict::Poor:
        return "#c4291c";
    case Verdict::NothingShared:
        break;
    }
    return "#777";
}

// Rectangles that meet without a pixel that both pictures cover, as those of uncropped layers do, have no seam.
bool has_seam(const OverlapQuality& quality)
{
    return quality.verdict != Verdict::NothingShared;
}

std::string layout_drawing(const ReportData& data)
{
    const PanoramaPlan& plan = data.plan;
    const double line = std::max(plan.width, plan.height) / 400.0;
    std::string svg = concat("<svg class=\"layout\" viewBox=\"", -line, " ", -line, " ", plan.width + 2 * line, " ",
                             plan.height + 2 * line, "\" role=\"img\" aria-label=\"layout\">\n");
    for (const OverlapQuality& quality : data.overlaps) {
        if (!has_seam(quality))
            continue;
        const Roi& region = quality.overlap.region;
        svg += concat("<rect x=\"", region.x, "\" y=\"", region.y, "\" width=\"", region.width, "\" height=\"",
                      region.height, "\" fill=\"", color_of(quality.verdict), "\" fill-opacity=\"0.45\"/>\n");
    }
    for (std::size_t i = 0; i < plan.layers.size(); ++i) {
        const PlacedLayer& layer = plan.layers[i];
        svg += concat("<rect x=\"", layer.corner.x, "\" y=\"", layer.corner.y, "\" width=\"", layer.info.width,
                      "\" height=\"", layer.info.height, "\" fill=\"none\" stroke=\"#234\" stroke-width=\"", line,
                      "\"/>\n<text x=\"", layer.corner.x + layer.info.width / 2, "\" y=\"",
                      layer.corner.y + layer.info.height / 2, "\" font-size=\"", 12 * line,
                      "\" text-anchor=\"middle\">", i + 1, "</text>\n");
    }
    return svg + "</svg>\n";
}

// Bars of the shares at each difference, after beside before. The last bar is cut off where it would leave the others
// flat.
std::string distribution_drawing(const OverlapQuality& quality)
{
    std::array<double, kBars> before = {};
    std::array<double, kBars> after = {};
    for (std::size_t d = 0; d < 256; ++d) {
        before[std::min(d, kBars - 1)] += quality.before.distribution[d];
        after[std::min(d, kBars - 1)] += quality.after.distribution[d];
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
    for (std::size_t i = 0; i < data.plan.layers.size(); ++i) {
        const PlacedLayer& layer = data.plan.layers[i];
        rows += concat("<tr><td>", i + 1, "</td><td>", escaped(layer.name()), "</td><td>", layer.position.x, ", ",
                       layer.position.y, "</td><td>", layer.info.width, " x ", layer.info.height, "</td><td>",
                       fixed(data.gains[i], 4), "</td></tr>\n");
    }
    return rows;
}

std::string difference_cells(const Differences& differences)
{
    return concat("<td>", fixed(differences.mean, 2), "</td><td>", differences.median, "</td><td>",
                  differences.percentile_95, "</td>");
}

std::string overlap_rows(const ReportData& data)
{
    std::string rows;
    for (const OverlapQuality& quality : data.overlaps) {
        if (!has_seam(quality))
            continue;
        rows +=
            concat("<tr><td>", quality.overlap.first + 1, " and ", quality.overlap.second + 1, "</td><td>",
                   quality.shared_pixels, "</td>", difference_cells(quality.before), difference_cells(quality.after),
                   "<td>", distribution_drawing(quality), "</td><td><b style=\"color:", color_of(quality.verdict),
                   "\">", name_of(quality.verdict), "</b><br>", escaped(quality.explanation), "</td></tr>\n");
    }
    return rows;
}

std::string sentence_about_others(const ReportData& data)
{
    const auto others = data.overlaps.size() -
                        static_cast<std::size_t>(std::count_if(data.overlaps.begin(), data.overlaps.end(), has_seam));
    if (others == 0)
        return "";
    return concat("<p>", others, others == 1 ? " pair of rectangles meets" : " pairs of rectangles meet",
                  " without a pixel that both pictures cover.</p>\n");
}

std::string summary_of(const ReportData& data)
{
    if (std::none_of(data.overlaps.begin(), data.overlaps.end(), has_seam))
        return "No two pictures overlap: there is no seam to judge.";
    if (const auto suspect = find_suspect(data.plan, data.overlaps))
        return *suspect;
    const bool has_fair = std::any_of(data.overlaps.begin(), data.overlaps.end(),
                                      [](const OverlapQuality& quality) { return quality.verdict == Verdict::Fair; });
    return has_fair ? "No overlap is poor, but some are only fair: look at them." : "All overlaps agree well.";
}

const char* const kStyle =
    "body{font:15px/1.45 system-ui,sans-serif;margin:2em auto;max-width:1240px;padding:0 1em;color:#1c2330}"
    "img{max-width:100%;border:1px solid #ccc}table{border-collapse:collapse;margin:1em 0}"
    "th,td{border-bottom:1px solid #ddd;padding:.35em .7em;text-align:left;vertical-align:top}"
    ".layout{width:100%;max-height:420px}.bars{width:192px;height:50px}"
    ".summary{font-size:1.15em;padding:.6em .9em;background:#eef3f8;border-left:4px solid #2a6fb0}"
    ".before{color:#8a7238}.after{color:#2a6fb0}";

} // namespace

std::string report_page(const ReportData& data)
{
    const PanoramaPlan& plan = data.plan;
    std::string page = concat("<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>Panorama ",
                              escaped(data.output), "</title><style>", kStyle, "</style></head><body>\n");
    page += concat("<h1>", escaped(data.output), "</h1>\n<p>", plan.width, " x ", plan.height, " pixels of ",
                   plan.layers.size(), plan.layers.size() == 1 ? " picture, " : " pictures, ", escaped(data.blend),
                   "</p>\n<p class=\"summary\" id=\"summary\">", escaped(summary_of(data)), "</p>\n");
    page += concat("<p><img id=\"panorama\" alt=\"the panorama\" src=\"", picture_data_uri(preview_of(data.panorama)),
                   "\"></p>\n");
    page += concat("<h2>Layout</h2>\n<p>Overlaps are coloured by their verdict.</p>\n", layout_drawing(data));
    page += concat("<h2>Pictures</h2>\n<table id=\"pictures\"><tr><th>number</th><th>picture</th><th>x, y</th>"
                   "<th>size</th><th>gain</th></tr>\n",
                   picture_rows(data), "</table>\n");
    page += "<h2>Overlaps</h2>\n<p>Absolute differences in grey levels of 255, where both pictures are covered, "
            "<span class=\"before\">before</span> and <span class=\"after\">after</span> the gains. The bars show how "
            "often each difference from 0 to 30 occurs; the last one stands for all larger ones and may be cut "
            "off.</p>\n";
    page +=
        concat("<table id=\"overlaps\"><tr><th>pictures</th><th>shared pixels</th><th class=\"before\">mean</th>"
               "<th class=\"before\">median</th><th class=\"before\">95 %</th><th class=\"after\">mean</th>"
               "<th class=\"after\">median</th><th class=\"after\">95 %</th><th>distribution</th><th>seam</th></tr>\n",
               overlap_rows(data), "</table>\n", sentence_about_others(data), "</body></html>\n");
    return page;
}

} // namespace panoval::cli
