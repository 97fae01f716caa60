# SPDX-License-Identifier: MIT
"""Runs what the documentation shows: run_shown.py SOURCE FOLDER CLONE

Blocks marked sh are scripts; in running text whatever stands between backticks and begins with a command is one. They are
run in FOLDER, which has the pictures that they name, those of CONTRIBUTING.md in CLONE. What cannot be run as it stands
has a line in elsewhere.txt, and the block of another language there the test that runs it. Names of files are those of files
that there are, options those of the program and of ./dev.
"""
import collections
import pathlib
import re
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).parent
COMMAND = re.compile(r"(panoval|cmake|pkg-config|pip|apt|sudo|sbatch|enblend|git|sh|python3|[\w/]+/\w+\.(py|sh)) \S|\./dev|build/\S*bin/")
PATH = re.compile(r"(?!build/)[a-z_.]+(/[a-z0-9_.-]+)+/?")
OPTION = re.compile(r"(?<!\S)--[a-z][a-z-]*")
OTHERS_OPTIONS = {"--requeue"}  # of Slurm

Shown = collections.namedtuple("Shown", "file kind text")  # kind: the block's language, or "text"


def shown_in(name, text):
    """The blocks of a file and what stands between backticks elsewhere in it."""
    prose, block, language = [], [], None
    for line in text.splitlines():
        if line.startswith("```"):
            if language is not None:
                yield Shown(name, language, "\n".join(block))
            language, block = (line[3:], []) if language is None else (None, [])
        elif language is None:
            prose.append(line)
        else:
            block.append(re.sub(r"[ \t]+#.*$", "", line) if language == "sh" else line)
    for span in re.findall(r"`([^`]+)`", "\n".join(prose)):
        yield Shown(name, "text", " ".join(span.split()))


class Elsewhere:
    """The lines of elsewhere.txt: FILE | what is shown | how."""

    def __init__(self, source):
        lines = (HERE / "elsewhere.txt").read_text(encoding="utf-8").splitlines()
        self._lines = [line.split(" | ") for line in lines if line and not line.startswith("#")]
        self._source = source
        self._used = set()

    def how(self, file, text):
        for number, (where, what, how) in enumerate(self._lines):
            if where in (file, "*") and what == text:
                self._used.add(number)
                return how
        return None

    def unused(self):
        return [" | ".join(line) for number, line in enumerate(self._lines) if number not in self._used]

    def is_true(self, how):
        """Whether a file that is said to run the command has the words that do."""
        if not how.startswith("in "):
            return how.startswith("by hand: ")
        file, words = how[3:].split(": ", 1)
        return words in (self._source / file).read_text(encoding="utf-8")


class Runner:
    def __init__(self, source, folder, clone):
        self._source, self._folder, self._clone = source, folder, clone
        self._elsewhere = Elsewhere(source)
        self._guards = (source / ".ci/run").read_text(encoding="utf-8").split("\n")
        self._options = self._known_options()
        self._done = set()
        self.failures, self.run, self.not_run = [], 0, []

    def _known_options(self):
        text = subprocess.run(["panoval", "--help"], capture_output=True, text=True, check=True).stdout
        commands = re.findall(r"^  ([a-z]+) ", text.split("Commands:")[1].split("\n\n")[0], re.MULTILINE)
        for command in commands:
            text += subprocess.run(["panoval", command, "--help"], capture_output=True, text=True, check=True).stdout
        text += (self._source / "dev").read_text(encoding="utf-8").split("TEXT\n")[0]
        return set(re.findall(r"--[a-z][a-z-]*", text)) | OTHERS_OPTIONS

    def _script(self, shown, text):
        if text == "":
            return
        folder = self._clone if shown.file == "CONTRIBUTING.md" else self._folder
        if shown.kind == "text" and (folder, text) in self._done:
            return
        self._done.add((folder, text))
        done = subprocess.run(["sh", "-ec", text], cwd=folder, stdin=subprocess.DEVNULL, capture_output=True, text=True)
        self.run += len(text.splitlines())
        if done.returncode != 0:
            self.failures.append(f"{shown.file}: these commands fail:\n{text}\n{done.stdout}{done.stderr}")

    def _line(self, shown, line):
        """What to run for a line; nothing where another test or somebody does."""
        how = self._elsewhere.how(shown.file, line)
        if how is None:
            return line
        if how.startswith("as "):
            return how[3:]
        if how.startswith("with "):
            return line if shutil.which(how[5:]) else ""
        if not self._elsewhere.is_true(how):
            self.failures.append(f"{shown.file}: {line}: elsewhere.txt says '{how}', which is not so")
        self.not_run.append(f"{shown.file}: {line} ({how})")
        return ""

    def block(self, shown):
        lines = re.sub(r"\\\n\s*", "", shown.text).splitlines()
        self._script(shown, "\n".join(filter(None, (self._line(shown, line) for line in lines))))

    def other_block(self, shown):
        """Code has a test that runs it; drawings and lists have no line that looks like a command."""
        if shown.kind == "":
            commands = [line for line in shown.text.splitlines() if COMMAND.match(line)]
            self.failures += [f"{shown.file}: a command in a block that is not marked sh: {line}" for line in commands]
        elif self._line(shown, "block " + shown.kind) != "":
            self.failures.append(f"{shown.file}: nobody runs this block:\n{shown.text}")

    def span(self, shown):
        if shown.text.startswith("./dev"):
            line = self._line(shown, shown.text)
            if line != shown.text or not any(re.match(re.escape(line) + r"( |$)", guard) for guard in self._guards):
                self._script(shown, line)
        elif COMMAND.match(shown.text):
            text = shown.text + " --help" if re.fullmatch("panoval [a-z]+", shown.text) else shown.text
            self._script(shown, self._line(shown, text))
        elif PATH.fullmatch(shown.text) and (self._source / shown.text.split("/")[0]).is_dir():
            if not (self._source / shown.text).exists():
                self.failures.append(f"{shown.file}: there is no {shown.text}")
        for option in OPTION.findall(shown.text):
            if shown.text.startswith(("--", "panoval")) and option not in self._options:
                self.failures.append(f"{shown.file}: {shown.text}: neither the program nor ./dev has an option {option}")

    def everything(self):
        for path in [*sorted(self._source.glob("*.md")), *sorted(self._source.glob("docs/*.md")), self._source / "python/README.md"]:
            name = str(path.relative_to(self._source))
            for shown in shown_in(name, path.read_text(encoding="utf-8")):
                if shown.kind == "sh":
                    self.block(shown)
                elif shown.kind == "text":
                    self.span(shown)
                else:
                    self.other_block(shown)
        self.failures += [f"elsewhere.txt: nothing shows this: {line}" for line in self._elsewhere.unused()]


def main():
    runner = Runner(*(pathlib.Path(name) for name in sys.argv[1:4]))
    runner.everything()
    print("\n".join(["not run here:", *runner.not_run, *runner.failures]))
    print(f"{runner.run} lines of commands run, {len(runner.not_run)} not run here, {len(runner.failures)} failures")
    return 1 if runner.failures else 0


if __name__ == "__main__":
    sys.exit(main())
