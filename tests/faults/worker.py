"""Runs on a scratch device, where the program runs: takes tasks as lines of JSON and answers each
with a line. A task prepares a scenario (a database and a target version) or runs some of its cases:
a run with a fault, then two without one, and what must hold after each."""

import json
import os
import pathlib
import pickle
import random
import shutil
import sqlite3
import sys
from bisect import bisect
from collections import Counter, defaultdict
from contextlib import closing, contextmanager, suppress

import device
from cascades import Cascades, rebuilt_with_foreign_keys
from contents import COPY, Invariant, Reader, differences, identifiers, lost_rows
from device import COPIED_DATABASE, DATABASE, JOURNAL, Channel, Readings, Trunk, fill_device
from log_rules import LogRules
from recording import LOG, PAGE, SURVIVALS, Disk, apply_change, without_syncs

KEPT = pathlib.Path("/kept")  # what all workers share

UPDATE = "UPDATE tableVersion SET version"
SAME_RANDOM = {"FAULT_SAME_RANDOM": "1"}

# A kind of fault: the shim's switches, and whether an operation can have it at all.
OPERATION_FAULTS = {
    "kill": ({"FAULT_ACTION": "kill"}, lambda operation, needs_room: True),
    "kill in a write": ({"FAULT_ACTION": "half"}, lambda operation, _: operation.kind == "W"),
    "EIO once": ({"FAULT_ACTION": "EIO"}, lambda operation, _: True),
    "EIO from then on": ({"FAULT_ACTION": "EIO", "FAULT_FOREVER": "1"}, lambda operation, _: True),
    "ENOSPC once": ({"FAULT_ACTION": "ENOSPC"}, lambda _, needs_room: needs_room),
    "ENOSPC from then on": (
        {"FAULT_ACTION": "ENOSPC", "FAULT_FOREVER": "1"}, lambda _, needs_room: needs_room),
    "short write once": ({"FAULT_ACTION": "short"}, lambda operation, _: operation.kind == "W"),
    "short writes from then on": (
        {"FAULT_ACTION": "short", "FAULT_FOREVER": "1"},
        lambda operation, _: operation.kind == "W"),
}
MEMORY_FAULTS = {
    "no memory once": {"FAULT_ACTION": "memory"},
    "no memory from then on": {"FAULT_ACTION": "memory", "FAULT_FOREVER": "1"},
}
LOCKS = {"reading": "BEGIN; SELECT * FROM sqlite_master", "about to write": "BEGIN IMMEDIATE",
         "writing": "BEGIN EXCLUSIVE"}
LOCKED = "locked throughout"
LOCKED_FOR_A_TIME = "locked for some statements"
FULL_DISK = "full disk"
DISKS = 12
PAIR = "pair of faults"
POWER_CUT = "power cut"
POWER_CUT_WITHOUT_SYNCS = "power cut without syncs"


class Scenario:
    """A start, a target, and what is known of the undisturbed run between them."""

    def __init__(self, name, start, target, switches):
        self.name, self.target, self.switches = name, target, switches
        self.start = {str(DATABASE): pathlib.Path(start).read_bytes()}
        device.software_version("1.2.3")
        self._fill()
        first = Reader().read(DATABASE)
        self.reader = Reader(identifiers(first))
        self.recording = self._record(target)
        self.log = device.log().decode()
        self.reference = self.reader.read(DATABASE)
        self.final = DATABASE.read_bytes()
        # Some probes never see their own step's work: the next run does it over again.
        assert self.run()[0] == 0
        self.settled = self.reader.read(DATABASE)
        self.settling = set(differences(self.settled, self.reference))
        self._find_steps(int(name.split()[0]))
        self._walk()
        self.lost_for_a_time = self.invariant.lost_for_a_time(first, self.reference)

    def _fill(self):
        fill_device(self.start)

    def run(self, switches=None):
        """A run from what is there; answers its exit status and what it did."""
        return device.recorded_run(self.target, {**self.switches, **(switches or {})})

    def _record(self, target):
        self._fill()
        status, recording = device.recorded_run(
            target, {**self.switches, **SAME_RANDOM, "FAULT_RECORD_ALL": "1"})
        assert status == 0, status
        return recording

    def _find_steps(self, version):
        """Which step a statement belongs to: runs to the versions between tell where each ends."""
        device.software_version("other")
        direction = 1 if self.target > version else -1
        self.step_ends = []
        for target in range(version, self.target + direction, direction):
            self._fill()
            statements = device.recorded_run(target, self.switches)[1].statements
            end = next(i for i, text in enumerate(statements) if text.startswith(UPDATE))
            step = None if target == version else target if direction > 0 else target + 1
            self.step_ends.append((end, step))
        device.software_version("1.2.3")

    def _walk(self):
        """The state after each transaction, what is in all of them, and the room that it takes."""
        disk, self.needs_room, self.states, self.room = Disk(self.start), [], [], []
        self.leading_on = {}  # from a state: the statement that ends with the next one
        commits = -1
        for operation in self.recording.operations:
            self.leading_on[operation.commits] = operation.statement
            if operation.commits > commits:
                commits = operation.commits
                self._add_state(disk)
            size = len(disk.names[operation.path].content) if operation.path in disk.names else 0
            self.needs_room.append(operation.kind == "C" or (
                operation.kind == "W" and operation.offset + len(operation.data) > size))
            disk.apply(operation)
            self.room.append(disk.size())
        if self.recording.operations[-1].commits == commits:
            self._add_state(disk)

    def _add_state(self, disk):
        COPIED_DATABASE.write_bytes(disk.files()[str(DATABASE)])
        contents = self.reader.read(COPIED_DATABASE)
        if not self.states:
            self.invariant = Invariant(contents)
        self.invariant.gather(contents)
        self.states.append(contents.hash)

    def step(self, statements):
        """The step that the last of this many statements belongs to."""
        for end, step in self.step_ends:
            if statements <= end:
                return "before" if step is None else str(step)
        return "after"

    def statement(self, number):
        return self.recording.statements[number - 1] if number else "(none)"


class Cases:
    """Runs cases of a scenario and gathers what comes of them."""

    def __init__(self, scenario):
        self.scenario = scenario
        self.readings = Readings(scenario.reader)
        self.log_rules = LogRules(
            scenario.recording, scenario.step, scenario.target > int(scenario.name.split()[0]))
        self.recoveries = KEPT / scenario.name / "recoveries"
        self.recoveries.mkdir(exist_ok=True)
        self.recovered = {}
        fill_device(scenario.start)
        self.cascades = Cascades(scenario.reader.read(DATABASE), scenario.reference)

    def run(self, kind, numbers):
        self.cases = 0
        self.cascaded = set()  # tables that the present case has cost rows, in the way it must be
        self.violations = []
        self.outcomes = defaultdict(Counter)
        self.differences = defaultdict(Counter)
        runs = {**dict.fromkeys(OPERATION_FAULTS, self.faults),
                **dict.fromkeys(MEMORY_FAULTS, self.without_memory),
                POWER_CUT: self.power_cuts, POWER_CUT_WITHOUT_SYNCS: self.power_cuts,
                PAIR: self.pairs, LOCKED: self.locked, LOCKED_FOR_A_TIME: self.locked_for_a_time,
                FULL_DISK: self.full_disks}
        runs[kind](kind, numbers)
        return {"cases": self.cases, "violations": self.violations, "outcomes": self.outcomes,
                "differences": self.differences}

    def note(self, number, step, statement, violations, recovery):
        self.cases += 1
        self.outcomes[step][recovery["outcome"]] += 1
        self.violations += [f"{number}: {text} [{statement[:100]}]"
                            for text in violations + recovery["violations"]]
        for line in recovery["differences"]:
            self.differences[step][line] += 1

    @contextmanager
    def trunk(self, switches):
        """A run whose copies meet faults, and which itself must not notice anything of it."""
        scenario = self.scenario
        fill_device(scenario.start)
        trunk = Trunk(scenario.target, {**scenario.switches, **SAME_RANDOM, **switches})
        yield trunk
        assert trunk.end() == 0
        assert self.readings.read().hash == scenario.reference.hash

    def faults(self, kind, numbers):
        """A fault at each of these operations."""
        switches, applies = OPERATION_FAULTS[kind]
        scenario = self.scenario
        operations = scenario.recording.operations
        disk, done = Disk(scenario.start), 0
        with self.trunk(switches) as trunk:
            for number in numbers:
                operation = operations[number]
                if not applies(operation, scenario.needs_room[number]):
                    continue
                while done < number:
                    disk.apply(operations[done])
                    done += 1
                status, what = trunk.branch(number + 1)
                expected = disk.files()
                if kind == "kill in a write":
                    add_half(expected, operation)
                if kind.startswith("kill"):
                    state, violations = self._after_kill(status, operation, expected)
                else:
                    state, violations = self._after_failure(
                        status, operation.statement, operation.events, expected.get(LOG, b""),
                        what)
                self._note(number, operation.statement, violations, state)

    def _after_kill(self, status, operation, expected):
        """Tells the hash of the contents, None of an unsound database, and the violations."""
        violations = [] if status == -9 else [f"ended with {status}"]
        state = self.scenario.states[operation.commits]
        if device.files() == expected:
            return state, violations
        contents = self.readings.read()
        if contents is None:
            return None, [*violations, "not sound"]
        if contents.hash != state:
            violations.append(f"not the state after {operation.commits} statements")
        if device.log() != expected.get(LOG, b""):
            violations.append("not the log of the undisturbed run so far")
        return contents.hash, violations

    def _after_failure(self, status, statements, position, log, what, memory_lacks=False):
        """The same after a run that went undisturbed up to the last of these statements and to a
        position among its events, when the log was this."""
        violations = [] if status == 0 else [f"ended with {status}"]
        if not device.log().startswith(log):
            violations.append("the log does not begin as in the undisturbed run")
        violations += self.log_rules.violations(position, what.events, memory_lacks)
        begun = self.scenario.statement(statements) if statements is not None else ""
        self.cascaded = self.cascades.below(rebuilt_with_foreign_keys(what.events, begun))
        contents = self.readings.read()
        if contents is None:
            return None, [*violations, "not sound"]
        step = self.scenario.step(statements) if statements is not None else "any"
        return contents.hash, violations + self.scenario.invariant.violations(
            contents, step, self.cascaded, memory_lacks)

    def _note(self, number, statements, violations, state):
        step, statement = "any", ""
        if statements is not None:
            step = self.scenario.step(statements)
            statement = self.scenario.statement(statements)
        self.note(number, step, statement, violations + device.further_files(),
                  self.recover(state, step))

    def without_memory(self, kind, numbers):
        """SQLite gets no memory at each of these allocations."""
        recording = self.scenario.recording
        allocations = recording.statement_allocations
        positions = [0, *(i for i, event in enumerate(recording.events, 1) if event.kind == "S")]
        with self.trunk(MEMORY_FAULTS[kind]) as trunk:
            for number in numbers:
                status, what = trunk.branch(number + 1)
                statements = bisect(allocations, number)
                state, violations = self._after_failure(
                    status, statements, positions[statements], b"", what, memory_lacks=True)
                self._note(number, statements, violations, state)

    def pairs(self, kind, numbers):
        """A run that recovers from a fault runs into another one."""
        scenario = self.scenario
        for number in numbers:
            chance = random.Random(number)
            fill_device(scenario.start)
            violations = []
            for _ in range(2):
                fault = chance.choice(list(OPERATION_FAULTS))
                at = chance.randrange(len(scenario.recording.operations)) + 1
                status, _ = scenario.run({**OPERATION_FAULTS[fault][0], "FAULT_AT": str(at)})
                if status not in (0, -9):
                    violations.append(f"ended with {status}")
            contents = self.readings.read()
            if contents is None:
                violations.append("not sound")
            else:
                violations += scenario.invariant.losses(contents, "any")
            self._note(number, None, violations, contents and contents.hash)

    def locked(self, kind, numbers):
        """Another process holds a lock as long as the run takes."""
        scenario = self.scenario
        for number in numbers:
            fill_device(scenario.start)
            with lock(number):
                status, _ = scenario.run({"FAULT_BUSY_TIMEOUT": "1"})
            contents = self.readings.read()
            violations = [] if status == 0 else [f"ended with {status}"]
            if contents is None or contents.hash != scenario.states[0]:
                violations.append("changed in spite of the lock")
            self._note(number, None, violations, contents and contents.hash)

    def locked_for_a_time(self, kind, numbers):
        """Another process takes a lock before one statement and releases it before a later one."""
        scenario = self.scenario
        for number in numbers:
            chance = random.Random(number)
            first = chance.randint(1, len(scenario.recording.statements))
            fill_device(scenario.start)
            run = Channel(scenario.target, {**scenario.switches, "FAULT_ACTION": "pause",
                                            "FAULT_BUSY_TIMEOUT": "20"})
            run.go_on_to(first)
            status = run.answer()
            with lock(number):
                run.go_on_to(first + chance.choice((1, 2, 5, 20)))
                run.answer()
            status = run.go_on_to_the_end()
            state, violations = self._after_failure(
                status, None, 0, b"", device.read_recording(device.RECORDED))
            self._note(number, None, violations, state)

    def full_disks(self, kind, numbers):
        """The disk has less room than the run would take."""
        scenario = self.scenario
        least, most = scenario.room[0], max(scenario.room)
        for number in numbers:
            room = least + (most - least) * number // DISKS // PAGE * PAGE
            with device.small_disk(scenario.start, room):
                status, what = scenario.run()
            state, violations = self._after_failure(status, None, 0, b"", what)
            self._note(number, None, violations, state)

    def power_cuts(self, kind, numbers):
        """The power goes before each of these operations."""
        scenario = self.scenario
        operations = scenario.recording.operations
        if kind == POWER_CUT_WITHOUT_SYNCS:
            operations = without_syncs(operations)
        numbers = {number for number in numbers if number < len(operations)}
        disk = Disk(scenario.start)
        for number in range(max(numbers, default=-1) + 1):
            operation = operations[number]
            if number in numbers:
                self._power_cut(number, operation, disk)
            disk.apply(operation)

    def _power_cut(self, number, operation, disk):
        scenario = self.scenario
        survival = SURVIVALS[number % len(SURVIVALS)]
        fill_device(disk.files_after_power_cut(survival, random.Random(number)))
        violations = []
        statement = operation.statement
        contents = self.readings.read()
        before = max(0, operation.commits - 1)
        if contents is None:
            violations.append(f"not sound ({survival.__name__})")
        elif contents.hash not in scenario.states[before:operation.commits + 1]:
            violations.append(
                f"not a state after {operation.commits} statements ({survival.__name__})")
        elif contents.hash != scenario.states[operation.commits]:
            # The last statement has gone too: the cut is one in the midst of it.
            statement = scenario.leading_on[before]
        self._note(number, statement, violations, contents and contents.hash)

    def recover(self, state, step):
        """The second and the third run; runs from the same state, with a journal to roll back or
        without one, are made once."""
        if state is None:
            return self._recover(step)
        journal = "-journal" if JOURNAL.exists() else ""
        return self._kept(f"{step}-{state}{journal}", lambda: self._recover(step))

    def _kept(self, name, make):
        """What another case or another worker has made of the same."""
        if name not in self.recovered:
            file = self.recoveries / f"{name}.json"
            if not file.exists():
                new = file.with_suffix(f".{os.getpid()}")
                new.write_text(json.dumps(make()))
                new.rename(file)
            self.recovered[name] = json.loads(file.read_text())
        return self.recovered[name]

    def _recover(self, step):
        scenario = self.scenario
        log = device.log()
        status, what = scenario.run()
        violations = device.further_files()
        if status != 0:
            violations.append(f"second run ended with {status}")
        # Unlike time, the same on every machine.
        if what.number_of_operations > 2 * len(scenario.recording.operations):
            violations.append("second run did more than twice as much")
        if not device.log().startswith(log):
            violations.append("second run lost lines of the log")
        contents = self.readings.read()
        if contents is None:
            violations.append("not sound after the second run")
            return {"outcome": "not sound", "violations": violations, "differences": []}
        violations += [f"{text} after the second run"
                       for text in scenario.invariant.losses(contents, step, self.cascaded)]
        found = min((differences(contents, reference)
                     for reference in (scenario.reference, scenario.settled)), key=len)
        lost = lost_rows(contents, scenario.reference)
        third = self._kept(f"third-{contents.hash}", lambda: self._third_run(contents))
        return {"outcome": outcome(found, lost),
                "violations": violations + third["violations"],
                "differences": found + [f"{name} rows in no table" for name in lost]
                + third["differences"]}

    def _third_run(self, contents):
        violations = []
        status, _ = self.scenario.run()
        if status != 0:
            violations.append(f"third run ended with {status}")
        again = self.readings.read()
        if again is None:
            return {"violations": [*violations, "not sound after the third run"],
                    "differences": []}
        return {"violations": violations,
                "differences": [f"third run: {line}" for line in differences(again, contents)
                                if line not in self.scenario.settling]}


def add_half(files, operation):
    content = bytearray(files.get(operation.path, b""))
    half = operation.data[:len(operation.data) // 2]
    apply_change(content, (operation.kind, operation.offset, half))
    files[operation.path] = bytes(content)


@contextmanager
def lock(number):
    """Another connection holds a lock of one of the kinds, as far as it can get it."""
    with closing(sqlite3.connect(DATABASE, isolation_level=None, timeout=0)) as other:
        with suppress(sqlite3.OperationalError):
            for statement in list(LOCKS.values())[number % len(LOCKS)].split("; "):
                other.execute(statement).fetchall()
        yield


def outcome(found, lost):
    if lost:
        return "rows lost"
    if any(" left behind" in line and COPY.match(line.split()[0]) for line in found):
        return "copy left behind"
    return "otherwise different" if found else "recovered"


def prepare(name, start, target, switches):
    folder = KEPT / name
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    scenario = Scenario(name, start, target, switches)
    (folder / "final.sqlite").write_bytes(scenario.final)
    (folder / "statements.json").write_text(json.dumps(scenario.recording.statements))
    (folder / "scenario").write_bytes(pickle.dumps(scenario))
    return {"operations": len(scenario.recording.operations),
            "allocations": scenario.recording.allocations,
            "states": len(scenario.states),
            "untouched": sorted(scenario.invariant.untouched),
            "lost for a time": scenario.lost_for_a_time}


def main():
    scenarios = {}
    for line in sys.stdin:
        task = json.loads(line)
        name = task["scenario"]
        if task["kind"] == "prepare":
            scenarios.pop(name, None)
            answer = prepare(name, task["start"], task["target"], task["switches"])
        else:
            if name not in scenarios:
                scenarios[name] = Cases(pickle.loads((KEPT / name / "scenario").read_bytes()))
            device.software_version("1.2.3")
            answer = scenarios[name].run(task["kind"], range(*task["numbers"]))
        print(json.dumps(answer), flush=True)


if __name__ == "__main__":
    main()
