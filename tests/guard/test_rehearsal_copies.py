"""The raw copy of a database: whole while others write; the database keeps every byte and time."""

import itertools
import os
import signal
import sqlite3
import subprocess
import sys
import threading
import time
from contextlib import closing, contextmanager

import pytest
from conftest import SECONDS, leave
from processes import (
    descendants, guards_of, left_over, name_of, output_ends, parent_of_orphans)
from rehearsals import Untouched, rehearse
from support.versions import NEWEST

ROUNDS = 150 if "CAMPAIGN" in os.environ else 2
# Two tables that every transaction changes by the same number.
NUMBERS = "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 400) "
PAIR = "".join(
    f"CREATE TABLE {table} (a INTEGER PRIMARY KEY, b);"
    f"INSERT INTO {table} {NUMBERS} SELECT i, zeroblob(800) FROM n;"
    for table in ("left_side", "right_side"))
# Reading it takes longer than a transaction does.
BALLAST = "CREATE TABLE ballast AS SELECT zeroblob(30000000) AS a;"
# A separate program: this one loses its locks when it reads the file.
HOLDER = """
import sqlite3, sys
connection = sqlite3.connect(sys.argv[1], isolation_level=None)
for statement in sys.argv[2:]:
    connection.execute(statement)
print("ready", flush=True)
sys.stdin.read()
"""


@contextmanager
def holder(database, *statements):
    """Another program, which has run these statements on the database and keeps it open."""
    with subprocess.Popen([sys.executable, "-c", HOLDER, database, *statements],
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE) as process:
        assert process.stdout.readline() == b"ready\n"
        yield
        process.stdin.close()


class Writer:
    """A program that writes to the database all the time."""

    def __init__(self, database, mode):
        self.database = database
        self.mode = mode
        self.commits = 0
        self.failure = None
        self.ended = threading.Event()
        self.thread = threading.Thread(target=self.write)

    def write(self):
        try:
            with closing(sqlite3.connect(self.database, isolation_level=None,
                                         timeout=60)) as connection:
                connection.execute(f"PRAGMA journal_mode = {self.mode}")
                connection.execute("PRAGMA synchronous = OFF")
                connection.execute("PRAGMA cache_size = 10")
                connection.execute("PRAGMA wal_autocheckpoint = 20")
                while not self.ended.is_set():
                    number = self.commits + 1
                    connection.execute("BEGIN IMMEDIATE")
                    for table in ("left_side", "right_side"):
                        connection.execute(
                            f"UPDATE {table} SET b = ? WHERE a % 7 = ?",
                            (str(number).encode() * 200, number % 7))
                    connection.execute("COMMIT")
                    self.commits = number
        except sqlite3.Error as error:
            self.failure = error

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.ended.set()
        self.thread.join()
        assert self.failure is None


@pytest.mark.parametrize("mode", ["delete", "truncate", "persist", "wal"])
def test_a_copy_is_whole_while_others_write(device, mode):
    device.install(33, PAIR + BALLAST, mode="wal" if mode == "wal" else "delete")
    with Writer(device.database, mode) as writer:
        for number in range(ROUNDS):
            before = writer.commits
            result = device.app / f"{number}.sqlite"
            done = rehearse(device, NEWEST, "--result", f"/app/{number}.sqlite")
            assert done.status == 0, done.errors
            assert writer.commits > before
            with closing(sqlite3.connect(result)) as connection:
                assert connection.execute("PRAGMA integrity_check").fetchall() == [("ok",)]
                assert connection.execute(
                    "SELECT count(*) FROM left_side JOIN right_side USING (a, b)"
                ).fetchall() == [(400,)]
            result.unlink()


@pytest.mark.parametrize("mode", ["delete", "wal"])
def test_a_writer_that_holds_the_database_is_waited_for(device, mode):
    device.install(33, mode=mode)
    with holder(device.database, "PRAGMA locking_mode = EXCLUSIVE", "BEGIN IMMEDIATE",
                "CREATE TABLE x (a)", "COMMIT"):
        before = Untouched(device.root)
        done = rehearse(device, NEWEST, "--wait", 0)
        before.check()
    assert (done.status, done.report["reason"]) == (3, "locked")
    assert done.report["verdict"] is None


@pytest.mark.parametrize("mode", ["delete", "wal"])
def test_one_that_is_about_to_write_holds_nothing_up(device, mode):
    device.install(33, PAIR, mode=mode)
    with holder(device.database, "BEGIN IMMEDIATE", "UPDATE left_side SET b = 'x'"):
        before = Untouched(device.root)
        done = rehearse(device, NEWEST, "--wait", 0)
        before.check()
    assert done.status == 0, done.errors


@pytest.mark.parametrize("mode, suffix", [("delete", "-journal"), ("wal", "-wal")])
def test_read_only_media(device, mode, suffix):
    """A read-only file system, with the files that a crash has left."""
    device.install(20, PAIR, mode=mode)
    leave(device, suffix, "PRAGMA cache_spill = 1; PRAGMA cache_size = 1; BEGIN;"
                          "UPDATE left_side SET b = 'x'; UPDATE tableVersion SET version = 21;"
                          + ("COMMIT" if mode == "wal" else ""))
    stick = device.root / "stick"
    stick.mkdir()
    for path in device.databases.iterdir():
        path.rename(stick / path.name)
    before = Untouched(stick)
    done = rehearse(device, NEWEST, "/stick/my.db.sqlite", options=f"--ro-bind {stick} /stick")
    before.check()
    assert (done.status, done.report["from"]) == (0, 21 if mode == "wal" else 20), done.errors


def test_a_database_that_keeps_changing_is_given_up(device):
    """Another program writes without a lock."""
    device.install(33, PAIR)
    # Reading takes longer than changing.
    os.truncate(device.database, 64 << 20)
    ended = threading.Event()

    def change():
        for moment in itertools.count(10 ** 18):
            os.utime(device.database, ns=(moment, moment))
            if ended.is_set():
                return

    thread = threading.Thread(target=change)
    thread.start()
    try:
        done = rehearse(device, NEWEST)
    finally:
        ended.set()
        thread.join()
    assert (done.status, done.report["reason"]) == (3, "written-meanwhile")


def test_an_ordinary_user(device):
    device.install(20)
    for path in device.root.rglob("*"):
        path.chmod(0o755 if path.is_dir() or path.stat().st_mode & 0o100 else 0o644)
    before = Untouched(device.root)
    if os.geteuid() != 0:
        pytest.skip("needs root to become another user")
    done = rehearse(device, NEWEST, user=1234)
    before.check()
    assert done.status == 0, done.errors


def test_the_help_names_it_as_others_do(device):
    run = device.run("--help")
    assert "a dry run" in run.stdout
    assert "migration-guard rehearse TARGET" in run.stdout


@pytest.mark.parametrize("staging", [(), ("--staging", "/app/work")], ids=["memory", "disk"])
def test_nothing_runs_on_when_it_is_killed(device, staging):
    device.install(33)
    (device.app / "work").mkdir()
    device.replace_program("sleep 1000")
    with parent_of_orphans():
        process = device.start("rehearse", NEWEST, *staging)
        end = time.monotonic() + SECONDS
        while "sleep" not in map(name_of, descendants(process.pid)):
            assert time.monotonic() < end
            time.sleep(0.01)
        [guard, *_] = guards_of(process)
        os.kill(guard, signal.SIGKILL)
        assert output_ends(process)
        process.wait(SECONDS)
        assert left_over() == []
