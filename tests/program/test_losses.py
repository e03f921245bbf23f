"""guard/schema-versions.json names exactly what a run takes on purpose: a sample of random devices,
2,000 in a campaign. What is missing besides is noticed."""

import concurrent.futures
import contextlib
import dataclasses
import json
import os
import pathlib
import random
import shutil
import sqlite3
import sys

import pytest
from conftest import expected_log, scratch_device
from losses import SCHEMA_VERSIONS
from steps import ALWAYS_REAPPLIED
from support.contents import identifier
from support.judge import BACKWARD, EVERY_RUN, FORWARD, Judgement, TrackedTable, Walk, judge
from support.places import TESTS, scratch_directory
from support.versions import NEWEST, VERSIONS, dump_of
from walks import PLATFORMS, log_of_repairs, log_of_steps

sys.path.insert(0, str(TESTS / "fuzz"))
from healthy import healthy_device  # noqa: E402

TABLE = json.loads(SCHEMA_VERSIONS.read_text(encoding="utf-8"))
TORVIK, TORVIKMAX = PLATFORMS
DEVICES = 2000 if "CAMPAIGN" in os.environ else 20


@dataclasses.dataclass(frozen=True)
class Run:
    """A run of the program on a random device."""

    seed: int
    start: int
    end: int
    platform: str

    def walk(self):
        return Walk(self.start, self.end, ALWAYS_REAPPLIED[self.start])

    def device(self):
        busy = [name for version, direction in self.walk().steps
                for name, entry in TABLE["versions"][str(version)][direction].items()
                if "rows" in entry or "values" in entry] if abs(self.start - self.end) == 1 else []
        return healthy_device(self.seed, self.start, self.end, self.platform, busy)


def single_steps():
    """Every step, on either platform where they differ."""
    for version, entry in TABLE["versions"].items():
        number = int(version)
        for direction, start, end in ((FORWARD, number - 1, number), (BACKWARD, number, number - 1)):
            yield Run(number, start, end, TORVIKMAX if "platform" in str(entry[direction]) else TORVIK)
            if "platform" in str(entry[direction]):
                yield Run(number, start, end, TORVIK)


def random_runs():
    for seed in range(DEVICES):
        chance = random.Random(seed)
        yield Run(seed, chance.choice(VERSIONS), chance.choice((1, NEWEST, *VERSIONS)),
                  chance.choice(PLATFORMS))


RUNS = [*single_steps(), *random_runs()]


@contextlib.contextmanager
def databases_of(run):
    """The database before a run, and after it."""
    with scratch_device() as device:
        device.fill(run.device().files)
        before = device.root / "before"
        shutil.copyfile(device.database, before)
        device.run(str(run.end))
        assert device.log() == expected_log(
            run.start, run.end, log_of_repairs(ALWAYS_REAPPLIED[run.start]) +
            log_of_steps(run.start, run.end), (run.end, "1.2.3")), run
        yield before, device.database


def judgement_of(run):
    with databases_of(run) as (before, after):
        return judge(before, after, TABLE, run.walk(), run.platform)


@pytest.fixture(scope="module")
def judgements():
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as executor:
        return dict(zip(RUNS, executor.map(judgement_of, RUNS)))


def entries():
    """Everything that the table names, as the keys of a judgement; what is renamed is not lost."""
    for version, directions in TABLE["versions"].items():
        for direction in (FORWARD, BACKWARD):
            step = int(version), direction
            for name, entry in directions[direction].items():
                if entry.get("dropped"):
                    yield step, "table", name
                if "rows" in entry:
                    yield step, "rows", name
                for column in entry.get("columnsDropped", ()):
                    yield step, "column", f"{name}.{column}"
                for column in entry.get("values", ()):
                    yield step, "values", f"{name}.{column}"
    every_run = TABLE["everyRun"]
    for entry in every_run["rows"]:
        yield EVERY_RUN, "rows", entry["table"]
    for name, column in every_run["names"].items():
        yield EVERY_RUN, "values", f"{name}.{column}"
    for name, columns in every_run["values"].items():
        yield from ((EVERY_RUN, "values", f"{name}.{column}") for column in columns)


def test_exactly_what_the_table_names_goes(judgements):
    assert [(run, judgement) for run, judgement in judgements.items()
            if judgement.lost or judgement.left or judgement.unknown] == []


def test_every_entry_of_the_table_is_seen(judgements):
    seen = {key for judgement in judgements.values() for key in judgement.taken}
    assert {*entries()} - seen == set()
