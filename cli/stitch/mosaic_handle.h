// SPDX-License-Identifier: MIT
// The panorama engine from C++: a mosaic that is destroyed with its object, and failures as exceptions.
#pragma once

#include "panoval_mosaic.h"

#include <cstdint>
#include <string>

namespace panoval::cli
{

class MosaicHandle
{
public:
    MosaicHandle();
    MosaicHandle(const MosaicHandle&) = delete;
    MosaicHandle& operator=(const MosaicHandle&) = delete;
    ~MosaicHandle() { panoval_mosaic_destroy(mosaic_); }

    PanovalMosaic* get() const { return mosaic_; }

    // Throws what the code stands for; nothing where it is PANOVAL_MOSAIC_OK.
    void check(std::int32_t code) const;

    // Whether nothing went wrong. An exhausted heap, of which a budget that is too small has the same code, is thrown.
    bool fits(std::int32_t code) const;

    // The program's budget, and what of it is beside the engine: half of it at most, and not what the engine needs
    // to begin at all. gives_tiles: whole rows are not wanted.
    void set_memory(std::uint64_t bytes, std::uint64_t beside, bool gives_tiles);
    std::uint64_t engine_memory() const;
    // The least --memory of which so much is left for the engine.
    std::uint64_t with_beside(std::uint64_t engine_memory) const;
    PanovalMosaicNeeds needs() const;

    PanovalMosaicLayout layout() const;

private:
    std::string error() const;
    std::uint64_t least_memory() const; // of the engine
    bool has_seams() const;

    PanovalMosaic* mosaic_ = nullptr;
    std::uint64_t memory_ = PANOVAL_MOSAIC_DEFAULT_MEMORY; // bytes
    std::uint64_t beside_ = 0;                             // bytes
    bool gives_tiles_ = false;
};

} // namespace panoval::cli
