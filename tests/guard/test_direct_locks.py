"""The guard's lock where there is no database yet."""

import os

from conftest import SECONDS, wait_for
from processes import guards_of
from support.versions import NEWEST

PAUSED = """
echo started >>/app/starts
touch /app/waiting
while [ ! -e /app/go ]; do sleep 0.01; done
exec /app/migrator "$@"
"""


def starts(device):
    file = device.app / "starts"
    return file.read_text().count("started") if file.exists() else 0


def waits_for_the_lock(process):
    """True if the guard has opened the directory that it locks."""
    for guard in guards_of(process):
        for descriptor in os.scandir(f"/proc/{guard}/fd"):
            if os.readlink(descriptor.path).endswith("/databases"):
                return True
    return False


def test_a_database_that_another_guard_makes_is_not_migrated_directly(device):
    device.replace_program(PAUSED)
    first = device.start("run", NEWEST)
    wait_for(device.app / "waiting")
    second = device.start("run", NEWEST)
    while not waits_for_the_lock(second):
        assert second.poll() is None
    (device.app / "go").touch()
    first.communicate(timeout=SECONDS)
    _, errors = second.communicate(timeout=SECONDS)
    assert (first.returncode, second.returncode, starts(device)) == (0, 3, 1), errors
    assert "not changed, locked (another guard has made the database)" in errors
    assert device.last_run()["reason"] == "no-database"
