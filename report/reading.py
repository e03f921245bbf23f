"""Reads what migration-guard writes as JSON: rehearsals, and lastMigration.json.

Every field that the page uses is read here, once, and its type is checked. Fields that the page
does not know are ignored; fields that may be missing are None. An error names the place in the
file.
"""

import json
import re
from dataclasses import dataclass, replace

FORMAT = 1
STATUSES = (0, 3, 4)
# The guard's numbers have 64 bits.
LARGEST = 2 ** 63


class Unreadable(Exception):
    """What is wrong with the JSON, for the user."""


@dataclass(frozen=True)
class Row:
    """A row that a finding is about. Key and values are SQL literals."""

    table: str
    key: str
    before: str | None  # only for a value
    after: str | None


@dataclass(frozen=True)
class Finding:
    code: str
    kind: str
    object: str
    column: str
    numbers: dict
    sentence: str
    before: bool
    on_purpose: int | str | None  # a version, "script", "unknown", or None: only here
    accepted: bool
    counts: bool
    rows: tuple | None  # None where contents were left out
    has_all_rows: bool
    detail: str
    mending: str  # for a mended copy: what was done, and the table that it is a copy of
    table: str


@dataclass(frozen=True)
class TableRows:
    table: str
    before: int
    after: int
    gone: int
    new: int


@dataclass(frozen=True)
class Verdict:
    """A finding; also a difference that a way back would not restore."""

    counting: int
    findings: tuple
    tables: tuple
    unknown_versions: tuple


@dataclass(frozen=True)
class Step:
    version: int
    direction: str
    outcome: str
    lines: tuple


@dataclass(frozen=True)
class Copy:
    """A copy of a table that a cut run has left, and what `run --mend` does with it."""

    copy: str
    table: str
    kind: str
    rows: int | None
    rows_returned: int | None
    reason: str


@dataclass(frozen=True)
class WayBack:
    target: int | None
    to: int | None
    reached: bool
    losses: Verdict


@dataclass(frozen=True)
class Change:
    """A change of the version that is some runs ago."""

    command: str
    source: int | None
    to: int | None
    target: int | None
    way: str
    status: int
    reason: str


@dataclass(frozen=True)
class Run:
    """A rehearsal, or a run that has taken place."""

    is_rehearsal: bool
    command: str
    path: str
    journal_mode: str
    with_rows: bool
    source: int | None
    to: int | None
    target: int | None
    status: int
    reason: str
    detail: str
    way: str
    changed: bool | None
    assumed: tuple
    platform: str
    software_version: str
    guard: str
    sqlite: str
    program: int | None
    milliseconds: dict
    bytes: dict
    flushes: int | None
    verdict: Verdict | None
    steps: tuple
    copies: tuple
    way_back: WayBack | None
    log: str | None
    # Only in lastMigration.json:
    run_since: "Run | None" = None  # the last run, if this is an earlier one
    changes: tuple = ()
    is_in_order: bool = True

    @property
    def end_is_known(self):
        """False if nobody can tell which version the database has after the run."""
        return self.reason != "commit-unknown" and (self.is_rehearsal or self.changed is not None)


def ordinal(number):
    teens = 10 <= number % 100 <= 20
    return f"{number}{'th' if teens else {1: 'st', 2: 'nd', 3: 'rd'}.get(number % 10, 'th')}"


class Fields:
    """An object of the JSON. Every look at a field checks its type."""

    def __init__(self, value, place=""):
        if not isinstance(value, dict):
            raise Unreadable(f"{place or 'it'} is not an object")
        self.values = value
        self.place = place

    def at(self, name):
        return f"{self.place}.{name}" if self.place else name

    def look(self, name, what, check, required):
        """The value of a field; None if the field is missing or null."""
        value = self.values.get(name)
        if value is None:
            if required:
                raise Unreadable(f"{self.at(name)} is missing")
            return None
        if not check(value):
            raise Unreadable(f"{self.at(name)} is not {what}")
        return value

    def number(self, name, required=False):
        value = self.look(name, "a whole number", is_whole_number, required)
        return None if value is None else int(value)

    def text(self, name, required=False):
        return self.look(name, "a text", lambda value: isinstance(value, str), required) or ""

    def flag(self, name, required=False):
        return self.look(name, "true or false", lambda value: isinstance(value, bool), required)

    def fields(self, name, required=False):
        """The object in a field; an empty object if there is none."""
        return Fields(self.look(name, "an object", lambda value: isinstance(value, dict),
                                required) or {}, self.at(name))

    def has(self, name):
        return self.values.get(name) is not None

    def list(self, name, read, required=False):
        """The elements of a list, each read with its place."""
        values = self.look(name, "a list", lambda value: isinstance(value, list), required) or ()
        return tuple(read(value, f"{self.at(name)}[{number}]")
                     for number, value in enumerate(values))

    def objects(self, name, read, required=False):
        return self.list(name, lambda value, place: read(Fields(value, place)), required)

    def numbers(self, name):
        inner = self.fields(name)
        return {key: inner.number(key) for key in inner.values if inner.has(key)}


def is_whole_number(value):
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        return False
    return abs(value) <= LARGEST and int(value) == value


def text_element(value, place):
    if not isinstance(value, str):
        raise Unreadable(f"{place} is not a text")
    return value


def number_element(value, place):
    if not is_whole_number(value):
        raise Unreadable(f"{place} is not a whole number")
    return int(value)


def read_row(row):
    return Row(row.text("table"), row.text("key"),
               row.text("before") if row.has("before") else None,
               row.text("after") if row.has("after") else None)


def read_finding(finding):
    on_purpose = finding.look(
        "onPurpose", "a version, a text or null",
        lambda value: isinstance(value, str) or is_whole_number(value), False)
    return Finding(
        code=finding.text("code", required=True), kind=finding.text("kind", required=True),
        object=finding.text("object"), column=finding.text("column"),
        numbers=finding.numbers("numbers"), sentence=finding.text("sentence"),
        before=bool(finding.flag("before")),
        on_purpose=on_purpose if isinstance(on_purpose, (str, type(None))) else int(on_purpose),
        accepted=bool(finding.flag("accepted")), counts=bool(finding.flag("counts", required=True)),
        rows=finding.objects("rows", read_row) if finding.has("rows") else None,
        has_all_rows=finding.flag("hasAllRows") is not False, detail=finding.text("detail"),
        mending=finding.text("mending"), table=finding.text("table"))


def read_table(table):
    return TableRows(table.text("table", required=True), *(
        table.number(name, required=True)
        for name in ("rowsBefore", "rowsAfter", "rowsGone", "rowsNew")))


def read_verdict(verdict):
    findings = verdict.objects("findings", read_finding, required=True)
    counting = verdict.number("counting")
    return Verdict(
        counting=sum(finding.counts for finding in findings) if counting is None else counting,
        findings=findings, tables=verdict.objects("tables", read_table),
        unknown_versions=verdict.list("unknownVersions", number_element))


def read_step(step):
    lines = tuple(line for line in step.list("lines", text_element) if line.strip())
    return Step(step.number("version", required=True), step.text("direction"),
                step.text("outcome", required=True), lines)


def read_copy(copy):
    return Copy(copy.text("copy", required=True), copy.text("table"),
                copy.text("kind", required=True), copy.number("rowsOfCopy"),
                copy.number("rowsReturned"), copy.text("reason"))


def read_way_back(way_back):
    return WayBack(way_back.number("target"), way_back.number("to"),
                   way_back.flag("reached") is not False, read_verdict(way_back))


def read_status(fields):
    status = fields.number("status", required=True)
    if status not in STATUSES:
        raise Unreadable(f"{fields.at('status')} is {status}, and none of 0, 3 and 4")
    return status


def read_change(change):
    return Change(change.text("command"), change.number("from"), change.number("to"),
                  change.number("target"), change.text("way"), read_status(change),
                  change.text("reason"))


def read_run(run, is_rehearsal):
    database = run.fields("database")
    given = run.fields("given")
    software = run.fields("software")
    measured = run.fields("measured")
    return Run(
        is_rehearsal=is_rehearsal, command=run.text("command") or "run",
        path=database.text("path"), journal_mode=database.text("journalMode"),
        with_rows=is_rehearsal and run.flag("withRows") is not False,
        source=run.number("from"), to=run.number("to"), target=run.number("target"),
        status=read_status(run), reason=run.text("reason"), detail=run.text("detail"),
        way=run.text("way"), changed=run.flag("changed"), assumed=run.list("assumed", text_element),
        platform=given.text("platform"), software_version=given.text("softwareVersion"),
        guard=software.text("guard"), sqlite=software.text("sqlite"),
        program=software.number("program"), milliseconds=measured.numbers("milliseconds"),
        bytes=measured.numbers("bytes"), flushes=measured.number("flushes"),
        verdict=read_verdict(run.fields("verdict")) if run.has("verdict") else None,
        steps=run.objects("versions", read_step), copies=run.objects("mending", read_copy),
        way_back=read_way_back(run.fields("wayBack")) if run.has("wayBack") else None,
        log=run.text("log") if run.has("log") else None)


def read_record(record):
    """The last change in lastMigration.json, even if an ordinary boot has followed it."""
    last = read_run(record.fields("lastRun", required=True), is_rehearsal=False)
    change = last
    if record.has("lastChange"):
        change = read_run(record.fields("lastChange"), is_rehearsal=False)
    return replace(
        change, run_since=last if last != change else None,
        changes=record.objects("changes", read_change),
        is_in_order=record.flag("databaseInOrder") is not False)


def read_object(value):
    document = Fields(value)
    if not document.has("lastRun") and not document.flag("rehearsal"):
        raise Unreadable("it is neither a rehearsal nor a lastMigration.json")
    form = document.number("format", required=True)
    if form != FORMAT:
        raise Unreadable(f"it has the format {form}, and only {FORMAT} is known here")
    if document.has("lastRun"):
        return read_record(document)
    return read_run(document, is_rehearsal=True)


def refuse_constant(name):
    raise ValueError(f"{name} is no number of JSON")


def parse(content):
    """The objects of a file: one, or several in a row."""
    try:
        text = content.decode("utf-8-sig")
    except UnicodeDecodeError as error:
        raise Unreadable(f"it is not UTF-8: {error.reason} at byte {error.start}") from error
    decoder = json.JSONDecoder(parse_constant=refuse_constant)
    blank = re.compile(r"[ \t\r\n]*")
    place = blank.match(text).end()
    while place < len(text):
        try:
            value, place = decoder.raw_decode(text, place)
        except json.JSONDecodeError as error:
            raise Unreadable(f"it is not JSON, or only a part of it: line {error.lineno},"
                             f" column {error.colno}: {error.msg}") from error
        except (ValueError, RecursionError) as error:
            raise Unreadable(f"it is not JSON that can be read: {error}") from error
        yield value
        place = blank.match(text, place).end()


def read_runs(content):
    """The rehearsals and runs of a file.

    content: bytes. Raises Unreadable if the file has none, or if one is not what it should be.
    """
    values = list(parse(content))
    if not values:
        raise Unreadable("there is nothing in it")
    runs = []
    for number, value in enumerate(values, 1):
        try:
            runs.append(read_object(value))
        except Unreadable as error:
            where = f"the {ordinal(number)} object: " if len(values) > 1 else ""
            raise Unreadable(f"{where}{error}") from error
    return runs
