"""The part of a worker that tries mending: every state that a kill or a power cut leaves is mended,
and then the program runs."""

import json
import pathlib
import pickle
import subprocess
from collections import Counter

import alone
import cases
import device
from device import COPIED_DATABASE, DATABASE
from disks import Disk
from states import COPY
from support.kept_rows import lost_rows

MEND = "/app/mend"
SCHEMA_VERSIONS = pathlib.Path("/app/schema-versions.json")
POWER_CUT, KILL, KILL_IN_A_WRITE = "power cut", "kill", "kill in a write"


def prepare(task, folder):
    """Records the undisturbed run of a scenario, for all workers."""
    answer = alone.prepare(task, folder)
    scenario = pickle.loads((folder / "scenario").read_bytes())
    return {**answer, "states": len(scenario.states)}


class Cases(cases.Cases):
    def __init__(self, folder):
        super().__init__(pickle.loads((folder / "scenario").read_bytes()), folder)
        self.versions = json.loads(SCHEMA_VERSIONS.read_text(encoding="utf-8"))
        self.places = {}  # state: how many transactions are committed when it first occurs
        for place, state in enumerate(self.scenario.states):
            self.places.setdefault(state, place)

    def run(self, task):
        self.subject.prepare_device()
        numbers = range(*task["numbers"])
        if task["kind"] == "states":
            return [[place, self.of_state(files)]
                    for place, files in self.files_of_states(numbers)]
        self.counts = Counter()
        if task["kind"] == POWER_CUT:
            self.power_cuts(POWER_CUT, numbers)
        else:
            self.kills(task["kind"], numbers)
        return [[place, step, number] for (place, step), number in self.counts.items()]

    def kills(self, kind, numbers):
        operations = self.scenario.recording.operations
        for number in numbers:
            operation = operations[number]
            if kind == KILL or operation.kind == "W":
                self.note(number, operation.statement, [], self.scenario.states[operation.commits])

    def note(self, number, statements, violations, state, cascaded=frozenset()):
        assert not violations, violations
        self.counts[self.places[state], self.subject.step(statements)] += 1

    def files_of_states(self, places):
        """The files of the device after this many committed transactions. Equal states come
        once."""
        scenario, disk, commits = self.scenario, Disk(self.scenario.start), -1
        for operation in scenario.recording.operations:
            if operation.commits > commits:
                commits = operation.commits
                if commits in places and self.places[scenario.states[commits]] == commits:
                    yield commits, disk.files()
            disk.apply(operation)
        last = len(scenario.states) - 1
        if last > commits and last in places and self.places[scenario.states[last]] == last:
            yield last, disk.files()

    def of_state(self, files):
        """The results of the next runs from a state: without mending, with it, and with mending one
        run later. Each has an outcome, what mending did, and the differences."""
        device.fill(files)
        copies = sorted(table.name for table in self.readings.read().tables.values()
                        if COPY.match(table.name))
        unknown = [f"{name}: not in the table of versions" for name in copies
                   if name not in self.versions["copies"]]
        alone = self.run_program()
        later = self.mend_and_run() if alone["copies"] or alone["outcome"] == "rows lost" else alone
        device.fill(files)
        at_once = self.mend_and_run() if copies else dict(alone)
        at_once["violations"] = [*at_once["violations"], *unknown]
        return {"copies": copies, "alone": alone, "mended later": later, "mended": at_once}

    def mend_and_run(self):
        COPIED_DATABASE.write_bytes(DATABASE.read_bytes())
        mending = subprocess.run([MEND, DATABASE, SCHEMA_VERSIONS], capture_output=True, text=True)
        answer = json.loads(mending.stdout)
        assert not answer["error"], answer
        lost = lost_rows(COPIED_DATABASE, DATABASE, self.versions)
        done = [f"{one['copy']}: {one['kind']}" for one in answer["mendings"]]
        return {**self.run_program(), "done": done,
                "violations": [f"{name}: rows lost by mending" for name in lost]}

    def run_program(self):
        status, _ = self.scenario.run()
        state = self.readings.read()
        if status != 0 or state is None:
            return {"outcome": "not sound", "copies": [], "differences": [], "done": [],
                    "violations": [f"ended with {status}"]}
        outcome, differences = self.subject.outcome(state)
        return {"outcome": outcome, "differences": differences, "done": [], "violations": [],
                "copies": sorted(table.name for table in state.tables.values()
                                 if table.name in self.versions["copies"])}
