// SPDX-License-Identifier: MIT
// A panorama of pictures that are made as they are asked for, through the engine's C interface, into a TIFF file of
// tiles with a pyramid: what a host with a store of its own does.
//
// panoval_gigapixels OUT.tif COLUMNS ROWS [THREADS]: COLUMNS x ROWS pictures of 3000 x 2000 pixels that overlap by a
// quarter. 10 x 6 are 221 megapixels, 32 x 20 are 2.1 gigapixels.
#include "cli/base/system_info.h"
#include "image/output_file.h"
#include "image/row_writer.h"
#include "panoval_mosaic.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr std::int32_t kWidth = 3000;
constexpr std::int32_t kHeight = 2000;
constexpr std::int32_t kStepX = 2250;
constexpr std::int32_t kStepY = 1500;
constexpr std::uint32_t kTexture = 1024; // its side

double processor_seconds()
{
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

std::uint32_t mixed(std::uint32_t value)
{
    value = (value ^ (value >> 16)) * 0x7feb352du;
    value = (value ^ (value >> 15)) * 0x846ca68bu;
    return value ^ (value >> 16);
}

// Blocks of three sizes, each with a level of its own.
std::vector<std::uint8_t> make_texture()
{
    std::vector<std::uint8_t> texture(kTexture * kTexture);
    for (std::uint32_t y = 0; y < kTexture; ++y)
        for (std::uint32_t x = 0; x < kTexture; ++x) {
            std::uint32_t level = 60;
            for (const std::uint32_t shift : {1u, 3u, 6u})
                level += mixed((y >> shift) * 4096 + (x >> shift) + (shift << 28)) % (12 + 8 * shift);
            texture[y * kTexture + x] = static_cast<std::uint8_t>(level);
        }
    return texture;
}

// The scene, and the pictures that are cut from it.
class Scene
{
public:
    explicit Scene(std::int32_t columns) : columns_(columns), texture_(make_texture()) {}

    // Each picture has an exposure of its own, of 8 bits behind the point.
    void paint(const PanovalMosaicRows& rows) const
    {
        const std::uint32_t gain = 220 + mixed(static_cast<std::uint32_t>(rows.picture)) % 72;
        const auto x0 = static_cast<std::uint32_t>(rows.picture % columns_ * kStepX);
        const auto y0 = static_cast<std::uint32_t>(rows.picture / columns_ * kStepY + rows.first_row);
        for (std::uint32_t y = 0; y < static_cast<std::uint32_t>(rows.row_count); ++y)
            paint_row(x0, y0 + y, gain, static_cast<std::uint8_t*>(rows.samples) + y * rows.samples_stride);
    }

private:
    void paint_row(std::uint32_t x0, std::uint32_t y, std::uint32_t gain, std::uint8_t* out) const
    {
        // A second layer of texture, shifted from row of blocks to row of blocks, so that nothing repeats.
        const std::uint8_t* const near = texture_.data() + y % kTexture * kTexture;
        const std::uint8_t* const far = texture_.data() + (y / 5 + y / kTexture * 77) % kTexture * kTexture;
        for (std::uint32_t x = 0; x < static_cast<std::uint32_t>(kWidth); ++x) {
            const std::uint32_t at = x0 + x;
            const std::uint32_t a = near[(at + y / kTexture * 389) % kTexture];
            const std::uint32_t b = far[(at / 3 + at / kTexture * 131) % kTexture];
            out[3 * x] = static_cast<std::uint8_t>((a + b) * gain >> 9);
            out[3 * x + 1] = static_cast<std::uint8_t>((a * 3 + b) * gain >> 10);
            out[3 * x + 2] = static_cast<std::uint8_t>((a + b * 3) * gain >> 10);
        }
    }

    const std::int32_t columns_;
    const std::vector<std::uint8_t> texture_;
};

std::int32_t read_rows(void* user, const PanovalMosaicRows* rows)
{
    static_cast<const Scene*>(user)->paint(*rows);
    return 0;
}

struct Output {
    panoval::image::OutputFile file;
    std::unique_ptr<panoval::image::RowWriter> writer;
};

std::int32_t write_rows(void* user, const PanovalMosaicRect* rect, const void* samples, std::size_t stride,
                        const std::uint8_t*, std::size_t, char*)
{
    static_cast<Output*>(user)->writer->add({static_cast<const std::uint8_t*>(samples), stride, nullptr, 0},
                                            static_cast<std::int32_t>(rect->height));
    return 0;
}

void check(const PanovalMosaic* mosaic, std::int32_t code)
{
    if (code == PANOVAL_MOSAIC_OK)
        return;
    char text[512];
    panoval_mosaic_error(mosaic, text, sizeof text);
    std::fprintf(stderr, "panoval_gigapixels: %s\n", text);
    std::exit(1);
}

void make(const std::string& name, std::int32_t columns, std::int32_t rows, std::int32_t threads)
{
    Scene scene(columns);
    PanovalMosaic* mosaic = nullptr;
    check(mosaic, panoval_mosaic_create(&mosaic));
    PanovalMosaicOptions options{};
    options.threads = threads;
    check(mosaic, panoval_mosaic_set_options(mosaic, &options));
    const PanovalMosaicHost host{&scene, &read_rows, nullptr, nullptr};
    check(mosaic, panoval_mosaic_set_host(mosaic, &host));
    for (std::int32_t k = 0; k < columns * rows; ++k) {
        PanovalMosaicPicture picture{};
        picture.x = std::int64_t{k % columns} * kStepX;
        picture.y = std::int64_t{k / columns} * kStepY;
        picture.width = kWidth;
        picture.height = kHeight;
        picture.channels = 3;
        picture.bits = 8;
        picture.random_access = 1;
        check(mosaic, panoval_mosaic_add_picture(mosaic, &picture));
    }
    PanovalMosaicLayout layout{};
    check(mosaic, panoval_mosaic_layout(mosaic, &layout));

    const panoval::cli::Stopwatch stopwatch;
    const double start = processor_seconds();
    check(mosaic, panoval_mosaic_measure(mosaic, PANOVAL_MOSAIC_MEASURE_SEAMS));
    const double measured = processor_seconds();
    Output output{panoval::image::OutputFile(name), nullptr};
    panoval::image::PictureInfo info;
    info.width = static_cast<std::int32_t>(layout.width);
    info.height = static_cast<std::int32_t>(layout.height);
    info.channels = 3;
    info.bits = 8;
    panoval::image::WriteOptions write;
    write.has_pyramid = true;
    output.writer = make_row_writer(output.file, panoval::image::OutputName(name), info, write);
    const PanovalMosaicSink sink{&output, &write_rows, 0, 0, {}};
    check(mosaic, panoval_mosaic_run(mosaic, &sink));
    output.writer->finish();
    output.file.commit();
    const double done = processor_seconds();

    PanovalMosaicCounts counts{};
    check(mosaic, panoval_mosaic_counts(mosaic, &counts));
    const double megapixels = 1e-6 * static_cast<double>(layout.width) * static_cast<double>(layout.height);
    std::printf("%.0f MP, %lld pictures, %lld tiles of %lld x %lld, %d bands\n", megapixels,
                static_cast<long long>(layout.pictures), static_cast<long long>(layout.tiles),
                static_cast<long long>(layout.tile_width), static_cast<long long>(layout.tile_height), layout.bands);
    std::printf("gains and seams %.1f s, tiles and file %.1f s of processor, %.1f s in all by the clock\n",
                measured - start, done - measured, stopwatch.seconds());
    std::printf("%.1f MP a second of processor, peak %.0f MB, each picture made %.2f times\n",
                megapixels / (done - start), 1e-6 * static_cast<double>(panoval::cli::peak_memory_bytes()),
                counts.pictures / static_cast<double>(layout.pictures));
    panoval_mosaic_destroy(mosaic);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 4) {
        std::fprintf(stderr, "panoval_gigapixels OUT.tif COLUMNS ROWS [THREADS]\n");
        return 2;
    }
    panoval::cli::prepare_heap();
    try {
        make(argv[1], std::atoi(argv[2]), std::atoi(argv[3]), argc > 4 ? std::atoi(argv[4]) : 1);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "panoval_gigapixels: %s\n", error.what());
        return 1;
    }
    return 0;
}
