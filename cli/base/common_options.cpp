// SPDX-License-Identifier: MIT
#include "cli/base/common_options.h"

#include "cli/base/errors.h"
#include "cli/base/number_options.h"
#include "image/image_read.h"
#include "image/standard_streams.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <map>

namespace panoval::cli
{

void add_common_options(CLI::App& command, CommonOptions& options)
{
    const std::map<std::string, ProgressMode> modes = {
        {"never", ProgressMode::Never}, {"auto", ProgressMode::Auto}, {"always", ProgressMode::Always}};
    command.add_flag("-q,--quiet", options.is_quiet, "Print errors alone (and the JSON results, if asked for)");
    command.add_flag("--json", options.wants_json, "Print the results as one JSON object");
    command
        .add_option_function<std::string>(
            "--progress", [&options, modes](const std::string& mode) { options.progress = modes.at(mode); },
            "Progress bar on standard error: auto (default), when it is a terminal; never; always")
        ->check(CLI::IsMember({"auto", "never", "always"}))
        ->type_name("WHEN");
    command
        .add_option_function<std::uint64_t>(
            "--max-pixels", [](std::uint64_t pixels) { image::set_most_pixels(pixels); },
            concat("Refuse pictures of more pixels; 0: take any (default ", image::kUsualMostPixels, ")"))
        ->transform(whole_number(0, std::numeric_limits<std::uint64_t>::max()))
        ->type_name("N");
}

void print_results(const CommonOptions& options, const Json& json, const ResultLines& lines)
{
    std::FILE* const stream = image::standard_output_has_a_picture() ? stderr : stdout;
    if (options.wants_json) {
        // File names need not be UTF-8 on every system; JSON must be.
        const std::string text = json.dump(2, ' ', false, Json::error_handler_t::replace);
        std::fprintf(stream, "%s\n", text.c_str());
    } else if (!options.is_quiet) {
        std::size_t width = 0;
        for (const auto& [name, value] : lines)
            width = std::max(width, name.size());
        for (const auto& [name, value] : lines)
            std::fprintf(stream, "%-*s  %s\n", static_cast<int>(width), name.c_str(), value.c_str());
    }
    flush_results();
}

void flush_results()
{
    errno = 0;
    const bool is_flushed = std::fflush(stdout) == 0;
    if (is_flushed && std::ferror(stdout) == 0) // of text that was flushed before
        return;
    if (errno == EBADF)
        fail_output("standard output", "it closed", "an open one, for the results");
    fail_output("standard output",
                errno != 0 ? "an error while writing: " + system_message(errno) : "an error while writing",
                "enough room");
}

void print_warning(const CommonOptions& options, const std::string& message)
{
    if (!options.is_quiet)
        std::fprintf(stderr, "panoval: warning: %s\n", message.c_str());
}

std::string fixed(double value, int digits)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, value);
    return text;
}

} // namespace panoval::cli
