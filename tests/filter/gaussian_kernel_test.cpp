// SPDX-License-Identifier: MIT
#include "panoval.h"
#include "tests/reference/gaussian_kernel.h"
#include "tests/support/buffers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numeric>
#include <vector>

namespace
{

using namespace panoval;
using namespace panoval::test;

std::vector<double> kernel_of(int size, double sigma)
{
    Guarded<double> kernel(static_cast<std::size_t>(size * size));
    GetGaussianKernel(kernel.data(), size, sigma);
    EXPECT_TRUE(kernel.intact());
    return kernel.values();
}

TEST(GaussianKernel, OfSize1IsOne)
{
    for (const double sigma : {0.1, 1.0, 7.5})
        EXPECT_EQ(kernel_of(1, sigma), std::vector<double>{1.0});
}

TEST(GaussianKernel, OfSize4HasItsCentreAt2And2)
{
    const auto kernel = kernel_of(4, 1.0);
    const auto at = [&](int i, int j) { return kernel[static_cast<std::size_t>(4 * i + j)]; };
    EXPECT_EQ(std::max_element(kernel.begin(), kernel.end()) - kernel.begin(), 4 * 2 + 2);
    EXPECT_EQ(at(1, 1), at(3, 3));
    EXPECT_NEAR(at(0, 0) / at(2, 2), std::exp(-4.0), 1e-15); // offsets -2, -2
    EXPECT_NEAR(at(3, 3) / at(2, 2), std::exp(-1.0), 1e-15); // offsets 1, 1
    EXPECT_NE(at(0, 0), at(3, 3));
}

TEST(GaussianKernel, OfSizeBelow1WritesNothing)
{
    for (const int size : {0, -1, -5, -2147483647 - 1}) {
        Guarded<double> kernel(std::vector<double>{3.5, 4.5});
        GetGaussianKernel(kernel.data(), size, 1.0);
        EXPECT_EQ(kernel.values(), (std::vector<double>{3.5, 4.5}));
        EXPECT_TRUE(kernel.intact());
    }
}

TEST(GaussianKernel, SumsToOneAndFallsWithTheDistance)
{
    for (int size = 1; size <= 15; ++size) {
        const auto kernel = kernel_of(size, 1.7);
        EXPECT_NEAR(std::accumulate(kernel.begin(), kernel.end(), 0.0), 1.0, 1e-14);
    }
    const auto kernel = kernel_of(5, 1.0);
    EXPECT_GT(kernel[12], kernel[11]); // centre, 1 left, 1 left and up, 2 left, ...
    EXPECT_GT(kernel[11], kernel[6]);
    EXPECT_GT(kernel[6], kernel[10]);
    EXPECT_GT(kernel[10], kernel[5]);
    EXPECT_GT(kernel[5], kernel[0]);
}

TEST(GaussianKernel, StaysAGaussianForSmallAndLargeSigma)
{
    const auto narrow = kernel_of(5, 0.01); // every neighbour's weight is below the smallest double
    for (std::size_t k = 0; k < 25; ++k)
        EXPECT_EQ(narrow[k], k == 12 ? 1.0 : 0.0);
    for (const double weight : kernel_of(5, 1e9))
        EXPECT_NEAR(weight, 0.04, 1e-15);
}

TEST(GaussianKernel, OfSize5AndSigma1IsTheOneThatImagesAreSmoothedWith)
{
    // by the distance in rows and columns; to the last bit, on every system
    const double expected[3][3] = {{0x1.4bfc906c2a8eep-3, 0x1.92b856facd85ap-4, 0x1.676f9c7838aaap-6},
                                   {0x1.92b856facd85ap-4, 0x1.e8862e93c9e61p-5, 0x1.b40494286615bp-7},
                                   {0x1.676f9c7838aaap-6, 0x1.b40494286615bp-7, 0x1.8527aba212073p-9}};
    const auto kernel = kernel_of(5, 1.0);
    for (int i = 0; i < 5; ++i)
        for (int j = 0; j < 5; ++j)
            EXPECT_EQ(kernel[static_cast<std::size_t>(5 * i + j)], expected[std::abs(i - 2)][std::abs(j - 2)]);
}

TEST(GaussianKernel, OfSigma0IsNotANumber)
{
    for (const double weight : kernel_of(3, 0.0))
        EXPECT_TRUE(std::isnan(weight));
}

TEST(GaussianKernel, EqualsItsTwinForEverySize)
{
    for (int size = -1; size <= 67; ++size)
        for (const double sigma : {0.3, 0.5, 1.0, 1.4, 2.0, 3.7, 11.0, -1.0}) {
            std::vector<double> expected(size > 0 ? static_cast<std::size_t>(size * size) : 0);
            reference::gaussian_kernel(expected.data(), size, sigma);
            Guarded<double> actual(expected.size());
            GetGaussianKernel(actual.data(), size, sigma);
            EXPECT_TRUE(same_bits(actual.values(), expected)) << "size " << size << ", sigma " << sigma;
            EXPECT_TRUE(actual.intact());
        }
}

} // namespace
