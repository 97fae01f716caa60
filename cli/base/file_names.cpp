// SPDX-License-Identifier: MIT
#include "cli/base/file_names.h"

#include "cli/base/errors.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace panoval::cli
{

bool is_same_file(const std::string& a, const std::string& b)
{
    try {
        std::error_code error;
        return std::filesystem::equivalent(path_from_utf8(a), path_from_utf8(b), error) && !error;
    } catch (const std::system_error&) {
        return false;
    }
}

bool is_same_place(const std::string& a, const std::string& b)
{
    namespace fs = std::filesystem;
    try {
        const auto place = [](const std::string& name) {
            return fs::weakly_canonical(fs::absolute(path_from_utf8(name)));
        };
        return is_same_file(a, b) || place(a) == place(b);
    } catch (const std::system_error&) {
        return false;
    }
}

void refuse_to_overwrite(const std::string& output, const std::vector<std::string>& inputs)
{
    for (const std::string& input : inputs)
        if (!output.empty() && !input.empty() && is_same_file(output, input))
            fail_output(output, "a file that is also an input", "another name");
}

void refuse_one_name(const std::vector<std::string>& outputs)
{
    for (std::size_t i = 0; i < outputs.size(); ++i)
        for (std::size_t j = 0; j < i; ++j)
            if (!outputs[i].empty() && !outputs[j].empty() && is_same_place(outputs[i], outputs[j]))
                fail_output(outputs[i], "the name of two outputs", "different names");
}

std::string read_text_file(const std::string& name, const std::string& expected, std::size_t longest)
{
    const FileHandle file = image::open_stream(name, expected);
    std::string text;
    char piece[16384];
    while (const std::size_t count = std::fread(piece, 1, sizeof piece, file.get())) {
        text.append(piece, count);
        if (text.size() > longest)
            fail_input(name, concat("more than ", longest, " bytes"), expected);
    }
    if (std::ferror(file.get()) != 0)
        fail_input(name, "a file that cannot be read: " + system_message(errno), expected);
    return text;
}

} // namespace panoval::cli
