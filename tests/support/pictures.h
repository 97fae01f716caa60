// SPDX-License-Identifier: MIT
// Containers that test code owns, of the exact size and filled with seeded data.
#pragma once

#include "panoval.h"
#include "tests/support/noise.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace panoval::test
{

// An image of uniformly distributed samples from low to high.
class OwnedMat
{
public:
    OwnedMat() { MatInit(&mat_); }
    OwnedMat(int width, int height, int channels, int elem_size) : OwnedMat()
    {
        MatReset(&mat_, width, height, channels, elem_size);
    }
    OwnedMat(int width, int height, int channels, int elem_size, int low, int high, std::uint64_t seed)
        : OwnedMat(width, height, channels, elem_size)
    {
        Random random(seed);
        for (int i = 0; i < width * height * channels; ++i)
            set(i, static_cast<int>(random.integer(low, high)));
    }
    OwnedMat(OwnedMat&& other) noexcept : mat_(other.mat_) { MatInit(&other.mat_); }
    OwnedMat(const OwnedMat&) = delete;
    OwnedMat& operator=(const OwnedMat&) = delete;
    ~OwnedMat() { MatDestroy(&mat_); }

    Mat* get() { return &mat_; }
    const Mat& operator*() const { return mat_; }
    void set(int index, int value)
    {
        if (mat_.elemSize == 1) {
            mat_.data[index] = static_cast<std::uint8_t>(value);
        } else if (mat_.elemSize == 2) {
            mat_.data[2 * index] = static_cast<std::uint8_t>(value & 0xFF);
            mat_.data[2 * index + 1] = static_cast<std::uint8_t>((value >> 8) & 0xFF);
        }
    }
    int at(int index) const
    {
        return mat_.elemSize == 1 ? mat_.data[index] : mat_.data[2 * index] | (mat_.data[2 * index + 1] << 8);
    }

private:
    Mat mat_;
};

// A mask with the given share of covered pixels, of values from 1 to 255.
class OwnedMask
{
public:
    OwnedMask() = default;
    OwnedMask(int width, int height, double covered, std::uint64_t seed)
    {
        MatbReset(&mask_, width, height, 1);
        Random random(seed);
        for (int i = 0; i < width * height; ++i)
            mask_.data[i] =
                random.unit() < covered ? static_cast<std::uint8_t>(random.integer(1, 255)) : std::uint8_t{0};
    }
    OwnedMask(OwnedMask&& other) noexcept : mask_(other.mask_) { other.mask_ = Matb{}; }
    OwnedMask(const OwnedMask&) = delete;
    OwnedMask& operator=(const OwnedMask&) = delete;
    ~OwnedMask() { std::free(mask_.data); }

    Matb* get() { return &mask_; }
    const Matb& operator*() const { return mask_; }

private:
    Matb mask_ = {};
};

} // namespace panoval::test
