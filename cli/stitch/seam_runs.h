// SPDX-License-Identifier: MIT
// Rows of seams as the bytes that plans have them in: how many runs, then each one's length and label; 0 for a row that
// is the one above. Numbers take 7 bits a byte, the lowest first, with the top bit set in all bytes but the last.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace panoval::cli
{

struct SeamRun {
    std::uint64_t length = 0; // pixels
    std::uint64_t label = 0;  // 0 = no picture, else its number from 1 on
    friend bool operator==(const SeamRun&, const SeamRun&) = default;
};

using SeamRow = std::vector<SeamRun>;

class SeamRowWriter
{
public:
    // Neighbouring runs of one label are to be one run.
    void add(const SeamRow& row);

    std::vector<std::uint8_t>& bytes() { return bytes_; }

private:
    void add_number(std::uint64_t number);

    std::vector<std::uint8_t> bytes_;
    SeamRow last_;
};

class SeamRowReader
{
public:
    // name: of the file that the bytes are of, for messages. Bytes and name must outlive the reader.
    SeamRowReader(std::span<const std::uint8_t> bytes, const std::string& name, std::int64_t width)
        : bytes_(bytes), name_(name), width_(static_cast<std::uint64_t>(width))
    {
    }

    // The next row, whose runs together have the width. Fails, naming the file, where there is none.
    const SeamRow& next();

    bool is_at_end() const { return at_ == bytes_.size(); }

private:
    std::uint64_t number();
    [[noreturn]] void fail() const;

    std::span<const std::uint8_t> bytes_;
    const std::string& name_;
    std::uint64_t width_;
    std::size_t at_ = 0;
    SeamRow row_;
};

// Puts a run behind others; it becomes one with the last one if that has its label.
inline void append_run(SeamRow& row, const SeamRun& run)
{
    if (!row.empty() && row.back().label == run.label)
        row.back().length += run.length;
    else
        row.push_back(run);
}

} // namespace panoval::cli
