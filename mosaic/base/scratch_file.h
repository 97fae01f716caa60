// SPDX-License-Identifier: MIT
// A temporary file without a name that keeps what does not fit into memory. It is gone with the object, and with the
// process however that ends.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

class ScratchFile
{
public:
    ScratchFile() = default;
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    ~ScratchFile();

    // Makes the file: in the folder that the environment's TMPDIR names, else in the system's folders for such files.
    // False where none of them can be written.
    bool open();

    // May be called from several threads at once, for parts that do not touch each other. False where the system
    // cannot, e.g. because the disk is full.
    bool write(std::uint64_t offset, const void* bytes, std::size_t size);
    bool read(std::uint64_t offset, void* bytes, std::size_t size);

private:
#ifdef _WIN32
    void* handle_ = nullptr;
#else
    int descriptor_ = -1;
#endif
};

} // namespace panoval::mosaic
