// SPDX-License-Identifier: MIT
#include "cli/stitch/tile_tasks.h"

#include "image/interruption.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>

namespace panoval::cli
{

namespace
{

// While there is one, an interruption waits until a tile's worker asks for it.
struct WaitingInterruption {
    WaitingInterruption() { image::InterruptionByHand::begin(); }
    WaitingInterruption(const WaitingInterruption&) = delete;
    WaitingInterruption& operator=(const WaitingInterruption&) = delete;
    ~WaitingInterruption() { image::InterruptionByHand::end(); }
};

class TileWork
{
public:
    TileWork(PanoramaJob& job, PictureFiles& files, const image::ZarrStore& store, const OutputTiles& tiles,
             const TileOrders& orders)
        : job_(job), files_(files), store_(store), tiles_(tiles), orders_(orders)
    {
    }

    TilesDone run()
    {
        const WaitingInterruption waiting;
        std::vector<std::thread> others;
        for (std::size_t i = 1; i < threads(); ++i) {
            try {
                others.emplace_back([this] { work(); });
            } catch (const std::system_error&) { // the system gives no more of them
                break;
            }
        }
        work();
        for (std::thread& other : others)
            other.join();
        if (failure_ != nullptr)
            std::rethrow_exception(failure_);
        repeat_failed();
        std::sort(done_.failed.begin(), done_.failed.end(),
                  [](const FailedTile& a, const FailedTile& b) { return a.tile < b.tile; });
        return done_;
    }

private:
    std::size_t threads() const
    {
        PanovalMosaicEstimate estimate{};
        job_.mosaic.check(panoval_mosaic_estimate(job_.mosaic.get(), &estimate));
        return std::min(orders_.numbers.size(), static_cast<std::size_t>(std::max(estimate.threads, 1)));
    }

    // Takes tiles until there are none left, or there is no sense in going on.
    void work()
    {
        try {
            Image buffer;
            for (std::int64_t tile = 0; take(tile);)
                if (orders_.keeps && store_.has_tile(tile))
                    count(done_.kept);
                else if (make(tile, buffer))
                    count(done_.made);
        } catch (...) {
            const std::lock_guard lock(mutex_);
            if (failure_ == nullptr)
                failure_ = std::current_exception();
        }
    }

    bool take(std::int64_t& tile)
    {
        image::InterruptionByHand::check();
        const std::lock_guard lock(mutex_);
        if (next_ == orders_.numbers.size() || failure_ != nullptr || (orders_.stops_early && has_failed()))
            return false;
        tile = orders_.numbers[next_++];
        orders_.begun(tile);
        return true;
    }

    bool has_failed() const { return !done_.failed.empty() || !to_repeat_.empty(); }

    void count(std::int64_t& counter)
    {
        const std::lock_guard lock(mutex_);
        ++counter;
    }

    // Whether the tile is in the store.
    bool make(std::int64_t tile, Image& buffer)
    {
        try {
            const PanovalMosaicRect rect = tiles_.rect(tile);
            prepare(rect, buffer);
            const std::int32_t code =
                panoval_mosaic_blend(job_.mosaic.get(), &rect, buffer.data.get(), buffer.row_bytes(), buffer.mask.get(),
                                     static_cast<std::size_t>(buffer.width));
            if (code != PANOVAL_MOSAIC_OK) {
                const std::lock_guard lock(mutex_);
                to_repeat_.push_back(tile);
                return false;
            }
            write(tile, buffer);
            return true;
        } catch (const Failure& failure) {
            add_failure(tile, failure.what(), failure.fault());
        } catch (const std::bad_alloc&) {
            add_failure(tile, "not enough memory", Fault::Memory);
        }
        return false;
    }

    std::int32_t blend(std::int64_t tile, Image& buffer) const
    {
        const PanovalMosaicRect rect = tiles_.rect(tile);
        if (buffer.width != rect.width || buffer.height != rect.height)
            prepare(rect, buffer);
        return panoval_mosaic_blend(job_.mosaic.get(), &rect, buffer.data.get(), buffer.row_bytes(), buffer.mask.get(),
                                    static_cast<std::size_t>(buffer.width));
    }

    void prepare(const PanovalMosaicRect& rect, Image& buffer) const
    {
        buffer = make_image(static_cast<std::int32_t>(rect.width), static_cast<std::int32_t>(rect.height),
                            job_.layout.channels, job_.output_bits(), job_.options.output);
        if (job_.options.wants_alpha)
            ensure_mask(buffer, job_.options.output);
    }

    void write(std::int64_t tile, const Image& buffer) const
    {
        const PanovalMosaicRect rect = tiles_.rect(tile);
        const ConstRows rows = {buffer.data.get(), buffer.row_bytes(), buffer.mask.get(),
                                static_cast<std::size_t>(buffer.width)};
        store_.mark_tile(tile, store_.write_pixels(0, rect.x - tiles_.region.x, rect.y - tiles_.region.y, buffer.width,
                                                   buffer.height, rows));
    }

    void add_failure(std::int64_t tile, const std::string& what, Fault fault)
    {
        const std::lock_guard lock(mutex_);
        done_.failed.push_back({tile, concat("tile ", tile, ": ", what), fault});
    }

    // Where several tiles fail at once, what the engine and the files say is not about one of them alone: those that
    // the engine could not make are tried once more, one after the other.
    void repeat_failed()
    {
        Image buffer;
        for (const std::int64_t tile : to_repeat_) {
            image::InterruptionByHand::check();
            try {
                forget_failure();
                const std::int32_t code = blend(tile, buffer);
                files_.rethrow();
                job_.mosaic.check(code);
                write(tile, buffer);
                ++done_.made;
            } catch (const Failure& failure) {
                add_failure(tile, failure.what(), failure.fault());
            } catch (const std::bad_alloc&) {
                add_failure(tile, "not enough memory", Fault::Memory);
            }
        }
    }

    void forget_failure()
    {
        try {
            files_.rethrow();
        } catch (const std::exception&) { // of an earlier try
        }
    }

    PanoramaJob& job_;
    PictureFiles& files_;
    const image::ZarrStore& store_;
    const OutputTiles& tiles_;
    const TileOrders& orders_;
    std::mutex mutex_;
    std::size_t next_ = 0;
    std::vector<std::int64_t> to_repeat_;
    std::exception_ptr failure_; // of another kind: an interruption, a defect
    TilesDone done_;
};

} // namespace

image::StorePicture store_picture(const PanoramaJob& job, const OutputTiles& tiles)
{
    image::StorePicture picture;
    picture.array.width = tiles.region.width;
    picture.array.height = tiles.region.height;
    picture.array.channels = job.layout.channels + (job.options.wants_alpha ? 1 : 0);
    picture.array.bits = job.output_bits();
    picture.array.chunk_width = chunk_side(tiles.tile_width, tiles.region.width);
    picture.array.chunk_height = chunk_side(tiles.tile_height, tiles.region.height);
    picture.array.is_compressed = job.options.compression != "none";
    picture.origin = {job.layout.origin_x + tiles.region.x, job.layout.origin_y + tiles.region.y};
    picture.plan = job.id;
    picture.tiles = tiles.count();
    picture.metadata = job.metadata.value_or(Metadata());
    return picture;
}

TilesDone make_tiles(PanoramaJob& job, PictureFiles& files, const image::ZarrStore& store, const OutputTiles& tiles,
                     const TileOrders& orders)
{
    return TileWork(job, files, store, tiles, orders).run();
}

} // namespace panoval::cli
