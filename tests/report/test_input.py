"""Input that is no rehearsal and no lastMigration.json: a message and a status, no traceback."""

import copy
import json
import subprocess

import jsonschema
import pytest
from conftest import PROGRAM, make_page
from page import render
from reading import Unreadable, read_runs
from rehearsals import (failing, finding, hostile, keys, mended, record, refused, rehearsal,
                        values, verdict)
from support.places import ROOT, scratch_directory

RECORD = ROOT / "docs" / "last-migration.schema.json"
REHEARSAL = ROOT / "docs" / "rehearsal.schema.json"


@pytest.fixture
def folder():
    with scratch_directory() as made:
        yield made


def complain(content):
    """The message about a file, without its name."""
    ended = subprocess.run([PROGRAM, "-"], input=content, capture_output=True, check=False)
    assert (ended.returncode, ended.stdout) == (1, b"")
    start, message = ended.stderr.decode().split(": -: ")
    assert start == "migration-report"
    return message.rstrip("\n")


def changed(document, path, value):
    made = copy.deepcopy(document)
    *places, last = path
    inner = made
    for place in places:
        inner = inner[place]
    inner[last] = value
    return made


@pytest.mark.parametrize("content, message", [
    (b"", "there is nothing in it"),
    (b" \n", "there is nothing in it"),
    (b"\xff{}", "it is not UTF-8: invalid start byte at byte 0"),
    (b"PK\x03\x04", "it is not JSON, or only a part of it: line 1, column 1: Expecting value"),
    (b'{"format": 1}\n{"format": 1, "rehear',
     "it is not JSON, or only a part of it: line 2, column 15: Unterminated string starting at"),
    (b"[" * 100_000, "it is not JSON that can be read: maximum recursion depth exceeded while"
                     " decoding a JSON array from a unicode string"),
    (b'{"format": NaN}', "it is not JSON that can be read: NaN is no number of JSON"),
    (b"[]", "it is not an object"),
    (b"{}", "it is neither a rehearsal nor a lastMigration.json"),
    (b'{"format": 1, "rehearsal": false}', "it is neither a rehearsal nor a lastMigration.json"),
    (b'{"format": 2, "rehearsal": true}', "it has the format 2, and only 1 is known here"),
    (b'{"rehearsal": true}', "format is missing"),
    (b'{"format": 1, "lastRun": []}', "lastRun is not an object")])
def test_file_that_is_none_is_refused(content, message):
    assert complain(content) == message


@pytest.mark.parametrize("path, value, message", [
    (["status"], 7, "status is 7, and none of 0, 3 and 4"),
    (["status"], None, "status is missing"),
    (["status"], "0", "status is not a whole number"),
    (["from"], 1.5, "from is not a whole number"),
    (["from"], True, "from is not a whole number"),
    (["from"], 10 ** 30, "from is not a whole number"),
    (["log"], ["a"], "log is not a text"),
    (["withRows"], 1, "withRows is not true or false"),
    (["given"], [], "given is not an object"),
    (["versions"], {}, "versions is not a list"),
    (["versions", 3, "lines"], [1], "versions[3].lines[0] is not a text"),
    (["verdict", "findings", 1], 5, "verdict.findings[1] is not an object"),
    (["verdict", "findings", 0, "numbers", "rows"], "3",
     "verdict.findings[0].numbers.rows is not a whole number"),
    (["verdict", "findings", 0, "rows", 2, "key"], 11,
     "verdict.findings[0].rows[2].key is not a text"),
    (["verdict", "findings", 0, "onPurpose"], [],
     "verdict.findings[0].onPurpose is not a version, a text or null"),
    (["verdict", "tables", 2, "rowsGone"], None, "verdict.tables[2].rowsGone is missing")])
def test_wrong_field_is_named(path, value, message):
    document = changed(failing(), path, value)
    assert complain(json.dumps(document).encode()) == message
    lines = [rehearsal(), document, rehearsal()]
    assert complain("\n".join(map(json.dumps, lines)).encode()) == f"the 2nd object: {message}"


def test_file_that_cannot_be_read_is_named(folder):
    for file, message in ((folder / "missing.json", "No such file or directory"),
                          (folder, "Is a directory")):
        ended = subprocess.run([PROGRAM, file], capture_output=True, text=True, check=False)
        assert (ended.returncode, ended.stdout, ended.stderr) == (
            1, "", f"migration-report: {file}: {message}\n")


def test_wrong_call_ends_with_2():
    for arguments in ([], ["a", "b"], ["--unknown"]):
        ended = subprocess.run([PROGRAM, *arguments], capture_output=True, text=True, check=False)
        assert ended.returncode == 2 and ended.stdout == "" and "usage:" in ended.stderr


def test_page_is_the_same_from_a_file_and_from_the_standard_input(folder):
    file = folder / "rehearsal.json"
    file.write_text("\ufeff" + json.dumps(failing(), indent=2), encoding="utf-8")
    from_file = subprocess.run([PROGRAM, file], capture_output=True, check=True).stdout
    assert from_file == make_page(failing()).stdout


def whole_document():
    """A rehearsal with every known field, once."""
    document = failing()
    document["verdict"] = verdict(16, 26, 34, [
        finding("rows-lost:PC_Mix", 1, 41, on_purpose=7, counts=True, detail="words",
                **keys("PC_Mix", "4")),
        finding("renamed:farms", 1, 30, accepted=True, **values("farms", ("1", "'a'", "'b'"))),
        finding("values-lost:x.y", 1, 9, on_purpose="script")], [("PC_Mix", 41, 40, 1, 0)], [35])
    document["wayBack"] = {"target": 16, "to": 16, "reached": True,
                           **verdict(16, 16, 16, [finding("rows-lost:x", 1, 9, on_purpose=7)],
                                     [("x", 9, 8, 1, 0)])}
    document["versions"] = document["versions"][10:12]
    return document


def places_in(value, path=()):
    """The paths of all values in a document."""
    inner = value.items() if isinstance(value, dict) else (
        enumerate(value) if isinstance(value, list) else ())
    for name, element in inner:
        yield *path, name
        yield from places_in(element, (*path, name))


OTHERS = (None, True, False, 0, -1, 3, 4, 1.5, 1e300, 10 ** 30, "", "x", "\ud800", "\0", [], [0],
          ["x"], [{}], {}, {"x": 1})


@pytest.mark.parametrize("document", [
    pytest.param(whole_document(), id="rehearsal"), pytest.param(record(), id="record")])
def test_any_value_in_any_place_makes_a_page_or_a_message(document):
    pages, messages = 0, set()
    for path in places_in(document):
        for value in OTHERS:
            content = json.dumps(changed(document, path, value)).encode()
            try:
                render(read_runs(content)).encode("utf-8")
                pages += 1
            except Unreadable as error:
                messages.add(str(error))
    assert pages > 500 and len(messages) > 50


def test_fields_that_may_be_missing_are_not_missed():
    for needed in ({"format": 1, "rehearsal": True, "status": 0},
                   {"format": 1, "rehearsal": True, "status": 3},
                   {"format": 1, "rehearsal": True, "status": 4},
                   {"format": 1, "lastRun": {"status": 0}}):
        assert make_page(needed).returncode == 0


def test_fields_that_are_not_known_are_passed_over():
    def with_more(value, later):
        """Adds an unknown field to every object, except to those that hold only numbers."""
        if isinstance(value, dict):
            return {name: with_more(inner, 5 if name in ("numbers", "milliseconds", "bytes")
                                    else {"x": [1]}) for name, inner in value.items()} | {
                "later": later}
        return [with_more(inner, {"x": [1]}) for inner in value] if isinstance(
            value, list) else value

    assert make_page(with_more(failing(), [])).stdout == make_page(failing()).stdout


def test_samples_are_what_the_guard_writes():
    jsonschema.validate(record(), json.loads(RECORD.read_text(encoding="utf-8")))
    schema = json.loads(REHEARSAL.read_text(encoding="utf-8"))
    for document in (rehearsal(), failing(), refused(), mended(), whole_document()):
        jsonschema.validate(document, schema)


def test_hostile_texts_make_a_page():
    assert make_page(hostile()).returncode == 0
