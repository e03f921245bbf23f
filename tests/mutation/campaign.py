#!/usr/bin/python3
"""Makes single faults in the program, one at a time, and tells which the tests do not notice.

    campaign.py [--minutes M] [--mutants N]

Works on a copy of the tree with a build of its own in build/mutation/: the program's code is a
shared library there, so that a fault costs one compilation and one link. The tests of the file run
first; what they leave goes to the others when every fault has been tried. The first failure ends a
trial, and what hangs has failed. Answers are kept: a campaign goes on where the last one stopped. A
fault that was not noticed is tried again when a test has changed; survivors.txt tells of those that
make no difference, and why. Ends with an error when another one survives, or less than 98 % are
noticed.
"""

import argparse
import hashlib
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import time
from collections import Counter, defaultdict
from contextlib import contextmanager
from functools import lru_cache

from mutants import FOLDERS, all_mutants

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
KEPT = ROOT / "build" / "mutation"
TREE = KEPT / "tree"
BUILD = KEPT / "build"
ANSWERS = KEPT / "answers.jsonl"
HEADERS = KEPT / "headers.h"
SURVIVORS = HERE / "survivors.txt"
# These look at the source, at other programs or at the disk; the mutants are what they look at.
OTHER_TESTS = "^(format|shellcheck|install|show_changes|faults|mutants)$|^fuzz_"
# Of processor time, for one process; tests set other limits to the programs that they start. Twice
# that for a whole test.
MOST_SECONDS = 30


@lru_cache(maxsize=None)
def digest(*paths):
    files = sorted(file for path in paths for file in ([path] if path.is_file() else path.rglob("*"))
                   if file.is_file() and "__pycache__" not in file.parts)
    return hashlib.sha256(b"".join(file.read_bytes() for file in files)).hexdigest()[:16]


def run(command, **options):
    return subprocess.run(command, capture_output=True, text=True, **options)


def ctest(*arguments):
    """Whether the tests pass, and the first one that does not."""
    temporary = "/dev/shm" if os.access("/dev/shm", os.W_OK) else "/tmp"
    result = run(["prlimit", f"--cpu={MOST_SECONDS}:", "ctest", "--test-dir", BUILD,
                  "--stop-on-failure", "--exclude-regex", OTHER_TESTS, *arguments],
                 env={**os.environ, "TMPDIR": temporary})
    failed = [line.split()[3] for line in result.stdout.splitlines() if "***" in line]
    return result.returncode == 0, failed[0] if failed else "nothing"


class Tree:
    """The copy of the tree, and how its files are compiled."""

    def __init__(self):
        shutil.rmtree(TREE, ignore_errors=True)
        shutil.copytree(ROOT, TREE, ignore=shutil.ignore_patterns("build", ".git", "__pycache__"))
        self.edit(TREE / "CMakeLists.txt", "database_migrator STATIC", "database_migrator SHARED")
        self.edit(TREE / "tests" / "CMakeLists.txt", r"TIMEOUT \d+", f"TIMEOUT {MOST_SECONDS * 2}")
        # Not optimized, and without warnings: a fault may well raise one.
        self.check(["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
                    "-DCMAKE_CXX_FLAGS=-w", "-DDATABASE_MIGRATOR_TESTS=ON"])
        self.commands = self.check(["ninja", "-C", BUILD, "-t", "commands"]).splitlines()
        # A campaign that was killed has left a fault in one of them.
        for compilation in self.commands:
            if any(f" -c {TREE / folder}/" in compilation for folder in FOLDERS):
                self.product(compilation).unlink(missing_ok=True)
        self.check(["cmake", "--build", BUILD])
        self.precompile()
        self.stale = []
        passed, failed = ctest("--parallel", "2")
        if not passed:
            sys.exit(f"Without a fault the tests fail: {failed}")

    def precompile(self):
        """The library's headers are most of what is compiled."""
        command = self.compilations("app/driver.cpp")[0].partition(" -MD ")[0]
        texts = (path.read_text(encoding="utf-8") for folder in FOLDERS
                 for path in (TREE / folder).iterdir())
        includes = {line for text in texts for line in text.splitlines()
                    if line.startswith("#include <")}
        HEADERS.write_text("\n".join(sorted(includes)))
        self.check(["sh", "-c", f"{command} -x c++-header -o {HEADERS}.gch -c {HEADERS}"])

    @staticmethod
    def edit(file, pattern, replacement):
        file.write_text(re.sub(pattern, replacement, file.read_text()))

    @staticmethod
    def check(command):
        result = run(command)
        if result.returncode != 0:
            sys.exit(f"{shlex.join(map(str, command))}\n{result.stdout}{result.stderr}")
        return result.stdout

    def compilations(self, file):
        """The commands that compile a file, a header by way of what is made of it."""
        if file.endswith(".h"):
            return [command for user in self.users(file) for command in self.compilations(user)]
        return [command for command in self.commands if command.endswith(f"-c {TREE / file}")]

    def users(self, header):
        if header == "app/database_migrator.h":
            return ["app/construction.cpp", "tests/app/construction_test.cpp"]
        return [str(path.relative_to(TREE)) for folder in FOLDERS
                for path in (TREE / folder).glob("*.cpp")
                if f'"{header}"' in path.read_text(encoding="utf-8")]

    @staticmethod
    def product(compilation):
        return BUILD / compilation.split(" -o ")[1].split()[0]

    @contextmanager
    def with_fault(self, mutant):
        """Puts a fault into the program; yields whether it could be compiled."""
        source = TREE / mutant.file
        original = source.read_text(encoding="utf-8")
        compilations = self.compilations(mutant.file)
        objects = {self.product(command): self.product(command).read_bytes()
                   for command in compilations}
        links = [command for command in self.commands
                 if " -c " not in command
                 and any(f" {path.relative_to(BUILD)} " in command for path in objects)]
        source.write_text(mutant.text(original), encoding="utf-8")
        try:
            yield all(run(command, shell=True, cwd=BUILD).returncode == 0
                      for command in [*(f"{command} -include {HEADERS}" for command in compilations),
                                      *dict.fromkeys([*self.stale, *links])])
        finally:
            source.write_text(original, encoding="utf-8")
            for path, content in objects.items():
                path.write_bytes(content)
            # What was linked holds the fault until it is linked again.
            self.stale = links


def versions_of(stem):
    """The versions that a file of the catalogue, or a test of it, has in its name."""
    numbers = [int(number) for number in re.findall(r"\d+", stem)]
    return set(range(numbers[0], numbers[-1] + 1))


def first_tests(file):
    """The tests of a file, by its name or by those who use it."""
    stem = pathlib.Path(file).stem
    if stem.startswith("versions_"):
        tests = [path.stem for path in (ROOT / "tests" / "migrations").glob("versions_*_test.cpp")
                 if versions_of(path.stem) & versions_of(stem)]
        return f"^({'|'.join(tests)}|added_columns_test|column_probes_test)$"
    return {"database_migrator": "^(construction|driver)_test$",
            "duplicate_names": "^(duplicate_.*|suspect_rows)_test$",
            "integrity_check": "^integrity_(check|repairs)_test$",
            "limited_walk": "^(limited_walk|long_walks|statements)_test$",
            "log": "^(columns_and_tables|driver|integrity_.*|versions_25.*)_test$",
            "name_table": "^(duplicate_.*|suspect_rows)_test$",
            "rebuild_statements": "^(rebuild_statements|table_rebuild)_test$",
            "registry": "^(registry|driver)_test$",
            "statements": "^(statements|long_walks|duplicate_names)_test$",
            "suspect_rows": "^(duplicate_.*|suspect_rows)_test$",
            "table_recreation": "^versions_(02|32)_test$",
            "text_file_reader": "^(construction|reference_scripts)_test$",
            }.get(stem, f"^{stem}_test$")


def judge(tree, mutant, *arguments):
    """What becomes of a mutant in some of the tests, and the first one that notices it."""
    with tree.with_fault(mutant) as compiled:
        if not compiled:
            return "not compiled", ""
        passed, failed = ctest(*arguments)
        return ("unnoticed", "") if passed else ("noticed", failed)


def explanations():
    """The survivors that make no difference: their keys, and why."""
    reasons = {}
    for block in SURVIVORS.read_text(encoding="utf-8").split("\n\n"):
        lines = [line for line in block.splitlines() if not line.startswith("#")]
        if lines:
            place, before, after, *reason = lines
            file, _, function = place.partition(" ")
            reasons[file, function, before[2:], after[2:]] = " ".join(reason)
    return reasons


def identity(mutant):
    return hashlib.sha256(f"{digest(ROOT / mutant.file)}{mutant}".encode()).hexdigest()[:16]


def trials(chosen, answers, tests, end):
    """Tries what has no answer: in the tests of its file first, what is left then in the others."""
    explained = explanations()
    tree = None
    for stage in "left", "survived":
        for mutant in chosen:
            outcome, tested = answers.get(identity(mutant), ("not tried", tests))
            if tested != tests and outcome in ("left", "survived"):
                outcome = "not tried"
            if outcome != {"left": "not tried", "survived": "left"}[stage] or mutant.key() in explained:
                continue
            if time.monotonic() > end:
                return
            tree = tree or Tree()
            own = ["--tests-regex", first_tests(mutant.file)]
            outcome, by = judge(tree, mutant, *(own if stage == "left" else ["--parallel", "2"]))
            yield mutant, stage if outcome == "unnoticed" else outcome, by


def print_figures(chosen, answers):
    explained = explanations()
    figures, survivors = defaultdict(Counter), []
    for mutant in chosen:
        outcome, _ = answers.get(identity(mutant), ("not tried", ""))
        if mutant.key() in explained:
            outcome = "explained"
        elif outcome in ("left", "survived"):
            survivors.append((outcome, mutant))
        for row in mutant.kind, "all":
            figures[row][outcome] += 1
    columns = "noticed", "survived", "explained", "left", "not compiled", "not tried"
    print(f"{'fault':20}" + "".join(f"{column:>14}" for column in columns))
    for kind, counts in sorted(figures.items(), key=lambda row: (row[0] == "all", row[0])):
        print(f"{kind:20}" + "".join(f"{counts[column]:>14}" for column in columns))
    for outcome, mutant in survivors:
        file, function, before, after = mutant.key()
        print(f"\n{outcome}: {mutant.kind}\n{file} {function}\n- {before}\n+ {after}")
    noticed, explained = figures["all"]["noticed"], figures["all"]["explained"]
    tried = max(noticed + len(survivors), 1)
    print(f"\n{noticed} of {tried} noticed: {noticed / tried:.1%};"
          f" {explained} more make no difference")
    return not survivors and noticed >= 0.98 * tried


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--minutes", type=float, default=float("inf"))
    parser.add_argument("--mutants", type=int, default=500,
                        help="the first so many, which are spread over the files and the kinds")
    arguments = parser.parse_args()
    end = time.monotonic() + arguments.minutes * 60
    KEPT.mkdir(parents=True, exist_ok=True)
    chosen = all_mutants(ROOT)[:arguments.mutants]
    tests = digest(*(path for path in (ROOT / "tests").iterdir() if path != HERE))
    with ANSWERS.open("a+") as file:
        file.seek(0)
        answers = {answer["id"]: (answer["outcome"], answer["tests"])
                   for answer in map(json.loads, file)}
        for mutant, outcome, by in trials(chosen, answers, tests, end):
            answers[identity(mutant)] = outcome, tests
            file.write(json.dumps({"id": identity(mutant), "outcome": outcome, "by": by,
                                   "tests": tests, "mutant": mutant.key()}) + "\n")
            file.flush()
    return 0 if print_figures(chosen, answers) else 1


if __name__ == "__main__":
    sys.exit(main())
