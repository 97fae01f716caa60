// SPDX-License-Identifier: MIT
#include "cli/stitch/report_seams.h"

#include "cli/base/errors.h"
#include "image/data_uri.h"
#include "image/image_read.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace panoval::cli
{

namespace
{

constexpr std::int64_t kDrawn = 600;      // points of a canvas's longer side at which seams are looked for
constexpr std::int64_t kCropWidth = 200;  // pixels
constexpr std::int64_t kCropHeight = 150; //
constexpr std::uint8_t kNothing = 238;    // grey of what a picture does not cover
constexpr double kAmplified = 4;          // differences are shown so many times as large

using Labels = std::vector<std::int32_t>;

Labels read_labels(const PanoramaJob& job, std::int64_t y)
{
    Labels labels(static_cast<std::size_t>(job.layout.width));
    job.mosaic.check(panoval_mosaic_seam_row(job.mosaic.get(), y, labels.data()));
    return labels;
}

bool is_seam(std::int32_t a, std::int32_t b)
{
    return a != b && a >= 0 && b >= 0;
}

// Every `step`th label.
Labels thin_out(const Labels& labels, std::int64_t step)
{
    Labels result;
    for (std::size_t x = 0; x < labels.size(); x += static_cast<std::size_t>(step))
        result.push_back(labels[x]);
    return result;
}

// Lines between points of one row, and between it and the row above.
std::string lines_of(const Labels& row, const Labels& above, std::int64_t y)
{
    std::string path;
    std::size_t begin = 0; // of the points that differ from those above
    const auto end_line = [&](std::size_t x) {
        if (x > begin)
            path += concat("M", begin, " ", y, "h", x - begin);
    };
    for (std::size_t x = 0; x < row.size(); ++x) {
        if (x > 0 && is_seam(row[x - 1], row[x]))
            path += concat("M", x, " ", y, "v1");
        if (above.empty() || !is_seam(above[x], row[x])) {
            end_line(x);
            begin = x + 1;
        }
    }
    end_line(row.size());
    return path;
}

// A piece of the canvas.
struct Piece {
    std::int64_t x = 0;
    std::int64_t y = 0;
    std::int64_t width = 0;
    std::int64_t height = 0;
};

// In the canvas's coordinates.
Piece piece_of(const Json& json, const PanoramaJob& job)
{
    return {json["x"].get<std::int64_t>() - job.plan.origin.x, json["y"].get<std::int64_t>() - job.plan.origin.y,
            json["width"].get<std::int64_t>(), json["height"].get<std::int64_t>()};
}

// As much around the middle of the worst ghost, or of the overlap, as a crop holds; inside the overlap where it is
// large enough.
Piece choose_piece(const Json& overlap, const PanoramaJob& job)
{
    const Piece all = piece_of(overlap, job);
    const Piece middle = overlap["ghosts"].empty() ? all : piece_of(overlap["ghosts"][0], job);
    const auto place = [](std::int64_t centre, std::int64_t size, std::int64_t from, std::int64_t length) {
        const std::int64_t begin = centre - size / 2;
        return length <= size ? from + (length - size) / 2 : std::clamp(begin, from, from + length - size);
    };
    return {place(middle.x + middle.width / 2, kCropWidth, all.x, all.width),
            place(middle.y + middle.height / 2, kCropHeight, all.y, all.height), kCropWidth, kCropHeight};
}

int level_at(const Image& image, std::size_t sample, double gain)
{
    const double value = image::sample_at(image.data.get(), image.bits, sample) /
                         static_cast<double>(image::levels_per_byte(image.bits));
    return static_cast<int>(std::clamp(std::floor(value * gain + 0.5), 0.0, 255.0));
}

// A piece of a picture as 8-bit colours, with its gains; `covered` tells where it has any.
Image cut(const Image& picture, const PlacedLayer& layer, const std::array<double, 4>& gains, const Piece& piece,
          std::int64_t period, std::vector<std::uint8_t>& covered)
{
    Image result =
        make_image(static_cast<std::int32_t>(piece.width), static_cast<std::int32_t>(piece.height), 3, 8, "the report");
    covered.assign(static_cast<std::size_t>(piece.width * piece.height), 0);
    for (std::int64_t y = 0; y < piece.height; ++y)
        for (std::int64_t x = 0; x < piece.width; ++x) {
            std::int64_t u = piece.x + x - layer.corner.x;
            if (period > 0)
                u = (u % period + period) % period;
            const std::int64_t v = piece.y + y - layer.corner.y;
            std::uint8_t* const to = result.row(static_cast<std::int32_t>(y)) + 3 * x;
            std::fill_n(to, 3, kNothing);
            if (u < 0 || v < 0 || u >= picture.width || v >= picture.height)
                continue;
            const auto pixel = static_cast<std::size_t>(v * picture.width + u);
            if (picture.mask != nullptr && picture.mask[pixel] == 0)
                continue;
            covered[static_cast<std::size_t>(y * piece.width + x)] = 1;
            for (std::size_t c = 0; c < 3; ++c) {
                const std::size_t from = picture.channels < 3 ? 0 : c;
                to[c] = static_cast<std::uint8_t>(
                    level_at(picture, pixel * static_cast<std::size_t>(picture.channels) + from, gains[from]));
            }
        }
    return result;
}

Image difference_of(const Image& first, const Image& second, const std::vector<std::uint8_t>& covered)
{
    Image result = make_image(first.width, first.height, 3, 8, "the report");
    for (std::size_t i = 0; i < covered.size(); ++i)
        for (std::size_t c = 0; c < 3; ++c) {
            const int difference = std::abs(int{first.data[3 * i + c]} - int{second.data[3 * i + c]});
            result.data[3 * i + c] =
                covered[i] == 0
                    ? kNothing
                    : static_cast<std::uint8_t>(std::clamp(std::floor(kAmplified * difference), 0.0, 255.0));
        }
    return result;
}

// Red where two neighbouring pixels belong to different pictures.
void draw_seam(const PanoramaJob& job, const Piece& piece, Image& image)
{
    const auto label = [&](const Labels& labels, std::int64_t x) {
        const std::int64_t width = job.layout.width;
        const std::int64_t column = job.layout.wraps != 0 ? (x % width + width) % width : x;
        return column < 0 || column >= width ? -1 : labels[static_cast<std::size_t>(column)];
    };
    Labels above;
    for (std::int64_t y = 0; y < piece.height; ++y) {
        if (piece.y + y < 0 || piece.y + y >= job.layout.height)
            continue;
        Labels row = read_labels(job, piece.y + y);
        for (std::int64_t x = 0; x < piece.width; ++x) {
            const std::int32_t here = label(row, piece.x + x);
            if (!is_seam(label(row, piece.x + x - 1), here) &&
                (above.empty() || !is_seam(label(above, piece.x + x), here)))
                continue;
            std::uint8_t* const to = image.row(static_cast<std::int32_t>(y)) + 3 * x;
            to[0] = 255;
            to[1] = to[2] = 40;
        }
        above = std::move(row);
    }
}

std::string shown(const Image& image, const std::string& caption)
{
    return concat("<div><img class=\"crop\" alt=\"", caption, "\" width=\"", image.width, "\" height=\"", image.height,
                  "\" src=\"", picture_data_uri(image), "\"><br>", caption, "</div>");
}

} // namespace

std::string seam_drawing(const PanoramaJob& job)
{
    if (!job.has_seams())
        return "";
    const std::int64_t step = std::max<std::int64_t>(1, std::max(job.layout.width, job.layout.height) / kDrawn);
    std::string path;
    Labels above;
    for (std::int64_t y = 0; y < job.layout.height; y += step) {
        Labels row = thin_out(read_labels(job, y), step);
        path += lines_of(row, above, y / step);
        above = std::move(row);
    }
    return concat("<path id=\"seams\" class=\"seams\" transform=\"scale(", step,
                  ")\" fill=\"none\" stroke=\"#e0218a\" stroke-width=\"1.5\" d=\"", path, "\"/>\n");
}

const Image& OverlapCrops::load(Loaded& loaded, std::size_t number)
{
    if (loaded.image.data == nullptr || loaded.number != number) {
        const PlacedLayer& layer = job_.plan.layers[number];
        loaded = {number, read_image(layer.file, layer.layer)};
    }
    return loaded.image;
}

std::string OverlapCrops::figure(const Json& overlap)
{
    const auto first = overlap["first"].get<std::size_t>();
    const auto second = overlap["second"].get<std::size_t>();
    const Piece piece = choose_piece(overlap, job_);
    const std::int64_t period = job_.layout.wraps != 0 ? job_.layout.width : 0;
    std::vector<std::uint8_t> in_first;
    std::vector<std::uint8_t> in_second;
    const Image left =
        cut(load(first_, first), job_.plan.layers[first], gains_.pictures[first], piece, period, in_first);
    const Image right =
        cut(load(second_, second), job_.plan.layers[second], gains_.pictures[second], piece, period, in_second);
    for (std::size_t i = 0; i < in_first.size(); ++i)
        in_first[i] &= in_second[i];
    Image difference = difference_of(left, right, in_first);
    if (job_.has_seams())
        draw_seam(job_, piece, difference);
    return concat("<div class=\"crops\">", shown(left, concat("picture ", first + 1)),
                  shown(right, concat("picture ", second + 1)), shown(difference, "difference x 4, seam"), "</div>\n");
}

} // namespace panoval::cli
