// SPDX-License-Identifier: MIT
#include "cli/base/batch.h"

#include "cli/base/errors.h"
#include "cli/base/file_names.h"
#include "cli/base/number_options.h"
#include "image/image_read.h"
#include "image/standard_streams.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <mutex>
#include <new>
#include <set>
#include <system_error>
#include <thread>

namespace panoval::cli
{

namespace
{

namespace fs = std::filesystem;

constexpr std::size_t kLongestList = 1 << 30;
constexpr std::size_t kMostJobs = 256;

} // namespace

const char* const kBatchHelp = "Of several pictures, OUT has {} in it, which stands for a picture's name without "
                               "folder and ending, or {path} with\n"
                               "the folder. Results come in the order of the pictures. One that fails is reported, the "
                               "rest is done, and the exit\n"
                               "code is 1, or 6 where all fail. --resume keeps each output that is there, can be read "
                               "to its end, has the picture's\n"
                               "size and is not older than it, whatever options it was made with.\n"
                               "\n";

namespace
{

// Where a name leads, with a file or yet without; the name itself where the system cannot tell.
std::string place_of(const std::string& name)
{
    try {
        std::error_code error;
        const fs::path place = fs::weakly_canonical(fs::absolute(path_from_utf8(name), error), error);
        return error ? name : utf8_from_path(place);
    } catch (const std::system_error&) {
        return name;
    }
}

std::string without_ending(const std::string& input)
{
    if (is_standard_stream(input))
        return "stdin";
    return utf8_from_path(path_from_utf8(input).replace_extension());
}

// The state of a batch that its threads share.
class Turns
{
public:
    Turns(const CommonOptions& common, const std::string& label, const std::vector<std::string>& inputs)
        : inputs_(inputs), is_done_(inputs.size(), false), progress_(common.progress_mode(), label, inputs.size())
    {
        end.errors.resize(inputs.size());
    }

    // The next input's number; false when there is none left or the batch has to stop.
    bool take(std::size_t& number)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (stopped_by_ != nullptr || next_ == inputs_.size())
            return false;
        number = next_++;
        progress_.step(inputs_[number]);
        return true;
    }

    // An input has ended. Lines about errors wait for those of the inputs before.
    void finish(std::size_t number, const std::string& error)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        end.errors[number] = error;
        end.failed += error.empty() ? 0 : 1;
        is_done_[number] = true;
        for (; reported_ < inputs_.size() && is_done_[reported_]; ++reported_) {
            if (end.errors[reported_].empty())
                continue;
            progress_.clear();
            std::fprintf(stderr, "panoval: %s\n", end.errors[reported_].c_str());
        }
    }

    void stop(const std::exception_ptr& because)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (stopped_by_ == nullptr)
            stopped_by_ = because;
    }

    void rethrow() const
    {
        if (stopped_by_ != nullptr)
            std::rethrow_exception(stopped_by_);
    }

    BatchEnd end;

private:
    const std::vector<std::string>& inputs_;
    std::vector<bool> is_done_;
    Progress progress_;
    std::mutex mutex_;
    std::size_t next_ = 0;
    std::size_t reported_ = 0;
    std::exception_ptr stopped_by_;
};

// A picture's own faults are its result; everything else (an interruption, a defect) stops the batch.
void take_turns(Turns& turns, const std::vector<std::string>& inputs, const std::function<void(std::size_t)>& work)
{
    for (std::size_t i = 0; turns.take(i);) {
        try {
            work(i);
            turns.finish(i, "");
        } catch (const Failure& failure) {
            turns.finish(i, failure.what());
        } catch (const std::bad_alloc&) {
            turns.finish(i, concat(printable(inputs[i]), ": not enough memory"));
        } catch (...) {
            turns.stop(std::current_exception());
        }
    }
}

void run_alone(const CommonOptions& common, const std::string& label, const std::string& input,
               const std::function<void(std::size_t)>& work)
{
    Progress progress(common.progress_mode(), label, 1);
    progress.step(input);
    work(0);
}

} // namespace

void add_batch_options(CLI::App& command, BatchOptions& options)
{
    command.add_option("IMAGE", options.given, "The pictures, - for standard input");
    command
        .add_option("--files-from", options.list,
                    "Also take the pictures that this file names, one a line or each ended by a zero byte; - for "
                    "standard input")
        ->type_name("FILE");
    command.add_option("--jobs", options.jobs, "Pictures at a time (default 1); each needs its memory")
        ->transform(whole_number(1, kMostJobs))
        ->type_name("N");
    command.add_flag("--resume", options.resumes,
                     "Leave outputs alone that are there, whole and not older than their picture");
}

std::vector<std::string> batch_inputs(const BatchOptions& options)
{
    std::vector<std::string> inputs = options.given;
    const bool has_stream = std::any_of(inputs.begin(), inputs.end(), is_standard_stream);
    if (has_stream && is_standard_stream(options.list))
        fail_usage("found - as a picture and as the list of --files-from; expected it once: both are standard input");
    if (!options.list.empty()) {
        const std::string text = read_text_file(options.list, "names of pictures, one a line", kLongestList);
        const char separator = text.find('\0') == std::string::npos ? '\n' : '\0'; // the latter by find -print0
        for (std::size_t start = 0; start < text.size();) {
            const std::size_t end = std::min(text.find(separator, start), text.size());
            std::string name = text.substr(start, end - start);
            if (separator == '\n' && !name.empty() && name.back() == '\r')
                name.pop_back();
            if (!name.empty())
                inputs.push_back(name);
            start = end + 1;
        }
    }
    if (inputs.empty() && options.list.empty())
        fail_usage("there is no picture; expected IMAGE... or --files-from FILE (see --help)");
    if (inputs.empty())
        fail_input(options.list, "no name", "names of pictures, one a line");
    return inputs;
}

std::string name_for(const std::string& pattern, const std::string& input)
{
    if (pattern.find('{') == std::string::npos)
        return pattern;
    const std::string path = without_ending(input);
    const std::string stem = utf8_from_path(path_from_utf8(path).filename());
    std::string name;
    for (std::size_t i = 0; i < pattern.size();) {
        const bool is_stem = pattern.compare(i, 2, "{}") == 0;
        const bool is_path = pattern.compare(i, 6, "{path}") == 0;
        name += is_stem ? stem : is_path ? path : pattern.substr(i, 1);
        i += is_stem ? 2 : is_path ? 6 : 1;
    }
    return name;
}

std::vector<std::string> names_for(const std::string& option, const std::string& pattern,
                                   const std::vector<std::string>& inputs)
{
    const bool is_pattern = pattern.find("{}") != std::string::npos || pattern.find("{path}") != std::string::npos;
    if (inputs.size() > 1 && !is_pattern)
        fail_usage(concat(option, ": found one name, '", printable(pattern), "', for ", inputs.size(),
                          " pictures; expected {} in it, which stands for each picture's name"));
    std::set<std::string> taken;
    for (const std::string& input : inputs)
        if (inputs.size() > 1 && !is_standard_stream(input))
            taken.insert(place_of(input));
    std::set<std::string> outputs;
    std::vector<std::string> names;
    for (const std::string& input : inputs) {
        const std::string name = name_for(pattern, input);
        const std::string place = is_standard_stream(name) ? name : place_of(name);
        if (taken.count(place) != 0)
            fail_usage(concat(option, ": '", printable(name), "' is one of the pictures; expected another name"));
        if (!outputs.insert(place).second)
            fail_usage(
                concat(option, ": '", printable(name),
                       "' would be written twice; expected pictures of different names, or {path} in place of {}"));
        names.push_back(name);
    }
    return names;
}

BatchEnd run_batch(const BatchOptions& options, const CommonOptions& common, const std::string& label,
                   const std::vector<std::string>& inputs, const std::function<void(std::size_t)>& work)
{
    if (is_alone(options)) {
        run_alone(common, label, inputs.front(), work);
        return {{""}, 0};
    }
    Turns turns(common, label, inputs);
    std::vector<std::thread> others;
    for (std::size_t i = 1; i < std::min(options.jobs, inputs.size()); ++i) {
        try {
            others.emplace_back([&] { take_turns(turns, inputs, work); });
        } catch (const std::system_error&) { // the system gives no more
            break;
        }
    }
    take_turns(turns, inputs, work);
    for (std::thread& other : others)
        other.join();
    turns.rethrow();
    return turns.end;
}

void end_batch(const BatchEnd& end)
{
    if (end.failed > 0)
        throw end.failed == end.errors.size() ? ExitCode::AllFailed : ExitCode::SomeFailed;
}

FileResult kept_result(const std::string& output)
{
    return {{{"output", output}, {"kept", true}}, {{"output", concat(printable(output), ", kept")}}};
}

void print_file_results(const BatchOptions& options, const CommonOptions& common,
                        const std::vector<std::string>& inputs, const std::vector<FileResult>& results,
                        const BatchEnd& end)
{
    if (is_alone(options)) {
        print_results(common, results.front().json, results.front().lines);
        return;
    }
    Json images = Json::array();
    Json failures = Json::array();
    ResultLines lines;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        Json image = {{"file", inputs[i]}};
        if (end.errors[i].empty()) {
            image.update(results[i].json);
            lines.emplace_back(printable(inputs[i]), results[i].lines.front().second);
        } else {
            image["error"] = end.errors[i];
            failures.push_back(image);
        }
        images.push_back(image);
    }
    print_results(common, {{"images", images}, {"failures", failures}}, lines);
}

bool is_alone(const BatchOptions& options)
{
    return options.given.size() == 1 && options.list.empty();
}

bool is_newer(const std::string& output, const std::string& input)
{
    try {
        std::error_code error;
        const auto made = fs::last_write_time(path_from_utf8(output), error);
        if (error)
            return false;
        const auto changed = fs::last_write_time(path_from_utf8(input), error);
        return !error && made >= changed;
    } catch (const std::system_error&) {
        return false;
    }
}

bool is_whole_picture(const std::string& output, const std::string& input)
{
    if (is_standard_stream(output) || is_standard_stream(input) || !is_newer(output, input))
        return false;
    try {
        const ImageInfo info = probe_image(input).front();
        const Image image = read_image(output);
        return image.width == info.width && image.height == info.height;
    } catch (const Failure&) {
        return false;
    }
}

} // namespace panoval::cli
