// SPDX-License-Identifier: MIT
// Files of any bytes as what `panoval stitch` reads besides pictures: a layout, gains, a plan, the seams of a plan.
// Each is taken, or refused with a message that names it. Seams that were written are read as they were.
#include "cli/stitch/gains_file.h"
#include "cli/stitch/plan_file.h"
#include "cli/stitch/seam_file.h"
#include "fuzz/input.h"
#include "fuzz/memory_file.h"
#include "image/base64.h"
#include "image/failure.h"

#include <unistd.h>

namespace
{

using namespace panoval::cli;
using panoval::fuzz::file_of;
using panoval::fuzz::Input;
using panoval::fuzz::require;
using Bytes = std::vector<std::uint8_t>;

void read_as_layout(const std::string& name)
{
    std::vector<std::string> notes;
    require(!read_layout(name, notes).empty());
}

void read_as_gains(const std::string& name)
{
    PanoramaPlan plan;
    plan.channels = 3;
    for (const char* const file : {"a.png", "b.png"}) {
        plan.layers.emplace_back();
        plan.layers.back().file = file;
    }
    std::vector<std::string> notes;
    const PanoramaGains gains = load_gains(name, plan, notes);
    require(gains.pictures.size() == 2);
    for (const auto& channels : gains.pictures)
        for (const double gain : channels)
            require(gain > 0);
}

void read_as_plan(const std::string& name, const Bytes& bytes)
{
    const auto json = nlohmann::json::parse(bytes, nullptr, false);
    if (json.is_discarded())
        return;
    require(!layers_of_plan(name, json).empty());
    PanovalMosaicLayout layout = {};
    layout.width = 500;
    layout.height = 400;
    const auto crop = crop_of_plan(name, json, layout);
    require(!crop || (crop->x >= 0 && crop->width > 0 && crop->x + crop->width <= 500));
    if (json.contains("seam_file"))
        require(seams_of_plan(name, json).grid.side >= 16);
}

// The seams of an odd canvas as text.
std::string seams_of(Input& input, const SeamGrid& grid)
{
    SeamRowWriter writer;
    SeamRow row;
    for (std::int64_t y = 0; y < grid.height; ++y) {
        if (y == 0 || input.number(0, 3) == 0) {
            row.clear();
            for (std::uint64_t done = 0; done < static_cast<std::uint64_t>(grid.width);) {
                const auto length = input.number<std::uint64_t>(1, static_cast<std::uint64_t>(grid.width) - done);
                append_run(row, {length, input.number<std::uint64_t>(0, 300)});
                done += length;
            }
        }
        writer.add(row);
    }
    std::string text = panoval::image::base64_of(writer.bytes());
    text.erase(text.find_last_not_of('=') + 1);
    return text;
}

Bytes bytes_of_file(const std::string& name)
{
    const auto file = panoval::image::open_utf8(name, "rb");
    Bytes bytes(1 << 16);
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file.get()));
    return bytes;
}

void write_and_read_seams(Input& input)
{
    static const std::string name = "/dev/shm/panoval_seams_" + std::to_string(getpid());
    const std::string id = "0123456789abcdef";
    const SeamGrid grid{input.number(1, 80), input.number(1, 60), input.number(16, 40)};
    const std::string text = seams_of(input, grid);
    {
        panoval::image::OutputFile output(name);
        write_seam_file(output, grid, text, id, "the plan");
        output.commit();
    }
    Bytes bytes = bytes_of_file(name);
    ::unlink(name.c_str());
    SeamSelection all(grid, input.flag());
    all.add({0, 0, grid.width, grid.height}, 0);
    require(read_seam_file(file_of(bytes.data(), bytes.size()), grid, id, all) == text);

    for (int n = input.number(1, 4); n > 0; --n)
        bytes[input.number<std::size_t>(0, bytes.size() - 1)] = input.number<std::uint8_t>(0, 255);
    if (input.flag())
        bytes.resize(input.number<std::size_t>(0, bytes.size()));
    SeamSelection part(grid, input.flag());
    part.add({input.number(0, 80), input.number(0, 60), input.number(1, 40), input.number(1, 40)}, input.number(0, 50));
    (void)read_seam_file(file_of(bytes.data(), bytes.size()), grid, id, part);
}

void read_one(Input& input)
{
    const int kind = input.number(0, 3);
    if (kind == 3) {
        write_and_read_seams(input);
        return;
    }
    const Bytes bytes = input.bytes().ConsumeRemainingBytes<std::uint8_t>();
    const std::string& name = file_of(bytes.data(), bytes.size());
    if (kind == 0)
        read_as_layout(name);
    if (kind == 1)
        read_as_gains(name);
    if (kind == 2)
        read_as_plan(name, bytes);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    try {
        read_one(input);
    } catch (const panoval::image::Failure& error) {
        require(std::string(error.what()).find(": found ") != std::string::npos);
    }
    return 0;
}
