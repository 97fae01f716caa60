// SPDX-License-Identifier: MIT
// What a host has to reckon with: time and heap of each routine for a megapixel, beside the pictures that it passes.
//   host_costs [MEGAPIXELS]       prints the table of docs/hosts.md
// Time is the processor's, the least of three calls. The heap is the most in use during the call, above what was in use
// before, counted by this program's own malloc in the libraries' place.
#include "panoval.h"
#include "panoval_measure.h"
#include "panoval_mosaic.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <vector>

#include <malloc.h>

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);
}

namespace
{

std::atomic<std::int64_t> in_use{0};
std::atomic<std::int64_t> most{0};

void* counted(void* block)
{
    const std::int64_t now = in_use += block != nullptr ? static_cast<std::int64_t>(malloc_usable_size(block)) : 0;
    std::int64_t before = most;
    while (before < now && !most.compare_exchange_weak(before, now)) {
    }
    return block;
}

void uncounted(void* block)
{
    in_use -= block != nullptr ? static_cast<std::int64_t>(malloc_usable_size(block)) : 0;
}

} // namespace

extern "C" {
void* malloc(std::size_t bytes)
{
    return counted(__libc_malloc(bytes));
}
void* calloc(std::size_t count, std::size_t bytes)
{
    return counted(__libc_calloc(count, bytes));
}
void* realloc(void* block, std::size_t bytes)
{
    uncounted(block);
    return counted(__libc_realloc(block, bytes));
}
void* aligned_alloc(std::size_t alignment, std::size_t bytes)
{
    return counted(__libc_memalign(alignment, bytes));
}
int posix_memalign(void** block, std::size_t alignment, std::size_t bytes)
{
    *block = counted(__libc_memalign(alignment, bytes));
    return *block != nullptr ? 0 : 12;
}
void free(void* block)
{
    uncounted(block);
    __libc_free(block);
}
}

namespace
{

int side = 1000;

double processor_seconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// Waves with dark discs and some grain: something for every routine.
std::vector<std::uint8_t> scene(int channels)
{
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(side) * static_cast<std::size_t>(side * channels));
    std::uint32_t grain = 1;
    std::size_t i = 0;
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
            const double r = std::hypot(x % 100 - 50.3, y % 100 - 49.6);
            const double disc = 1 / (1 + std::exp(2 * (r - 20)));
            for (int c = 0; c < channels; ++c) {
                grain = grain * 1664525u + 1013904223u;
                const double level = 150 + 40 * std::sin(x * 0.01 + c) * std::cos(y * 0.013) - 80 * disc;
                pixels[i++] = static_cast<std::uint8_t>(level + static_cast<double>(grain >> 29));
            }
        }
    return pixels;
}

Mat mat_of(std::vector<std::uint8_t>& pixels, int channels)
{
    return {side,
            side,
            channels,
            1,
            static_cast<std::int32_t>(pixels.size()),
            static_cast<std::int32_t>(pixels.size()),
            pixels.data()};
}

struct Cost {
    double milliseconds = 1e30;
    double bytes = 0;
};

// restore is not counted.
Cost cost_of(
    const std::function<void()>& call, const std::function<void()>& restore = [] {})
{
    Cost cost;
    for (int turn = 0; turn < 3; ++turn) {
        restore();
        const std::int64_t before = in_use;
        most = before;
        const double start = processor_seconds();
        call();
        cost.milliseconds = std::min(cost.milliseconds, 1e3 * (processor_seconds() - start));
        cost.bytes = static_cast<double>(most - before);
    }
    return cost;
}

void print(const char* routine, const Cost& cost)
{
    const double megapixels = 1e-6 * side * side;
    std::printf("| `%s` | %.1f | %.1f |\n", routine, cost.milliseconds / megapixels, cost.bytes / megapixels / 1e6);
}

void filters(std::vector<std::uint8_t>& grey)
{
    std::vector<std::uint8_t> out(grey.size());
    std::vector<std::int16_t> dx(grey.size()), dy(grey.size());
    std::vector<std::uint16_t> magnitude(grey.size());
    print("smooth_image", cost_of([&] { smooth_image(grey.data(), side, side, out.data()); }));
    print("gradient_image",
          cost_of([&] { gradient_image(grey.data(), side, side, dx.data(), dy.data(), magnitude.data()); }));
    print("canny", cost_of([&] { canny(grey.data(), side, side, out.data(), 1.0, 0.4, 0.9, nullptr, nullptr); }));
    const Matb mask{side, side, 1, grey.data()};
    const float metrics[] = {0.955f, 1.3693f};
    Matf scratch{}, distances{};
    print("distanceTransform_3x3", cost_of([&] { distanceTransform_3x3(&mask, &scratch, &distances, metrics); },
                                           [&] {
                                               std::free(scratch.data);
                                               std::free(distances.data);
                                               scratch = distances = Matf{};
                                               MatfReset(&distances, side, side, 1);
                                           }));
    std::free(scratch.data);
    std::free(distances.data);
}

void detection(std::vector<std::uint8_t>& grey)
{
    EllipseRegion* regions = nullptr;
    std::int32_t count = 0;
    const auto clear = [&] {
        for (std::int32_t i = 0; i < count; ++i)
            std::free(regions[i].points);
        std::free(regions);
        regions = nullptr;
        count = 0;
    };
    print("find_ellipse", cost_of([&] { count = find_ellipse(grey.data(), side, side, &regions, 30, 2, 10); }, clear));
    clear();
    const PanovalMeasureImage image = {grey.data(), side, side, side, PANOVAL_MEASURE_U8, 0};
    PanovalMeasureDetection found{};
    print("panoval_measure_detect",
          cost_of([&] { panoval_measure_detect(&image, nullptr, &found); }, [&] { panoval_measure_free(&found); }));
    panoval_measure_free(&found);
}

void gains(const Mat& picture, const Matb& mask)
{
    GainCompensator compensator{};
    gain_compensator_init_start(&compensator, 2);
    print("gain_compensator_init_step", cost_of([&] {
              gain_compensator_init_step(&compensator, 0, 1, {0, 0}, &picture, &mask, {0, 0}, &picture, &mask);
          }));
    gain_compensator_init_end(&compensator);
    Mat copy = picture;
    print("gain_compensator_apply", cost_of([&] { gain_compensator_apply(&compensator, 0, &copy); }));
    gain_compensator_free(&compensator);
}

void blenders(const Mat& picture, const Matb& mask)
{
    const Roi canvas{0, 0, side, side};
    print("feather_blender_prepare, _feed, _blend", cost_of([&] {
              FeatherBlender blender{};
              Mat out{};
              feather_blender_prepare(&blender, 3, &canvas);
              feather_blender_feed(&blender, &picture, &mask, {0, 0});
              feather_blender_blend(&blender, &out, 1);
              MatDestroy(&out);
          }));
    print("multi_band_blender_prepare, _feed, _blend", cost_of([&] {
              MultiBandBlender blender{};
              Mat out{};
              Roi roi = canvas;
              multi_band_blender_setbands(&blender, 5);
              multi_band_blender_prepare(&blender, 3, &roi);
              multi_band_blender_feed(&blender, &picture, &mask, {0, 0});
              multi_band_blender_blend(&blender, &out, 1);
              MatDestroy(&out);
          }));
}

void inpainting(std::vector<std::uint8_t>& colour)
{
    std::vector<std::uint8_t> picture, marks;
    print("inpaint, 1 % in scratches",
          cost_of(
              [&] {
                  Mat image = mat_of(picture, 3), mask = mat_of(marks, 1);
                  inpaint(&image, &mask, 5);
              },
              [&] {
                  picture = colour;
                  marks.assign(colour.size() / 3, 0);
                  for (int y = 50; y < side - 50; y += 200)
                      for (int x = 50; x < side - 50; ++x)
                          marks[static_cast<std::size_t>((y + (x / 400)) * side + x)] =
                              marks[static_cast<std::size_t>((y + 1 + (x / 400)) * side + x)] = 255;
              }));
}

// Two pictures that overlap by half, from measuring to the last row, on one thread.
void mosaic(const std::vector<std::uint8_t>& colour)
{
    PanovalMosaicHost host{};
    host.user = const_cast<std::uint8_t*>(colour.data());
    host.read_rows = [](void* user, const PanovalMosaicRows* rows) {
        const std::size_t bytes = 3 * static_cast<std::size_t>(side);
        for (std::int32_t row = 0; row < rows->row_count; ++row)
            std::memcpy(
                static_cast<std::uint8_t*>(rows->samples) + static_cast<std::size_t>(row) * rows->samples_stride,
                static_cast<std::uint8_t*>(user) + static_cast<std::size_t>(rows->first_row + row) * bytes, bytes);
        return 0;
    };
    PanovalMosaicSink sink{};
    sink.write = [](void*, const PanovalMosaicRect*, const void*, size_t, const uint8_t*, size_t, char*) { return 0; };
    Cost cost = cost_of([&] {
        PanovalMosaic* made = nullptr;
        PanovalMosaicOptions options{};
        options.threads = 1;
        PanovalMosaicPicture picture{};
        picture.width = picture.height = side;
        picture.channels = 3;
        picture.bits = 8;
        picture.random_access = 1;
        panoval_mosaic_create(&made);
        panoval_mosaic_set_options(made, &options);
        panoval_mosaic_set_host(made, &host);
        panoval_mosaic_add_picture(made, &picture);
        picture.x = side / 2;
        panoval_mosaic_add_picture(made, &picture);
        const int code = panoval_mosaic_run(made, &sink);
        if (code != 0)
            std::fprintf(stderr, "panoval_mosaic_run: %d\n", code);
        panoval_mosaic_destroy(made);
    });
    cost.milliseconds /= 1.5; // a megapixel of the canvas
    cost.bytes /= 1.5;
    print("panoval_mosaic_run", cost);
}

} // namespace

int main(int argc, char** argv)
{
    const double megapixels = argc > 1 ? std::atof(argv[1]) : 4;
    if (!(megapixels >= 0.25 && megapixels <= 100)) {
        std::fprintf(stderr, "host_costs: found '%s'; expected megapixels from 0.25 to 100\n", argv[1]);
        return 2;
    }
    side = static_cast<int>(std::sqrt(megapixels) * 10) * 100;
    std::vector<std::uint8_t> grey = scene(1), colour = scene(3), covered(grey.size(), 255);
    const Mat picture = mat_of(colour, 3);
    const Matb mask{side, side, 1, covered.data()};
    std::printf("| routine | ms a megapixel | MB of heap a megapixel |\n|---|---|---|\n");
    filters(grey);
    detection(grey);
    gains(picture, mask);
    blenders(picture, mask);
    inpainting(colour);
    mosaic(colour);
    return 0;
}
