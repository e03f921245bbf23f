#!/usr/bin/python3
"""Makes single faults in the program, one at a time, and reports those that no test notices.

    campaign.py [--minutes M] [--mutants N]

It works on a copy of the tree with its own build, in build/mutation/. The program's code is a
shared library there, so a fault costs one compilation and one link. The tests of the file run
first. When every fault has been tried there, the other tests try those that were not noticed. The
first failure ends a trial; a test that hangs has failed. Answers are kept: a campaign goes on where
the last one stopped. A fault that was not noticed is tried again when a test has changed.
survivors.txt lists the faults that make no difference, and why. The campaign fails when any other
fault survives, or when less than 98 % are noticed.
"""

import hashlib
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
from collections import Counter, defaultdict
from collections.abc import Callable
from contextlib import contextmanager
from dataclasses import dataclass
from functools import lru_cache

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from mutants import all_mutants
from support.campaign import Campaign, fingerprint, parser
from support.places import PRODUCT, RAM_DISK, ROOT, TESTS

HERE = pathlib.Path(__file__).resolve().parent
# Tests of the source text, of other programs and of the disk do not look for faults in the program.
OTHER_TESTS = "|".join((
    "^(fleet|fuzz|guard|report|verdict)_", "^(format|shellcheck|flake8|install"
    "|show_changes|faults|mending_faults|mutants|catalogue|support|pages|units|packages|man_pages"
    "|sqlite_page)$",
    *(f"^{path.stem}$" for path in (TESTS / "guard").glob("*_test.cpp"))))
# The outcome that a fault must have before the trial that can give it this outcome. LEFT: the tests
# of its file did not notice it. SURVIVED: no test did.
BEFORE = {"left": "not tried", "survived": "left"}
NOT_TRIED = {"outcome": "not tried", "tests": ""}
digest = lru_cache(maxsize=None)(fingerprint)


@dataclass(frozen=True)
class Subject:
    """The sources that get the faults, and the tests that have to notice them."""

    name: str  # of the folder in build/
    folders: tuple  # of the sources
    library: str  # the libraries that they are linked to
    defined_in: str  # the file that lists the survivors
    targets: tuple  # what the tests need; nothing for everything
    tests: tuple  # options of ctest: the tests that look for faults
    first_tests: Callable  # the same for the tests of a file, which are tried first
    seconds: int  # processor time of one process; a whole test gets twice that
    survivors: pathlib.Path
    mutants: list
    used_tests: tuple  # files and folders: when one changes, the survivors are tried again

    @property
    def kept(self):
        return ROOT / "build" / self.name


def run(command, **options):
    return subprocess.run(command, capture_output=True, text=True, **options)


class Tree:
    """The copy of the tree, and how its files are compiled."""

    def __init__(self, subject):
        self.subject = subject
        self.root = subject.kept / "tree"
        self.build = subject.kept / "build"
        self.headers = subject.kept / "headers.h"
        shutil.rmtree(self.root, ignore_errors=True)
        shutil.copytree(ROOT, self.root,
                        ignore=shutil.ignore_patterns("build", ".git", "__pycache__"))
        self.edit(self.root / subject.defined_in, f"{subject.library} STATIC",
                  f"{subject.library} SHARED")
        self.edit(self.root / "tests" / "CMakeLists.txt", r"TIMEOUT \d+",
                  f"TIMEOUT {subject.seconds * 2}")
        # Not optimized, and without warnings: a fault may cause one.
        self.check(["cmake", "-S", self.root, "-B", self.build, "-G", "Ninja",
                    "-DCMAKE_BUILD_TYPE=None", "-DCMAKE_CXX_FLAGS=-w",
                    "-DDATABASE_MIGRATOR_TESTS=ON"])
        self.commands = self.check(
            ["ninja", "-C", self.build, "-t", "commands", *subject.targets]).splitlines()
        # A campaign that was killed may have left a fault in a source.
        for compilation in self.commands:
            if any(f" -c {self.root / folder}/" in compilation for folder in subject.folders):
                self.product(compilation).unlink(missing_ok=True)
        self.check(["ninja", "-C", self.build, *subject.targets])
        self.precompile()
        self.stale = []
        passed, failed = self.ctest(*subject.tests, "--parallel", "2")
        if not passed:
            sys.exit(f"Without a fault the tests fail: {failed}")

    def ctest(self, *arguments):
        """Whether the tests pass, and the name of the first test that fails."""
        result = run(["prlimit", f"--cpu={self.subject.seconds}:", "ctest",
                      "--test-dir", self.build, "--stop-on-failure", *arguments],
                     env={**os.environ, "TMPDIR": RAM_DISK, "PYTEST_ADDOPTS": "--exitfirst"})
        failed = [line.split()[3] for line in result.stdout.splitlines() if "***" in line]
        return result.returncode == 0, failed[0] if failed else "nothing"

    def precompile(self):
        """Compiles Qt's headers once: they are most of the work of every compilation."""
        sources = [path for folder in self.subject.folders
                   for path in sorted((self.root / folder).iterdir())]
        first = next(path for path in sources if path.suffix == ".cpp")
        command = self.compilations(first.relative_to(self.root))[0].partition(" -MD ")[0]
        includes = {line for path in sources
                    for line in path.read_text(encoding="utf-8").splitlines()
                    if line.startswith("#include <")}
        self.headers.write_text("\n".join(sorted(includes)))
        self.check(["sh", "-c",
                    f"{command} -x c++-header -o {self.headers}.gch -c {self.headers}"])

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
        """The commands that compile a file; for a header, those of the files that include it."""
        if str(file).endswith(".h"):
            return [command for user in self.users(file) for command in self.compilations(user)]
        return [command for command in self.commands if command.endswith(f"-c {self.root / file}")]

    def users(self, header):
        """The sources that include a header, or a header that includes it."""
        if header == "app/database_migrator.h":
            return ["app/construction.cpp", "tests/app/construction_test.cpp"]
        users = set()
        for path in (path for folder in self.subject.folders
                     for path in (self.root / folder).iterdir()):
            name = str(path.relative_to(self.root))
            if path.suffix in (".cpp", ".h") and f'"{header}"' in path.read_text(encoding="utf-8"):
                users.update([name] if path.suffix == ".cpp" else self.users(name))
        return sorted(users)

    def product(self, compilation):
        return self.build / compilation.split(" -o ")[1].split()[0]

    @contextmanager
    def with_fault(self, mutant):
        """The program with a fault in it; the value is true when it could be compiled."""
        source = self.root / mutant.file
        original = source.read_text(encoding="utf-8")
        compilations = self.compilations(mutant.file)
        objects = {self.product(command): self.product(command).read_bytes()
                   for command in compilations}
        links = [command for command in self.commands
                 if " -c " not in command
                 and any(f" {path.relative_to(self.build)} " in command for path in objects)]
        source.write_text(mutant.text(original), encoding="utf-8")
        compilations = [f"{command} -include {self.headers}" for command in compilations]
        try:
            yield all(run(command, shell=True, cwd=self.build).returncode == 0
                      for command in [*compilations, *dict.fromkeys([*self.stale, *links])])
        finally:
            source.write_text(original, encoding="utf-8")
            for path, content in objects.items():
                path.write_bytes(content)
            # The library has the fault until it is linked again.
            self.stale = links


def versions_of(stem):
    """The versions that a file of the catalogue, or a test of it, has in its name."""
    numbers = [int(number) for number in re.findall(r"\d+", stem)]
    return set(range(numbers[0], numbers[-1] + 1))


def first_tests(file):
    """The tests of a file, found by its name or by the files that use it."""
    stem = pathlib.Path(file).stem
    if stem.startswith("versions_"):
        tests = [path.stem for path in (ROOT / "tests" / "migrations").glob("versions_*_test.cpp")
                 if versions_of(path.stem) & versions_of(stem)]
        return f"^({'|'.join(tests)}|added_columns_test|column_probes_test|registry_test)$"
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
    """The outcome for a mutant in some of the tests, and the first one that notices it."""
    with tree.with_fault(mutant) as compiled:
        if not compiled:
            return "not compiled", ""
        passed, failed = tree.ctest(*arguments)
        return ("unnoticed", "") if passed else ("noticed", failed)


def explanations(survivors):
    """The survivors that make no difference: the reason by the fault's key."""
    reasons = {}
    for block in survivors.read_text(encoding="utf-8").split("\n\n"):
        lines = [line for line in block.splitlines() if not line.startswith("#")]
        if lines:
            place, before, after, *reason = lines
            file, _, function = place.partition(" ")
            reasons[file, function, before[2:], after[2:]] = " ".join(reason)
    return reasons


def identity(mutant):
    return hashlib.sha256(f"{digest(ROOT / mutant.file)}{mutant}".encode()).hexdigest()[:16]


def go_on(subject, campaign, chosen):
    """Tries every mutant without an answer: first in the tests of its file. When all have been
    tried there, the other tests try the unnoticed ones."""
    tests = digest(*subject.used_tests)
    explained = explanations(subject.survivors)
    tree = None
    for stage in BEFORE:
        for mutant in chosen:
            known = campaign.answer(identity(mutant), NOT_TRIED)
            outcome = known["outcome"]
            if known["tests"] != tests and outcome in ("left", "survived"):
                outcome = "not tried"
            if outcome != BEFORE[stage] or mutant.key() in explained:
                continue
            if campaign.is_over():
                return
            tree = tree or Tree(subject)
            arguments = (subject.first_tests(mutant.file) if stage == "left"
                         else (*subject.tests, "--parallel", "2"))
            outcome, by = judge(tree, mutant, *arguments)
            campaign.note(identity(mutant), {
                "outcome": stage if outcome == "unnoticed" else outcome, "by": by, "tests": tests,
                "mutant": mutant.key()})


def print_figures(subject, campaign, chosen):
    explained = explanations(subject.survivors)
    figures, survivors = defaultdict(Counter), []
    for mutant in chosen:
        outcome = campaign.answer(identity(mutant), NOT_TRIED)["outcome"]
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


def main(subject, description, mutants):
    """Runs the campaign. mutants: how many are made, unless the command line says another number"""
    options = parser(description)
    options.add_argument("--mutants", type=int, default=mutants,
                         help="the first so many, which are spread over the files and the kinds")
    arguments = options.parse_args()
    campaign = Campaign(subject.name, arguments.minutes)
    chosen = subject.mutants[:arguments.mutants]
    go_on(subject, campaign, chosen)
    return 0 if print_figures(subject, campaign, chosen) else 1


def program():
    """The program, and all its tests."""
    others = ("--exclude-regex", OTHER_TESTS)
    return Subject(
        name="mutation", folders=PRODUCT, library="database_migrator",
        defined_in="CMakeLists.txt", targets=(), tests=others,
        first_tests=lambda file: (*others, "--tests-regex", first_tests(file)), seconds=30,
        survivors=HERE / "survivors.txt", mutants=all_mutants(ROOT),
        used_tests=tuple(path for path in TESTS.iterdir() if path != HERE))


if __name__ == "__main__":
    sys.exit(main(program(), __doc__, 500))
