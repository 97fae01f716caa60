// SPDX-License-Identifier: MIT
#include "bench/support/routine.h"
#include "panoval.h"
#include "tests/reference/multi_band.h"
#include "tests/support/noise.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace panoval::bench
{
namespace
{

// A picture in the middle of a canvas with a margin around it, fed again and again.
struct Feeding {
    Feeding(test::Content content, int width, int height, int channels, int elem_size, int bands)
        : samples(test::picture(content, width * channels * elem_size, height, 1)),
          covered(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 255),
          img{width, height, channels, elem_size, 0, 0, samples.data()}, mask{width, height, 1, covered.data()}
    {
        const Roi canvas{0, 0, width + 400, height + 300};
        Roi roi = canvas;
        multi_band_blender_setbands(&blender, bands);
        multi_band_blender_prepare(&blender, channels, &roi);
        roi = canvas;
        twin = reference::multi_band_prepare(bands, channels, roi);
    }
    ~Feeding() { multi_band_blender_blend(&blender, nullptr, 1); }
    Feeding(const Feeding&) = delete;
    Feeding& operator=(const Feeding&) = delete;

    bool same() const
    {
        bool equal = true;
        for (std::size_t i = 0; i < twin.laplace.size(); ++i) {
            const auto differs = [](const Matf& a, const reference::Image& b) {
                return std::memcmp(a.data, b.data.data(), b.data.size() * sizeof(float)) != 0;
            };
            equal = equal && !differs(blender.dstPyrLaplace[i], twin.laplace[i]) &&
                    !differs(blender.dstBandWeights[i], twin.weights[i]);
        }
        return equal;
    }

    std::vector<std::uint8_t> samples;
    std::vector<std::uint8_t> covered;
    Mat img;
    Matb mask;
    MultiBandBlender blender{};
    reference::MultiBand twin;
};

Case make_feed(test::Content content, int channels, int elem_size, int bands)
{
    constexpr int kWidth = 2000;
    constexpr int kHeight = 1500;
    const auto f = std::make_shared<Feeding>(content, kWidth, kHeight, channels, elem_size, bands);
    Case c;
    c.size = std::to_string(kWidth) + "x" + std::to_string(kHeight) + "x" + std::to_string(channels);
    c.content = test::name_of(content) + (elem_size == 2 ? "/16" : "") + "/" + std::to_string(bands);
    c.pixels = kWidth * kHeight;
    c.fast = [f] { multi_band_blender_feed(&f->blender, &f->img, &f->mask, {200, 150}); };
    c.twin = [f] { reference::multi_band_feed(f->twin, f->img, f->mask, {200, 150}); };
    c.same = [f] { return f->same(); };
    return c;
}

// Blending frees the canvas, so that every call gets a copy of it.
struct Blending {
    Blending(int width, int height, int channels, int bands)
        : feeding(test::Content::Photograph, width, height, channels, 1, bands)
    {
        multi_band_blender_feed(&feeding.blender, &feeding.img, &feeding.mask, {0, 0});
        multi_band_blender_feed(&feeding.blender, &feeding.img, &feeding.mask, {400, 300});
        reference::multi_band_feed(feeding.twin, feeding.img, feeding.mask, {0, 0});
        reference::multi_band_feed(feeding.twin, feeding.img, feeding.mask, {400, 300});
    }
    ~Blending()
    {
        if (is_copied)
            multi_band_blender_blend(&copy, nullptr, 1);
        MatDestroy(&out);
    }
    Blending(const Blending&) = delete;
    Blending& operator=(const Blending&) = delete;

    static Matf* copy_levels(const Matf* levels, int count)
    {
        Matf* const copies = static_cast<Matf*>(std::calloc(static_cast<std::size_t>(count), sizeof(Matf)));
        for (int i = 0; i < count; ++i) {
            MatfReset(&copies[i], levels[i].width, levels[i].height, levels[i].channels);
            std::memcpy(copies[i].data, levels[i].data,
                        static_cast<std::size_t>(levels[i].width) * static_cast<std::size_t>(levels[i].height) *
                            static_cast<std::size_t>(levels[i].channels) * sizeof(float));
        }
        return copies;
    }

    void restore()
    {
        if (is_copied)
            multi_band_blender_blend(&copy, nullptr, 1);
        copy = feeding.blender;
        copy.dstPyrLaplace = copy_levels(feeding.blender.dstPyrLaplace, copy.numBands + 1);
        copy.dstBandWeights = copy_levels(feeding.blender.dstBandWeights, copy.numBands + 1);
        is_copied = true;
        twin_copy = feeding.twin;
    }

    void run()
    {
        multi_band_blender_blend(&copy, &out, 1);
        is_copied = false;
    }

    Feeding feeding;
    MultiBandBlender copy{};
    bool is_copied = false;
    reference::MultiBand twin_copy;
    Mat out{};
    std::vector<std::uint8_t> expected;
};

Case make_blend(int channels)
{
    const auto b = std::make_shared<Blending>(1600, 1200, channels, 5);
    const Roi canvas = b->feeding.blender.dstRoiFinal;
    const auto pixels = static_cast<std::size_t>(canvas.width) * static_cast<std::size_t>(canvas.height);
    Case c;
    c.size = std::to_string(canvas.width) + "x" + std::to_string(canvas.height) + "x" + std::to_string(channels);
    c.content = "photo";
    c.pixels = static_cast<double>(pixels);
    // sums and weights of every level, and the output
    c.memcpy_bytes =
        pixels * 4 * static_cast<std::size_t>(channels + 1) * 4 / 3 + pixels * static_cast<std::size_t>(channels);
    c.fast = [b] { b->run(); };
    c.twin = [b] { b->expected = reference::multi_band_blend(b->twin_copy, 1); };
    c.same = [b] { return std::memcmp(b->out.data, b->expected.data(), b->expected.size()) == 0; };
    c.restore = [b] { b->restore(); };
    return c;
}

void add_feed(test::Content content, int channels, int elem_size, int bands)
{
    add_case("multi_band_blender_feed", [=] { return make_feed(content, channels, elem_size, bands); });
}

const Registration registration([] {
    add_feed(test::Content::Photograph, 3, 1, 5);
    add_feed(test::Content::Noise, 3, 1, 5);
    add_feed(test::Content::Flat, 3, 1, 5);
    add_feed(test::Content::Photograph, 3, 2, 5);
    add_feed(test::Content::Photograph, 1, 1, 5);
    add_feed(test::Content::Photograph, 4, 1, 5);
    for (const int channels : {3, 1})
        add_case("multi_band_blender_blend", [=] { return make_blend(channels); });
});

} // namespace
} // namespace panoval::bench
