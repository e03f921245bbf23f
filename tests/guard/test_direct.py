"""Where guarding is impossible the program is run directly, or not at all with --strict."""

import os
import shutil
import subprocess

import pytest
from conftest import SECONDS
from support.versions import NEWEST

NO_NAMESPACES = """#!/usr/bin/dash
echo 'bwrap: No permissions to create a new namespace' >&2
exit 1
"""
FAILS_LATE = """#!/usr/bin/dash
# The child is named before the sandbox is prepared, which then fails.
while [ "$1" != --json-status-fd ]; do shift; done
eval "echo '{ \\"child-pid\\": 17 }' >&$2"
echo "bwrap: Can't bind mount" >&2
exit 1
"""


def bubblewrap(device, script):
    file = device.root / "bwrap"
    file.write_text(script)
    file.chmod(0o755)
    return f"--ro-bind {file} /usr/bin/bwrap"


def direct_run(device, reason, **options):
    """Runs the guard, which cannot guard; first strictly."""
    def files():
        return {path.name: path.read_bytes() for path in device.databases.iterdir()
                if path.is_file() and not path.name.startswith("lastMigration")}
    before = files()
    run = device.run("run", NEWEST, "--strict", **options)
    assert (run.returncode, files()) == (3, before), run.stderr
    assert reason in run.stderr
    run = device.run("run", NEWEST, **options)
    assert f"direct, changed, {reason}" in run.stderr
    return run.returncode


def test_without_bubblewrap(device, expected):
    device.install(1)
    assert direct_run(device, "no-bubblewrap", bubblewrap=False) == 4
    assert (device.contents(), device.log()) == expected(1, NEWEST)
    assert device.pool_files() == ["readme.txt"]
    assert device.last_run() == {
        "command": "run", "from": 1, "to": NEWEST, "target": NEWEST, "way": "direct",
        "reason": "no-bubblewrap", "changed": True, "kept": False, "status": 4}


@pytest.mark.parametrize("script", [NO_NAMESPACES, FAILS_LATE])
def test_without_namespaces(device, expected, script):
    device.install(1)
    options = dict(bubblewrap=False, options=bubblewrap(device, script))
    # The guard copies nothing at such a start.
    device.replace_program('ls /app/databases >/app/files; exec /app/migrator "$@"')
    assert direct_run(device, "no-namespaces", **options) == 4
    assert (device.app / "files").read_text().split() == ["lastMigration.json", "my.db.sqlite"]
    assert (device.contents(), device.log()) == expected(1, NEWEST)


@pytest.mark.skipif(os.geteuid() != 0, reason="takes root")
def test_as_an_ordinary_user(device, expected):
    device.install(1)
    for path in (device.root, *device.root.rglob("*")):
        os.chown(path, 65534, 65534)
    assert device.migrate(NEWEST, user=65534) == 0
    assert (device.contents(), device.log()) == expected(1, NEWEST)
    assert device.last_run()["staging"] == "memory"
    assert device.kept.stat().st_mode & 0o077 == device.database.stat().st_mode & 0o077


def test_as_root_where_user_namespaces_are_switched_off(device, expected):
    """Root needs no user namespace. The test switches them off in one of its own."""
    device.install(1)
    switch_off = 'echo 0 >/proc/sys/user/max_user_namespaces && exec "$@"'
    command = device.command("run", NEWEST)
    command["args"] = ["unshare", "--user", "--map-root-user", "--mount", "/bin/sh", "-c",
                       switch_off, "sh", *map(str, command["args"])]
    run = subprocess.run(**command, capture_output=True, text=True, timeout=SECONDS)
    assert run.returncode == 0, run.stderr
    assert (device.contents(), device.log()) == expected(1, NEWEST)
    assert device.last_run()["staging"] == "memory"


def test_no_database_yet(device, other_device):
    assert device.migrate("--strict", NEWEST) == 3
    assert device.migrate(NEWEST) == 0
    other_device.run_program(NEWEST)
    assert device.log() == other_device.log()
    assert device.last_run()["reason"] == "no-database"
    # What the program has made of its reference data records no version.
    assert device.migrate(NEWEST) == 3
    assert device.last_run()["reason"] == "target-missed"


def test_an_empty_file_is_no_database_yet(device):
    device.database.touch()
    assert device.migrate(NEWEST) == 0
    assert device.last_run()["reason"] == "no-database"


def test_no_directory_for_databases(device):
    shutil.rmtree(device.databases)
    assert device.migrate(NEWEST) == 0
    assert device.migrate("--strict", NEWEST) == 3


def test_not_a_database(device, other_device):
    device.database.write_text("something else, and long enough for a header " * 20)
    assert device.migrate("--strict", NEWEST) == 3
    assert device.migrate(NEWEST) == 4
    assert (device.last_run()["way"], device.last_run()["reason"]) == ("direct", "not-copied")
    shutil.copy(device.database, other_device.database)
    other_device.run_program(NEWEST)
    assert device.log() == other_device.log()


def test_a_database_that_was_cut_goes_direct(device):
    device.install(20)
    content = device.database.read_bytes()
    device.database.write_bytes(content[:len(content) // 2 // 4096 * 4096])
    device.replace_program(
        '[ -s /app/databases/my.db.sqlite ] || touch /app/empty; /app/migrator "$@"')
    run = device.run("run", NEWEST)
    assert run.returncode == 4
    assert "direct" in run.stderr and "not-copied" in run.stderr
    assert not (device.app / "empty").exists()


@pytest.mark.parametrize("make", [lambda path: path.mkdir(),
                                  lambda path: path.symlink_to("/dev/null")])
def test_something_else_in_the_place_of_the_database(device, other_device, make):
    for each in (device, other_device):
        make(each.database)
    assert device.migrate("--strict", NEWEST) == 3
    assert device.migrate(NEWEST) == 4
    assert (device.last_run()["way"], device.last_run()["reason"]) == ("direct", "not-copied")
    other_device.run_program(NEWEST)
    assert device.log() == other_device.log()


def test_nothing_writable(device):
    device.install(1)
    options = f"--ro-bind {device.databases} /app/databases"
    before = device.contents()
    run = device.run("run", NEWEST, options=options)
    assert run.returncode == 4
    assert "direct, not changed, not-writable" in run.stderr
    assert device.contents() == before
    assert device.run("run", NEWEST, "--strict", options=options).returncode == 3


def on_small_disk(device, size):
    """The databases on a file system of this size; the run is one of a shell that looks at it."""
    return (f"--size {size} --tmpfs /small --symlink /small/databases /app/linked "
            "--ro-bind /usr/bin/dash /usr/bin/dash")


SHELL = """#!/usr/bin/dash
mkdir /small/databases
cp /app/databases/my.db.sqlite /small/databases/
/app/second/migration-guard run "$@" 2>/app/output
echo $? >/app/status
ls /small/databases >/app/files
cp /small/databases/* /app/databases/
"""


@pytest.mark.parametrize("size, way, kept", [
    (340_000, "direct", False), (1_500_000, "direct", False), (3_600_000, "guarded", False),
    (4_000_000, "guarded", True), (8_000_000, "guarded", True)])
def test_room_on_the_database_partition(device, expected, size, way, kept):
    """Without room for the kept database first, then directly."""
    device.install(1)
    second = device.app / "second"
    second.mkdir()
    for name in ("migration-guard", "database-migrator"):
        shutil.copy2(device.app / name, second)
    for name in ("refMachines.sql", "refProducts.sql", "quillmoor"):
        (second / name).symlink_to(f"../{name}")
    (second / "databases").symlink_to("/small/databases")
    shell = device.app / "shell"
    shell.write_text(SHELL)
    shell.chmod(0o755)
    device.run(NEWEST, guard="/app/shell", options=on_small_disk(device, size))
    assert way in (device.app / "output").read_text()
    assert (device.app / "status").read_text() == ("4\n" if way == "direct" else "0\n")
    assert ("before-migration.sqlite" in (device.app / "files").read_text()) == kept
    if way == "guarded":
        assert device.contents() == expected(1, NEWEST)[0]


def test_the_program_is_missing(device):
    device.install(1)
    device.program.unlink()
    run = device.run("run", NEWEST)
    assert run.returncode == 3
    assert "no program that can be started" in run.stderr
