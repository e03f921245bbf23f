"""A rehearsal of several databases: what its jobs share, and what it shows meanwhile."""

import json
import os
import pty
import sqlite3
import subprocess
from contextlib import closing

import pytest
from conftest import GUARD, PROGRAM, SECONDS
from support.versions import NEWEST
from test_rehearsal_reports import make

# Enough for one small database in memory and for the processes, but not twice.
ENOUGH_FOR_ONE = 120 << 10  # kB


@pytest.fixture
def little_memory(tmp_path):
    """Options of bubblewrap that let the system seem to have little memory. The directory for
    temporary files is not there, so a place on the disk is no room at all."""
    file = tmp_path / "meminfo"
    file.write_text(f"MemTotal: 900000 kB\nMemAvailable: {ENOUGH_FOR_ONE} kB\n")
    return ["bwrap", "--dev-bind", "/", "/", "--ro-bind", file, "/proc/meminfo",
            "--setenv", "TMPDIR", tmp_path / "nowhere", "--"]


@pytest.mark.parametrize("databases, jobs, reason", [
    pytest.param(1, 1, None, id="one database"),
    pytest.param(2, 1, None, id="one job at a time"),
    pytest.param(1, 2, None, id="more jobs than databases"),
    pytest.param(2, 2, "no-room", id="two jobs at once")])
def test_jobs_share_the_memory(tmp_path, little_memory, databases, jobs, reason):
    paths = [make(tmp_path / f"{number}.sqlite", 33) for number in range(databases)]
    run = subprocess.run(
        [*little_memory, GUARD, "rehearse", str(NEWEST), *paths, "--json", "--program", PROGRAM,
         "--jobs", str(jobs)], capture_output=True, text=True, timeout=SECONDS)
    reports = [json.loads(line) for line in run.stdout.splitlines()]
    assert [report.get("reason") for report in reports] == [reason] * databases, run.stderr


def test_jobs_that_find_too_little_memory_use_the_disk(tmp_path, little_memory):
    paths = [make(tmp_path / f"{number}.sqlite", 33) for number in range(2)]
    (tmp_path / "nowhere").mkdir()
    run = subprocess.run(
        [*little_memory, GUARD, "rehearse", str(NEWEST), *paths, "--program", PROGRAM,
         "--jobs", "2"], capture_output=True, text=True, timeout=SECONDS)
    assert run.returncode == 0, run.stderr
    assert os.listdir(tmp_path / "nowhere") == []


def read_until(terminal, text):
    """Reads what a program writes to a terminal."""
    found = b""
    while text not in found:
        try:
            piece = os.read(terminal, 4096)
        except OSError:
            # The program has closed its end.
            piece = b""
        assert piece, found
        found += piece
    return found


def test_progress_counts_what_has_ended(tmp_path):
    """Also while the first database of the call is still being rehearsed."""
    paths = [make(tmp_path / f"{number}.sqlite", 33) for number in range(3)]
    own, terminal = pty.openpty()
    with closing(sqlite3.connect(paths[0], isolation_level=None)) as writer:
        writer.execute("BEGIN EXCLUSIVE")
        with subprocess.Popen(
                [GUARD, "rehearse", str(NEWEST), *paths, "--program", PROGRAM, "--jobs", "2",
                 "--wait", "20"], stderr=terminal) as process:
            os.close(terminal)
            before = read_until(own, b"2 of 3\r")
            writer.execute("ROLLBACK")
            after = read_until(own, b"2.sqlite")
            assert process.wait(timeout=SECONDS) == 0
    os.close(own)
    assert before.startswith(b"0 of 3\r") and b"sqlite" not in before
    assert [str(path).encode() in after for path in paths] == [True] * 3


def test_no_progress_without_a_terminal(tmp_path):
    paths = [make(tmp_path / f"{number}.sqlite", 33) for number in range(2)]
    run = subprocess.run(
        [GUARD, "rehearse", str(NEWEST), *paths, "--program", PROGRAM],
        capture_output=True, text=True, timeout=SECONDS)
    assert [line.split(": ")[1] for line in run.stderr.splitlines()] == [*map(str, paths)]
