// SPDX-License-Identifier: MIT
// The host's callbacks as the engine's parts see them.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/base/progress.h"
#include "mosaic/pictures/row_source.h"
#include "mosaic/tiles/tile_run.h"
#include "panoval_mosaic.h"

#include <mutex>

namespace panoval::mosaic
{

class HostSource : public RowSource
{
public:
    HostSource(const PanovalMosaicHost& host, const Layout& layout) : host_(host), layout_(layout) {}

    void read_rows(std::size_t picture, std::int64_t first_row, std::int64_t row_count,
                   const RowBuffers& buffers) override;
    void release(std::size_t picture) override;

private:
    const PanovalMosaicHost host_;
    const Layout& layout_;
};

class HostProgress : public Progress
{
public:
    explicit HostProgress(const PanovalMosaicHost& host) : host_(host) {}

    void report(Phase phase, double fraction) override;

private:
    const PanovalMosaicHost host_;
    std::mutex mutex_;
    Phase phase_ = Phase::Gains;
    double most_ = -1; // threads may report out of order
};

class HostSink : public TileSink
{
public:
    explicit HostSink(const PanovalMosaicSink& sink) : sink_(sink) {}

    void take(const Piece& piece) override;

private:
    const PanovalMosaicSink sink_;
};

} // namespace panoval::mosaic
