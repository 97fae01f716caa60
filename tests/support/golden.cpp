// SPDX-License-Identifier: MIT
#include "tests/support/golden.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

namespace panoval::test
{
namespace
{

testing::AssertionResult written(const std::string& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file)
        return testing::AssertionFailure() << "cannot write " << path;
    return testing::AssertionSuccess();
}

} // namespace

testing::AssertionResult equals_golden(const std::string& name, const std::string& text)
{
    if (const char* const folder = std::getenv("PANOVAL_WRITE_GOLDEN"))
        return written(folder + ("/" + name), text);
    std::ifstream file(PANOVAL_GOLDEN_DIR "/" + name, std::ios::binary);
    if (!file)
        return testing::AssertionFailure() << "no golden file " << name;
    const std::string expected{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (text == expected)
        return testing::AssertionSuccess();
    std::istringstream actual_lines(text);
    std::istringstream expected_lines(expected);
    std::string actual_line;
    std::string expected_line;
    int line = 0;
    do {
        ++line;
        actual_line = expected_line = "(end of file)";
        std::getline(actual_lines, actual_line);
        std::getline(expected_lines, expected_line);
    } while (actual_line == expected_line && (actual_lines || expected_lines));
    return testing::AssertionFailure() << name << ", line " << line << ": " << actual_line << "\ninstead of "
                                       << expected_line;
}

} // namespace panoval::test
