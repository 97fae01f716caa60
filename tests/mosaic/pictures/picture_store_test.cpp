// SPDX-License-Identifier: MIT
#include "mosaic/pictures/picture_store.h"
#include "mosaic/pictures/store_blocks.h"

#include "mosaic/base/errors.h"
#include "mosaic/base/parallel.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#ifndef _WIN32
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace panoval::mosaic::test
{

namespace
{

using panoval::test::Random;

// Pictures whose samples, mask and keep mask are numbers made from the place, and a check on how they are asked for.
class MadeRows : public RowSource
{
public:
    Layout layout;
    std::vector<PictureTraits> traits;
    std::atomic<int> broken_promises{0};
    std::atomic<int> releases{0};
    std::atomic<std::int64_t> failing_picture{-1};
    std::int64_t covered_from = 0; // rows from here to covered_end - 1 have masks of 255 alone
    std::int64_t covered_end = 0;

    // Every second picture has a mask, every third one a keep mask.
    MadeRows(bool random_access, int pictures)
    {
        layout.channels = 3;
        layout.bits = 16;
        for (int i = 0; i < pictures; ++i)
            add(100 + i, 300 + i, i % 2 == 1, {i % 3 == 1, random_access});
    }

    void add(std::int64_t width, std::int64_t height, bool has_mask, PictureTraits trait)
    {
        layout.pictures.push_back({{0, 0, width, height}, has_mask, "p" + std::to_string(traits.size())});
        traits.push_back(trait);
        state_.emplace_back();
    }

    static std::uint8_t byte(std::size_t picture, std::int64_t x, std::int64_t y, int kind)
    {
        return static_cast<std::uint8_t>(static_cast<std::int64_t>(picture) * 101 + x * 7 + y * 31 + kind * 57);
    }

    std::uint8_t mask_byte(std::size_t picture, std::int64_t x, std::int64_t y) const
    {
        const bool is_covered = y >= covered_from && y < covered_end;
        return !layout.pictures[picture].has_mask || is_covered ? std::uint8_t{255} : byte(picture, x, y, 1);
    }

    void read_rows(std::size_t picture, std::int64_t first_row, std::int64_t row_count,
                   const RowBuffers& buffers) override
    {
        State& state = state_[picture];
        if (state.is_busy.exchange(true))
            ++broken_promises;
        if (static_cast<std::int64_t>(picture) == failing_picture)
            give_up(state);
        const Rect& rect = layout.pictures[picture].rect;
        if (first_row < 0 || row_count < 1 || first_row + row_count > rect.height)
            ++broken_promises;
        if (!traits[picture].random_access && first_row != state.next_row && first_row != 0)
            ++broken_promises;
        state.next_row = first_row + row_count;
        for (std::int64_t y = 0; y < row_count; ++y)
            fill(picture, rect.width, first_row + y, y, buffers);
        state.is_busy = false;
    }

    void release(std::size_t picture) override
    {
        ++releases;
        state_[picture].next_row = 0;
    }

private:
    struct State {
        std::atomic<bool> is_busy{false};
        std::int64_t next_row = 0;
    };

    [[noreturn]] static void give_up(State& state)
    {
        state.is_busy = false;
        fail(Failure::Picture, "no rows");
    }

    void fill(std::size_t picture, std::int64_t width, std::int64_t row, std::int64_t y, const RowBuffers& to) const
    {
        const auto at = static_cast<std::size_t>(y);
        const std::int64_t bytes = width * layout.pixel_bytes();
        for (std::int64_t x = 0; x < bytes; ++x)
            to.samples[at * to.samples_stride + static_cast<std::size_t>(x)] = byte(picture, x, row, 0);
        for (std::int64_t x = 0; x < width; ++x) {
            if (to.mask != nullptr)
                to.mask[at * to.mask_stride + static_cast<std::size_t>(x)] = mask_byte(picture, x, row);
            if (to.keep != nullptr)
                to.keep[at * to.keep_stride + static_cast<std::size_t>(x)] = byte(picture, x, row, 2);
        }
    }

    std::deque<State> state_;
};

void expect_right(PictureStore& store, const MadeRows& rows, std::size_t picture, const Rect& rect)
{
    PixelBlock block;
    store.read(picture, rect, block);
    ASSERT_EQ(block.rect, rect);
    int wrong = 0;
    for (std::int64_t y = 0; y < rect.height; ++y) {
        for (std::int64_t x = 0; x < rect.width * 6; ++x)
            wrong += block.row(y)[x] != MadeRows::byte(picture, rect.x * 6 + x, rect.y + y, 0);
        for (std::int64_t x = 0; x < rect.width; ++x)
            wrong += block.mask_row(y)[x] != rows.mask_byte(picture, rect.x + x, rect.y + y);
    }
    EXPECT_EQ(wrong, 0) << "picture " << picture << ", row " << rect.y;
    std::vector<std::uint8_t> mask(static_cast<std::size_t>(rect.pixels()));
    store.read_mask(picture, rect, mask.data());
    EXPECT_EQ(std::memcmp(mask.data(), block.mask_row(0), mask.size()), 0);
}

Rect random_part(const MadeRows& rows, std::size_t picture, Random& random)
{
    const Rect& whole = rows.layout.pictures[picture].rect;
    const std::int64_t x = random.integer(0, whole.width - 1);
    const std::int64_t y = random.integer(0, whole.height - 1);
    return {x, y, random.integer(1, whole.width - x), random.integer(1, std::min<std::int64_t>(whole.height - y, 60))};
}

void read_at_random(PictureStore& store, const MadeRows& rows, int times, std::uint64_t seed)
{
    Random random(seed);
    for (int i = 0; i < times; ++i) {
        const auto picture =
            static_cast<std::size_t>(random.integer(0, static_cast<std::int64_t>(rows.traits.size()) - 1));
        expect_right(store, rows, picture, random_part(rows, picture, random));
    }
}

TEST(PictureStore, GivesThePixelsWhateverTheBudget)
{
    for (const bool random_access : {false, true})
        for (const std::size_t budget : {std::size_t{1} << 15, std::size_t{1} << 18, std::size_t{1} << 24}) {
            MadeRows rows(random_access, 6);
            MemoryMeter meter;
            PictureStore store(rows.layout, rows.traits, rows, meter, {budget, budget, true});
            read_at_random(store, rows, 150, budget);
            EXPECT_EQ(rows.broken_promises, 0);
            EXPECT_LE(meter.most(), std::max(budget, least_store_bytes(rows.layout, rows.traits, 1)));
        }
}

TEST(PictureStore, ReadsEachPictureOnceWithTheScratchFile)
{
    MadeRows rows(false, 8);
    MemoryMeter meter;
    PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 16, 1 << 16, true});
    read_at_random(store, rows, 300, 3);
    EXPECT_EQ(store.counts().pictures, 8.0);
    EXPECT_EQ(store.counts().scratch_bytes, bytes_of_all_pictures(rows.layout, rows.traits));
    EXPECT_EQ(rows.releases, 8) << "files may be closed as soon as they are read";
}

TEST(PictureStore, WritesNoMasksOfRowsThatAreCoveredEverywhere)
{
    for (const std::int64_t end : {130, 302}) { // of 301 to 303 rows
        MadeRows rows(false, 4);
        rows.covered_from = 20;
        rows.covered_end = end;
        MemoryMeter meter;
        PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 17, 1 << 17, true});
        read_at_random(store, rows, 300, 11);
        EXPECT_EQ(store.counts().pictures, 4.0);
        const std::uint64_t all = bytes_of_all_pictures(rows.layout, rows.traits);
        const std::uint64_t masks = 101 * 301 + 103 * 303;
        EXPECT_LT(store.counts().scratch_bytes, all - masks / 301 * 50);
        EXPECT_GT(store.counts().scratch_bytes, all - masks);
    }
}

TEST(PictureStore, HoldsNoMasksOfRowsThatAreCoveredEverywhere)
{
    MadeRows rows(true, 2);
    rows.covered_from = 100;
    rows.covered_end = 301;
    MemoryMeter meter;
    PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 22, 1 << 22, true});
    HeldRows held;
    ASSERT_TRUE(store.hold(1, {7, 200, 90, 101}, held));
    EXPECT_EQ(held.samples.size(), 101u);
    EXPECT_TRUE(held.masks.empty());
    ASSERT_TRUE(store.hold(1, {7, 0, 90, 301}, held)); // bands that are covered and others
    ASSERT_EQ(held.masks.size(), 301u);
    int wrong = 0;
    for (std::int64_t y = 0; y < 301; ++y)
        for (std::int64_t x = 0; x < 90; ++x)
            wrong += held.masks[static_cast<std::size_t>(y)][x] != rows.mask_byte(1, 7 + x, y);
    EXPECT_EQ(wrong, 0);
}

TEST(PictureStore, WritesNoScratchFileWhereAllFits)
{
    MadeRows rows(false, 8);
    MemoryMeter meter;
    PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 26, 1 << 25, true});
    read_at_random(store, rows, 100, 4);
    EXPECT_EQ(store.counts().pictures, 8.0);
    EXPECT_EQ(store.counts().scratch_bytes, 0u);
}

TEST(PictureStore, ReadsAgainWithoutTheScratchFile)
{
    MadeRows rows(false, 4);
    MemoryMeter meter;
    PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 16, 1 << 16, false});
    read_at_random(store, rows, 60, 5);
    EXPECT_GT(store.counts().pictures, 4.0);
    EXPECT_EQ(rows.broken_promises, 0);
}

#ifndef _WIN32
TEST(PictureStore, ReadsAgainWhereTheScratchFileCannotBeMade)
{
    const char* const before = std::getenv("TMPDIR");
    const std::optional<std::string> kept = before != nullptr ? std::optional<std::string>(before) : std::nullopt;
    setenv("TMPDIR", "/no/such/folder", 1);
    MadeRows rows(false, 4);
    MemoryMeter meter;
    PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 16, 1 << 16, true});
    if (kept)
        setenv("TMPDIR", kept->c_str(), 1);
    else
        unsetenv("TMPDIR");
    read_at_random(store, rows, 60, 6);
    EXPECT_EQ(store.counts().scratch_bytes, 0u);
    EXPECT_EQ(rows.broken_promises, 0);
}

// Lets no file grow beyond so many bytes, as on a disk that is full.
class FullDisk
{
public:
    explicit FullDisk(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit less{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &less);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
    ~FullDisk()
    {
        setrlimit(RLIMIT_FSIZE, &before_);
        static_cast<void>(std::signal(SIGXFSZ, handler_));
    }

private:
    rlimit before_{};
    void (*handler_)(int);
};

TEST(PictureStore, ReadsAgainWhatTheScratchFileHasNoRoomFor)
{
    MadeRows rows(false, 4);
    MemoryMeter meter;
    PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 16, 1 << 16, true});
    {
        const FullDisk disk(300'000); // the first picture, and a part of the second one
        expect_right(store, rows, 0, {0, 0, 5, 5});
        expect_right(store, rows, 1, {0, 0, 5, 5});
        read_at_random(store, rows, 60, 6);
    }
    EXPECT_GT(store.counts().scratch_bytes, 0u);
    EXPECT_LE(store.counts().scratch_bytes, 300'000u);
    EXPECT_GT(store.counts().pictures, 4.0);
    EXPECT_EQ(rows.broken_promises, 0);
}
#endif

#ifdef __linux__
// Lets nobody read this process's scratch files any more. Returns how many there are.
int lose_scratch_files()
{
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    int lost = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        const std::string file = std::filesystem::read_symlink(entry.path(), error).string();
        if (!error && file.find("/panoval-") != std::string::npos && file.ends_with("(deleted)"))
            lost += dup2(nothing, std::stoi(entry.path().filename().string())) >= 0 ? 1 : 0;
    }
    close(nothing);
    return lost;
}

TEST(PictureStore, ReadsAgainWhatTheScratchFileHasLost)
{
    MadeRows rows(false, 4);
    MemoryMeter meter;
    PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 16, 1 << 16, true});
    read_at_random(store, rows, 60, 7);
    EXPECT_EQ(store.counts().pictures, 4.0);
    ASSERT_EQ(lose_scratch_files(), 1);
    read_at_random(store, rows, 60, 8);
    EXPECT_GT(store.counts().pictures, 4.0);
    EXPECT_EQ(rows.broken_promises, 0);
}
#endif

TEST(PictureStore, KeepsFewFilesOpenWithoutTheScratchFile)
{
    for (const bool is_random : {false, true}) {
        MadeRows rows(is_random, 70);
        MemoryMeter meter;
        PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 16, 1 << 16, false});
        for (std::size_t i = 0; i < 70; ++i)
            expect_right(store, rows, i, {0, 0, 10, 10});
        EXPECT_EQ(rows.releases, 70 - 64);
        EXPECT_EQ(rows.broken_promises, 0);
    }
}

TEST(PictureStore, ServesThreadsAtOnce)
{
    for (const bool may_use_scratch : {true, false}) {
        MadeRows rows(false, 6);
        MemoryMeter meter;
        PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 17, 1 << 17, may_use_scratch});
        run_in_parallel(4, 4, [&](std::size_t thread) { read_at_random(store, rows, 60, thread); });
        EXPECT_EQ(rows.broken_promises, 0);
        EXPECT_LE(meter.most(), (std::size_t{1} << 17) + least_store_bytes(rows.layout, rows.traits, 4));
    }
}

TEST(PictureStore, GivesTheKeepMaskOfPicturesThatHaveOne)
{
    MadeRows rows(true, 3);
    MemoryMeter meter;
    PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 16, 1 << 16, true});
    std::vector<std::uint8_t> keep(12);
    EXPECT_FALSE(store.read_keep(0, {1, 2, 4, 3}, keep.data()));
    ASSERT_TRUE(store.read_keep(1, {1, 2, 4, 3}, keep.data()));
    for (std::int64_t y = 0; y < 3; ++y)
        for (std::int64_t x = 0; x < 4; ++x)
            EXPECT_EQ(keep[static_cast<std::size_t>(y * 4 + x)], MadeRows::byte(1, 1 + x, 2 + y, 2));
}

TEST(PictureStore, HoldsRowsWhereTheyLieIfAllFits)
{
    MadeRows rows(true, 5);
    MemoryMeter meter;
    PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 22, 1 << 22, true});
    HeldRows held;
    PixelBlock block;
    for (std::size_t picture = 0; picture < 5; ++picture) {
        const Rect rect{3, 5, 90, 290}; // over several bands
        ASSERT_TRUE(store.hold(picture, rect, held));
        store.read(picture, rect, block);
        EXPECT_GT(held.holders.size(), 1u);
        ASSERT_EQ(held.samples.size(), static_cast<std::size_t>(rect.height));
        ASSERT_EQ(held.masks.size(), picture % 2 == 1 ? held.samples.size() : 0);
        for (std::size_t y = 0; y < held.samples.size(); ++y) {
            const auto row = static_cast<std::int64_t>(y);
            EXPECT_EQ(std::memcmp(held.samples[y], block.row(row), block.row_bytes()), 0) << picture << ", row " << y;
            if (!held.masks.empty()) {
                EXPECT_EQ(std::memcmp(held.masks[y], block.mask_row(row), 90), 0) << picture << ", row " << y;
            }
        }
    }
}

// Pictures whose first reader waits for the other one.
class MeetingRows : public MadeRows
{
public:
    MeetingRows() : MadeRows(false, 2) {}

    void read_rows(std::size_t picture, std::int64_t first_row, std::int64_t row_count,
                   const RowBuffers& buffers) override
    {
        if (first_row == 0 && reads++ == 0) {
            for (int i = 0; i < 10000 && reads < 2; ++i)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            have_met = reads == 2;
        }
        MadeRows::read_rows(picture, first_row, row_count, buffers);
    }

    std::atomic<int> reads{0}; // of first rows
    std::atomic<bool> have_met{false};
};

TEST(PictureStore, LoadsSeveralPicturesAtOnceAndEachOnce)
{
    MeetingRows rows;
    MemoryMeter meter;
    PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 22, 1 << 22, true});
    const std::vector<RowRange> all = {{0, 0, 300}, {1, 0, 301}};
    store.load(all, 2);
    EXPECT_TRUE(rows.have_met);
    EXPECT_EQ(store.counts().pictures, 2.0);
    PixelBlock block;
    store.read(1, {0, 0, 100, 300}, block);
    store.load(all, 2);
    EXPECT_EQ(store.counts().pictures, 2.0);
}

TEST(PictureStore, LoadsOfAPictureWithRandomAccessWhatIsWantedAlone)
{
    MadeRows rows(true, 1);
    MemoryMeter meter;
    PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 22, 1 << 22, true});
    store.load({{0, 100, 120}}, 1);
    const std::uint64_t loaded = store.counts().rows;
    EXPECT_GE(loaded, 20u);
    EXPECT_LT(loaded, static_cast<std::uint64_t>(rows.layout.pictures[0].rect.height));
    PixelBlock block;
    store.read(0, {0, 100, 10, 20}, block);
    EXPECT_EQ(store.counts().rows, loaded);
}

TEST(PictureStore, LoadsNothingThatItCouldNotKeep)
{
    MadeRows rows(false, 5);
    MemoryMeter meter;
    PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 16, 1 << 16, true});
    store.load({{0, 0, 1}, {1, 0, 1}, {4, 0, 1}}, 2);
    EXPECT_EQ(store.counts().rows, 0u);
}

TEST(PictureStore, HoldsNoRowsWhereMemoryIsNeededForWork)
{
    MadeRows rows(true, 5);
    MemoryMeter meter;
    const std::size_t least = least_store_bytes(rows.layout, rows.traits, 1);
    PictureStore store(rows.layout, rows.traits, rows, meter, {least, least, true});
    HeldRows held;
    held.samples.push_back(nullptr);
    EXPECT_FALSE(store.hold(0, {0, 0, 10, 10}, held));
    EXPECT_TRUE(held.samples.empty());
}

TEST(PictureStore, HoldsRowsInHalfOfItsMemoryWhereNotAllFits)
{
    MadeRows rows(true, 5);
    MemoryMeter meter;
    constexpr std::size_t kBudget = 12 << 14; // twelve blocks
    PictureStore store(rows.layout, rows.traits, rows, meter, {kBudget, kBudget, true});
    std::vector<HeldRows> held(8);
    std::size_t blocks = 0;
    for (std::size_t i = 0; i < held.size(); ++i) {
        const auto y = static_cast<std::int64_t>(i) * 30;
        if (store.hold(i % 5, {5, y, 70, 3}, held[i]))
            blocks += held[i].holders.size() - 1; // one more holds their number
        else
            EXPECT_TRUE(held[i].samples.empty());
    }
    EXPECT_GE(blocks, 5u);
    EXPECT_LE(blocks, 6u);
    read_at_random(store, rows, 200, 12); // what is held stays, however much else is read
    EXPECT_LE(meter.most(), kBudget);
    int wrong = 0;
    for (std::size_t i = 0; i < held.size(); ++i)
        for (std::size_t y = 0; y < held[i].samples.size(); ++y)
            for (std::int64_t x = 0; x < 70 * 6; ++x)
                wrong +=
                    held[i].samples[y][x] != MadeRows::byte(i % 5, 5 * 6 + x, static_cast<std::int64_t>(i * 30 + y), 0);
    EXPECT_EQ(wrong, 0);
    EXPECT_FALSE(store.hold(0, {0, 0, 100, 280}, held[7]));
    held.clear();
    HeldRows again;
    EXPECT_TRUE(store.hold(4, {0, 40, 70, 40}, again)) << "rows that are let go make room";
}

TEST(PictureStore, GivesMemoryBackWhenTheBudgetShrinks)
{
    MadeRows rows(true, 4);
    MemoryMeter meter;
    PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 21, 1 << 16, true});
    read_at_random(store, rows, 50, 8);
    EXPECT_GT(meter.now(), std::size_t{1} << 17);
    store.set_budget(1 << 16);
    EXPECT_LE(meter.now(), std::size_t{1} << 16);
    read_at_random(store, rows, 20, 9);
}

// Blocks that stay lie beside others that go; only whole slabs of them reach the system.
TEST(PictureStore, KeepsWhatWasUsedLastWhenTheBudgetShrinks)
{
    constexpr std::size_t kMegabyte = std::size_t{1} << 20;
    MadeRows rows(true, 0);
    for (int i = 0; i < 3; ++i)
        rows.add(1024, 4096, false, {false, true});
    MemoryMeter meter;
    PictureStore store(rows.layout, rows.traits, rows, meter, {60 * kMegabyte, 30 * kMegabyte, true});
    PixelBlock block;
    for (std::size_t picture = 0; picture < 3; ++picture) // 24 MB each
        for (std::int64_t y = 0; y < 4096; y += 64)
            store.read(picture, {0, y, 1024, 64}, block);
    for (std::int64_t y = 0; y < 4096; y += 512)
        store.read(1, {5, y, 1, 1}, block);
    EXPECT_LE(meter.now(), 60 * kMegabyte);
    store.set_budget(30 * kMegabyte);
    EXPECT_LE(meter.now(), 30 * kMegabyte);
    EXPECT_GT(meter.now(), 16 * kMegabyte);
    const std::uint64_t before = store.counts().rows;
    store.read(1, {5, 3584, 1, 1}, block);
    EXPECT_EQ(store.counts().rows, before);
    for (std::size_t picture = 0; picture < 3; ++picture)
        expect_right(store, rows, picture, {1000, 1000, 24, 64});
    EXPECT_LE(meter.most(), 60 * kMegabyte);
}

TEST(PictureStore, PassesAHostsFailureOnAndCanGoOnLater)
{
    MadeRows rows(false, 2);
    MemoryMeter meter;
    PictureStore store(rows.layout, rows.traits, rows, meter, {1 << 20, 1 << 20, true});
    PixelBlock block;
    rows.failing_picture = 1;
    EXPECT_THROW(store.read(1, {0, 0, 5, 5}, block), Error);
    rows.failing_picture = -1;
    expect_right(store, rows, 1, {0, 0, 5, 5});
}

} // namespace

} // namespace panoval::mosaic::test
