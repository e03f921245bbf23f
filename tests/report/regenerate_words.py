#!/usr/bin/python3
"""Writes report/words.json again: the texts for codes, reasons, statuses, SQLite's words, versions
and tables on the page for a technician. They come from docs/findings.md, docs/versions.md and
guard/verdict/table_words.cpp, so each is written only once.

    tests/report/regenerate_words.py
"""

import json
import pathlib
import re
import sys

if __name__ == "__main__":
    sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from support.places import ROOT

WORDS = ROOT / "report" / "words.json"
FINDINGS = ROOT / "docs" / "findings.md"
VERSIONS = ROOT / "docs" / "versions.md"
TABLE_WORDS = ROOT / "guard" / "verdict" / "table_words.cpp"


def rows_below(page, heading):
    """The rows of the table below a heading of a page, as lists of their cells."""
    section = re.search(rf"^## {re.escape(heading)}\n(.*?)(?=^## |\Z)", page,
                        re.DOTALL | re.MULTILINE)[1]
    lines = re.findall(r"^\| (.*) \|$", section, re.MULTILINE)
    return [line.split(" | ") for line in lines[1:]]


def code_parts(cell):
    """`rows-lost:fields` has the kind rows-lost and the object fields; for a column it is the
    table."""
    kind, _, named = cell.strip("`").partition(":")
    return kind, named.split(".")[0]


def finding(cell, *texts):
    """The page's texts for a code. Where a text names the example's object, `x` of `table-lost:x`,
    the result has {object}."""
    example = code_parts(cell)[1]
    if example:
        named = re.compile(rf"(?<![A-Za-z0-9]){re.escape(example)}(?![A-Za-z0-9])")
        texts = [named.sub("{object}", text) for text in texts]
    means, advice = texts
    return {"means": means, "advice": advice}


def reasons(page, heading):
    return {name.strip("`"): {"means": means, "advice": advice}
            for name, means, advice in rows_below(page, heading)}


def words():
    """The text of report/words.json."""
    findings = FINDINGS.read_text(encoding="utf-8")
    versions = VERSIONS.read_text(encoding="utf-8")
    tables = TABLE_WORDS.read_text(encoding="utf-8")
    return json.dumps({
        "findings": {code_parts(cells[0])[0]: finding(*cells)
                     for cells in rows_below(findings, "The codes")},
        "statuses": {status: {"run": run, "rehearsal": rehearsal}
                     for status, run, rehearsal in rows_below(findings, "What a status asks for")},
        "reasons": reasons(findings, "Reasons"),
        "reasonsForNoRehearsal": reasons(findings, "Reasons for no rehearsal"),
        "sqlite": {text.strip("`"): plain
                   for text, plain in rows_below(findings, "What SQLite's words mean")},
        "versions": dict(re.findall(r"^\| \[(\d+)\]\(#version-\d+\) \| (.*?) \|", versions,
                                    re.MULTILINE)),
        "tables": dict(re.findall(r'^    \{"(.*?)", "(.*?)"\},$', tables, re.MULTILINE)),
    }, indent=2, ensure_ascii=False) + "\n"


if __name__ == "__main__":
    WORDS.write_text(words(), encoding="utf-8")
