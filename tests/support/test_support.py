"""Tests of the package that the Python tests share."""

import subprocess
import time
from dataclasses import replace

import pytest
from support import campaign as campaigns
from support.campaign import Campaign, fingerprint
from support.contents import difference, read_dump, read_sound
from support.device import Device
from support.places import scratch_directory
from support.versions import NEWEST, VERSIONS, dump_of, file_of


def test_newest_version_is_the_last_row_of_the_registry_and_has_a_dump():
    assert file_of(NEWEST).exists() and not file_of(NEWEST + 1).exists()
    assert all(file_of(version).exists() for version in VERSIONS)


BEFORE = """
CREATE TABLE t (id INTEGER PRIMARY KEY, a TEXT, b REAL);
INSERT INTO t VALUES(1, 'x', 1.5), (2, 'y', 2.5);
CREATE INDEX i ON t (a);
CREATE TABLE u (id INTEGER PRIMARY KEY, name TEXT);
INSERT INTO u VALUES(7, 'seven');
CREATE TABLE v (id INTEGER);
"""


@pytest.mark.parametrize("statements, expected", [
    pytest.param("UPDATE t SET b = 2 WHERE id = 2;",
                 ("t", "values", "{'b': Values(changed=1, rows=2, before='2.5', after='2.0')}"),
                 id="a value"),
    pytest.param("DELETE FROM t WHERE id = 1;", ("t", "rows_lost", "1"), id="a row less"),
    pytest.param("INSERT INTO t VALUES(3, NULL, NULL);", ("t", "rows_gained", "1"),
                 id="a row more"),
    pytest.param("ALTER TABLE t ADD COLUMN c TEXT DEFAULT 'd';",
                 ("t", "gained", "{'c': \"TEXT DEFAULT 'd'\"}"), id="a column more"),
    pytest.param("ALTER TABLE t DROP COLUMN b;", ("t", "lost", "['b']"), id="a column less"),
    pytest.param("ALTER TABLE t RENAME COLUMN b TO c;", ("t", "renamed", "{'b': 'c'}"),
                 id="a column with another name"),
    pytest.param("DROP INDEX i;", ("t", "attached_lost", "['index i']"), id="an index less"),
    pytest.param("DROP INDEX i; CREATE INDEX i ON t (b);",
                 ("t", "attached_changed",
                  "{'index i': ('CREATE INDEX i ON t (a)', 'CREATE INDEX i ON t (b)')}"),
                 id="another index of the same name"),
])
def test_difference_in_a_table(statements, expected):
    found = difference(read_dump(BEFORE), read_dump(BEFORE + statements))
    table, part, value = expected
    assert (found.gone, found.come, found.renamed, [*found.changed]) == ({}, {}, {}, [table])
    assert str(getattr(found.changed[table], part)) == value
    empty = {field: type(of_field)() for field, of_field in vars(found.changed[table]).items()}
    assert not replace(found.changed[table], **{part: empty[part]})


def test_difference_between_tables():
    found = difference(read_dump(BEFORE), read_dump(
        BEFORE + "DROP TABLE v; ALTER TABLE u RENAME TO w; CREATE TABLE x (id INTEGER);"))
    assert ([*found.gone], [*found.come], found.renamed) == (["v"], ["x"], {"u": "w"})
    assert not difference(read_dump(BEFORE), read_dump(BEFORE))


def test_damaged_database_has_no_contents():
    with scratch_directory() as folder:
        device = Device(folder).make_folders()
        device.sql(dump_of(1))
        assert {"growers", "tableVersion", "sqlite_sequence"} <= {*read_sound(device.database)}
        content = device.database.read_bytes()
        device.database.write_bytes(content[:len(content) // 2])
        assert read_sound(device.database) is None


def test_device_is_filled_with_these_files_and_no_others():
    with scratch_directory() as folder:
        device = Device(folder).make_folders()
        (device.app / "database-migrator").touch()
        device.databases.rmdir()
        device.databases.write_text("a file in place of the folder")
        device.fill({"app/databases/my.db.sqlite": b"", "pool/folder": None})
        assert {str(path.relative_to(folder)) for path in folder.rglob("*")} == {
            "app", "app/database-migrator", "app/databases", "app/databases/my.db.sqlite",
            "Harlo", "etc", "etc/harlo", "pool", "pool/folder"}


def test_program_runs_where_the_device_has_its_fixed_places():
    with scratch_directory() as folder:
        device = Device(folder).make_folders()
        device.platform.write_text("TORVIK\n")
        run = device.start("/usr/bin/cat", "/etc/harlo/platform", stdout=subprocess.PIPE)
        assert (run.communicate(), run.returncode) == ((b"TORVIK\n", None), 0)


def test_campaign_goes_on_where_it_stopped(monkeypatch):
    with scratch_directory() as root:
        monkeypatch.setattr(campaigns, "ROOT", root)
        first = Campaign("trial")
        first.note(["a", 1], {"found": 1})
        first.note(["a", 2], {"found": 2})
        first.note(["a", 1], {"found": 3})

        again = Campaign("trial")
        assert again.answers() == [(["a", 1], {"found": 3}), (["a", 2], {"found": 2})]
        again.forget(lambda task, answer: answer["found"] == 2)
        assert Campaign("trial").answers() == [(["a", 1], {"found": 3})]
        assert Campaign("trial").answer(["a", 2], "none") == "none"


def test_campaign_starts_over_with_other_files(monkeypatch):
    with scratch_directory() as root:
        monkeypatch.setattr(campaigns, "ROOT", root)
        source = root / "source.py"
        source.write_text("1")
        kept = Campaign("trial")
        kept.start_over_unless(fingerprint(source))
        kept.note("task", "answer")
        again = Campaign("trial")
        again.start_over_unless(fingerprint(source))
        assert again.answer("task") == "answer"
        source.write_text("2")
        again.start_over_unless(fingerprint(source))
        assert (again.answers(), Campaign("trial").answers()) == ([], [])


def test_campaign_ends_when_its_minutes_are_over(monkeypatch):
    with scratch_directory() as root:
        monkeypatch.setattr(campaigns, "ROOT", root)
        assert not Campaign("trial", minutes=1).is_over()
        monkeypatch.setattr(time, "monotonic", lambda now=time.monotonic(): now + 60)
        assert Campaign("trial", minutes=0).end == time.monotonic()
        assert Campaign("trial", minutes=-1).is_over()
