// SPDX-License-Identifier: MIT
#include "tests/support/golden.h"

#include <algorithm>
#include <cmath>
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

std::vector<std::string> lines_of(const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::string first_word(const std::string& line)
{
    std::string word;
    std::istringstream(line) >> word;
    return word;
}

double number_in(const std::string& line)
{
    const auto equals = line.find('=');
    return equals == std::string::npos ? std::nan("") : std::strtod(line.c_str() + equals + 1, nullptr);
}

bool is_close(const std::string& line, const std::string& expected, const LooseLines& loose)
{
    if (line == expected)
        return true;
    const std::string word = first_word(line);
    if (word != first_word(expected) || std::find(loose.words.begin(), loose.words.end(), word) == loose.words.end())
        return false;
    return std::fabs(number_in(line) - number_in(expected)) <= loose.tolerance;
}

} // namespace

testing::AssertionResult equals_golden(const std::string& name, const std::string& text, const LooseLines& loose)
{
    if (const char* const folder = std::getenv("PANOVAL_WRITE_GOLDEN"))
        return written(folder + ("/" + name), text);
    std::ifstream file(PANOVAL_GOLDEN_DIR "/" + name, std::ios::binary);
    if (!file)
        return testing::AssertionFailure() << "no golden file " << name;
    const auto expected = lines_of({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
    const auto actual = lines_of(text);
    for (std::size_t i = 0; i < std::min(actual.size(), expected.size()); ++i)
        if (!is_close(actual[i], expected[i], loose))
            return testing::AssertionFailure()
                   << name << ", line " << i + 1 << ": " << actual[i] << "\ninstead of " << expected[i];
    if (actual.size() != expected.size())
        return testing::AssertionFailure() << name << ": " << actual.size() << " lines instead of " << expected.size();
    return testing::AssertionSuccess();
}

} // namespace panoval::test
