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

    // What the program needs besides the engine; the texts of budgets that are too small then say what to ask for.
    void set_beside(std::uint64_t bytes) { beside_ = bytes; }
    // The least --memory of which so much is left for the engine: what is beside takes half of it at most.
    std::uint64_t with_beside(std::uint64_t engine_memory) const;

    PanovalMosaicLayout layout() const;

private:
    std::string error() const;
    std::string budget_error() const;

    PanovalMosaic* mosaic_ = nullptr;
    std::uint64_t beside_ = 0; // bytes
};

} // namespace panoval::cli
