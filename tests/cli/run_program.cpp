// SPDX-License-Identifier: MIT
#include "tests/cli/run_program.h"

#include "cli/base/image_names.h"
#include "image/files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace panoval::cli::test
{

namespace
{

namespace fs = std::filesystem;

fs::path folder_of_this_program()
{
#ifdef _WIN32
    wchar_t name[4096];
    GetModuleFileNameW(nullptr, name, 4096);
    return fs::path(name).parent_path();
#else
    return fs::read_symlink("/proc/self/exe").parent_path();
#endif
}

std::string contents(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

#ifdef _WIN32

// Quotes as the C runtime of the started program takes them apart.
std::wstring quoted(const std::wstring& argument)
{
    std::wstring text = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t c : argument) {
        if (c == L'"')
            text.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        text += c;
    }
    return text.append(backslashes, L'\\') + L"\"";
}

// Wine answers ERROR_INTERNAL_ERROR once in some thousand starts, when the new program's heap happens to lie where the
// system's shared page belongs; the next start finds another place.
PROCESS_INFORMATION start(std::wstring line, STARTUPINFOW& startup)
{
    constexpr int kStarts = 5;
    PROCESS_INFORMATION process{};
    for (int i = 1;
         CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process) == 0;
         ++i)
        if (GetLastError() != ERROR_INTERNAL_ERROR || i == kStarts)
            throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateProcessW");
    return process;
}

DWORD exit_code_of(const std::wstring& line, STARTUPINFOW& startup)
{
    const PROCESS_INFORMATION process = start(line, startup);
    DWORD code = 0;
    const bool is_known = WaitForSingleObject(process.hProcess, INFINITE) == WAIT_OBJECT_0 &&
                          GetExitCodeProcess(process.hProcess, &code) != 0;
    const auto error = static_cast<int>(GetLastError());
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    if (!is_known)
        throw std::system_error(error, std::system_category(), "GetExitCodeProcess");
    return code;
}

int start_and_wait(const fs::path& program, const std::vector<std::string>& arguments, const std::string& in,
                   const fs::path& out, const fs::path& err)
{
    std::wstring line = quoted(program.wstring());
    for (const std::string& argument : arguments)
        line += L" " + quoted(path_from_utf8(argument).wstring());
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    const auto create = [&](const fs::path& path) {
        return CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited, CREATE_ALWAYS, 0, nullptr);
    };
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    if (!in.empty())
        startup.hStdInput = CreateFileW(path_from_utf8(in).c_str(), GENERIC_READ, FILE_SHARE_READ, &inherited,
                                        OPEN_EXISTING, 0, nullptr);
    startup.hStdOutput = create(out);
    startup.hStdError = create(err);
    const DWORD code = exit_code_of(line, startup);
    if (!in.empty())
        CloseHandle(startup.hStdInput);
    CloseHandle(startup.hStdOutput);
    CloseHandle(startup.hStdError);
    return static_cast<int>(code);
}

#else

int start_and_wait(const fs::path& program, const std::vector<std::string>& arguments, const std::string& in,
                   const fs::path& out, const fs::path& err)
{
    const std::string name = program.string();
    std::vector<char*> argv{const_cast<char*>(name.c_str())};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        // The sanitizer would hold freed blocks back, and with them the memory that a test measures.
        setenv("ASAN_OPTIONS", "quarantine_size_mb=0:thread_local_quarantine_size_kb=0", 0);
        if (!in.empty())
            dup2(open(in.c_str(), O_RDONLY), STDIN_FILENO);
        dup2(open(out.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600), STDOUT_FILENO);
        dup2(open(err.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600), STDERR_FILENO);
        execv(name.c_str(), argv.data());
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

#endif

} // namespace

Outcome run_program(const std::string& program, const std::vector<std::string>& arguments, const std::string& input)
{
#ifdef _WIN32
    const fs::path path = folder_of_this_program() / (program + ".exe");
    const unsigned long id = GetCurrentProcessId();
#else
    const fs::path path = folder_of_this_program() / program;
    const long id = getpid();
#endif
    const fs::path out = fs::temp_directory_path() / ("panoval-out-" + std::to_string(id));
    const fs::path err = fs::temp_directory_path() / ("panoval-err-" + std::to_string(id));
    Outcome outcome;
    outcome.exit_code = start_and_wait(path, arguments, input, out, err);
    outcome.out = contents(out);
    outcome.err = contents(err);
    fs::remove(out);
    fs::remove(err);
    return outcome;
}

} // namespace panoval::cli::test
