"""An update on a device whose disk is nearly full."""

import pytest
from systems import APPLICATION, NEWEST

# A database of 20 MiB.
LARGE = "CREATE TABLE large (content); INSERT INTO large VALUES (zeroblob(20 * 1024 * 1024));"
# Sizes of the disk in MiB. Most has room for a direct run, but not for the guard's commit.
LEAST, MOST, ENOUGH = 21, 34, 60


def run_on_disk(computer, size, *command):
    """Runs a command of the old system with the data on a disk of this size. The other system is
    mounted at /mnt. Returns its status and its output."""
    return computer.run(
        "a command", "A", "sh", "-c", 'cp -r /run/data/databases /data && exec "$@"', "sh",
        *command, mounted="B", options=(
            "--ro-bind", computer.data, "/run/data",
            "--size", str(size * 1024 * 1024), "--tmpfs", "/data",
            "--setenv", "RAUC_SLOT_MOUNT_POINT", "/mnt"))


@pytest.fixture
def computer(begin):
    return begin(is_started=False, statements=LARGE).computer


@pytest.mark.parametrize("size, status", [(LEAST, 3), (MOST, 3), (ENOUGH, 0)])
def test_lack_of_room_puts_an_update_off(computer, new_system, size, status):
    computer.write(new_system, "B")
    assert run_on_disk(computer, size, "/opt/rauc/hook", "slot-post-install")[0] == status


def test_disk_has_room_for_a_direct_run(computer, new_system):
    """This would refuse the update for good."""
    computer.write(new_system, "B")
    status, output = run_on_disk(computer, MOST, f"/{APPLICATION}/migration-guard", "rehearse",
                                 "--root", "/mnt", str(NEWEST))
    assert (status, ", direct, changed, no-room" in output) == (4, True), output


@pytest.mark.parametrize("size, status", [(LEAST, 3), (MOST, 3), (ENOUGH, 4)])
def test_harmful_update_is_put_off_until_there_is_room(computer, faulty_system, size, status):
    """A direct run has no verdict on rows, so only a device with room can refuse it for good."""
    computer.write(faulty_system, "B")
    assert run_on_disk(computer, size, "/opt/rauc/hook", "slot-post-install")[0] == status
