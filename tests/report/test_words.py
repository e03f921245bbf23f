"""The texts of the page are those of the documents, and none is missing."""

import difflib
import re

import pytest
from regenerate_words import WORDS, words
from support.places import ROOT
from support.versions import VERSIONS
from texts import Words

GUARD = ROOT / "guard"


def test_words_are_current():
    difference = "\n".join(difflib.unified_diff(
        WORDS.read_text(encoding="utf-8").splitlines(), words().splitlines(), str(WORDS),
        "what the documents say", n=0, lineterm=""))
    if difference:
        pytest.fail(f"{difference}\n\nThis writes it again: tests/report/regenerate_words.py",
                    pytrace=False)


def test_every_version_and_every_status_has_words():
    texts = Words().texts
    assert [*texts["versions"]] == [str(version) for version in VERSIONS if version > 1]
    assert [*texts["statuses"]] == ["0", "3", "4"]


def test_every_table_that_has_a_word_in_the_guard_has_it_here():
    listed = re.findall(r'^    \{"', (GUARD / "verdict" / "table_words.cpp").read_text(
        encoding="utf-8"), re.MULTILINE)
    assert len(Words().texts["tables"]) == len(listed) > 50


def test_every_kind_of_finding_has_words():
    sentences = (GUARD / "verdict" / "sentence.cpp").read_text(encoding="utf-8")
    kinds = {*re.findall(r'^    \{"([a-z-]+)", ', sentences, re.MULTILINE)}
    assert len(kinds) > 10
    assert kinds <= {*Words().texts["findings"]}


def test_every_reason_for_no_rehearsal_has_words():
    page = (ROOT / "docs" / "rehearsal.md").read_text(encoding="utf-8")
    table = re.search(r"^\| Reason \| \|\n.*?\n\n", page, re.DOTALL | re.MULTILINE)[0]
    cells = re.findall(r"^\| (`.*?`) \|", table, re.MULTILINE)
    named = {*re.findall(r"`([a-z-]+)`", "\n".join(cells))}
    assert len(named) > 5
    assert named <= {*Words().texts["reasonsForNoRehearsal"]}


def test_every_reason_has_words():
    """Every reason that the guard can give is in the table of reasons in docs/guard.md."""
    page = (ROOT / "docs" / "guard.md").read_text(encoding="utf-8")
    table = re.search(r"^\| `reason` \| \|\n.*?\n\n", page, re.DOTALL | re.MULTILINE)[0]
    named = {*re.findall(r"`([a-z-]+)`", "\n".join(
        line.split(" | ")[0] for line in table.splitlines()))} - {"reason", "kind"}
    texts = Words().texts
    assert len(named) > 20
    assert named <= {*texts["reasons"], *texts["findings"]}
