// SPDX-License-Identifier: MIT
#include "image/remove_folder.h"

#ifdef __linux__
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>
#else
#include <new>
#include <system_error>
#endif

namespace panoval::image
{

#ifdef __linux__

namespace
{

void remove_within(int parent, const char* name)
{
    const int folder = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder < 0)
        return;
    alignas(dirent64) char entries[4096];
    ssize_t bytes = 0;
    while ((bytes = getdents64(folder, entries, sizeof entries)) > 0)
        for (ssize_t at = 0; at < bytes;) {
            const auto* const entry = reinterpret_cast<const dirent64*>(entries + at);
            at += entry->d_reclen;
            if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
                continue;
            if (unlinkat(folder, entry->d_name, 0) != 0)
                remove_within(folder, entry->d_name);
        }
    close(folder);
    unlinkat(parent, name, AT_REMOVEDIR);
}

} // namespace

void remove_folder(const char* place) noexcept
{
    remove_within(AT_FDCWD, place);
}

void remove_folder(const std::filesystem::path& place) noexcept
{
    remove_folder(place.c_str());
}

#else

void remove_folder(const std::filesystem::path& place) noexcept
{
    try {
        std::error_code error;
        std::filesystem::remove_all(place, error);
    } catch (const std::bad_alloc&) { // it stays
    }
}

#endif

} // namespace panoval::image
