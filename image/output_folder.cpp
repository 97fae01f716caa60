// SPDX-License-Identifier: MIT
#include "image/output_folder.h"

#include "image/failure.h"
#include "image/interruption.h"
#include "image/remove_folder.h"
#include "image/text.h"

#include <cerrno>
#include <system_error>
#include <utility>

namespace panoval::image
{

namespace
{

namespace fs = std::filesystem;

constexpr int kMostTries = 100;

} // namespace

OutputFolder::OutputFolder(const fs::path& place, std::string target) : place_(place), target_(std::move(target))
{
    refuse_file();
    std::error_code error;
    for (int i = 0; i < kMostTries; ++i) {
        temporary_ = place_; // nothing is asked of the heap between making a folder and remembering it
        temporary_ += concat(".", process_id(), "-", i, ".part");
        if (fs::create_directory(temporary_, error)) {
            slot_ = remember_unfinished(temporary_);
            InterruptionByHand::begin();
            return;
        }
    }
    fail_output(target_, "a folder that cannot be made: " + error.message(), "a writable place");
}

OutputFolder::~OutputFolder()
{
    if (temporary_.empty())
        return;
    remove_folder(temporary_);
    forget_unfinished(slot_);
    InterruptionByHand::end();
}

void OutputFolder::make_folder(const std::string& name) const
{
    std::error_code error;
    if (!fs::create_directory(temporary_ / path_from_utf8(name), error)) {
        errno = error.value();
        fail_writing();
    }
}

FileHandle OutputFolder::make_file(const std::string& name) const
{
    InterruptionByHand::check();
    FileHandle file = open_utf8(utf8_from_path(temporary_ / path_from_utf8(name)), "wb");
    if (file == nullptr)
        fail_writing();
    return file;
}

// What stands at the place, also by now.
void OutputFolder::refuse_file() const
{
    std::error_code error;
    if (fs::exists(place_, error) && !fs::is_directory(place_, error))
        fail_output(target_, "a file " + utf8_from_path(place_), "a place for the folder of tiles");
}

void OutputFolder::commit()
{
    refuse_file();
    std::error_code error;
    fs::path older = temporary_;
    older += ".old";
    const bool replaces = fs::exists(place_, error);
    if (replaces)
        fs::rename(place_, older, error);
    if (!error) {
        fs::rename(temporary_, place_, error);
        std::error_code ignored;
        if (error && replaces)
            fs::rename(older, place_, ignored);
    }
    if (error)
        fail_output(target_, "a folder that cannot be put in place: " + error.message(), "a writable place");
    temporary_.clear();
    forget_unfinished(slot_);
    InterruptionByHand::end();
    remove_folder(older);
}

void OutputFolder::fail_writing() const
{
    check_heap(target_);
    fail_output(target_, "an error while writing: " + system_message(errno), "enough room");
}

} // namespace panoval::image
