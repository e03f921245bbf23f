"""A sample of the cases of mending_campaign.py: a database that a cut leaves is mended, and the
next run ends as an undisturbed one does."""

import os
import pathlib
from collections import Counter

import pytest
from campaign import prepare, start_databases
from mending_campaign import MENDING, files_of_mending
from mending_document import DOCUMENT, Figures, document
from mended import KILL, KILL_IN_A_WRITE, POWER_CUT
from subjects import files_of_program
from support.places import scratch_directory
from workers import workers


@pytest.fixture(scope="module", params=["1 to 4", "4 to 1"])
def walk(request):
    """A worker, the name of a walk, and the recording of its undisturbed run."""
    program, shim, mend = (pathlib.Path(os.environ[name])
                           for name in ("DATABASE_MIGRATOR", "FAULT_SHIM", "MEND"))
    files = files_of_mending(files_of_program(program, shim), mend)
    with scratch_directory() as kept:
        start_databases(kept)
        with workers(1, kept, MENDING.module, files) as (worker,):
            yield worker, request.param, prepare(
                MENDING, kept, worker, ["1 to 4", request.param])[request.param]


def answer(walk, kind, *numbers):
    worker, name, _ = walk
    return worker.answer({"kind": kind, "scenario": name, "numbers": numbers})


def test_mended_states_end_as_an_undisturbed_run(walk):
    ends, done = Counter(), set()
    for _, state in answer(walk, "states", 0, walk[2]["states"], 1):
        assert state["mended"]["violations"] + state["mended later"]["violations"] == []
        if state["copies"]:
            ends[state["mended"]["outcome"]] += 1
            assert state["mended"]["differences"] == []
            assert state["alone"]["copies"] == state["copies"]
        done.update(text.rpartition(": ")[2] for text in state["mended"]["done"])
    assert ends.keys() == {"recovered"}
    assert done == {"copy removed", "name given", "rows returned"}


def test_every_kill_and_power_cut_leaves_a_state_that_is_mended(walk):
    operations = walk[2]["operations"]
    for kind, cases in ((KILL, operations), (KILL_IN_A_WRITE, None), (POWER_CUT, operations // 50)):
        distance = 50 if kind == POWER_CUT else 1
        counts = answer(walk, kind, 0, operations - operations % distance, distance)
        assert all(place < walk[2]["states"] for place, *_ in counts)
        assert cases in (None, sum(number for *_, number in counts))


def test_page_is_made_of_the_figures():
    assert DOCUMENT.read_text(encoding="utf-8") == document(Figures.read())
