"""Random and damaged devices end in the same way guarded and direct: a sample; all in a
campaign."""

import os
from contextlib import contextmanager

import pytest
from random_devices import (
    KINDS, RandomDevice, can_have_damaged_pages, case, files_of, target_of)
from support.places import scratch_directory

DEVICES = 2100 if "CAMPAIGN" in os.environ else 5 * len(KINDS)
RUNS_OF_CHANCE = 60
# With these the guard changes nothing. Something that is no file can be where SQLite has its
# journal: then it cannot read the database, or not write. The program alone tries every statement
# and deletes files of the pool; the guard leaves all of it to the next start. It does not start a
# program that is older than the database.
UNCHANGED = ("copy-failed", "commit-failed", "newer-than-program")


@contextmanager
def devices():
    with scratch_directory() as root:
        pair = root / "guarded", root / "direct"
        for path in pair:
            path.mkdir()
        yield [RandomDevice(path) for path in pair]


@pytest.fixture(scope="module")
def pair():
    with devices() as made:
        yield made


def run_directly(device, files, target):
    device.fill(files)
    assert device.run(target, guard="/app/database-migrator").returncode == 0
    return device.result()


def is_chance(device, files, target, outcome):
    """True if the program alone can end like this, or ends differently from run to run."""
    first = run_directly(device, files, target)
    return outcome == first or any(run_directly(device, files, target) != first
                                   for _ in range(RUNS_OF_CHANCE))


@pytest.mark.parametrize("first", range(len(KINDS)), ids=KINDS)
def test_guarded_and_direct_end_the_same(pair, first):
    guarded, direct = pair
    differences = []
    for seed in range(first, DEVICES, len(KINDS)):
        made = case(seed)
        target, files = target_of(made, seed), files_of(made, seed)
        guarded.fill(files)
        run = guarded.run("run", target)
        assert run.returncode in (0, 3, 4), (seed, run.stderr)
        outcome = guarded.result()
        if any(reason in run.stderr for reason in UNCHANGED):
            direct.fill(files)
            expected = direct.result()
        else:
            # Both programs ended by themselves; this one's exit status is compared with 0.
            assert "program-broken" not in run.stderr, (seed, run.stderr)
            expected = run_directly(direct, files, target)
        if outcome != expected and not (can_have_damaged_pages(seed) and is_chance(
                direct, files, target, outcome)):
            differences.append((seed, target, run.stderr.splitlines()[-1]))
    assert differences == []
