// SPDX-License-Identifier: MIT
#include "cli/stitch/seam_file.h"

#include "cli/base/errors.h"
#include "image/base64.h"
#include "image/files.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace panoval::cli
{

namespace
{

constexpr std::string_view kMagic = "PVSEAMS1";
constexpr std::size_t kWord = 8;
constexpr std::size_t kIdSize = 16;
constexpr std::size_t kEndSize = 5 * kWord + kIdSize;
const char* const kExpected = "the file that panoval stitch --plan-only wrote beside the plan";

void add_word(std::vector<std::uint8_t>& bytes, std::uint64_t value)
{
    for (int shift = 0; shift < 64; shift += 8)
        bytes.push_back(static_cast<std::uint8_t>(value >> shift & 255u));
}

std::uint64_t word_at(const std::uint8_t* bytes)
{
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < kWord; ++i)
        value |= std::uint64_t{bytes[i]} << 8 * i;
    return value;
}

// The bytes of a plan's seams; the letters have no padding there.
std::vector<std::uint8_t> bytes_of_text(std::string_view text, const std::string& name)
{
    std::string padded(text);
    padded.append((4 - padded.size() % 4) % 4, '=');
    auto bytes = image::bytes_of_base64(padded);
    if (!bytes)
        fail_input(name, "seams in foreign letters", "a plan's text");
    return std::move(*bytes);
}

std::string text_of_bytes(const std::vector<std::uint8_t>& bytes)
{
    std::string text = image::base64_of(bytes);
    text.erase(text.find_last_not_of('=') + 1);
    return text;
}

// A row of squares that is being filled.
class SquareWriters
{
public:
    explicit SquareWriters(const SeamGrid& grid)
        : grid_(grid), writers_(static_cast<std::size_t>(grid.columns())), rows_(writers_.size())
    {
    }

    void add(const SeamRow& row)
    {
        for (SeamRow& part : rows_)
            part.clear();
        std::int64_t x = 0;
        for (const SeamRun& run : row) {
            const std::int64_t end = x + static_cast<std::int64_t>(run.length);
            while (x < end) {
                const std::int64_t column = x / grid_.side;
                const std::int64_t stop = std::min(end, (column + 1) * grid_.side);
                rows_[static_cast<std::size_t>(column)].push_back({static_cast<std::uint64_t>(stop - x), run.label});
                x = stop;
            }
        }
        for (std::size_t i = 0; i < rows_.size(); ++i)
            writers_[i].add(rows_[i]);
    }

    // Writes the squares, notes where each one ends, and begins the next ones.
    void flush(image::OutputFile& output, std::vector<std::uint64_t>& ends)
    {
        for (SeamRowWriter& writer : writers_) {
            output.write(writer.bytes().data(), writer.bytes().size());
            ends.push_back(ends.back() + writer.bytes().size());
            writer = SeamRowWriter();
        }
    }

private:
    const SeamGrid grid_;
    std::vector<SeamRowWriter> writers_;
    std::vector<SeamRow> rows_; // of each square
};

// What the file has: its grid and where the squares are.
class SeamFile
{
public:
    SeamFile(const std::string& name, const SeamGrid& grid, const std::string& id)
        : name_(name), grid_(grid), file_(image::open_input(name, "the seams of a plan"))
    {
        const bool is_sought = image::seek_in_file(file_.get(), 0, SEEK_END);
        const std::int64_t size = image::tell_in_file(file_.get());
        if (!is_sought || size < static_cast<std::int64_t>(kEndSize))
            fail_input(name_, concat(size, " bytes"), kExpected);
        const auto end = read(static_cast<std::uint64_t>(size) - kEndSize, kEndSize);
        if (std::memcmp(end.data(), kMagic.data(), kMagic.size()) != 0)
            fail_input(name_, "no seams", kExpected);
        if (std::memcmp(&end[5 * kWord], id.data(), std::min(id.size(), kIdSize)) != 0 || id.size() != kIdSize)
            fail_input(name_, "the seams of another plan", kExpected);
        read_index(end, static_cast<std::uint64_t>(size) - kEndSize);
    }

    std::vector<std::uint8_t> square(std::int64_t row, std::int64_t column) const
    {
        const auto i = static_cast<std::size_t>(row * grid_.columns() + column);
        return read(starts_[i], static_cast<std::size_t>(starts_[i + 1] - starts_[i]));
    }

private:
    void read_index(const std::vector<std::uint8_t>& end, std::uint64_t index_end)
    {
        const auto squares = static_cast<std::uint64_t>(grid_.columns() * grid_.rows());
        const std::uint64_t start = word_at(&end[4 * kWord]);
        if (word_at(&end[kWord]) != static_cast<std::uint64_t>(grid_.side) ||
            word_at(&end[2 * kWord]) != static_cast<std::uint64_t>(grid_.width) ||
            word_at(&end[3 * kWord]) != static_cast<std::uint64_t>(grid_.height) || start > index_end ||
            index_end - start != (squares + 1) * kWord)
            fail_input(name_, "the seams of another canvas", kExpected);
        const auto bytes = read(start, static_cast<std::size_t>(index_end - start));
        for (std::size_t at = 0; at < bytes.size(); at += kWord) {
            const std::uint64_t place = word_at(&bytes[at]);
            if (place > start || (!starts_.empty() && place < starts_.back()))
                fail_input(name_, "a damaged index", kExpected);
            starts_.push_back(place);
        }
    }

    std::vector<std::uint8_t> read(std::uint64_t place, std::size_t count) const
    {
        std::vector<std::uint8_t> bytes(count);
        if (count == 0)
            return bytes;
        if (!image::seek_in_file(file_.get(), static_cast<std::int64_t>(place), SEEK_SET) ||
            std::fread(bytes.data(), 1, count, file_.get()) != count)
            fail_input(name_, "a file that ends early", kExpected);
        return bytes;
    }

    const std::string& name_;
    const SeamGrid grid_;
    const image::FileHandle file_;
    std::vector<std::uint64_t> starts_;
};

// The rows of a row of squares, side by side again.
void add_squares(const SeamFile& file, const std::string& name, const SeamGrid& grid, const SeamSelection& selection,
                 std::int64_t row, SeamRowWriter& out)
{
    const auto columns = static_cast<std::size_t>(grid.columns());
    std::vector<std::vector<std::uint8_t>> squares(columns);
    std::vector<SeamRowReader> readers;
    for (std::size_t i = 0; i < columns; ++i) {
        const auto column = static_cast<std::int64_t>(i);
        if (selection.has(row, column))
            squares[i] = file.square(row, column);
        readers.emplace_back(squares[i], name, grid.square_width(column));
    }
    for (std::int64_t y = 0; y < grid.square_height(row); ++y) {
        SeamRow whole;
        for (std::size_t i = 0; i < columns; ++i) {
            const auto column = static_cast<std::int64_t>(i);
            if (!selection.has(row, column)) {
                append_run(whole, {static_cast<std::uint64_t>(grid.square_width(column)), 0});
                continue;
            }
            for (const SeamRun& run : readers[i].next())
                append_run(whole, run);
        }
        out.add(whole);
    }
}

} // namespace

void write_seam_file(image::OutputFile& output, const SeamGrid& grid, std::string_view text, const std::string& id,
                     const std::string& name)
{
    const std::vector<std::uint8_t> bytes = bytes_of_text(text, name);
    SeamRowReader reader(bytes, name, grid.width);
    SquareWriters squares(grid);
    std::vector<std::uint64_t> ends = {0};
    for (std::int64_t y = 0; y < grid.height; ++y) {
        squares.add(reader.next());
        if ((y + 1) % grid.side == 0 || y + 1 == grid.height)
            squares.flush(output, ends);
    }
    std::vector<std::uint8_t> tail;
    for (const std::uint64_t place : ends)
        add_word(tail, place);
    tail.insert(tail.end(), kMagic.begin(), kMagic.end());
    for (const std::int64_t value : {grid.side, grid.width, grid.height})
        add_word(tail, static_cast<std::uint64_t>(value));
    add_word(tail, ends.back());
    tail.insert(tail.end(), id.begin(), id.end());
    output.write(tail.data(), tail.size());
}

void SeamSelection::add_columns(std::int64_t row, std::int64_t first, std::int64_t end)
{
    first = std::max<std::int64_t>(first, 0);
    end = std::min(end, grid_.width);
    for (std::int64_t column = first / grid_.side; column * grid_.side < end; ++column)
        chosen_[static_cast<std::size_t>(row * grid_.columns() + column)] = true;
}

void SeamSelection::add(const PanovalMosaicRect& rect, std::int64_t reach)
{
    const std::int64_t top = std::max<std::int64_t>(rect.y - reach, 0) / grid_.side;
    const std::int64_t bottom = std::min(rect.y + rect.height + reach, grid_.height);
    const std::int64_t left = rect.x - reach;
    const std::int64_t right = rect.x + rect.width + reach;
    for (std::int64_t row = top; row * grid_.side < bottom; ++row) {
        add_columns(row, left, right);
        if (wraps_ && left < 0)
            add_columns(row, left + grid_.width, grid_.width);
        if (wraps_ && right > grid_.width)
            add_columns(row, 0, right - grid_.width);
    }
}

bool SeamSelection::has_row(std::int64_t row) const
{
    for (std::int64_t column = 0; column < grid_.columns(); ++column)
        if (has(row, column))
            return true;
    return false;
}

std::string read_seam_file(const std::string& name, const SeamGrid& grid, const std::string& id,
                           const SeamSelection& selection)
{
    const SeamFile file(name, grid, id);
    const SeamRow nobody = {{static_cast<std::uint64_t>(grid.width), 0}};
    SeamRowWriter out;
    for (std::int64_t row = 0; row < grid.rows(); ++row) {
        if (selection.has_row(row)) {
            add_squares(file, name, grid, selection, row, out);
            continue;
        }
        for (std::int64_t y = 0; y < grid.square_height(row); ++y)
            out.add(nobody);
    }
    return text_of_bytes(out.bytes());
}

} // namespace panoval::cli
