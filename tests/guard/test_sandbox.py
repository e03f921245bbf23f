"""The place where the program runs: its own paths, none of the guard's, an end with the guard."""

import os
import signal
import subprocess
import time

import pytest
from conftest import SECONDS, wait_for
from support.versions import NEWEST

# The moments at which runs are killed, spread over a whole one.
MOMENTS = 120 if "CAMPAIGN" in os.environ else 8


def test_the_program_sees_its_own_paths(device):
    device.install(NEWEST)
    device.replace_program(
        'readlink -f /app/databases/my.db.sqlite >/app/seen; ls /usr/bin/harlo/pool >>/app/seen; '
        'stat -c %s /usr/bin/harlo/pool/readme.txt >>/app/seen; ls /app/databases >>/app/seen; '
        'exec /app/migrator "$@"')
    assert device.migrate(NEWEST) == 0
    assert (device.app / "seen").read_text().split() == [
        "/app/databases/my.db.sqlite", "VT-01.iop", "VT-02.IOP", "readme.txt", "0",
        "my.db.sqlite", "temporary"]


def test_no_descriptor_reaches_the_program(device):
    device.install(NEWEST)
    device.replace_program('ls -l /proc/$$/fd >/app/seen; exec /app/migrator "$@"')
    # What the guard has from its own caller is kept from the program as well.
    inherited = os.pipe()
    names = [os.readlink(f"/proc/self/fd/{number}") for number in inherited]
    run = subprocess.run(**device.command("run", NEWEST), pass_fds=inherited, capture_output=True,
                         timeout=SECONDS)
    for number in inherited:
        os.close(number)
    assert run.returncode == 0
    seen = {line.split(" -> ")[1] for line in (device.app / "seen").read_text().splitlines()
            if " -> " in line}
    # The shell has its script, and its output twice.
    assert seen & set(names) == set()
    assert len([name for name in seen if name.startswith("pipe:")]) <= 2
    assert [name for name in seen if "databases" in name] == []


def test_temporary_files_go_to_staging(device):
    device.install(NEWEST)
    device.replace_program('echo "$TMPDIR $SQLITE_TMPDIR" >/app/seen; exec /app/migrator "$@"')
    assert device.migrate(NEWEST) == 0
    place = "/app/databases/temporary"
    assert (device.app / "seen").read_text() == f"{place} {place}\n"


@pytest.mark.parametrize("end", ["exit 1", "exit 127", "kill -9 $$", "kill -15 $$"])
def test_a_program_that_ends_badly_is_not_committed(device, end):
    device.install(1)
    before = device.contents()
    device.replace_program(f'/app/migrator "$@"; {end}')
    assert device.migrate(NEWEST) == 3
    assert device.last_run()["reason"] == "program-broken"
    assert (device.contents(), device.log()) == (before, "")
    assert len(device.pool_files()) == 3


@pytest.mark.parametrize("deed", [
    "rm /app/databases/my.db.sqlite", "rm /app/databases/sqlMigrationErrorLog.txt",
    "printf 'half a line' >>/app/databases/sqlMigrationErrorLog.txt"])
def test_a_result_that_is_not_whole_is_not_committed(device, deed):
    device.install(1)
    before = device.contents()
    device.replace_program(f'/app/migrator "$@"; {deed}')
    status = device.migrate(NEWEST)
    if "rm" in deed and "Log" in deed:
        # The guard has read it already.
        assert status in (0, 3)
    else:
        assert status == 3
        assert device.contents() == before


def descendants(pid):
    found = []
    for task in (f"/proc/{pid}/task/{pid}/children",):
        try:
            children = open(task).read().split()
        except OSError:
            children = []
        for child in children:
            found.append(int(child))
            found += descendants(int(child))
    return found


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL])
@pytest.mark.parametrize("place", ["outer guard", "its bubblewrap", "inner guard",
                                   "its second bubblewrap", "program"])
def test_what_is_killed_takes_the_rest_with_it(device, expected, number, place):
    device.install(1)
    before = device.contents()
    device.replace_program(
        'touch /app/running; while [ ! -e /app/go ]; do sleep 0.05; done; exec /app/migrator "$@"')
    process = device.start("run", NEWEST)
    wait_for(device.app / "running")
    names = {"outer guard": 0, "its bubblewrap": 1, "inner guard": 2, "its second bubblewrap": 3,
             "program": 4}
    family = [pid for pid in descendants(process.pid)]
    members = ("migration-guard", "bwrap", "database-migrat")
    guards = [pid for pid in family if name_of(pid) in members]
    # The first one is the scratch device's own bubblewrap.
    first = next(i for i, pid in enumerate(guards) if name_of(pid) == "migration-guard")
    os.kill(guards[first:][names[place]], number)
    process.communicate(timeout=60)
    end = time.monotonic() + 30
    while any(alive(pid) for pid in family) and time.monotonic() < end:
        time.sleep(0.01)
    assert [name_of(pid) for pid in family if alive(pid)] == []
    assert process.returncode not in (0, 1, 2, 4)
    assert device.contents() == before
    assert device.log() == ""

    (device.app / "go").touch()
    assert device.migrate(NEWEST) == 0
    assert (device.contents(), device.log()) == expected(1, NEWEST)
    assert device.files() == ["before-migration.sqlite", "lastMigration.json", "my.db.sqlite",
                              "sqlMigrationErrorLog.txt"]


def name_of(pid):
    try:
        return open(f"/proc/{pid}/comm").read().strip()
    except OSError:
        return ""


def alive(pid):
    try:
        return open(f"/proc/{pid}/stat").read().rsplit(")", 1)[1].split()[0] not in "ZX"
    except OSError:
        return False


def test_killed_at_any_moment_it_is_the_old_or_the_new_database(device, expected):
    content, log = expected(1, NEWEST)
    device.install(1)
    start = device.database.read_bytes()
    old = device.contents()
    begin = time.monotonic()
    assert device.migrate(NEWEST) == 0
    length = time.monotonic() - begin
    # The first ordinary boot changes the text of a definition once.
    assert device.migrate(NEWEST) == 0
    settled = device.contents()
    for number in range(MOMENTS):
        for path in device.databases.iterdir():
            path.unlink()
        device.database.write_bytes(start)
        for name in ("VT-01.iop", "VT-02.IOP"):
            (device.pool / name).touch()
        process = device.start("run", NEWEST)
        time.sleep(length * number / MOMENTS)
        for pid in descendants(process.pid):
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        process.communicate()
        assert device.contents() in (old, content)
        assert device.migrate(NEWEST) == 0
        assert device.contents() in (content, settled)
        assert device.log().endswith(log) or "from version: 34" in device.log()
        assert device.pool_files() == ["readme.txt"]
        assert not [name for name in device.files() if name.endswith((".new", ".tmp", "staging"))]


def test_a_result_without_a_page_does_not_empty_the_database(device):
    """SQLite copies an empty source in the step that only takes the lock."""
    device.install(1)
    before = device.contents()
    device.replace_program(": > /app/databases/my.db.sqlite; "
                           "echo done > /app/databases/sqlMigrationErrorLog.txt")
    assert device.migrate(NEWEST) == 3
    assert device.last_run()["reason"] == "program-broken"
    assert (device.contents(), device.log()) == (before, "")


def test_the_program_alone_dies_with_the_guard(device):
    device.install(1)
    device.replace_program("touch /app/started; exec sleep 600")
    run = device.start("run", NEWEST, bubblewrap=False)
    wait_for(device.app / "started")
    family = list(descendants(run.pid))
    os.kill(next(pid for pid in family if name_of(pid) == "migration-guard"), signal.SIGKILL)
    run.communicate(timeout=60)
    end = time.monotonic() + 30
    while any(alive(pid) for pid in family) and time.monotonic() < end:
        time.sleep(0.01)
    assert [name_of(pid) for pid in family if alive(pid)] == []
