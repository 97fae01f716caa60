// SPDX-License-Identifier: MIT
// Makes two inputs for the demonstration: make_board FOLDER PICTURE
//   FOLDER/board.png    dark discs on a light board, seen from the side, with uneven light, blur and noise
//   FOLDER/damaged.png  the middle of PICTURE with scratches and spots, which are transparent
#include "cli/base/errors.h"
#include "image/image_read.h"
#include "image/image_write.h"
#include "tools/scene_noise.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

namespace
{

using namespace panoval;
using namespace panoval::cli;

constexpr int kWidth = 960;
constexpr int kHeight = 640;
constexpr int kSamples = 8; // in each direction of a pixel

// Grey level of the board at a place of the picture, found by looking back through the perspective.
double board_at(double x, double y)
{
    const double u = (x - 480) / 400;
    const double v = (y - 330) / 400;
    const double depth = 1 - 0.18 * u + 0.12 * v;
    const double column = (1.05 * u + 0.12 * v) / depth * 5.4 + 5;
    const double row = (1.1 * v - 0.10 * u) / depth * 5.4 + 3;
    if (column < -0.8 || column > 10.8 || row < -0.8 || row > 6.8)
        return 92 +
               14 * static_cast<double>(scene::fractal(static_cast<float>(x) / 40, static_cast<float>(y) / 40, 4, 7));
    const double from_centre = std::hypot(column - std::round(column), row - std::round(row));
    const bool is_disc = from_centre < 0.31 && column > -0.5 && column < 10.5 && row > -0.5 && row < 6.5;
    return is_disc ? 38 : 222;
}

// Box-sampled, then blurred with the weights 1 2 1 in both directions.
std::vector<double> render_board()
{
    std::vector<double> sampled(static_cast<std::size_t>(kWidth) * kHeight);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            double sum = 0;
            for (int v = 0; v < kSamples; ++v)
                for (int u = 0; u < kSamples; ++u)
                    sum += board_at(x + (u + 0.5) / kSamples - 0.5, y + (v + 0.5) / kSamples - 0.5);
            sampled[static_cast<std::size_t>(y) * kWidth + static_cast<std::size_t>(x)] = sum / (kSamples * kSamples);
        }
    const auto at = [&](int x, int y) {
        return sampled[static_cast<std::size_t>(std::clamp(y, 0, kHeight - 1)) * kWidth +
                       static_cast<std::size_t>(std::clamp(x, 0, kWidth - 1))];
    };
    std::vector<double> blurred(sampled.size());
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            double sum = 0;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx)
                    sum += (2 - std::abs(dx)) * (2 - std::abs(dy)) * at(x + dx, y + dy);
            blurred[static_cast<std::size_t>(y) * kWidth + static_cast<std::size_t>(x)] = sum / 16;
        }
    return blurred;
}

Image make_board()
{
    const auto levels = render_board();
    Image board = make_image(kWidth, kHeight, 1, 8, "board.png");
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const double light = 1.05 - 0.45 * std::hypot((x - 250.0) / kWidth, (y - 200.0) / kHeight);
            double grain = 0;
            for (std::uint32_t k = 0; k < 4; ++k)
                grain += 2 * static_cast<double>(scene::hash_unit(x, y, 11 + k)) - 1;
            const double level =
                levels[static_cast<std::size_t>(y) * kWidth + static_cast<std::size_t>(x)] * light + 2.5 * grain;
            board.row(y)[x] = static_cast<std::uint8_t>(std::clamp(level + 0.5, 0.0, 255.0));
        }
    return board;
}

// Curved scratches, and spots.
bool is_damaged(int x, int y, int width, int height)
{
    constexpr int kFrame = 8; // marks that touch the border are not filled
    if (std::min({x, y, width - 1 - x, height - 1 - y}) < kFrame)
        return false;
    for (int k = 0; k < 7; ++k) {
        const double along = static_cast<double>(x) / width;
        const double middle =
            height * (0.1 + 0.13 * k + 0.05 * std::sin(7 * along + 2.1 * k) + 0.1 * (along - 0.5) * (k % 3 - 1));
        if (std::fabs(y - middle) < 1.2 + 0.8 * std::sin(31 * along + k))
            return true;
    }
    for (int k = 0; k < 24; ++k) {
        const auto seed = static_cast<std::uint32_t>(k);
        const double spot_x = width * static_cast<double>(scene::hash_unit(k, 1, seed));
        const double spot_y = height * static_cast<double>(scene::hash_unit(k, 2, seed));
        const double radius = 2 + 5 * static_cast<double>(scene::hash_unit(k, 3, seed));
        if (std::hypot(x - spot_x, y - spot_y) < radius)
            return true;
    }
    return false;
}

Image make_damaged(const std::string& picture)
{
    Image whole = read_image(picture);
    convert_to_colour(whole, picture);
    convert_depth(whole, 8, picture);
    const std::int32_t width = std::min(whole.width, 900);
    const std::int32_t height = std::min(whole.height, 600);
    Image damaged = make_image(width, height, 3, 8, "damaged.png");
    ensure_mask(damaged, "damaged.png");
    for (std::int32_t y = 0; y < height; ++y) {
        const std::int32_t from_y = y + (whole.height - height) / 2;
        std::memcpy(damaged.row(y), whole.row(from_y) + 3 * ((whole.width - width) / 2), damaged.row_bytes());
        for (std::int32_t x = 0; x < width; ++x)
            if (is_damaged(x, y, width, height)) {
                std::fill_n(damaged.row(y) + 3 * x, 3, std::uint8_t{255});
                damaged
                    .mask[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)] =
                    0;
            }
    }
    return damaged;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: make_board FOLDER PICTURE\n");
        return 2;
    }
    try {
        const std::string folder = argv[1];
        write_image(folder + "/board.png", make_board());
        write_image(folder + "/damaged.png", make_damaged(argv[2]));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_board: %s\n", error.what());
        return 1;
    }
}
