// SPDX-License-Identifier: MIT
// Samples of any bits into the writers of PGM files, whose files are compared with their twins'. They live in memory
// and are opened by their descriptors' names.
#include "fuzz/input.h"
#include "panoval.h"
#include "tests/reference/pgm.h"

#include <string>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using namespace panoval::fuzz;

// A file without a folder.
class MemoryFile
{
public:
    MemoryFile() : descriptor_(memfd_create("output", 0)) { require(descriptor_ >= 0); }
    std::string name() const { return "/proc/self/fd/" + std::to_string(descriptor_); }
    std::vector<std::uint8_t> bytes() const
    {
        struct stat about = {};
        require(fstat(descriptor_, &about) == 0);
        std::vector<std::uint8_t> all(static_cast<std::size_t>(about.st_size));
        require(pread(descriptor_, all.data(), all.size(), 0) == static_cast<ssize_t>(all.size()));
        return all;
    }

private:
    int descriptor_;
};

template <class Write>
std::vector<std::uint8_t> written(const Write& write)
{
    static const MemoryFile file;
    static const std::string name = file.name();
    write(name.c_str());
    return file.bytes();
}

// Samples of the input's bits where it has enough of them.
template <class Sample>
std::vector<Sample> samples(Input& input, std::size_t count)
{
    std::vector<Sample> values(count);
    if (input.flag()) {
        const auto levels = input.samples(count);
        for (std::size_t i = 0; i < count; ++i)
            values[i] = static_cast<Sample>(levels[i] * 100 - 9000);
    }
    const auto own = input.bytes().ConsumeBytes<std::uint8_t>(count * sizeof(Sample));
    if (!own.empty())
        std::memcpy(values.data(), own.data(), own.size());
    return values;
}

void require_same_bytes(Input& input, int width, int height)
{
    const auto pixels = input.samples(area(width, height));
    require(written([&](const char* name) { write_pgm(pixels.data(), width, height, name); }) ==
            written([&](const char* name) { panoval::reference::write_picture(pixels.data(), width, height, name); }));
}

void require_same_floats(Input& input, int width, int height)
{
    const auto values = samples<float>(input, area(width, height));
    require(
        written([&](const char* name) { write_pgm_float(values.data(), width, height, name); }) ==
        written([&](const char* name) { panoval::reference::write_stretched(values.data(), width, height, name); }));
}

void require_same_shorts(Input& input, int width, int height)
{
    const auto values = samples<std::int16_t>(input, area(width, height));
    require(
        written([&](const char* name) { write_pgm_short(values.data(), width, height, name); }) ==
        written([&](const char* name) { panoval::reference::write_stretched(values.data(), width, height, name); }));
}

void require_same_record(Input& input, int width, int height)
{
    const int channels = input.flag() ? 3 : 1;
    auto values = samples<float>(input, area(width * channels, height));
    const Matf record{width, height, channels, values.data()};
    require(written([&](const char* name) { write_fpgm(&record, name); }) ==
            written([&](const char* name) { panoval::reference::write_fpgm(record, name); }));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const int width = input.number(1, 40);
    const int height = input.number(1, 20);
    switch (input.number(0, 3)) {
    case 0:
        require_same_bytes(input, width, height);
        break;
    case 1:
        require_same_floats(input, width, height);
        break;
    case 2:
        require_same_shorts(input, width, height);
        break;
    default:
        require_same_record(input, width, height);
        break;
    }
    return 0;
}
