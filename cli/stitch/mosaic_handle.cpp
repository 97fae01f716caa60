// SPDX-License-Identifier: MIT
#include "cli/stitch/mosaic_handle.h"

#include "cli/base/errors.h"

#include <algorithm>
#include <charconv>
#include <new>
#include <stdexcept>
#include <string_view>

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

// The engine names the least budget of its own.
std::string MosaicHandle::budget_error() const
{
    std::string text = error();
    const std::string_view expected = "expected ";
    const std::size_t at = text.rfind(expected);
    std::uint64_t least = 0;
    if (at == std::string::npos ||
        std::from_chars(text.data() + at + expected.size(), text.data() + text.size(), least).ec != std::errc())
        return text;
    return concat(text, ", as --memory ", with_beside(least), " leaves it");
}

std::uint64_t MosaicHandle::with_beside(std::uint64_t engine_memory) const
{
    return engine_memory + std::min(beside_, engine_memory - 1);
}

bool MosaicHandle::fits(std::int32_t code) const
{
    if (code == PANOVAL_MOSAIC_MEMORY && error().find("budget") == std::string::npos) // no advice would help
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
        throw Failure(Fault::Memory, budget_error());
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
