#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Changes the sources in small ways and looks whether a test notices.

    mutate.py [--count N] [--seed SEED] [--jobs N] [--out FOLDER] [--again FILE] [FOLDER...]

Mutants are drawn by the seed among all places of the folders, all built into one copy of the tree, and switched on one at
a time. Each is tried with the tests that reach it. The report names those that no test notices; what
tools/mutate/explained.txt lists is equivalent to the original, for the reason that stands there.
"""

import argparse
import hashlib
import os
import pickle
import random
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
from build import Tree, arguments_of
from run import Tests
from sites import Finder

ROOT = Path(__file__).resolve().parents[2]
FOLDERS = ["core", "io", "filter", "exposure", "blend", "inpaint", "detect", "libmath", "mosaic", "measure"]
# Test programs beside a folder's own.
OTHERS = {
    "core": ["io_tests", "filter_tests", "exposure_tests", "blend_tests", "detect_tests", "inpaint_tests", "heap_tests",
             "guards_tests"],
    "filter": ["blend_tests", "detect_tests", "heap_tests", "guards_tests"],
    "exposure": ["blend_tests", "heap_tests", "guards_tests"],
    "blend": ["heap_tests", "guards_tests"],
    "inpaint": ["heap_tests", "guards_tests"],
    "detect": ["heap_tests", "guards_tests"],
    "libmath": ["exposure_tests", "detect_tests"],
    "io": ["heap_tests", "guards_tests"],
    "mosaic": ["heap_tests", "guards_tests"],
    "measure": ["measure_heap_tests", "guards_tests"],
}


def all_sites(tree, commands, folders, cache):
    """Every site of the folders; kept until a source, or what looks for them, changes."""
    finder = Finder(str(tree.copy), folders)
    key = hashlib.sha256(repr(folders).encode() + Path(__file__).with_name("sites.py").read_bytes())
    for name in sorted(tree.originals):
        if name.startswith(tuple(folders)):
            key.update(tree.originals[name])
    if cache.exists():
        kept, sites = pickle.loads(cache.read_bytes())
        if kept == key.digest():
            return sites
    for command in commands:
        name = command["file"]
        if name.startswith(finder.folders):
            finder.parse(name, arguments_of(command["command"]))
    sites = sorted(finder.sites.values(), key=lambda site: (site.path, site.start, site.end, site.kind, site.mutated))
    cache.write_bytes(pickle.dumps((key.digest(), sites)))
    return sites


def explained():
    """{(file, original, mutated[, source line]): reason}: a line each, and a reason that goes for all above it."""
    reasons, keys = {}, []
    path = Path(__file__).resolve().parent / "explained.txt"
    for line in path.read_text(encoding="utf-8").splitlines() if path.exists() else []:
        if line.startswith("because: "):
            reasons.update({key: line[9:] for key in keys})
            keys = []
        elif line and not line.startswith("#"):
            keys.append(tuple(part.strip() for part in line.split(" => ")))
    return reasons


def key_of(site):
    """With the line that it begins in, which tells one 0 from another; a list may leave that out."""
    return site.path, site.original, site.mutated or "(nothing)", site.source_line


def reason_for(site, reasons):
    key = key_of(site)
    return reasons.get(key) or reasons.get(key[:3])


def listed(path):
    """The keys of the survivors of a run before."""
    lines = path.read_text(encoding="utf-8").splitlines()
    return {tuple(part.strip() for part in line.split(" => ")) for line in lines if line.startswith("    ")}


def try_all(tests, sites, jobs, budget, survivors):
    """What became of each; survivors are also told as they are found."""
    results = {}

    def one(item):
        number, site = item
        folder = site.path.split("/")[0]
        results[number] = tests.verdict(number, f"{folder}_tests", budget)
        if results[number][0] in ("survived", "unreached"):
            survivors.write(described(site, results[number][0]))
            survivors.flush()
        if len(results) % 50 == 0:
            print(f"mutate: {len(results)} of {len(sites)} tried", flush=True)

    with ThreadPoolExecutor(jobs) as pool:
        list(pool.map(one, sites.items()))
    return results


def described(site, verdict):
    return f"{site.path}:{site.line}: {verdict}: {site.kind}\n    {' => '.join(key_of(site))}\n"


def report(sites, results, broken, out):
    reasons = explained()
    counts, lines = {}, []
    for number, (verdict, _) in sorted(results.items()):
        site = sites[number]
        if verdict in ("survived", "unreached") and reason_for(site, reasons):
            verdict = "explained"
        folder = site.path.split("/")[0]
        counts.setdefault(folder, {}).setdefault(verdict, 0)
        counts[folder][verdict] += 1
        if verdict in ("survived", "unreached"):
            lines.append(described(site, verdict))
    (out / "survivors.txt").write_text("".join(lines), encoding="utf-8")
    columns = ["killed", "timeout", "survived", "unreached", "explained"]
    table = [["folder", *columns]] + [[f, *(str(counts[f].get(c, 0)) for c in columns)] for f in counts]
    table.append(["all", *(str(sum(c.get(column, 0) for c in counts.values())) for column in columns)])
    text = "".join("  ".join(f"{cell:>10}" for cell in row) + "\n" for row in table)
    print("".join(lines) + "\n" + text + f"{len(broken)} more do not compile; survivors in {out}/survivors.txt")
    (out / "table.txt").write_text(text, encoding="utf-8")
    return 0 if not lines else 1


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folders", nargs="*", default=FOLDERS)
    parser.add_argument("--count", type=int, default=1000)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--no-headers", action="store_true", help="none in headers, which many sources include")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--budget", type=float, default=60.0, help="processor seconds of slow tests for a mutant")
    parser.add_argument("--again", type=Path, help="only those of the drawn that this list of survivors has")
    parser.add_argument("--out", type=Path, default=ROOT / "build" / "mutate")
    options = parser.parse_args()
    options.out = options.out.resolve()
    tree = Tree(ROOT, options.out)
    tree.make()
    tree.restore({})
    every = all_sites(tree, tree.configure(), options.folders, options.out / "sites.pickle")
    if options.no_headers:
        every = [site for site in every if site.path.endswith(".cpp")]
    chosen = random.Random(options.seed).sample(every, min(options.count, len(every)))
    print(f"mutate: {len(chosen)} of {len(every)} mutants", flush=True)
    sites = dict(enumerate(sorted(chosen, key=lambda site: (site.path, site.start)), 1))
    if options.again:
        wanted = listed(options.again)
        sites = {n: site for n, site in sites.items() if key_of(site) in wanted or key_of(site)[:3] in wanted}
    everything = dict(sites)
    programs = [f"{folder}_tests" for folder in options.folders]
    programs += sorted({name for folder in options.folders for name in OTHERS.get(folder, [])} - set(programs))
    broken = tree.compile(sites, programs, options.jobs)
    tests = Tests(programs, str(tree.build))
    tests.record()
    with open(options.out / "survivors.txt", "w", encoding="utf-8") as survivors:
        results = try_all(tests, sites, options.jobs, options.budget, survivors)
    return report(everything, results, broken, options.out)


if __name__ == "__main__":
    sys.exit(main())
