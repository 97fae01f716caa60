// SPDX-License-Identifier: MIT
// Parsing of the command line, and the one place where whatever goes wrong becomes a line and an exit code.
#include "cli/program.h"

#include "cli/base/common_options.h"
#include "cli/base/errors.h"
#include "cli/base/exhausted_heap.h"
#include "cli/commands.h"
#include "image/interruption.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <sstream>

namespace panoval::cli
{

namespace
{

constexpr std::size_t kNameColumns = 26;
constexpr std::size_t kTextColumns = 92;

// Breaks the descriptions of options into lines that fit beside their names.
class HelpFormatter : public CLI::Formatter
{
public:
    std::string make_option_desc(const CLI::Option* option) const override
    {
        std::istringstream words(Formatter::make_option_desc(option));
        std::string text;
        std::size_t column = 0;
        for (std::string word; words >> word; column += word.size() + 1) {
            if (column != 0 && column + word.size() > kTextColumns) {
                text += '\n';
                column = 0;
            }
            text += column != 0 ? " " + word : word;
        }
        return text;
    }
};

// Needs no heap, which may be exhausted.
int report(ExitCode code, const char* message)
{
    std::fflush(stdout);
    std::fprintf(stderr, "panoval: %s\n", message);
    return static_cast<int>(code);
}

// --help and --version come as errors of their own kind, with the text to print.
int report_parse_error(const CLI::App& program, const CLI::ParseError& error)
{
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        program.exit(error);
        flush_results();
        return static_cast<int>(ExitCode::Done);
    }
    const auto commands = program.get_subcommands();
    const std::string command = commands.empty() ? "" : " " + commands.front()->get_name();
    return report(ExitCode::Usage, concat(printable(error.what(), 1000), " (see panoval", command, " --help)").c_str());
}

// A value that is empty, as of a variable that is not set, is no name, and none of the others either.
void refuse_empty_values(CLI::App& command)
{
    const CLI::Validator is_something(
        [](const std::string& value) {
            return value.empty() ? std::string("found nothing; expected a value") : std::string();
        },
        "");
    for (CLI::Option* const option : command.get_options())
        if (option->get_items_expected_min() > 0)
            option->check(is_something);
}

bool is_command(const CLI::App& program, const std::string& name)
{
    const auto commands = program.get_subcommands([](const CLI::App*) { return true; });
    return std::any_of(commands.begin(), commands.end(),
                       [&](const CLI::App* command) { return command->get_name() == name; });
}

int parse_and_run(CLI::App& program, std::vector<std::string> arguments)
{
    if (arguments.empty()) {
        std::fputs(program.help().c_str(), stderr);
        return static_cast<int>(ExitCode::Usage);
    }
    const std::string& first = arguments.front();
    const bool is_option = first.substr(0, 1) == "-";
    if (is_option && program.get_option_no_throw(first.substr(0, first.find('='))) == nullptr)
        fail_usage(
            concat("found '", printable(first), "' before the command; expected it behind (see panoval --help)"));
    if (!is_option && !is_command(program, first))
        fail_usage(concat("there is no command '", printable(first), "' (see panoval --help)"));
    std::reverse(arguments.begin(), arguments.end()); // as the parser wants them
    try {
        program.parse(std::move(arguments));
        return static_cast<int>(ExitCode::Done);
    } catch (const CLI::ParseError& error) {
        return report_parse_error(program, error);
    }
}

} // namespace

std::unique_ptr<CLI::App> describe_program()
{
    auto program = std::make_unique<CLI::App>(
        "Stitches overlapping pictures into panoramas and measures elliptical targets.", "panoval");
    program->allow_windows_style_options(false); // a path starts with a slash on other systems
    program->set_version_flag("--version", "panoval " PANOVAL_VERSION);
    program->require_subcommand(1);
    program->formatter(std::make_shared<HelpFormatter>());
    program->get_formatter()->column_width(kNameColumns);
    program->get_formatter()->label("SUBCOMMAND", "COMMAND");
    program->footer(concat("panoval COMMAND --help tells about one command, with examples.\n\n", kHelpEnd));
    add_commands(*program);
    for (CLI::App* const command : program->get_subcommands({})) {
        command->group("Commands");
        refuse_empty_values(*command);
    }
    return program;
}

namespace
{

// Of what is caught in run_program. Making a line may run out of memory itself.
int report_failure()
{
    try {
        throw;
    } catch (const UsageError& error) {
        return report(ExitCode::Usage, error.what());
    } catch (const Failure& error) {
        return report(exit_code_of(error.fault()), error.what());
    } catch (const ExitCode code) {
        return static_cast<int>(code);
    } catch (const Interruption& interruption) {
        interruption.finish();
        return static_cast<int>(ExitCode::Internal); // not reached where signals end programs
    } catch (const std::bad_alloc&) {
        return report(ExitCode::Memory, kNoMemory);
    } catch (const std::exception& error) {
        return report(ExitCode::Internal, concat("a defect of this program: ", printable(error.what())).c_str());
    }
}

} // namespace

int run_program(const std::function<std::vector<std::string>()>& arguments)
{
    try {
        try {
            const auto program = describe_program();
            return parse_and_run(*program, arguments());
        } catch (...) {
            return report_failure();
        }
    } catch (const std::bad_alloc&) {
        return report(ExitCode::Memory, kNoMemory);
    }
}

} // namespace panoval::cli
