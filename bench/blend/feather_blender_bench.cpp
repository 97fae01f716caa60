// SPDX-License-Identifier: MIT
#include "bench/support/routine.h"
#include "panoval.h"
#include "tests/reference/feather_blender.h"
#include "tests/support/noise.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace
{

using panoval::test::Content;

// Image, mask, the two passes over the scratch, the weights, and the canvas read and written.
constexpr std::size_t feed_bytes(std::size_t channels, std::size_t elem_size)
{
    return channels * elem_size + 1 + 12 + 4 + 8 * channels + 8;
}

// One image of the canvas's size, and two records: the routine's and the twin's.
struct Feather {
    std::vector<std::uint8_t> samples, covered;
    Mat img{};
    Matb mask{};
    Roi canvas{};
    FeatherBlender blender[2]{};
    Mat out[2]{};
    std::size_t pixels = 0;

    Feather(Content content, int width, int height, int channels, int elem_size)
    {
        pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
        samples = panoval::test::picture(content, width * channels * elem_size, height, 1);
        covered = panoval::test::picture(content, width, height, 2);
        if (content == Content::Photograph) // a remapped picture: the dark parts are outside it
            for (auto& value : covered)
                value = value < 60 ? 0 : 255;
        img = {width, height, channels, elem_size, static_cast<int>(samples.size()), 0, samples.data()};
        mask = {width, height, 1, covered.data()};
        canvas = {0, 0, width, height};
    }
    Feather(const Feather&) = delete;
    Feather& operator=(const Feather&) = delete;
    ~Feather()
    {
        for (int i = 0; i < 2; ++i) {
            for (Matf* const m :
                 {&blender[i].dst, &blender[i].distScratch, &blender[i].weightMap, &blender[i].dstWeightMap})
                std::free(m->data);
            MatDestroy(&out[i]);
        }
    }

    void prepare()
    {
        feather_blender_prepare(&blender[0], img.channels, &canvas);
        panoval::reference::feather_blender_prepare(&blender[1], img.channels, &canvas);
    }
    void feed() { feather_blender_feed(&blender[0], &img, &mask, {0, 0}); }
    void feed_twin() { panoval::reference::feather_blender_feed(&blender[1], &img, &mask, {0, 0}); }
    void blend() { feather_blender_blend(&blender[0], &out[0], img.elemSize); }
    void blend_twin() { panoval::reference::feather_blender_blend(&blender[1], &out[1], img.elemSize); }

    bool same_sums() const
    {
        return same(blender[0].dst, blender[1].dst) && same(blender[0].dstWeightMap, blender[1].dstWeightMap);
    }
    static bool same(const Matf& a, const Matf& b)
    {
        const auto count = static_cast<std::size_t>(a.width) * static_cast<std::size_t>(a.height) *
                           static_cast<std::size_t>(a.channels);
        return std::memcmp(a.data, b.data, 4 * count) == 0;
    }
    bool same_panorama() const
    {
        return std::memcmp(out[0].data, out[1].data, static_cast<std::size_t>(out[0].size)) == 0;
    }
};

std::shared_ptr<Feather> make_feather(Content content, int width, int height, int channels, int elem_size)
{
    return std::make_shared<Feather>(content, width, height, channels, elem_size);
}

panoval::bench::Case describe(const Feather& f, Content content)
{
    panoval::bench::Case c;
    c.size = std::to_string(f.img.width) + "x" + std::to_string(f.img.height);
    c.content = name_of(content);
    c.pixels = static_cast<double>(f.pixels);
    return c;
}

// Fed again and again onto the same canvas.
panoval::bench::Case make_feed(Content content, int width, int height, int channels, int elem_size)
{
    const auto f = make_feather(content, width, height, channels, elem_size);
    f->prepare();
    auto c = describe(*f, content);
    c.memcpy_bytes = f->pixels * feed_bytes(static_cast<std::size_t>(channels), static_cast<std::size_t>(elem_size));
    c.fast = [f] { f->feed(); };
    c.twin = [f] { f->feed_twin(); };
    c.same = [f] { return f->same_sums(); };
    return c;
}

// Each call blends a canvas that was prepared and fed untimed.
panoval::bench::Case make_blend(Content content, int width, int height, int channels, int elem_size)
{
    const auto f = make_feather(content, width, height, channels, elem_size);
    auto c = describe(*f, content);
    c.memcpy_bytes = f->pixels * static_cast<std::size_t>(channels * (4 + elem_size) + 4);
    c.fast = [f] { f->blend(); };
    c.twin = [f] { f->blend_twin(); };
    c.same = [f] {
        f->prepare();
        f->feed();
        f->feed_twin();
        f->blend();
        f->blend_twin();
        return f->same_panorama();
    };
    c.restore = [f] {
        f->prepare();
        f->feed();
        f->feed_twin();
    };
    return c;
}

// A whole panorama of one image, fresh pages included.
panoval::bench::Case make_panorama(Content content, int width, int height)
{
    const auto f = make_feather(content, width, height, 3, 1);
    auto c = describe(*f, content);
    c.fast = [f] {
        feather_blender_prepare(&f->blender[0], 3, &f->canvas);
        f->feed();
        f->blend();
    };
    c.twin = [f] {
        panoval::reference::feather_blender_prepare(&f->blender[1], 3, &f->canvas);
        f->feed_twin();
        f->blend_twin();
    };
    c.same = [f] { return f->same_panorama(); };
    return c;
}

std::string name(const char* routine, int channels, int elem_size)
{
    return std::string(routine) + " " + std::to_string(channels) + "x" + std::to_string(8 * elem_size);
}

void add_feed(Content content, int width, int height, int channels, int elem_size)
{
    panoval::bench::add_case(name("feather_blender_feed", channels, elem_size),
                             [=] { return make_feed(content, width, height, channels, elem_size); });
}

void add_blend(Content content, int width, int height, int channels, int elem_size)
{
    panoval::bench::add_case(name("feather_blender_blend", channels, elem_size),
                             [=] { return make_blend(content, width, height, channels, elem_size); });
}

void add_panorama(Content content, int width, int height)
{
    panoval::bench::add_case(name("feather panorama", 3, 1), [=] { return make_panorama(content, width, height); });
}

const panoval::bench::Registration registration([] {
    for (const Content content : {Content::Noise, Content::Photograph, Content::Flat, Content::Checkerboard})
        add_feed(content, 2000, 1500, 3, 1);
    add_feed(Content::Photograph, 6000, 4000, 3, 1);
    add_feed(Content::Photograph, 2000, 1500, 3, 2);
    add_feed(Content::Photograph, 2000, 1500, 1, 1);
    for (const Content content : {Content::Noise, Content::Photograph, Content::Flat})
        add_blend(content, 2000, 1500, 3, 1);
    add_blend(Content::Photograph, 2000, 1500, 3, 2);
    add_blend(Content::Photograph, 2000, 1500, 1, 1);
    add_panorama(Content::Photograph, 2000, 1500);
    add_panorama(Content::Photograph, 6000, 4000);
});

} // namespace
