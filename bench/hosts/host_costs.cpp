// SPDX-License-Identifier: MIT
// What a host has to reckon with: time and heap of each routine, beside the pictures that it passes.
//   host_costs [MEGAPIXELS]       prints the tables of docs/hosts.md
#include "bench/hosts/cost_of.h"
#include "panoval_measure.h"
#include "panoval_mosaic.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using panoval::bench::Cost;
using panoval::bench::cost_of;
using panoval::bench::print_per_call;
using panoval::bench::print_per_megapixel;
using panoval::bench::side;

namespace
{

// Two pictures that overlap by half, on one thread.
class TwoPictures
{
public:
    explicit TwoPictures(std::vector<std::uint8_t>& colour)
    {
        PanovalMosaicHost host{};
        host.user = colour.data();
        host.read_rows = read_rows;
        PanovalMosaicOptions options{};
        options.threads = 1;
        PanovalMosaicPicture picture{};
        picture.width = picture.height = side;
        picture.channels = 3;
        picture.bits = 8;
        picture.random_access = 1;
        panoval_mosaic_create(&mosaic);
        panoval_mosaic_set_options(mosaic, &options);
        panoval_mosaic_set_host(mosaic, &host);
        panoval_mosaic_add_picture(mosaic, &picture);
        picture.x = side / 2;
        panoval_mosaic_add_picture(mosaic, &picture);
    }
    TwoPictures(const TwoPictures&) = delete;
    TwoPictures& operator=(const TwoPictures&) = delete;
    ~TwoPictures() { panoval_mosaic_destroy(mosaic); }

    PanovalMosaic* mosaic = nullptr;

private:
    static std::int32_t read_rows(void* user, const PanovalMosaicRows* rows)
    {
        const std::size_t bytes = 3 * static_cast<std::size_t>(side);
        for (std::int32_t row = 0; row < rows->row_count; ++row)
            std::memcpy(
                static_cast<std::uint8_t*>(rows->samples) + static_cast<std::size_t>(row) * rows->samples_stride,
                static_cast<std::uint8_t*>(user) + static_cast<std::size_t>(rows->first_row + row) * bytes, bytes);
        return 0;
    }
};

void expect_ok(const char* routine, std::int32_t code)
{
    if (code == 0)
        return;
    std::fprintf(stderr, "host_costs: %s: %d\n", routine, code);
    std::exit(1);
}

// A megapixel of the canvas, which is half as wide again as a picture.
void print_of_canvas(const char* routine, Cost cost)
{
    cost.milliseconds /= 1.5;
    cost.bytes /= 1.5;
    print_per_megapixel(routine, cost);
}

void engine(std::vector<std::uint8_t>& colour)
{
    PanovalMosaicSink sink{};
    sink.write = [](void*, const PanovalMosaicRect*, const void*, size_t, const uint8_t*, size_t, char*) { return 0; };
    print_of_canvas("panoval_mosaic_run", cost_of([&] {
                        const TwoPictures two(colour);
                        expect_ok("panoval_mosaic_run", panoval_mosaic_run(two.mosaic, &sink));
                    }));
    const struct {
        const char* name;
        std::int32_t parts;
    } measures[] = {{"panoval_mosaic_measure, gains", PANOVAL_MOSAIC_MEASURE_GAINS},
                    {"panoval_mosaic_measure, gains and seams", PANOVAL_MOSAIC_MEASURE_SEAMS},
                    {"panoval_mosaic_measure, everything", PANOVAL_MOSAIC_MEASURE_ALL}};
    for (const auto& measure : measures)
        print_of_canvas(measure.name, cost_of([&] {
                            const TwoPictures two(colour);
                            expect_ok(measure.name, panoval_mosaic_measure(two.mosaic, measure.parts));
                        }));
    const TwoPictures two(colour);
    expect_ok("panoval_mosaic_measure", panoval_mosaic_measure(two.mosaic, PANOVAL_MOSAIC_MEASURE_ALL));
    const PanovalMosaicRect all{0, 0, side + side / 2, side};
    const std::size_t stride = 3 * static_cast<std::size_t>(all.width);
    std::vector<std::uint8_t> samples(stride * static_cast<std::size_t>(all.height));
    print_of_canvas("panoval_mosaic_blend", cost_of([&] {
                        expect_ok("panoval_mosaic_blend",
                                  panoval_mosaic_blend(two.mosaic, &all, samples.data(), stride, nullptr, 0));
                    }));
}

void engine_calls(std::vector<std::uint8_t>& colour)
{
    print_per_call("panoval_mosaic_create", "to panoval_mosaic_destroy, with two pictures",
                   cost_of([&] { const TwoPictures two(colour); }));
    const TwoPictures two(colour);
    PanovalMosaicLayout layout{};
    PanovalMosaicEstimate estimate{};
    const char* text = nullptr;
    print_per_call("panoval_mosaic_layout", "two pictures",
                   cost_of([&] { panoval_mosaic_layout(two.mosaic, &layout); }));
    print_per_call("panoval_mosaic_estimate", "two pictures",
                   cost_of([&] { panoval_mosaic_estimate(two.mosaic, &estimate); }));
    expect_ok("panoval_mosaic_measure", panoval_mosaic_measure(two.mosaic, PANOVAL_MOSAIC_MEASURE_ALL));
    print_per_call("panoval_mosaic_verdict", "two pictures",
                   cost_of([&] { expect_ok("verdict", panoval_mosaic_verdict(two.mosaic, 0, &text, nullptr)); }));
    std::size_t size = 0;
    print_per_call("panoval_mosaic_save_plan", "two pictures, gains and seams",
                   cost_of([&] { expect_ok("save_plan", panoval_mosaic_save_plan(two.mosaic, &text, &size)); }));
    PanovalMosaic* other = nullptr;
    print_per_call("panoval_mosaic_load_plan", "the same",
                   cost_of([&] { expect_ok("load_plan", panoval_mosaic_load_plan(other, text, size)); },
                           [&] {
                               panoval_mosaic_destroy(other);
                               panoval_mosaic_create(&other);
                           }));
    panoval_mosaic_destroy(other);
    std::vector<std::int32_t> labels(static_cast<std::size_t>(layout.width));
    print_per_call("panoval_mosaic_seam_row", "a row of the canvas",
                   cost_of([&] { expect_ok("seam_row", panoval_mosaic_seam_row(two.mosaic, 1, labels.data())); }));
    expect_ok("seam_row", panoval_mosaic_seam_row(two.mosaic, 0, labels.data()));
    const std::size_t stride = labels.size() * sizeof(std::int32_t);
    print_per_call("panoval_mosaic_set_seam_rows", "a row of the canvas", cost_of([&] {
                       expect_ok("set_seam_rows",
                                 panoval_mosaic_set_seam_rows(two.mosaic, 0, 1, labels.data(), stride));
                   }));
}

PanovalMeasureImage image_of(const std::vector<std::uint8_t>& grey)
{
    return {grey.data(), side, side, side, PANOVAL_MEASURE_U8, 0};
}

void measurement(const std::vector<std::uint8_t>& grey)
{
    const PanovalMeasureImage image = image_of(grey);
    PanovalMeasureDetection found{};
    print_per_megapixel("panoval_measure_detect", cost_of([&] { panoval_measure_detect(&image, nullptr, &found); },
                                                          [&] { panoval_measure_free(&found); }));
    panoval_measure_free(&found);
}

void measurement_calls(const std::vector<std::uint8_t>& grey)
{
    const PanovalMeasureImage image = image_of(grey);
    const PanovalMeasureEllipse disc{150.3, 149.6, 20, 20, 0};
    PanovalMeasureTarget target{};
    print_per_call("panoval_measure_refine", "a target of 20 pixels of radius",
                   cost_of([&] { expect_ok("refine", panoval_measure_refine(&image, &disc, 1, &target)); }));
    const double plane[9] = {20, 0, 150, 0, 20, 150, 1e-4, 0, 1};
    const PanovalMeasureEllipse slanted{150, 150, 20, 15, 0.3};
    const PanovalMeasureEllipse inside{150, 150, 10, 7.5, 0.3};
    PanovalMeasurePoint centre{};
    PanovalMeasureCirclePose poses[2];
    print_per_call("panoval_measure_centre_by_homography", "", cost_of([&] {
                       expect_ok("centre_by_homography",
                                 panoval_measure_centre_by_homography(&slanted, target.covariance, plane, &centre));
                   }));
    print_per_call("panoval_measure_centre_by_focal_length", "", cost_of([&] {
                       expect_ok("centre_by_focal_length", panoval_measure_centre_by_focal_length(
                                                               &slanted, target.covariance, 1000, 500, 500, poses));
                   }));
    print_per_call("panoval_measure_centre_by_rings", "", cost_of([&] {
                       expect_ok("centre_by_rings",
                                 panoval_measure_centre_by_rings(&slanted, target.covariance, &inside,
                                                                 target.covariance, &centre));
                   }));
    constexpr int kRows = 7, kColumns = 9;
    std::vector<PanovalMeasureTarget> targets(kRows * kColumns, target);
    for (int i = 0; i < kRows * kColumns; ++i) {
        targets[static_cast<std::size_t>(i)].ellipse.x = 100 + 100 * (i % kColumns);
        targets[static_cast<std::size_t>(i)].ellipse.y = 100 + 100 * (i / kColumns);
    }
    PanovalMeasureGrid grid{};
    std::vector<PanovalMeasureGridCell> cells(kRows * kColumns);
    print_per_call("panoval_measure_grid", "7 x 9 targets", cost_of([&] {
                       expect_ok("grid", panoval_measure_grid(targets.data(), kRows * kColumns, kRows, kColumns, &grid,
                                                              cells.data()));
                   }));
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
    std::vector<std::uint8_t> grey = panoval::bench::scene(1), colour = panoval::bench::scene(3);
    std::printf("| routine | ms a megapixel | MB of heap a megapixel |\n|---|---|---|\n");
    panoval::bench::print_library(grey, colour);
    measurement(grey);
    engine(colour);
    std::printf("\n| routine | microseconds a call | kB of heap | of |\n|---|---|---|---|\n");
    panoval::bench::print_libmath_calls();
    panoval::bench::print_library_calls(grey);
    measurement_calls(grey);
    engine_calls(colour);
    return 0;
}
