// SPDX-License-Identifier: MIT
#include "image/interruption.h"

#include "image/remove_folder.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>

#ifdef _WIN32
#include <process.h>
#else
#include <unistd.h>
#endif

namespace panoval::image
{

namespace
{

std::atomic<int> unfinished_folders{0};
std::atomic<int> interruption{0}; // the signal's number

} // namespace

#ifdef _WIN32

int process_id()
{
    return _getpid();
}

int remember_unfinished(const std::filesystem::path&)
{
    return -1;
}

void forget_unfinished(int) {}

void remove_unfinished_outputs() {}

void remove_outputs_on_interruption() {}

#else

namespace
{

// What an interruption removes. The handler may only read plain memory, so names are kept in it.
struct UnfinishedFile {
    std::atomic<bool> is_taken{false};
    std::atomic<bool> is_used{false}; // from when the name is complete
    char name[4096];
};
std::array<UnfinishedFile, 64> unfinished_files; // some, and one for each thread that writes

void remove_output(const char* name)
{
#ifdef __linux__
    if (unlink(name) != 0 && errno == EISDIR)
        remove_folder(name);
#else
    unlink(name);
#endif
}

} // namespace

void remove_unfinished_outputs()
{
    for (UnfinishedFile& file : unfinished_files)
        if (file.is_used)
            remove_output(file.name);
}

namespace
{

extern "C" void on_interruption(int number)
{
    if (unfinished_folders != 0 && interruption.exchange(number) == 0) // a second one does not wait
        return;
    remove_unfinished_outputs();
    std::signal(number, SIG_DFL);
    raise(number);
}

} // namespace

int process_id()
{
    return getpid();
}

int remember_unfinished(const std::filesystem::path& path)
{
    if (path.native().size() >= sizeof unfinished_files[0].name)
        return -1;
    for (std::size_t i = 0; i < unfinished_files.size(); ++i) {
        UnfinishedFile& file = unfinished_files[i];
        if (file.is_taken.exchange(true))
            continue;
        std::memcpy(file.name, path.c_str(), path.native().size() + 1);
        file.is_used = true;
        return static_cast<int>(i);
    }
    return -1;
}

void forget_unfinished(int slot)
{
    if (slot < 0)
        return;
    UnfinishedFile& file = unfinished_files[static_cast<std::size_t>(slot)];
    file.is_used = false;
    file.is_taken = false;
}

void remove_outputs_on_interruption()
{
    std::signal(SIGXFSZ, SIG_IGN);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGALRM, SIGXCPU, SIGUSR1, SIGUSR2})
        if (std::signal(number, on_interruption) == SIG_IGN) // as with nohup
            std::signal(number, SIG_IGN);
}

#endif

void Interruption::finish() const
{
    std::signal(number, SIG_DFL);
    std::raise(number);
}

void InterruptionByHand::begin()
{
    ++unfinished_folders;
}

void InterruptionByHand::end()
{
    --unfinished_folders;
}

void InterruptionByHand::check()
{
    if (const int number = interruption; number != 0)
        throw Interruption{number};
}

} // namespace panoval::image
