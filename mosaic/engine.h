// SPDX-License-Identifier: MIT
// The panorama engine: from pictures and their places to gains, seams, a verdict, and tiles. The C interface is a thin
// layer over this class.
#pragma once

#include "mosaic/base/memory_meter.h"
#include "mosaic/engine_host.h"
#include "mosaic/gains/gain_solve.h"
#include "mosaic/pictures/picture_store.h"
#include "mosaic/plan.h"
#include "mosaic/seams/seam_find.h"
#include "mosaic/tiles/memory_plan.h"
#include "mosaic/verdict/verdict.h"
#include "panoval_mosaic.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace panoval::mosaic
{

class Engine
{
public:
    void set_options(const PanovalMosaicOptions& options);
    void set_host(const PanovalMosaicHost& host);
    void add_picture(const PanovalMosaicPicture& picture);

    // The plan with all that is known so far. The first call fixes the pictures.
    const Plan& plan();
    const std::vector<Overlap>& overlaps();
    PanovalMosaicEstimate estimate();
    PanovalMosaicNeeds least_needs(); // whatever the budget is
    void load_plan(const char* text, std::size_t size);

    void measure(int parts);
    const Gains& gains();
    void set_gains(const double* gains, std::int64_t pictures, const double* falloff);
    const GainStatistics& statistics();
    void set_statistics(GainStatistics statistics);
    const SeamMap& seams();
    void set_seam_rows(std::int64_t first_row, std::int64_t rows, const std::int32_t* labels, std::size_t stride);
    std::string verdict(std::int32_t with_distributions) const; // JSON

    void blend(const Rect& rect, std::uint8_t* samples, std::size_t samples_stride, std::uint8_t* coverage,
               std::size_t coverage_stride);
    void run(const PanovalMosaicSink& sink);
    PanovalMosaicCounts counts() const;

private:
    // What exists while pixels are worked with. Parts refer to the plan.
    struct Work {
        HostSource source;
        PictureStore store;
        std::unique_ptr<TileBlender> blender; // when gains and seams are known

        Work(const PanovalMosaicHost& host, const Plan& plan, MemoryMeter& meter, const StoreBudget& budget)
            : source(host, plan.layout), store(plan.layout, plan.traits, source, meter, budget)
        {
        }
    };

    bool is_fixed() const { return plan_.has_value(); }
    void make_plan();
    void fix();
    std::uint64_t memory() const;
    std::size_t threads() const;
    TileGrid grid_for(Delivery least_delivery, std::int64_t tile_size) const;
    std::uint64_t seam_memory() const;
    std::uint64_t least_seam_budget() const;
    std::uint64_t least_budget(Delivery delivery) const;
    MemoryNeeds needs() const;
    std::uint64_t blending_store() const;
    SeamOptions search_options() const;
    std::optional<std::uint64_t> searching_store() const;
    Work& work();
    void drop_work();
    const TileBlender& blender();
    GainOptions gain_options() const;
    std::vector<RowRange> shared_rows() const;
    struct SeamWork;
    void measure_gains_now(SeamWork* seams);
    void take_statistics(GainStatistics statistics);
    std::unique_ptr<SeamWork> prepare_seams();
    std::unique_ptr<SeamWork> begin_seams();
    void find_seams_now(std::unique_ptr<SeamWork> seams);
    void judge_now(OverlapLooks& looks);
    void forget_seams();
    void take_seams(SeamMap seams);

    PanovalMosaicOptions options_{};
    std::optional<PanovalMosaicHost> host_;
    std::vector<PlacementWish> pictures_; // until the plan is made
    std::optional<Plan> plan_;
    std::uint64_t seam_reserve_ = 0; // bytes that seams have been promised before they were known
    std::vector<Overlap> overlaps_;
    std::optional<SeamMap> coming_seams_; // rows that the host has set so far
    std::optional<Verdict> verdict_;

    MemoryMeter meter_;
    std::mutex work_mutex_; // several threads may blend
    std::unique_ptr<HostProgress> progress_;
    std::unique_ptr<Work> work_;
    StoreCounts earlier_; // of works that are gone
};

} // namespace panoval::mosaic
