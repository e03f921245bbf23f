"""The tables that a step forward needs: guard/schema-versions.json names them, and runs of the
program without them prove it. A device that never had such a table must not refuse updates
forever. A step back that fails always counts."""

import json
import os

import pytest
from runs_to_judge import VERSIONS_FILE, Judge, run_to_judge
from support.places import scratch_directory
from support.versions import NEWEST, VERSIONS

from devices import Device, database_of  # isort: skip
from runs import runner  # isort: skip

NEEDS = {int(version): entry["needs"] for version, entry in json.loads(
    VERSIONS_FILE.read_text(encoding="utf-8"))["versions"].items()}
STEPS = VERSIONS[1:]
ALWAYS_THERE = ("tableVersion", "registrationInfo")


@pytest.fixture(scope="module")
def steps_failed():
    """Runs the program on a version's database without some tables; returns the failed steps, and
    whether each counts."""
    with runner(os.environ["FORK_SERVER"]) as program, Judge() as judge, \
            scratch_directory() as folder:
        (folder / "scratch").mkdir()

        def of(version, target, is_dropped):
            device = Device(version, {}, [])
            device.database = database_of(version)
            with device.edit() as edit:
                objects = edit.run("SELECT type, name FROM sqlite_schema"
                                   " WHERE type <> 'index' AND name NOT LIKE 'sqlite_%'")
                for kind, name in objects:
                    # A view that names a missing table makes every rename fail.
                    if kind != "table" or is_dropped(name):
                        edit.run(f"DROP {kind} {name}")
            run = run_to_judge(program, device, target, folder)
            verdict = judge.verdict(run.request(folder / "scratch"))
            return {finding["object"]: finding["counts"] for finding in verdict["findings"]
                    if finding["kind"] == "step-failed"}
        yield of


@pytest.mark.parametrize("version, table", [
    (version, table) for version in STEPS for table in NEEDS[version]])
def test_without_a_table_that_it_needs_a_step_fails_and_does_not_count(
        steps_failed, version, table):
    failed = steps_failed(version - 1, version, lambda name: name == table)
    assert failed.get(str(version)) is False


@pytest.mark.parametrize("version", STEPS)
def test_no_step_needs_another_table(steps_failed, version):
    needed = {*NEEDS[version], *ALWAYS_THERE}
    failed = steps_failed(version - 1, version, lambda name: name not in needed)
    assert str(version) not in failed, f"NEEDED in tests/program/on_purpose.py: {version}"


@pytest.mark.parametrize("table", sorted({table for needs in NEEDS.values() for table in needs}))
def test_a_device_without_a_table_is_not_refused_for_that(steps_failed, table):
    """Over all versions: a table that such a step does not make is missing at later ones, too."""
    assert not any(steps_failed(1, NEWEST, lambda name: name == table).values())


@pytest.mark.parametrize("version, table", [
    (2, "MC_MachineConfig"), (14, "preferredGpsSolutions"), (22, "farms"), (32, "files")])
def test_a_step_back_that_fails_counts(steps_failed, version, table):
    """Also without a table that the step forward needs."""
    assert table in NEEDS[version]
    assert steps_failed(version, version - 1, lambda name: name == table)[str(version)]
