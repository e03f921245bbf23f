"""A sample of the runs that campaign.py makes, and the proof that it notices failures."""

import os
import random

import pytest
from cases import KINDS, case
from devices import (
    DATABASE, REGISTRATION, SMALL_DATABASE, Device, database_from, good_device)
from runs import QUICK_SANITIZERS, runner

RUNS = 20 * len(KINDS)
SANITIZED = "SANITIZED" in os.environ


def database_with(*statements):
    return database_from(";".join((SMALL_DATABASE, *statements)))


def adding_a_row(table, values):
    """A trigger that adds a row whenever one is renamed."""
    return {DATABASE: database_with(
        f"CREATE TRIGGER t AFTER UPDATE ON {table} BEGIN INSERT INTO {table} {values}; END")}


# Files that replace those of a good device.
FOUND_BEFORE = {
    "a grower for every renamed one": adding_a_row(
        "growers", "(displayName) VALUES (new.displayName)"),
    "a grower of the same name for every renamed one": adding_a_row(
        "growers", "(displayName) VALUES (old.displayName)"),
    "a farm for every renamed one": adding_a_row(
        "farms", "(displayName, growerId) VALUES (new.displayName, new.growerId)"),
    "a field for every renamed one": adding_a_row(
        "fields", "(displayName, farmId) VALUES (new.displayName, new.farmId)"),
    "a file for every renamed one": adding_a_row(
        "files", "(displayName, typeId, growerId, farmId, fieldId) VALUES (new.displayName, "
                 "new.typeId, new.growerId, new.farmId, new.fieldId)"),
    "a large entity": {REGISTRATION: b"<!DOCTYPE LVData [<!ENTITY a '" + b"x" * 30_000
                       + b"'>]><LVData><PartNumber>" + b"&a;" * 10_000},
}

# Runs that once never ended, in the labels of version 12 and in the renaming of duplicate files.
# The seeds belong to 34 as the newest version.
ENDLESS_BEFORE = (41300, 53831, 77813)
ENDLESS_BEFORE_AT = 34


@pytest.fixture(scope="module")
def server():
    with runner(os.environ["FORK_SERVER"], QUICK_SANITIZERS) as started:
        yield started


@pytest.fixture(scope="module")
def failing_server():
    with runner(os.environ["FAILING_SERVER"]) as started:
        yield started


@pytest.mark.parametrize("first", range(len(KINDS)), ids=KINDS)
def test_damaged_input_does_no_harm(server, first):
    for seed in range(first, RUNS, len(KINDS)):
        run = server.run(case(seed))
        assert (seed, run.verdict(), run.output) == (seed, "", "")


@pytest.mark.parametrize("files", FOUND_BEFORE.values(), ids=FOUND_BEFORE)
def test_what_once_did_harm_does_none_now(server, files):
    device = good_device(random.Random(0), small=True)
    device.files |= files
    run = server.run(device)
    assert (run.verdict(), run.output) == ("", "")


@pytest.mark.parametrize("seed", ENDLESS_BEFORE)
def test_what_was_endless_comes_to_an_end(server, seed):
    run = server.run(case(seed, ENDLESS_BEFORE_AT))
    assert (run.verdict(), run.output) == ("", "")


@pytest.mark.parametrize("way, verdict", [
    ("nothing", ""), ("abort", "signal"), ("loop", "over 10 s"), ("status", "exit status"),
    ("print", "exit status"),
    *([("overflow", "report"), ("leak", "report")] if SANITIZED else [])])
def test_failure_is_noticed(failing_server, way, verdict):
    device = Device(version=0, files={}, arguments=[way.encode()])
    assert failing_server.run(device, seconds=1).verdict() == verdict
