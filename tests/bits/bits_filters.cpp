// SPDX-License-Identifier: MIT
// Kernels, smoothing, gradients, distances and edges.
#include "tests/bits/bits_records.h"

namespace panoval::bits
{

namespace
{

void kernels(Digest& digest)
{
    for (int size = 1; size <= 9; ++size)
        for (int tenths = -3; tenths <= 80; ++tenths) {
            std::vector<double> kernel(count_of(size, size, 1));
            GetGaussianKernel(kernel.data(), size, tenths / 10.0);
            digest.add(kernel);
        }
}

void smoothing(Digest& digest)
{
    for (const Kind kind : kKinds)
        for (const Shape& shape : kShapes) {
            std::vector<std::uint8_t> smoothed(count_of(shape.width, shape.height, 1));
            smooth_image(picture(kind, shape.width, shape.height, 1).data(), shape.width, shape.height,
                         smoothed.data());
            digest.add(smoothed);
        }
}

void gradients(Digest& digest)
{
    for (const Kind kind : kKinds)
        for (const Shape& shape : kShapes) {
            const std::size_t count = count_of(shape.width, shape.height, 1);
            std::vector<std::int16_t> dx(count);
            std::vector<std::int16_t> dy(count);
            std::vector<std::uint16_t> magnitude(count);
            gradient_image(picture(kind, shape.width, shape.height, 2).data(), shape.width, shape.height, dx.data(),
                           dy.data(), magnitude.data());
            digest.add(dx);
            digest.add(dy);
            digest.add(magnitude);
        }
}

void distances(Digest& digest)
{
    constexpr float kMetrics[][2] = {{0.955f, 1.3693f}, {1.f, 1.f}, {1.f, 2.f}, {3.f, 4.f}, {1.f, 0.3f}};
    for (const auto& metrics : kMetrics)
        for (const Shape& shape : kShapes)
            for (std::uint64_t seed = 0; seed < 6; ++seed) {
                const auto covered = mask(shape.width, shape.height, seed);
                Owned<Matf> scratch;
                Owned<Matf> distance;
                MatfReset(distance.get(), shape.width, shape.height, 1);
                distanceTransform_3x3(covered.get(), scratch.get(), distance.get(), metrics);
                distance.add_to(digest);
            }
}

void edges(Digest& digest)
{
    struct Parameters {
        double sigma;
        double low;
        double high;
    };
    for (const Kind kind : kKinds)
        for (const Shape& shape : kShapes)
            for (const auto& [sigma, low, high] : {Parameters{0.6, 0.5, 0.9}, {1.0, 0.3, 0.7}, {2.3, 0.5, 0.95}}) {
                std::vector<std::uint8_t> edge(count_of(shape.width, shape.height, 1));
                std::int16_t* dx = nullptr;
                std::int16_t* dy = nullptr;
                canny(picture(kind, shape.width, shape.height, 3).data(), shape.height, shape.width, edge.data(), sigma,
                      low, high, &dx, &dy);
                digest.add(edge);
                digest.add(dx, edge.size());
                digest.add(dy, edge.size());
                std::free(dx);
                std::free(dy);
            }
}

} // namespace

std::vector<Section> filter_sections()
{
    return {{"GetGaussianKernel", kernels},
            {"smooth_image", smoothing},
            {"gradient_image", gradients},
            {"distanceTransform_3x3", distances},
            {"canny", edges}};
}

} // namespace panoval::bits
