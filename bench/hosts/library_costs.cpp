// SPDX-License-Identifier: MIT
// Every routine of libpanoval, for the page for hosts.
#include "bench/hosts/cost_of.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace panoval::bench
{

namespace
{

// What is printed while one of these lives goes nowhere: two routines print what they find.
class Silence
{
public:
    Silence()
    {
        std::fflush(stdout);
        kept_ = dup(STDOUT_FILENO);
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, STDOUT_FILENO);
        close(nowhere);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;
    ~Silence()
    {
        std::fflush(stdout);
        dup2(kept_, STDOUT_FILENO);
        close(kept_);
    }

private:
    int kept_ = -1;
};

// A record that is reset again and again.
template <class Record, class Reset>
void print_reset(const char* routine, Reset reset)
{
    Record record{};
    print_per_megapixel(routine, cost_of([&] { reset(&record, side, side, 1); },
                                         [&] {
                                             std::free(record.data);
                                             record = {};
                                         }));
    std::free(record.data);
}

void containers(Mat& picture)
{
    Mat mat{};
    print_per_megapixel("MatReset", cost_of([&] { MatReset(&mat, side, side, 1, 1); },
                                            [&] {
                                                MatDestroy(&mat);
                                                MatInit(&mat);
                                            }));
    MatDestroy(&mat);
    print_reset<Matb>("MatbReset", MatbReset);
    print_reset<Mats>("MatsReset", MatsReset);
    print_reset<Matf>("MatfReset", MatfReset);
    print_reset<Mati>("MatiReset", MatiReset);
    print_reset<Matd>("MatdReset", MatdReset);
    std::vector<std::uint8_t> packed(static_cast<std::size_t>(picture.size));
    print_per_megapixel("MatToImage", cost_of([&] { MatToImage(&picture, packed.data()); }));
}

// Into and from a file that the system has in its memory.
void files(std::vector<std::uint8_t>& grey)
{
    char name[] = "/tmp/host_costs_XXXXXX";
    close(mkstemp(name));
    std::FILE* file = std::fopen(name, "wb");
    std::fprintf(file, "P5\n%d %d\n255\n", side, side);
    std::fwrite(grey.data(), 1, grey.size(), file);
    std::fclose(file);
    std::uint8_t* pixels = nullptr;
    std::int32_t width = 0, height = 0;
    print_per_megapixel("read_pgm", cost_of([&] { read_pgm(&pixels, &width, &height, name); },
                                            [&] { std::free(pixels), pixels = nullptr; }));
    std::free(pixels);
    std::vector<float> floats(grey.begin(), grey.end());
    const std::vector<std::int16_t> shorts(grey.begin(), grey.end());
    const Matf image{side, side, 1, floats.data()};
    print_per_megapixel("write_pgm", cost_of([&] { write_pgm(grey.data(), side, side, name); }));
    print_per_megapixel("write_pgm_float", cost_of([&] { write_pgm_float(floats.data(), side, side, name); }));
    print_per_megapixel("write_pgm_short", cost_of([&] { write_pgm_short(shorts.data(), side, side, name); }));
    print_per_megapixel("write_fpgm", cost_of([&] { write_fpgm(&image, name); }));
    unlink(name);
}

void regions(const Mat& picture, const Matb& mask)
{
    const Roi all{0, 0, side, side};
    Mat cut{};
    Matb cut_mask{};
    const auto clear = [&] {
        MatDestroy(&cut);
        MatInit(&cut);
        std::free(cut_mask.data);
        cut_mask = {};
    };
    print_per_megapixel("get_sub_image", cost_of([&] { get_sub_image(&picture, &all, &cut); }, clear));
    print_per_megapixel("get_sub_mask", cost_of([&] { get_sub_mask(&mask, &all, &cut_mask); }, clear));
    print_per_megapixel("get_mask_intersect", cost_of([&] { get_mask_intersect(&mask, &mask, &cut_mask); }, clear));
    clear();
}

void gains(const Mat& picture, const Matb& mask)
{
    GainCompensator compensator{};
    const Point corners[2] = {};
    const Mat images[2] = {picture, picture};
    const Matb masks[2] = {mask, mask};
    Cost cost;
    {
        const Silence silence;
        cost = cost_of([&] { gain_compensator_init(&compensator, 2, corners, images, masks); },
                       [&] { gain_compensator_free(&compensator), compensator = {}; });
    }
    print_per_megapixel("gain_compensator_init", cost);
    gain_compensator_free(&compensator);
    compensator = {};
    gain_compensator_init_start(&compensator, 2);
    print_per_megapixel(
        "gain_compensator_init_step", cost_of([&] {
            gain_compensator_init_step(&compensator, 0, 1, {0, 0}, &picture, &mask, {0, 0}, &picture, &mask);
        }));
    gain_compensator_init_end(&compensator);
    Mat copy = picture;
    print_per_megapixel("gain_compensator_apply", cost_of([&] { gain_compensator_apply(&compensator, 0, &copy); }));
    gain_compensator_free(&compensator);
}

// The three steps of a blender, each after the steps before it.
template <class Blender>
void print_blender(const char* const names[3], const std::function<void(Blender&)>& prepare,
                   const std::function<void(Blender&)>& feed, const std::function<void(Blender&, Mat&)>& blend)
{
    Blender blender{};
    Mat out{};
    bool is_open = false;
    const auto finish = [&] {
        if (is_open)
            blend(blender, out); // frees what is inside
        is_open = false;
        MatDestroy(&out);
        out = {};
        blender = {};
    };
    const auto start = [&] {
        finish();
        prepare(blender);
        is_open = true;
    };
    print_per_megapixel(names[0], cost_of([&] { prepare(blender), is_open = true; }, finish));
    print_per_megapixel(names[1], cost_of([&] { feed(blender); }, start));
    print_per_megapixel(names[2], cost_of([&] { blend(blender, out), is_open = false; },
                                          [&] {
                                              start();
                                              feed(blender);
                                          }));
    finish();
}

void blenders(const Mat& picture, const Matb& mask)
{
    const Roi canvas{0, 0, side, side};
    const char* const feather[] = {"feather_blender_prepare", "feather_blender_feed", "feather_blender_blend"};
    print_blender<FeatherBlender>(
        feather, [&](FeatherBlender& b) { feather_blender_prepare(&b, 3, &canvas); },
        [&](FeatherBlender& b) {
            feather_blender_feed(&b, &picture, &mask, {0, 0});
        },
        [&](FeatherBlender& b, Mat& out) { feather_blender_blend(&b, &out, 1); });
    const char* const bands[] = {"multi_band_blender_prepare", "multi_band_blender_feed", "multi_band_blender_blend"};
    print_blender<MultiBandBlender>(
        bands,
        [&](MultiBandBlender& b) {
            Roi roi = canvas;
            multi_band_blender_setbands(&b, 5);
            multi_band_blender_prepare(&b, 3, &roi);
        },
        [&](MultiBandBlender& b) {
            multi_band_blender_feed(&b, &picture, &mask, {0, 0});
        },
        [&](MultiBandBlender& b, Mat& out) { multi_band_blender_blend(&b, &out, 1); });
}

void filters(std::vector<std::uint8_t>& grey)
{
    std::vector<std::uint8_t> out(grey.size());
    std::vector<std::int16_t> dx(grey.size()), dy(grey.size());
    std::vector<std::uint16_t> magnitude(grey.size());
    print_per_megapixel("smooth_image", cost_of([&] { smooth_image(grey.data(), side, side, out.data()); }));
    print_per_megapixel("gradient_image", cost_of([&] {
                            gradient_image(grey.data(), side, side, dx.data(), dy.data(), magnitude.data());
                        }));
    print_per_megapixel("canny",
                        cost_of([&] { canny(grey.data(), side, side, out.data(), 1.0, 0.4, 0.9, nullptr, nullptr); }));
    const Matb mask{side, side, 1, grey.data()};
    const float metrics[] = {0.955f, 1.3693f};
    Matf scratch{}, distances{};
    print_per_megapixel("distanceTransform_3x3",
                        cost_of([&] { distanceTransform_3x3(&mask, &scratch, &distances, metrics); },
                                [&] {
                                    std::free(scratch.data);
                                    std::free(distances.data);
                                    scratch = distances = Matf{};
                                    MatfReset(&distances, side, side, 1);
                                }));
    std::free(scratch.data);
    std::free(distances.data);
}

void inpainting(std::vector<std::uint8_t>& colour)
{
    std::vector<std::uint8_t> picture, marks;
    const auto restore = [&] {
        picture = colour;
        marks.assign(colour.size() / 3, 0);
        for (int y = 50; y < side - 50; y += 200)
            for (int x = 50; x < side - 50; ++x)
                marks[static_cast<std::size_t>((y + (x / 400)) * side + x)] =
                    marks[static_cast<std::size_t>((y + 1 + (x / 400)) * side + x)] = 255;
    };
    print_per_megapixel("inpaint, 1 % in scratches", cost_of(
                                                         [&] {
                                                             Mat image = mat_of(picture, 3);
                                                             Mat mask = mat_of(marks, 1);
                                                             inpaint(&image, &mask, 5);
                                                         },
                                                         restore));
}

void detection(std::vector<std::uint8_t>& grey)
{
    std::vector<double> bins(256);
    double* histogram = bins.data();
    print_per_megapixel("histogram_count", cost_of([&] { histogram_count(grey.data(), side, side, &histogram); }));
    EllipseRegion* regions = nullptr;
    std::int32_t count = 0;
    const auto clear = [&] {
        for (std::int32_t i = 0; i < count; ++i)
            std::free(regions[i].points);
        std::free(regions);
        regions = nullptr;
        count = 0;
    };
    Cost cost;
    {
        const Silence silence;
        cost = cost_of([&] { count = find_ellipse(grey.data(), side, side, &regions, 30, 2, 10); }, clear);
    }
    print_per_megapixel("find_ellipse", cost);
    clear();
}

void find_on_a_ring(std::vector<std::uint8_t>& grey)
{
    std::vector<std::uint8_t> copy;
    EllipseRegion* regions = nullptr;
    const double ellipse[] = {side / 2.0, side / 2.0, 40, 40, 0};
    print_per_call("find_small_ellipse", "a ring of 40 pixels of radius",
                   cost_of([&] { find_small_ellipse(copy.data(), side, side, ellipse, &regions); },
                           [&] {
                               std::free(regions);
                               regions = nullptr;
                               copy = grey;
                           }));
    std::free(regions);
}

void thresholds(std::vector<std::uint8_t>& grey)
{
    std::vector<double> bins(256);
    double* histogram = bins.data();
    histogram_count(grey.data(), side, side, &histogram);
    print_per_call("find_threshold", "256 bins", cost_of([&] { find_threshold(histogram); }));
    print_per_call("find_trough", "256 bins", cost_of([&] { find_trough(&histogram); }));
}

void gain_calls()
{
    constexpr int kPictures = 100;
    GainCompensator compensator{};
    bool is_open = false;
    const auto clear = [&] {
        if (is_open)
            gain_compensator_init_end(&compensator);
        is_open = false;
        gain_compensator_free(&compensator);
        compensator = {};
    };
    const auto start = [&] {
        gain_compensator_init_start(&compensator, kPictures);
        is_open = true;
    };
    print_per_call("gain_compensator_init_start", "100 pictures", cost_of(start, clear));
    print_per_call("gain_compensator_init_end", "100 pictures",
                   cost_of(
                       [&] {
                           gain_compensator_init_end(&compensator);
                           is_open = false;
                       },
                       [&] {
                           clear();
                           start();
                       }));
    clear();
}

} // namespace

void print_library(std::vector<std::uint8_t>& grey, std::vector<std::uint8_t>& colour)
{
    std::vector<std::uint8_t> covered(grey.size(), 255);
    Mat picture = mat_of(colour, 3);
    const Matb mask{side, side, 1, covered.data()};
    containers(picture);
    files(grey);
    regions(picture, mask);
    gains(picture, mask);
    blenders(picture, mask);
    filters(grey);
    inpainting(colour);
    detection(grey);
}

void print_library_calls(std::vector<std::uint8_t>& grey)
{
    std::vector<double> kernel(25);
    print_per_call("GetGaussianKernel", "5 x 5", cost_of([&] { GetGaussianKernel(kernel.data(), 5, 1); }));
    Roi roi{};
    print_per_call("overlapRoi", "", cost_of([&] { overlapRoi({0, 0}, {1, 1}, {9, 9}, {9, 9}, &roi); }));
    gain_calls();
    thresholds(grey);
    std::vector<double> points;
    for (int i = 0; i < 1000; ++i) {
        points.push_back(100 + (i < 500 ? 1 : -1) * (i % 500) * 0.1);
        points.push_back(100 + (i % 2 == 0 ? 1 : -1) * 0.5 * (50 - (i % 500) * 0.1));
    }
    OvalFit fit{};
    print_per_call("oval_fit", "1000 points", cost_of([&] { oval_fit(1000, points.data(), &fit); }));
    find_on_a_ring(grey);
}

} // namespace panoval::bench
