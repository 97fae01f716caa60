#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Prints which share of each folder's lines and branches ran, and where the rest is: coverage_table.py GCOVR.json

Edges on which an exception leaves are no branches. Code that is compiled once per instruction set counts as run where one
of them ran.
"""

import json
import sys
from collections import defaultdict


def counted(file):
    """Of each line its count; of each of its branches the count. Several functions may share a line."""
    lines, branches = defaultdict(int), defaultdict(lambda: defaultdict(int))
    for line in file["lines"]:
        if line.get("gcovr/noncode") or line.get("gcovr/excluded"):
            continue
        number = line["line_number"]
        lines[number] += line["count"]
        for place, branch in enumerate(b for b in line["branches"] if not b["throw"]):
            branches[number][place] += branch["count"]
    return lines, branches


def main():
    with open(sys.argv[1], encoding="utf-8") as stream:
        report = json.load(stream)
    folders = defaultdict(lambda: [0, 0, 0, 0])
    for file in report["files"]:
        lines, branches = counted(file)
        counts = folders[file["file"].split("/")[0]]
        all_branches = [count for of_line in branches.values() for count in of_line.values()]
        for place, found in enumerate((lines.values(), all_branches)):
            counts[2 * place] += sum(count > 0 for count in found)
            counts[2 * place + 1] += len(found)
        never = [number for number, count in sorted(lines.items()) if count == 0]
        partly = [number for number, of_line in sorted(branches.items())
                  if number not in never and 0 in of_line.values()]
        for what, numbers in (("lines that never run", never), ("branches never taken in lines", partly)):
            if numbers:
                print(f"{file['file']}: {what}: {' '.join(map(str, numbers))}")
    print(f"{'folder':12}{'lines':>8}{'run':>9}{'branches':>10}{'taken':>9}")
    for folder, (run, lines, taken, branches) in sorted(folders.items()):
        print(f"{folder:12}{lines:8}{100 * run / max(lines, 1):8.1f}%{branches:10}{100 * taken / max(branches, 1):8.1f}%")


if __name__ == "__main__":
    main()
