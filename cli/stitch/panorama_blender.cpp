// SPDX-License-Identifier: MIT
#include "cli/stitch/panorama_blender.h"

#include "cli/base/errors.h"
#include "cli/stitch/canvas_pages.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

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

class MultiBand : public PanoramaBlender
{
public:
    MultiBand(const PanoramaPlan& plan, const CanvasTile& tile, int bands, const std::string& output)
        : output_(output), width_(tile.columns.length()), height_(tile.rows.length()),
          bytes_(multi_band_bytes(plan, tile.pixels()))
    {
        Roi canvas = {tile.columns.first, tile.rows.first, width_, height_};
        multi_band_blender_setbands(&blender_, bands);
        multi_band_blender_prepare(&blender_, plan.channels, &canvas);
        is_open_ = blender_.dstPyrLaplace != nullptr;
        if (!is_open_)
            fail_memory(output_, bytes_);
        provide_canvas(plan, tile, blender_);
    }
    MultiBand(const MultiBand&) = delete;
    MultiBand& operator=(const MultiBand&) = delete;
    ~MultiBand() override
    {
        if (is_open_)
            multi_band_blender_blend(&blender_, nullptr, 0);
    }

    void feed(const PlacedLayer& layer, const Image& image) override
    {
        const std::optional<Point> covered = find_covered(image, layer.corner);
        if (!covered)
            return; // adds nothing here
        const Mat mat = borrow_mat(image);
        const Matb mask = borrow_mask(image);
        const float weight = weight_at(*covered);
        multi_band_blender_feed(&blender_, &mat, &mask, layer.corner);
        if (!(weight_at(*covered) > weight)) // the library leaves out a picture for which it has no memory
            fail_memory(output_, bytes_ + 16 * image.bytes() / 3);
    }

    Image blend(int bits) override
    {
        const std::vector<Run> uncovered = uncovered_runs();
        Mat panorama;
        MatInit(&panorama);
        multi_band_blender_blend(&blender_, &panorama, bits / 8);
        is_open_ = false;
        Image image = adopt_mat(panorama);
        if (image.data == nullptr)
            fail_memory(output_, bytes_);
        const std::size_t pixel_bytes = static_cast<std::size_t>(image.channels) * image.sample_bytes();
        for (const Run& run : uncovered)
            std::memset(image.data.get() + run.first * pixel_bytes, 0, run.count * pixel_bytes);
        return image;
    }

private:
    // A pixel of the canvas that the picture covers.
    std::optional<Point> find_covered(const Image& image, Point corner) const
    {
        const Roi& canvas = blender_.dstRoi;
        const std::int32_t left = std::max(canvas.x, corner.x);
        const std::int32_t right = std::min(canvas.x + canvas.width, corner.x + image.width);
        const std::int32_t bottom = std::min(canvas.y + canvas.height, corner.y + image.height);
        for (std::int32_t y = std::max(canvas.y, corner.y); y < bottom && left < right; ++y) {
            const std::uint8_t* const row =
                image.mask.get() + static_cast<std::size_t>(y - corner.y) * static_cast<std::size_t>(image.width);
            const std::uint8_t* const end = row + (right - corner.x);
            const std::uint8_t* const at =
                std::find_if(row + (left - corner.x), end, [](std::uint8_t value) { return value != 0; });
            if (at != end)
                return Point{corner.x + static_cast<std::int32_t>(at - row), y};
        }
        return std::nullopt;
    }

    float weight_at(Point at) const
    {
        const Matf& weights = blender_.dstBandWeights[0];
        return weights
            .data[static_cast<std::size_t>(at.y - blender_.dstRoi.y) * static_cast<std::size_t>(weights.width) +
                  static_cast<std::size_t>(at.x - blender_.dstRoi.x)];
    }

    // Pixels of the panorama that follow each other in memory.
    struct Run {
        std::size_t first;
        std::size_t count;
    };

    // Where the sum of weights is 0; the canvas of the sums is wider than the panorama.
    std::vector<Run> uncovered_runs() const
    {
        const Matf& weights = blender_.dstBandWeights[0];
        const auto width = static_cast<std::size_t>(width_);
        const auto is_covered = [](float weight) { return weight > 0; };
        std::vector<Run> runs;
        for (std::size_t y = 0; y < static_cast<std::size_t>(height_); ++y) {
            const float* const row = weights.data + y * static_cast<std::size_t>(weights.width);
            const float* const end = row + width;
            for (const float* at = skip_covered(row, end); at != end; at = skip_covered(at, end)) {
                const float* const next = std::find_if(at, end, is_covered);
                runs.push_back({y * width + static_cast<std::size_t>(at - row), static_cast<std::size_t>(next - at)});
                at = next;
            }
        }
        return runs;
    }

    // The first pixel without weight: many at a time where all have some, as most have.
    static const float* skip_covered(const float* at, const float* end)
    {
        constexpr int kMany = 32;
        for (; end - at >= kMany; at += kMany) {
            int uncovered = 0;
            for (int i = 0; i < kMany; ++i)
                uncovered += at[i] > 0 ? 0 : 1;
            if (uncovered != 0)
                break;
        }
        return std::find_if(at, end, [](float weight) { return !(weight > 0); });
    }

    MultiBandBlender blender_{};
    std::string output_;
    std::int32_t width_;
    std::int32_t height_;
    std::uint64_t bytes_;
    bool is_open_ = false;
};

} // namespace

std::unique_ptr<PanoramaBlender> make_multi_band_blender(const PanoramaPlan& plan, const CanvasTile& tile, int bands,
                                                         const std::string& output)
{
    return std::make_unique<MultiBand>(plan, tile, bands, output);
}

std::unique_ptr<PanoramaBlender> make_feather_blender(const PanoramaPlan& plan, const std::string& output)
{
    return std::make_unique<Feather>(plan, output);
}

} // namespace panoval::cli
