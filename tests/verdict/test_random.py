"""On random devices every number of every finding is that of an independent count: a sample, 2,000
verdicts in a campaign. Half of the devices are in good order, the rest damaged and hostile."""

import itertools
import os
import random
import sqlite3

import pytest
from count import Count
from runs_to_judge import VERSIONS_FILE, Judge, run_to_judge
from support.places import scratch_directory
from support.versions import NEWEST

from cases import KINDS, case  # isort: skip
from healthy import healthy_device  # isort: skip
from runs import runner  # isort: skip

VERDICTS = 1000 if "CAMPAIGN" in os.environ else 20
# On many damaged devices there is nothing to judge, or nothing can be counted.
MOST_SEEDS = 3 * VERDICTS
# test_codes.py tests the findings from the log. Findings on unreadable parts have no number.
NOT_COUNTED = ("target-missed", "step-failed", "unreadable")


def numbers(verdict):
    """By code and purpose."""
    return {(finding["code"], finding["onPurpose"]):
            {**{name: number for name, number in finding["numbers"].items()},
             "before": finding["before"]}
            for finding in verdict["findings"] if finding["kind"] not in NOT_COUNTED}


def target_of(device, chance):
    argument = device.arguments[0] if device.arguments else b""
    if argument.isdigit() and len(argument) <= 6 and int(argument) >= 1:
        return int(argument)
    return chance.randint(1, NEWEST)


def in_good_order(seed):
    chance = random.Random(seed)
    version = chance.randint(1, NEWEST)
    target = chance.choice((chance.randint(1, NEWEST), min(version + 1, NEWEST),
                            max(version - 1, 1)))
    return healthy_device(seed, version, target, chance.choice(("TORVIK", "TORVIKMAX"))), target


def damaged(seed):
    device = case(seed)
    return device, target_of(device, random.Random(seed))


@pytest.fixture(scope="module")
def places():
    with runner(os.environ["FORK_SERVER"]) as program, Judge() as judge, \
            scratch_directory() as folder:
        (folder / "scratch").mkdir()
        yield program, judge, folder


def counted(run, folder):
    """The independent count; None where it cannot read what it would have to count."""
    try:
        count = Count(run.before, run.after, run.source, run.target, run.log.read_bytes(),
                      VERSIONS_FILE.read_text(encoding="utf-8"), run.platform,
                      [script.read_bytes() for script in run.scripts], folder)
    except (sqlite3.Error, UnicodeError):
        return None
    return None if count.unread else count.findings


@pytest.mark.parametrize("kind", [in_good_order, damaged], ids=lambda kind: kind.__name__)
def test_every_number_is_that_of_an_independent_count(places, kind):
    program, judge, folder = places
    differences = {}
    compared = 0
    for seed in itertools.count():
        if compared == VERDICTS:
            break
        assert seed < MOST_SEEDS
        device, target = kind(seed)
        try:
            run = run_to_judge(program, device, target, folder)
        except OSError:
            continue  # a file is where a folder should be
        if run is None:
            continue
        verdict = judge.verdict(run.request(folder / "scratch"))
        expected = counted(run, folder)
        if expected is None:
            continue
        if not verdict["differs"]:
            # Nothing is compared then, so findings from before the run are not reported.
            expected = {key: found for key, found in expected.items() if not found["before"]}
        # The rows of a damaged table may come out of order, which the count does not notice.
        unreadable = {finding.get("object") for finding in verdict["findings"]
                      if finding["kind"] == "unreadable"}
        assert kind is damaged or not unreadable, seed
        if None in unreadable:
            # If the guard cannot read the tables it looks at nothing else. SQLite must find such a
            # file damaged too.
            assert ("damaged", None) in expected, seed
            expected = {}
        expected = {(code, purpose): found for (code, purpose), found in expected.items()
                    if code.partition(":")[2].partition(".")[0] not in unreadable}
        compared += 1
        if numbers(verdict) != expected:
            differences[seed] = numbers(verdict), expected
    assert differences == {}, [*differences]
    assert seed > len(KINDS)
    assert list((folder / "scratch").iterdir()) == []
