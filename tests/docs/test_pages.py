"""Everything that docs/kept-on-purpose.md names exists: files, functions, test functions and test
rows. tests/README.md has a row for every folder of tests."""

import re

import pytest
from support.places import ROOT, TESTS, product_sources

PAGE = (ROOT / "docs" / "kept-on-purpose.md").read_text(encoding="utf-8")
CODE = re.compile(r"`([^`]+)`")
TEST = re.compile(r"program/test_\w+\.py|\w+_test\b")
ROW = re.compile(r'"([^"]+)"')
PRODUCT = {file: file.read_text(encoding="utf-8") for file in product_sources()}
# A long text is several literals in a row.
BETWEEN_LITERALS = re.compile(r'"\s+(?:QStringLiteral\()?"')


def rows_of(page):
    """The rows of the page's tables: where, pinned by, and the test that a heading names."""
    heading = ""
    lines = page.splitlines()
    for line, following in zip(lines, [*lines[1:], ""]):
        cells = [cell.strip() for cell in line.strip("|").split(" | ")]
        if following.startswith("|---"):
            heading = cells[2]
        elif line.startswith("|") and not line.startswith("|---"):
            yield pytest.param(*cells[1:], heading, id=cells[0])


def missing_code(where):
    """The files and functions that a text names and the program does not have."""
    for name in CODE.findall(where):
        if "/" in name:
            exists = (ROOT / name).is_file()
        else:
            exists = any(file.stem == name or re.search(rf"\b{re.escape(name)}\(", text)
                         for file, text in PRODUCT.items())
        if not exists:
            yield name


def missing_tests(pinned_by, heading):
    """The tests, test functions and test rows that a text names and that do not exist."""
    text = ""
    for name in TEST.findall(pinned_by) or TEST.findall(heading):
        files = [*TESTS.glob(name if name.endswith(".py") else f"*/{name}.cpp")]
        if not files:
            yield name
        text += "".join(file.read_text(encoding="utf-8") for file in files)
    for name in CODE.findall(pinned_by):
        if not re.search(rf"^ *void (\w+::)?{re.escape(name)}\(", text, re.MULTILINE):
            yield name
    rows = BETWEEN_LITERALS.sub("", text)
    for name in ROW.findall(pinned_by):
        if f'"{name}"' not in rows and not (
                name.endswith("…") and f'"{name.removesuffix("…")}' in rows):
            yield name


@pytest.mark.parametrize("where, pinned_by, heading", rows_of(PAGE))
def test_row_names_what_exists(where, pinned_by, heading):
    assert TEST.search(f"{pinned_by} {heading}")
    assert [*missing_code(where), *missing_tests(pinned_by, heading)] == []


def test_what_does_not_exist_is_noticed():
    assert [*missing_code("`app/gone.cpp`, `updateToVersion2`, `goneFunction`, `registry`")] == [
        "app/gone.cpp", "goneFunction"]
    assert [*missing_tests('gone_test: `gone`, program/test_walks.py; "gone row"', "")] == [
        "gone_test", "gone", "gone row"]
    assert [*missing_tests("`gone`", "Pinned by (registry_test)")] == ["gone"]


def test_every_folder_of_tests_has_a_row_in_the_readme():
    readme = (TESTS / "README.md").read_text(encoding="utf-8")
    cells = re.findall(r"^\| ([a-z, ]+) \|", readme, re.MULTILINE)
    named = [folder for cell in cells for folder in cell.split(", ")]
    assert sorted(named) == sorted(path.name for path in TESTS.iterdir()
                                   if path.is_dir() and path.name != "__pycache__")
