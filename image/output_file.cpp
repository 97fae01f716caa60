// SPDX-License-Identifier: MIT
#include "image/output_file.h"

#include "image/failure.h"
#include "image/text.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// after windows.h
#include <io.h>
#include <process.h>
#else
#include <unistd.h>
#endif

namespace panoval::image
{

namespace
{

namespace fs = std::filesystem;

#ifdef _WIN32

FileHandle create_new(const fs::path& path)
{
    const int descriptor = _wopen(path.c_str(), _O_CREAT | _O_EXCL | _O_RDWR | _O_BINARY, _S_IREAD | _S_IWRITE);
    return FileHandle(descriptor >= 0 ? _fdopen(descriptor, "w+b") : nullptr);
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

int process_id()
{
    return _getpid();
}

int remember(const fs::path&)
{
    return -1;
}

void forget(int) {}

#else

FileHandle create_new(const fs::path& path)
{
    const int descriptor = open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0666);
    return FileHandle(descriptor >= 0 ? fdopen(descriptor, "w+b") : nullptr);
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

int process_id()
{
    return getpid();
}

// What an interruption removes. The handler may only read plain memory, so names are kept in it.
struct UnfinishedFile {
    std::atomic<bool> is_used{false};
    char name[4096];
};
std::array<UnfinishedFile, 8> unfinished_files;

int remember(const fs::path& path)
{
    for (std::size_t i = 0; i < unfinished_files.size(); ++i) {
        UnfinishedFile& file = unfinished_files[i];
        if (file.is_used || path.native().size() >= sizeof file.name)
            continue;
        std::memcpy(file.name, path.c_str(), path.native().size() + 1);
        file.is_used = true;
        return static_cast<int>(i);
    }
    return -1;
}

void forget(int slot)
{
    if (slot >= 0)
        unfinished_files[static_cast<std::size_t>(slot)].is_used = false;
}

extern "C" void on_interruption(int number)
{
    for (UnfinishedFile& file : unfinished_files)
        if (file.is_used)
            unlink(file.name);
    std::signal(number, SIG_DFL);
    raise(number);
}

#endif

} // namespace

OutputFile::OutputFile(const std::string& target) : target_(target)
{
    if (target.empty())
        fail_output("''", "an empty file name", "the name of the output");
    try {
        place_ = path_from_utf8(target);
    } catch (const std::system_error&) {
        fail_output(target, "a name that is no UTF-8", "the name of the output");
    }
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
    constexpr int kMostTries = 100;
    for (int i = 0; i < kMostTries && stream_ == nullptr; ++i) {
        temporary_ = place_;
        temporary_ += concat(".", process_id(), "-", i, ".part");
        stream_ = create_new(temporary_);
        if (stream_ == nullptr && errno != EEXIST)
            break;
    }
    if (stream_ == nullptr)
        fail_output(target_, "a place that cannot be written to: " + system_message(errno), "a writable one");
    slot_ = remember(temporary_);
}

OutputFile::~OutputFile()
{
    if (temporary_.empty())
        return;
    stream_.reset();
    std::error_code error;
    fs::remove(temporary_, error);
    forget(slot_);
}

void OutputFile::write(const void* data, std::size_t bytes)
{
    if (std::fwrite(data, 1, bytes, stream_.get()) != bytes)
        fail_writing();
}

void OutputFile::commit()
{
    std::FILE* const stream = stream_.release();
    const bool is_written = std::fflush(stream) == 0 && std::ferror(stream) == 0;
    const int reason = errno;
    if (std::fclose(stream) != 0 || !is_written) {
        errno = is_written ? errno : reason;
        fail_writing();
    }
    if (!replace_file(temporary_, place_))
        fail_output(target_, "a name that cannot be taken: " + system_message(errno), "a writable place");
    forget(slot_);
    temporary_.clear();
}

void OutputFile::fail_writing() const
{
    fail_output(target_, "an error while writing: " + system_message(errno), "enough room");
}

void remove_outputs_on_interruption()
{
#ifndef _WIN32
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        if (std::signal(number, on_interruption) == SIG_IGN) // as with nohup
            std::signal(number, SIG_IGN);
#endif
}

} // namespace panoval::image
