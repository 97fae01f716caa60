// SPDX-License-Identifier: MIT
#include "image/standard_streams.h"

#include "image/interruption.h"
#include "image/text.h"

#include <atomic>
#include <cerrno>
#include <mutex>
#include <system_error>
#include <vector>

#include <fcntl.h>
#ifdef _WIN32
#include <io.h>
#include <sys/stat.h>
#else
#include <unistd.h>
#endif

namespace panoval::image
{

namespace
{

std::atomic<bool> has_picture{false};

void make_binary(std::FILE* stream)
{
#ifdef _WIN32
    (void)_setmode(_fileno(stream), _O_BINARY);
#else
    (void)stream; // has no other mode
#endif
}

FileHandle create_nameless(const std::filesystem::path& path)
{
#ifdef _WIN32
    const int descriptor =
        _wopen(path.c_str(), _O_CREAT | _O_EXCL | _O_RDWR | _O_BINARY | _O_TEMPORARY, _S_IREAD | _S_IWRITE);
    return FileHandle(descriptor >= 0 ? _fdopen(descriptor, "w+b") : nullptr);
#else
    const int descriptor = open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
    if (descriptor >= 0)
        unlink(path.c_str());
    return FileHandle(descriptor >= 0 ? fdopen(descriptor, "w+b") : nullptr);
#endif
}

// Copies to the end of from.
bool copy(std::FILE* from, std::FILE* to)
{
    std::vector<char> piece(1 << 16);
    while (const std::size_t count = std::fread(piece.data(), 1, piece.size(), from))
        if (std::fwrite(piece.data(), 1, count, to) != count)
            return false;
    return std::ferror(from) == 0 && std::fflush(to) == 0;
}

// What has come through standard input; it can be read only once.
FileHandle read_standard_input()
{
    make_binary(stdin);
    FileHandle file = open_nameless_file();
    if (file != nullptr && !copy(stdin, file.get()))
        file.reset();
    return file;
}

} // namespace

#ifdef _WIN32

void reserve_standard_streams() {} // the run-time library gives their numbers to nothing else

#else

void reserve_standard_streams()
{
    // Open the other way round, so that reading and writing fail as they do with what is closed. Messages to nowhere do
    // no harm.
    constexpr int kModes[] = {O_WRONLY, O_RDONLY, O_WRONLY};
    for (int number = 0; number < 3; ++number)
        if (fcntl(number, F_GETFD) == -1 && errno == EBADF)
            (void)!open("/dev/null", kModes[number]); // takes the lowest number that is free
}

#endif

std::string room_for_nameless_files()
{
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
    const std::string place = error ? "a folder for temporary files" : printable(utf8_from_path(folder));
    return concat("enough room in ", place, ", or another folder in ", kTemporaryVariable);
}

FileHandle open_nameless_file()
{
    constexpr int kMostTries = 100;
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::temp_directory_path(error);
    if (error) {
        errno = error.value();
        return nullptr;
    }
    for (int i = 0; i < kMostTries; ++i) {
        FileHandle file = create_nameless(folder / concat("panoval-", process_id(), "-", i, ".scratch"));
        if (file != nullptr || errno != EEXIST)
            return file;
    }
    return nullptr;
}

FileHandle open_standard_input()
{
    static std::mutex one_at_a_time;
    const std::lock_guard<std::mutex> lock(one_at_a_time);
    static const FileHandle all = read_standard_input();
    FileHandle file = open_nameless_file();
    if (all == nullptr || file == nullptr)
        return nullptr;
    std::rewind(all.get());
    if (!copy(all.get(), file.get()))
        return nullptr;
    std::rewind(file.get());
    return file;
}

bool copy_to_standard_output(std::FILE* file)
{
    static std::mutex one_at_a_time;
    const std::lock_guard<std::mutex> lock(one_at_a_time);
    has_picture = true;
    std::fflush(stdout);
    make_binary(stdout);
    std::rewind(file);
    return copy(file, stdout);
}

bool standard_output_has_a_picture()
{
    return has_picture;
}

} // namespace panoval::image
