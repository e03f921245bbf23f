"""docs/sqlite.md has the answers for every library that the campaign tries."""

import re

import pytest
from campaign import Trials
from libraries import OPTIONS, PACKAGES, REFERENCE, Library
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
    """A campaign in which every walk has ended in the same way."""

    def __init__(self, found):
        self.found = found

    def answer(self, _):
        return self.found


@pytest.mark.parametrize("status, text", [
    pytest.param(0, "0 of 3 equal; version 16 fails; `tableVersion`", id="a walk that differs"),
    pytest.param(3, "0 of 3 equal; 3 refused", id="a guard that changes nothing")])
def test_what_the_guard_refuses_is_told_apart(status, text):
    found = {"missing": ["Migration to version 16 was successful."], "added": [],
             "differs": ["versions"], "status": status}
    assert len(GUARDED) == 3
    library = Library(REFERENCE, "SQLITE_DQS=0")
    assert Trials(Answers(found)).figures(library, "guarded") == text
