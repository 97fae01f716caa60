// SPDX-License-Identifier: MIT
#include "mosaic/base/scratch_file.h"

#include <algorithm>
#include <string>

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>
#endif

namespace panoval::mosaic
{

namespace
{

// What is moved in one call of the system, which may refuse more than 2^31 - 1 bytes.
constexpr std::size_t kMostAtOnce = std::size_t{1} << 28;

} // namespace

#ifdef _WIN32

ScratchFile::~ScratchFile()
{
    if (handle_ != nullptr)
        CloseHandle(handle_);
}

bool ScratchFile::open()
{
    wchar_t folder[MAX_PATH + 1];
    wchar_t name[MAX_PATH + 1];
    if (GetTempPathW(MAX_PATH + 1, folder) == 0 || GetTempFileNameW(folder, L"pnv", 0, name) == 0)
        return false;
    void* const handle = CreateFileW(name, GENERIC_READ | GENERIC_WRITE | DELETE, 0, nullptr, CREATE_ALWAYS,
                                     FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        DeleteFileW(name);
        return false;
    }
    handle_ = handle;
    return true;
}

namespace
{

OVERLAPPED at(std::uint64_t offset)
{
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(offset & 0xffffffffu);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return place;
}

} // namespace

bool ScratchFile::write(std::uint64_t offset, const void* bytes, std::size_t size)
{
    const auto* from = static_cast<const char*>(bytes);
    while (size > 0) {
        OVERLAPPED place = at(offset);
        DWORD done = 0;
        const auto part = static_cast<DWORD>(std::min(size, kMostAtOnce));
        if (!WriteFile(handle_, from, part, &done, &place) || done == 0)
            return false;
        from += done;
        offset += done;
        size -= done;
    }
    return true;
}

bool ScratchFile::read(std::uint64_t offset, void* bytes, std::size_t size)
{
    auto* to = static_cast<char*>(bytes);
    while (size > 0) {
        OVERLAPPED place = at(offset);
        DWORD done = 0;
        const auto part = static_cast<DWORD>(std::min(size, kMostAtOnce));
        if (!ReadFile(handle_, to, part, &done, &place) || done == 0)
            return false;
        to += done;
        offset += done;
        size -= done;
    }
    return true;
}

#else

namespace
{

// A file of that folder whose name is gone before anybody can see it.
int open_in(const char* folder)
{
    std::string name = std::string(folder) + "/panoval-XXXXXX";
    const int descriptor = mkstemp(name.data());
    if (descriptor >= 0) {
        unlink(name.c_str());
        fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
    return descriptor;
}

// Calls until all is done. Signals interrupt calls, and they may do a part of their work.
template <class Call>
bool move_all(std::uint64_t offset, std::size_t size, const Call& call)
{
    std::size_t done = 0;
    while (done < size) {
        const std::size_t part = std::min(size - done, kMostAtOnce);
        const auto moved = call(done, part, static_cast<off_t>(offset + done));
        if (moved < 0 && errno == EINTR) // COUNT_EXCL_BRANCH: as below
            continue;                    // COUNT_EXCL: a signal, on file systems that let calls be interrupted
        if (moved <= 0)
            return false;
        done += static_cast<std::size_t>(moved);
    }
    return true;
}

} // namespace

ScratchFile::~ScratchFile()
{
    if (descriptor_ >= 0)
        close(descriptor_);
}

bool ScratchFile::open()
{
    const char* const wanted = std::getenv("TMPDIR");
    if (wanted != nullptr && *wanted != 0) {
        descriptor_ = open_in(wanted);
        return descriptor_ >= 0;
    }
    // /tmp may be memory, which is what there is too little of.
    for (const char* const folder : {"/var/tmp", "/tmp"})
        if (descriptor_ < 0)
            descriptor_ = open_in(folder);
    return descriptor_ >= 0;
}

bool ScratchFile::write(std::uint64_t offset, const void* bytes, std::size_t size)
{
    const auto* const from = static_cast<const char*>(bytes);
    return move_all(offset, size, [&](std::size_t done, std::size_t part, off_t place) {
        return pwrite(descriptor_, from + done, part, place);
    });
}

bool ScratchFile::read(std::uint64_t offset, void* bytes, std::size_t size)
{
    auto* const to = static_cast<char*>(bytes);
    return move_all(offset, size, [&](std::size_t done, std::size_t part, off_t place) {
        return pread(descriptor_, to + done, part, place);
    });
}

#endif

} // namespace panoval::mosaic
