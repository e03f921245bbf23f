"""A control group with little memory: staging on the disk, and nothing is killed."""

import os
import pathlib
import sqlite3
import subprocess
import sys
from contextlib import closing, contextmanager

import pytest
from conftest import SECONDS, guarded_device
from support.places import TESTS
from support.versions import NEWEST

sys.path.insert(0, str(TESTS / "faults"))
from multiply import multiply  # noqa: E402

MIB = 1 << 20
LIMIT = 256 * MIB
GROUPS = pathlib.Path("/sys/fs/cgroup")
# Rows of the demonstration database, multiplied: 80 MB.
TIMES = 850


@contextmanager
def limited_group():
    """A new memory group below this process's own, under either version of control groups."""
    for line in pathlib.Path("/proc/self/cgroup").read_text().splitlines():
        _, controllers, name = line.split(":", 2)
        first = "memory" in controllers.split(",")
        place = GROUPS / ("memory" if first else ".") / name.strip("/") / "guard_test"
        limit = place / ("memory.limit_in_bytes" if first else "memory.max")
        if not first and controllers:
            continue
        try:
            place.mkdir()
        except OSError:
            continue
        try:
            limit.write_text(str(LIMIT))
            yield place
            return
        except OSError:
            continue
        finally:
            place.rmdir()
    pytest.skip("takes root and a memory group that can be divided")


@pytest.fixture
def device(tmp_path):
    """On a disk: files in memory count for the group."""
    with guarded_device(tmp_path) as made:
        yield made


@pytest.mark.skipif(os.geteuid() != 0, reason="takes root")
def test_a_large_database_is_staged_on_the_disk(device):
    device.install(NEWEST - 1)
    with closing(sqlite3.connect(device.database)) as database:
        database.execute("PRAGMA synchronous = OFF")
        multiply(database, TIMES)
    with limited_group() as group:
        command = device.command("run", NEWEST, options="--ro-bind /sys /sys")
        enter = ["/bin/sh", "-c", 'echo $$ >"$0"; exec "$@"', str(group / "cgroup.procs")]
        command["args"] = [*enter, *map(str, command["args"])]
        run = subprocess.run(**command, capture_output=True, text=True, timeout=SECONDS)
        killed = (group / "memory.oom_control" if (group / "memory.oom_control").exists()
                  else group / "memory.events").read_text()
    assert run.returncode == 0, run.stderr
    assert device.last_run()["staging"] == "disk"
    assert "oom_kill 0" in killed
