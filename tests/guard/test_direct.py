"""Where guarding is impossible, the guard runs the program directly, or not at all with
--strict."""

import os
import shutil
import signal
import sqlite3
import subprocess
from contextlib import closing

import pytest
from conftest import SECONDS, contents, wait_for
from processes import guards_of
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
    """Runs the guard where it cannot guard: first with --strict, then without."""
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
    assert device.verdict()["counting"] == 1
    assert device.end_of_last_run() == {
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
    """Root needs no user namespaces. The test switches them off inside a namespace of its own."""
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
    # The database that the program has made from its reference data records no version.
    assert device.migrate(NEWEST) == 3
    assert device.last_run()["reason"] == "target-missed"


def test_an_empty_file_is_no_database_yet(device):
    device.database.touch()
    assert device.migrate(NEWEST) == 0
    assert device.last_run()["reason"] == "no-database"


def missing(device):
    shutil.rmtree(device.databases)


def linked_to_nothing(device):
    shutil.rmtree(device.databases)
    device.databases.symlink_to("/not/mounted")


@pytest.mark.parametrize("take_away", [missing, linked_to_nothing])
def test_no_directory_for_databases(device, take_away):
    take_away(device)
    run = device.run("run", NEWEST)
    assert run.returncode == 4
    assert "direct, not changed, no-databases-directory" in run.stderr
    run = device.run("run", NEWEST, "--strict")
    assert run.returncode == 3
    assert "no-databases-directory" in run.stderr


@pytest.mark.parametrize("target, changed", [
    ("../elsewhere.sqlite", True), ("/not/mounted/my.db.sqlite", False), ("my.db.sqlite", False)])
def test_a_broken_link_in_the_place_of_the_database(device, other_device, target, changed):
    """The database is a link to a file that can be made, to a missing directory, or to itself."""
    for each in (device, other_device):
        each.database.symlink_to(target)
    assert device.migrate(NEWEST, "--strict") == 3
    assert device.migrate(NEWEST) == 4
    last = device.last_run()
    assert (last["way"], last["reason"], last["changed"]) == (
        "direct", "database-link-broken", changed)
    other_device.run_program(NEWEST)
    assert device.log() == other_device.log()
    assert (device.app / "elsewhere.sqlite").exists() == changed


def test_a_program_that_dies_without_a_database_is_to_be_looked_at(device):
    device.replace_program("kill -9 $$")
    assert device.migrate(NEWEST) == 4
    assert device.last_run()["reason"] == "program-broken"


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
    """Options that put the databases on a file system of this size, where a shell runs the
    guard."""
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


@pytest.fixture
def small(device):
    """A device whose databases are on a small disk; returns a function that runs the guard
    there."""
    second = device.app / "second"
    second.mkdir()
    for name in ("refMachines.sql", "refProducts.sql", "quillmoor"):
        (second / name).symlink_to(f"../{name}")
    (second / "databases").symlink_to("/small/databases")

    def run(size, *arguments):
        for name in ("migration-guard", "database-migrator", "migrator"):
            if (device.app / name).exists():
                shutil.copy2(device.app / name, second)
        shell = device.app / "shell"
        shell.write_text(SHELL)
        shell.chmod(0o755)
        device.run(NEWEST, *arguments, guard="/app/shell", options=on_small_disk(device, size))
        output, = (line for line in (device.app / "output").read_text().splitlines()
                   if line.startswith("migration-guard: from "))
        return int((device.app / "status").read_text()), output
    return run


SIZES = [340_000, 600_000, 800_000, 900_000, 1_200_000, 1_500_000, 1_800_000, 2_000_000, 2_500_000,
         3_600_000, 4_000_000, 8_000_000]


@pytest.mark.parametrize("mode", ["delete", "wal"])
@pytest.mark.parametrize("size", SIZES)
def test_room_on_the_database_partition(device, expected, small, size, mode):
    """With enough room the database is kept; with less it is not; with too little nothing
    changes."""
    device.install(1, mode=mode)
    before = device.contents()
    status, output = small(size)
    kept = "before-migration.sqlite" in (device.app / "files").read_text()
    if status == 3:
        assert "not changed, no-room" in output
        assert (device.contents(), device.log(), kept) == (before, "", False)
        assert len(device.pool_files()) == 3
    else:
        assert (status, "guarded, changed" in output) == (0, True)
        assert (device.contents(), device.log()) == expected(1, NEWEST, mode=mode)
    changes_from = 900_000 if mode == "wal" else 800_000
    assert (status == 0, kept) == (size >= changes_from, size >= 1_200_000), output


# A database in which a walk changes little.
LARGE = "CREATE TABLE ballast AS SELECT zeroblob(12000000) AS a;"


@pytest.mark.parametrize("megabytes, way", [
    (13, "no-room"), (16, "direct"), (24, "direct"), (28, "guarded")])
def test_directly_for_lack_of_room_only_with_room_for_that(device, expected, small, megabytes, way):
    device.install(1, LARGE)
    before = device.contents()
    status, output = small(megabytes * 1_000_000)
    assert way in output
    assert status == {"no-room": 3, "direct": 4, "guarded": 0}[way]
    if way == "no-room":
        assert (device.contents(), device.log()) == (before, "")
    else:
        assert (device.contents(), device.log()) == expected(1, NEWEST, extra=LARGE)


def test_strictly_it_is_never_run_directly_for_lack_of_room(device, small):
    device.install(1, LARGE)
    before = device.contents()
    status, output = small(16_000_000, "--strict")
    assert (status, "no-room" in output) == (3, True)
    assert (device.contents(), device.log()) == (before, "")


def test_staging_elsewhere_is_not_charged_to_the_databases(device, expected, small):
    device.install(1)
    (device.app / "work").mkdir()
    status, output = small(2_000_000, "--staging", "/app/work")
    assert (status, "guarded, changed" in output) == (0, True)
    assert (device.contents(), device.log()) == expected(1, NEWEST)


def test_a_note_that_cannot_be_written_is_not_lack_of_room(device):
    device.install(1)
    (device.note / "something").mkdir(parents=True)
    run = device.run("run", NEWEST)
    assert (run.returncode, "direct, changed, not-writable" in run.stderr) == (4, True)


def test_a_copy_that_cannot_be_written_is_no_reason_for_a_direct_run(device):
    """No file may be larger than 100 kB. That is not reported as lack of room or as damage."""
    device.install(1)
    before = device.contents()
    shell = device.app / "shell"
    shell.write_text("#!/usr/bin/dash\ntrap '' XFSZ\nulimit -f 200\n"
                     'exec /app/migration-guard run "$@"\n')
    shell.chmod(0o755)
    run = device.run(NEWEST, guard="/app/shell")
    assert run.returncode == 3
    assert "guarded, not changed, copy-failed (the copy: File too large)" in run.stderr
    assert (device.contents(), device.log()) == (before, "")


def test_the_program_is_missing(device):
    device.install(1)
    device.program.unlink()
    run = device.run("run", NEWEST)
    assert run.returncode == 3
    assert "no program that can be started" in run.stderr


# The program changes something, and then does not end.
HALF_WAY = """[ -e /app/healthy ] && exec /app/migrator "$@"
sqlite3 /app/databases/my.db.sqlite 'CREATE TABLE half (a)'
touch /app/started
exec sleep 600
"""


def kill_direct_run(device):
    """Kills a direct run when the program has changed something."""
    device.replace_program(HALF_WAY)
    process = device.start("run", NEWEST, bubblewrap=False)
    wait_for(device.app / "started")
    os.kill(guards_of(process)[0], signal.SIGKILL)
    process.communicate(timeout=SECONDS)
    assert device.rows("SELECT * FROM half") == []
    (device.app / "healthy").touch()


@pytest.fixture
def cut(device):
    """A device on which a walk has ended well, and then a direct run was killed in its walk."""
    device.install(5)
    device.whole = device.contents()
    assert device.migrate(20) == 0
    kill_direct_run(device)
    assert device.version() == 20
    return device


def test_a_direct_run_that_was_cut_is_no_commit_of_an_earlier_run(device):
    """The note of a run before has a file to delete after a commit, which has not happened."""
    device.install(5)
    pool, (cookie,) = device.pool_files(), device.rows("PRAGMA schema_version")[0]
    device.note.write_text(f'{{"staging":"memory","boot":"another","schemaCookie":{cookie},'
                           '"poolFiles":["readme.txt"]}')
    kill_direct_run(device)
    # This walk deletes no file of the pool.
    assert device.migrate(6) == 4
    assert device.pool_files() == pool


def test_a_direct_run_that_was_cut_is_on_record(cut):
    run = {"command": "run", "from": 20, "to": None, "target": NEWEST, "way": "direct",
           "changed": None, "status": 4, "reason": "direct-run-cut"}
    assert cut.end_of_last_run() == run
    assert cut.last_run()["software"]["program"] == NEWEST
    assert cut.record()["lastChange"] == cut.last_run()
    assert (cut.record()["databaseInOrder"], cut.record()["directRunCut"]) == (False, True)
    assert cut.run("status", "--exit-code").returncode == 4


def test_after_a_direct_run_that_was_cut_the_kept_database_stays(cut):
    run = cut.run("run", NEWEST)
    assert (run.returncode, cut.version()) == (4, NEWEST)
    assert "guarded, changed, direct-run-cut, status 4" in run.stderr
    assert run.stderr.splitlines()[-1] == (
        "migration-guard: an earlier run without the guard's protection was cut: it may have left "
        "the database half migrated")
    assert contents(cut.kept) == cut.whole
    assert (cut.last_run()["kept"], cut.verdict()["counting"]) == (False, 1)
    # It is told once. The next walk that ends well puts the database in order.
    assert cut.migrate(1) == 0
    assert contents(cut.kept) == cut.whole
    assert "directRunCut" not in cut.record()
    now = cut.contents()
    assert cut.migrate(2) == 0
    assert contents(cut.kept) == now


def test_a_direct_run_that_was_cut_is_told_even_if_nothing_differs(cut):
    assert cut.migrate(20) == 3
    assert cut.last_run()["reason"] == "direct-run-cut"
    assert cut.migrate(20) == 0
    assert cut.migrate(NEWEST) == 0
    assert contents(cut.kept) == cut.whole


def test_a_direct_run_that_was_cut_can_be_accepted(cut):
    assert cut.migrate(NEWEST, "--accept", "direct-run-cut") == 0
    assert contents(cut.kept) == cut.whole
    assert "direct-run-cut" in [finding["code"] for finding in cut.verdict()["findings"]]


def test_strictly_a_direct_run_that_was_cut_changes_nothing_once(cut):
    before = cut.contents()
    assert cut.migrate(NEWEST, "--strict") == 3
    assert (cut.last_run()["reason"], cut.contents()) == ("direct-run-cut", before)
    assert cut.migrate(NEWEST, "--strict") == 0
    assert contents(cut.kept) == cut.whole


def test_the_next_direct_run_tells_of_one_that_was_cut(cut):
    assert cut.migrate(NEWEST, bubblewrap=False) == 4
    assert [finding["code"] for finding in cut.verdict()["findings"] if finding["counts"]] == [
        "direct:no-bubblewrap", "direct-run-cut"]
    assert "directRunCut" not in cut.record()


def test_a_run_that_judges_nothing_leaves_it_to_the_next_one_to_tell(cut):
    with closing(sqlite3.connect(cut.database, isolation_level=None)) as other:
        other.execute("BEGIN EXCLUSIVE")
        assert cut.migrate(NEWEST, "--wait", 0) == 3
    assert cut.last_run()["reason"] == "locked"
    assert cut.migrate(NEWEST) == 4
    assert cut.last_run()["reason"] == "direct-run-cut"


def test_a_restore_puts_right_what_a_direct_run_that_was_cut_has_left(cut):
    assert cut.run("restore").returncode == 0
    assert "directRunCut" not in cut.record()
    assert cut.migrate(NEWEST) == 0
    assert contents(cut.kept) == cut.whole


def test_a_direct_run_that_ends_is_not_one_that_was_cut(device):
    device.install(NEWEST)
    for _ in range(2):
        assert device.migrate(NEWEST) == 0
    before = device.record()
    assert device.migrate(NEWEST, "--accept", "direct:no-bubblewrap", bubblewrap=False) == 0
    assert device.last_run()["way"] == "direct"
    assert {name for name in before if name != "lastRun"} == {
        name for name in device.record() if name != "lastRun"}
