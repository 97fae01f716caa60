// SPDX-License-Identifier: MIT
// Buffers between pages that nobody may touch: one byte read or written beside them ends the program.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace panoval::test
{

// Whole pages that may be touched, with one before and one behind that may not.
class FencedPages
{
public:
    explicit FencedPages(std::size_t bytes) : page_(page_size()), inner_((bytes + page_ - 1) / page_ * page_)
    {
        outer_ = reserve(inner_ + 2 * page_);
        if (outer_ == nullptr || !open(outer_ + page_, inner_))
            std::abort();
    }
    FencedPages(const FencedPages&) = delete;
    FencedPages& operator=(const FencedPages&) = delete;
    ~FencedPages() { release(outer_, inner_ + 2 * page_); }

    std::uint8_t* begin() { return outer_ + page_; }
    std::uint8_t* end() { return begin() + inner_; }

private:
#ifdef _WIN32
    static std::size_t page_size()
    {
        SYSTEM_INFO info;
        GetSystemInfo(&info);
        return info.dwPageSize;
    }
    static std::uint8_t* reserve(std::size_t bytes)
    {
        return static_cast<std::uint8_t*>(VirtualAlloc(nullptr, bytes, MEM_RESERVE, PAGE_NOACCESS));
    }
    static bool open(std::uint8_t* at, std::size_t bytes)
    {
        return bytes == 0 || VirtualAlloc(at, bytes, MEM_COMMIT, PAGE_READWRITE) != nullptr;
    }
    static void release(std::uint8_t* at, std::size_t)
    {
        VirtualFree(at, 0, MEM_RELEASE);
    }
#else
    static std::size_t page_size()
    {
        return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    }
    static std::uint8_t* reserve(std::size_t bytes)
    {
        void* const at = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        return at != MAP_FAILED ? static_cast<std::uint8_t*>(at) : nullptr;
    }
    static bool open(std::uint8_t* at, std::size_t bytes)
    {
        return bytes == 0 || mprotect(at, bytes, PROT_READ | PROT_WRITE) == 0;
    }
    static void release(std::uint8_t* at, std::size_t bytes)
    {
        munmap(at, bytes);
    }
#endif

    std::size_t page_;
    std::size_t inner_;
    std::uint8_t* outer_ = nullptr;
};

// Where a buffer lies: up to the page behind it, from the page before it, or as the heap gives it.
enum class Place { BeforeFence, BehindFence, Heap };

// Elements of an exact number. Before the fence a buffer begins where its size puts it: at any address that its element
// type may have, which for vectors is as misaligned as it gets.
template <class T>
class Fenced
{
public:
    Fenced(Place place, const std::vector<T>& values)
        : count_(values.size()), pages_(bytes()), heap_(place == Place::Heap ? bytes() + 1 : 0)
    {
        data_ = reinterpret_cast<T*>(place == Place::Heap          ? heap_.data()
                                     : place == Place::BeforeFence ? pages_.end() - bytes()
                                                                   : pages_.begin());
        if (!values.empty())
            std::memcpy(data_, values.data(), bytes());
    }
    Fenced(Place place, std::size_t count, T value = T{}) : Fenced(place, std::vector<T>(count, value)) {}

    T* data() { return data_; }
    std::size_t size() const { return count_; }
    std::size_t bytes() const { return count_ * sizeof(T); }

private:
    std::size_t count_;
    FencedPages pages_;
    std::vector<std::uint8_t> heap_;
    T* data_;
};

} // namespace panoval::test
