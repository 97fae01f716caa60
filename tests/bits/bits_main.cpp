// SPDX-License-Identifier: MIT
// Computes the table of results and compares it with the expected one:
//     bits [--target NAME] TABLE      every instruction set of this machine in turn, or the named one
//     bits --write TABLE              writes the table
//     bits --section NAME TABLE       the line of that name alone, on the fastest instruction set
//     bits --targets                  names the instruction sets
//     bits --threads N TABLE          N times at once on the fastest instruction set, each on records of its own, and
//                                     with N threads in the engine
// Ends with 1 where a line differs. What routines print goes to standard output, the findings to standard error.
#include "tests/bits/bits.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <hwy/targets.h>
#include <map>
#include <memory>
#include <thread>

namespace panoval::bits
{

int engine_threads = 0;

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

// Lines of a digest, a space and a name; a missing file is an empty table. No stream: the memory sanitizer knows
// nothing of what the C++ run-time library's own code sets.
std::map<std::string, std::string> read_table(const char* name)
{
    std::map<std::string, std::string> table;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(name, "r"), std::fclose);
    char text[200];
    while (file != nullptr && std::fgets(text, sizeof text, file.get()) != nullptr) {
        const std::string line(text, std::strcspn(text, "\r\n"));
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

// wanted: the line to look at; null: all.
int compare(const std::map<std::string, std::string>& table, const char* target, const char* wanted = nullptr)
{
    int different = 0;
    for (const Section& section : all_sections()) {
        if (wanted != nullptr && section.name != wanted)
            continue;
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

int compare_section(const char* table_name, const char* wanted)
{
    const auto table = read_table(table_name);
    if (table.count(wanted) == 0) {
        std::fprintf(stderr, "%s has no line for %s\n", table_name, wanted);
        return 2;
    }
    return compare(table, "fastest", wanted) == 0 ? 0 : 1;
}

// The sections that one of several threads runs: all of them, each thread from another one on.
void compare_from(std::size_t first, const std::map<std::string, std::string>& table, int& different)
{
    const auto sections = all_sections();
    for (std::size_t i = 0; i < sections.size(); ++i) {
        const Section& section = sections[(first + i) % sections.size()];
        const std::string digest = digest_of(section);
        const auto expected = table.find(section.name);
        if (expected != table.end() && expected->second == digest)
            continue;
        ++different;
        std::fprintf(stderr, "beside other threads: %s for %s\n", digest.c_str(), section.name.c_str());
    }
}

int compare_at_once(const char* table_name, int threads)
{
    if (threads < 1 || threads > 64) {
        std::fprintf(stderr, "--threads %d: expected 1 to 64\n", threads);
        return 2;
    }
    engine_threads = threads;
    const auto table = read_table(table_name);
    const auto count = static_cast<std::size_t>(threads);
    std::vector<int> different(count, 0);
    std::vector<std::thread> running;
    for (std::size_t i = 0; i < count; ++i)
        running.emplace_back([&, i] { compare_from(i * all_sections().size() / count, table, different[i]); });
    for (std::thread& thread : running)
        thread.join();
    std::fprintf(stderr, "%d threads compared\n", threads);
    return different == std::vector<int>(count, 0) ? 0 : 1;
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
    if (arguments.size() == 3 && arguments[0] == "--section")
        return compare_section(arguments[2].c_str(), arguments[1].c_str());
    if (arguments.size() == 3 && arguments[0] == "--threads")
        return compare_at_once(arguments[2].c_str(), std::atoi(arguments[1].c_str()));
    if (arguments.size() == 1)
        return compare_targets(arguments[0].c_str(), nullptr);
    std::fprintf(stderr,
                 "usage: bits [--target NAME | --section NAME | --write | --threads N] TABLE, or bits --targets\n");
    return 2;
}

} // namespace

} // namespace panoval::bits

int main(int argc, char** argv)
{
    return panoval::bits::main_of({argv + 1, argv + argc});
}
