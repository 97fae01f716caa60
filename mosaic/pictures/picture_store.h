// SPDX-License-Identifier: MIT
// The pictures' pixels within a fixed memory, from a host that may be slow to give them.
//
// Pictures are kept in bands of whole rows, least recently used ones leave first. A picture that the host can give only
// from its first row on is read as a whole when it is needed first; where not all pictures fit into memory, what is
// read goes into a temporary file as well, so that nothing is asked for twice. Without such a file the host is asked
// again.
#pragma once

#include "mosaic/base/block_pool.h"
#include "mosaic/base/layout.h"
#include "mosaic/base/memory_meter.h"
#include "mosaic/base/scratch_file.h"
#include "mosaic/pictures/pixel_block.h"
#include "mosaic/pictures/row_source.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

namespace panoval::mosaic
{

struct StoreBudget {
    std::size_t bytes = 0;       // that pictures may take at first
    std::size_t least_bytes = 0; // the least that set_budget is going to leave them
    bool may_use_scratch = true; // the temporary file
    std::size_t threads = 1;     // that read at a time
};

// Rows first to end - 1 of a picture.
struct RowRange {
    std::size_t picture = 0;
    std::int64_t first = 0;
    std::int64_t end = 0;
};

struct StoreCounts {
    std::uint64_t rows = 0;          // that the host has given
    double pictures = 0;             // the same in whole pictures
    std::uint64_t scratch_bytes = 0; // written to the temporary file
};

class PictureStore : public PictureReader
{
public:
    // Everything that is passed must outlive the store.
    PictureStore(const Layout& layout, const std::vector<PictureTraits>& traits, RowSource& source, MemoryMeter& meter,
                 const StoreBudget& budget);

    void read(std::size_t picture, const Rect& rect, PixelBlock& block) override;
    bool hold(std::size_t picture, const Rect& rect, HeldRows& rows) override;
    bool keeps_all() const override { return all_fit_; }

    void read_mask(std::size_t picture, const Rect& rect, std::uint8_t* out) override;
    bool read_keep(std::size_t picture, const Rect& rect, std::uint8_t* out) override;

    // Where all pictures are kept anyway: fetches these rows from the host, of several pictures at a time, and all rows
    // of one that it gives from the first row on only. Threads that then work on the same overlap do not wait for each
    // other. Each picture comes once.
    void load(const std::vector<RowRange>& ranges, std::size_t threads);

    void set_budget(std::size_t bytes);
    StoreCounts counts() const;

private:
    using Block = std::shared_ptr<std::uint8_t>;

    // Rows of a picture. Samples come first in the block, then what is to be kept, then the mask: nothing of it, not
    // even memory of the system's, where the rows are covered everywhere.
    struct Band {
        Block block; // null where the band is not in memory
        bool is_covered = false;
    };

    struct Key {
        std::size_t picture;
        std::size_t band;
    };
    struct Slot {
        Band band;
        std::list<Key>::iterator place;
    };
    struct Picture {
        std::int64_t width = 0;
        std::int64_t height = 0;
        std::size_t sample_row = 0; // bytes
        std::size_t mask_row = 0;   // 0 where there is none
        std::size_t keep_row = 0;   // 0 where there is none
        std::int64_t band_rows = 0;
        std::uint64_t scratch_offset = 0;
        bool random_access = false;

        std::mutex turn; // of those who read from the host or the file; guards:
        std::vector<bool> is_in_scratch;
        std::vector<bool> is_covered; // what is in the temporary file
        std::size_t next_band = 0;    // of a picture without random access: what the host would give next

        std::vector<Slot> slots; // guarded by the store's mutex
        std::atomic<std::uint64_t> rows_read{0};

        std::size_t row_bytes() const { return sample_row + mask_row + keep_row; }
        std::size_t bytes_of(std::size_t band, bool without_mask) const;
        const std::uint8_t* masks_in(const Band& band, std::int64_t band_rows) const; // null where all is covered
        std::size_t bands() const { return slots.size(); }
        std::int64_t rows_of(std::size_t band) const;
    };

    // The part of a rectangle that lies in one band.
    struct Part {
        Band band;
        std::int64_t band_rows = 0; // of the band
        std::int64_t row = 0;       // first one, in the band
        std::int64_t count = 0;
        std::int64_t to = 0; // first one, in the rectangle
    };

    void set_up(std::size_t picture, const Layout& layout, const PictureTraits& traits);
    static void copy_rows(const Part& part, const std::uint8_t* plane, std::size_t stride, std::int64_t width,
                          std::uint8_t* out);
    template <class Take>
    void for_each_part(std::size_t picture, const Rect& rect, const Take& take);
    Band band(std::size_t picture, std::size_t index);
    Band find(const Key& key);
    void keep(const Key& key, const Band& band);
    Block new_block();
    bool evict_one();
    void evict_slabs(std::size_t most_blocks);
    Band read_one(std::size_t picture, std::size_t index);
    Band read_from_start(std::size_t picture, std::size_t index);
    Band read_scratch(Picture& from, std::size_t index);
    void write_scratch(Picture& to, std::size_t index, const Band& band);
    Band read_host(std::size_t picture, std::size_t index);
    void close_others(std::size_t picture);
    std::size_t most_blocks() const { return budget_ / pool_.block_bytes(); }
    std::shared_ptr<void> pin(std::size_t blocks);

    RowSource& source_;
    const std::size_t working_blocks_; // that threads read into and copy from
    const int channels_;
    const int sample_bytes_;
    BlockPool pool_;
    std::vector<std::uint8_t> covered_row_; // as long as the longest mask's
    std::deque<Picture> pictures_;
    bool all_fit_ = false; // into the least memory that the store will have

    mutable std::mutex mutex_; // of what follows, and of the pictures' slots
    std::list<Key> used_;      // the one used last in front
    std::atomic<std::size_t> budget_{0};
    std::atomic<std::size_t> pinned_{0}; // blocks whose rows are held
    std::deque<std::size_t> open_;       // pictures that the host has been asked for in part

    ScratchFile scratch_;
    std::atomic<bool> has_scratch_{false};
    std::atomic<std::uint64_t> scratch_bytes_{0};
};

} // namespace panoval::mosaic
