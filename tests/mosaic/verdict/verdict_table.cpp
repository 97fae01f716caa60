// SPDX-License-Identifier: MIT
// Prints the table of true and false verdicts on made panoramas: verdict_table [SEEDS [SCENE [FAULT [only]]]]
// With a scene and a fault each case is told in full; with a fourth word the last one alone.
#include "tests/mosaic/verdict/verdict_cases.h"

#include <cstdio>
#include <cstdlib>
#include <map>

using namespace panoval::mosaic;
using namespace panoval::mosaic::test;

namespace
{

void tell(const VerdictCase& made, std::uint64_t seed, const Verdict& verdict)
{
    std::printf("%s %s %llu: %s%s misfits", made.scene.c_str(), made.fault.c_str(),
                static_cast<unsigned long long>(seed), name_of(verdict.word), is_right(made, verdict) ? "" : " WRONG");
    for (const std::size_t misfit : verdict.misfits)
        std::printf(" %zu", misfit);
    std::printf(" expected");
    for (const std::size_t misfit : made.expected.misfits)
        std::printf(" %zu", misfit);
    std::printf("\n");
    for (const OverlapVerdict& o : verdict.overlaps)
        std::printf("   %zu-%zu %s evidence %.2f by %.2f (%.2f %.2f conf %.2f) mismatch %d empty %d step %.2f tone "
                    "%.2f sharp %.2f noise %.2f ghosts %zu | %s\n",
                    o.first, o.second, name_of(o.word), o.evidence, o.displaced_by,
                    o.displacement ? o.displacement->x : 0, o.displacement ? o.displacement->y : 0,
                    o.displacement ? o.displacement->confidence : -1, o.is_mismatch,
                    o.empty ? static_cast<int>(*o.empty) : -1, o.step, o.tone, o.sharpness, o.noise, o.ghosts.size(),
                    o.explanation.c_str());
}

} // namespace

int main(int argc, char** argv)
{
    const int seeds = argc > 1 ? std::atoi(argv[1]) : 2;
    const std::string only_scene = argc > 2 ? argv[2] : "";
    const std::string only_fault = argc > 3 ? argv[3] : "";
    int right = 0;
    int all = 0;
    for (const std::string& fault : verdict_faults()) {
        if (!only_fault.empty() && fault != only_fault)
            continue;
        std::printf("%-11s", fault.c_str());
        std::string wrong;
        std::map<std::string, int> words;
        for (const std::string& scene : verdict_scenes()) {
            if (!only_scene.empty() && only_scene != "all" && scene != only_scene)
                continue;
            int right_here = 0;
            for (int seed = argc > 4 ? seeds : 1; seed <= seeds; ++seed) {
                const VerdictCase made = make_verdict_case(scene, fault, static_cast<std::uint64_t>(seed));
                const Verdict verdict = judge_case(made);
                const bool ok = is_right(made, verdict);
                right_here += ok;
                ++words[name_of(verdict.word)];
                if (!only_fault.empty())
                    tell(made, static_cast<std::uint64_t>(seed), verdict);
            }
            right += right_here;
            all += seeds;
            if (right_here != seeds)
                wrong += " " + scene + ":" + std::to_string(seeds - right_here);
        }
        for (const auto& [word, count] : words)
            std::printf(" %s %d", word.c_str(), count);
        std::printf("   wrong:%s\n", wrong.c_str());
    }
    std::printf("%d of %d right\n", right, all);
}
