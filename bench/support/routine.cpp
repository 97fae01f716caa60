// SPDX-License-Identifier: MIT
// Runs the cases with Google Benchmark and prints the table. Times are processor times of the one thread, so that other
// work on the machine disturbs the ratios little.
#include "bench/support/routine.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace panoval::bench
{
namespace
{

struct Row {
    std::string routine;
    std::function<Case()> make;
    Case c = {};                                // empty but while the row is measured
    std::map<std::string, double> seconds = {}; // per call, by variant
    bool differs = false;
};

// The table's own way to standard output. Routines that print would write between its lines, so that standard output
// itself leads nowhere while they run.
std::FILE* open_table()
{
#ifdef _WIN32
    std::FILE* const table = _fdopen(_dup(_fileno(stdout)), "w");
    const char* const nowhere = "NUL";
#else
    std::FILE* const table = fdopen(dup(fileno(stdout)), "w");
    const char* const nowhere = "/dev/null";
#endif
    if (table == nullptr || std::freopen(nowhere, "w", stdout) == nullptr) {
        std::fprintf(stderr, "panoval_bench: cannot redirect standard output\n");
        std::exit(2);
    }
    return table;
}

std::vector<std::unique_ptr<Row>>& rows()
{
    static std::vector<std::unique_ptr<Row>> instance;
    return instance;
}

void measure(benchmark::State& state, const std::function<void()>& call, const std::function<void()>& restore)
{
    for (auto _ : state) {
        if (restore) {
            state.PauseTiming();
            restore();
            state.ResumeTiming();
        }
        call();
        benchmark::ClobberMemory();
    }
}

std::function<void()> memcpy_of(std::size_t bytes)
{
    const auto from = std::make_shared<std::vector<char>>(bytes, 'a');
    const auto to = std::make_shared<std::vector<char>>(bytes, 'b');
    return [from, to] {
        std::memcpy(to->data(), from->data(), from->size());
        benchmark::DoNotOptimize(to->data());
    };
}

// Prints a row once its last variant is measured.
class TableReporter : public benchmark::BenchmarkReporter
{
public:
    explicit TableReporter(std::FILE* table) : table_(table) {}

    bool ReportContext(const Context&) override
    {
        if (has_header_)
            return true;
        has_header_ = true;
        std::fprintf(table_, "%-36s %-11s %-10s %10s %10s %9s %9s\n", "routine", "size", "content", "us/call", "MP/s",
                     "x memcpy", "x twin");
        return true;
    }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            // The name is "row number/variant"; with repetitions the median counts.
            const std::string name = run.run_name.function_name;
            if (run.run_type == Run::RT_Aggregate ? run.aggregate_name != "median" : run.repetitions > 1)
                continue;
            const auto slash = name.find('/');
            Row& row = *rows()[std::stoul(name)];
            row.seconds[name.substr(slash + 1)] =
                run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
            if (is_complete(row))
                print(row);
        }
    }

private:
    static bool is_complete(const Row& row)
    {
        return row.seconds.size() == 1u + (row.c.twin ? 1u : 0u) + (row.c.memcpy_bytes != 0 ? 1u : 0u);
    }

    void print(Row& row) const
    {
        const double fast = row.seconds["fast"];
        std::fprintf(table_, "%-36s %-11s %-10s %10.2f %10.1f", row.routine.c_str(), row.c.size.c_str(),
                     row.c.content.c_str(), fast * 1e6, row.c.pixels / fast * 1e-6);
        print_ratio(row, "memcpy", fast);
        print_ratio(row, "twin", fast);
        std::fprintf(table_, "%s\n", row.differs ? "  RESULTS DIFFER" : "");
        std::fflush(table_);
    }

    void print_ratio(Row& row, const char* variant, double fast) const
    {
        if (row.seconds.count(variant) != 0)
            std::fprintf(table_, " %9.2f", row.seconds[variant] / fast);
        else
            std::fprintf(table_, " %9s", "-");
    }

    std::FILE* table_;
    bool has_header_ = false;
};

void register_row(std::size_t number)
{
    Row& row = *rows()[number];
    const auto add = [&](const char* variant, const std::function<void()>& call, const std::function<void()>& restore) {
        benchmark::RegisterBenchmark((std::to_string(number) + "/" + variant).c_str(),
                                     [call, restore](benchmark::State& state) { measure(state, call, restore); });
    };
    if (row.c.memcpy_bytes != 0)
        add("memcpy", memcpy_of(row.c.memcpy_bytes), {});
    if (row.c.twin)
        add("twin", row.c.twin, row.c.restore);
    add("fast", row.c.fast, row.c.restore);
}

bool check(const Case& c)
{
    if (!c.same)
        return true;
    if (c.restore)
        c.restore();
    if (c.twin)
        c.twin();
    if (c.restore)
        c.restore();
    c.fast();
    return c.same();
}

} // namespace

void add_case(std::string routine, std::function<Case()> make)
{
    rows().push_back(std::make_unique<Row>(Row{std::move(routine), std::move(make)}));
}

} // namespace panoval::bench

// panoval_bench [WORD] [--benchmark_min_time=S] [--benchmark_repetitions=N]: the cases whose routine contains WORD, or
// all. Exit code 1 when a result differs from its twin's, 2 when no case is left.
int main(int argc, char** argv)
{
    using namespace panoval::bench;
    benchmark::Initialize(&argc, argv);
    const std::string word = argc > 1 ? argv[1] : "";
    const auto is_asked_for = [&](const auto& row) { return row->routine.find(word) != std::string::npos; };
    if (std::none_of(rows().begin(), rows().end(), is_asked_for)) {
        std::fprintf(stderr, "panoval_bench: no routine's name contains '%s'\n", word.c_str());
        return 2;
    }
    std::FILE* const table = open_table();
    TableReporter reporter(table);
    bool all_same = true;
    for (std::size_t i = 0; i < rows().size(); ++i) {
        if (!is_asked_for(rows()[i]))
            continue;
        Row& row = *rows()[i];
        row.c = row.make();
        row.differs = !check(row.c);
        all_same = all_same && !row.differs;
        register_row(i);
        benchmark::RunSpecifiedBenchmarks(&reporter); // case by case, so that the table grows from the start
        benchmark::ClearRegisteredBenchmarks();
        row.c = {};
    }
    std::fclose(table);
    return all_same ? 0 : 1;
}
