// SPDX-License-Identifier: MIT
#include "cli/stitch/panorama_gains.h"

#include "cli/base/common_options.h"
#include "cli/base/errors.h"
#include "cli/base/file_names.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace panoval::cli
{

namespace
{

// Eight pixels at a time where all of them are covered, as most are.
std::int32_t count_covered(const std::uint8_t* mask, std::size_t pixels)
{
    std::size_t covered = 0;
    std::size_t i = 0;
    for (; i + 8 <= pixels; i += 8) {
        std::uint64_t eight;
        std::memcpy(&eight, mask + i, sizeof eight);
        covered +=
            eight == ~std::uint64_t{0} ? 8u : static_cast<std::size_t>(8 - std::count(mask + i, mask + i + 8, 0));
    }
    covered += pixels - i - static_cast<std::size_t>(std::count(mask + i, mask + pixels, 0));
    return static_cast<std::int32_t>(covered);
}

// What a 16-bit picture shows of the region, with its samples halved: the library squares samples in 32 bits, which
// those beyond 46340 do not fit. Gains are ratios, which halving both pictures of a pair keeps.
Image halved_cut(const Image& image, Point corner, const Roi& region)
{
    const Roi own = {region.x - corner.x, region.y - corner.y, region.width, region.height};
    const Mat samples = borrow_mat(image);
    const Matb covered = borrow_mask(image);
    Mat cut;
    MatInit(&cut);
    get_sub_image(&samples, &own, &cut);
    Matb cut_mask = {0, 0, 0, nullptr};
    get_sub_mask(&covered, &own, &cut_mask);
    Block mask(cut_mask.data);
    if (cut.data == nullptr || mask == nullptr) {
        MatDestroy(&cut);
        fail_memory("an overlap", static_cast<std::size_t>(own.width) * static_cast<std::size_t>(own.height));
    }
    Image result = adopt_mat(cut);
    result.mask = std::move(mask);
    for (std::size_t at = 0; at < result.bytes(); at += 2) {
        std::uint16_t sample;
        std::memcpy(&sample, &result.data[at], sizeof sample);
        sample = static_cast<std::uint16_t>(sample / 2);
        std::memcpy(&result.data[at], &sample, sizeof sample);
    }
    return result;
}

// The library's record, freed with the object.
class Compensator
{
public:
    explicit Compensator(std::size_t count)
    {
        gain_compensator_init_start(&record_, static_cast<std::int32_t>(count));
        if (record_.counts.data == nullptr) {
            gain_compensator_free(&record_);
            fail_memory("the gains", count * count * sizeof(double));
        }
    }
    Compensator(const Compensator&) = delete;
    Compensator& operator=(const Compensator&) = delete;
    ~Compensator()
    {
        if (is_open_) // an error came in between
            gain_compensator_init_end(&record_);
        gain_compensator_free(&record_);
    }

    // The entry of a picture with itself. Nobody asks how bright it is there: a count of the covered pixels will do.
    void count_alone(std::size_t i, const Image& image)
    {
        const auto size = static_cast<std::size_t>(record_.counts.width);
        record_.counts.data[i * size + i] = std::max(count_covered(image.mask.get(), image.pixels()), 1);
    }

    void step(const Overlap& overlap, Point corner_i, const Image& image_i, Point corner_j, const Image& image_j)
    {
        const Roi& region = overlap.region;
        const Point corner = {region.x, region.y};
        if (image_i.bits == 16)
            compare(overlap, corner, halved_cut(image_i, corner_i, region), corner,
                    halved_cut(image_j, corner_j, region));
        else
            compare(overlap, corner_i, image_i, corner_j, image_j);
    }

    std::vector<double> solve()
    {
        const auto count = static_cast<std::size_t>(record_.counts.width);
        gain_compensator_init_end(&record_);
        is_open_ = false;
        if (record_.gains.data == nullptr)
            fail_memory("the gains", count * count * sizeof(double));
        return std::vector<double>(record_.gains.data, record_.gains.data + count);
    }

private:
    void compare(const Overlap& overlap, Point corner_i, const Image& image_i, Point corner_j, const Image& image_j)
    {
        const Mat mat_i = borrow_mat(image_i);
        const Mat mat_j = borrow_mat(image_j);
        const Matb mask_i = borrow_mask(image_i);
        const Matb mask_j = borrow_mask(image_j);
        gain_compensator_init_step(&record_, static_cast<std::int32_t>(overlap.first),
                                   static_cast<std::int32_t>(overlap.second), corner_i, &mat_i, &mask_i, corner_j,
                                   &mat_j, &mask_j);
    }

    GainCompensator record_{};
    bool is_open_ = true;
};

// Beyond it, and below its inverse, a picture is white or black.
constexpr double kMostGain = 1e6;

// source: the file that the gains come from, or empty where they were measured
void check_gains(const PanoramaPlan& plan, const std::vector<double>& gains, const std::string& source)
{
    for (std::size_t i = 0; i < gains.size(); ++i)
        if (!(gains[i] >= 1 / kMostGain && gains[i] <= kMostGain))
            fail_input(source.empty() ? plan.layers[i].name() : source,
                       concat("a gain of ", gains[i], " for '", printable(plan.layers[i].name()), "'"),
                       "a number from 0.000001 to 1000000; --no-gain leaves the brightness as it is");
}

} // namespace

std::vector<Overlap> find_overlaps(const PanoramaPlan& plan)
{
    std::vector<Overlap> overlaps;
    for (std::size_t i = 0; i < plan.layers.size(); ++i)
        for (std::size_t j = i + 1; j < plan.layers.size(); ++j) {
            const PlacedLayer& a = plan.layers[i];
            const PlacedLayer& b = plan.layers[j];
            Overlap overlap{i, j, {}};
            if (overlapRoi(a.corner, b.corner, {a.info.width, a.info.height}, {b.info.width, b.info.height},
                           &overlap.region) != 0)
                overlaps.push_back(overlap);
        }
    return overlaps;
}

std::size_t gain_pass_steps(const PanoramaPlan& plan)
{
    return plan.layers.size();
}

std::vector<double> run_gain_pass(const PanoramaPlan& plan, const std::vector<Overlap>& overlaps, PictureStore& store,
                                  const GainPass& pass, Progress& progress)
{
    Compensator compensator(plan.layers.size());
    for (std::size_t i = 0; i < plan.layers.size(); ++i) {
        progress.step(plan.layers[i].name());
        const Point corner_i = plan.layers[i].corner;
        if (pass.wants_gains)
            compensator.count_alone(i, *store.get(i));
        for (const Overlap& overlap : overlaps) {
            if (overlap.first != i)
                continue;
            const auto first = store.get(i);
            const auto second = store.get(overlap.second);
            if (pass.wants_gains)
                compensator.step(overlap, corner_i, *first, plan.layers[overlap.second].corner, *second);
            if (pass.observe)
                pass.observe(overlap, *first, *second);
        }
    }
    if (!pass.wants_gains)
        return std::vector<double>(plan.layers.size(), 1.0);
    auto gains = compensator.solve();
    check_gains(plan, gains, "");
    return gains;
}

void apply_gain(Image& image, double gain)
{
    Mat mat = borrow_mat(image);
    GainCompensator record{};
    record.gains = {1, 1, 1, &gain};
    gain_compensator_apply(&record, 0, &mat);
}

void write_gains(OutputFile& output, const PanoramaPlan& plan, const std::vector<double>& gains)
{
    Json entries = Json::array();
    for (std::size_t i = 0; i < gains.size(); ++i)
        entries.push_back({{"file", plan.layers[i].file}, {"layer", plan.layers[i].layer}, {"gain", gains[i]}});
    output.write(Json{{"gains", entries}}.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}

std::vector<double> load_gains(const std::string& name, const PanoramaPlan& plan)
{
    const char* const expected = R"(a JSON object {"gains": [{"file": ..., "layer": ..., "gain": ...}, ...]})";
    const Json json = Json::parse(read_text_file(name, expected, std::size_t{1} << 24), nullptr, false);
    if (json.is_discarded())
        fail_input(name, "no valid JSON", expected);
    if (!json.is_object() || !json.contains("gains") || !json["gains"].is_array())
        fail_input(name, "JSON of another kind", expected);
    const Json& entries = json["gains"];
    if (entries.size() != plan.layers.size())
        fail_input(name, concat(entries.size(), " gains"), concat("one for each of ", plan.layers.size(), " pictures"));
    std::vector<double> gains;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const Json& entry = entries[i];
        const PlacedLayer& layer = plan.layers[i];
        if (!entry.is_object() || !entry.contains("gain") || !entry["gain"].is_number())
            fail_input(name, concat("no number \"gain\" in entry ", i + 1), expected);
        const auto file_at = entry.find("file");
        const auto number_at = entry.find("layer");
        const std::string file = file_at != entry.end() && file_at->is_string() ? file_at->get<std::string>() : "";
        const std::string number = number_at == entry.end()         ? "0"
                                   : number_at->is_number_integer() ? number_at->dump()
                                                                    : "that is no whole number";
        if (path_from_utf8(file).filename() != path_from_utf8(layer.file).filename() || number != concat(layer.layer))
            fail_input(name, concat("entry ", i + 1, " for '", printable(file), "', layer ", number),
                       concat("'", printable(layer.file), "', layer ", layer.layer, ", in the order of the pictures"));
        gains.push_back(entry["gain"].get<double>());
    }
    check_gains(plan, gains, name);
    return gains;
}

} // namespace panoval::cli
