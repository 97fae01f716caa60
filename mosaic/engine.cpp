// SPDX-License-Identifier: MIT
#include "mosaic/engine.h"

#include "mosaic/base/errors.h"
#include "mosaic/base/parallel.h"
#include "mosaic/pictures/store_blocks.h"
#include "mosaic/plan_json.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <thread>
#include <utility>

namespace panoval::mosaic
{

namespace
{

constexpr std::int32_t kMostThreads = PANOVAL_MOSAIC_MOST_THREADS;
// Of the canvas on one processor, as measured: with all that is measured before, and whole masks in the library's
// blenders. The documentation of PanovalMosaicEstimate has the same numbers.
constexpr double kPixelsPerSecond = 35e6;
constexpr double kWholePixelsPerSecond = 40e6;

template <std::size_t N>
void require_zeros(const std::int32_t (&reserved)[N], const char* record)
{
    for (const std::int32_t value : reserved)
        if (value != 0)
            fail(Failure::Argument, "found ", value, " in a reserved field of ", record, "; expected 0");
}

void require_flag(std::int32_t value, const char* name)
{
    if (value != 0 && value != 1)
        fail(Failure::Argument, "found ", name, " ", value, "; expected 0 or 1");
}

Settings settings_of(const PanovalMosaicOptions& options)
{
    Settings settings;
    settings.wrap = options.wrap;
    settings.bands = options.bands;
    settings.blend = static_cast<BlendMode>(options.blend);
    settings.seams = static_cast<SeamChoice>(options.seams);
    settings.gains = static_cast<GainChoice>(options.gains);
    settings.vignetting = options.vignetting != 0;
    if (options.anchor > 0)
        settings.anchor = static_cast<std::size_t>(options.anchor - 1);
    settings.tile_size = options.tile_size;
    settings.output_bits = options.output_bits;
    return settings;
}

// For asking a blender how much it takes, before there are pixels.
class NoReader : public PictureReader
{
public:
    void read(std::size_t, const Rect&, PixelBlock&) override {} // COUNT_EXCL: nothing is blended
};

BlendOptions blend_options(const Plan& plan)
{
    return {plan.settings.blend, plan.bands, plan.output_bits};
}

// A blender that tells what it takes, and blends nothing.
struct AskedBlender {
    explicit AskedBlender(const Plan& plan)
        : blender(plan.layout, corrections, plan.settings.has_seams() ? &seams : nullptr, blend_options(plan), reader)
    {
    }

    NoReader reader;
    Corrections corrections;
    SeamMap seams;
    TileBlender blender;
};

} // namespace

void Engine::set_options(const PanovalMosaicOptions& options)
{
    require_zeros(options.reserved, "the options");
    require_flag(options.vignetting, "vignetting");
    if (options.memory != 0 && options.memory < PANOVAL_MOSAIC_LEAST_MEMORY)
        fail(Failure::Argument, "found a budget of ", options.memory, " bytes; expected 0, or ",
             PANOVAL_MOSAIC_LEAST_MEMORY, " or more");
    if (options.threads < 0 || options.threads > kMostThreads)
        fail(Failure::Argument, "found ", options.threads, " threads; expected 0 to ", kMostThreads);
    if (options.anchor < 0)
        fail(Failure::Argument, "found anchor ", options.anchor, "; expected 0, or a picture's number from 1 on");
    Settings settings = settings_of(options);
    settings.anchor.reset(); // is checked when the pictures are known
    check_settings(settings, 0);
    drop_work();
    options_ = options;
}

void Engine::set_host(const PanovalMosaicHost& host)
{
    if (host.read_rows == nullptr)
        fail(Failure::Argument, "found no read_rows in the host; expected a function");
    drop_work();
    host_ = host;
    progress_ = std::make_unique<HostProgress>(host);
}

void Engine::add_picture(const PanovalMosaicPicture& picture)
{
    if (is_fixed())
        fail(Failure::Argument, "a picture comes after the plan was made; expected all pictures before");
    if (pictures_.size() >= static_cast<std::size_t>(kLongestSide) - 1)           // COUNT_EXCL_BRANCH: as below
        fail(Failure::Argument, "found one picture more than ", pictures_.size(), // COUNT_EXCL: 2^31 take 200 GB
             "; expected no more");                                               // COUNT_EXCL: as above
    require_zeros(picture.reserved, "a picture");
    require_flag(picture.has_mask, "has_mask");
    require_flag(picture.has_keep, "has_keep");
    require_flag(picture.random_access, "random_access");
    PlacementWish wish;
    wish.x = picture.x;
    wish.y = picture.y;
    wish.width = picture.width;
    wish.height = picture.height;
    wish.channels = picture.channels;
    wish.bits = picture.bits;
    wish.has_mask = picture.has_mask != 0;
    wish.traits = {picture.has_keep != 0, picture.random_access != 0};
    wish.name = name_or_number(picture.name != nullptr ? picture.name : "", pictures_.size());
    check_picture(wish);
    pictures_.push_back(std::move(wish));
}

std::uint64_t Engine::memory() const
{
    return options_.memory != 0 ? options_.memory : PANOVAL_MOSAIC_DEFAULT_MEMORY;
}

std::size_t Engine::threads() const
{
    if (options_.threads > 0)
        return static_cast<std::size_t>(options_.threads);
    return std::max<std::size_t>(1, std::thread::hardware_concurrency());
}

// The tiles are still to be chosen.
void Engine::make_plan()
{
    Plan plan;
    plan.settings = settings_of(options_);
    plan.layout = make_layout(pictures_, plan.settings.wrap);
    check_settings(plan.settings, pictures_.size());
    for (const PlacementWish& picture : pictures_)
        plan.traits.push_back(picture.traits);
    overlaps_ = find_overlaps(plan.layout);
    plan.bands = bands_within(plan.settings, plan.layout, overlaps_);
    plan.output_bits = plan.settings.output_bits != 0 ? plan.settings.output_bits : plan.layout.bits;
    if (plan.settings.gains == GainChoice::Off)
        plan.gains = Gains{Corrections::none(plan.layout), false, {}};
    seam_reserve_ = plan.settings.has_seams() ? guess_seam_bytes(plan.layout) : 0;
    plan_ = std::move(plan);
}

void Engine::fix()
{
    if (is_fixed())
        return;
    make_plan();
    try {
        plan_->grid = grid_for(Delivery::Tiles, plan_->settings.tile_size);
    } catch (...) {
        plan_.reset();
        throw;
    }
}

// Whole rows are what most hosts want; what a row of tiles takes may be too much for the budget.
TileGrid Engine::grid_for(Delivery least_delivery, std::int64_t tile_size) const
{
    const MemoryNeeds asked = needs();
    auto grid = choose_grid(asked, Delivery::Rows, memory(), threads(), tile_size);
    if (!grid && least_delivery == Delivery::Tiles)
        grid = choose_grid(asked, Delivery::Tiles, memory(), threads(), tile_size);
    if (!grid)
        fail(Failure::Memory, "the budget of ", memory(), " bytes does not hold one tile with its pictures' rows; ",
             "expected ", least_memory(asked, least_delivery, tile_size), " or more");
    return *grid;
}

const Plan& Engine::plan()
{
    fix();
    return *plan_;
}

const std::vector<Overlap>& Engine::overlaps()
{
    fix();
    return overlaps_;
}

void Engine::load_plan(const char* text, std::size_t size)
{
    if (is_fixed() || !pictures_.empty())
        fail(Failure::Argument, "a plan comes to a mosaic that has pictures; expected one without");
    Plan plan = plan_from_json({text, size});
    std::vector<Overlap> overlaps = find_overlaps(plan.layout);
    if (plan.statistics && plan.statistics->overlaps.size() != overlaps.size())
        fail(Failure::Plan, "found statistics of ", plan.statistics->overlaps.size(),
             " overlaps in the plan; expected ", overlaps.size());
    overlaps_ = std::move(overlaps);
    std::optional<SeamMap> seams = std::move(plan.seams);
    plan.seams.reset();
    plan_ = std::move(plan);
    if (plan_->statistics && !plan_->gains)
        take_statistics(*std::exchange(plan_->statistics, std::nullopt));
    if (seams)
        take_seams(std::move(*seams));
}

MemoryNeeds Engine::needs() const
{
    const Plan& plan = *plan_;
    const auto asked = std::make_shared<const AskedBlender>(plan);
    MemoryNeeds needs{plan.layout, plan.traits, {}, {}, plan.pixel_bytes() + 1, 0};
    needs.scratch = [asked](std::int64_t width, std::int64_t height) -> std::uint64_t {
        return asked->blender.scratch_bytes(width, height);
    };
    needs.seen = [asked, &plan](std::int64_t width, std::int64_t height) {
        const Rect reach = asked->blender.reach({0, 0, width, height});
        return static_cast<std::uint64_t>(std::min(reach.width, plan.layout.width)) *
               static_cast<std::uint64_t>(std::min(reach.height, plan.layout.height));
    };
    if (plan.seams)
        needs.seam_bytes = std::max(plan.seams->bytes(), seam_reserve_);
    else if (plan.settings.has_seams())
        needs.seam_bytes = guess_seam_bytes(plan.layout);
    return needs;
}

// What is left for pictures while tiles are blended.
std::uint64_t Engine::blending_store() const
{
    for (const Delivery delivery : {Delivery::Rows, Delivery::Tiles})
        if (const auto shares = share_memory(needs(), plan_->grid, delivery, memory(), threads()))
            return shares->store_bytes;
    return least_store_bytes(plan_->layout, plan_->traits, threads());
}

PanovalMosaicEstimate Engine::estimate()
{
    fix();
    const Layout& layout = plan_->layout;
    const MemoryNeeds asked = needs();
    auto shares = share_memory(asked, plan_->grid, Delivery::Rows, memory(), threads());
    if (!shares)
        shares = share_memory(asked, plan_->grid, Delivery::Tiles, memory(), threads());
    const MemoryShares all = shares.value_or(MemoryShares{});
    const std::uint64_t picture_bytes = bytes_of_all_pictures(layout, plan_->traits);
    const bool has_sequential =
        std::any_of(plan_->traits.begin(), plan_->traits.end(), [](const auto& t) { return !t.random_access; });
    const bool fits = picture_bytes <= all.store_bytes;
    PanovalMosaicEstimate estimate{};
    estimate.memory = all.all() - all.store_bytes + std::min(all.store_bytes, picture_bytes);
    estimate.least_memory = least_budget(Delivery::Rows);
    estimate.scratch_file = has_sequential && !fits ? picture_bytes : 0;
    estimate.picture_bytes = picture_bytes;
    const double pixels = static_cast<double>(layout.width) * static_cast<double>(layout.height);
    estimate.panorama_bytes =
        static_cast<std::uint64_t>(layout.width) * static_cast<std::uint64_t>(layout.height) * plan_->pixel_bytes();
    estimate.decodes = 1;
    estimate.seconds = pixels / (plan_->settings.has_seams() ? kPixelsPerSecond : kWholePixelsPerSecond);
    estimate.threads = static_cast<std::int32_t>(all.threads);
    return estimate;
}

// With it everything is possible, and with a byte less something is not. Whole rows may come from other tiles than the
// plan's; the tiles of a plan that was loaded are what they are.
std::uint64_t Engine::least_budget(Delivery delivery) const
{
    const MemoryNeeds asked = needs();
    const bool has_tiles = pictures_.empty();
    const auto least = [&](Delivery wanted) {
        return has_tiles ? least_memory(asked, plan_->grid, wanted)
                         : least_memory(asked, wanted, plan_->settings.tile_size);
    };
    std::uint64_t bytes = least_seam_budget();
    if (!has_tiles || delivery == Delivery::Tiles)
        bytes = std::max(bytes, least(Delivery::Tiles));
    if (delivery == Delivery::Rows)
        bytes = std::max(bytes, std::min(least(Delivery::Rows), least_memory(asked, Delivery::Rows, 0)));
    return bytes;
}

PanovalMosaicNeeds Engine::least_needs()
{
    const bool was_fixed = is_fixed();
    if (!was_fixed)
        make_plan();
    PanovalMosaicNeeds told{};
    try {
        told.least_memory = least_budget(Delivery::Rows);
        told.least_memory_of_tiles = least_budget(Delivery::Tiles);
        told.seam_memory = plan_->settings.has_seams() ? guess_seam_bytes(plan_->layout) : 0;
    } catch (...) {
        if (!was_fixed)
            plan_.reset();
        throw;
    }
    if (!was_fixed)
        plan_.reset();
    return told;
}

Engine::Work& Engine::work()
{
    if (!host_)
        fail(Failure::Argument, "there is no host to give pixels; expected panoval_mosaic_set_host before");
    const std::lock_guard lock(work_mutex_);
    if (work_ == nullptr) {
        const std::uint64_t bytes = blending_store();
        const std::uint64_t least = std::min(bytes, searching_store().value_or(bytes));
        work_ = std::make_unique<Work>(*host_, *plan_, meter_, StoreBudget{bytes, least, true, threads()});
    }
    return *work_;
}

void Engine::drop_work()
{
    if (work_ == nullptr)
        return;
    const StoreCounts counts = work_->store.counts();
    earlier_.rows += counts.rows;
    earlier_.pictures += counts.pictures;
    earlier_.scratch_bytes += counts.scratch_bytes;
    work_.reset();
}

const TileBlender& Engine::blender()
{
    Work& now = work();
    const std::lock_guard lock(work_mutex_);
    if (now.blender == nullptr) {
        now.blender = std::make_unique<TileBlender>(plan_->layout, plan_->gains->corrections,
                                                    plan_->settings.has_seams() ? &*plan_->seams : nullptr,
                                                    blend_options(*plan_), now.store);
    }
    return *now.blender;
}

void Engine::blend(const Rect& rect, std::uint8_t* samples, std::size_t samples_stride, std::uint8_t* coverage,
                   std::size_t coverage_stride)
{
    fix();
    if (rect.width < 1 || rect.height < 1 || rect.x < 0 || rect.y < 0 || rect.x > plan_->layout.width - rect.width ||
        rect.y > plan_->layout.height - rect.height)
        fail(Failure::Argument, "found ", rect.width, " x ", rect.height, " pixels at ", rect.x, ",", rect.y,
             "; expected a rectangle on the canvas of ", plan_->layout.width, " x ", plan_->layout.height);
    const auto width = static_cast<std::size_t>(rect.width);
    if (rect.height > 1 && samples_stride < width * plan_->pixel_bytes())
        fail(Failure::Argument, "found ", samples_stride, " bytes from row to row of samples; expected ",
             width * plan_->pixel_bytes(), " or more");
    if (rect.height > 1 && coverage != nullptr && coverage_stride < width)
        fail(Failure::Argument, "found ", coverage_stride, " bytes from row to row of coverage; expected ", width,
             " or more");
    if (!plan_->gains)
        fail(Failure::Argument, "gains are not known; expected panoval_mosaic_measure or _set_gains before");
    if (plan_->settings.has_seams() && !plan_->seams)
        fail(Failure::Argument, "seams are not known; expected panoval_mosaic_measure or _set_seam_rows before");
    const TileBlender& used = blender();
    const MeteredMemory scratch(meter_, used.scratch_bytes(rect.width, rect.height));
    used.blend(rect, samples, samples_stride, coverage, coverage_stride);
}

void Engine::run(const PanovalMosaicSink& sink)
{
    require_flag(sink.by_tiles, "by_tiles");
    require_flag(sink.wants_coverage, "wants_coverage");
    require_zeros(sink.reserved, "the sink");
    if (sink.write == nullptr)
        fail(Failure::Argument, "found no write in the sink; expected a function");
    const Crew crew(threads());
    measure(PANOVAL_MOSAIC_MEASURE_SEAMS);
    const Delivery delivery = sink.by_tiles != 0 ? Delivery::Tiles : Delivery::Rows;
    const MemoryNeeds asked = needs();
    TileGrid grid = plan_->grid;
    auto all = share_memory(asked, grid, delivery, memory(), threads());
    if (!all && delivery == Delivery::Rows) { // other tiles give the same pixels
        grid = grid_for(Delivery::Rows, 0);
        all = share_memory(asked, grid, delivery, memory(), threads());
    }
    if (!all)
        fail(Failure::Memory, "the budget of ", memory(), " bytes does not hold tiles of ", grid.tile_width, " x ",
             grid.tile_height, " pixels with their pictures' rows; expected ", least_memory(asked, grid, delivery),
             " or more");
    work().store.set_budget(static_cast<std::size_t>(all->store_bytes));
    std::vector<RowRange> pictures;
    for (std::size_t i = 0; i < plan_->layout.pictures.size(); ++i)
        pictures.push_back({i, 0, plan_->layout.pictures[i].rect.height});
    work().store.load(pictures, all->threads);
    RunOptions options;
    options.delivery = delivery;
    options.wants_coverage = sink.wants_coverage != 0;
    options.threads = all->threads;
    options.pixel_bytes = plan_->pixel_bytes();
    HostSink host_sink(sink);
    run_tiles(grid, blender(), options, meter_, *progress_, host_sink);
}

PanovalMosaicCounts Engine::counts() const
{
    StoreCounts now = earlier_;
    if (work_ != nullptr) {
        const StoreCounts more = work_->store.counts();
        now.rows += more.rows;
        now.pictures += more.pictures;
        now.scratch_bytes += more.scratch_bytes;
    }
    PanovalMosaicCounts counts{};
    counts.rows = now.rows;
    counts.pictures = now.pictures;
    counts.scratch_bytes = now.scratch_bytes;
    counts.largest_memory = meter_.most();
    return counts;
}

} // namespace panoval::mosaic
