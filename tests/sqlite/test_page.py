"""docs/sqlite.md has the answers for every library that the campaign tries."""

import re

import pytest
from campaign import Trials
from libraries import FIRST_FOR_GUARD, OPTIONS, PACKAGES, REFERENCE, Library, as_numbers
from support.places import ROOT
from support.versions import NEWEST
from trials import GUARDED, PLANTED, difference, failed_versions, is_none
from walks import expected_of_walk

PAGE = (ROOT / "docs" / "sqlite.md").read_text(encoding="utf-8")


def first_cells():
    return re.findall(r"^\| (.+?) \|", PAGE, re.MULTILINE)


def test_every_library_has_its_row():
    cells = first_cells()
    assert [cell for cell in cells if re.fullmatch(r"\d+(\.\d+)+", cell)] == [*PACKAGES]
    assert {*OPTIONS, "SQLITE_DQS=0"} <= {*cells}


@pytest.mark.parametrize("version", PACKAGES)
def test_the_guard_refuses_exactly_the_libraries_that_are_too_old(version):
    _, guarded, harmful, _, refusing = re.search(
        rf"^\| {re.escape(version)} \| (.*) \|$", PAGE, re.MULTILINE)[1].split(" | ")
    walks = len(GUARDED)
    assert (guarded, harmful) == (
        (f"0 of {walks} equal; {walks} refused", "3, `library-unfit`")
        if as_numbers(version) < FIRST_FOR_GUARD
        else (f"{walks} of {walks} equal", "3, `rows-lost`"))
    assert refusing in ("no such option", f"0 of {walks} equal; {walks} refused")


def test_the_text_has_the_first_library_for_the_guard():
    assert re.search(r"The guard needs (\S+) or newer", PAGE)[1] == (
        ".".join(map(str, FIRST_FOR_GUARD)))


def test_everything_planted_has_its_rows():
    assert {*PLANTED} <= {*first_cells()}


@pytest.mark.parametrize("text, replacement, part, expected", [
    pytest.param("", "", "differs", [], id="nothing"),
    pytest.param("version 16 was successful.", "version 16 FAILED!", "missing",
                 ["Migration to version 16 was successful."], id="a line less"),
    pytest.param("\n== versions", "\na line\n== versions", "added", ["a line"], id="a line more"),
    pytest.param(f"mainSqlDb|{NEWEST}", "mainSqlDb|1", "differs", ["versions"],
                 id="the versions"),
    pytest.param("== pool", "== userProfiles\n-x\n== pool", "differs", ["userProfiles"],
                 id="a table"),
    pytest.param("readme.txt',)\n", "readme.txt',)\n== userProfiles\n-x\n", "differs",
                 ["userProfiles"], id="the last table"),
])
def test_difference_is_named(text, replacement, part, expected):
    whole = expected_of_walk(1, NEWEST)
    found = difference(whole, whole.replace(text, replacement) if text else whole)
    assert (found[part], is_none(found)) == (expected, text == "")
    assert failed_versions(found) == ([16] if part == "missing" else [])


class Answers:
    """A campaign in which every case has ended in the same way, except those of some kinds."""

    def __init__(self, found, **by_kind):
        self.found = found
        self.by_kind = by_kind

    def answer(self, case):
        return self.by_kind.get(case[2], self.found)


EQUAL = {"missing": [], "added": [], "differs": []}
REFUSED = {"status": 3, "reason": "library-unfit", "unchanged": True}


@pytest.mark.parametrize("library, status, harmful, expected", [
    pytest.param("3.33.0", 0, {}, 0, id="as it should be"),
    pytest.param("3.33.0", 4, {}, len(GUARDED), id="another status of the guard"),
    pytest.param("3.33.0", 3, {}, len(GUARDED), id="a library that should not be refused"),
    pytest.param("3.32.0", 3, {}, 0, id="a library that is too old"),
    pytest.param("3.32.0", 0, {}, len(GUARDED), id="a library that should be refused"),
    pytest.param("3.33.0 SQLITE_DQS=0", 3, {}, 0, id="a library that refuses texts"),
    pytest.param("3.33.0 SQLITE_DQS=0", 4, {}, len(GUARDED), id="texts that are missed"),
    pytest.param("3.33.0 SQLITE_DQS=1", 0, {}, 0, id="an option that changes nothing"),
    pytest.param("3.33.0", 0, {"status": 0}, 1, id="a harmful program that goes through"),
    pytest.param("3.33.0", 0, {"unchanged": False}, 1, id="a changed database"),
])
def test_what_is_unexpected_is_counted(library, status, harmful, expected):
    found = Trials(Answers({**EQUAL, "status": status}, walk=EQUAL,
                           harmful={**REFUSED, **harmful}))
    assert found.unexpected(Library(*library.split())) == expected


def test_a_status_is_told():
    found = Trials(Answers({**EQUAL, "status": 4}))
    assert found.figures(Library(REFERENCE), "guarded") == "0 of 3 equal; status 4"


@pytest.mark.parametrize("harmful, text", [
    pytest.param({}, "3, `library-unfit`", id="refused"),
    pytest.param({"status": 0, "reason": "rows-lost", "unchanged": False},
                 "0, `rows-lost`, but the database has changed", id="changed"),
])
def test_the_end_of_a_harmful_program_is_told(harmful, text):
    found = Trials(Answers({}, harmful={**REFUSED, **harmful}))
    assert found.harmful(Library(REFERENCE)) == text


@pytest.mark.parametrize("status, text", [
    pytest.param(None, "0 of 3 equal; version 16 fails; `tableVersion`", id="a walk that differs"),
    pytest.param(3, "0 of 3 equal; 3 refused", id="a guard that changes nothing")])
def test_what_the_guard_refuses_is_told_apart(status, text):
    found = {"missing": ["Migration to version 16 was successful."], "added": [],
             "differs": ["versions"], "status": status}
    assert len(GUARDED) == 3
    library = Library(REFERENCE, "SQLITE_DQS=0")
    assert Trials(Answers(found)).figures(library, "guarded") == text
