// SPDX-License-Identifier: MIT
#include "mosaic/tiles/tile_run.h"

#include "mosaic/base/errors.h"
#include "mosaic/base/parallel.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

namespace panoval::mosaic
{

namespace
{

// Room for a piece that is being blended or waits for the sink.
struct Slot {
    std::uint8_t* samples = nullptr;
    std::uint8_t* coverage = nullptr; // null where nobody wants it
    std::int64_t missing = 0;         // tiles
};

class Run
{
public:
    Run(const TileGrid& grid, const TileBlender& blender, const RunOptions& options, Progress& progress, TileSink& sink)
        : grid_(grid), blender_(blender), options_(options), progress_(progress), sink_(sink),
          tiles_of_piece_(options.delivery == Delivery::Rows ? grid.columns() : 1),
          slots_(output_slots(grid, options.delivery, options.threads))
    {
        // Samples first, which may be of two bytes.
        const auto pixels = static_cast<std::size_t>(piece_rect(0).pixels());
        const std::size_t sample_bytes = pixels * options.pixel_bytes;
        memory_ = std::make_unique_for_overwrite<std::uint8_t[]>(
            slots_.size() * (sample_bytes + (options.wants_coverage ? pixels : 0)));
        for (std::size_t i = 0; i < slots_.size(); ++i) {
            slots_[i].samples = memory_.get() + i * sample_bytes;
            if (options.wants_coverage)
                slots_[i].coverage = memory_.get() + slots_.size() * sample_bytes + i * pixels;
            slots_[i].missing = tiles_of_piece_;
        }
    }

    // Blends and delivers until there is nothing left to begin. One thread alone comes to the end as well.
    void work()
    {
        std::unique_lock lock(mutex_);
        try {
            while (!has_failed_ && next_piece_ < pieces()) {
                if (!is_delivering_ && slot_of(next_piece_).missing == 0)
                    deliver(lock);
                else if (next_tile_ < grid_.count() && piece_of(next_tile_) < next_piece_ + count_of(slots_))
                    blend(lock);
                else
                    changed_.wait(lock);
            }
        } catch (...) {
            if (!lock.owns_lock())
                lock.lock();
            has_failed_ = true;
            changed_.notify_all();
            throw;
        }
    }

private:
    static std::int64_t count_of(const std::vector<Slot>& slots) { return static_cast<std::int64_t>(slots.size()); }
    std::int64_t pieces() const { return grid_.count() / tiles_of_piece_; }
    std::int64_t piece_of(std::int64_t tile) const { return tile / tiles_of_piece_; }
    Slot& slot_of(std::int64_t piece) { return slots_[static_cast<std::size_t>(piece % count_of(slots_))]; }

    Rect piece_rect(std::int64_t piece) const
    {
        return options_.delivery == Delivery::Rows ? grid_.strip(piece) : grid_.tile(piece);
    }

    void blend(std::unique_lock<std::mutex>& lock)
    {
        const std::int64_t tile = next_tile_++;
        Slot& slot = slot_of(piece_of(tile));
        lock.unlock();
        const Rect piece = piece_rect(piece_of(tile));
        const Rect rect = grid_.tile(tile);
        const auto stride = static_cast<std::size_t>(piece.width);
        const auto offset = static_cast<std::size_t>(rect.x - piece.x);
        blender_.blend(rect, slot.samples + offset * options_.pixel_bytes, stride * options_.pixel_bytes,
                       options_.wants_coverage ? slot.coverage + offset : nullptr, stride);
        lock.lock();
        ++blended_;
        if (--slot.missing == 0)
            changed_.notify_all();
        const double fraction = static_cast<double>(blended_) / static_cast<double>(grid_.count());
        lock.unlock();
        progress_.report(Phase::Blend, fraction);
        lock.lock();
    }

    void deliver(std::unique_lock<std::mutex>& lock)
    {
        is_delivering_ = true;
        Slot& slot = slot_of(next_piece_);
        const Rect rect = piece_rect(next_piece_);
        lock.unlock();
        const auto width = static_cast<std::size_t>(rect.width);
        sink_.take({rect, slot.samples, width * options_.pixel_bytes, slot.coverage, width});
        lock.lock();
        slot.missing = tiles_of_piece_;
        is_delivering_ = false;
        ++next_piece_;
        changed_.notify_all();
    }

    const TileGrid& grid_;
    const TileBlender& blender_;
    const RunOptions& options_;
    Progress& progress_;
    TileSink& sink_;
    const std::int64_t tiles_of_piece_;
    std::vector<Slot> slots_;
    std::unique_ptr<std::uint8_t[]> memory_; // of the slots

    std::mutex mutex_;
    std::condition_variable changed_;
    std::int64_t next_tile_ = 0;  // to be blended
    std::int64_t next_piece_ = 0; // to be delivered
    std::int64_t blended_ = 0;    // tiles
    bool is_delivering_ = false;
    bool has_failed_ = false;
};

} // namespace

void run_tiles(const TileGrid& grid, const TileBlender& blender, const RunOptions& options, MemoryMeter& meter,
               Progress& progress, TileSink& sink)
{
    const Rect piece = options.delivery == Delivery::Rows ? grid.strip(0) : grid.tile(0);
    const std::size_t pixel_bytes = options.pixel_bytes + (options.wants_coverage ? 1 : 0);
    const MeteredMemory output(meter, static_cast<std::size_t>(piece.pixels()) * pixel_bytes *
                                          output_slots(grid, options.delivery, options.threads));
    const MeteredMemory scratch(meter, options.threads * blender.scratch_bytes(grid.tile_width, grid.tile_height));
    Run run(grid, blender, options, progress, sink);
    run_in_parallel(options.threads, options.threads, [&](std::size_t) { run.work(); });
}

} // namespace panoval::mosaic
