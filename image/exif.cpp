// SPDX-License-Identifier: MIT
// The block has a byte order, the place of a directory, and directories of entries of 12 bytes: tag, type, count, and
// the value or its place. Camera and date stand in the first directory, the exposure in one that the first one points
// to.
#include "image/exif.h"

#include <algorithm>
#include <cstring>

namespace panoval::image
{

namespace
{

constexpr std::uint32_t kMakeTag = 0x010F;
constexpr std::uint32_t kModelTag = 0x0110;
constexpr std::uint32_t kOrientationTag = 0x0112;
constexpr std::uint32_t kDateTag = 0x0132;
constexpr std::uint32_t kExifTag = 0x8769; // the place of the second directory
constexpr std::uint32_t kExposureTag = 0x829A;
constexpr std::uint32_t kFNumberTag = 0x829D;
constexpr std::uint32_t kIsoTag = 0x8827;
constexpr std::uint32_t kOriginalDateTag = 0x9003;

constexpr std::uint32_t kAsciiType = 2;
constexpr std::uint32_t kShortType = 3;
constexpr std::uint32_t kLongType = 4;
constexpr std::uint32_t kRationalType = 5;

constexpr std::size_t kEntryBytes = 12;
constexpr std::size_t kLongestText = 1000;

// Numbers at a place in the block; 0 beyond its end.
class Numbers
{
public:
    Numbers(const std::uint8_t* data, std::size_t size) : data_(data), size_(size), is_big_endian_(byte(0) == 'M') {}

    std::uint32_t two_bytes(std::size_t at) const
    {
        return is_big_endian_ ? byte(at) << 8 | byte(at + 1) : byte(at + 1) << 8 | byte(at);
    }
    std::uint32_t four_bytes(std::size_t at) const
    {
        return is_big_endian_ ? two_bytes(at) << 16 | two_bytes(at + 2) : two_bytes(at + 2) << 16 | two_bytes(at);
    }
    std::uint32_t byte(std::size_t at) const { return at < size_ ? data_[at] : 0u; }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    bool is_big_endian_;
};

// One entry of a directory.
struct Entry {
    const Numbers& numbers;
    std::size_t place;

    std::uint32_t tag() const { return numbers.two_bytes(place); }
    std::uint32_t type() const { return numbers.two_bytes(place + 2); }
    std::uint32_t count() const { return numbers.four_bytes(place + 4); }

    std::optional<std::uint32_t> whole() const
    {
        if (count() < 1 || (type() != kShortType && type() != kLongType))
            return std::nullopt;
        return type() == kShortType ? numbers.two_bytes(place + 8) : numbers.four_bytes(place + 8);
    }
    std::optional<Rational> rational() const
    {
        const std::size_t at = numbers.four_bytes(place + 8);
        const Rational value = {numbers.four_bytes(at), numbers.four_bytes(at + 4)};
        if (type() != kRationalType || count() < 1 || value.denominator == 0)
            return std::nullopt;
        return value;
    }
    std::string text() const
    {
        if (type() != kAsciiType || count() > kLongestText)
            return "";
        const std::size_t at = count() <= 4 ? place + 8 : numbers.four_bytes(place + 8);
        std::string value;
        for (std::size_t i = 0; i < count() && numbers.byte(at + i) != 0; ++i)
            value += static_cast<char>(numbers.byte(at + i));
        while (!value.empty() && value.back() == ' ')
            value.pop_back();
        return value;
    }
};

template <class Visit>
void for_each_entry(const Numbers& numbers, std::size_t directory, const Visit& visit)
{
    const std::uint32_t entries = numbers.two_bytes(directory);
    for (std::uint32_t i = 0; i < entries; ++i)
        visit(Entry{numbers, directory + 2 + i * kEntryBytes});
}

void read_shot(const Numbers& numbers, std::size_t directory, Exif& exif)
{
    for_each_entry(numbers, directory, [&](const Entry& entry) {
        if (entry.tag() == kExposureTag)
            exif.exposure_seconds = entry.rational();
        else if (entry.tag() == kFNumberTag)
            exif.f_number = entry.rational();
        else if (entry.tag() == kIsoTag)
            exif.iso = entry.whole();
        else if (entry.tag() == kOriginalDateTag && !entry.text().empty())
            exif.date = entry.text();
    });
}

// A directory as it is written: entries of 12 bytes, and behind all of them the values that need more than 4.
class DirectoryBuilder
{
public:
    // place: of the directory in the block; entries: how many there will be
    DirectoryBuilder(std::size_t place, std::size_t entries) : values_at_(place + 2 + entries * kEntryBytes + 4)
    {
        put(entries_, entries, 2);
    }

    void add_text(std::uint32_t tag, const std::string& text)
    {
        begin(tag, kAsciiType, text.size() + 1);
        std::vector<std::uint8_t> bytes(text.begin(), text.end());
        bytes.push_back(0);
        add_value(std::move(bytes));
    }
    void add_whole(std::uint32_t tag, std::uint32_t type, std::uint32_t value)
    {
        begin(tag, type, 1);
        put(entries_, value, 4); // little-endian: a short one fills the first two bytes
    }
    void add_rational(std::uint32_t tag, const Rational& value)
    {
        begin(tag, kRationalType, 1);
        std::vector<std::uint8_t> bytes;
        put(bytes, value.numerator, 4);
        put(bytes, value.denominator, 4);
        add_value(std::move(bytes));
    }

    std::vector<std::uint8_t> finish()
    {
        put(entries_, 0, 4); // no further directory
        entries_.insert(entries_.end(), values_.begin(), values_.end());
        return std::move(entries_);
    }

private:
    static void put(std::vector<std::uint8_t>& to, std::uint64_t value, int bytes)
    {
        for (int i = 0; i < bytes; ++i)
            to.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }
    void begin(std::uint32_t tag, std::uint32_t type, std::size_t count)
    {
        put(entries_, tag, 2);
        put(entries_, type, 2);
        put(entries_, count, 4);
    }
    void add_value(std::vector<std::uint8_t> bytes)
    {
        if (bytes.size() <= 4) {
            bytes.resize(4);
            entries_.insert(entries_.end(), bytes.begin(), bytes.end());
            return;
        }
        put(entries_, values_at_ + values_.size(), 4);
        values_.insert(values_.end(), bytes.begin(), bytes.end());
        if (values_.size() % 2 != 0) // values begin at even places
            values_.push_back(0);
    }

    std::size_t values_at_;
    std::vector<std::uint8_t> entries_;
    std::vector<std::uint8_t> values_;
};

} // namespace

ExifBlock parse_exif(const std::uint8_t* block, std::size_t size)
{
    if (size >= sizeof kExifMagic && std::memcmp(block, kExifMagic, sizeof kExifMagic) == 0) {
        block += sizeof kExifMagic;
        size -= sizeof kExifMagic;
    }
    const Numbers numbers(block, size);
    ExifBlock found;
    if (numbers.two_bytes(2) != 42)
        return found;
    for_each_entry(numbers, numbers.four_bytes(4), [&](const Entry& entry) {
        const auto whole = entry.whole();
        if (entry.tag() == kMakeTag)
            found.exif.make = entry.text();
        else if (entry.tag() == kModelTag)
            found.exif.model = entry.text();
        else if (entry.tag() == kDateTag && found.exif.date.empty())
            found.exif.date = entry.text();
        else if (entry.tag() == kOrientationTag && entry.type() == kShortType && whole >= 1u && whole <= 8u)
            found.orientation = static_cast<int>(*whole);
        else if (entry.tag() == kExifTag && whole)
            read_shot(numbers, *whole, found.exif);
    });
    return found;
}

std::vector<std::uint8_t> make_exif(const Exif& exif)
{
    const std::vector<std::uint8_t> header = {'I', 'I', 42, 0, 8, 0, 0, 0};
    const std::size_t shot_entries = (exif.exposure_seconds ? 1u : 0u) + (exif.f_number ? 1u : 0u) +
                                     (exif.iso ? 1u : 0u) + (exif.date.empty() ? 0u : 1u);
    const std::size_t entries = (exif.make.empty() ? 0u : 1u) + (exif.model.empty() ? 0u : 1u) +
                                (exif.date.empty() ? 0u : 1u) + (shot_entries != 0 ? 1u : 0u);
    // Tags ascend. The second directory's place is known when the first one is: it is built twice.
    std::vector<std::uint8_t> first;
    std::size_t shot_place = 0;
    for (int round = 0; round < 2; ++round) {
        DirectoryBuilder directory(header.size(), entries);
        if (!exif.make.empty())
            directory.add_text(kMakeTag, exif.make);
        if (!exif.model.empty())
            directory.add_text(kModelTag, exif.model);
        if (!exif.date.empty())
            directory.add_text(kDateTag, exif.date);
        if (shot_entries != 0)
            directory.add_whole(kExifTag, kLongType, static_cast<std::uint32_t>(shot_place));
        first = directory.finish();
        shot_place = header.size() + first.size();
    }
    DirectoryBuilder shot(shot_place, shot_entries);
    if (exif.exposure_seconds)
        shot.add_rational(kExposureTag, *exif.exposure_seconds);
    if (exif.f_number)
        shot.add_rational(kFNumberTag, *exif.f_number);
    if (exif.iso)
        shot.add_whole(kIsoTag, kShortType, std::min<std::uint32_t>(*exif.iso, 65535));
    if (!exif.date.empty())
        shot.add_text(kOriginalDateTag, exif.date);
    std::vector<std::uint8_t> block = header;
    block.insert(block.end(), first.begin(), first.end());
    if (shot_entries != 0) {
        const auto second = shot.finish();
        block.insert(block.end(), second.begin(), second.end());
    }
    return block;
}

} // namespace panoval::image
