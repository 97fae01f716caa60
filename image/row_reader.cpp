// SPDX-License-Identifier: MIT
#include "image/row_reader.h"

namespace panoval::image
{

void SequentialReader::read_rows(std::int32_t first, std::int32_t count, const Rows& to)
{
    if (splitter_ == nullptr) {
        splitter_ = std::make_unique<RowSplitter>(info_, false);
        row_.resize(stored_row_bytes(info_));
    }
    if (first < next_) {
        next_ = 0;
        restart();
    }
    while (next_ < first)
        read_stored_row();
    for (std::int32_t i = 0; i < count; ++i) {
        read_stored_row();
        splitter_->split(row_.data(), to.row(i), to.mask_row(i));
    }
}

void SequentialReader::read_stored_row()
{
    read_next(row_.data());
    if (++next_ == info_.height)
        finish();
}

} // namespace panoval::image
