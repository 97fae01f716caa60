// SPDX-License-Identifier: MIT
// The overlay as an SVG document, whose shapes keep their sub-pixel places at any magnification.
#include "cli/base/common_options.h"
#include "cli/base/errors.h"
#include "cli/ellipses/ellipse_overlay.h"
#include "image/data_uri.h"

#include <algorithm>
#include <numbers>

namespace panoval::cli
{

namespace
{

std::string picture_element(const Image& grey)
{
    return concat("<image width=\"", grey.width, "\" height=\"", grey.height,
                  "\" style=\"image-rendering:pixelated\" href=\"", picture_data_uri(grey), "\"/>\n");
}

std::string target_elements(const Target& target, std::size_t number)
{
    const double degrees = target.angle * 180 / std::numbers::pi;
    const double arm = std::clamp(0.3 * target.semi_minor, 2.0, 8.0);
    std::string text = concat("<g><title>target ", number, ": centre ", fixed(target.x, 3), ", ", fixed(target.y, 3),
                              "; semi-axes ", fixed(target.semi_major, 3), ", ", fixed(target.semi_minor, 3), "; rms ",
                              fixed(target.rms, 3), "</title>\n");
    text += concat("<ellipse cx=\"", fixed(target.x, 4), "\" cy=\"", fixed(target.y, 4), "\" rx=\"",
                   fixed(target.semi_major, 4), "\" ry=\"", fixed(target.semi_minor, 4), "\" transform=\"rotate(",
                   fixed(degrees, 4), " ", fixed(target.x, 4), " ", fixed(target.y, 4), ")\"/>\n");
    text += concat("<path class=\"centre\" d=\"M", fixed(target.x - arm, 3), " ", fixed(target.y, 3), "h",
                   fixed(2 * arm, 3), "M", fixed(target.x, 3), " ", fixed(target.y - arm, 3), "v", fixed(2 * arm, 3),
                   "\"/>\n");
    for (const RingFeature& feature : target.ring)
        text += concat("<circle class=\"feature\" cx=\"", fixed(feature.x, 2), "\" cy=\"", fixed(feature.y, 2),
                       "\" r=\"3\"/>\n");
    text += concat("<text x=\"", fixed(target.x + 0.75 * target.semi_major + 2, 1), "\" y=\"",
                   fixed(target.y - 0.75 * target.semi_major - 2, 1), "\">", number, "</text></g>\n");
    return text;
}

} // namespace

std::string overlay_svg(const Image& grey, const Measurement& measurement)
{
    const int font = std::max(7, std::min(grey.width, grey.height) / 50);
    // A pixel's centre has whole coordinates in the measurement and half ones in the document.
    std::string text = concat("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"", grey.width, "\" height=\"",
                              grey.height, "\" viewBox=\"0 0 ", grey.width, " ", grey.height, "\">\n");
    text += concat("<style>ellipse{fill:none;stroke:#ff4020;stroke-width:1}.centre{stroke:#00c8ff;stroke-width:1}"
                   ".feature{fill:none;stroke:#50ff50;stroke-width:1}text{fill:#ffdc00;stroke:#000;stroke-width:2;"
                   "stroke-linejoin:round;paint-order:stroke;font:",
                   font, "px sans-serif}</style>\n");
    text += picture_element(grey);
    text += "<g transform=\"translate(0.5 0.5)\">\n";
    for (std::size_t i = 0; i < measurement.targets.size(); ++i)
        text += target_elements(measurement.targets[i], i + 1);
    return text + "</g>\n</svg>\n";
}

} // namespace panoval::cli
