"""The program's sandbox: it has the program's own paths, none of the guard's, and ends with it."""

import os
import shutil
import signal
import subprocess
import time
from contextlib import suppress

import pytest
from conftest import BUBBLEWRAP, SECONDS, wait_for
from processes import (PLACES, descendants, guards_of, is_locked, left_over, output_ends,
                       parent_of_orphans, still_alive)
from support.versions import NEWEST

# The moments at which runs are killed, spread over a whole one.
MOMENTS = 120 if "CAMPAIGN" in os.environ else 8
# The moments in the start of a run, where its processes are made, and the time between moments.
EARLY_MOMENTS = 100 if "CAMPAIGN" in os.environ else 3
DISTANCE = 0.0004 if "CAMPAIGN" in os.environ else 0.015  # seconds


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
    # The program does not get the files that the guard has from its own caller either.
    inherited = os.pipe()
    names = [os.readlink(f"/proc/self/fd/{number}") for number in inherited]
    run = subprocess.run(**device.command("run", NEWEST), pass_fds=inherited, capture_output=True,
                         timeout=SECONDS)
    for number in inherited:
        os.close(number)
    assert run.returncode == 0
    seen = {line.split(" -> ")[1] for line in (device.app / "seen").read_text().splitlines()
            if " -> " in line}
    # The shell has its script open, and its output twice.
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


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL])
@pytest.mark.parametrize("place", PLACES)
def test_what_is_killed_takes_the_rest_with_it(device, expected, number, place):
    device.install(1)
    before = device.contents()
    device.replace_program(
        'touch /app/running; while [ ! -e /app/go ]; do sleep 0.05; done; exec /app/migrator "$@"')
    process = device.start("run", NEWEST)
    wait_for(device.app / "running")
    family = descendants(process.pid)
    os.kill(guards_of(process)[PLACES.index(place)], number)
    process.communicate(timeout=60)
    assert still_alive(family) == []
    assert process.returncode not in (0, 1, 2, 4)
    assert device.contents() == before
    assert device.log() == ""

    (device.app / "go").touch()
    assert device.migrate(NEWEST) == 0
    assert (device.contents(), device.log()) == expected(1, NEWEST)
    assert device.files() == ["before-migration.sqlite", "lastMigration.json", "my.db.sqlite",
                              "sqlMigrationErrorLog.txt"]


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
    """SQLite copies an empty source at once, in the step that otherwise only takes the lock."""
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
    family = descendants(run.pid)
    os.kill(guards_of(run)[0], signal.SIGKILL)
    run.communicate(timeout=60)
    assert still_alive(family) == []


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL])
@pytest.mark.parametrize("place", PLACES[:4])
def test_nothing_is_left_of_a_run_that_is_killed_early(device, number, place):
    device.install(NEWEST)
    with parent_of_orphans():
        for moment in range(EARLY_MOMENTS):
            process = device.start("run", NEWEST)
            found = []
            while len(found) <= PLACES.index(place) and process.poll() is None:
                found = guards_of(process)
            time.sleep(moment * DISTANCE)
            for pid in found[PLACES.index(place):][:1]:
                with suppress(ProcessLookupError):
                    os.kill(pid, number)
            assert output_ends(process)
            process.communicate()
            assert left_over() == []
            assert not is_locked(device.databases)
            # Without this the third of three killed runs would be direct.
            (device.databases / "migration-guard.note").unlink(missing_ok=True)
        run = device.run("run", "--strict", NEWEST)
        assert run.returncode == 0, run.stderr


def test_a_caller_that_closes_its_end_does_not_stop_the_run(device, expected):
    device.install(1)
    device.replace_program('echo out; echo error >&2; /app/migrator "$@"; echo out; echo error >&2')
    process = device.start("run", NEWEST)
    process.stdout.close()
    process.stderr.close()
    assert process.wait(SECONDS) == 0
    assert (device.contents(), device.log()) == expected(1, NEWEST)


def test_output_and_errors_go_where_the_caller_wants_them(device):
    device.install(NEWEST)
    device.replace_program('echo out; echo error >&2; exec /app/migrator "$@"')
    run = device.run("run", NEWEST)
    assert run.stdout == "out\n"
    assert [line for line in run.stderr.splitlines()
            if not line.startswith("migration-guard: ")] == ["error"]


def test_lines_of_output_and_errors_keep_their_order_in_one_file(device):
    device.install(NEWEST)
    device.replace_program('i=0; while [ $i -lt 500 ]; do echo out $i; echo error $i >&2; '
                           'i=$((i + 1)); done; exec /app/migrator "$@"')
    run = subprocess.run(**device.command("run", NEWEST), stdout=subprocess.PIPE,
                         stderr=subprocess.STDOUT, text=True, timeout=SECONDS)
    lines = run.stdout.splitlines()
    assert [line for line in lines if not line.startswith("migration-guard: ")] == [
        f"{stream} {number}" for number in range(500) for stream in ("out", "error")]
    assert lines[-1].endswith("status 0")


def shell(device, script):
    """Puts a script where a test can run it as the guard's caller."""
    file = device.app / "shell"
    file.write_text("#!/usr/bin/dash\n" + script)
    file.chmod(0o755)
    return "/app/shell"


def test_a_caller_that_ignores_the_end_of_its_children(device, expected):
    device.install(1)
    caller = shell(device, 'exec env --ignore-signal=CHLD /app/migration-guard "$@"')
    assert device.migrate(NEWEST, guard=caller) == 0
    assert (device.contents(), device.log()) == expected(1, NEWEST)


@pytest.mark.parametrize("bubblewrap, files", [(True, {"/dev/null", "pipe"}),
                                               (False, {"/dev/null"})])
def test_a_caller_without_standard_files(device, bubblewrap, files):
    """The guard must not open its own files in place of the closed ones."""
    device.install(NEWEST)
    device.replace_program('names=$(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2); '
                           'echo "$names" >/app/seen; exec /app/migrator "$@"')
    caller = shell(device, 'exec /app/migration-guard "$@" <&- >&- 2>&-')
    assert device.migrate(NEWEST, guard=caller, bubblewrap=bubblewrap) == (0 if bubblewrap else 4)
    seen = (device.app / "seen").read_text().split()
    assert len(seen) == 3 and {name.split(":")[0] for name in seen} == files


def test_bubblewrap_that_is_killed_at_once_is_no_reason_to_run_directly(device):
    device.install(1)
    before = device.contents()
    killed = device.root / "bwrap"
    killed.write_text("#!/usr/bin/dash\nkill -9 $$\n")
    killed.chmod(0o755)
    run = device.run("run", NEWEST, bubblewrap=False, options=f"--ro-bind {killed} /usr/bin/bwrap")
    assert run.returncode >= 128
    assert (device.contents(), device.log()) == (before, "")


def test_bubblewrap_without_sizes_stages_on_the_disk(device, expected):
    device.install(1)
    old = device.root / "bwrap"
    old.write_text('#!/usr/bin/dash\ncase "$*" in *--size*) exit 1 ;; esac\nexec /app/bwrap "$@"\n')
    old.chmod(0o755)
    shutil.copy(BUBBLEWRAP, device.app)
    assert device.migrate(NEWEST, bubblewrap=False,
                          options=f"--ro-bind {old} /usr/bin/bwrap") == 0
    assert device.last_run()["staging"] == "disk"
    assert (device.contents(), device.log()) == expected(1, NEWEST)


@pytest.mark.skipif(os.geteuid() != 0, reason="takes root")
def test_an_ordinary_user_where_a_part_of_proc_is_hidden(device, expected):
    """A PID namespace with its own /proc is then impossible."""
    device.install(1)
    (device.app / "uptime").touch()
    for path in (device.root, *device.root.rglob("*")):
        os.chown(path, 65534, 65534)
    assert device.migrate(NEWEST, user=65534,
                          options=f"--ro-bind {device.app}/uptime /proc/uptime") == 0
    assert (device.contents(), device.log()) == expected(1, NEWEST)
    assert device.last_run()["staging"] == "memory"
