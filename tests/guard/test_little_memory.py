"""A control group with little memory: staging on the disk, and nothing is killed."""

import os
import pathlib
import subprocess
from contextlib import contextmanager

import pytest
from conftest import SECONDS, guarded_device
from support.versions import NEWEST

MIB = 1 << 20
LIMIT = 256 * MIB
GROUPS = pathlib.Path("/sys/fs/cgroup")
# It makes the database one of 80 MB.
BALLAST = """CREATE TABLE ballast (id INTEGER PRIMARY KEY, a);
    WITH RECURSIVE n(i) AS (VALUES(1) UNION ALL SELECT i + 1 FROM n WHERE i < 800000)
    INSERT INTO ballast SELECT i, randomblob(90) FROM n;"""


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
    device.install(NEWEST - 1, extra=BALLAST)
    assert device.database.stat().st_size > 80_000_000
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
