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

    PanovalMosaicLayout layout() const;

private:
    std::string error() const;

    PanovalMosaic* mosaic_ = nullptr;
};

} // namespace panoval::cli
