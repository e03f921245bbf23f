"""Where the guard expects a file there is something else: nothing hangs, nothing breaks."""

import json
import os
import socket

import pytest
from support.versions import NEWEST


def make_socket(path):
    # A socket's path may be no longer than 107 bytes.
    directory = os.open(path.parent, os.O_RDONLY)
    with socket.socket(socket.AF_UNIX) as made:
        made.bind(f"/proc/self/fd/{directory}/{path.name}")
    os.close(directory)


KINDS = {
    "pipe": os.mkfifo,
    "directory": os.mkdir,
    "socket": make_socket,
    "device": lambda path: path.symlink_to("/dev/zero"),
    "link to nowhere": lambda path: path.symlink_to("nowhere"),
    "large file": lambda path: path.write_bytes(b" " * (20 << 20)),
}


@pytest.fixture
def migrated(device):
    device.install(1)
    assert device.migrate(NEWEST) == 0
    (device.app / "schemaversion.txt").write_text(f"{NEWEST}\n")
    return device


def put(path, kind):
    path.unlink(missing_ok=True)
    KINDS[kind](path)


@pytest.mark.parametrize("kind", KINDS)
def test_the_file_of_the_target(migrated, kind):
    put(migrated.app / "schemaversion.txt", kind)
    assert migrated.migrate() == 2


@pytest.mark.parametrize("kind", KINDS)
def test_the_file_of_the_known_versions(migrated, kind):
    put(migrated.app / "schema-versions.json", kind)
    assert "newest version that the program knows: unknown" in migrated.run("status").stdout
    assert "newest schema version unknown" in migrated.run("--version").stdout


@pytest.mark.parametrize("kind", KINDS)
def test_the_record_of_the_last_runs(migrated, kind):
    put(migrated.last, kind)
    assert "last run: none" in migrated.run("status").stdout
    assert migrated.migrate(1) == 0
    assert (migrated.version(), migrated.last.is_dir()) == (1, kind == "directory")
    assert kind == "directory" or migrated.last_run()["to"] == 1
    assert migrated.run("restore").returncode == 0


@pytest.mark.parametrize("name", ["migration-guard.note", "migration-guard.note.new"])
@pytest.mark.parametrize("kind", KINDS)
def test_the_note_of_a_run(migrated, kind, name):
    put(migrated.databases / name, kind)
    assert migrated.migrate(1) == (4 if kind == "directory" else 0)
    assert migrated.version() == 1
    assert kind == "directory" or not (migrated.databases / name).exists()


@pytest.mark.parametrize("kind", KINDS)
def test_the_kept_database(migrated, kind):
    now = migrated.contents()
    put(migrated.kept, kind)
    assert migrated.run("status").returncode == 0
    run = migrated.run("restore")
    assert (run.returncode, migrated.contents()) == (3, now)


@pytest.mark.parametrize("kind", KINDS)
def test_a_kept_database_that_is_not_settled(migrated, kind):
    put(migrated.databases / "before-migration.sqlite.new", kind)
    assert migrated.run("restore", "--dry-run").returncode in (0, 3)
    assert migrated.migrate(1) == 0


@pytest.mark.parametrize("kind", ["pipe", "directory", "socket", "device", "link to nowhere"])
def test_the_database(migrated, kind):
    put(migrated.database, kind)
    files = migrated.files()
    for command in (["status"], ["restore", "--dry-run"], ["restore"],
                    ["run", NEWEST, "--strict"]):
        run = migrated.run(*command)
        assert run.returncode == (0 if command == ["status"] else 3), (command, run.stderr)
    assert migrated.files() == files


def test_a_note_of_many_names_is_read(migrated):
    cookie, = migrated.rows("PRAGMA schema_version")[0]
    names = [f"{number:0200}.iop" for number in range(20000)]
    (migrated.pool / names[-1]).touch()
    migrated.note.write_text(json.dumps({"staging": "memory", "boot": "another",
                                         "schemaCookie": cookie - 1, "poolFiles": names}))
    assert migrated.migrate(NEWEST) == 0
    assert names[-1] not in migrated.pool_files()
