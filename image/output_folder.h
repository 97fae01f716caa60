// SPDX-License-Identifier: MIT
// A folder of files that belongs to an output: like it, either complete or not there.
#pragma once

#include "image/files.h"

#include <filesystem>
#include <string>

namespace panoval::image
{

class OutputFolder
{
public:
    // place: where the folder is to be; made beside it at first. target: what messages name.
    OutputFolder(const std::filesystem::path& place, std::string target);
    OutputFolder(const OutputFolder&) = delete;
    OutputFolder& operator=(const OutputFolder&) = delete;
    ~OutputFolder(); // removes what was not committed

    // Where it is until it is put in its place.
    const std::filesystem::path& path() const { return temporary_; }

    // Names are relative to the folder. An interrupted program ends here, by way of an Interruption.
    void make_folder(const std::string& name) const;
    FileHandle make_file(const std::string& name) const;

    // Puts the folder in its place. An older one goes; it stays where that fails, and so does a file that has come to
    // stand there meanwhile.
    void commit();

    [[noreturn]] void fail_writing() const;

private:
    void refuse_file() const;

    std::filesystem::path place_;
    std::filesystem::path temporary_; // empty when committed
    std::string target_;
    int slot_ = -1; // among the unfinished outputs
};

} // namespace panoval::image
