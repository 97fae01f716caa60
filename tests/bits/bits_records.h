// SPDX-License-Identifier: MIT
// The flat interface's containers, filled with generated pictures and freed again.
#pragma once

#include "panoval.h"
#include "tests/bits/bits.h"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace panoval::bits
{

inline std::size_t count_of(std::int32_t width, std::int32_t height, std::int32_t channels)
{
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * static_cast<std::size_t>(channels);
}

// An image that frees itself.
class Image
{
public:
    Image() { MatInit(&mat_); }
    Image(Kind kind, int width, int height, int channels, int bytes, std::uint64_t seed) : Image()
    {
        MatReset(&mat_, width, height, channels, bytes);
        for (int c = 0; c < channels; ++c) {
            const auto plane = picture(kind, width, height, seed * 31 + static_cast<std::uint64_t>(c));
            for (std::size_t i = 0; i < plane.size(); ++i)
                set(i * static_cast<std::size_t>(channels) + static_cast<std::size_t>(c), plane[i]);
        }
    }
    Image(Image&& other) noexcept : mat_(std::exchange(other.mat_, Mat{})) {}
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;
    ~Image() { MatDestroy(&mat_); }

    Mat* get() { return &mat_; }
    const Mat* get() const { return &mat_; }

    void add_to(Digest& digest) const
    {
        for (const std::int32_t field : {mat_.width, mat_.height, mat_.channels, mat_.elemSize, mat_.size})
            digest.add(field);
        if (mat_.data != nullptr && mat_.size > 0)
            digest.add(mat_.data, static_cast<std::size_t>(mat_.size));
    }

private:
    void set(std::size_t i, std::uint8_t level)
    {
        if (mat_.elemSize == 1) {
            mat_.data[i] = level;
            return;
        }
        const auto wide = static_cast<std::uint16_t>(level * 251 + 7);
        std::memcpy(mat_.data + 2 * i, &wide, 2);
    }

    Mat mat_;
};

// A typed container that frees itself.
template <class Container>
class Owned
{
public:
    Owned() = default;
    Owned(Owned&& other) noexcept : record_(std::exchange(other.record_, Container{})) {}
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() { std::free(record_.data); }

    Container* get() { return &record_; }
    const Container* get() const { return &record_; }
    void add_to(Digest& digest) const
    {
        for (const std::int32_t field : {record_.width, record_.height, record_.channels})
            digest.add(field);
        if (record_.data != nullptr)
            digest.add(record_.data, count_of(record_.width, record_.height, record_.channels));
    }

private:
    Container record_ = {};
};

// A mask of 0 and 255 with an oblique edge, some of it with values between.
inline Owned<Matb> mask(int width, int height, std::uint64_t seed)
{
    Owned<Matb> made;
    MatbReset(made.get(), width, height, 1);
    Random random(seed);
    const auto slope = static_cast<int>(random.integer(-2, 2));
    const auto level = static_cast<std::uint8_t>(random.integer(0, 2) == 0 ? 128 : 255);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            made.get()
                ->data[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)] =
                5 * x + slope * y > width / 2 ? level : 0;
    return made;
}

} // namespace panoval::bits
