#!/usr/bin/python3
"""Runs the program and its guard with other SQLite libraries, and reports the walks that end
differently than with Debian 12's own. The guard has to refuse a library that is too old for it, and
with every library it has to keep out the result of a harmful program.

    campaign.py [--minutes M] [--document]

The libraries are built from sources that npm packages carry, which are fetched once (libraries.py).
Answers and libraries are kept in build/sqlite/; a campaign goes on where the last one stopped. It
repeats the walks that a change of the program, of its guard or of the expected walks concerns.
--document writes the tables of docs/sqlite.md from the answers. The campaign needs the network, and
npm in addition to the packages of ./test.sh.
"""

import itertools
import os
import pathlib
import re
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor, as_completed

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent), str(HERE.parent / "program")]
ROOT = HERE.parent.parent
# The next imports take the program from here.
os.environ["DATABASE_MIGRATOR"] = str(ROOT / "build" / "release" / "database-migrator")

import trials
from libraries import (
    FIRST_FOR_GUARD, FIRST_WITH_DQS, PACKAGES, REFERENCE, REFUSING_TEXTS, Library, as_numbers,
    libraries)
from support.campaign import Campaign, fingerprint, parser
from support.places import DATA, product_sources
from support.versions import NEWEST

PAGE = ROOT / "docs" / "sqlite.md"
GENERATED = re.compile(r"(?<=<!-- tests/sqlite/campaign.py writes these tables -->\n).*?"
                       r"(?=<!-- the end of the tables -->\n)", re.DOTALL)
TARGETS = ("database-migrator", "migration-guard")
# With this option a rename works as it did before 3.25.
LEGACY = "SQLITE_DEFAULT_LEGACY_ALTER_TABLE"
KINDS = {"walk": trials.try_walk, "guarded": trials.try_guarded, "harmful": trials.try_harmful,
         "planted": trials.try_planted}


def build():
    for command in (["--preset", "release"],
                    ["--build", "--preset", "release", "--target", *TARGETS]):
        subprocess.run(["cmake", *command], cwd=ROOT, check=True, stdout=subprocess.DEVNULL)


def what_counts(kind):
    """A fingerprint of everything that decides how a case ends, except the library."""
    guard = [ROOT / "guard"] if kind in ("guarded", "harmful") else []
    return fingerprint(*product_sources(), *guard, DATA, HERE / "trials.py",
                       *(ROOT / "tests" / "program" / name for name in
                         ("conftest.py", "dumps.py", "steps.py", "walks.py")))


class Trials:
    """The answers, by library, kind and case."""

    def __init__(self, campaign):
        self.campaign = campaign
        self.of = {kind: what_counts(kind) for kind in KINDS}

    def task(self, library, kind, *case):
        return [self.of[kind], str(library), kind, *case]

    def answer(self, library, *case):
        return self.campaign.answer(self.task(library, *case))

    @staticmethod
    def cases(library):
        for walk in trials.walks():
            yield ("walk", *walk)
        for walk in trials.GUARDED:
            yield ("guarded", *walk)
        yield ("harmful",)
        if library.option in ("", LEGACY):
            for case in trials.PLANTED:
                yield ("planted", case)

    def is_complete(self, library):
        return all(self.answer(library, *case) for case in self.cases(library))

    def go_on(self, library):
        missing = [case for case in self.cases(library) if self.answer(library, *case) is None]
        if not missing:
            return
        folder = library.build(self.campaign.folder)
        if trials.loaded_version(folder) != library.version:
            sys.exit(f"{library} was not loaded")

        def try_case(case):
            kind, *rest = case
            return None if self.campaign.is_over() else KINDS[kind](folder, *rest)

        with ThreadPoolExecutor(os.cpu_count()) as pool:
            futures = {pool.submit(try_case, case): case for case in missing}
            for future in as_completed(futures):
                if future.result() is not None:
                    self.campaign.note(self.task(library, *futures[future]), future.result())

    def different(self, library, kind):
        """The answers of a kind for cases that did not end equally."""
        answers = [self.answer(library, *case) for case in self.cases(library) if case[0] == kind]
        return [found for found in answers if found and not trials.is_none(found)]

    def harmful(self, library):
        """How a harmful program ends under the guard."""
        found = self.answer(library, "harmful")
        if found is None:
            return "not tried"
        return (f"{found['status']}, `{found['reason']}`" +
                ("" if found["unchanged"] else ", but the database has changed"))

    def unexpected(self, library):
        """How many answers are not as a library of this version and with this option has them."""
        harmful = self.answer(library, "harmful")
        count = int(harmful is not None and not trials.is_harmless(harmful))
        refuses_texts = library.option in REFUSING_TEXTS
        is_refused = refuses_texts or as_numbers(library.version) < FIRST_FOR_GUARD
        tried = [self.answer(library, "guarded", *walk) for walk in trials.GUARDED]
        wrong = [found for found in tried if found and not (
            trials.is_refused(found) if is_refused else trials.is_none(found))]
        return count + len(wrong) + (
            0 if refuses_texts else len(self.different(library, "walk")))

    def figures(self, library, kind):
        """How many walks of a kind ended equally, and the differences of the others."""
        tried = [case for case in self.cases(library)
                 if case[0] == kind and self.answer(library, *case)]
        different = self.different(library, kind)
        found = [one for one in different if not trials.is_refused(one)]
        refused = len(different) - len(found)
        text = f"{len(tried) - len(different)} of {len(tried)} equal"
        statuses = sorted({one["status"] for one in found if one.get("status")})
        failed = sorted({version for one in found for version in trials.failed_versions(one)})
        tables = sorted({"tableVersion" if name == "versions" else name
                         for one in found for name in one["differs"]})
        return "; ".join([
            text, *([f"{refused} refused"] if refused else []),
            *(f"status {status}" for status in statuses),
            *([f"version {', '.join(map(str, failed))} fails"] if failed else []),
            *([f"`{'`, `'.join(tables)}`"] if tables else [])])


def table(headings, rows):
    lines = [headings, ["---"] * len(headings), *rows]
    return "".join(f"| {' | '.join(line)} |\n" for line in lines)


def table_of_libraries(found):
    rows = []
    for version in PACKAGES:
        refusing = Library(version, "SQLITE_DQS=0")
        rows.append([
            version, *(found.figures(Library(version), kind) for kind in ("walk", "guarded")),
            found.harmful(Library(version)),
            *([found.figures(refusing, kind) for kind in ("walk", "guarded")]
              if as_numbers(version) >= FIRST_WITH_DQS else ["no such option"] * 2)])
    return table(["SQLite", "walks", "guarded walks", "a harmful program",
                  "walks with SQLITE_DQS=0", "guarded walks with SQLITE_DQS=0"], rows)


def table_of_options(found):
    rows = [[library.option, found.figures(library, "walk"), found.figures(library, "guarded")]
            for library in libraries() if library.version == REFERENCE and library.option]
    return table([f"{REFERENCE} with", "walks", "guarded walks"], rows)


def table_of_planted(found):
    rows = []
    for case in trials.PLANTED:
        outcomes = {version: planted_outcome(found.answer(Library(version), "planted", case))
                    for version in PACKAGES}
        for outcome, group in itertools.groupby(PACKAGES, outcomes.get):
            first, *_, last = [*group] * 2
            rows.append([case, f"{first} to {last}", *outcome])
        library = Library(REFERENCE, LEGACY)
        rows.append([case, f"{REFERENCE}, legacy",
                     *planted_outcome(found.answer(library, "planted", case))])
    return table(["in the database at version 1", "SQLite",
                  f"versions that fail on the way to {NEWEST}", "it names at the end"], rows)


def planted_outcome(found):
    return (", ".join(map(str, trials.failed_versions(found))) or "none", f"`{found['names']}`")


def document(found):
    missing = [str(library) for library in libraries() if not found.is_complete(library)]
    if missing:
        sys.exit(f"Not tried yet: {', '.join(missing)}")
    tables = "\n".join(make(found) for make in
                       (table_of_libraries, table_of_options, table_of_planted))
    page, replaced = GENERATED.subn(lambda _: f"\n{tables}\n", PAGE.read_text(encoding="utf-8"))
    assert replaced == 1
    PAGE.write_text(page, encoding="utf-8")


def main():
    options = parser(__doc__)
    options.add_argument("--document", action="store_true")
    arguments = options.parse_args()
    campaign = Campaign("sqlite", arguments.minutes)
    found = Trials(campaign)
    if arguments.document:
        return document(found)
    build()
    unexpected = 0
    for library in libraries():
        if not campaign.is_over():
            found.go_on(library)
        figures = {kind: found.figures(library, kind) for kind in ("walk", "guarded")}
        print(f"{str(library):22} walks: {figures['walk']}; guarded: {figures['guarded']}; "
              f"a harmful program: {found.harmful(library)}", flush=True)
        unexpected += found.unexpected(library)
    return unexpected > 0


if __name__ == "__main__":
    sys.exit(main())
