// SPDX-License-Identifier: MIT
// A progress bar of one line on standard error. It erases itself at the end, also when an error ends the command.
#pragma once

#include <cstddef>
#include <string>

namespace panoval::cli
{

enum class ProgressMode {
    Never,
    Auto, // when standard error is a terminal
    Always,
};

class Progress
{
public:
    // total steps; label says what goes on, e.g. "blending"
    Progress(ProgressMode mode, std::string label, std::size_t total);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

    // Removes the bar, for a line of another kind; the next step draws it anew.
    void clear();

    // The next step begins; what names it, e.g. a file.
    void step(const std::string& what);

private:
    void draw(const std::string& what);

    bool is_shown_;
    std::string label_;
    std::size_t total_;
    std::size_t begun_ = 0;
    std::size_t drawn_ = 0; // characters on the line
};

} // namespace panoval::cli
