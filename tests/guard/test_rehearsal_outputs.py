"""Where a rehearsal writes its report and result: to standard output or to files, and never over
something that is needed."""

import json
import os
import subprocess
from contextlib import contextmanager

import pytest
from conftest import GUARD, PROGRAM, SECONDS
from rehearsals import Untouched
from support.places import DEMO
from support.versions import NEWEST
from test_rehearsal_reports import make

OPTIONS = pytest.mark.parametrize("option", ["--json={}", "--result={}"])


def call(*arguments, **options):
    return subprocess.run(
        [GUARD, "rehearse", str(NEWEST), *map(str, arguments), "--program", PROGRAM],
        stderr=subprocess.PIPE, stdin=subprocess.DEVNULL, text=True, timeout=SECONDS, **options)


@pytest.fixture
def database(tmp_path):
    (tmp_path / "in").mkdir()
    return make(tmp_path / "in" / "a.sqlite", 33)


@pytest.fixture
def out(tmp_path):
    path = tmp_path / "out"
    path.mkdir()
    return path


@OPTIONS
def test_a_link_to_a_file_is_refused(database, out, option):
    (out / "file").write_text("old")
    (out / "link").symlink_to("file")
    before = Untouched(out)
    run = call(database, option.format(out / "link"))
    assert (run.returncode, run.stderr) == (
        2, f"migration-guard: is not a regular file: {out / 'link'}\n")
    before.check()


@OPTIONS
def test_a_link_to_nothing_is_refused(database, out, option):
    (out / "link").symlink_to("nowhere")
    assert call(database, option.format(out / "link")).returncode == 2
    assert os.readlink(out / "link") == "nowhere" and os.listdir(out) == ["link"]


@OPTIONS
def test_a_link_to_a_pipe_is_refused(database, out, option):
    """As /dev/stdout in a pipeline."""
    reading, writing = os.pipe()
    try:
        (out / "link").symlink_to(f"/proc/self/fd/{writing}")
        run = call(database, option.format(out / "link"), pass_fds=[writing])
    finally:
        os.close(writing)
    with open(reading, "rb") as pipe:
        assert (run.returncode, pipe.read()) == (2, b"")
    assert os.listdir(out) == ["link"] and (out / "link").is_symlink()


@contextmanager
def file_mode_mask(mask):
    before = os.umask(mask)
    try:
        yield
    finally:
        os.umask(before)


@OPTIONS
@pytest.mark.parametrize("mask, mode", [(0o022, 0o644), (0o077, 0o600), (0o002, 0o664)])
def test_a_new_file_has_the_mode_of_any_new_file(database, out, option, mask, mode):
    with file_mode_mask(mask):
        assert call(database, option.format(out / "x")).returncode == 0
    assert oct((out / "x").stat().st_mode & 0o7777) == oct(mode)


@OPTIONS
@pytest.mark.parametrize("mode", [0o640, 0o600, 0o666, 0o444])
def test_a_replaced_file_keeps_its_mode(database, out, option, mode):
    (out / "x").touch()
    (out / "x").chmod(mode)
    assert call(database, option.format(out / "x")).returncode == 0
    assert (out / "x").stat().st_size > 0
    assert oct((out / "x").stat().st_mode & 0o7777) == oct(mode)


@OPTIONS
@pytest.mark.skipif(os.geteuid() != 0, reason="takes root")
def test_a_replaced_file_keeps_its_owner(database, out, option):
    """As when root rehearses for a user who has made the file."""
    (out / "x").touch()
    os.chown(out / "x", 4711, 4712)
    assert call(database, option.format(out / "x")).returncode == 0
    status = (out / "x").stat()
    assert (status.st_uid, status.st_gid) == (4711, 4712)


@pytest.mark.parametrize("count", [1, 2])
def test_standard_output_on_a_full_disk(database, count):
    with open("/dev/full", "w", encoding="utf-8") as full:
        run = call(*[database] * count, "--json", stdout=full)
    assert run.returncode == 3
    assert "cannot be written: standard output" in run.stderr


def test_a_worse_status_is_not_hidden_by_a_full_disk(tmp_path):
    blocked = "CREATE TABLE fields_temp (a); INSERT INTO fields_temp VALUES (1);"
    database = make(tmp_path / "a.sqlite", 24, blocked)
    with open("/dev/full", "w", encoding="utf-8") as full:
        assert call(database, "--json", stdout=full).returncode == 4


def test_a_full_standard_output_that_nothing_is_written_to(database):
    with open("/dev/full", "w", encoding="utf-8") as full:
        assert call(database, stdout=full).returncode == 0


DEVICE_FILES = (
    "app/databases/lastMigration.json", "app/databases/sqlMigrationErrorLog.txt",
    "app/databases/migration-guard.note", "app/databases/migration-guard.copy",
    "app/databases/replaced-by-restore.sqlite", "app/databases/replaced-by-restore.wal",
    "app/refMachines.sql", "app/refProducts.sql", "app/schema-versions.json",
    "app/database-migrator", "etc/harlo/platform")


@OPTIONS
@pytest.mark.parametrize("name", DEVICE_FILES)
def test_files_that_this_device_needs_are_not_written_over(device, name, option):
    device.install(33)
    assert device.migrate(NEWEST) == 0
    # A run leaves some of them only when it is cut.
    (device.root / name).touch()
    before = Untouched(device.root)
    run = device.run("rehearse", NEWEST, option.format(f"/{name}"))
    assert (run.returncode, run.stderr) == (
        2, f"migration-guard: is needed for something else: /{name}\n")
    before.check()


@OPTIONS
def test_given_reference_data_is_not_written_over(database, out, option):
    for name in ("refMachines.sql", "refProducts.sql"):
        (out / name).write_bytes((DEMO / name).read_bytes())
    before = Untouched(out)
    for name in ("refMachines.sql", "refProducts.sql"):
        assert call(database, "--reference-data", out, option.format(out / name)).returncode == 2
    before.check()
    # Other files of that directory may be written.
    assert call(database, "--reference-data", out, option.format(out / "x")).returncode == 0


def test_the_report_of_this_device_goes_beside_its_database(device):
    """Only the files that are needed are refused, not their directory."""
    device.install(33)
    done = device.run("rehearse", NEWEST, "--json=/app/databases/rehearsal.json")
    assert done.returncode == 0, done.stderr
    assert json.loads((device.databases / "rehearsal.json").read_text())["status"] == 0
