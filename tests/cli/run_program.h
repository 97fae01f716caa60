// SPDX-License-Identifier: MIT
// Runs a program that the build has put beside the tests, as a user would.
#pragma once

#include <string>
#include <vector>

namespace panoval::cli::test
{

struct Outcome {
    int exit_code = -1;
    std::string out; // standard output
    std::string err; // standard error
};

// Arguments are UTF-8. program is a name in the folder of the running test, without ".exe"; input is the file that
// standard input comes from, that of the test without it.
Outcome run_program(const std::string& program, const std::vector<std::string>& arguments,
                    const std::string& input = "");

inline Outcome run_panoval(const std::vector<std::string>& arguments, const std::string& input = "")
{
    return run_program("panoval", arguments, input);
}

} // namespace panoval::cli::test
