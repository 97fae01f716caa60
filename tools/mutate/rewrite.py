# SPDX-License-Identifier: MIT
"""Writes mutants into sources: each expression becomes `(PMUT(number) ? mutated : original)`, each statement that a
mutant drops stands behind `if (!PMUT(number))`. One build then serves all of them, and lines keep their numbers."""

HEADER = b'#include "core/mutant.h"'


class Node:
    def __init__(self, start, end, statement):
        self.start, self.end, self.statement = start, end, statement
        self.mutants = []  # (number, text)
        self.inner = []


def nested(sites):
    """The sites of one file as trees; what overlaps without lying inside is returned apart."""
    roots, path, refused = [], [], []
    for number, site in sorted(sites, key=lambda item: (item[1].start, -item[1].end, not item[1].statement)):
        while path and path[-1].end <= site.start:
            path.pop()
        last = path[-1] if path else None
        if last and (last.start, last.end, last.statement) == (site.start, site.end, site.statement):
            last.mutants.append((number, site.mutated))
            continue
        if last and site.end > last.end:
            refused.append(number)
            continue
        node = Node(site.start, site.end, site.statement)
        node.mutants.append((number, site.mutated))
        (last.inner if last else roots).append(node)
        path.append(node)
    return roots, refused


def written(data, start, end, nodes):
    pieces = []
    for node in nodes:
        pieces.append(data[start:node.start])
        inner = written(data, node.start, node.end, node.inner)
        if node.statement:
            condition = " && ".join(f"!PMUT({number})" for number, _ in node.mutants)
            pieces.append(f"{{ if ({condition}) ".encode() + inner + b" }")
        else:
            choice = "".join(f"PMUT({number}) ? ({text}) : " for number, text in node.mutants)
            pieces.append(f"({choice}(".encode() + inner + b"))")
        start = node.end
    pieces.append(data[start:end])
    return b"".join(pieces)


def rewrite(data, sites):
    """The text of a file with its mutants, [(number, site)]; its first line, a comment, makes room for the switch."""
    roots, refused = nested(sites)
    text = written(data, 0, len(data), roots)
    first, rest = text.split(b"\n", 1)
    assert first.startswith(b"//"), first
    return HEADER + b"\n" + rest, refused
