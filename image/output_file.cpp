// SPDX-License-Identifier: MIT
#include "image/output_file.h"

#include "image/failure.h"
#include "image/interruption.h"
#include "image/standard_streams.h"
#include "image/text.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// after windows.h
#include <io.h>
#else
#include <unistd.h>
#endif

namespace panoval::image
{

namespace
{

namespace fs = std::filesystem;

constexpr int kMostTries = 100;

#ifdef _WIN32

FileHandle create_new(const fs::path& path)
{
    const int descriptor = _wopen(path.c_str(), _O_CREAT | _O_EXCL | _O_RDWR | _O_BINARY, _S_IREAD | _S_IWRITE);
    if (descriptor < 0)
        return nullptr;
    FileHandle file(_fdopen(descriptor, "w+b"));
    if (file == nullptr) { // COUNT_EXCL_START: the C library's heap; the program's tests of an exhausted one come here
        const int reason = errno;
        _close(descriptor);
        _wunlink(path.c_str());
        errno = reason;
    }
    return file;
}

bool replace_file(const fs::path& from, const fs::path& to)
{
    if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != 0)
        return true;
    errno = EACCES;
    return false;
}

bool is_writable(const fs::path& path)
{
    return _waccess(path.c_str(), 2) == 0;
}

// Without a name once it is closed.
FileHandle create_scratch(const fs::path& path)
{
    const int descriptor =
        _wopen(path.c_str(), _O_CREAT | _O_EXCL | _O_RDWR | _O_BINARY | _O_TEMPORARY, _S_IREAD | _S_IWRITE);
    return FileHandle(descriptor >= 0 ? _fdopen(descriptor, "w+b") : nullptr);
}

#else

FileHandle create_new(const fs::path& path)
{
    const int descriptor = open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0666);
    if (descriptor < 0)
        return nullptr;
    FileHandle file(fdopen(descriptor, "w+b"));
    if (file == nullptr) {
        const int reason = errno;
        close(descriptor);
        unlink(path.c_str());
        errno = reason;
    } // COUNT_EXCL_STOP
    return file;
}

bool replace_file(const fs::path& from, const fs::path& to)
{
    struct stat old {
    };
    if (stat(to.c_str(), &old) == 0) // keep who may read it
        (void)!chmod(from.c_str(), old.st_mode & 0777);
    return std::rename(from.c_str(), to.c_str()) == 0;
}

bool is_writable(const fs::path& path)
{
    return access(path.c_str(), W_OK) == 0;
}

// Without a name from the start.
FileHandle create_scratch(const fs::path& path)
{
    FileHandle file = create_new(path);
    if (file != nullptr)
        unlink(path.c_str());
    return file;
}

#endif

} // namespace

OutputFile::OutputFile(const std::string& target, const std::string& shown) : target_(shown)
{
    if (is_standard_stream(target)) {
        stream_ = open_nameless_file();
        if (stream_ == nullptr)
            fail_writing();
        return;
    }
    if (target.empty())
        fail_output("''", "an empty file name", "the name of the output");
    try {
        place_ = path_from_utf8(target);
    } catch (const std::system_error&) {                                          // COUNT_EXCL: on Windows alone
        fail_output(target, "a name that is no UTF-8", "the name of the output"); // COUNT_EXCL: as above
    }                                                                             // COUNT_EXCL: as above
    std::error_code error;
    if (fs::is_symlink(place_, error))
        place_ = fs::weakly_canonical(place_, error);
    if (fs::is_directory(place_, error))
        fail_output(target, "a folder", "a file to write");
    if (fs::exists(place_, error) && !fs::is_regular_file(place_, error))
        fail_output(target, "no regular file", "a file to write");
    if (fs::exists(place_, error) && !is_writable(place_))
        fail_output(target, "a write-protected file", "a file to write");
    const fs::path folder = place_.parent_path();
    if (!folder.empty() && !fs::is_directory(folder, error))
        fail_output(target, "no folder " + utf8_from_path(folder), "an existing one");
    create_beside();
}

void OutputFile::create_beside()
{
    for (int i = 0; i < kMostTries && stream_ == nullptr; ++i) {
        temporary_ = place_;
        temporary_ += concat(".", process_id(), "-", i, ".part");
        stream_ = create_new(temporary_);
        if (stream_ == nullptr && errno != EEXIST)
            break;
    }
    if (stream_ == nullptr) {
        check_heap(target_);
        fail_output(target_, "a place that cannot be written to: " + system_message(errno), "a writable one");
    }
    slot_ = remember_unfinished(temporary_);
}

OutputFile::~OutputFile()
{
    if (temporary_.empty())
        return;
    stream_.reset();
    std::error_code error;
    fs::remove(temporary_, error);
    forget_unfinished(slot_);
}

FileHandle OutputFile::make_scratch() const
{
    if (place_.empty()) {
        FileHandle file = open_nameless_file();
        if (file == nullptr)
            fail_writing();
        return file;
    }
    for (int i = 0; i < kMostTries; ++i) {
        fs::path path = place_;
        path += concat(".", process_id(), "-", i, ".scratch");
        if (FileHandle file = create_scratch(path))
            return file;
        if (errno != EEXIST)
            break;
    }
    fail_writing();
}

OutputFolder& OutputFile::make_companion(const std::string& suffix)
{
    fs::path place = place_;
    place.replace_extension();
    place += path_from_utf8(suffix);
    std::error_code error;
    if (fs::exists(place, error) && !fs::exists(place_, error)) // of somebody else
        fail_output(target_, "the folder " + utf8_from_path(place), "a name whose folder is not there yet");
    companion_ = std::make_unique<OutputFolder>(place, target_);
    return *companion_;
}

void OutputFile::write(const void* data, std::size_t bytes)
{
    if (std::fwrite(data, 1, bytes, stream_.get()) != bytes)
        fail_writing();
}

void OutputFile::leave_to_disk(std::int64_t kept)
{
    const std::int64_t length = tell_in_file(stream_.get());
    if (length < next_leave_)
        return;
    // What was not on the disk yet is asked for again, each time a little further on.
    if (length > kept)
        forget_cached(stream_.get(), std::max<std::int64_t>(length - 2 * kept, 0), length - kept);
    next_leave_ = std::max(length, kept) + kept / 16;
}

void OutputFile::commit()
{
    if (place_.empty()) {
        if (!copy_to_standard_output(stream_.get()))
            fail_writing();
        return;
    }
    std::FILE* const stream = stream_.release();
    const bool is_written = std::fflush(stream) == 0 && std::ferror(stream) == 0;
    const int reason = errno;
    if (std::fclose(stream) != 0 || !is_written) {
        errno = is_written ? errno : reason;
        fail_writing();
    }
    if (companion_ != nullptr)
        companion_->commit();
    if (!replace_file(temporary_, place_))
        fail_output(target_, "a name that cannot be taken: " + system_message(errno), "a writable place");
    forget_unfinished(slot_);
    temporary_.clear();
}

void OutputFile::fail_writing() const
{
    check_heap(target_);
    const int reason = errno;
    fail_output(target_, reason != 0 ? "an error while writing: " + system_message(reason) : "an error while writing",
                place_.empty() ? room_for_nameless_files() : "enough room");
}

} // namespace panoval::image
