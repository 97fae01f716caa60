// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_text.h"

#include "mosaic/base/errors.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>
#include <vector>

namespace panoval::mosaic
{

namespace
{

constexpr std::string_view kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Six bits a letter, the first ones on top.
class LetterWriter
{
public:
    void add_byte(std::uint32_t byte)
    {
        bits_ = bits_ << 8 | byte;
        count_ += 8;
        while (count_ >= 6)
            add_letter(bits_ >> (count_ -= 6));
    }
    void add_number(std::uint64_t number)
    {
        for (; number >= 128; number >>= 7)
            add_byte(static_cast<std::uint32_t>(number & 127u) | 128u);
        add_byte(static_cast<std::uint32_t>(number));
    }
    std::string finish()
    {
        if (count_ > 0)
            add_letter(bits_ << (6 - count_));
        return std::move(text_);
    }

private:
    void add_letter(std::uint32_t six) { text_.push_back(kLetters[six & 63u]); }

    std::string text_;
    std::uint32_t bits_ = 0;
    int count_ = 0;
};

class LetterReader
{
public:
    explicit LetterReader(std::string_view text) : text_(text)
    {
        values_.fill(-1);
        for (std::size_t i = 0; i < kLetters.size(); ++i)
            values_[static_cast<unsigned char>(kLetters[i])] = static_cast<int>(i);
    }
    std::uint32_t byte()
    {
        while (count_ < 8) {
            const int value = at_ < text_.size() ? values_[static_cast<unsigned char>(text_[at_])] : -1;
            if (value < 0)
                fail(Failure::Plan, "the plan's seams end, or have a foreign letter, at letter ", at_,
                     "; expected the text that was saved");
            bits_ = bits_ << 6 | static_cast<std::uint32_t>(value);
            count_ += 6;
            ++at_;
        }
        count_ -= 8;
        return bits_ >> count_ & 255u;
    }
    std::uint64_t number()
    {
        std::uint64_t value = 0;
        for (int shift = 0; shift < 35; shift += 7) {
            const std::uint32_t next = byte();
            value |= static_cast<std::uint64_t>(next & 127u) << shift;
            if (next < 128)
                return value;
        }
        fail(Failure::Plan, "the plan's seams have a number that is too long at letter ", at_);
    }
    bool is_at_end() const { return at_ == text_.size(); }

private:
    std::string_view text_;
    std::array<int, 256> values_{};
    std::size_t at_ = 0;
    std::uint32_t bits_ = 0;
    int count_ = 0;
};

bool lies_in_row(const Layout& layout, std::int32_t label, std::int64_t first, std::int64_t end, std::int64_t y)
{
    const Rect& rect = layout.pictures[static_cast<std::size_t>(label)].rect;
    if (y < rect.y || y >= rect.bottom())
        return false;
    const bool is_inside = first >= rect.x && end <= rect.right();
    const bool is_behind_edge = layout.wraps && end + layout.width <= rect.right();
    return is_inside || is_behind_edge || (layout.wraps && rect.width == layout.width);
}

SeamMap::Run read_run(LetterReader& reader, const Layout& layout, std::int64_t first, std::int64_t y)
{
    const std::uint64_t length = reader.number();
    const std::uint64_t label = reader.number();
    if (length == 0 || length > static_cast<std::uint64_t>(layout.width - first))
        fail(Failure::Plan, "the plan's seams have a run of ", length, " pixels from column ", first, " of row ", y,
             "; expected 1 to ", layout.width - first);
    if (label > layout.pictures.size())
        fail(Failure::Plan, "the plan's seams name picture ", label, " in row ", y, "; expected at most ",
             layout.pictures.size());
    const std::int64_t end = first + static_cast<std::int64_t>(length);
    const SeamMap::Run run{static_cast<std::int32_t>(end), static_cast<std::int32_t>(label) - 1};
    if (run.label != kNobody && !lies_in_row(layout, run.label, first, end, y))
        fail(Failure::Plan, "the plan's seams give columns ", first, " to ", end - 1, " of row ", y, " to picture ",
             run.label, ", which does not lie there");
    return run;
}

std::vector<SeamMap::Run> read_row(LetterReader& reader, const Layout& layout, std::uint64_t count, std::int64_t y)
{
    std::vector<SeamMap::Run> row;
    std::int64_t first = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        row.push_back(read_run(reader, layout, first, y));
        first = row.back().end;
    }
    if (first != layout.width)
        fail(Failure::Plan, "the plan's seams end at column ", first, " of row ", y, "; expected ", layout.width);
    return row;
}

} // namespace

std::string text_of_seams(const SeamMap& seams)
{
    LetterWriter writer;
    for (std::int64_t y = 0; y < seams.height(); ++y) {
        const auto row = seams.runs(y);
        const auto above = seams.runs(y > 0 ? y - 1 : 0);
        if (y > 0 && std::equal(row.begin(), row.end(), above.begin(), above.end())) {
            writer.add_number(0);
            continue;
        }
        writer.add_number(row.size());
        std::int64_t first = 0;
        for (const SeamMap::Run& run : row) {
            writer.add_number(static_cast<std::uint64_t>(run.end - first));
            writer.add_number(static_cast<std::uint64_t>(std::int64_t{run.label} + 1));
            first = run.end;
        }
    }
    return writer.finish();
}

SeamMap seams_of_text(std::string_view text, const Layout& layout)
{
    LetterReader reader(text);
    SeamMap seams(layout.width);
    std::vector<SeamMap::Run> row;
    for (std::int64_t y = 0; y < layout.height; ++y) {
        const std::uint64_t count = reader.number();
        if (count > 0)
            row = read_row(reader, layout, count, y);
        else if (y == 0)
            fail(Failure::Plan, "the plan's seams repeat a row before the first one");
        seams.add_row(row);
    }
    if (!reader.is_at_end())
        fail(Failure::Plan, "the plan's seams go on behind row ", layout.height - 1, "; expected their end");
    return seams;
}

} // namespace panoval::mosaic
