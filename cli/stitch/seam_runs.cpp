// SPDX-License-Identifier: MIT
#include "cli/stitch/seam_runs.h"

#include "cli/base/errors.h"

namespace panoval::cli
{

void SeamRowWriter::add_number(std::uint64_t number)
{
    for (; number >= 128; number >>= 7)
        bytes_.push_back(static_cast<std::uint8_t>((number & 127u) | 128u));
    bytes_.push_back(static_cast<std::uint8_t>(number));
}

void SeamRowWriter::add(const SeamRow& row)
{
    if (!last_.empty() && row == last_) {
        bytes_.push_back(0);
        return;
    }
    add_number(row.size());
    for (const SeamRun& run : row) {
        add_number(run.length);
        add_number(run.label);
    }
    last_ = row;
}

void SeamRowReader::fail() const
{
    fail_input(name_, concat("seams that are damaged at byte ", at_, " of ", bytes_.size()), "those that were written");
}

std::uint64_t SeamRowReader::number()
{
    std::uint64_t value = 0;
    for (int shift = 0; shift < 35 && at_ < bytes_.size(); shift += 7) {
        const std::uint64_t next = bytes_[at_++];
        value |= (next & 127u) << shift;
        if (next < 128)
            return value;
    }
    fail();
}

const SeamRow& SeamRowReader::next()
{
    const std::uint64_t count = number();
    if (count == 0 && row_.empty())
        fail();
    if (count == 0)
        return row_;
    if (count > width_)
        fail();
    row_.clear();
    std::uint64_t done = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint64_t length = number();
        const std::uint64_t label = number();
        if (length == 0 || length > width_ - done)
            fail();
        row_.push_back({length, label});
        done += length;
    }
    if (done != width_)
        fail();
    return row_;
}

} // namespace panoval::cli
