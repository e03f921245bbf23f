"""A sample of the runs that campaign.py makes, and the proof that it notices what must not be."""

import os

import pytest
from cases import KINDS, case
from devices import Device
from runs import QUICK_SANITIZERS, runner

RUNS = 20 * len(KINDS)
SANITIZED = "SANITIZED" in os.environ


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


@pytest.mark.parametrize("way, verdict", [
    ("nothing", ""), ("abort", "signal"), ("loop", "over 10 s"), ("status", "exit status"),
    ("print", "exit status"),
    *([("overflow", "report"), ("leak", "report")] if SANITIZED else [])])
def test_failure_is_noticed(failing_server, way, verdict):
    assert failing_server.run(Device(0, {}, [way.encode()]), seconds=1).verdict() == verdict
