// SPDX-License-Identifier: MIT
// One command over many pictures that do not depend on each other: lists, several at a time, results in the order of
// the inputs, none stopped by another one's error, and what is done already left alone.
#pragma once

#include "cli/base/common_options.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace panoval::cli
{

struct BatchOptions {
    std::vector<std::string> given; // on the command line
    std::string list;               // the file of --files-from
    std::size_t jobs = 1;
    bool resumes = false;
};

// IMAGE..., --files-from, --jobs, --resume.
void add_batch_options(CLI::App& command, BatchOptions& options);

// What is to be done, in order: the names given and those of the list, a name a line, or ended by zero bytes. Fails
// where there is none, and where standard input would be both a picture and the list.
std::vector<std::string> batch_inputs(const BatchOptions& options);

// "{}" in the pattern becomes the input's name without folder and ending, "{path}" its name without ending.
std::string name_for(const std::string& pattern, const std::string& input);

// The names for all inputs, in their order. Fails, naming the option, where of several inputs two would have one, or
// one would be the name of an input.
std::vector<std::string> names_for(const std::string& option, const std::string& pattern,
                                   const std::vector<std::string>& inputs);

struct BatchEnd {
    std::vector<std::string> errors; // a line for each input, empty where all went well
    std::size_t failed = 0;
};

// Calls work(i) for every input, several at a time as the options say. Errors are reported in the order of the inputs
// and stop nothing; only a single input, given by its name, ends the command with its own error.
BatchEnd run_batch(const BatchOptions& options, const CommonOptions& common, const std::string& label,
                   const std::vector<std::string>& inputs, const std::function<void(std::size_t)>& work);

// Ends the command with the exit code of inputs that failed, if any did.
void end_batch(const BatchEnd& end);

// Whether it is one picture, given by its name: its results are those of the command.
bool is_alone(const BatchOptions& options);

// What was done with one input.
struct FileResult {
    Json json = Json::object();
    ResultLines lines;
};

// The result of an input that was left alone because its output is there.
FileResult kept_result(const std::string& output);

// The results of all inputs in their order: of a single one by themselves, of several as images[] and failures[], or as
// a line each.
void print_file_results(const BatchOptions& options, const CommonOptions& common,
                        const std::vector<std::string>& inputs, const std::vector<FileResult>& results,
                        const BatchEnd& end);

// What --help says about lists, for commands that write a picture for each input.
extern const char* const kBatchHelp;

// Whether an output of this size is there, can be read to its last byte, and is not older than its input.
bool is_whole_picture(const std::string& output, const std::string& input);

// Whether both are files, and output is not older than input.
bool is_newer(const std::string& output, const std::string& input);

} // namespace panoval::cli
