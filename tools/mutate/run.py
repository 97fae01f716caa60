# SPDX-License-Identifier: MIT
"""Runs the tests that reach a mutant, the quickest first, until one fails."""

import os
import resource
import subprocess
from collections import defaultdict

BATCH_SECONDS = 2.0  # of processor time for the first tests that are tried


class Tests:
    """The tests of some programs: what each costs, and which mutants it reaches."""

    def __init__(self, programs, folder):
        self.programs, self.folder = programs, folder
        self.seconds = {}  # (program, test): processor time
        self.reaching = defaultdict(list)  # mutant: [(program, test)]
        self.deaths = defaultdict(list)  # program: tests whose children reach what nobody records

    def record(self):
        for program in self.programs:
            record = f"{self.folder}/{program}.reached"
            subprocess.run([f"{self.folder}/bin/{program}", "--gtest_brief=1"], stdout=subprocess.DEVNULL,
                           stderr=subprocess.DEVNULL, env={**os.environ, "PANOVAL_MUTANT_RECORD": record}, check=False)
            for line in open(record, encoding="ascii"):
                name, microseconds, passed, *reached = line.split()
                if passed != "1":
                    print(f"mutate: {program} {name} fails without a mutant and is left out", flush=True)
                    continue
                self.seconds[program, name] = int(microseconds) / 1e6
                if "DeathTest" in name:
                    self.deaths[program].append(name)
                for number in reached:
                    self.reaching[int(number)].append((program, name))

    def batches(self, number, own, budget):
        """Lists of tests of one program: the folder's own first, quick ones apart from slow ones."""
        by_program = defaultdict(list)
        for program, name in sorted(self.reaching[number], key=lambda test: self.seconds[test]):
            by_program[program].append(name)
        by_program[own] += [name for name in self.deaths[own] if name not in by_program[own]]
        order = sorted(by_program, key=lambda program: (program != own, self.programs.index(program)))
        spent = 0.0
        for program in order:
            quick, slow, sum_of_quick = [], [], 0.0
            for name in by_program[program]:
                cost = self.seconds[program, name]
                if sum_of_quick + cost <= BATCH_SECONDS:
                    quick.append(name)
                    sum_of_quick += cost
                elif spent + cost <= budget:
                    slow.append(name)
                    spent += cost
            for batch in (quick, slow):
                if batch:
                    yield program, batch

    def verdict(self, number, own, budget):
        """killed, timeout, survived or unreached, and the program that said so."""
        for program, batch in self.batches(number, own, budget):
            seconds = sum(self.seconds[program, name] for name in batch)
            outcome = self.run(program, batch, number, seconds)
            if outcome:
                return outcome, program
        return "survived" if self.reaching[number] else "unreached", ""

    def run(self, program, batch, number, seconds):
        limit = int(5 + 4 * seconds)

        def limits():
            resource.setrlimit(resource.RLIMIT_CPU, (limit, limit))
            resource.setrlimit(resource.RLIMIT_AS, (8 << 30, 8 << 30))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
            resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 30, 1 << 30))

        try:
            done = subprocess.run([f"{self.folder}/bin/{program}", "--gtest_brief=1", "--gtest_fail_fast",
                                   "--gtest_filter=" + ":".join(batch)], stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL, env={**os.environ, "PANOVAL_MUTANT": str(number)},
                                  preexec_fn=limits, timeout=60 + 20 * limit, check=False)
        except subprocess.TimeoutExpired:
            return "timeout"
        if done.returncode == 0:
            return ""
        return "timeout" if done.returncode in (-24, -9) else "killed"
