// SPDX-License-Identifier: MIT
// The pictures of a store by rows, and its reduced levels chunk by chunk.
#pragma once

#include "image/row_reader.h"
#include "image/zarr_store.h"

#include <memory>

namespace panoval::image
{

// A level by rows. Keeps one row of chunks, so that memory follows from the width.
std::unique_ptr<RowReader> open_store_rows(const ZarrStore& store, std::size_t level = 0);

// Writes a chunk of a level, which is not the full picture, from the level before: each pixel is the mean of 2 x 2 as
// in image/row_halver.h. Chunks do not depend on each other, so that several threads may write one each.
void write_halved_chunk(const ZarrStore& store, std::size_t level, std::int64_t row, std::int64_t column);

} // namespace panoval::image
