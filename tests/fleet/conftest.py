"""The systems of the tests, made once, and computers that run them."""

import contextlib

import pytest
import systems
from computer import ATTEMPTS, DirectoryComputer
from engine import Engine
from journey import Journey
from power import Power
from support.places import scratch_directory


@pytest.fixture(scope="session")
def folder():
    with scratch_directory() as path:
        yield path


@pytest.fixture(scope="session")
def old_system(folder):
    return systems.old_system(folder / "old-system")


@pytest.fixture(scope="session")
def new_system(folder):
    return systems.new_system(folder / "new-system")


@pytest.fixture(scope="session")
def faulty_system(folder):
    return systems.faulty_system(folder / "faulty-system")


@pytest.fixture
def begin(folder, old_system):
    """Makes a computer with the old system, which was started."""
    with contextlib.ExitStack() as stack:
        def make(cuts=(), durations=None, attempts=ATTEMPTS, rehearses=True, statements="",
                 is_started=True):
            power = Power(durations=durations)
            place = stack.enter_context(scratch_directory(folder))
            computer = DirectoryComputer(place, power, old_system, statements)
            journey = Journey(computer, Engine(computer, attempts, rehearses))
            if is_started:
                journey.start()
            power.points.clear()
            power.cuts = list(cuts)
            return journey
        yield make
