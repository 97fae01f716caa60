#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Prints which share of each folder's lines and branches ran, and where the rest is: coverage_table.py GCOVR.json

Fails where a folder has less than tools/coverage_reached.txt says, or a function that is compiled once per instruction set
ran for some of them only. Edges on which an exception leaves are no branches. In files that are compiled once per instruction set,
a line that asks nothing has none either: what it has comes from the vector functions that the compiler puts into it.
"""

import json
import re
import sys
from collections import defaultdict
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
INSTRUCTION_SET = re.compile(r"\bN_[A-Z0-9_]+\b")
CHOICE = re.compile(r"\b(if|for|while|do|case|switch)\b|\?|&&|\|\||[=!<>]=| [<>] ")


def counted(file):
    """The counts of each line, and of its branches."""
    source = (ROOT / file["file"]).read_text(encoding="utf-8").splitlines()
    has_vectors = "#define HWY_TARGET_INCLUDE" in "\n".join(source)
    lines, branches = {}, {}
    for line in file["lines"]:
        if line.get("gcovr/noncode") or line.get("gcovr/excluded"):
            continue
        number = line["line_number"]
        lines[number] = line["count"]
        if not has_vectors or CHOICE.search(source[number - 1]):
            branches[number] = [branch["count"] for branch in line["branches"] if not branch["throw"]]
    return lines, branches


def missing_instruction_sets(file):
    """Functions that ran, but not for all the instruction sets that another function of the file is compiled for."""
    runs = defaultdict(dict)
    for function in file["functions"]:
        name = function["name"]
        found = INSTRUCTION_SET.search(name)
        # vectors of so many lanes are another type for each instruction set
        if found and "Simd<" not in name:
            runs[INSTRUCTION_SET.sub("N", name)][found.group()] = function["execution_count"]
    return [f"{name}: {target}" for name, of_target in sorted(runs.items())
            for target, count in sorted(of_target.items()) if count == 0]


def print_gaps(file, lines, branches):
    never = [number for number, count in sorted(lines.items()) if count == 0]
    partly = [number for number, counts in sorted(branches.items()) if lines[number] > 0 and 0 in counts]
    missing = missing_instruction_sets(file)
    for what, gaps in (("lines that never run", never), ("branches never taken in lines", partly),
                       ("never run with", missing)):
        if gaps:
            print(f"{file['file']}: {what}: {' '.join(map(str, gaps))}")
    return missing


def reached():
    """folder: least per cent of its lines and branches"""
    rows = (ROOT / "tools/coverage_reached.txt").read_text(encoding="utf-8").splitlines()
    return {folder: (float(lines), float(branches))
            for folder, lines, branches in (row.split() for row in rows if row and not row.startswith("#"))}


def per_cent(counts):
    """Cut to one decimal, so that 100 is all of them."""
    return 1000 * sum(count > 0 for count in counts) // max(len(counts), 1) / 10


def main():
    with open(sys.argv[1], encoding="utf-8") as stream:
        report = json.load(stream)
    folders = defaultdict(lambda: ([], []))
    failed = False
    for file in report["files"]:
        lines, branches = counted(file)
        failed |= bool(print_gaps(file, lines, branches))
        of_folder = folders[file["file"].split("/")[0]]
        of_folder[0].extend(lines.values())
        of_folder[1].extend(count for counts in branches.values() for count in counts)
    print(f"{'folder':12}{'lines':>8}{'run':>9}{'branches':>10}{'taken':>9}")
    least = reached()
    for folder, (lines, branches) in sorted(folders.items()):
        share = (per_cent(lines), per_cent(branches))
        print(f"{folder:12}{len(lines):8}{share[0]:8.1f}%{len(branches):10}{share[1]:8.1f}%")
        for what, now, before in zip(("lines", "branches"), share, least.get(folder, (0, 0))):
            if now < before:
                print(f"coverage_table.py: {folder}: {now} % of the {what}, {before} % were reached before", file=sys.stderr)
                failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
