"""The guard's lock where there is no database yet, and where there can be no lock."""

import contextlib
import os
import shutil

import pytest
from conftest import SECONDS, wait_for
from processes import guards_of
from support.versions import NEWEST

PAUSED = """
echo started >>/app/starts
touch /app/waiting
while [ ! -e /app/go ]; do sleep 0.01; done
exec /app/migrator "$@"
"""
COUNTED = 'echo started >>/app/starts; exec /app/migrator "$@"'


def starts(device):
    file = device.app / "starts"
    return file.read_text().count("started") if file.exists() else 0


def waits_for_the_lock(process):
    """True if the guard has opened the directory that it locks."""
    for guard in guards_of(process):
        for descriptor in os.scandir(f"/proc/{guard}/fd"):
            with contextlib.suppress(FileNotFoundError):  # It has been closed meanwhile.
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


def without_locks(error):
    """Options and arguments of a run in which every lock on a directory fails."""
    if not shutil.which("strace"):
        pytest.skip("strace is not installed")
    return (["-f", "-qq", "-e", "trace=flock", "-e", f"inject=flock:error={error}", "-o",
             "/app/trace", "/app/migration-guard"],
            # Under strace the sanitizer cannot look for leaks.
            {"guard": "/usr/bin/strace", "options": (
                "--ro-bind /usr/bin/strace /usr/bin/strace "
                "--setenv ASAN_OPTIONS detect_leaks=0 --setenv LSAN_OPTIONS detect_leaks=0")})


@pytest.mark.parametrize("error", ["EOPNOTSUPP", "ENOSYS"])
def test_where_there_are_no_locks_the_run_is_direct_and_on_record(device, expected, error):
    device.install(1)
    arguments, options = without_locks(error)
    run = device.run(*arguments, "run", NEWEST, **options)
    assert (run.returncode, "direct, changed, no-lock" in run.stderr) == (4, True), run.stderr
    assert (device.contents(), device.log()) == expected(1, NEWEST)
    assert (device.last_run()["way"], device.last_run()["reason"]) == ("direct", "no-lock")
    assert "directRunCut" not in device.record()


def test_strictly_nothing_is_run_where_there_are_no_locks(device):
    device.install(1)
    before = device.contents()
    arguments, options = without_locks("ENOSYS")
    run = device.run(*arguments, "run", NEWEST, "--strict", **options)
    assert (run.returncode, "not changed, no-lock" in run.stderr) == (3, True), run.stderr
    assert (device.contents(), device.log()) == (before, "")


@pytest.mark.parametrize("error", ["EIO", "ENOMEM", "ENOLCK"])
@pytest.mark.parametrize("command", ["run", "restore"])
def test_a_lock_that_fails_is_no_reason_for_a_direct_run(device, error, command):
    device.install(1)
    device.replace_program(COUNTED)
    before = device.contents()
    arguments, options = without_locks(error)
    target = [NEWEST] if command == "run" else []
    run = device.run(*arguments, command, *target, **options)
    assert (run.returncode, "not changed, no-lock" in run.stderr) == (3, True), run.stderr
    assert (device.contents(), device.log(), starts(device)) == (before, "", 0)


@pytest.mark.skipif(os.geteuid() != 0, reason="takes root")
def test_a_directory_that_cannot_be_opened(device):
    """This user may use the files in it, but not read it, so the directory cannot be locked."""
    device.install(1)
    for path in (device.root, *device.root.rglob("*")):
        os.chown(path, 65534, 65534)
    device.databases.chmod(0o311)
    run = device.run("run", NEWEST, user=65534)
    assert (run.returncode, "direct, changed, no-lock" in run.stderr) == (4, True), run.stderr
    assert device.last_run()["reason"] == "no-lock"
