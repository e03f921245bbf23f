"""What a rehearsal says about room and memory, compared with what the run then takes."""

import collections
import json
import os
import shutil

import pytest
import test_direct
from test_direct import LARGE, small  # noqa: F401

MEASURED = """/app/second/migration-guard rehearse --json=/app/report "$@" 2>/dev/null
LD_PRELOAD=/app/peaks.so /app/second/migration-guard run"""
# One table that several versions rebuild is most of the database.
REBUILT = """WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 200)
INSERT INTO growers (id, displayName) SELECT 9000 + i, i || hex(zeroblob(20000)) FROM n;"""
# What the rehearsal adds for headers of pages, and for all other small things.
PERCENT_ADDED = 7
BYTES_ADDED = 128 * 1024
# The memory of processes differs from run to run, and so does what the guard sees of short peaks.
MEMORY_PERCENT = 10


@pytest.fixture
def measured(device, small, monkeypatch):  # noqa: F811
    """Returns a function that rehearses on a disk of a size and then runs there. It returns what
    the rehearsal says, and by program the bytes in use and the memory that were noted."""
    shutil.copy(os.environ["PEAKS"], device.app / "peaks.so")
    monkeypatch.setattr(test_direct, "SHELL", test_direct.SHELL.replace(
        "/app/second/migration-guard run", MEASURED))

    def run(size):
        status, output = small(size)
        assert (status, "guarded, changed" in output) == (0, True), output
        noted = collections.defaultdict(list)
        for line in (device.app / "peaks").read_text().splitlines():
            program, used, memory = line.split()
            noted[program].append((int(used), 1024 * int(memory)))
        return json.loads((device.app / "report").read_text())["measured"]["bytes"], noted
    return run


SIZES = [pytest.param(900_000, "", id="too little room to keep the database"),
         pytest.param(8_000_000, "", id="a small database"),
         pytest.param(64_000_000, LARGE, id="a large database that changes little"),
         pytest.param(64_000_000, REBUILT, id="a large table that is rebuilt")]


@pytest.mark.parametrize("mode", ["delete", "wal"])
@pytest.mark.parametrize("size, extra", SIZES)
def test_peaks(device, measured, size, extra, mode):
    device.install(1, extra, mode=mode)
    told, noted = measured(size)
    disk = [used for used, _ in noted["migration-guard"]]
    taken = max(disk) - disk[0]
    added = max(told["before"], told["after"]) * PERCENT_ADDED // 100 + BYTES_ADDED
    assert taken <= told["peakDisk"] <= taken + added
    staged = max(used for used, _ in noted["database-migrator"])
    memory = staged + sum(max(memory for _, memory in noted[program])
                          for program in ("migration-guard", "database-migrator"))
    assert abs(told["peakMemory"] - memory) <= memory * MEMORY_PERCENT // 100
