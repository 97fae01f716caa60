// SPDX-License-Identifier: MIT
// Opening files whose names are UTF-8 on every system.
#pragma once

#include <cstdio>
#include <memory>

namespace panoval
{

struct CloseFile {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

using File = std::unique_ptr<std::FILE, CloseFile>;

// Null when the file does not open, when name or mode is null, when the mode has more than 31 characters, or when the
// name does not convert to the system's own form.
[[nodiscard]] File open_file_utf8(const char* name, const char* mode) noexcept;

} // namespace panoval
