// SPDX-License-Identifier: MIT
#include "cli/base/progress.h"

#include "cli/base/errors.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace panoval::cli
{

namespace
{

constexpr std::size_t kBarWidth = 30;
constexpr std::size_t kColumns = 79; // a longer line would wrap in a narrow terminal, and could not be wiped out

bool stderr_is_terminal()
{
#ifdef _WIN32
    return _isatty(_fileno(stderr)) != 0;
#else
    return isatty(STDERR_FILENO) == 1;
#endif
}

} // namespace

Progress::Progress(ProgressMode mode, std::string label, std::size_t total)
    : is_shown_(mode == ProgressMode::Always || (mode == ProgressMode::Auto && stderr_is_terminal())),
      label_(std::move(label)), total_(std::max<std::size_t>(total, 1))
{
}

Progress::~Progress()
{
    clear();
}

void Progress::clear()
{
    if (drawn_ == 0)
        return;
    std::fprintf(stderr, "\r%*s\r", static_cast<int>(drawn_), "");
    std::fflush(stderr);
    drawn_ = 0;
}

void Progress::step(const std::string& what)
{
    begun_ = std::min(begun_ + 1, total_);
    if (is_shown_)
        draw(what);
}

void Progress::draw(const std::string& what)
{
    const std::size_t filled = kBarWidth * (begun_ - 1) / total_;
    const std::string bar = concat(label_, " [", std::string(filled, '#'), std::string(kBarWidth - filled, '.'), "] ",
                                   begun_, "/", total_, " ");
    const std::string file = what.substr(what.find_last_of("/\\") + 1); // its folder would take all the room
    const std::string dots = "...";
    const std::size_t room = kColumns - std::min(kColumns, bar.size() + dots.size());
    const std::string line = bar + printable(file, room);
    const std::size_t rest = drawn_ > line.size() ? drawn_ - line.size() : 0;
    std::fprintf(stderr, "\r%s%*s", line.c_str(), static_cast<int>(rest), "");
    std::fflush(stderr);
    drawn_ = line.size();
}

} // namespace panoval::cli
