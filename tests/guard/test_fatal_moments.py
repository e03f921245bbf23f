"""Processes that end while others depend on them: no process that is left waits forever."""

import os
import shutil
import signal

import pytest
from conftest import SECONDS, wait_for
from processes import guards_of, is_locked, left_over, output_ends, parent_of_orphans
from support.versions import NEWEST

SECONDS_OF_WAITING = 3
# Which process is killed at which moment; see fatal_moments.c.
MOMENTS = [
    pytest.param("fork", "outer", "self", id="the outer guard, when it has forked"),
    pytest.param("fork", "inner", "self", id="the inner guard, when it has forked"),
    pytest.param("release", "outer", "self", id="bubblewrap, before it lets its child go on"),
    pytest.param("release", "inner", "self", id="the second one, before it lets its child go on"),
    pytest.param("release", "outer", "parent", id="the outer guard, while that child waits"),
]


def start(device, moment, place, victim, *arguments, **options):
    shutil.copy(os.environ["FATAL_MOMENTS"], device.app / "moments.so")
    switches = {"LD_PRELOAD": "/app/moments.so", "FATAL_MOMENT": moment, "FATAL_PLACE": place,
                "FATAL_VICTIM": victim, "FATAL_FILE": "/app/moment"}
    return device.start("run", NEWEST, *arguments, **options, options=" ".join(
        f"--setenv {name} {value}" for name, value in switches.items()))


def ends_whole(device, process):
    """Waits for the end of a run that was killed, and checks that no process of it is left."""
    assert output_ends(process)
    status = process.wait(SECONDS)
    assert left_over() == []
    assert not is_locked(device.databases)
    return status


@pytest.mark.parametrize("moment, place, victim", MOMENTS)
@pytest.mark.parametrize("staging", [(), ("--staging", "/app/work")], ids=["memory", "disk"])
def test_nothing_is_left(device, expected, moment, place, victim, staging):
    device.install(NEWEST - 1)
    before = device.contents()
    (device.app / "work").mkdir()
    with parent_of_orphans():
        process = start(device, moment, place, victim, *staging)
        status = ends_whole(device, process)
        assert status == 3 or status >= 128
        assert (device.contents(), device.log()) == (before, "")
        assert device.migrate(NEWEST, *staging) == 0
    assert (device.contents(), device.log()) == expected(NEWEST - 1, NEWEST)
    assert list((device.app / "work").iterdir()) == []


def test_nothing_is_left_when_the_second_bubblewrap_is_about_to_let_its_child_go(device):
    """If the outer guard is killed at that moment, the kernel ends the rest and removes staging."""
    device.install(NEWEST)
    with parent_of_orphans():
        process = start(device, "release", "inner", "none")
        wait_for(device.app / "moment")
        os.kill(guards_of(process)[0], signal.SIGKILL)
        assert ends_whole(device, process) >= 128


def test_what_is_left_when_two_are_killed_in_one_moment(device):
    """A process that waits forever; no other process waits for it."""
    device.install(NEWEST)
    with parent_of_orphans():
        process = start(device, "release", "outer", "both")
        assert output_ends(process)
        assert process.wait(SECONDS) >= 128
        assert not is_locked(device.databases)
        left, = left_over(SECONDS_OF_WAITING)
        assert left.startswith("/usr/bin/bwrap ")


def test_nothing_is_left_of_a_direct_run(device):
    device.install(1)
    device.replace_program("touch /app/started; exec sleep 600")
    with parent_of_orphans():
        process = start(device, "fork", "outer", "self", bubblewrap=False)
        assert ends_whole(device, process) >= 128
