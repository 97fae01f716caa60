// SPDX-License-Identifier: MIT
// An output that is either complete or not there: everything goes into a file beside the target, which takes the
// target's name when all of it is written. Until then an older file of that name stays as it is.
#pragma once

#include "image/files.h"
#include "image/output_folder.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace panoval::image
{

class OutputFile
{
public:
    // "-" is standard output. Otherwise creates the file beside the target, so that an output that cannot be written is
    // known before the work starts.
    explicit OutputFile(const std::string& target) : OutputFile(target, target) {}

    // What is put in another place later: messages have the name that it gets there.
    OutputFile(const std::string& target, const std::string& shown);
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile(); // removes what was not committed

    const std::string& target() const { return target_; }
    std::FILE* stream() const { return stream_.get(); } // for reading and writing in binary

    void write(const void* data, std::size_t bytes);
    void write(const std::string& text) { write(text.data(), text.size()); }

    // For a writer that goes on and on to call between rows: what lies more than `kept` bytes behind the end is left to
    // the disk. A panorama of many gigabytes would otherwise take all memory for a copy that nobody reads, and that of
    // other files besides.
    void leave_to_disk(std::int64_t kept = kKeptBytes);

    // A file for reading and writing, on the same disk, that vanishes when it is closed.
    FileHandle make_scratch() const;

    // A folder that comes and goes with this file: its name without ending, and a suffix. One at most.
    OutputFolder& make_companion(const std::string& suffix);

    // Puts the finished file in the target's place.
    void commit();

    // Ends in an output error that tells what errno means.
    [[noreturn]] void fail_writing() const;

private:
    // What is opened in a viewer at once is read from memory.
    static constexpr std::int64_t kKeptBytes = std::int64_t{1} << 30;

    void create_beside();

    std::string target_;          // as messages have it
    std::filesystem::path place_; // the target, or what it links to; empty for standard output
    std::filesystem::path temporary_;
    FileHandle stream_;
    std::unique_ptr<OutputFolder> companion_;
    std::int64_t next_leave_ = 0; // the length from which on there is more to leave to the disk
    int slot_ = -1;               // in the list of files that an interruption removes
};

} // namespace panoval::image
