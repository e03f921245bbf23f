"""The order in which files become durable, seen from outside by strace."""

import os
import re
import shutil

import pytest
from support.versions import NEWEST

CALLS = "execve,fsync,fdatasync,rename,renameat2,unlink,unlinkat,pwrite64,write,ftruncate"
PLACES = {"/app/databases": "directory", "/app/databases/my.db.sqlite": "database",
          "/app/databases/my.db.sqlite-journal": "journal",
          "/app/databases/my.db.sqlite-wal": "write-ahead log",
          "/app/databases/sqlMigrationErrorLog.txt": "log",
          "/app/databases/before-migration.sqlite": "kept",
          "/app/databases/before-migration.sqlite.new": "kept.new",
          "/app/databases/before-migration.sqlite.tmp": "kept.tmp",
          "/app/databases/lastMigration.json": "record",
          "/app/databases/lastMigration.json.new": "record.new",
          "/app/databases/migration-guard.note": "note",
          "/app/databases/migration-guard.note.new": "note.new"}


def operations(device, *arguments, bubblewrap=True):
    """The guard's own operations on the files beside the database; repeated writes count as one.
    Without bubblewrap also the start of the program."""
    trace = device.app / "trace"
    # Under strace the sanitizer cannot look for leaks.
    options = ("--ro-bind /usr/bin/strace /usr/bin/strace"
               " --setenv ASAN_OPTIONS detect_leaks=0 --setenv LSAN_OPTIONS detect_leaks=0")
    status = device.run("-f", "-y", "-qq", "-e", f"trace={CALLS}", "-e", "signal=none", "-o",
                        "/app/trace", "/app/migration-guard", "run", *arguments,
                        guard="/usr/bin/strace", options=options, bubblewrap=bubblewrap).returncode
    found, programs = [], {}
    for line in trace.read_text(errors="replace").splitlines():
        pid, call, rest = re.match(r"(\d+) +(?:<\.\.\. )?(\w+)[( ](.*)", line).groups()
        if call == "execve":
            programs[pid] = "database-migrator" in rest
            if programs[pid] and not bubblewrap:
                found.append("start")
        if programs.get(pid):
            continue
        paths = re.findall(r'<(/[^>]*)>', rest.split(",")[0]) or re.findall(r'"([^"]*)"', rest)
        names = [PLACES[path] for path in paths if path in PLACES]
        if names and "= 0" in line or "write" in call and names:
            verb = {"pwrite64": "write", "fdatasync": "flush", "fsync": "flush",
                    "unlinkat": "unlink"}.get(call, call)
            entry = " ".join([verb, *names])
            if not found or found[-1] != entry:
                found.append(entry)
    return status, found


@pytest.fixture(autouse=True)
def tools():
    if not shutil.which("strace"):
        pytest.skip("strace is not installed")


def test_of_a_walk(device):
    device.install(1)
    status, found = operations(device, NEWEST)
    assert status == 0
    found = [entry for entry in found if not entry.startswith("unlink kept")
             and entry not in ("unlink record.new", "unlink note", "unlink note.new")]
    assert found == [
        "write note.new", "rename note.new note",
        "write kept.tmp", "flush kept.tmp", "rename kept.tmp kept.new",
        "write note.new", "flush note.new", "rename note.new note",
        "write log", "flush log",
        "write journal", "flush journal", "flush directory", "write journal", "flush journal",
        "write database", "flush database", "unlink journal", "flush directory",
        "rename kept.new kept",
        "write record.new", "flush record.new", "rename record.new record",
        "flush directory"]


def test_there_is_a_note_from_the_start_to_the_end(device):
    device.install(1)
    _, found = operations(device, NEWEST)
    of_the_note = [entry for entry in found if entry.endswith(" note")]
    assert of_the_note == ["rename note.new note", "rename note.new note", "unlink note"]


def test_of_a_walk_with_a_write_ahead_log(device):
    device.install(1, mode="wal")
    status, found = operations(device, NEWEST)
    assert status == 0
    committed = found.index("flush write-ahead log")
    assert found.index("flush kept.tmp") < found.index("flush directory") < committed
    assert found.index("flush log") < committed < found.index("rename kept.new kept")
    assert "write database" not in found[:committed]


def test_of_an_ordinary_boot(device):
    device.install(NEWEST)
    for _ in range(2):
        assert device.migrate(NEWEST) == 0
    status, found = operations(device, NEWEST)
    assert (status, [entry for entry in found if "note" not in entry]) == (0, ["write log"])


def test_of_a_direct_run(device):
    """A record that the run was cut is durable before the program starts."""
    device.install(1)
    status, found = operations(device, NEWEST, bubblewrap=False)
    record = ["write record.new", "flush record.new", "rename record.new record", "flush directory"]
    assert (status, found) == (4, [*record, "start", *record])


@pytest.mark.parametrize("mode", ["delete", "wal"])
def test_an_ordinary_boot_flushes_nothing(device, mode):
    device.install(NEWEST, mode=mode)
    for _ in range(2):
        assert device.migrate(NEWEST) == 0
    _, found = operations(device, NEWEST)
    assert [entry for entry in found if "flush" in entry or "database" in entry] == []


def test_a_log_that_is_a_directory_is_done_without(device, expected):
    device.install(1)
    device.log_file.mkdir()
    assert device.migrate(NEWEST) == 0
    assert device.contents() == expected(1, NEWEST)[0]
    assert list(device.log_file.iterdir()) == []


def test_a_log_that_is_a_link_is_followed_as_the_program_does(device, expected):
    device.install(1)
    elsewhere = device.app / "elsewhere.txt"
    elsewhere.write_text("before\n")
    device.log_file.symlink_to("../elsewhere.txt")
    assert device.migrate(NEWEST) == 0
    assert elsewhere.read_text() == "before\n" + expected(1, NEWEST)[1]
    assert device.log_file.is_symlink()


def test_a_log_that_is_a_broken_link_is_done_without(device, expected):
    device.install(1)
    device.log_file.symlink_to("/nowhere/at/all")
    assert device.migrate(NEWEST) == 0
    assert device.contents() == expected(1, NEWEST)[0]


@pytest.mark.parametrize("bubblewrap", [True, False])
def test_a_log_without_an_end_is_done_without(device, expected, bubblewrap):
    device.install(1)
    device.log_file.symlink_to("/dev/full")
    assert device.migrate(NEWEST, bubblewrap=bubblewrap) == (0 if bubblewrap else 4)
    assert device.contents() == expected(1, NEWEST)[0]


@pytest.mark.skipif(os.geteuid() != 0, reason="takes root")
def test_a_log_that_is_read_only_is_done_without(device, expected):
    device.install(1)
    for path in (device.root, *device.root.rglob("*")):
        os.chown(path, 65534, 65534)
    device.log_file.write_text("before\n")
    device.log_file.chmod(0o444)
    assert device.migrate(NEWEST, user=65534) == 0
    assert device.contents() == expected(1, NEWEST)[0]
    assert device.log() == "before\n"
