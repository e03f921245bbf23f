"""lastMigration.json is a contract: its schema holds for every end of a run."""

import json
import shutil

import jsonschema
import pytest
from support.places import ROOT
from support.versions import NEWEST

SCHEMA = json.loads((ROOT / "docs" / "last-migration.schema.json").read_text())
jsonschema.Draft202012Validator.check_schema(SCHEMA)
CHANGES = 20
# The most entries of each list in a verdict.
ENTRIES = 1000
TABLES = ENTRIES + 200
# The most versions that a program can have.
MOST_VERSIONS = 1000


def closed(schema):
    """The same schema, in which a field that it does not describe is wrong."""
    if isinstance(schema, list):
        return [closed(part) for part in schema]
    if not isinstance(schema, dict):
        return schema
    made = {name: closed(part) for name, part in schema.items()}
    if isinstance(schema.get("properties"), dict):
        made.setdefault("additionalProperties", False)
    return made


CLOSED = closed(SCHEMA)


def check(device):
    record = device.record()
    jsonschema.validate(record, SCHEMA)
    jsonschema.validate(record, CLOSED)
    return record


@pytest.mark.parametrize("arguments, options, status", [
    pytest.param((NEWEST,), {}, 0, id="a walk"),
    pytest.param((NEWEST,), {"bubblewrap": False}, 4, id="a direct run"),
    pytest.param((1,), {}, 0, id="an idle run"),
    pytest.param((NEWEST + 1,), {}, 4, id="a target that is missed"),
    pytest.param((NEWEST + 1, "--strict"), {}, 3, id="thrown away"),
    pytest.param((NEWEST, "--no-backup"), {}, 0, id="nothing kept")])
def test_every_end_of_a_run_keeps_to_the_schema(device, arguments, options, status):
    device.install(1)
    assert device.migrate(*arguments, **options) == status
    check(device)


def test_so_does_a_mended_run(device):
    device.install(24, "CREATE TABLE growers_temp AS SELECT * FROM growers;")
    assert device.migrate(25, "--mend") == 0
    finding, = (finding for finding in check(device)["lastRun"]["verdict"]["findings"]
                if finding["kind"] == "mended")
    assert finding["mending"] == "copy-removed"


def test_so_does_a_direct_run_that_was_cut(device):
    """The program sees the record that stays if the run is cut."""
    device.install(1)
    device.replace_program('cp /app/databases/lastMigration.json /app/; exec /app/migrator "$@"')
    assert device.migrate(NEWEST, bubblewrap=False) == 4
    assert check(device)["databaseInOrder"] is False
    record = device.record()
    shutil.copy(device.app / "lastMigration.json", device.last)
    assert check(device) != record


def test_so_does_a_restore_and_a_newer_database(device):
    device.install(NEWEST - 1)
    assert device.migrate(NEWEST) == 0
    device.sql(f"UPDATE tableVersion SET version = {NEWEST + 1}")
    assert device.migrate(NEWEST) == 3
    check(device)
    assert device.migrate(NEWEST, "--fall-back") == 0
    check(device)
    assert device.run("restore").returncode == 0
    check(device)


def test_what_was_measured(device):
    device.install(1)
    size = device.database.stat().st_size
    assert device.migrate(NEWEST) == 0
    run = device.last_run()
    measured = run["measured"]
    assert sorted(measured["milliseconds"]) == ["commit", "comparison", "copy", "program"]
    assert measured["milliseconds"]["program"] > 0
    assert measured["bytes"] == {"before": size, "after": device.database.stat().st_size,
                                 "log": len(device.log().encode())}
    # The kept database, the names of the pool's files, the log, the pool's directory.
    assert measured["flushes"] == 4
    versions = device.run("--version").stdout.split()
    assert run["software"] == {"guard": versions[1], "sqlite": versions[-1], "program": NEWEST}


def test_a_record_that_the_next_run_can_read(device):
    """Findings that count come first; those that are left out are counted."""
    names = [f"t{number}" for number in range(TABLES)]
    device.install(NEWEST, "BEGIN;" + "".join(
        f"CREATE TABLE {name} (a); INSERT INTO {name} VALUES (1);" for name in names) + "COMMIT;")
    for _ in range(2):
        assert device.migrate(NEWEST) == 0
    idle = device.verdict()
    (device.app / "losses.sql").write_text(
        "BEGIN;" + "".join(f"DELETE FROM {name};" for name in names) + "COMMIT;")
    device.replace_program('/app/migrator "$@"; '
                           'sqlite3 /app/databases/my.db.sqlite < /app/losses.sql')
    assert device.migrate(NEWEST) == 4
    verdict = check(device)["lastRun"]["verdict"]
    assert verdict["counting"] == TABLES
    assert [finding["counts"] for finding in verdict["findings"]] == [True] * ENTRIES
    assert len(verdict["tables"]) == ENTRIES
    assert verdict["leftOut"] == {
        "findings": TABLES + len(idle["findings"]) - ENTRIES, "tables": TABLES - ENTRIES,
        "unknownVersions": 0}
    assert idle["leftOut"] == {"findings": 0, "tables": 0, "unknownVersions": 0}
    assert device.run("status", "--exit-code").returncode == 4


@pytest.mark.parametrize("recorded, target", [(1, 999_999), (999_999, 1)])
def test_any_version_where_nobody_knows_what_the_program_knows(device, recorded, target):
    device.install(1, f"UPDATE tableVersion SET version = {recorded};")
    (device.app / "schema-versions.json").unlink()
    device.migrate(target)
    assert len(check(device)["lastRun"]["verdict"]["unknownVersions"]) == MOST_VERSIONS - 1


def test_no_contents_of_rows(device):
    device.install(24, "INSERT INTO growers (id, displayName) VALUES (9001, 'Secret');")
    device.replace_program('/app/migrator "$@"; sqlite3 /app/databases/my.db.sqlite '
                           '"DELETE FROM growers WHERE id = 9001"')
    assert device.migrate(25) == 4
    text = device.last.read_text()
    assert "rows-lost:growers" in text
    assert "Secret" not in text and "9001" not in text and "/app" not in text


def test_the_last_changes_of_version(device):
    device.install(2)
    for number in range(CHANGES + 2):
        assert device.migrate(3 - number % 2) == 0
        device.migrate(3 - number % 2)
    changes = check(device)["changes"]
    assert [(change["from"], change["to"]) for change in changes] == [(2, 3), (3, 2)] * 10
    assert changes[-1] == {"command": "run", "from": 3, "to": 2, "target": 2, "way": "guarded",
                           "status": 0}


def test_status_as_json(device):
    device.install(1)
    assert device.migrate(NEWEST) == 0
    run = device.run("status", "--json")
    assert (run.returncode, run.stderr) == (0, "")
    assert json.loads(run.stdout) == {
        "format": 1, "database": {"version": NEWEST, "text": str(NEWEST)}, "newestKnown": NEWEST,
        "kept": {"version": 1, "text": "1"}, "lastMigration": device.record()}


def test_status_ends_with_that_of_the_last_run_when_asked(device):
    device.install(1)
    assert device.run("status", "--exit-code").returncode == 3
    for arguments, status in (((NEWEST + 1,), 4), ((NEWEST,), 0), ((NEWEST + 1, "--strict"), 3)):
        device.migrate(*arguments)
        assert device.run("status").returncode == 0
        assert device.run("status", "--exit-code", "--json").returncode == status
