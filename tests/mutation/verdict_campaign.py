#!/usr/bin/python3
"""Makes single faults in the guard's judgement, and reports those that no test notices.

    verdict_campaign.py [--minutes M] [--mutants N]

It works like campaign.py, in build/verdict_mutation/, for guard/verdict/. Besides the faults of
mutants.py it exchanges before and after, adds one to what is counted, and leaves findings out.
Answers are kept here, too. verdict_survivors.txt lists the faults that make no difference, and why.
"""

import random
import re
import sys

from campaign import HERE, Subject, main
from mutants import Mutant, Source, in_turns
from support.places import ROOT, TESTS

FOLDER = "guard/verdict"
FIRST_TESTS = "^verdict_test_(codes|verdicts|details)$"
# What uses a verdict, and the mending, which reads the same table of versions.
ALL_TESTS = ("^(verdict_.*|run_record_test"
             "|guard_test_(verdict|last_migration|direct|refusals|mending|mended_runs"
             "|rehearsal_reports))$")
# The head of a function, or of a method inside its class.
HEAD = re.compile(r"^(?:    )?(?!return|if|for|while|else|switch|struct|class)"
                  r"[\w~][^\n;{}=()]*?([~\w]+)\([^;{}]*\)[^;{}]*\{$", re.MULTILINE)
# A block with one of these reports something.
REPORTING = re.compile(r"\b(add|addUnreadable|note|finding)\(|\b(findings|found) (<<|\+=) ")
LONGEST_BLOCK = 600


class MutantOfJudgement(Mutant):
    def key(self):
        """The key without the file, since a function may move."""
        return FOLDER, *super().key()[1:]


class Judgement(Source):
    """A source of the judgement."""

    mutant = MutantOfJudgement

    def faults(self):
        # Almost every statement only reads, so the order of few statements makes a difference.
        return (*(fault for fault in super().faults() if fault[0] != "statements swapped"),
                *self.exchanges(), *self.counts(), *self.missing_findings())

    def letter_cases(self):
        """Leaves out the list of words, which finds a table's name in any letter case."""
        for fault in super().letter_cases():
            line = self.text[self.text.rfind("\n", 0, fault[1]) + 1:]
            if not re.match(r' +\{"\w+", "[\w -]+"\},\n', line):
                yield fault

    def function_at(self, place):
        heads = HEAD.findall(self.code[:place])
        return heads[-1] if heads else ""

    def exchanges(self):
        """Puts before in place of after, and after in place of before, where both names are in
        use."""
        names = {*re.findall(r"\w+", self.text)}
        for match in re.finditer(r"\b\w*([Bb]efore|[Aa]fter)\w*\b", self.text):
            start, end = match.span(1)
            in_text = self.code[start] == "_"
            if self.code[start] != self.text[start] and not in_text:
                continue  # in a comment
            line = self.text[self.text.rfind("\n", 0, start) + 1:start]
            if "#include" in line or self.text[match.start() - 1] == "&":
                continue  # a parameter has to have its name
            other = {"before": "after", "Before": "After", "after": "before",
                     "After": "Before"}[match[1]]
            name = self.text[match.start():start] + other + self.text[end:match.end()]
            if name in names:
                yield "before and after", start, end, other

    def counts(self):
        """Adds one to a count."""
        for match in re.finditer(r"^ +\+\+([^;]+);", self.code, re.MULTILINE):
            counted = self.text[match.start(1):match.end(1)]
            yield "count", match.end(1) - len(counted) - 2, match.end(1), f"{counted} += 2"
        for match in re.finditer(r" \+= (countsRows|sqlite3_column_int\([^;]*\));", self.code):
            yield "count", match.end() - 1, match.end() - 1, " + 1"
        for match in re.finditer(r"\.insert\(\"_+\", ([^;]+)\);", self.code):
            value = self.text[match.start(1):match.end(1)]
            if value.startswith(("count", "numbers.")):
                yield "count", match.end(1), match.end(1), " + 1"

    def missing_findings(self):
        """Makes a condition never true, or a loop never run, so something is not reported."""
        for match in re.finditer(r"^( *)(?:\} else )?(if|while) \((.*)\) \{$", self.code,
                                 re.MULTILINE):
            end = self.code.find(f"\n{match[1]}}}", match.end())
            block = self.code[match.end():end]
            if len(block) < LONGEST_BLOCK and REPORTING.search(block):
                yield "finding missing", match.start(3), match.end(3), "false"


def sources():
    return [Judgement(str(path.relative_to(ROOT)), path.read_text(encoding="utf-8"))
            for path in sorted((ROOT / FOLDER).glob("*.cpp"))]


def all_mutants(sources):
    """All faults, in an order in which the first N are spread over the kinds, and in each kind over
    the files."""
    kinds = {}
    for source in sources:
        for mutant in source.mutants():
            kinds.setdefault(mutant.kind, {}).setdefault(mutant.file, []).append(mutant)
    for files in kinds.values():
        for file, mutants in files.items():
            random.Random(file).shuffle(mutants)
    return in_turns([in_turns(files.values()) for files in kinds.values()])


def verdict():
    """The guard's judgement, and the tests of what it says."""
    return Subject(
        name="verdict_mutation", folders=(FOLDER,), library="migration_guard",
        defined_in="guard/CMakeLists.txt",
        targets=("verdict_of", "run_record_test", "fork_server", "database-migrator",
                 "migration-guard", "mend", "sqlite_without_texts", "sqlite_without_functions",
                 "sqlite_without_name", "fault_shim", "fatal_moments"),
        tests=("--tests-regex", ALL_TESTS),
        first_tests=lambda file: ("--tests-regex", FIRST_TESTS), seconds=60,
        survivors=HERE / "verdict_survivors.txt", mutants=all_mutants(sources()),
        used_tests=(TESTS / "verdict", TESTS / "guard", TESTS / "support", TESTS / "fuzz"))


if __name__ == "__main__":
    sys.exit(main(verdict(), __doc__, 400))
