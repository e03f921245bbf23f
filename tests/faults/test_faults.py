"""A sample of what campaign.py runs whole, and the proof that it notices what must not be."""

import json
import os
import pathlib
import sqlite3
import tempfile
from contextlib import closing

import pytest
from contents import Invariant, Reader
from workers import TESTS, workers

WALKS = {"1 to 4": "/kept/start.sqlite", "4 to 1": "/kept/1 to 4/final.sqlite"}


@pytest.fixture(scope="module")
def sandbox():
    """A worker that knows the walks between the versions 1 and 4, its folder and the walks."""
    with tempfile.TemporaryDirectory(prefix="faults.", dir="/dev/shm") as folder:
        kept = pathlib.Path(folder)
        with closing(sqlite3.connect(kept / "start.sqlite")) as database:
            database.executescript((TESTS / "data" / "version_01.sql").read_text(encoding="utf-8"))
        files = os.environ["DATABASE_MIGRATOR"], os.environ["FAULT_SHIM"]
        with workers(1, kept, *files) as (worker,):
            walks = {name: worker.answer({"kind": "prepare", "scenario": name, "start": start,
                                          "target": int(name.split()[-1]), "switches": {}})
                     for name, start in WALKS.items()}
            yield worker, kept, walks


def run_cases(sandbox, walk, kind, end, stride):
    worker, *_ = sandbox
    return worker.answer({"kind": kind, "scenario": walk, "numbers": [0, end, stride]})


@pytest.mark.parametrize("walk", WALKS)
def test_rows_that_arrive_are_there_all_the_way(sandbox, walk):
    assert sandbox[2][walk]["lost for a time"] == []


@pytest.mark.parametrize("walk", WALKS)
@pytest.mark.parametrize("kind, stride", [
    ("kill", 47), ("kill in a write", 53), ("EIO once", 67), ("EIO from then on", 131),
    ("ENOSPC once", 67), ("ENOSPC from then on", 131), ("short write once", 127),
    ("short writes from then on", 129), ("power cut", 13)])
def test_faults_leave_a_sound_database_that_the_next_run_takes_on(sandbox, walk, kind, stride):
    answer = run_cases(sandbox, walk, kind, sandbox[2][walk]["operations"], stride)
    assert answer["cases"] > 0
    assert answer["violations"] == []


@pytest.mark.parametrize("walk", WALKS)
def test_lack_of_memory_leaves_a_sound_database(sandbox, walk):
    end = sandbox[2][walk]["allocations"]
    assert run_cases(sandbox, walk, "no memory once", end, end // 4)["violations"] == []
    assert run_cases(sandbox, walk, "no memory from then on", end, end // 2)["violations"] == []


@pytest.mark.parametrize("walk", WALKS)
def test_locked_database_stays_as_it_is(sandbox, walk):
    answer = run_cases(sandbox, walk, "locked throughout", 3, 1)
    assert (answer["cases"], answer["violations"]) == (3, [])


def test_power_cut_without_syncs_is_noticed(sandbox):
    answer = run_cases(sandbox, "1 to 4", "power cut without syncs", 100, 7)
    assert any("not a state after" in violation for violation in answer["violations"])
    assert any("not sound" in violation for violation in answer["violations"])


def violations_of(statements, start, invariant=None):
    """Runs statements and, without an invariant, gathers one; otherwise tells what breaks it."""
    found = []
    with tempfile.TemporaryDirectory(prefix="faults.", dir="/dev/shm") as folder:
        copy = pathlib.Path(folder, "copy.sqlite")
        copy.write_bytes(start.read_bytes())
        gathered = invariant or Invariant(Reader().read(copy))
        with closing(sqlite3.connect(copy, isolation_level=None)) as database:
            for statement in statements:
                try:
                    database.execute(statement).fetchall()
                except sqlite3.DatabaseError:
                    pass  # The reference scripts', and the insertion that finds no table.
                contents = Reader().read(copy)
                if invariant:
                    found += invariant.violations(contents, "any")
                else:
                    gathered.gather(contents)
    return found if invariant else gathered


def test_drop_before_its_insertion_is_noticed(sandbox):
    folder = sandbox[1]
    start = folder / "1 to 4" / "final.sqlite"
    statements = json.loads((folder / "4 to 1" / "statements.json").read_text())
    copied = next(i for i, text in enumerate(statements)
                  if "INTO ombrixMasterSettings_temp" in text)
    dropped = statements.index("DROP TABLE ombrixMasterSettings")
    assert dropped == copied + 1
    invariant = violations_of(statements, start)
    assert violations_of(statements, start, invariant) == []
    statements[copied:dropped + 1] = statements[dropped], statements[copied]
    found = violations_of(statements, start, invariant)
    assert "ombrixmastersettings: rows without a copy" in found
