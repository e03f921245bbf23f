"""A sample of the cases of guard_campaign.py, and the proof that the harness notices mistakes."""

import os
import pathlib
import random
import re

import pytest
from deviations import Deviations
from directory_disk import DirectoryDisk
from disks import SURVIVALS, all_kept, none_kept
from document import Figures, GuardFigures, document
from guard_campaign import tasks
from subjects import ALLOCATIONS, GUARD, OPERATIONS, files_of_guard
from support.places import ROOT, scratch_directory
from support.versions import NEWEST
from tree import Operation
from workers import workers

FORWARD, BACK, BOOT, *OTHERS = GUARD.scenarios
HOT = f"1 to {NEWEST}, hot journal"


class Sandbox:
    def __init__(self, worker):
        self._worker = worker
        self.plan = {}

    def run(self, walk, kind, numbers, **more):
        if walk not in self.plan:
            self.plan[walk] = self._worker.answer(
                {"kind": "prepare", "scenario": walk, "target": GUARD.scenarios[walk]})
        return self._worker.answer({"kind": kind, "scenario": walk, "numbers": numbers, **more})


def test_sources_of_the_guard_are_files():
    assert all(file.is_file() for file in GUARD.sources + GUARD.judges)
    assert ROOT / "guard" / "verdict" / "verdict.cpp" in GUARD.sources


@pytest.fixture(scope="module")
def places():
    return {name: pathlib.Path(os.environ[name])
            for name in ("DATABASE_MIGRATOR", "MIGRATION_GUARD", "TREE_SHIM")}


@pytest.fixture(scope="module")
def sandbox(places):
    with scratch_directory() as kept:
        with workers(1, kept, GUARD.module, files_of_guard(*places.values())) as (worker,):
            yield Sandbox(worker)


# The positions are spread over a run, the guard's own operations first.
SAMPLE = [
    *((FORWARD, kind, (0, 3, 1)) for kind in OPERATIONS if not kind.endswith("then on")),
    *((BACK, kind, (3, 5, 1)) for kind in ("kill", "kill in a write", "power cut")),
    *((BOOT, kind, (0, 2, 1)) for kind in ("kill", "power cut", "EIO once")),
    *((walk, kind, (5, 7, 1)) for walk in OTHERS for kind in ("kill", "power cut")),
    *((FORWARD, kind, (0, 1, 1)) for kind in ALLOCATIONS),
    *((FORWARD, f"{signal} to {process}", (2, 3, 1)) for signal in ("SIGTERM", "SIGKILL")
      for process in ("guard in memory", "bubblewrap", "program")),
    (FORWARD, "another process writes", (0, 40, 20)),
    (FORWARD, "full memory", (0, 1, 1)), (FORWARD, "small memory", (9, 10, 1)),
    (FORWARD, "full disk", (11, 12, 1)),
]


@pytest.mark.parametrize("walk, kind, numbers", SAMPLE)
def test_a_fault_leaves_the_old_database_or_the_new_one(sandbox, walk, kind, numbers):
    assert sandbox.run(walk, kind, numbers)["violations"] == []


def test_there_are_cases_and_equal_states_have_equal_answers(sandbox):
    answer = sandbox.run(BOOT, "kill", (0, 3, 1))
    assert answer["cases"] == sum(answer["outcomes"].values()) == 3
    assert 0 < len(answer["states"]) <= 3
    assert sandbox.run(BOOT, "kill", (0, 3, 1)) == answer


# Mistakes that the harness has to notice.


@pytest.mark.parametrize("walk, kind, numbers, mistake, violation", [
    # These numbers are after the copy: without locks the database becomes a mixture.
    pytest.param(FORWARD, "another process writes", (10, 30, 1), {"NO_LOCKS": 1},
                 "what another process has written is lost", id="commits without a lock"),
    pytest.param(HOT, "small memory", (11, 12, 1), {"DELETES_JOURNAL": 1},
                 "not sound", id="deletes a journal"),
    pytest.param(HOT, "kill", (0, 30, 1), {"DELETES_JOURNAL": 1},
                 "left other files than the recording tells", id="leaves another state"),
    pytest.param(BOOT, "small memory", (11, 12, 1), {"LEAVES_PROCESS": 1},
                 "went on: /app/migration-guard run, with the caller's output",
                 id="leaves a process"),
    pytest.param(FORWARD, "small memory", (11, 12, 1), {"RENAMES": 1},
                 "the database is another file", id="renames a file over the database"),
    pytest.param(FORWARD, "power cut", (0, 300, 1), {"UNSYNCED": "ErrorLog.txt"},
                 "the log lacks what the database shows", id="does not flush the log"),
    pytest.param(FORWARD, "power cut", (0, 300, 1), {"UNSYNCED": "-journal"},
                 "not sound", id="does not flush the journal"),
    pytest.param(FORWARD, "power cut", (0, 300, 1), {"UNSYNCED": "my.db.sqlite"},
                 "not sound|files of the pool went before the commit",
                 id="does not flush the database"),
    pytest.param(FORWARD, "power cut", (0, 300, 1), {"UNSYNCED": "/databases"},
                 "files of the pool went before the commit", id="does not flush the directory"),
    pytest.param(FORWARD, "power cut", (0, 300, 1), {"UNSYNCED": "before-migration.sqlite.tmp"},
                 "the kept database is not the old one", id="does not flush the kept database")])
def test_a_mistake_is_noticed(sandbox, walk, kind, numbers, mistake, violation):
    found = sandbox.run(walk, kind, numbers, mistake=mistake)["violations"]
    assert len(found) > 0 and re.search(violation, found[0])


def test_a_flush_of_a_directory_is_for_its_own_names():
    disk = DirectoryDisk({})
    for operation in (("C", "/a/1"), ("C", "/b/2"), ("Y", "/a")):
        disk.apply(Operation(*operation, b"", 0, "", "disk"))
    assert disk.files_after_power_cut(none_kept, None) == {"/a/1": b""}
    assert disk.files_after_power_cut(all_kept, None) == {"/a/1": b"", "/b/2": b""}


@pytest.mark.parametrize("seed", range(8))
def test_a_rename_is_whole(seed):
    disk = DirectoryDisk({"/a/1": b"one"})
    disk.apply(Operation("R", "/a/1", b"/a/2", 0, "", "disk"))
    assert disk.files() == {"/a/2": b"one"}
    for survival in SURVIVALS:
        found = disk.files_after_power_cut(survival, random.Random(seed))
        assert found in ({"/a/1": b"one"}, {"/a/2": b"one"})


# The parts of the campaign.


def test_every_kind_and_walk_advances():
    plan = {name: {"places": {"kill": 20, "power cut": 3}} for name in (FORWARD, BACK)}
    assert tasks(plan, [FORWARD, BACK], ["kill", "power cut"], 12) == [
        {"kind": kind, "scenario": name, "numbers": (first, end, 1)}
        for kind, name, first, end in [
            ("kill", FORWARD, 0, 8), ("power cut", FORWARD, 0, 3), ("kill", BACK, 0, 8),
            ("power cut", BACK, 0, 3), ("kill", FORWARD, 8, 12), ("kill", BACK, 8, 12)]]


def test_figures_count_what_was_tried():
    task = {"kind": "kill", "scenario": FORWARD, "numbers": (0, 8, 1)}
    plan = {FORWARD: {"allocations of the guard": 11, "places": {"kill": 12}}}
    answers = [{"violations": ["1: not sound [x]"], "outcomes": {"old": 3, "new": 2, "wrong": 1},
                "states": states} for states in (["a", "b"], ["b", "c"])]
    figures = GuardFigures.of(plan, [(task, answer) for answer in answers])
    assert figures.kinds == {FORWARD: {"kill": [6, 4, 0, 2, 3, 16]}}
    assert figures.walks == plan
    assert figures.violations == 2
    assert figures.total([FORWARD], ["kill"]) == [6, 4, 0, 2, 3, 16]


def test_page_has_both_subjects_side_by_side():
    kinds = {FORWARD: {"kill": [6, 4, 0, 2, 3, 16]}, BOOT: {"kill": [0, 3, 1, 0, 2, 4]}}
    walks = {name: {"operations of the guard": 5, "places": {"kill": number}}
             for name, number in ((FORWARD, 1200), (BOOT, 4))}
    text = document(Figures.read(), Deviations(), GuardFigures(2, walks, kinds))
    alone = Figures.read().kinds[FORWARD]
    cases = sum(map(sum, (alone[kind] for kind in ("kill", "kill in a write", "power cut"))))
    row = next(line for line in text.splitlines()
               if line.startswith(f"| {FORWARD} | kill, power cut |"))
    assert row.split(" | ")[2] == f"{cases:,}"
    assert row.endswith(" | 12 | 83.33 % | 0 | 2 |")
    assert "| kill | 6 / 4 / 0 / 2 / 3, 16 of 1,200 | 0 / 3 / 1 / 0 / 2 |" in text.splitlines()
    assert "| operations of the guard | 5 | 5 |" in text.splitlines()
