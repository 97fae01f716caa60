// SPDX-License-Identifier: MIT
// Computes the table of results and compares it with the expected one:
//     bits [--target NAME] TABLE      every instruction set of this machine in turn, or the named one
//     bits --write TABLE              writes the table
//     bits --targets                  names the instruction sets
// Ends with 1 where a line differs. What routines print goes to standard output, the findings to standard error.
#include "tests/bits/bits.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <hwy/targets.h>
#include <map>

namespace panoval::bits
{

std::vector<Section> all_sections()
{
    std::vector<Section> all;
    for (const auto& list : {container_sections(), blending_sections(), filter_sections(), detection_sections(),
                             seam_sections(), mosaic_sections(), measure_sections()})
        all.insert(all.end(), list.begin(), list.end());
    return all;
}

namespace
{

std::string digest_of(const Section& section)
{
    Digest digest;
    section.run(digest);
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(digest.value()));
    return text;
}

// Lines of a digest, a space and a name; a missing file is an empty table.
std::map<std::string, std::string> read_table(const char* name)
{
    std::map<std::string, std::string> table;
    std::ifstream file(name);
    std::string line;
    while (std::getline(file, line)) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.size() > 17)
            table[line.substr(17)] = line.substr(0, 16);
    }
    return table;
}

int write_table(const char* name)
{
    std::ofstream file(name, std::ios::binary);
    for (const Section& section : all_sections())
        file << digest_of(section) << ' ' << section.name << '\n';
    return file.flush() ? 0 : 1;
}

int compare(const std::map<std::string, std::string>& table, const char* target)
{
    int different = 0;
    for (const Section& section : all_sections()) {
        const std::string digest = digest_of(section);
        const auto expected = table.find(section.name);
        if (expected != table.end() && expected->second == digest)
            continue;
        ++different;
        std::fprintf(stderr, "%s: %s instead of %s for %s\n", target, digest.c_str(),
                     expected == table.end() ? "nothing" : expected->second.c_str(), section.name.c_str());
    }
    return different;
}

int compare_targets(const char* table_name, const char* wanted)
{
    const auto table = read_table(table_name);
    int compared = 0;
    int different = table.size() == all_sections().size() ? 0 : 1;
    if (different != 0)
        std::fprintf(stderr, "%s has %zu lines instead of %zu\n", table_name, table.size(), all_sections().size());
    for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
        if (wanted != nullptr && std::strcmp(hwy::TargetName(target), wanted) != 0)
            continue;
        hwy::SetSupportedTargetsForTest(target);
        different += compare(table, hwy::TargetName(target));
        std::fprintf(stderr, "%s compared\n", hwy::TargetName(target));
        ++compared;
    }
    if (compared == 0)
        std::fprintf(stderr, "this machine has no instruction set %s\n", wanted != nullptr ? wanted : "at all");
    return compared > 0 && different == 0 ? 0 : 1;
}

int main_of(const std::vector<std::string>& arguments)
{
    if (arguments.size() == 1 && arguments[0] == "--targets") {
        for (const std::int64_t target : hwy::SupportedAndGeneratedTargets())
            std::printf("%s\n", hwy::TargetName(target));
        return 0;
    }
    if (arguments.size() == 2 && arguments[0] == "--write")
        return write_table(arguments[1].c_str());
    if (arguments.size() == 3 && arguments[0] == "--target")
        return compare_targets(arguments[2].c_str(), arguments[1].c_str());
    if (arguments.size() == 1)
        return compare_targets(arguments[0].c_str(), nullptr);
    std::fprintf(stderr, "usage: bits [--target NAME | --write] TABLE, or bits --targets\n");
    return 2;
}

} // namespace

} // namespace panoval::bits

int main(int argc, char** argv)
{
    return panoval::bits::main_of({argv + 1, argv + argc});
}
