"""The reports of rehearsals, also of databases without a device."""

import json
import os
import shutil
import signal
import sqlite3
import subprocess
import sys
import time
from contextlib import closing

import jsonschema
import pytest
from conftest import GUARD, KNOWN_VERSIONS, PROGRAM, SECONDS, contents
from processes import descendants, name_of
from rehearsals import Rehearsed, Untouched, rehearse
from support.places import DEMO, ROOT, TESTS
from support.versions import NEWEST, VERSIONS, dump_of
from test_last_migration import closed

sys.path.insert(0, str(TESTS / "verdict"))
from count import Count  # noqa: E402

SCHEMA = json.loads((ROOT / "docs" / "rehearsal.schema.json").read_text())
jsonschema.Draft202012Validator.check_schema(SCHEMA)
CLOSED = closed(SCHEMA)
# Versions that cannot be brought back whole from the newest one.
SAMPLE = [1, 8, 16, 26, 31]
COUNTED = VERSIONS[:-1] if "CAMPAIGN" in os.environ else SAMPLE
SECRET = "INSERT INTO growers (id, displayName) VALUES (9001, 'Secret'), (9002, 'Secret');"
BLOCKED = "CREATE TABLE fields_temp (a); INSERT INTO fields_temp VALUES (1);"


def make(path, version, extra=""):
    with closing(sqlite3.connect(path, isolation_level=None)) as database:
        database.executescript(dump_of(version) + extra)
    return path


def rehearse_here(*arguments, environment=None):
    """Rehearses as on a service computer, which is this one."""
    return Rehearsed(subprocess.run(
        [GUARD, "rehearse", *map(str, arguments), "--json", "--program", PROGRAM],
        capture_output=True, text=True, stdin=subprocess.DEVNULL,
        env={**os.environ, **(environment or {})}))


def check(done):
    for report in done.reports:
        jsonschema.validate(report, SCHEMA)
        jsonschema.validate(report, CLOSED)
    return done


CASES = [
    pytest.param(1, "", (NEWEST,), 0, id="a walk"),
    pytest.param(NEWEST, "", (1,), 0, id="a walk back"),
    pytest.param(NEWEST, "", (NEWEST,), 0, id="an ordinary boot"),
    pytest.param(24, BLOCKED, (26,), 4, id="a step that fails"),
    pytest.param(24, BLOCKED, (26, "--strict"), 3, id="thrown away"),
    pytest.param(24, SECRET, (NEWEST + 1,), 4, id="a target that is missed"),
    pytest.param(24, SECRET, (NEWEST + 1, "--accept", f"target-missed:{NEWEST}"), 0,
                 id="a finding that is accepted"),
    pytest.param(24, f"UPDATE tableVersion SET version = {NEWEST + 1};", (NEWEST,), 3,
                 id="newer than the program")]


@pytest.mark.parametrize("rows", [(), ("--without-rows",)])
@pytest.mark.parametrize("version, extra, arguments, status", CASES)
def test_every_report_keeps_to_the_schema(tmp_path, version, extra, arguments, status, rows):
    path = make(tmp_path / "a.sqlite", version, extra)
    before = Untouched(tmp_path)
    done = check(rehearse_here(arguments[0], path, *arguments[1:], *rows))
    before.check()
    assert (done.status, done.report["status"]) == (status, status), done.errors


def test_steps_that_fail_have_the_words_of_the_log(tmp_path):
    path = make(tmp_path / "a.sqlite", 23, BLOCKED)
    report = rehearse_here(26, path).report
    outcomes = {step["version"]: step["outcome"] for step in report["versions"]}
    failed = [step for step in report["versions"] if step["outcome"] == "failed"]
    assert outcomes == {24: "done", 25: "failed", 26: "done"}
    assert failed[0]["lines"] and all(line in report["log"] for line in failed[0]["lines"])
    assert report["mending"] == [
        {"copy": "fields_temp", "table": "fields", "kind": "only-reported", "rowsOfCopy": 1,
         "rowsReturned": 0, "reason": report["mending"][0]["reason"]}]


def toolkit(operation, failure, reason):
    """The two lines of an operation of the toolkit that fails."""
    return [f"DatabaseMigrator::{operation} - Failed to {failure}",
            f"DatabaseMigrator::{operation} - {reason} Unable to execute statement"]


def not_dropped(table, *columns):
    return [line for column in columns for line in toolkit(
        "dropColumnSaveParameters", f"drop column named {column} to {table}",
        f"table {table}_temp already exists")]


def not_added(table, column):
    return toolkit("addColumn", f"add column named {column} to {table}",
                   f"duplicate column name: {column}")


def without_table(column):
    """What the toolkit says when it cannot drop a column of growers because there is no growers."""
    return toolkit("dropColumnSaveParameters", f"drop column named {column} to growers",
                   'near "PRIMARY": syntax error')


LANGUAGE = "ALTER TABLE systemControl ADD COLUMN languageSelected;"
FENCE = "ALTER TABLE MC_EquipmentSection ADD COLUMN fence;"
# The program cannot remove this row, which breaks a key: its table has no row ids.
ROTATION = ("CREATE TABLE rotation (field PRIMARY KEY REFERENCES fields (id)) WITHOUT ROWID;"
            "INSERT INTO rotation VALUES (99999);")
FAILED_25 = [*not_dropped("fields", "isoName"), "Migration to version 25 FAILED!"]
LINES = [
    pytest.param(24, BLOCKED, 25, {25: FAILED_25}, id="forward"),
    pytest.param(24, BLOCKED + ROTATION, 25, {25: FAILED_25}, id="a repair that fails before"),
    pytest.param(24, BLOCKED + "DROP TABLE PC_MixToProductConfigBridge;", 25, {25: FAILED_25},
                 id="repairs that fail after the check"),
    pytest.param(24, BLOCKED + "ALTER TABLE MC_EquipmentSection DROP COLUMN fence;", 25,
                 {25: FAILED_25}, id="a version that is applied again before"),
    pytest.param(24, BLOCKED + "DROP TABLE systemControl;", 25, {25: FAILED_25},
                 id="a version that cannot be applied again and does not say so"),
    pytest.param(3, LANGUAGE, 4, {4: not_added("systemControl", "languageSelected")},
                 id="a last step without a line of its own"),
    pytest.param(3, LANGUAGE, 8, {4: not_added("systemControl", "languageSelected")},
                 id="a step without a line of its own"),
    pytest.param(3, LANGUAGE + FENCE, 8, {
        4: not_added("systemControl", "languageSelected"),
        5: not_added("MC_EquipmentSection", "fence")}, id="two steps without a line of their own"),
    pytest.param(3, LANGUAGE + FENCE, 5, {
        4: not_added("systemControl", "languageSelected"),
        5: not_added("MC_EquipmentSection", "fence")}, id="two last steps"),
    pytest.param(6, "DROP TABLE systemFiles; ALTER TABLE userProfiles ADD COLUMN decimalMark;", 8,
                 {7: []}, id="a step that fails without any line"),
    pytest.param(6, "DROP TABLE systemFiles;", 7, {7: []},
                 id="a last step that fails without any line"),
    pytest.param(NEWEST, "CREATE TABLE growers_temp (a);", 21, {
        25: not_dropped("growers", "originalName"),
        22: not_dropped("growers", "isoId")}, id="back"),
    pytest.param(NEWEST, "CREATE TABLE supportedHarloReceiverSettings_temp (a);", 25, {
        26: [*not_dropped("supportedHarloReceiverSettings", "ppp_STD_DEV", "terraStar_STD_DEV",
                          "terraStarL_STD_DEV"), "Reverting from version 26 FAILED!!"]},
                 id="back, with a line of its own"),
    pytest.param(
        NEWEST, "CREATE TABLE growers_temp (a); CREATE TABLE MC_EquipmentSection_temp (a);", 3, {
            25: not_dropped("growers", "originalName"),
            22: not_dropped("growers", "isoId"),
            12: not_dropped("MC_EquipmentSection", "fullName", "sectionType",
                            "parentEquipmentSectionId"),
            5: not_dropped("MC_EquipmentSection", "fence")},
        id="back, and lines that can be of two steps"),
    pytest.param(
        NEWEST, "DROP TABLE growers;", 21, {
            25: [*toolkit("addColumnIfNotExists", "add column named isoName to growers",
                          "no such table: growers"),
                 *toolkit("setColumnValue", "set column named isoName to originalName",
                          "no such table: growers"), *without_table("originalName")],
            22: without_table("isoId")},
        id="back, and a line that can be of two steps before one that cannot"),
    pytest.param(26, "DROP TABLE systemControl; CREATE TABLE growers_temp (a);", 24, {
        25: not_dropped("growers", "originalName")},
                 id="back, and a version that cannot be applied again")]


@pytest.mark.parametrize("version, extra, target, lines", LINES)
def test_a_failed_step_has_its_own_lines(tmp_path, version, extra, target, lines):
    report = rehearse_here(target, make(tmp_path / "a.sqlite", version, extra)).report
    assert {step["version"]: step["lines"] for step in report["versions"]
            if step["outcome"] == "failed"} == lines, report["log"]


def test_lines_of_no_step_are_shown_with_each_of_the_last_ones(tmp_path):
    """Nothing shows which of them such a line is from."""
    program = tmp_path / "database-migrator"
    program.write_text("""#!/usr/bin/dash
log=${0%/*}/databases/sqlMigrationErrorLog.txt
echo "\n*****Beginning database migration from version: 3 to version: 5\nNo memory left" >>"$log"
echo "\n*****Updating version in DB to: 3 with software version: " >>"$log"
""")
    program.chmod(0o755)
    shutil.copy(KNOWN_VERSIONS, tmp_path)
    run = subprocess.run(
        [GUARD, "rehearse", "5", make(tmp_path / "a.sqlite", 3), "--json", "--program", program],
        capture_output=True, text=True, stdin=subprocess.DEVNULL)
    assert [(step["version"], step["outcome"], step["lines"])
            for step in json.loads(run.stdout)["versions"]] == [
        (version, "failed", ["No memory left"]) for version in (4, 5)]


def test_the_way_back(tmp_path):
    """Version 27 takes a column away. Going back makes the column again, without its values."""
    path = make(tmp_path / "a.sqlite", 26)
    report = rehearse_here(27, path).report
    back = report["wayBack"]
    with closing(sqlite3.connect(path)) as database:
        [(rows,)] = database.execute("SELECT count(*) FROM PC_IngredientToMixBridge")
    assert (back["target"], back["to"], back["reached"]) == (26, 26, True)
    assert [(finding["code"], finding["numbers"]["rows"]) for finding in back["findings"]] == [
        ("column-lost:PC_IngredientToMixBridge.id", rows)]
    assert rehearse_here(26, path).report["wayBack"] is None


def numbers(findings):
    """The findings that an independent count can confirm, by code and purpose."""
    return {(finding["code"], finding["onPurpose"]):
            {**finding["numbers"], "before": finding["before"]} for finding in findings}


@pytest.mark.parametrize("version", COUNTED)
def test_every_number_is_that_of_an_independent_count(tmp_path, version):
    """Counts the walk there and the walk back. The walk back is done a second time for that."""
    path = make(tmp_path / "before.sqlite", version)
    there, back = tmp_path / "there.sqlite", tmp_path / "back.sqlite"
    report = rehearse_here(NEWEST, path, "--result", there).report
    counted = Count(path, there, version, NEWEST, report["log"].encode(),
                    KNOWN_VERSIONS.read_text(), "TORVIK", [], tmp_path)
    assert numbers(report["verdict"]["findings"]) == counted.findings
    assert rehearse_here(version, there, "--result", back).status == 0
    counted = Count(path, back, version, version, b"", KNOWN_VERSIONS.read_text(), "TORVIK", [],
                    tmp_path)
    assert report["wayBack"]["findings"] or version not in SAMPLE
    assert numbers(report["wayBack"]["findings"]) == counted.findings


def test_nothing_of_the_farm_without_rows(tmp_path):
    path = make(tmp_path / "Smith farm.sqlite", 20, SECRET)
    done = rehearse_here(NEWEST, path, "--without-rows")
    text = json.dumps(done.report)
    assert "renamed:growers" in text
    assert not any(word in text for word in ("Secret", "9001", "Smith", "Migration to version"))
    assert "Secret" in json.dumps(rehearse_here(NEWEST, path).report)


def test_what_is_given_and_what_is_assumed(tmp_path):
    path = make(tmp_path / "a.sqlite", 24)
    done = rehearse_here(25, path)
    report = done.report
    assert report["assumed"] == ["referenceData", "platform", "softwareVersion", "registration"]
    assert "assumed: referenceData, platform, softwareVersion, registration" in done.errors
    assert report["given"] == {"platform": "TORVIK", "softwareVersion": ""}
    result = tmp_path / "result.sqlite"
    report = rehearse_here(
        25, path, "--platform", "TORVIKMAX", "--software-version", "5.6.7", "--registration",
        DEMO / "registration.xml", "--reference-data", DEMO, "--result", result).report
    assert report["assumed"] == []
    assert report["given"] == {"platform": "TORVIKMAX", "softwareVersion": "5.6.7"}
    with closing(sqlite3.connect(result)) as database:
        assert database.execute("SELECT MirelVersion FROM tableVersion "
                                "WHERE tableName = 'mainSqlDb'").fetchone() == ("5.6.7",)
        assert database.execute("SELECT partNumber FROM registrationInfo").fetchone() != ("",)


def test_what_is_given_leads_to_what_a_device_with_it_makes(device, tmp_path):
    path = make(tmp_path / "a.sqlite", 16)
    device.install(16)
    assert device.migrate(NEWEST) == 0
    result = tmp_path / "result.sqlite"
    done = rehearse_here(
        NEWEST, path, "--platform", "TORVIK", "--software-version", "4.2.0", "--registration",
        DEMO / "registration.xml", "--reference-data", DEMO, "--result", result)
    assert done.report["log"] == device.log()
    assert contents(result) == device.contents()


def test_several_databases_have_a_line_each_in_their_order(tmp_path):
    paths = [make(tmp_path / "1.sqlite", 33), make(tmp_path / "2.sqlite", 24, BLOCKED),
             tmp_path / "missing.sqlite", make(tmp_path / "3.sqlite", NEWEST)]
    before = Untouched(tmp_path)
    done = check(rehearse_here(NEWEST, *paths, "--jobs", 3))
    before.check()
    assert [report["database"]["path"] for report in done.reports] == [*map(str, paths)]
    assert [report["status"] for report in done.reports] == [0, 4, 3, 0]
    assert done.status == 4
    lines = done.errors.splitlines()
    assert [line.split(": ")[1] for line in lines] == [*map(str, paths)]
    assert rehearse_here(NEWEST, *paths[2:]).status == 3


def test_one_of_several_that_is_ended(tmp_path):
    """The other rehearsals go on, and this one has its line."""
    paths = [make(tmp_path / name, 33) for name in ("1.sqlite", "2.sqlite", "3.sqlite")]
    program = tmp_path / "program"
    program.write_text(f"#!/bin/sh\n[ ! -e {tmp_path}/wait ] || sleep 1000\n{PROGRAM} \"$@\"\n")
    program.chmod(0o755)
    (tmp_path / "wait").touch()
    with subprocess.Popen(
            [GUARD, "rehearse", str(NEWEST), *paths, "--json", "--program", program],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) as process:
        end = time.monotonic() + SECONDS
        while "sleep" not in map(name_of, descendants(process.pid)):
            assert time.monotonic() < end
            time.sleep(0.01)
        (tmp_path / "wait").unlink()
        first = descendants(process.pid)[0]
        assert name_of(first) == "migration-guard"
        os.kill(first, signal.SIGKILL)
        output, _ = process.communicate(timeout=SECONDS)
    reports = [json.loads(line) for line in output.splitlines()]
    assert [report["database"]["path"] for report in reports] == [*map(str, paths)]
    assert reports[0]["reason"] == "program-broken"
    assert process.returncode == max(report["status"] for report in reports)


def test_json_goes_into_a_file(tmp_path):
    path = make(tmp_path / "a.sqlite", 33)
    out = tmp_path / "report.json"
    for paths in ([path], [path, path]):
        run = subprocess.run(
            [GUARD, "rehearse", str(NEWEST), *paths, "--program", PROGRAM, f"--json={out}"],
            capture_output=True, text=True)
        assert (run.returncode, run.stdout) == (0, "")
        assert len(out.read_text().splitlines()) == len(paths)
    assert sorted(os.listdir(tmp_path)) == ["a.sqlite", "report.json"]


@pytest.mark.parametrize("arguments", [
    pytest.param((), id="no target"),
    pytest.param(("0",), id="a target that is no version"),
    pytest.param((NEWEST, "a", "b", "--result", "x"), id="one result of two databases"),
    pytest.param((NEWEST, "--jobs", "0"), id="no job"),
    pytest.param((NEWEST, "--jobs", "257"), id="more jobs than there are descriptors for"),
    pytest.param((NEWEST, ""), id="a database without a name"),
    pytest.param((NEWEST, "--json="), id="a report without a name"),
    pytest.param((NEWEST, "--root", "/", "--program", "/x"), id="two programs"),
    pytest.param((NEWEST, "--fall-back"), id="an option of run"),
    pytest.param((NEWEST, "--program", "/nowhere/x"), id="a program that is not there"),
    pytest.param((NEWEST, "--reference-data", "/nowhere"), id="no reference data"),
    pytest.param((NEWEST, "--registration", "/nowhere/x"), id="no registration file"),
    pytest.param((NEWEST, "--staging", "/nowhere"), id="no directory for staging")])
def test_a_wrong_call(device, arguments):
    device.install(33)
    run = device.run("rehearse", *arguments, "--json")
    assert (run.returncode, run.stdout) == (2, "")
    assert run.stderr.startswith("migration-guard: ")


def test_messages_name_options_as_they_are_written(device):
    for command in (("rehearse", NEWEST, "--json="), ("run", "--json=x")):
        assert "--json-file" not in device.run(*command).stderr.replace("--help", "")
        assert "json" in device.run(*command).stderr


@pytest.fixture
def databases(tmp_path):
    """Two that must stay as they are: a.sqlite, and one that nobody names."""
    make(tmp_path / "a.sqlite", 33)
    make(tmp_path / "other.sqlite", 33)
    return Untouched(tmp_path)


@pytest.mark.parametrize("option", ["--json={}", "--result={}"])
@pytest.mark.parametrize("name", ["a.sqlite", "./a.sqlite", "a.sqlite-wal", "a.sqlite-journal"])
def test_a_database_is_not_written_over(databases, monkeypatch, option, name):
    monkeypatch.chdir(databases.root)
    done = rehearse_here(NEWEST, "a.sqlite", option.format(name))
    assert (done.status, done.reports) == (2, []), done.errors
    databases.check()


@pytest.mark.parametrize("option", ["--json={}", "--result={}"])
def test_a_link_to_the_database_is_not_written_over(databases, tmp_path_factory, option):
    link = tmp_path_factory.mktemp("links") / "link.sqlite"
    link.symlink_to(databases.root / "a.sqlite")
    for database, target in ((databases.root / "a.sqlite", link),
                             (link, databases.root / "a.sqlite")):
        assert rehearse_here(NEWEST, database, option.format(target)).status == 2
    databases.check()


def test_what_a_device_needs_is_not_written_over(device):
    device.install(33)
    assert device.migrate(NEWEST) == 0 and device.kept.exists()
    before = Untouched(device.root)
    for file in (device.database, device.kept):
        path = f"/app/databases/{file.name}"
        for option in (f"--json={path}", f"--result={path}"):
            assert device.run("rehearse", NEWEST, option).returncode == 2
    before.check()


@pytest.mark.parametrize("option", ["--json={}", "--result={}"])
def test_files_of_others_beside_an_output_stay(databases, tmp_path_factory, option):
    out = tmp_path_factory.mktemp("out")
    (out / "x.new").symlink_to(databases.root / "other.sqlite")
    done = subprocess.run(
        [GUARD, "rehearse", str(NEWEST), databases.root / "a.sqlite", "--program", PROGRAM,
         option.format(out / "x")], capture_output=True, text=True, timeout=SECONDS)
    assert done.returncode == 0, done.stderr
    databases.check()
    assert sorted(os.listdir(out)) == ["x", "x.new"]


@pytest.mark.parametrize("option", ["--json={}", "--result={}"])
@pytest.mark.parametrize("make_it", [os.mkdir, os.mkfifo], ids=["a directory", "a pipe"])
def test_an_output_is_a_file(databases, tmp_path_factory, make_it, option):
    out = tmp_path_factory.mktemp("out")
    make_it(out / "x")
    mode = (out / "x").lstat().st_mode
    assert rehearse_here(NEWEST, databases.root / "a.sqlite",
                         option.format(out / "x")).status == 2
    assert (os.listdir(out), (out / "x").lstat().st_mode) == (["x"], mode)


def test_one_file_cannot_be_both(databases, tmp_path_factory):
    out = tmp_path_factory.mktemp("out") / "x"
    assert rehearse_here(NEWEST, databases.root / "a.sqlite", f"--json={out}",
                         "--result", out).status == 2
    assert not out.exists()


@pytest.mark.parametrize("option", ["--json={}", "--result={}"])
def test_half_an_output_is_none(device, option):
    """On a full disk. What was there stays."""
    device.install(33)
    script = device.app / "script"
    script.write_text("#!/usr/bin/dash\necho old >/small/x\n"
                      "fallocate -l 3000 /small/x.fill; while echo full >>/small/y; do :; done\n"
                      '/app/migration-guard "$@" 2>/dev/null; echo $?; ls /small\n'
                      "[ $(stat -c %s /small/x) = 4 ] && echo same\n")
    script.chmod(0o755)
    run = device.run("rehearse", NEWEST, option.format("/small/x"), guard="/app/script",
                     options="--size 16384 --tmpfs /small")
    assert run.stdout.split() == ["3", "x", "x.fill", "y", "same"], run.stderr


def test_many_that_have_to_wait_for_the_first_one(tmp_path):
    """What ends before its turn keeps no descriptor."""
    first = make(tmp_path / "first.sqlite", 33)
    others = [tmp_path / f"{number}.sqlite" for number in range(40)]
    with closing(sqlite3.connect(first, isolation_level=None)) as writer:
        writer.execute("BEGIN EXCLUSIVE")
        command = [GUARD, "rehearse", str(NEWEST), first, *others, "--json", "--program", PROGRAM,
                   "--jobs", "2", "--wait", "4"]
        run = subprocess.run(["prlimit", "--nofile=48", *command], capture_output=True, text=True)
    reports = [json.loads(line) for line in run.stdout.splitlines()]
    assert [report["database"]["path"] for report in reports] == [*map(str, [first, *others])]
    assert [report["reason"] for report in reports] == ["locked"] + 40 * ["no-database"]


def test_staging_on_the_disk_leaves_nothing(tmp_path):
    path = make(tmp_path / "a.sqlite", 33)
    staging = tmp_path / "staging"
    staging.mkdir()
    assert rehearse_here(NEWEST, path, "--staging", staging).status == 0
    assert os.listdir(staging) == []


def test_a_full_place_is_no_prediction(device):
    device.install(33)
    done = rehearse(device, NEWEST, "--staging", "/small",
                    options="--size 500000 --tmpfs /small")
    assert (done.status, done.report["reason"]) == (3, "no-room")
    assert done.report["verdict"] is None
    assert device.version() == 33


def test_without_bubblewrap(device):
    device.install(33)
    done = check(rehearse(device, NEWEST, bubblewrap=False))
    assert (done.status, done.report["reason"]) == (3, "no-bubblewrap")


def test_a_program_that_is_newer_than_the_known_versions(device):
    """What its newer versions take is not known, so it is no loss, and the terminal says so."""
    device.install(24)
    (device.app / "newer").mkdir()
    device.program.rename(device.app / "newer" / "database-migrator")
    file = device.app / "schema-versions.json"
    known = json.loads(file.read_text())
    known["newest"] = 26
    known["versions"] = {version: taken for version, taken in known["versions"].items()
                         if int(version) <= 26}
    file.write_text(json.dumps(known))
    done = rehearse(device, NEWEST, "/app/databases/my.db.sqlite",
                    "--program", "/app/newer/database-migrator")
    verdict = done.report["verdict"]
    assert (done.status, verdict["counting"], done.report["to"]) == (0, 0, NEWEST)
    assert verdict["unknownVersions"] == list(range(27, NEWEST + 1))
    assert f"27 to {NEWEST}" in done.errors
