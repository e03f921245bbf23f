"""The program walks the device database between any two versions."""

import itertools
import os

import pytest
from conftest import expected_log
from dumps import departures
from steps import INCOMPLETE_AGAIN, STEPS, STEPS_AGAIN
from support.versions import NEWEST, VERSIONS, dump_of
from walks import (PAIRS, PLATFORMS, SOFTWARE, Outcome, assert_same, departures_again, device_with,
                   expected_of_walk, outcome_of, outcome_of_walk, sample_of_walks, version_rows,
                   walk, walked_back_to_1)

CAMPAIGN = "CAMPAIGN" in os.environ
BEYOND = (-1, 0, NEWEST + 1, 40, 2147483647)


def walks():
    if CAMPAIGN:
        return [(*pair, platform) for platform in PLATFORMS for pair in PAIRS]
    return sample_of_walks()


@pytest.mark.parametrize("start, end, platform", walks())
def test_walk(start, end, platform):
    assert_same(outcome_of_walk(start, end, platform), expected_of_walk(start, end, platform))


@pytest.mark.parametrize("start, target", itertools.product(
    VERSIONS if CAMPAIGN else (1, 17, NEWEST), BEYOND))
def test_walk_to_a_target_without_an_entry_ends_at_the_last_one(start, target):
    assert_same(outcome_of_walk(start, target), expected_of_walk(start, target))


@pytest.mark.parametrize("end", VERSIONS[1:])
def test_walk_forward_again_after_the_walk_back_to_version_1(end):
    outcome = walk(walked_back_to_1(), end)
    steps = "".join(STEPS_AGAIN.get(version, STEPS[version][0]) for version in range(2, end + 1))
    recorded = end - 1 if end in INCOMPLETE_AGAIN else end
    assert_same(
        outcome.as_text(departures(dump_of(end), outcome.dump)),
        Outcome(log=expected_log(1, end, steps, (recorded, SOFTWARE)), dump="",
                versions=version_rows(recorded, 1),
                pool=("readme.txt",) if end >= 26 else ("implement.iop", "readme.txt"),
                ).as_text(departures_again(end)))


def test_steps_from_30_to_34_run_in_their_order():
    outcome = walk(dump_of(30), 34)
    assert outcome.log == (
        "\n*****Beginning database migration from version: 30 to version: 34\n"
        "Integrity check passed.\n"
        "Migration to version 31 was successful.\n"
        "Migration to version 32 was successful.\n"
        "Migration to version 33 was successful.\n"
        "Migration to version 34 was successful.\n"
        "\n*****Updating version in DB to: 34 with software version: 4.1.0\n")
    assert outcome.versions == "mainSqlDb|34|'4.1.0'\naltSqlDb|30|NULL\n"


# Version 32 leaves a view of this name as it is, and version 34 cannot add a column to it.
VIEW_OF_MAPS = ("ALTER TABLE workOrderRxMaps RENAME TO officeMaps;"
                "CREATE VIEW workOrderRxMaps AS SELECT * FROM officeMaps;")


def test_version_that_the_last_step_has_reached_is_recorded_when_34_fails():
    outcome = walk(dump_of(30) + VIEW_OF_MAPS, 34)
    assert outcome.log == (
        "\n*****Beginning database migration from version: 30 to version: 34\n"
        "Integrity check passed.\n"
        "Migration to version 31 was successful.\n"
        "Migration to version 32 was successful.\n"
        "Migration to version 33 was successful.\n"
        "DatabaseMigrator::addColumnIfNotExists - "
        "Failed to add column named woConvRate to workOrderRxMaps\n"
        "DatabaseMigrator::addColumnIfNotExists - "
        "Cannot add a column to a view Unable to execute statement\n"
        "Migration to version 34 failed\n"
        "\n*****Updating version in DB to: 33 with software version: 4.1.0\n")
    assert outcome.versions == "mainSqlDb|33|'4.1.0'\naltSqlDb|30|NULL\n"


def test_run_without_argument_goes_back_to_the_alternate_version():
    with device_with(dump_of(30)) as device:
        outcome_of(device, "34")
        outcome = outcome_of(device)
        assert outcome.log == (
            "\n*****Beginning database migration from version: 34 to version: 30\n"
            "Integrity check passed.\n"
            "Corruption detected: applying update to db for version 30\n"
            "Migration to version 30 was successful.\n"
            "Corruption detected: applying update to db for version 33\n"
            "Migration to version 33 was successful.\n"
            "\n*****Updating version in DB to: 30 with software version: \n")
        assert outcome.versions == "mainSqlDb|30|''\naltSqlDb|34|NULL\n"

        again = outcome_of(device)
        assert again.log == expected_log(
            30, 34, "".join(STEPS[version][0] for version in range(31, 35)), (34, ""))
        assert again.versions == "mainSqlDb|34|''\naltSqlDb|30|NULL\n"
