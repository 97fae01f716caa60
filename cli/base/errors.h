// SPDX-License-Identifier: MIT
// How the program says that something is wrong: one line as image/failure.h makes it, and an exit code that a script
// can act upon. Failures and texts are those of the picture files, whose names hold in the whole program.
#pragma once

#include "cli/base/image_names.h"
#include "image/failure.h"
#include "image/text.h"

#include <stdexcept>
#include <string>

namespace panoval::cli
{

enum class ExitCode : int {
    Done = 0,
    SomeFailed = 1, // of several independent inputs, at least one failed; the others are done
    Usage = 2,      // the command line
    Input = 3,      // an input file, or inputs that do not go together
    Output = 4,     // an output file
    Memory = 5,     // not enough memory
    AllFailed = 6,  // of several independent inputs, all failed
    Look = 7,       // asked to be strict: done, but somebody should look at it
    Bad = 8,        // asked to be strict: done, but wrong
    Internal = 70,  // a defect of the program
};

// What every --help ends with: what this build lacks, and the table of exit codes.
extern const char* const kHelpEnd;

ExitCode exit_code_of(Fault fault);

// Something is wrong with the command line. what() is the line for the user, without the program's name.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

[[noreturn]] void fail_usage(const std::string& message);

} // namespace panoval::cli
