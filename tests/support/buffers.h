// SPDX-License-Identifier: MIT
// Buffers that notice what is written or read beside them, and comparisons that name the first difference.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <vector>

namespace panoval::test
{

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kAddressSanitizer = true;
#else
inline constexpr bool kAddressSanitizer = false;
#endif
#else
inline constexpr bool kAddressSanitizer = false;
#endif

// count elements on the C heap. Under the address sanitizer the block has the exact size, so that one byte beside it
// stops the test; otherwise it stands between guard bytes, which intact() compares.
template <class T>
class Guarded
{
public:
    explicit Guarded(std::size_t count) : count_(count)
    {
        block_ = static_cast<std::uint8_t*>(std::malloc(bytes() + 2 * kGuard + (bytes() + kGuard == 0 ? 1 : 0)));
        std::memset(block_, kPattern, bytes() + 2 * kGuard);
    }
    explicit Guarded(const std::vector<T>& values) : Guarded(values.size())
    {
        if (!values.empty())
            std::memcpy(data(), values.data(), bytes());
    }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;
    ~Guarded() { std::free(block_); }

    T* data() { return reinterpret_cast<T*>(block_ + kGuard); }
    const T* data() const { return reinterpret_cast<const T*>(block_ + kGuard); }
    std::size_t size() const { return count_; }
    T& operator[](std::size_t i) { return data()[i]; }
    std::vector<T> values() const { return std::vector<T>(data(), data() + count_); }

    bool intact() const
    {
        for (std::size_t i = 0; i < kGuard; ++i)
            if (block_[i] != kPattern || block_[kGuard + bytes() + i] != kPattern)
                return false;
        return true;
    }

private:
    static constexpr std::size_t kGuard = kAddressSanitizer ? 0 : 64;
    static constexpr std::uint8_t kPattern = 0xA5;
    std::size_t bytes() const { return count_ * sizeof(T); }

    std::size_t count_;
    std::uint8_t* block_;
};

// Compares object representations: tells 0 from -0 and one not-a-number from another.
template <class T>
testing::AssertionResult same_bits(const T* actual, const T* expected, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        if (std::memcmp(&actual[i], &expected[i], sizeof(T)) != 0)
            return testing::AssertionFailure()
                   << "element " << i << " of " << count << ": " << testing::PrintToString(actual[i]) << " instead of "
                   << testing::PrintToString(expected[i]);
    return testing::AssertionSuccess();
}

template <class A, class B>
testing::AssertionResult same_bits(const A& actual, const B& expected)
{
    if (std::size(actual) != std::size(expected))
        return testing::AssertionFailure() << std::size(actual) << " elements instead of " << std::size(expected);
    return same_bits(actual.data(), expected.data(), std::size(actual));
}

} // namespace panoval::test
