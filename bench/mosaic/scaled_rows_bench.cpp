// SPDX-License-Identifier: MIT
// The kernels that bring a picture's samples into a tile.
#include "mosaic/pictures/scaled_rows.h"

#include "bench/support/routine.h"
#include "tests/reference/scaled_rows.h"
#include "tests/support/noise.h"

#include <memory>
#include <string>
#include <vector>

namespace panoval::bench
{
namespace
{

using namespace mosaic;

constexpr ChannelFactors kFactors{1.02f, 0.97f, 1.1f, 1.0f};
constexpr std::size_t kPixels = 3000;
constexpr std::size_t kSamples = 3 * kPixels;

struct Rows {
    std::vector<std::uint8_t> bytes = panoval::test::noise<std::uint8_t>(2 * kSamples, 0, 255, 1);
    std::vector<float> composite = panoval::test::noise<float>(kSamples, 0.0f, 255.0f, 2);
    std::vector<float> floats[2] = {std::vector<float>(kSamples), std::vector<float>(kSamples)};
    std::vector<std::uint8_t> samples[2] = {std::vector<std::uint8_t>(kSamples), std::vector<std::uint8_t>(kSamples)};
    std::vector<std::uint16_t> words[2] = {std::vector<std::uint16_t>(kSamples), std::vector<std::uint16_t>(kSamples)};

    RawRow row(std::size_t sample_bytes) const { return {bytes.data(), sample_bytes, kPixels, 3}; }
    bool same() const { return floats[0] == floats[1] && samples[0] == samples[1] && words[0] == words[1]; }
};

template <class Fast, class Twin>
Case make_case(std::size_t bits, std::size_t bytes_a_sample, const Fast& fast, const Twin& twin)
{
    const auto rows = std::make_shared<Rows>();
    return {std::to_string(kPixels) + "x3", std::to_string(bits) + " bit", static_cast<double>(kPixels),
            kSamples * bytes_a_sample,      [=] { fast(*rows); },          [=] { twin(*rows); },
            [=] { return rows->same(); }};
}

Case scale_case(std::size_t bytes)
{
    return make_case(
        8 * bytes, bytes + 4, [=](Rows& r) { scale_row(r.row(bytes), kFactors, r.floats[0].data()); },
        [=](Rows& r) { reference::scale_row(r.row(bytes), kFactors, r.floats[1].data()); });
}

Case difference_case(std::size_t bytes)
{
    return make_case(
        8 * bytes, bytes + 8,
        [=](Rows& r) { difference_row(r.row(bytes), kFactors, r.composite.data(), r.floats[0].data()); },
        [=](Rows& r) { reference::difference_row(r.row(bytes), kFactors, r.composite.data(), r.floats[1].data()); });
}

Case finish_case()
{
    return make_case(
        8, 2, [](Rows& r) { finish_scaled_row(r.row(1), kFactors, 1.0f, r.samples[0].data(), 1); },
        [](Rows& r) { reference::finish_scaled_row(r.row(1), kFactors, 1.0f, 255.0f, r.samples[1].data()); });
}

Case round_case()
{
    return make_case(
        8, 6, [](Rows& r) { round_row(r.composite.data(), kSamples, 255.0f, r.words[0].data()); },
        [](Rows& r) { reference::round_row(r.composite.data(), kSamples, 255.0f, r.words[1].data()); });
}

const Registration registration([] {
    add_case("share_scale_row", [] { return scale_case(1); });
    add_case("share_scale_row", [] { return scale_case(2); });
    add_case("share_difference_row", [] { return difference_case(1); });
    add_case("share_finish_row", [] { return finish_case(); });
    add_case("share_round_row", [] { return round_case(); });
});

} // namespace
} // namespace panoval::bench
