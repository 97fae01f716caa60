// SPDX-License-Identifier: MIT
#include "cli/stitch/mosaic_handle.h"

#include "cli/base/errors.h"

#include <algorithm>
#include <new>
#include <stdexcept>

namespace panoval::cli
{

MosaicHandle::MosaicHandle()
{
    if (panoval_mosaic_create(&mosaic_) != PANOVAL_MOSAIC_OK)
        throw std::bad_alloc();
}

std::string MosaicHandle::error() const
{
    std::string text(panoval_mosaic_error(mosaic_, nullptr, 0) + 1, '\0');
    (void)panoval_mosaic_error(mosaic_, text.data(), text.size());
    text.pop_back();
    return text;
}

void MosaicHandle::set_memory(std::uint64_t bytes, std::uint64_t beside, bool gives_tiles)
{
    memory_ = bytes;
    beside_ = beside;
    gives_tiles_ = gives_tiles;
}

std::uint64_t MosaicHandle::engine_memory() const
{
    return std::max(memory_ - std::min(beside_, memory_ / 2), PANOVAL_MOSAIC_LEAST_MEMORY);
}

std::uint64_t MosaicHandle::with_beside(std::uint64_t engine_memory) const
{
    return engine_memory + std::min(beside_, engine_memory - 1);
}

PanovalMosaicNeeds MosaicHandle::needs() const
{
    PanovalMosaicNeeds needs{};
    check(panoval_mosaic_needs(mosaic_, &needs));
    return needs;
}

std::uint64_t MosaicHandle::least_memory() const
{
    PanovalMosaicNeeds needs{};
    if (panoval_mosaic_needs(mosaic_, &needs) != PANOVAL_MOSAIC_OK)
        throw std::bad_alloc();
    return gives_tiles_ ? needs.least_memory_of_tiles : needs.least_memory;
}

bool MosaicHandle::has_seams() const
{
    PanovalMosaicNeeds needs{};
    return panoval_mosaic_needs(mosaic_, &needs) == PANOVAL_MOSAIC_OK && needs.seam_memory != 0;
}

bool MosaicHandle::fits(std::int32_t code) const
{
    if (code == PANOVAL_MOSAIC_MEMORY && least_memory() <= engine_memory()) // no advice would help
        throw std::bad_alloc();
    return code == PANOVAL_MOSAIC_OK;
}

void MosaicHandle::check(std::int32_t code) const
{
    switch (code) {
    case PANOVAL_MOSAIC_OK:
        return;
    case PANOVAL_MOSAIC_MEMORY:
        (void)fits(code);
        throw Failure(Fault::Memory,
                      concat("found a budget of ", memory_, " bytes; expected --memory ", with_beside(least_memory()),
                             " or more for tiles across this canvas",
                             has_seams() ? ", its pictures' rows and its seams" : " and its pictures' rows"));
    case PANOVAL_MOSAIC_ARGUMENT:
    case PANOVAL_MOSAIC_PICTURE:
    case PANOVAL_MOSAIC_PLAN:
        throw Failure(Fault::Input, error());
    case PANOVAL_MOSAIC_SINK:
        throw Failure(Fault::Output, error());
    default:
        throw std::runtime_error(error());
    }
}

PanovalMosaicLayout MosaicHandle::layout() const
{
    PanovalMosaicLayout layout{};
    check(panoval_mosaic_layout(mosaic_, &layout));
    return layout;
}

} // namespace panoval::cli
