// SPDX-License-Identifier: MIT
#include "cli/base/errors.h"

namespace panoval::cli
{

const char* const kHelpEnd = "Exit codes:\n"
                             "  0  done\n"
                             "  1  some of several inputs failed, the others are done\n"
                             "  2  the command line is wrong, or an output's name has no known ending\n"
                             "  3  an input file is missing, damaged or unsuitable\n"
                             "  4  an output file cannot be written\n"
                             "  5  not enough memory\n"
                             "  6  all of several inputs failed\n"
                             "  7  stitch --strict: the panorama is done, look at what the verdict names\n"
                             "  8  stitch --strict: the panorama is done, and something is wrong with it\n"
                             " 70  a defect of this program\n";

ExitCode exit_code_of(Fault fault)
{
    switch (fault) {
    case Fault::Input:
        return ExitCode::Input;
    case Fault::Output:
        return ExitCode::Output;
    case Fault::Memory:
        return ExitCode::Memory;
    case Fault::Name:
        return ExitCode::Usage;
    }
    return ExitCode::Internal;
}

void fail_usage(const std::string& message)
{
    throw UsageError(message);
}

} // namespace panoval::cli
