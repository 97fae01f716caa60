// SPDX-License-Identifier: MIT
#include "cli/panorama_blender.h"

#include "cli/errors.h"

#include <utility>

namespace panoval::cli
{

namespace
{

class Feather : public PanoramaBlender
{
public:
    Feather(const PanoramaPlan& plan, const std::string& output) : output_(output)
    {
        const Roi canvas = {0, 0, plan.width, plan.height};
        bytes_ = 4 * static_cast<std::uint64_t>(plan.width) * static_cast<std::uint64_t>(plan.height) *
                 static_cast<std::uint64_t>(plan.channels + 1);
        feather_blender_prepare(&blender_, plan.channels, &canvas);
        if (blender_.dst.data == nullptr || blender_.dstWeightMap.data == nullptr) {
            release();
            fail_memory(output_, bytes_);
        }
    }
    Feather(const Feather&) = delete;
    Feather& operator=(const Feather&) = delete;
    ~Feather() override { release(); }

    void feed(const PlacedLayer& layer, const Image& image) override
    {
        if (!layer.inner_sides.any())
            return feed_as_it_is(image, layer.corner);
        // The library takes no border for an edge, so it needs to see that nothing follows.
        const Point corner = {layer.corner.x - (layer.inner_sides.left ? 1 : 0),
                              layer.corner.y - (layer.inner_sides.top ? 1 : 0)};
        feed_as_it_is(add_uncovered_frame(image, layer.inner_sides, layer.file), corner);
    }

    Image blend(int bits) override
    {
        Mat panorama;
        MatInit(&panorama);
        feather_blender_blend(&blender_, &panorama, bits / 8);
        Image image = adopt_mat(panorama);
        if (image.data == nullptr)
            fail_memory(output_, bytes_);
        return image;
    }

private:
    void feed_as_it_is(const Image& image, Point corner)
    {
        const Mat mat = borrow_mat(image);
        const Matb mask = borrow_mask(image);
        feather_blender_feed(&blender_, &mat, &mask, corner);
        if (blender_.weightMap.data == nullptr)
            fail_memory(output_, bytes_ + 8 * image.pixels());
    }

    void release()
    {
        std::free(std::exchange(blender_.dst.data, nullptr));
        std::free(std::exchange(blender_.distScratch.data, nullptr));
        std::free(std::exchange(blender_.weightMap.data, nullptr));
        std::free(std::exchange(blender_.dstWeightMap.data, nullptr));
    }

    FeatherBlender blender_{};
    std::string output_;
    std::uint64_t bytes_ = 0;
};

} // namespace

std::unique_ptr<PanoramaBlender> make_feather_blender(const PanoramaPlan& plan, const std::string& output)
{
    return std::make_unique<Feather>(plan, output);
}

} // namespace panoval::cli
