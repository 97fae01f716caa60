// SPDX-License-Identifier: MIT
// Pictures read by rows, so that they need not be in memory as a whole.
#pragma once

#include "image/image.h"
#include "image/rows.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace panoval::image
{

// One layer of a file. A reader serves one thread at a time; several readers of one file do not know each other.
class RowReader
{
public:
    virtual ~RowReader() = default;

    const ImageInfo& info() const { return info_; }
    const Metadata& metadata() const { return metadata_; }

    // Gives the rows from `first` on, `count` of them. Where the file has no alpha, a mask becomes 255. Compressed rows
    // may come from the first one on alone: going back begins anew then, and rows that are skipped are decoded all the
    // same.
    virtual void read_rows(std::int32_t first, std::int32_t count, const Rows& to) = 0;

    // Whether the file holds the rows as they are, so that reading any of them again decodes nothing.
    virtual bool is_stored() const { return false; }

    // What the reader keeps in memory while it lives, about, in bytes.
    virtual std::uint64_t held_bytes() const = 0;

protected:
    ImageInfo info_;
    Metadata metadata_;
};

// The layer as it is to be seen. A picture that cannot come by rows, one that is interlaced or has to be turned, is
// decoded when its first row is asked for, and kept.
std::unique_ptr<RowReader> open_rows(const std::string& name, std::size_t layer = 0);

// ---- for the readers of the formats ----

// Rows that come one after the other.
class SequentialReader : public RowReader
{
public:
    void read_rows(std::int32_t first, std::int32_t count, const Rows& to) override;

protected:
    // Goes back before the first row.
    virtual void restart() = 0;

    // The next row, interleaved as RowSplitter takes it.
    virtual void read_next(std::uint8_t* interleaved) = 0;

    // After the last row: checks what follows it.
    virtual void finish() {}

private:
    void read_stored_row();

    std::int32_t next_ = 0;
    std::vector<std::uint8_t> row_;
    std::unique_ptr<RowSplitter> splitter_;
};

} // namespace panoval::image
