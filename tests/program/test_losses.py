"""guard/schema-versions.json names exactly what a run takes on purpose: a sample of random devices,
2,000 in a campaign. What is missing besides is noticed."""

import concurrent.futures
import contextlib
import dataclasses
import json
import os
import random
import re
import shutil
import sqlite3
import sys

import pytest
from conftest import expected_log, scratch_device
from full_rows import with_full_rows
from losses import SCHEMA_VERSIONS
from probes import last_with_change
from steps import ALWAYS_REAPPLIED, taken_out
from support.contents import identifier
from support.judge import BACKWARD, EVERY_RUN, FORWARD, Judgement, TrackedTable, Walk, judge
from support.places import TESTS, scratch_directory
from support.versions import NEWEST, VERSIONS, dump_of
from walks import PLATFORMS, device_with, log_of_repairs, log_of_steps

sys.path.insert(0, str(TESTS / "fuzz"))
from healthy import healthy_device  # noqa: E402

TABLE = json.loads(SCHEMA_VERSIONS.read_text(encoding="utf-8"))
TORVIK, TORVIKMAX = PLATFORMS
CAMPAIGN = "CAMPAIGN" in os.environ
DEVICES = 2000 if CAMPAIGN else 20
APPLIED_AGAIN = re.compile(r"applying update to db for version (\d+)")


@dataclasses.dataclass(frozen=True)
class Run:
    """A run of the program on a random device."""

    seed: int
    start: int
    end: int
    platform: str

    def walk(self):
        return Walk(self.start, self.end, ALWAYS_REAPPLIED[self.start])

    def device(self):
        busy = [name for version, direction in self.walk().steps
                for name, entry in TABLE["versions"][str(version)][direction].items()
                if "rows" in entry or "values" in entry] if abs(self.start - self.end) == 1 else []
        return healthy_device(self.seed, self.start, self.end, self.platform, busy)


def single_steps():
    """Every step, on either platform where they differ."""
    for version, entry in TABLE["versions"].items():
        newer = int(version)
        older = newer - 1
        for direction, ends in ((FORWARD, (older, newer)), (BACKWARD, (newer, older))):
            yield Run(newer, *ends, TORVIK)
            if "platform" in str(entry[direction]):
                yield Run(newer, *ends, TORVIKMAX)


def random_runs():
    for seed in range(DEVICES):
        chance = random.Random(seed)
        yield Run(seed, chance.choice(VERSIONS), chance.choice((1, NEWEST, *VERSIONS)),
                  chance.choice(PLATFORMS))


RUNS = [*single_steps(), *random_runs()]


@contextlib.contextmanager
def databases_of(run):
    """The database before a run, and after it."""
    with scratch_device() as device:
        device.fill(run.device().files)
        before = device.root / "before"
        shutil.copyfile(device.database, before)
        device.run(str(run.end))
        assert device.log() == expected_log(
            run.start, run.end, log_of_repairs(ALWAYS_REAPPLIED[run.start]) +
            log_of_steps(run.start, run.end), (run.end, "1.2.3")), run
        yield before, device.database


def judgement_of(run):
    with databases_of(run) as (before, after):
        return judge(before, after, TABLE, run.walk(), run.platform)


@pytest.fixture(scope="module")
def judgements():
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as executor:
        return dict(zip(RUNS, executor.map(judgement_of, RUNS)))


def entries():
    """Everything that the table names, as the keys of a judgement; what is renamed is not lost."""
    for version, directions in TABLE["versions"].items():
        for direction in (FORWARD, BACKWARD):
            step = int(version), direction
            for name, entry in directions[direction].items():
                if entry.get("dropped"):
                    yield step, "table", name
                if "rows" in entry:
                    yield step, "rows", name
                for column in entry.get("columnsDropped", ()):
                    yield step, "column", f"{name}.{column}"
                for column in entry.get("values", ()):
                    yield step, "values", f"{name}.{column}"
    every_run = TABLE["everyRun"]
    for entry in every_run["rows"]:
        yield EVERY_RUN, "rows", entry["table"]
    for name, column in every_run["names"].items():
        yield EVERY_RUN, "values", f"{name}.{column}"
    for name, columns in every_run["values"].items():
        yield from ((EVERY_RUN, "values", f"{name}.{column}") for column in columns)


def test_exactly_what_the_table_names_goes(judgements):
    assert [(run, judgement) for run, judgement in judgements.items()
            if judgement.lost or judgement.left or judgement.unknown] == []


def test_every_entry_of_the_table_is_seen(judgements):
    seen = {key for judgement in judgements.values() for key in judgement.taken}
    assert {*entries()} - seen == set()


@pytest.mark.parametrize("version", VERSIONS[1:] if CAMPAIGN else (2, 12, 22, 31, 32))
def test_what_self_repair_takes_is_the_work_of_the_versions_that_it_applies_again(version):
    at = last_with_change(version)
    with device_with(with_full_rows(dump_of(at)) + taken_out()[version]) as device:
        before = device.root / "before"
        shutil.copyfile(device.database, before)
        device.run(str(at))
        again = [int(number) for number in APPLIED_AGAIN.findall(device.log())]
        judgement = judge(before, device.database, TABLE, Walk(at, at, again), TORVIK)
    assert version in again or version in (7, 9)
    assert (judgement.lost, judgement.left) == ({}, {})


@pytest.fixture(scope="module")
def long_walk():
    """Over all versions: a copy of the database before, and one of the result."""
    with scratch_directory() as folder, databases_of(Run(1, 1, NEWEST, TORVIKMAX)) as databases:
        copies = folder / "before", folder / "after"
        for database, copy in zip(databases, copies):
            shutil.copyfile(database, copy)
        yield copies


def first(table):
    return f"WHERE rowid = (SELECT min(rowid) FROM {table})"


# The change to the result, the loss that is then only here, and what a version should have taken.
CHANGES = {
    "nothing": ("SELECT 1", {}, {}),
    "a row of a table that no version touches": (
        f"DELETE FROM guidanceLines {first('guidanceLines')}", {("rows", "guidanceLines"): 1}, {}),
    "a row more than version 9 takes": (
        f"DELETE FROM MC_MachineSystem {first('MC_MachineSystem')}",
        {("rows", "MC_MachineSystem"): 1}, {}),
    "a value that no version touches": (
        f"UPDATE fields SET area = area + 1 {first('fields')}",
        {("values", "fields.area"): 1}, {}),
    "another value than version 7 writes": (
        f"UPDATE files SET absolutePath = absolutePath || '/' {first('files')}",
        {("values", "files.absolutePath"): 1}, {}),
    "another number than version 2 rounds to": (
        "UPDATE productControl_productSettings SET tankCapacity = tankCapacity * 1.0001"
        " WHERE rowid = (SELECT min(rowid) FROM productControl_productSettings"
        " WHERE tankCapacity > 1)",
        {("values", "productControl_productSettings.tankCapacity"): 1}, {}),
    "another name than an equal one gets": (
        f"UPDATE farms SET displayName = displayName || '_x' {first('farms')}",
        {("values", "farms.displayName"): 1}, {}),
    "a value of a column that is new": (
        f"UPDATE growers SET originalName = 'x' {first('growers')}", {}, {}),
    "a column": ("ALTER TABLE fields DROP COLUMN notes", {("column", "fields.notes"): 1}, {}),
    "a table": ("DROP TABLE guidanceLines", {("table", "guidanceLines"): 1}, {}),
    "a row that version 7 takes is there": (
        "INSERT INTO OutgoingFiles (id, fileUuid) SELECT id, fileUuid FROM before.OutgoingFiles"
        " LIMIT 1", {}, {((7, FORWARD), "rows", "OutgoingFiles"): 1}),
    "a table that version 7 takes is there": (
        "CREATE TABLE systemFiles (id INTEGER)", {}, {((7, FORWARD), "table", "systemFiles"): 1}),
    "a column that version 10 takes is there": (
        "ALTER TABLE boomCapacity ADD COLUMN machineId", {},
        {((10, FORWARD), "column", "boomCapacity.machineId"): 1}),
    "a value that version 11 rewrites is there": (
        "UPDATE userProfiles SET dateFormat = 'm/dd/yyyy' WHERE id ="
        " (SELECT min(id) FROM before.userProfiles WHERE dateFormat = 'm/dd/yyyy')",
        {}, {((11, FORWARD), "values", "userProfiles.dateFormat"): 1}),
}


@pytest.mark.parametrize("change, lost, left", CHANGES.values(), ids=CHANGES)
def test_what_no_version_takes_is_noticed(long_walk, tmp_path, change, lost, left):
    before, after = long_walk
    changed = tmp_path / "changed"
    shutil.copyfile(after, changed)
    with contextlib.closing(sqlite3.connect(changed, isolation_level=None)) as database:
        database.execute("ATTACH ? AS before", (str(before),))
        database.execute(change)
    judgement = judge(before, changed, TABLE, Walk(1, NEWEST), TORVIKMAX)
    assert (judgement.lost, judgement.left) == (lost, left)


def test_version_without_an_entry_is_unknown(long_walk):
    entries = {version: entry for version, entry in TABLE["versions"].items() if version != "9"}
    judgement = judge(*long_walk, TABLE | {"versions": entries}, Walk(1, NEWEST), TORVIKMAX)
    assert judgement.unknown == [9]
    assert judgement.lost.keys() == {("rows", "MC_MachineSystem")}


def test_of_two_versions_the_first_whose_condition_holds_is_named(tmp_path):
    before, after = tmp_path / "before", tmp_path / "after"
    for path, statements in (
            (before, "CREATE TABLE t (id INTEGER PRIMARY KEY, a);"
                     "INSERT INTO t VALUES(1, 'x'), (2, 'x'), (3, 'x'), (4, 'y'), (5, 'z')"),
            (after, "CREATE TABLE new (id INTEGER PRIMARY KEY, b);"
                    "INSERT INTO new VALUES(4, 'Y'), (5, 'Z')")):
        with contextlib.closing(sqlite3.connect(path)) as database:
            database.executescript(statements)

    def entry(forward):
        return {"forward": forward, "backward": {}}

    table = {"everyRun": {"rows": [], "names": {}, "values": {}}, "versions": {
        "2": entry({"t": {"rows": "id < 3", "values": {"a": {"becomes": "replace(a, 'y', 'Y')"}}}}),
        "3": entry({"T": {"rows": "id < 4", "renamed": "new", "columnsRenamed": {"A": "b"}}}),
        "4": entry({"new": {"rows": "id = 1", "values": {"b": {"becomes": "upper(a)"}}}})}}
    assert judge(before, after, table, Walk(1, 4), TORVIK) == Judgement(
        taken={((2, FORWARD), "rows", "t"): 2, ((3, FORWARD), "rows", "t"): 1,
               ((2, FORWARD), "values", "t.a"): 1, ((4, FORWARD), "values", "t.a"): 1},
        lost={}, left={}, unknown=[])


@pytest.mark.parametrize("start", VERSIONS)
@pytest.mark.parametrize("end", [1, NEWEST])
def test_conditions_can_be_asked_at_every_start(start, end):
    """Checks that the tables and columns of a condition are in the database before or were made in
    this walk, and that no two versions of a walk rewrite the same column."""
    with contextlib.closing(sqlite3.connect(":memory:")) as database:
        database.executescript(dump_of(start))
        for name, in database.execute(
                "SELECT name FROM sqlite_master WHERE type = 'table'").fetchall():
            columns = [line[1] for line in database.execute(f"PRAGMA table_info({name})")]
            tracked = TrackedTable(name, columns)
            for version, direction in Walk(start, end).steps:
                entries = TABLE["versions"][str(version)][direction]
                if not tracked.dropped_by:
                    tracked.take((version, direction), entries.get(tracked.name, {}), TORVIKMAX)
            expressions = [condition for _, condition in tracked.rows]
            for values in tracked.values.values():
                assert len(values) == 1
                expressions += [values[0][1].get("becomes", 1), values[0][1].get("any", 1)]
            for expression in expressions:
                database.execute(f"SELECT {expression} FROM {identifier(name)} LIMIT 0")
