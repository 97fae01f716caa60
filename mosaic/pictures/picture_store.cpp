// SPDX-License-Identifier: MIT
#include "mosaic/pictures/picture_store.h"

#include "mosaic/base/parallel.h"
#include "mosaic/pictures/store_blocks.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace panoval::mosaic
{

namespace
{

constexpr std::uint8_t kCovered = 255;

// Blocks come from the heap in slabs of more than a heap keeps of what was freed: those that stay take nothing from
// what comes and goes, and the system gets back what a smaller budget leaves over. Of those that may leave so early few
// come together, for all of them leave together.
constexpr std::size_t kStayingSlab = std::size_t{64} << 20;
constexpr std::size_t kLeavingSlab = std::size_t{8} << 20;

// Files that a host may have to keep open at once.
constexpr std::size_t kMostOpen = 64;

bool is_covered_everywhere(const std::uint8_t* mask, std::size_t bytes)
{
    return mask[0] == kCovered && std::memcmp(mask, mask + 1, bytes - 1) == 0;
}

} // namespace

std::size_t PictureStore::Picture::bytes_of(std::size_t band, bool without_mask) const
{
    return static_cast<std::size_t>(rows_of(band)) * (without_mask ? sample_row + keep_row : row_bytes());
}

std::int64_t PictureStore::Picture::rows_of(std::size_t band) const
{
    return std::min(band_rows, height - static_cast<std::int64_t>(band) * band_rows);
}

const std::uint8_t* PictureStore::Picture::masks_in(const Band& band, std::int64_t rows) const
{
    if (band.is_covered)
        return nullptr;
    return band.block.get() + static_cast<std::size_t>(rows) * (sample_row + keep_row);
}

PictureStore::PictureStore(const Layout& layout, const std::vector<PictureTraits>& traits, RowSource& source,
                           MemoryMeter& meter, const StoreBudget& budget)
    : source_(source), working_blocks_(count_working_blocks(layout, budget.threads)), channels_(layout.channels),
      sample_bytes_(layout.sample_bytes()), pool_(choose_block(layout, traits, budget.least_bytes), meter),
      budget_(budget.bytes)
{
    for (std::size_t i = 0; i < layout.pictures.size(); ++i)
        set_up(i, layout, traits[i]);
    for (const Picture& picture : pictures_)
        covered_row_.resize(std::max(covered_row_.size(), picture.mask_row), kCovered);
    std::size_t bands = 0;
    bool is_all_random = true;
    for (const Picture& picture : pictures_) {
        bands += picture.bands();
        is_all_random = is_all_random && picture.random_access;
    }
    const std::size_t for_masks = count_mask_blocks(layout, budget.threads);
    all_fit_ = bands + for_masks <= budget.least_bytes / pool_.block_bytes();
    if (all_fit_)
        pool_.expect(bands + for_masks, kStayingSlab);
    else
        pool_.expect(most_blocks(), kLeavingSlab);
    if (!all_fit_ && !is_all_random && budget.may_use_scratch)
        has_scratch_ = scratch_.open();
}

void PictureStore::set_up(std::size_t picture, const Layout& layout, const PictureTraits& traits)
{
    const Rect& rect = layout.pictures[picture].rect;
    const RowSizes sizes = row_sizes(layout, picture, traits);
    std::uint64_t offset = 0;
    if (!pictures_.empty()) {
        const Picture& last = pictures_.back();
        offset = last.scratch_offset + last.row_bytes() * static_cast<std::uint64_t>(last.height);
    }
    Picture& made = pictures_.emplace_back();
    made.width = rect.width;
    made.height = rect.height;
    made.sample_row = sizes.samples;
    made.mask_row = sizes.mask;
    made.keep_row = sizes.keep;
    made.band_rows = std::min<std::int64_t>(made.height, static_cast<std::int64_t>(pool_.block_bytes() / sizes.all()));
    made.random_access = traits.random_access;
    made.scratch_offset = offset;
    const auto bands = static_cast<std::size_t>((made.height + made.band_rows - 1) / made.band_rows);
    made.slots.resize(bands);
    made.is_in_scratch.resize(bands);
    made.is_covered.resize(bands);
}

// Of the planes' rows that the part is about, `width` bytes each.
void PictureStore::copy_rows(const Part& part, const std::uint8_t* plane, std::size_t stride, std::int64_t width,
                             std::uint8_t* out)
{
    for (std::int64_t y = 0; y < part.count; ++y)
        std::memcpy(out + y * width, plane + static_cast<std::size_t>(part.row + y) * stride,
                    static_cast<std::size_t>(width));
}

template <class Take>
void PictureStore::for_each_part(std::size_t picture, const Rect& rect, const Take& take)
{
    const Picture& from = pictures_[picture];
    std::int64_t y = rect.y;
    while (y < rect.bottom()) {
        const auto index = static_cast<std::size_t>(y / from.band_rows);
        Part part;
        part.band = band(picture, index);
        part.band_rows = from.rows_of(index);
        part.row = y % from.band_rows;
        part.count = std::min(part.band_rows - part.row, rect.bottom() - y);
        part.to = y - rect.y;
        take(part);
        y += part.count;
    }
}

void PictureStore::read(std::size_t picture, const Rect& rect, PixelBlock& block)
{
    block.reset(rect, channels_, sample_bytes_);
    const Picture& from = pictures_[picture];
    const std::size_t skipped = static_cast<std::size_t>(rect.x * channels_ * sample_bytes_);
    const auto width = static_cast<std::size_t>(rect.width);
    for_each_part(picture, rect, [&](const Part& part) {
        const std::uint8_t* const samples = part.band.block.get() + skipped;
        const std::uint8_t* const masks = from.masks_in(part.band, part.band_rows);
        for (std::int64_t y = 0; y < part.count; ++y) {
            const auto row = static_cast<std::size_t>(part.row + y);
            std::memcpy(block.row(part.to + y), samples + row * from.sample_row, block.row_bytes());
            if (masks == nullptr)
                std::memset(block.mask_row(part.to + y), kCovered, width);
            else
                std::memcpy(block.mask_row(part.to + y), masks + row * from.mask_row + rect.x, width);
        }
    });
}

bool PictureStore::hold(std::size_t picture, const Rect& rect, HeldRows& rows)
{
    rows.clear();
    const Picture& from = pictures_[picture];
    if (!all_fit_) {
        const auto pins =
            pin(static_cast<std::size_t>((rect.bottom() - 1) / from.band_rows - rect.y / from.band_rows + 1));
        if (pins == nullptr)
            return false;
        rows.holders.emplace_back(pins, nullptr);
    }
    const auto skipped = static_cast<std::size_t>(rect.x * channels_ * sample_bytes_);
    bool has_mask = false;
    for_each_part(picture, rect, [&](const Part& part) {
        const std::uint8_t* const samples = part.band.block.get() + skipped;
        const std::uint8_t* const masks = from.masks_in(part.band, part.band_rows);
        has_mask = has_mask || masks != nullptr;
        for (std::int64_t y = part.row; y < part.row + part.count; ++y) {
            const auto row = static_cast<std::size_t>(y);
            rows.samples.push_back(samples + row * from.sample_row);
            if (from.mask_row > 0)
                rows.masks.push_back(masks == nullptr ? covered_row_.data() : masks + row * from.mask_row + rect.x);
        }
        rows.holders.push_back(part.band.block);
    });
    if (!has_mask)
        rows.masks.clear();
    return true;
}

// Null where more would be held than leaves all threads room to work and half of the memory to what was used last.
std::shared_ptr<void> PictureStore::pin(std::size_t blocks)
{
    const std::size_t most = most_blocks();
    const std::size_t free_to_hold = std::min(most / 2, most - std::min(most, working_blocks_));
    if (pinned_.fetch_add(blocks) + blocks > free_to_hold) {
        pinned_ -= blocks;
        return nullptr;
    }
    return {static_cast<void*>(this), [this, blocks](void*) { pinned_ -= blocks; }};
}

void PictureStore::read_mask(std::size_t picture, const Rect& rect, std::uint8_t* out)
{
    const Picture& from = pictures_[picture];
    if (from.mask_row == 0) {
        std::memset(out, kCovered, static_cast<std::size_t>(rect.pixels()));
        return;
    }
    for_each_part(picture, rect, [&](const Part& part) {
        std::uint8_t* const to = out + part.to * rect.width;
        if (const std::uint8_t* const masks = from.masks_in(part.band, part.band_rows))
            copy_rows(part, masks + rect.x, from.mask_row, rect.width, to);
        else
            std::memset(to, kCovered, static_cast<std::size_t>(part.count * rect.width));
    });
}

bool PictureStore::read_keep(std::size_t picture, const Rect& rect, std::uint8_t* out)
{
    const Picture& from = pictures_[picture];
    if (from.keep_row == 0)
        return false;
    for_each_part(picture, rect, [&](const Part& part) {
        const std::uint8_t* const keep =
            part.band.block.get() + static_cast<std::size_t>(part.band_rows) * from.sample_row;
        copy_rows(part, keep + rect.x, from.keep_row, rect.width, out + part.to * rect.width);
    });
    return true;
}

void PictureStore::load(const std::vector<RowRange>& ranges, std::size_t threads)
{
    if (!all_fit_)
        return;
    run_in_parallel(ranges.size(), threads, [&](std::size_t i) {
        const RowRange& range = ranges[i];
        for (std::int64_t y = range.first; y < range.end;) {
            const std::int64_t band_rows = pictures_[range.picture].band_rows;
            band(range.picture, static_cast<std::size_t>(y / band_rows));
            y += band_rows - y % band_rows;
        }
    });
}

PictureStore::Band PictureStore::band(std::size_t picture, std::size_t index)
{
    if (Band band = find({picture, index}); band.block != nullptr)
        return band;
    Picture& from = pictures_[picture];
    const std::lock_guard turn(from.turn);
    if (Band band = find({picture, index}); band.block != nullptr) // another thread was here first
        return band;
    if (from.is_in_scratch[index])
        if (Band band = read_scratch(from, index); band.block != nullptr) {
            keep({picture, index}, band);
            return band;
        }
    return from.random_access ? read_one(picture, index) : read_from_start(picture, index);
}

PictureStore::Band PictureStore::find(const Key& key)
{
    const std::lock_guard lock(mutex_);
    Slot& slot = pictures_[key.picture].slots[key.band];
    if (slot.band.block != nullptr)
        used_.splice(used_.begin(), used_, slot.place);
    return slot.band;
}

void PictureStore::keep(const Key& key, const Band& band)
{
    const std::lock_guard lock(mutex_);
    Slot& slot = pictures_[key.picture].slots[key.band];
    if (slot.band.block != nullptr)
        return;
    used_.push_front(key);
    slot.place = used_.begin();
    slot.band = band;
}

// Blocks that other threads are copying from do not come back at once. There are so few of them that the memory which
// is taken beyond is part of the least that a store needs.
PictureStore::Block PictureStore::new_block()
{
    while (!pool_.has_free_block() && pool_.blocks() >= std::max<std::size_t>(most_blocks(), 1) && evict_one()) {
    }
    return pool_.take();
}

bool PictureStore::evict_one()
{
    Block leaving; // comes back to the pool without the lock
    const std::lock_guard lock(mutex_);
    if (used_.empty())
        return false;
    Slot& slot = pictures_[used_.back().picture].slots[used_.back().band];
    leaving = std::move(slot.band.block);
    slot.band.block = nullptr;
    used_.pop_back();
    return true;
}

// Slabs go back to the heap as a whole: those first that were not used for longest.
void PictureStore::evict_slabs(std::size_t most_blocks)
{
    using Place = std::list<Key>::iterator;
    const std::lock_guard lock(mutex_);
    const std::vector<const std::uint8_t*> starts = pool_.slab_starts();
    std::vector<std::vector<Place>> bands(starts.size()); // of each slab
    std::vector<std::size_t> by_use;                      // slabs, the one used last in front
    for (Place key = used_.begin(); key != used_.end(); ++key) {
        const std::uint8_t* const block = pictures_[key->picture].slots[key->band].band.block.get();
        const auto behind = std::upper_bound(starts.begin(), starts.end(), block, std::less<>());
        const auto slab = static_cast<std::size_t>(behind - starts.begin()) - 1;
        if (bands[slab].empty())
            by_use.push_back(slab);
        bands[slab].push_back(key);
    }
    for (; pool_.blocks() > most_blocks && !by_use.empty(); by_use.pop_back()) {
        for (const Place key : bands[by_use.back()]) {
            pictures_[key->picture].slots[key->band].band.block = nullptr;
            used_.erase(key);
        }
        pool_.shrink(most_blocks);
    }
}

void PictureStore::set_budget(std::size_t bytes)
{
    {
        const std::lock_guard lock(mutex_);
        budget_ = bytes;
    }
    pool_.shrink(most_blocks());
    evict_slabs(most_blocks());
    if (!all_fit_)
        pool_.expect(most_blocks(), kLeavingSlab);
}

// The mask is read beside the block, which then gets it if there is anything in it to tell.
PictureStore::Band PictureStore::read_host(std::size_t picture, std::size_t index)
{
    Picture& from = pictures_[picture];
    const auto rows = static_cast<std::size_t>(from.rows_of(index));
    Band band{new_block(), true};
    const Block mask = from.mask_row == 0 ? nullptr : new_block();
    RowBuffers buffers;
    buffers.samples = band.block.get();
    buffers.samples_stride = from.sample_row;
    buffers.keep = from.keep_row == 0 ? nullptr : band.block.get() + rows * from.sample_row;
    buffers.keep_stride = from.keep_row;
    buffers.mask = mask.get();
    buffers.mask_stride = from.mask_row;
    source_.read_rows(picture, static_cast<std::int64_t>(index) * from.band_rows, static_cast<std::int64_t>(rows),
                      buffers);
    from.rows_read += rows;
    if (mask != nullptr && !is_covered_everywhere(mask.get(), rows * from.mask_row)) {
        band.is_covered = false;
        std::memcpy(band.block.get() + from.bytes_of(index, true), mask.get(), rows * from.mask_row);
    }
    return band;
}

PictureStore::Band PictureStore::read_one(std::size_t picture, std::size_t index)
{
    Band band = read_host(picture, index);
    keep({picture, index}, band);
    close_others(picture);
    return band;
}

// To the end of the picture where what comes behind the band will be found again, else to the band.
PictureStore::Band PictureStore::read_from_start(std::size_t picture, std::size_t index)
{
    Picture& from = pictures_[picture];
    if (from.next_band > index)
        from.next_band = 0;
    Band wanted;
    try {
        while (from.next_band <= index || ((has_scratch_ || all_fit_) && from.next_band < from.bands())) {
            const std::size_t now = from.next_band;
            const Band band = read_host(picture, now);
            write_scratch(from, now, band);
            keep({picture, now}, band);
            if (now == index)
                wanted = band;
            ++from.next_band;
        }
    } catch (...) {
        from.next_band = 0;
        throw;
    }
    if (from.next_band == from.bands())
        source_.release(picture);
    else
        close_others(picture);
    return wanted;
}

PictureStore::Band PictureStore::read_scratch(Picture& from, std::size_t index)
{
    Band band{new_block(), from.is_covered[index]};
    const std::uint64_t row = static_cast<std::uint64_t>(index) * static_cast<std::uint64_t>(from.band_rows);
    if (scratch_.read(from.scratch_offset + row * from.row_bytes(), band.block.get(),
                      from.bytes_of(index, band.is_covered)))
        return band;
    from.is_in_scratch[index] = false;
    return {};
}

void PictureStore::write_scratch(Picture& to, std::size_t index, const Band& band)
{
    if (!has_scratch_ || to.is_in_scratch[index])
        return;
    const std::uint64_t row = static_cast<std::uint64_t>(index) * static_cast<std::uint64_t>(to.band_rows);
    const std::size_t size = to.bytes_of(index, band.is_covered);
    if (!scratch_.write(to.scratch_offset + row * to.row_bytes(), band.block.get(), size)) {
        has_scratch_ = false; // what is in it can still be read
        return;
    }
    to.is_in_scratch[index] = true;
    to.is_covered[index] = band.is_covered;
    scratch_bytes_ += size;
}

// Pictures of which more may be asked hold the host's files open.
void PictureStore::close_others(std::size_t picture)
{
    std::vector<std::size_t> closing;
    {
        const std::lock_guard lock(mutex_);
        std::erase(open_, picture);
        open_.push_back(picture);
        while (open_.size() > kMostOpen) {
            closing.push_back(open_.front());
            open_.pop_front();
        }
    }
    for (const std::size_t other : closing) {
        Picture& left = pictures_[other];
        const std::unique_lock turn(left.turn, std::try_to_lock);
        if (!turn.owns_lock())
            continue;
        const bool is_closed = left.next_band == 0 || left.next_band == left.bands();
        if (is_closed && !left.random_access)
            continue;
        left.next_band = 0;
        source_.release(other);
    }
}

StoreCounts PictureStore::counts() const
{
    StoreCounts counts;
    for (const Picture& picture : pictures_) {
        const std::uint64_t rows = picture.rows_read;
        counts.rows += rows;
        counts.pictures += static_cast<double>(rows) / static_cast<double>(picture.height);
    }
    counts.scratch_bytes = scratch_bytes_;
    return counts;
}

} // namespace panoval::mosaic
