"""The cases of a scenario: a run into a fault, what must hold after it, and the recovery."""

import random
import sqlite3
from bisect import bisect
from collections import Counter, defaultdict
from contextlib import closing, contextmanager, suppress

import device
import runs
from device import DATABASE, LOG
from disks import PAGE, SURVIVALS, Disk, apply_change, without_syncs
from recording import read_recording
from recovery import Recoveries
from runs import Channel, Trunk
from scenario import SAME_RANDOM

# kind of fault: the shim's switches, and the test that an operation can have the fault.
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
DISKS = 12
WITHOUT_SYNCS = "power cut without syncs"  # only to prove that a missing sync is noticed


class Cases:
    """Runs cases and counts what came of them."""

    def __init__(self, scenario, folder):
        """folder: what all workers share."""
        self.scenario, self.subject = scenario, scenario.subject
        self.readings = device.Readings(scenario.reader)
        self.recoveries = Recoveries(scenario, self.readings, folder / "recoveries")
        self._judged = {}

    def run(self, kind, numbers):
        self.cases = 0
        self.violations = []
        self.outcomes = defaultdict(Counter)
        self.differences = defaultdict(Counter)
        kinds = {**dict.fromkeys(OPERATION_FAULTS, self.faults),
                 **dict.fromkeys(MEMORY_FAULTS, self.without_memory),
                 "power cut": self.power_cuts, WITHOUT_SYNCS: self.power_cuts,
                 "pair of faults": self.pairs, "locked throughout": self.locked,
                 "locked for some statements": self.locked_for_a_time,
                 "full disk": self.full_disks}
        self.subject.prepare_device()
        kinds[kind](kind, numbers)
        return {"cases": self.cases, "violations": self.violations, "outcomes": self.outcomes,
                "differences": self.differences}

    def note(self, number, statements, violations, state, cascaded=frozenset()):
        """Lets the device recover and counts the case. statements: how many had begun, None if
        nobody can say; state: the hash of the database's state."""
        step = self.subject.step(statements)
        statement = "" if statements is None else self.scenario.statement(statements)
        violations = violations + device.further_files()
        recovery = self.recoveries.of(state, step, cascaded)
        self.cases += 1
        self.outcomes[step][recovery["outcome"]] += 1
        self.violations += [f"{number}: {text} [{statement[:100]}]"
                            for text in violations + recovery["violations"]]
        for line in recovery["differences"]:
            self.differences[step][line] += 1

    @contextmanager
    def trunk(self, switches):
        """A run whose copies meet faults. It must not notice any of them."""
        scenario = self.scenario
        device.fill(scenario.start)
        trunk = Trunk(self.subject.command(), {**scenario.switches, **SAME_RANDOM, **switches})
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
                    self.note(number, operation.statement, violations, state)
                else:
                    self._note_failure(number, status, operation.statement, operation.events,
                                       expected.get(str(LOG), b""), what)

    def _after_kill(self, status, operation, expected):
        """Returns the hash of the state, None for a database that is not sound, and the
        violations."""
        violations = [] if status == -9 else [f"ended with {status}"]
        state = self.scenario.states[operation.commits]
        if device.files() == expected:
            return state, violations
        found = self.readings.read()
        if found is None:
            return None, [*violations, "not sound"]
        if found.hash != state:
            violations.append(f"not the state after {operation.commits} statements")
        if device.log() != expected.get(str(LOG), b""):
            violations.append("not the log of the undisturbed run so far")
        return found.hash, violations

    def _note_failure(self, number, status, statements, position, log, what, memory_lacks=False):
        """Judges and counts a run that was undisturbed up to the last of these statements and to a
        position among its events, when the log was this."""
        subject = self.subject
        violations = [] if status == 0 else [f"ended with {status}"]
        if not device.log().startswith(log):
            violations.append("the log does not begin as in the undisturbed run")
        violations += subject.wrong_log(position, what.events, memory_lacks)
        cascaded = frozenset(subject.cascaded(statements, what.events))
        state = self.readings.read()
        if state is None:
            self.note(number, statements, [*violations, "not sound"], None, cascaded)
            return
        question = state.hash, subject.step(statements), cascaded, memory_lacks
        if question not in self._judged:
            self._judged[question] = subject.wrong_state(state, *question[1:])
        self.note(number, statements, violations + self._judged[question], state.hash, cascaded)

    def without_memory(self, kind, numbers):
        """SQLite gets no memory at each of these allocations."""
        recording = self.scenario.recording
        allocations = recording.statement_allocations
        positions = [0, *(i for i, event in enumerate(recording.events, 1) if event.kind == "S")]
        with self.trunk(MEMORY_FAULTS[kind]) as trunk:
            for number in numbers:
                status, what = trunk.branch(number + 1)
                statements = bisect(allocations, number)
                self._note_failure(number, status, statements, positions[statements], b"", what,
                                   memory_lacks=True)

    def pairs(self, kind, numbers):
        """A run that recovers from a fault meets another one."""
        scenario = self.scenario
        for number in numbers:
            chance = random.Random(number)
            device.fill(scenario.start)
            violations = []
            for _ in range(2):
                fault = chance.choice(list(OPERATION_FAULTS))
                at = chance.randrange(len(scenario.recording.operations)) + 1
                status, _ = scenario.run({**OPERATION_FAULTS[fault][0], "FAULT_AT": str(at)})
                if status not in (0, -9):
                    violations.append(f"ended with {status}")
            state = self.readings.read()
            if state is None:
                violations.append("not sound")
            else:
                violations += self.subject.losses(state, self.subject.step(None))
            self.note(number, None, violations, state and state.hash)

    def locked(self, kind, numbers):
        """Another process holds a lock during the whole run."""
        scenario = self.scenario
        for number in numbers:
            device.fill(scenario.start)
            with lock(number):
                status, _ = scenario.run({"FAULT_BUSY_TIMEOUT": "1"})
            state = self.readings.read()
            violations = [] if status == 0 else [f"ended with {status}"]
            if state is None or state.hash != scenario.states[0]:
                violations.append("changed in spite of the lock")
            self.note(number, None, violations, state and state.hash)

    def locked_for_a_time(self, kind, numbers):
        """Another process takes a lock before one statement and releases it before a later one."""
        scenario = self.scenario
        for number in numbers:
            chance = random.Random(number)
            first = chance.randint(1, len(scenario.recording.statements))
            device.fill(scenario.start)
            run = Channel(self.subject.command(), {
                **scenario.switches, "FAULT_ACTION": "pause", "FAULT_BUSY_TIMEOUT": "20"})
            run.go_on_to(first)
            run.answer()
            with lock(number):
                run.go_on_to(first + chance.choice((1, 2, 5, 20)))
                run.answer()
            status = run.go_on_to_the_end()
            self._note_failure(number, status, None, 0, b"", read_recording(runs.RECORDED))

    def full_disks(self, kind, numbers):
        """The disk has less room than the run would take."""
        scenario = self.scenario
        least, most = scenario.room[0], max(scenario.room)
        for number in numbers:
            room = least + (most - least) * number // DISKS // PAGE * PAGE
            with device.small_disk(scenario.start, room):
                status, _ = scenario.run()
            self._note_failure(number, status, None, 0, b"", read_recording(runs.RECORDED))

    def power_cuts(self, kind, numbers):
        """The power goes before each of these operations."""
        scenario = self.scenario
        operations = scenario.recording.operations
        if kind == WITHOUT_SYNCS:
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
        device.fill(disk.files_after_power_cut(survival, random.Random(number)))
        violations = []
        statements = operation.statement
        state = self.readings.read()
        before = max(0, operation.commits - 1)
        if state is None:
            violations.append(f"not sound ({survival.__name__})")
        elif state.hash not in scenario.states[before:operation.commits + 1]:
            violations.append(
                f"not a state after {operation.commits} statements ({survival.__name__})")
        elif state.hash != scenario.states[operation.commits]:
            # The last statement is lost too: the power was cut in the middle of it.
            statements = scenario.leading_on[before]
        self.note(number, statements, violations, state and state.hash)


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
