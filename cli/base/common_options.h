// SPDX-License-Identifier: MIT
// The options that every command has, and the one way in which commands give their results.
#pragma once

#include "cli/base/progress.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <utility>
#include <vector>

namespace CLI
{
class App;
} // namespace CLI

namespace panoval::cli
{

using Json = nlohmann::ordered_json;

struct CommonOptions {
    bool is_quiet = false;
    bool wants_json = false;
    ProgressMode progress = ProgressMode::Auto;

    // What a progress bar is to be made with.
    ProgressMode progress_mode() const { return is_quiet ? ProgressMode::Never : progress; }
};

// --quiet, --progress, --json; the options must outlive the command line's parsing and the command.
void add_common_options(CLI::App& command, CommonOptions& options);

// A name and its value, one line of the results for people.
using ResultLines = std::vector<std::pair<std::string, std::string>>;

// Standard output, or standard error where a picture has gone there: the JSON object with --json, else nothing with
// --quiet, else the aligned lines.
void print_results(const CommonOptions& options, const Json& json, const ResultLines& lines);

// Fails unless all that has been printed is where it belongs. print_results asks it itself.
void flush_results();

// A line on standard error about something that is no reason to stop; nothing with --quiet.
void print_warning(const CommonOptions& options, const std::string& message);

// A number for people, with this many digits after the point.
std::string fixed(double value, int digits);

} // namespace panoval::cli
