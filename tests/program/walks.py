"""Walks of the built program over the device database, and what each must leave there."""

import contextlib
import dataclasses
import difflib
import functools
import itertools

import pytest
from conftest import expected_log, scratch_device
from dumps import Departures, departures, with_stand_ins
from steps import ALWAYS_REAPPLIED, STEPS
from support.versions import NEWEST, VERSIONS, dump_of

SOFTWARE = "4.1.0"
PLATFORMS = ("TORVIK", "TORVIKMAX")
PAIRS = list(itertools.product(VERSIONS, VERSIONS))

# How walks differ from the walk forward from version 1. The other two files say what differs from
# the first file: on a device with on-board ports, and on the second way forward.
WALKS = Departures("walks.diff")
WALKS_ON_TORVIKMAX = Departures("walks_on_torvikmax.diff")
WALKS_AGAIN = Departures("walks_again.diff")


@contextlib.contextmanager
def device_with(database, platform="TORVIK"):
    """A device with this dump as its database and two files in its pool."""
    with scratch_device() as device:
        device.sql(database)
        device.software_version.write_text(f"{SOFTWARE}\n", encoding="utf-8")
        device.platform.write_text(f"{platform}\n", encoding="utf-8")
        for name in ("implement.iop", "readme.txt"):
            (device.pool / name).write_text("pool\n", encoding="utf-8")
        yield device


@dataclasses.dataclass(frozen=True)
class Outcome:
    """What one run of the program leaves on a device."""

    log: str
    dump: str
    versions: str
    pool: tuple

    def as_text(self, departures_by_table):
        """Everything, with the departures instead of the dump."""
        return (f"{self.log}== versions\n{self.versions}== pool\n{self.pool}\n" +
                "".join(f"== {table}\n{difference}\n"
                        for table, difference in sorted(departures_by_table.items())))


def assert_same(actual, expected):
    """Compares two texts line by line. A failure shows the lines that differ."""
    difference = "\n".join(difflib.unified_diff(expected.splitlines(), actual.splitlines(),
                                                "expected", "actual", n=0, lineterm=""))
    if difference or actual != expected:
        pytest.fail(difference or "the texts have different ends", pytrace=False)


def outcome_of(device, *arguments, options=""):
    """The state that a run leaves. options: further options for bubblewrap"""
    device.log_file.unlink(missing_ok=True)
    device.run(*arguments, options=options)
    return left_on(device)


def left_on(device):
    return Outcome(device.log(), with_stand_ins(device.dump()), device.versions(),
                   tuple(sorted(path.name for path in device.pool.iterdir())))


def walk(database, target, platform="TORVIK", options=""):
    """One run of the program on a device with this database."""
    with device_with(database, platform) as device:
        return outcome_of(device, str(target), options=options)


@functools.cache
def database_at(version, platform="TORVIK"):
    """The dump of a version as the walk forward leaves it on a platform."""
    if platform == "TORVIK" or version == 1:
        return dump_of(version)
    return walk(dump_of(1), version, platform).dump


@functools.cache
def walked_back_to_1():
    return walk(dump_of(NEWEST), 1).dump


def reached(target):
    """The version that a walk ends at when all its steps complete."""
    return min(max(target, 1), NEWEST)


def version_rows(current, alternate):
    return f"mainSqlDb|{current}|'{SOFTWARE}'\naltSqlDb|{alternate}|NULL\n"


def log_of_steps(start, end):
    forward = range(start + 1, end + 1)
    backward = range(start, end, -1)
    return "".join([STEPS[version][0] for version in forward] +
                   [STEPS[version][1] for version in backward])


def log_of_repairs(versions):
    return "".join(f"Corruption detected: applying update to db for version {version}\n"
                   f"{STEPS[version][0]}" for version in versions)


def departures_of(start, end, platform="TORVIK"):
    """The departures that a walk must leave, by table."""
    return overridden(WALKS.of(start, end),
                      WALKS_ON_TORVIKMAX.of(start, end) if platform == "TORVIKMAX" else {})


def departures_again(end):
    """The departures that the second walk forward must leave, by table."""
    return overridden(WALKS.of(NEWEST, end), WALKS_AGAIN.of(1, end))


def overridden(usual, special):
    return {table: difference for table, difference in {**usual, **special}.items() if difference}


def outcome_of_walk(start, target, platform="TORVIK", options=""):
    """What the program leaves after this walk, as one text."""
    return as_departures(walk(database_at(start, platform), target, platform, options), target)


def as_departures(outcome, target):
    """An outcome as one text, with what departs from the dump of the version that it reaches."""
    return outcome.as_text(departures(dump_of(reached(target)), outcome.dump))


def sample_of_walks():
    """Some walks (start, end, platform) that together show every departure."""
    ordinary = [*showing(WALKS), (1, 1), (6, 5), (10, 25), (17, 17), (24, 26), (33, NEWEST)]
    on_torvikmax = [*showing(WALKS_ON_TORVIKMAX), (10, 12), (24, 25), (25, 24), (NEWEST, 1)]
    return [*dict.fromkeys([(*pair, "TORVIK") for pair in ordinary] +
                           [(*pair, "TORVIKMAX") for pair in on_torvikmax])]


def showing(departing):
    """A few walks that together show every entry of a file of departures."""
    entries = {pair: {number for number, (_, starts, ends, _) in enumerate(departing.entries)
                      if starts[0] <= pair[0] <= starts[1] and ends[0] <= pair[1] <= ends[1]}
               for pair in PAIRS}
    result = []
    while any(entries.values()):
        best = max(PAIRS, key=lambda pair: len(entries[pair]))
        result.append(best)
        shown = entries[best]
        entries = {pair: numbers - shown for pair, numbers in entries.items()}
    return result


def expected_of_walk(start, target, platform="TORVIK"):
    """The state that the walk must leave."""
    end = reached(target)
    # The database of version 1 has no column for the software version yet.
    migrates = start != target or start == 1
    crosses_26 = (start >= 26) != (end >= 26)
    return Outcome(
        log=expected_log(start, target,
                         log_of_repairs(ALWAYS_REAPPLIED[start]) + log_of_steps(start, end),
                         (end, SOFTWARE) if migrates else None),
        dump="",
        versions=version_rows(end, start if migrates else 1),
        pool=("readme.txt",) if crosses_26 else ("implement.iop", "readme.txt"),
    ).as_text(departures_of(start, end, platform))
