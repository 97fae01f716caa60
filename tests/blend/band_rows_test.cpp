// SPDX-License-Identifier: MIT
#include "blend/band_rows.h"

#include "tests/reference/band_rows.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/tails.h"
#include "tests/support/targets.h"

#include <vector>

namespace panoval::test
{

namespace
{

using Bytes = std::vector<std::uint8_t>;

TEST(BandRows, LoadSamplesAndWeightsAsTheyAre)
{
    for_each_target([] {
        for_each_tail([](std::size_t offset, std::size_t count) {
            const auto bytes = noise<std::uint8_t>(2 * (offset + count), 0, 255, count);
            for (const std::size_t sample_bytes : {1u, 2u}) {
                std::vector<float> samples(count + 8, -7);
                load_samples(bytes.data() + sample_bytes * offset, sample_bytes, count, samples.data());
                for (std::size_t i = 0; i < count; ++i)
                    EXPECT_EQ(samples[i], reference::sample_as_float(bytes.data(), sample_bytes, offset + i));
                EXPECT_EQ(samples[count], -7);
            }
            std::vector<float> weights(count + 8, -7);
            load_weights(bytes.data() + offset, count, weights.data());
            for (std::size_t i = 0; i < count; ++i)
                EXPECT_EQ(weights[i], static_cast<float>(bytes[offset + i]) / 255.0f);
            EXPECT_EQ(weights[count], -7);
        });
    });
}

// Three coarse rows for the samples of a row.
struct Coarse {
    std::vector<float> rows[3];
    CoarseRows record{};

    Coarse(CoarseRows::Kind kind, std::size_t count)
    {
        record.kind = kind;
        for (std::size_t k = 0; k < 3; ++k) {
            rows[k] = noise<float>(count, 0.f, 2040.f, k + count);
            record.row[k] = rows[k].data();
        }
    }
};

// body(coarse, channels, count, sample_bytes) for every kind of row.
template <class Body>
void for_each_kind(const Body& body)
{
    for_each_target([&] {
        for (const CoarseRows::Kind kind : {CoarseRows::None, CoarseRows::Even, CoarseRows::Odd})
            for (const std::size_t channels : {1u, 2u, 3u, 4u})
                for (const std::size_t sample_bytes : {1u, 2u, 4u})
                    for (std::size_t pixels = 0; pixels <= 37; ++pixels) {
                        SCOPED_TRACE(testing::Message() << pixels << " pixels of " << channels << " x " << sample_bytes
                                                        << " bytes, coarse rows of kind " << kind);
                        body(Coarse(kind, pixels * channels), channels, pixels, sample_bytes);
                    }
    });
}

TEST(BandRows, AddedToTheCanvasEqualTheirTwin)
{
    for_each_kind([](const Coarse& coarse, std::size_t channels, std::size_t pixels, std::size_t sample_bytes) {
        const std::size_t samples = pixels * channels;
        Bytes fine = noise<std::uint8_t>(samples * sample_bytes, 0, 255, pixels);
        const auto floats = noise<float>(samples, -300.f, 300.f, pixels);
        if (sample_bytes == 4 && samples > 0)
            std::memcpy(fine.data(), floats.data(), fine.size());
        auto weight = noise<float>(pixels, 0.f, 1.f, 5);
        std::fill(weight.begin() + static_cast<std::ptrdiff_t>(pixels / 2), weight.end(), 0.f);
        auto sums = noise<float>(samples + 8, 1.f, 500.f, 6);
        auto weight_sums = noise<float>(pixels + 8, 0.f, 2.f, 7);
        auto expected_sums = sums;
        auto expected_weight_sums = weight_sums;
        add_band({fine.data(), sample_bytes, coarse.record, weight.data(), pixels, channels, sums.data(),
                  weight_sums.data()});
        reference::add_band({fine.data(), sample_bytes, coarse.record, weight.data(), pixels, channels,
                             expected_sums.data(), expected_weight_sums.data()});
        EXPECT_TRUE(same_bits(sums, expected_sums));
        EXPECT_TRUE(same_bits(weight_sums, expected_weight_sums));
    });
}

TEST(BandRows, TakenFromTheCanvasEqualTheirTwin)
{
    for_each_kind([](const Coarse& coarse, std::size_t channels, std::size_t pixels, std::size_t sample_bytes) {
        const auto sums = noise<float>(pixels * channels, -400.f, 700.f, 8);
        const auto weight_sums = noise<float>(pixels, 0.f, 2.f, 9);
        Bytes actual(pixels * channels * sample_bytes + 8, 7);
        Bytes expected = actual;
        collapse_row({sums.data(), weight_sums.data(), coarse.record, pixels, channels, actual.data(), sample_bytes});
        reference::collapse_row(
            {sums.data(), weight_sums.data(), coarse.record, pixels, channels, expected.data(), sample_bytes});
        EXPECT_TRUE(same_bits(actual, expected));
    });
}

} // namespace

} // namespace panoval::test
