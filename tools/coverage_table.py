#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Prints which share of each folder's lines and branches ran, and where the rest is: coverage_table.py EXPORT.json

EXPORT.json is what `llvm-cov export` says of the test programs. Fails where a folder has less than
tools/coverage_reached.txt says, or where code that is compiled once per instruction set ran for some of them only. A
condition that is a constant has no branches. What a line with COUNT_EXCL has, or lines between COUNT_EXCL_START and
COUNT_EXCL_STOP, is left out; COUNT_EXCL_BRANCH leaves out branches alone, and which instruction sets ran the line, as
`if constexpr` before it does. The reason stands behind it. Comparisons that the compiler writes (`= default`) have no
branches here: Clang counts one outcome of theirs alone.
"""

import json
import re
import subprocess
import sys
from collections import defaultdict
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
INSTRUCTION_SET = re.compile(r"\bN_[A-Z0-9_]+\b")
CODE, ENTRY = 0, 3  # kinds of regions; an entry of a segment


def excluded(path):
    """The lines that do not count, and those whose branches do not."""
    lines, branches, inside, chosen = set(), set(), False, False
    for number, text in enumerate((ROOT / path).read_text(encoding="utf-8").splitlines(), 1):
        inside = inside or "COUNT_EXCL_START" in text
        if inside or re.search(r"COUNT_EXCL:", text):
            lines.add(number)
        if chosen or "COUNT_EXCL_BRANCH" in text or text.endswith("= default;"):
            branches.add(number)
        chosen = "if constexpr" in text
        inside = inside and "COUNT_EXCL_STOP" not in text
    return lines, branches | lines


def line_counts(segments):
    """{line: count}, the count of what runs most on it, as llvm-cov has it. Segments are (line, column, count, ...)."""
    starts = defaultdict(list)
    for segment in segments:
        starts[segment[0]].append(segment)
    counts, wrapped = {}, None
    for line in range(min(starts), max(starts) + 1) if starts else []:
        on_line = starts.get(line, [])
        entries = [count for _, _, count, has_count, is_entry, is_gap in on_line if has_count and is_entry and not is_gap]
        is_skipped = bool(on_line) and not on_line[0][3] and on_line[0][4]
        if not is_skipped and (entries or (wrapped and wrapped[3])):
            counts[line] = max(entries + ([wrapped[2]] if wrapped and wrapped[3] else []))
        wrapped = on_line[-1] if on_line else wrapped
    return counts


def branch_counts(branches):
    """{(line, column): [times true, times false]}, of all instances of a template or instruction set together.

    Neither true nor false is a constant; or a condition that was not reached, where another one was never true."""
    counts = defaultdict(lambda: [0, 0])
    for line, column, _, _, when_true, when_false, *_ in branches:
        counts[line, column][0] += when_true
        counts[line, column][1] += when_false
    return {place: both for place, both in counts.items() if both != [0, 0]}


def lines_of_instruction_sets(functions):
    """{file: {instruction set: {line: count}}} of the code that names its instruction set."""
    named = [function for function in functions if "N_" in function["name"]]
    names = subprocess.run(["c++filt"], input="\n".join(f["name"].split(":")[-1].split(";")[-1] for f in named), text=True,
                           capture_output=True, check=True).stdout.splitlines()
    files = defaultdict(lambda: defaultdict(lambda: defaultdict(int)))
    for function, name in zip(named, names):
        found = INSTRUCTION_SET.search(name)
        if not found:
            continue
        for line, _, _, _, count, file_id, _, kind in function["regions"]:
            if kind == CODE:
                files[function["filenames"][file_id]][found.group()][line] += count
    return files


def print_missing(path, targets, skipped, offered):
    """Says which lines ran for some of the machine's instruction sets only."""
    missing = False
    ran = {line for counts in targets.values() for line, count in counts.items() if count > 0}
    for target in sorted(targets.keys() & offered):
        lines = sorted(line for line, count in targets[target].items() if count == 0 and line in ran - skipped)
        if lines:
            print(f"{path}: never run with {target}: {' '.join(map(str, lines))}")
            missing = True
    return missing


def print_gaps(path, lines, branches):
    never = [number for number, count in sorted(lines.items()) if count == 0]
    partly = [f"{line}:{column}" for (line, column), both in sorted(branches.items()) if 0 in both]
    for what, gaps in (("lines that never run", never), ("branches never taken", partly)):
        if gaps:
            print(f"{path}: {what}: {' '.join(map(str, gaps))}")


def reached():
    """folder: least per cent of its lines and branches"""
    rows = (ROOT / "tools/coverage_reached.txt").read_text(encoding="utf-8").splitlines()
    return {folder: (float(lines), float(branches))
            for folder, lines, branches in (row.split() for row in rows if row and not row.startswith("#"))}


def per_cent(counts):
    """Cut to one decimal, so that 100 is all of them."""
    return 1000 * sum(count > 0 for count in counts) // max(len(counts), 1) / 10


def print_table(folders, least):
    """Whether each folder has what it is to have."""
    is_fallen = False
    print(f"{'folder':12}{'lines':>8}{'run':>9}{'branches':>10}{'taken':>9}")
    for folder, before in least.items():
        lines, branches = folders[folder]
        share = (per_cent(lines), per_cent(branches))
        print(f"{folder:12}{len(lines):8}{share[0]:8.1f}%{len(branches):10}{share[1]:8.1f}%")
        for what, now, wanted in zip(("lines", "branches"), share, before):
            if now < wanted:
                print(f"coverage_table.py: {folder}: {now} % of the {what}; {wanted} % are to be reached", file=sys.stderr)
                is_fallen = True
    return not is_fallen


def sources(report, folders):
    """Each file of the folders, with its path from the root."""
    for file in sorted(report["files"], key=lambda file: file["filename"]):
        path = Path(file["filename"])
        if path.is_relative_to(ROOT) and path.relative_to(ROOT).parts[0] in folders:
            yield str(path.relative_to(ROOT)), file


def main():
    with open(sys.argv[1], encoding="utf-8") as stream:
        report = json.load(stream)["data"][0]
    of_targets = lines_of_instruction_sets(report["functions"])
    offered = {target for targets in of_targets.values() for target, counts in targets.items() if any(counts.values())}
    least = reached()
    folders = {folder: ([], []) for folder in least}
    is_missing = False
    for path, file in sources(report, least):
        no_lines, no_branches = excluded(path)
        lines = {line: count for line, count in line_counts(file["segments"]).items() if line not in no_lines}
        branches = {place: both for place, both in branch_counts(file["branches"]).items() if place[0] not in no_branches}
        print_gaps(path, lines, branches)
        is_missing |= print_missing(path, of_targets.get(file["filename"], {}), no_branches, offered)
        of_folder = folders[path.split("/")[0]]
        of_folder[0].extend(lines.values())
        of_folder[1].extend(count for both in branches.values() for count in both)
    return 0 if print_table(folders, least) and not is_missing else 1


if __name__ == "__main__":
    sys.exit(main())
