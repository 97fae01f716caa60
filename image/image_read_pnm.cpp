// SPDX-License-Identifier: MIT
// Portable any-map files: PGM and PPM, plain (P2, P3) and raw (P5, P6), and PAM (P7) with its optional alpha. Samples
// of any maximum value are stretched to 8 bit up to 255, to 16 bit above.
#include "image/failure.h"
#include "image/image_read.h"
#include "image/text.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

namespace panoval::image
{

namespace
{

struct PnmHeader {
    ImageInfo info;
    bool is_plain = false;
    unsigned max_value = 0;

    std::size_t samples_per_row() const
    {
        return static_cast<std::size_t>(info.width) *
               static_cast<std::size_t>(info.channels + (info.has_alpha ? 1 : 0));
    }
};

// The header's characters. A comment runs from # to the end of its line and counts as white space.
class PnmText
{
public:
    explicit PnmText(InputFile& file) : file_(file) {}

    // A whole number of at most `most`; what says what it is.
    std::int64_t number(const char* what, std::int64_t most)
    {
        int c = skip_space();
        if (c < '0' || c > '9')
            fail_input(file_.name, concat(c == EOF ? "the file's end" : "something else", " where ", what, " stands"),
                       "a whole number");
        std::int64_t value = 0;
        for (; c >= '0' && c <= '9'; c = next()) {
            value = value * 10 + (c - '0');
            if (value > most)
                fail_input(file_.name, concat(what, " above ", most), concat("at most ", most));
        }
        // The one white space after a number belongs to it: raw samples start right behind.
        if (c != EOF && !is_space(c))
            fail_input(file_.name, concat("a letter after ", what), "white space");
        return value;
    }

    // A line of a PAM header, without its end.
    std::string line()
    {
        std::string text;
        for (int c = std::getc(file_.stream.get()); c != EOF && c != '\n'; c = std::getc(file_.stream.get())) {
            if (text.size() > 1000)
                fail_input(file_.name, "a header line of more than 1000 characters", "a PAM header");
            text += static_cast<char>(c);
        }
        return text;
    }

private:
    static bool is_space(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

    int next()
    {
        int c = std::getc(file_.stream.get());
        if (c == '#')
            while (c != EOF && c != '\n')
                c = std::getc(file_.stream.get());
        return c;
    }

    int skip_space()
    {
        int c = next();
        while (is_space(c))
            c = next();
        return c;
    }

    InputFile& file_;
};

constexpr std::int64_t kMostPixels = 2'147'483'647;

void set_format(const InputFile& file, PnmHeader& header, std::int64_t width, std::int64_t height, int samples,
                std::int64_t max_value)
{
    if (samples < 1 || samples > 4)
        fail_input(file.name, concat(samples, " samples a pixel"), "1 to 4");
    if (max_value < 1 || max_value > 65535)
        fail_input(file.name, concat("a maximum value of ", max_value), "1 to 65535");
    header.info.channels = samples <= 2 ? 1 : 3;
    header.info.has_alpha = samples % 2 == 0;
    header.info.bits = max_value > 255 ? 16 : 8;
    header.max_value = static_cast<unsigned>(max_value);
    check_sides(file.name, width, height);
    header.info.width = static_cast<std::int32_t>(width);
    header.info.height = static_cast<std::int32_t>(height);
}

PnmHeader read_pam_header(InputFile& file, PnmText& text)
{
    PnmHeader header;
    std::int64_t width = 0, height = 0, samples = 0, max_value = 0;
    for (std::string line = text.line(); line != "ENDHDR"; line = text.line()) {
        if (std::feof(file.stream.get()) != 0)
            fail_input(file.name, "a PAM header without ENDHDR", "a complete header");
        long long value = 0;
        char key[16] = "";
        if (std::sscanf(line.c_str(), "%15s %11lld", key, &value) != 2)
            continue; // a comment, an empty line, or the tuple type, which the number of samples tells as well
        if (std::strcmp(key, "WIDTH") == 0)
            width = value;
        else if (std::strcmp(key, "HEIGHT") == 0)
            height = value;
        else if (std::strcmp(key, "DEPTH") == 0)
            samples = value;
        else if (std::strcmp(key, "MAXVAL") == 0)
            max_value = value;
    }
    set_format(file, header, width, height, static_cast<int>(samples < 0 || samples > 1000 ? 1000 : samples),
               max_value);
    return header;
}

PnmHeader read_header(InputFile& file)
{
    std::getc(file.stream.get()); // 'P', as the format's test has seen
    const int kind = std::getc(file.stream.get());
    if (kind == '1' || kind == '4')
        fail_input(file.name, concat("a bitmap (P", static_cast<char>(kind), ")"), "P2, P3, P5, P6 or P7");
    PnmText text(file);
    PnmHeader header;
    if (kind == '7') {
        text.line(); // what is left of the first one
        header = read_pam_header(file, text);
    } else {
        const std::int64_t width = text.number("the width", kMostPixels);
        const std::int64_t height = text.number("the height", kMostPixels);
        const std::int64_t max_value = text.number("the maximum value", 65535);
        set_format(file, header, width, height, kind == '3' || kind == '6' ? 3 : 1, max_value);
        header.is_plain = kind == '2' || kind == '3';
    }
    if (header.is_plain)
        return header;
    const std::int64_t expected =
        static_cast<std::int64_t>(header.samples_per_row() * header.info.sample_bytes()) * header.info.height;
    const std::int64_t found = file.size - tell_in_file(file.stream.get());
    if (found < expected)
        fail_input(file.name, concat("a truncated file with ", found, " bytes of samples"),
                   concat(expected, " for ", describe(header.info)));
    return header;
}

// Stretches a row so that the maximum value becomes 255 or 65535.
void stretch(const InputFile& file, const PnmHeader& header, const std::vector<std::uint16_t>& samples,
             std::uint8_t* bytes)
{
    const unsigned full = header.info.bits == 16 ? 65535u : 255u;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (samples[i] > header.max_value)
            fail_input(file.name, concat("a sample of ", samples[i]), concat("at most ", header.max_value));
        const auto value = static_cast<std::uint16_t>((samples[i] * full + header.max_value / 2u) / header.max_value);
        if (full == 255u)
            bytes[i] = static_cast<std::uint8_t>(value);
        else
            std::memcpy(bytes + 2 * i, &value, 2);
    }
}

class PnmReader : public SequentialReader
{
public:
    explicit PnmReader(InputFile file)
        : file_(std::move(file)), header_(read_header(file_)), samples_at_(tell_in_file(file_.stream.get()))
    {
        info_ = header_.info;
    }

    std::uint64_t held_bytes() const override { return 3 * row_bytes(); }

    // Rows of raw files stand at known places.
    void read_rows(std::int32_t first, std::int32_t count, const Rows& to) override
    {
        if (!header_.is_plain)
            seek_in_file(file_.stream.get(), samples_at_ + static_cast<std::int64_t>(row_bytes()) * first, SEEK_SET);
        SequentialReader::read_rows(header_.is_plain ? first : 0, count, to);
    }

protected:
    void restart() override
    {
        if (header_.is_plain)
            seek_in_file(file_.stream.get(), samples_at_, SEEK_SET);
    }

    void read_next(std::uint8_t* interleaved) override
    {
        samples_.resize(header_.samples_per_row());
        bytes_.resize(row_bytes());
        if (header_.is_plain) {
            PnmText text(file_);
            for (std::uint16_t& sample : samples_)
                sample = static_cast<std::uint16_t>(text.number("a sample", header_.max_value));
        } else {
            const bool is_ready = header_.max_value == 255;
            std::uint8_t* const bytes = is_ready ? interleaved : bytes_.data();
            if (std::fread(bytes, 1, bytes_.size(), file_.stream.get()) != bytes_.size())
                fail_input(file_.name, "a file that cannot be read to its end", describe(header_.info));
            if (is_ready)
                return;
            const bool is_wide = header_.info.bits == 16;
            for (std::size_t i = 0; i < samples_.size(); ++i)
                samples_[i] = is_wide ? static_cast<std::uint16_t>(bytes[2 * i] << 8 | bytes[2 * i + 1]) : bytes[i];
        }
        stretch(file_, header_, samples_, interleaved);
    }

private:
    std::size_t row_bytes() const { return stored_row_bytes(header_.info); }

    InputFile file_;
    PnmHeader header_;
    std::int64_t samples_at_;
    std::vector<std::uint16_t> samples_; // of a row
    std::vector<std::uint8_t> bytes_;
};

} // namespace

std::vector<ImageInfo> probe_pnm(InputFile& file)
{
    return {read_header(file).info};
}

StoredPicture open_pnm(InputFile file, std::size_t)
{
    return {std::make_unique<PnmReader>(std::move(file)), 1};
}

} // namespace panoval::image
