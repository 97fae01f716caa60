// SPDX-License-Identifier: MIT
// The overlay as an SVG document, whose shapes keep their sub-pixel places at any magnification.
#include "cli/base/common_options.h"
#include "cli/base/errors.h"
#include "cli/ellipses/ellipse_overlay.h"
#include "cli/ellipses/overlay_marks.h"
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

std::string rotated_ellipse(const char* kind, double x, double y, double a, double b, double angle)
{
    return concat("<ellipse", kind, " cx=\"", fixed(x, 4), "\" cy=\"", fixed(y, 4), "\" rx=\"", fixed(a, 4), "\" ry=\"",
                  fixed(b, 4), "\" transform=\"rotate(", fixed(angle * 180 / std::numbers::pi, 4), " ", fixed(x, 4),
                  " ", fixed(y, 4), ")\"/>\n");
}

std::string title_of(const Target& target, std::size_t number, Method method)
{
    std::string text = concat("target ", number, ": centre ", fixed(target.x, 3), ", ", fixed(target.y, 3),
                              "; semi-axes ", fixed(target.semi_major, 3), ", ", fixed(target.semi_minor, 3));
    if (method == Method::Library)
        return concat(text, "; rms ", fixed(target.rms, 3));
    const PanovalMeasureTarget& p = target.precise;
    return concat(text, "; sigma ", fixed(p.sigma_x, 5), ", ", fixed(p.sigma_y, 5), ", ", fixed(p.sigma_major, 5), ", ",
                  fixed(p.sigma_minor, 5), "; quality ", fixed(p.quality, 2));
}

int font_size(const Image& grey)
{
    return std::max(7, std::min(grey.width, grey.height) / 50);
}

std::string label_element(const Target& target, std::size_t number, const Image& grey)
{
    const std::string text = std::to_string(number);
    const double font = font_size(grey);
    const LabelSize size = {0.6 * font * static_cast<double>(text.size()), 0.75 * font}; // of digits, about
    const LabelPlace place = label_place(target, size, grey.width, grey.height);
    return concat("<text x=\"", fixed(place.x, 1), "\" y=\"", fixed(place.y, 1), "\">", text, "</text>");
}

std::string target_elements(const Target& target, std::size_t number, Method method, double factor, const Image& grey)
{
    const double arm = std::clamp(0.3 * target.semi_minor, 2.0, 8.0);
    std::string text = concat("<g><title>", title_of(target, number, method), "</title>\n");
    text += rotated_ellipse("", target.x, target.y, target.semi_major, target.semi_minor, target.angle);
    text += concat("<path class=\"centre\" d=\"M", fixed(target.x - arm, 3), " ", fixed(target.y, 3), "h",
                   fixed(2 * arm, 3), "M", fixed(target.x, 3), " ", fixed(target.y - arm, 3), "v", fixed(2 * arm, 3),
                   "\"/>\n");
    if (factor > 0) {
        const ErrorEllipse error = error_ellipse(target, factor);
        text += rotated_ellipse(" class=\"error\"", target.x, target.y, error.a, error.b, error.angle);
    }
    for (const RingFeature& feature : target.ring)
        text += concat("<circle class=\"feature\" cx=\"", fixed(feature.x, 2), "\" cy=\"", fixed(feature.y, 2),
                       "\" r=\"3\"/>\n");
    return text + label_element(target, number, grey) + "</g>\n";
}

} // namespace

std::string overlay_svg(const Image& grey, const Measurement& measurement)
{
    // A pixel's centre has whole coordinates in the measurement and half ones in the document.
    std::string text = concat("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"", grey.width, "\" height=\"",
                              grey.height, "\" viewBox=\"0 0 ", grey.width, " ", grey.height, "\">\n");
    text += concat("<style>ellipse{fill:none;stroke:#ff4020;stroke-width:1}.centre{stroke:#00c8ff;stroke-width:1}"
                   ".error{stroke:#ff00ff}.feature{fill:none;stroke:#50ff50;stroke-width:1}text{fill:#ffdc00;stroke:#"
                   "000;stroke-width:2;"
                   "stroke-linejoin:round;paint-order:stroke;font:",
                   font_size(grey), "px sans-serif}</style>\n");
    text += picture_element(grey);
    const double factor = error_factor(measurement);
    text += "<g transform=\"translate(0.5 0.5)\">\n";
    for (std::size_t i = 0; i < measurement.targets.size(); ++i)
        text += target_elements(measurement.targets[i], i + 1, measurement.method, factor, grey);
    if (factor > 0)
        text += concat("<text x=\"3\" y=\"", grey.height - 4, "\" style=\"fill:#ff00ff\">error ellipses (1 sigma) x ",
                       fixed(factor, 0), "</text>\n");
    return text + "</g>\n</svg>\n";
}

} // namespace panoval::cli
