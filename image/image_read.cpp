// SPDX-License-Identifier: MIT
// Finding out which reader a file needs, and what all of them share.
#include "image/image_read.h"

#include "image/failure.h"
#include "image/orientation.h"
#include "image/text.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <utility>

namespace panoval::image
{

namespace
{

std::atomic<std::uint64_t> most_pixels{kUsualMostPixels};

// How a format's files begin, and who reads them.
struct InputFormat {
    std::vector<std::string> starts;
    std::vector<ImageInfo> (*probe)(InputFile& file);
    StoredPicture (*open)(InputFile file, std::size_t layer);
};

const std::vector<InputFormat>& input_formats()
{
    using namespace std::string_literals;
    static const std::vector<InputFormat> formats = {
        {{"\x89PNG\r\n\x1A\n"s}, probe_png, open_png},
        {{"\xFF\xD8\xFF"s}, probe_jpeg, open_jpeg},
        {{"II*\0"s, "MM\0*"s, "II+\0"s, "MM\0+"s}, probe_tiff, open_tiff},
        {{"P1", "P2", "P3", "P4", "P5", "P6", "P7"}, probe_pnm, open_pnm},
    };
    return formats;
}

std::string first_bytes(std::FILE* file)
{
    std::array<char, 8> bytes{};
    const std::size_t count = std::fread(bytes.data(), 1, bytes.size(), file);
    seek_in_file(file, 0, SEEK_SET);
    return std::string(bytes.data(), count);
}

// Null where no format's files begin like that.
const InputFormat* format_of(const std::string& start)
{
    for (const InputFormat& format : input_formats())
        for (const std::string& magic : format.starts)
            if (start.compare(0, magic.size(), magic) == 0)
                return &format;
    return nullptr;
}

InputFile open_image(const std::string& name)
{
    errno = 0; // check_heap looks at it where the picture does not come
    InputFile file{name, open_input(name, concat("a picture: ", kReadFormats)), 0};
    seek_in_file(file.stream.get(), 0, SEEK_END);
    file.size = tell_in_file(file.stream.get());
    seek_in_file(file.stream.get(), 0, SEEK_SET);
    if (file.size == 0)
        fail_input(name, "an empty file", kReadFormats);
    return file;
}

const InputFormat& known_format_of(const InputFile& file)
{
    const InputFormat* const format = format_of(first_bytes(file.stream.get()));
    if (format == nullptr)
        fail_input(file.name, "contents of another kind", kReadFormats);
    return *format;
}

StoredPicture open_stored(const std::string& name, std::size_t layer)
{
    InputFile file = open_image(name);
    const InputFormat& format = known_format_of(file);
    return format.open(std::move(file), layer);
}

Image read_stored(StoredPicture& stored, const std::string& name)
{
    RowReader& rows = *stored.rows;
    Image image;
    static_cast<ImageInfo&>(image) = rows.info();
    image.data = allocate_block(image.bytes(), name);
    if (image.has_alpha)
        image.mask = allocate_block(image.pixels(), name);
    rows.read_rows(0, image.height, rows_of(image));
    image.metadata = rows.metadata();
    return apply_orientation(std::move(image), stored.orientation, name);
}

// Fails unless the library can take a picture of this size: all of its samples in 2^31 - 1 bytes.
void check_image_size(const std::string& name, const ImageInfo& info)
{
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    // The distance transform works on a frame around the mask, whose size must fit 32 bits as well.
    const std::int64_t width = info.width;
    const std::int64_t height = info.height;
    const std::int64_t pixel_bytes = info.channels * static_cast<std::int64_t>(info.sample_bytes());
    const bool fits = width <= kMost - 2 && height <= kMost - 2 && (width + 2) <= kMost / (height + 2) &&
                      width * height <= kMost / pixel_bytes;
    if (!fits)
        fail_input(
            name,
            concat("a picture of ", width, " x ", height, " pixels with ", info.channels, " x ", info.bits, " bit"),
            "at most 2^31 - 1 bytes of samples");
}

// A picture that has to be turned.
class TurnedReader : public RowReader
{
public:
    TurnedReader(StoredPicture stored, std::string name) : stored_(std::move(stored)), name_(std::move(name))
    {
        info_ = stored_.rows->info();
        check_image_size(name_, info_); // it is held as a whole
        metadata_ = stored_.rows->metadata();
        if (stored_.orientation >= 5)
            std::swap(info_.width, info_.height);
    }

    std::uint64_t held_bytes() const override
    {
        return 2 * (info_.bytes() + (info_.has_alpha ? info_.pixels() : 0)); // while it is turned
    }

    void read_rows(std::int32_t first, std::int32_t count, const Rows& to) override
    {
        if (image_.data == nullptr) {
            image_ = read_stored(stored_, name_);
            stored_.rows.reset();
        }
        for (std::int32_t i = 0; i < count; ++i) {
            const ConstRows from = rows_of(std::as_const(image_), first + i);
            std::memcpy(to.row(i), from.samples, from.stride);
            if (to.mask == nullptr)
                continue;
            if (from.mask != nullptr)
                std::memcpy(to.mask_row(i), from.mask, from.mask_stride);
            else
                std::memset(to.mask_row(i), 255, static_cast<std::size_t>(info_.width));
        }
    }

private:
    StoredPicture stored_;
    std::string name_;
    Image image_;
};

} // namespace

bool starts_as_picture(const std::string& name)
{
    const FileHandle file = open_utf8(name, "rb");
    return file != nullptr && format_of(first_bytes(file.get())) != nullptr;
}

void set_most_pixels(std::uint64_t pixels)
{
    most_pixels = pixels;
}

std::vector<ImageInfo> probe_image(const std::string& name)
{
    InputFile file = open_image(name);
    std::vector<ImageInfo> layers = known_format_of(file).probe(file);
    for (const ImageInfo& layer : layers)
        check_pixels(name, "a picture", layer.width, layer.height);
    return layers;
}

std::unique_ptr<RowReader> open_rows(const std::string& name, std::size_t layer)
{
    StoredPicture stored = open_stored(name, layer);
    if (stored.orientation <= 1) // up to 8, as the formats read them
        return std::move(stored.rows);
    return std::make_unique<TurnedReader>(std::move(stored), name);
}

Image read_image(const std::string& name, std::size_t layer)
{
    StoredPicture stored = open_stored(name, layer);
    check_image_size(name, stored.rows->info());
    check_pixels(name, "a picture", stored.rows->info().width, stored.rows->info().height);
    return read_stored(stored, name);
}

Image read_grey(const std::string& name)
{
    Image image = read_image(name);
    convert_to_grey(image, name);
    return image;
}

Image read_mask(const std::string& name)
{
    const ImageInfo info = probe_image(name).front();
    if (info.channels != 1 || info.has_alpha)
        fail_input(name, describe(info), "a mask of one grey channel");
    Image mask = read_image(name);
    if (mask.bits == 16) {
        Block narrow = allocate_block(mask.pixels(), name);
        narrow_alpha(mask.data.get(), mask.pixels(), narrow.get());
        mask.data = std::move(narrow);
        mask.bits = 8;
    }
    return mask;
}

void check_sides(const std::string& name, std::int64_t width, std::int64_t height)
{
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    if (width < 1 || height < 1)
        fail_input(name, concat("a picture of ", width, " x ", height, " pixels"), "at least one pixel");
    if (width > kMost || height > kMost)
        fail_input(name, concat("a picture of ", width, " x ", height, " pixels"), "at most 2^31 - 1 on each side");
    if (width > (std::int64_t{1} << 58) / height)
        fail_input(name, concat("a picture of ", width, " x ", height, " pixels"), "at most 2^58");
}

void check_pixels(const std::string& name, const char* what, std::int64_t width, std::int64_t height)
{
    const std::uint64_t most = most_pixels;
    if (most != 0 && static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height) > most)
        fail_input(name, concat(what, " of ", width, " x ", height, " pixels"),
                   concat("at most ", most, " (--max-pixels)"));
}

} // namespace panoval::image
