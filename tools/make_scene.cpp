// SPDX-License-Identifier: MIT
// Makes the pictures of a panorama whose truth is known: paints a scene and cuts it into overlapping shots, each with
// an exposure, vignetting and noise of its own, some with an irregular mask. Writes the shots, layout.json for
// panoval stitch, truth.png and truth.json. The same arguments always give the same files.
#include "cli/base/arguments.h"
#include "cli/base/errors.h"
#include "image/files.h"
#include "image/image.h"
#include "image/image_write.h"
#include "image/output_file.h"
#include "tools/scene.h"
#include "tools/scene_noise.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace
{

using namespace panoval::cli;
using panoval::scene::Canvas;
using panoval::scene::Color;
using Json = nlohmann::ordered_json;

struct Options {
    std::string folder;
    std::string size = "full";
    std::string format = "png";
    int pictures = 5;
    int depth = 8;
    unsigned seed = 1;
};

// One shot: where it lies and what the camera did to it.
struct Shot {
    int x, y, width, height; // in the scene, pixels
    float gain;
    float vignetting; // loss of light in the corners
    bool has_mask;
};

// Leaves room above the brightest clouds for the largest gain.
constexpr float kExposure = 0.84f;
constexpr float kGains[] = {1.f, 0.80f, 1.24f, 0.90f, 1.12f, 0.75f, 1.30f, 0.96f};

// Side by side over the whole scene, with a third of overlap, the corners a little off.
std::vector<Shot> plan_shots(const Options& options, int scene_width, int scene_height)
{
    const int n = options.pictures;
    const auto random = [&](int i, int what) { return panoval::scene::hash_unit(i, what, options.seed + 900u); };
    const int width = n == 1 ? scene_width : std::min(scene_width, 145 * scene_width / (100 * n + 45));
    const int slack = scene_height / 26;
    std::vector<Shot> shots;
    for (int i = 0; i < n; ++i) {
        Shot shot{};
        shot.width = width - static_cast<int>(0.03f * random(i, 1) * static_cast<float>(width));
        shot.height = scene_height - slack;
        const int ideal = n == 1 ? 0 : static_cast<int>(static_cast<long long>(scene_width - width) * i / (n - 1));
        shot.x = i == 0 ? 0 : i == n - 1 ? scene_width - shot.width : ideal;
        shot.y = n == 1 ? slack / 2 : static_cast<int>(random(i, 2) * static_cast<float>(slack));
        shot.gain = kGains[i % 8];
        shot.vignetting = 0.10f + 0.12f * random(i, 3);
        shot.has_mask = i % 2 == 1;
        shots.push_back(shot);
    }
    return shots;
}

// A value of a normal distribution with the deviation 1, near enough: the sum of four even ones.
float grain(int x, int y, unsigned seed)
{
    const std::uint32_t h = panoval::scene::hash(x, y, seed);
    const std::uint32_t sum = (h & 255u) + (h >> 8 & 255u) + (h >> 16 & 255u) + (h >> 24);
    return (static_cast<float>(sum) - 510.f) / 147.8f;
}

// Distance in shares of the height from the shot's wavy outline: positive inside.
float inside_mask(const Shot& shot, int x, int y)
{
    const auto height = static_cast<float>(shot.height);
    const float u = static_cast<float>(x) / height;
    const float v = static_cast<float>(y) / height;
    const float right = static_cast<float>(shot.width) / height;
    const float wave = 0.05f * panoval::scene::fractal(v * 2.5f, u * 2.5f + static_cast<float>(shot.x), 3, 77);
    const float from_side = std::min(u, right - u) - 0.055f + wave;
    const float to_corner = std::min(u, right - u) + std::min(v, 1.f - v) - 0.09f + wave;
    return std::min(from_side, to_corner);
}

void put_sample(Image& image, std::size_t index, float value)
{
    if (image.bits == 16) {
        const auto sample = static_cast<std::uint16_t>(std::lround(std::clamp(value, 0.f, 1.f) * 65535.f));
        std::memcpy(image.data.get() + 2 * index, &sample, 2);
    } else {
        image.data[index] = static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.f, 1.f) * 255.f));
    }
}

void put_color(Image& image, std::size_t pixel, Color color)
{
    put_sample(image, 3 * pixel, color.r);
    put_sample(image, 3 * pixel + 1, color.g);
    put_sample(image, 3 * pixel + 2, color.b);
}

// What the camera makes of its part of the scene.
Image take(const Canvas& scene, const Shot& shot, const Options& options, unsigned seed)
{
    Image image = make_image(shot.width, shot.height, 3, options.depth, "picture");
    if (shot.has_mask)
        ensure_mask(image, "picture");
    const float half_diagonal = 0.5f * std::hypot(static_cast<float>(shot.width), static_cast<float>(shot.height));
    std::size_t pixel = 0;
    for (int y = 0; y < shot.height; ++y)
        for (int x = 0; x < shot.width; ++x, ++pixel) {
            const float r =
                std::hypot(static_cast<float>(2 * x - shot.width), static_cast<float>(2 * y - shot.height)) /
                (2.f * half_diagonal);
            const float light = shot.gain * (1.f - shot.vignetting * r * r);
            Color color = scene.get(shot.x + x, shot.y + y) * (kExposure * light);
            const auto noisy = [&](float value, unsigned channel) {
                return value + (0.003f + 0.008f * std::sqrt(std::max(value, 0.f))) * grain(x, y, seed + channel);
            };
            color = {noisy(color.r, 0), noisy(color.g, 1), noisy(color.b, 2)};
            if (shot.has_mask) {
                const float inside = inside_mask(shot, x, y);
                // The lens hood: nothing of it may ever be seen in a panorama.
                color = inside > 0.f ? color : Color{0.55f, 0.05f, 0.45f};
                image.mask[pixel] = static_cast<std::uint8_t>(
                    inside <= 0.f ? 0.f : std::min(255.f, 64.f + inside * static_cast<float>(shot.height) * 16.f));
            }
            put_color(image, pixel, color);
        }
    return image;
}

Image truth_of(const Canvas& scene, int depth)
{
    Image image = make_image(scene.width(), scene.height(), 3, depth, "truth");
    std::size_t pixel = 0;
    for (int y = 0; y < scene.height(); ++y)
        for (int x = 0; x < scene.width(); ++x)
            put_color(image, pixel++, scene.get(x, y) * kExposure);
    return image;
}

// PNG and TIFF take the mask as alpha; PNM needs a file of its own.
std::string write_shot(const Options& options, Image& image, int number, Json& entry)
{
    const std::string stem = concat("picture", number);
    if (options.format != "pnm") {
        std::string name = stem + (options.format == "tiff" ? ".tif" : ".png");
        write_image(options.folder + "/" + name, image);
        return name;
    }
    if (image.mask != nullptr) {
        Image mask = make_image(image.width, image.height, 1, 8, "mask");
        mask.data = std::move(image.mask);
        write_image(options.folder + "/" + stem + "_mask.pgm", mask);
        entry["mask"] = stem + "_mask.pgm";
    }
    write_image(options.folder + "/" + stem + ".ppm", image);
    return stem + ".ppm";
}

void write_text(const std::string& name, const std::string& text)
{
    OutputFile file(name);
    file.write(text + "\n");
    file.commit();
}

void make(const Options& options)
{
    std::filesystem::create_directories(path_from_utf8(options.folder));
    const int width = options.size == "full" ? 4000 : 1000;
    const int height = options.size == "full" ? 1300 : 325;
    Canvas scene(width, height);
    paint_scene(scene);
    const std::vector<Shot> shots = plan_shots(options, width, height);
    // The frame of the layout starts inside the scene, so that some corners are negative.
    const int origin_x = options.format == "tiff" ? 0 : width / 9;
    const int origin_y = options.format == "tiff" ? 0 : height / 60;
    Json layout = Json::array();
    Json truth = Json::array();
    for (std::size_t i = 0; i < shots.size(); ++i) {
        const Shot& shot = shots[i];
        Image image = take(scene, shot, options, options.seed + 1000u * static_cast<unsigned>(i));
        image.position = Offset{shot.x - origin_x, shot.y - origin_y};
        Json entry;
        entry["file"] = "";
        entry["x"] = shot.x - origin_x;
        entry["y"] = shot.y - origin_y;
        entry["file"] = write_shot(options, image, static_cast<int>(i) + 1, entry);
        layout.push_back(entry);
        truth.push_back({{"file", entry["file"]}, {"gain", shot.gain}, {"vignetting", shot.vignetting}});
    }
    write_text(options.folder + "/layout.json", layout.dump(2));
    write_text(options.folder + "/truth.json", Json{{"x", -origin_x}, {"y", -origin_y}, {"pictures", truth}}.dump(2));
    write_image(options.folder + (options.format == "pnm" ? "/truth.ppm" : "/truth.png"),
                truth_of(scene, options.depth));
    std::printf("%zu pictures of a scene of %d x %d pixels are in %s\n", shots.size(), width, height,
                options.folder.c_str());
}

int make_scene(int argc, char** argv)
{
    Options options;
    CLI::App program("Makes overlapping pictures of a scene, and layout.json for panoval stitch.", "make_scene");
    program.allow_windows_style_options(false);
    program.add_option("FOLDER", options.folder, "Where the files go; made if missing")->required();
    program.add_option("--size", options.size, "full: 4000 x 1300 pixels; small: 1000 x 325")
        ->check(CLI::IsMember({"full", "small"}));
    program
        .add_option("--format", options.format, "png, tiff (with position tags) or pnm (masks in files of their own)")
        ->check(CLI::IsMember({"png", "tiff", "pnm"}));
    program.add_option("--pictures", options.pictures, "How many")->check(CLI::Range(1, 50));
    program.add_option("--depth", options.depth, "Bits per sample")->check(CLI::IsMember({8, 16}));
    program.add_option("--seed", options.seed, "Other places and other noise");
    try {
        std::vector<std::string> arguments = utf8_arguments(argc, argv);
        std::reverse(arguments.begin(), arguments.end());
        program.parse(std::move(arguments));
        make(options);
        return 0;
    } catch (const CLI::ParseError& error) {
        return program.exit(error);
    }
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return make_scene(argc, argv);
    } catch (const Failure& error) {
        std::fprintf(stderr, "make_scene: %s\n", error.what());
        return static_cast<int>(exit_code_of(error.fault()));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "make_scene: %s\n", error.what());
        return 1;
    }
}
