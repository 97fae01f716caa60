// SPDX-License-Identifier: MIT
#include "bench/support/routine.h"
#include "blend/normalize.h"
#include "tests/reference/normalize.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"

#include <memory>
#include <string>
#include <vector>

namespace
{

panoval::bench::Case make(int width, int height, int channels)
{
    struct Data {
        std::vector<float> weights, source, sums[2];
        Matf weight, matrix[2];
        void restore()
        {
            for (auto& s : sums)
                s.assign(source.begin(), source.end());
        }
        void fast() { panoval::normalize_by_weight(weight, matrix[0]); }
        void twin() { panoval::reference::normalize_by_weight(&weight, &matrix[1]); }
        bool same()
        {
            restore();
            fast();
            twin();
            return static_cast<bool>(panoval::test::same_bits(sums[0], sums[1]));
        }
    };
    const auto d = std::make_shared<Data>();
    const auto pixels = static_cast<std::size_t>(width * height);
    const auto samples = pixels * static_cast<std::size_t>(channels);
    d->weights = panoval::test::noise(pixels, 0.f, 3.f, 1);
    d->source = panoval::test::noise(samples, 0.f, 700.f, 2);
    d->restore();
    d->weight = {width, height, 1, d->weights.data()};
    for (int i = 0; i < 2; ++i)
        d->matrix[i] = {width, height, channels, d->sums[i].data()};
    return {std::to_string(width) + "x" + std::to_string(height),
            "noise x" + std::to_string(channels),
            static_cast<double>(pixels),
            4 * pixels + 8 * samples,
            [d] { d->fast(); },
            [d] { d->twin(); },
            [d] { return d->same(); },
            [d] { d->restore(); }};
}

const panoval::bench::Registration registration([] {
    for (const int channels : {1, 3, 4})
        panoval::bench::add_case("normalize_by_weight", [=] { return make(1000, 750, channels); });
});

} // namespace
