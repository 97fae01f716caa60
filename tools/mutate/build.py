# SPDX-License-Identifier: MIT
"""Makes the copy of the tree that holds the mutants, and builds the test programs in it."""

import json
import os
import re
import shlex
import subprocess
from pathlib import Path

from rewrite import rewrite

HERE = Path(__file__).resolve().parent
ROUNDS = 12  # of leaving out what does not compile


def arguments_of(command):
    """What libclang needs of a compiler's command line."""
    result, words = [], iter(shlex.split(command))
    for word in words:
        if word in ("-isystem", "-I"):
            result += [word, next(words)]
        elif word.startswith(("-I", "-D", "-std=")):
            result.append(word)
    return result + ["-x", "c++", "-DHWY_COMPILE_ONLY_STATIC"]


class Tree:
    def __init__(self, root, place):
        # What the mutants are put into: the tree as it was when the copy was made, whatever happens to it meanwhile.
        self.originals = {}
        # Laid out as the tree itself, so that a compiler cache knows what holds no mutant.
        self.root, self.copy = Path(root), Path(place) / "tree"
        self.build = self.copy / "build" / "release"

    def make(self):
        self.copy.mkdir(parents=True, exist_ok=True)
        names = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=self.root, check=True,
                               capture_output=True, text=True).stdout.split("\n")
        wanted = {name for name in names if name and (self.root / name).is_file()}
        for name in wanted:
            self.originals[name] = (self.root / name).read_bytes()
            self.update(name, self.originals[name])
        for old in self.copy.rglob("*_test.cpp"):
            if str(old.relative_to(self.copy)) not in wanted:
                old.unlink()
        if not (self.copy / "build").exists():
            (self.copy / "build").mkdir()
            (self.copy / "build" / "deps").symlink_to(self.root / "build" / "deps")
        self.update("core/mutant.h", (HERE / "mutant.h.in").read_bytes())
        self.update("tests/support/main.cpp", (HERE / "mutant_main.cpp.in").read_bytes())

    def update(self, name, data):
        """Writes a file only where it changes, so that little is built again."""
        path = self.copy / name
        if path.is_file() and path.read_bytes() == data:
            return
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)

    def configure(self):
        launcher = f"sh;{HERE}/compile.sh"
        subprocess.run(["cmake", "--preset", "release", "-DPANOVAL_CLI=OFF", "-DPANOVAL_BENCH=OFF",
                        f"-DCMAKE_CXX_COMPILER_LAUNCHER={launcher}"], cwd=self.copy, check=True,
                       stdout=subprocess.DEVNULL)
        return json.loads((self.build / "compile_commands.json").read_text())

    def insert(self, sites):
        """Puts the mutants {number: site} into the copy; returns those that overlap others."""
        files, refused = {}, []
        for number, site in sites.items():
            files.setdefault(site.path, []).append((number, site))
        for path, of_file in files.items():
            text, left_out = rewrite(self.originals[path], of_file)
            refused += left_out
            self.update(path, text)
        return refused

    def compile(self, sites, targets, jobs):
        """Builds; mutants that do not compile are taken out of sites, and returned."""
        broken = []
        for _ in range(ROUNDS):
            self.restore(sites)
            for number in self.insert(sites):
                broken.append(number)
                del sites[number]
            done = subprocess.run(["ninja", "-C", self.build, f"-j{jobs}", "-k0", *targets], capture_output=True,
                                  text=True)
            if done.returncode == 0:
                return broken
            guilty = self.guilty(done.stdout, sites)
            if not guilty:
                raise SystemExit(done.stdout[-6000:])
            print(f"mutate: {len(guilty)} mutants do not compile", flush=True)
            for number in guilty:
                broken.append(number)
                del sites[number]
        raise SystemExit(f"mutate: still not compiling after {ROUNDS} rounds")

    def restore(self, sites):
        """Files that held mutants, and hold none any more."""
        with_mutants = {site.path for site in sites.values()} | {"tests/support/main.cpp"}
        for name, data in self.originals.items():
            if name not in with_mutants:
                self.update(name, data)

    def guilty(self, output, sites):
        """The mutants on the lines that the compiler names in errors, and in the templates and calls behind them."""
        lines, notes = set(), set()
        for path, line, word in re.findall(r"^(\S+?):(\d+):(?:\d+:)? +(error|required|note|in)", output, re.M):
            path = os.path.relpath(os.path.join(self.build, path), self.copy)
            (lines if word == "error" else notes).add((path, int(line)))
        for places in (lines, notes):
            found = []
            for number, site in sites.items():
                last = site.line + self.line_count(site)
                if any((site.path, line) in places for line in range(site.line, last + 1)) and not site.statement:
                    found.append(number)
            found += [n for n, s in sites.items() if s.statement and (s.path, s.line) in places]
            if found:
                return found
        return [number for number, site in sites.items() if any(
            site.path == path and site.line <= line <= site.line + self.line_count(site) for path, line in lines)]

    def line_count(self, site):
        return self.originals[site.path][site.start:site.end].count(b"\n")
