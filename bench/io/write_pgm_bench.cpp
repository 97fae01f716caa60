// SPDX-License-Identifier: MIT
// The writers into a file system in memory, where there is one. The memcpy column has the bytes that are read and
// written; what the system itself takes to make the file is in the times of both, routine and twin.
#include "bench/support/routine.h"
#include "panoval.h"
#include "tests/reference/pgm.h"
#include "tests/support/noise.h"
#include "tests/support/temporary_folder.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace
{

using namespace panoval::bench;
using panoval::test::Content;
using panoval::test::picture;

struct Files {
    std::string fast;
    std::string twin;
    Files()
    {
        const bool has_memory_files = std::filesystem::is_directory("/dev/shm");
        const auto folder =
            has_memory_files ? std::filesystem::path("/dev/shm") : std::filesystem::temp_directory_path();
        const std::string stem =
            "panoval-bench-" + std::to_string(panoval::test::Random(std::random_device()()).next());
        fast = (folder / (stem + "-fast.pgm")).string();
        twin = (folder / (stem + "-twin.pgm")).string();
    }
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;
    ~Files() { remove(); }
    void remove() const
    {
        std::error_code ignored;
        std::filesystem::remove(fast, ignored);
        std::filesystem::remove(twin, ignored);
    }
};

// A picture of samples that spread over a range as of a gradient or a distance map.
template <class Sample>
std::shared_ptr<std::vector<Sample>> samples(Content content, std::int32_t width, std::int32_t height)
{
    const auto samples = std::make_shared<std::vector<Sample>>();
    for (const std::uint8_t value : picture(content, width, height, 1))
        samples->push_back(static_cast<Sample>(value * 9 - 700));
    return samples;
}

template <class Write, class Twin>
Case make_writer(std::int32_t width, std::int32_t height, Content content, std::size_t sample_bytes, const Write& write,
                 const Twin& twin)
{
    const auto files = std::make_shared<Files>();
    Case c;
    c.size = std::to_string(width) + "x" + std::to_string(height);
    c.content = panoval::test::name_of(content);
    c.pixels = static_cast<double>(width) * height;
    c.memcpy_bytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * (sample_bytes + 1);
    c.fast = [files, write] { write(files->fast.c_str()); };
    c.twin = [files, twin] { twin(files->twin.c_str()); };
    c.restore = [files] { files->remove(); }; // a fresh file each time: emptying an old one costs as much again
    c.same = [files, twin] {
        twin(files->twin.c_str());
        return panoval::test::read_file(files->fast) == panoval::test::read_file(files->twin);
    };
    return c;
}

template <class Sample>
Case make_plain_writer(std::int32_t width, std::int32_t height, Content content,
                       void (*write)(const Sample*, std::int32_t, std::int32_t, const char*))
{
    const auto pixels = samples<Sample>(content, width, height);
    return make_writer(
        width, height, content, sizeof(Sample), [=](const char* name) { write(pixels->data(), width, height, name); },
        [=](const char* name) { panoval::reference::write_stretched(pixels->data(), width, height, name); });
}

// The file without any arithmetic, which no writer can undercut.
Case make_byte_writer(std::int32_t width, std::int32_t height, Content content)
{
    const auto pixels = std::make_shared<std::vector<std::uint8_t>>(picture(content, width, height, 1));
    return make_writer(
        width, height, content, 1, [=](const char* name) { write_pgm(pixels->data(), width, height, name); },
        [=](const char* name) { panoval::reference::write_picture(pixels->data(), width, height, name); });
}

Case make_matrix_writer(std::int32_t width, std::int32_t height, Content content, std::int32_t channels)
{
    const auto pixels = samples<float>(content, channels * width, height);
    const Matf matrix = {width, height, channels, pixels->data()};
    return make_writer(
        width, height, content, static_cast<std::size_t>(channels) * sizeof(float),
        [=, keep = pixels](const char* name) { write_fpgm(&matrix, name); },
        [=, keep = pixels](const char* name) { panoval::reference::write_fpgm(matrix, name); });
}

void add_all(std::int32_t width, std::int32_t height, Content content)
{
    add_case("write_pgm", [=] { return make_byte_writer(width, height, content); });
    add_case("write_pgm_float", [=] { return make_plain_writer<float>(width, height, content, write_pgm_float); });
    add_case("write_pgm_short",
             [=] { return make_plain_writer<std::int16_t>(width, height, content, write_pgm_short); });
    add_case("write_fpgm, 1 channel", [=] { return make_matrix_writer(width, height, content, 1); });
    add_case("write_fpgm, 3 channels", [=] { return make_matrix_writer(width, height, content, 3); });
}

const Registration registration([] {
    add_all(640, 480, Content::Photograph);
    for (const Content content : {Content::Noise, Content::Photograph, Content::Flat})
        add_all(3000, 2000, content);
});

} // namespace
