"""Runs on a scratch device, where the program runs: takes tasks as lines of JSON and answers each
with a line. A task prepares a scenario (a database and a target version) or runs some of its cases:
a run with a fault, then two without one, and what must hold after each."""

import json
import os
import pathlib
import pickle
import random
import resource
import shutil
import sqlite3
import subprocess
import sys
from bisect import bisect
from collections import Counter, defaultdict
from contextlib import closing

from contents import COPY, Invariant, Reader, differences, identifiers, lost_rows
from recording import SURVIVALS, Disk, read_recording, without_syncs

APP = pathlib.Path("/app")
PROGRAM = APP / "database-migrator"
DATABASES = APP / "databases"
DATABASE = DATABASES / "my.db.sqlite"
JOURNAL = DATABASES / "my.db.sqlite-journal"
LOG = DATABASES / "sqlMigrationErrorLog.txt"
SOFTWARE_VERSION = APP / "quillmoor" / "softwareversion.txt"
POOL = pathlib.Path("/usr/bin/harlo/pool")
COPIED_DATABASE = pathlib.Path("/tmp/copy.sqlite")
SHIM = pathlib.Path("/faults/shim.so")
KEPT = pathlib.Path("/kept")  # what all workers share
RECORDED = pathlib.Path("/tmp/recording")

UPDATE = "UPDATE tableVersion SET version"

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
LOCKS = {"reading": "BEGIN; SELECT * FROM sqlite_master", "about to write": "BEGIN IMMEDIATE",
         "writing": "BEGIN EXCLUSIVE"}
LOCKED = "locked throughout"
PAIR = "pair of faults"
MEMORY_FAULTS = {"no memory once": {}, "no memory from then on": {"FAULT_FOREVER": "1"}}
POWER_CUT = "power cut"
POWER_CUT_WITHOUT_SYNCS = "power cut without syncs"


def software_version(version):
    SOFTWARE_VERSION.parent.mkdir(exist_ok=True)
    SOFTWARE_VERSION.write_text(f"{version}\n", encoding="utf-8")


def fill_device(files):
    shutil.rmtree(DATABASES, ignore_errors=True)
    DATABASES.mkdir()
    for path, content in files.items():
        pathlib.Path(path).write_bytes(content)
    for name in ("VT-01.iop", "VT-02.iop"):
        (POOL / name).write_bytes(b"")


def run(target, switches):
    """Answers the exit status and the processor time."""
    environment = {"LC_ALL": "C", "LD_PRELOAD": str(SHIM), **switches}
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    process = subprocess.Popen(
        [PROGRAM, str(target)], env=environment, stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        status = process.wait(timeout=120)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
        status = "no end in 120 s"
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return status, (after.ru_utime + after.ru_stime) - (before.ru_utime + before.ru_stime)


def copy_and_read(reader):
    """Reads a copy of the database, as the next process would find it."""
    journal = COPIED_DATABASE.with_name(COPIED_DATABASE.name + "-journal")
    shutil.copyfile(DATABASE, COPIED_DATABASE)
    journal.unlink(missing_ok=True)
    if JOURNAL.exists():
        shutil.copyfile(JOURNAL, journal)
    return reader.read(COPIED_DATABASE)


def further_files():
    known = {DATABASE, JOURNAL, LOG}
    return [f"left the file {file.name}" for file in DATABASES.iterdir() if file not in known]


class Scenario:
    """A start, a target, and what is known of the undisturbed run between them."""

    def __init__(self, name, start, target, switches):
        self.name, self.target, self.switches = name, target, switches
        content = pathlib.Path(start).read_bytes()
        self.start = {str(DATABASE): content}
        software_version("1.2.3")
        fill_device(self.start)
        first = Reader().read(DATABASE)
        self.reader = Reader(identifiers(first))

        fill_device(self.start)
        status, self.processor_time = self.run()
        assert status == 0, status
        self.recording = self._record(target)
        self.log = LOG.read_bytes()
        self.reference = self.reader.read(DATABASE)
        self.final = DATABASE.read_bytes()
        # Some probes never see their own step's work: the next run does it over again.
        assert self.run()[0] == 0
        self.settled = self.reader.read(DATABASE)
        self.settling = set(differences(self.settled, self.reference))
        self._find_steps(int(name.split()[0]))
        self._walk()
        self.lost_for_a_time = self.invariant.lost_for_a_time(first, self.reference)

    def run(self, switches=None):
        return run(self.target, {**self.switches, **(switches or {})})

    def _record(self, target):
        fill_device(self.start)
        RECORDED.unlink(missing_ok=True)
        status, _ = run(target, {**self.switches, "FAULT_RECORD": str(RECORDED)})
        assert status == 0, status
        return read_recording(RECORDED)

    def _find_steps(self, version):
        """Which step a statement belongs to: runs to the versions between tell where each ends."""
        software_version("other")
        direction = 1 if self.target > version else -1
        self.step_ends = []
        for target in range(version, self.target + direction, direction):
            statements = self._record(target).statements
            end = next(i for i, text in enumerate(statements) if text.startswith(UPDATE))
            step = None if target == version else target if direction > 0 else target + 1
            self.step_ends.append((end, step))
        software_version("1.2.3")

    def _walk(self):
        """The state after each transaction, and what is in all of them."""
        disk, self.needs_room, self.states = Disk(self.start), [], []
        commits = -1
        for operation in self.recording.operations:
            if operation.commits > commits:
                commits = operation.commits
                self._add_state(disk)
            size = len(disk.names[operation.path].content) if operation.path in disk.names else 0
            self.needs_room.append(operation.kind == "C" or (
                operation.kind == "W" and operation.offset + len(operation.data) > size))
            disk.apply(operation)
        if self.recording.operations[-1].commits == commits:
            self._add_state(disk)

    def _add_state(self, disk):
        COPIED_DATABASE.write_bytes(disk.files()[str(DATABASE)])
        contents = self.reader.read(COPIED_DATABASE)
        if not self.states:
            self.invariant = Invariant(contents)
        self.invariant.gather(contents)
        self.states.append(contents.hash())

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
        self.recoveries = KEPT / scenario.name / "recoveries"
        self.recoveries.mkdir(exist_ok=True)
        self.cases = 0
        self.violations = []
        self.outcomes = defaultdict(Counter)
        self.differences = defaultdict(Counter)

    def run(self, kind, numbers):
        runs = {**dict.fromkeys(OPERATION_FAULTS, self.disturbed),
                **dict.fromkeys(MEMORY_FAULTS, self.without_memory),
                POWER_CUT: self.power_cuts, POWER_CUT_WITHOUT_SYNCS: self.power_cuts,
                PAIR: self.pairs, LOCKED: self.locked}
        runs[kind](kind, numbers)
        return {"cases": self.cases, "violations": self.violations, "outcomes": self.outcomes,
                "differences": self.differences}

    def note(self, number, step, statement, violations, recovery):
        self.cases += 1
        self.outcomes[step][recovery["outcome"]] += 1
        self.violations += [f"{number}: {text} [{statement[:100]}]"
                            for text in violations + recovery["violations"]]
        for line in recovery["differences"]:
            self.differences[f"{step}|{statement[:80]}"][line] += 1

    def disturbed(self, kind, numbers):
        """A fault at each of these operations."""
        switches, applies = OPERATION_FAULTS[kind]
        killed = kind.startswith("kill")
        scenario = self.scenario
        for number in numbers:
            operation = scenario.recording.operations[number]
            if not applies(operation, scenario.needs_room[number]):
                continue
            step = scenario.step(operation.statement)
            fill_device(scenario.start)
            status, _ = scenario.run({**switches, "FAULT_AT": str(number + 1)})
            violations = []
            if status != (-9 if killed else 0):
                violations.append(f"ended with {status}")
            contents = copy_and_read(scenario.reader)
            if contents is None:
                violations.append("not sound")
            elif killed:
                if contents.hash() != scenario.states[operation.commits]:
                    violations.append(f"not the state after {operation.commits} statements")
                log = LOG.read_bytes() if LOG.exists() else b""
                if not scenario.log.startswith(log):
                    violations.append("the log is not the beginning of the undisturbed run's")
            else:
                violations += scenario.invariant.violations(contents, step)
            self.note(number, step, scenario.statement(operation.statement),
                      violations + further_files(), self.recover(contents, step))

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
            contents = copy_and_read(scenario.reader)
            if contents is None:
                violations.append("not sound")
            else:
                violations += scenario.invariant.losses(contents, "any")
            self.note(number, "any", "", violations + further_files(),
                      self.recover(contents, "any"))

    def locked(self, kind, numbers):
        """Another process holds a lock as long as the run takes."""
        scenario = self.scenario
        for number in numbers:
            fill_device(scenario.start)
            with closing(sqlite3.connect(DATABASE, isolation_level=None)) as other:
                for statement in list(LOCKS.values())[number].split("; "):
                    other.execute(statement).fetchall()
                status, _ = scenario.run({"FAULT_BUSY_TIMEOUT": "1"})
            contents = copy_and_read(scenario.reader)
            violations = [] if status == 0 else [f"ended with {status}"]
            if contents is None or contents.hash() != scenario.states[0]:
                violations.append("changed in spite of the lock")
            self.note(number, "any", "", violations + further_files(),
                      self.recover(contents, "any"))

    def without_memory(self, kind, numbers):
        """SQLite gets no memory at each of these allocations."""
        scenario = self.scenario
        for number in numbers:
            statements = bisect(scenario.recording.statement_allocations, number)
            step = scenario.step(statements)
            fill_device(scenario.start)
            status, _ = scenario.run(
                {**MEMORY_FAULTS[kind], "FAULT_MEMORY_AT": str(number + 1)})
            violations = [] if status == 0 else [f"ended with {status}"]
            contents = copy_and_read(scenario.reader)
            if contents is None:
                violations.append("not sound")
            else:
                violations += scenario.invariant.violations(contents, step)
            self.note(number, step, scenario.statement(statements),
                      violations + further_files(), self.recover(contents, step))

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
        contents = copy_and_read(scenario.reader)
        if contents is None:
            violations.append(f"not sound ({survival.__name__})")
        elif contents.hash() not in scenario.states[
                max(0, operation.commits - 1):operation.commits + 1]:
            violations.append(
                f"not a state after {operation.commits} statements ({survival.__name__})")
        step = scenario.step(operation.statement)
        self.note(number, step, scenario.statement(operation.statement), violations,
                  self.recover(contents, step))

    def recover(self, contents, step):
        """The second and the third run; runs from the same state, with a journal to roll back or
        without one, are made once."""
        if contents is None:
            return self._recover(step)
        journal = "-journal" if JOURNAL.exists() else ""
        kept = self.recoveries / f"{step}-{contents.hash()}{journal}.json"
        try:
            return json.loads(kept.read_text())
        except FileNotFoundError:
            recovery = self._recover(step)
            new = kept.with_suffix(f".{os.getpid()}")
            new.write_text(json.dumps(recovery))
            new.rename(kept)
            return recovery

    def _recover(self, step):
        scenario = self.scenario
        log = LOG.read_bytes() if LOG.exists() else b""
        status, seconds = scenario.run()
        violations = further_files()
        if status != 0:
            violations.append(f"second run ended with {status}")
        # Short runs vary by more than they take.
        if seconds > 2 * scenario.processor_time + 0.5:
            violations.append("second run took more than twice as long")
        if not LOG.exists() or not LOG.read_bytes().startswith(log):
            violations.append("second run lost lines of the log")
        contents = copy_and_read(scenario.reader)
        if contents is None:
            violations.append("not sound after the second run")
            return {"outcome": "not sound", "violations": violations, "differences": []}
        violations += [f"{text} after the second run"
                       for text in scenario.invariant.losses(contents, step)]
        status, _ = scenario.run()
        if status != 0:
            violations.append(f"third run ended with {status}")
        again = copy_and_read(scenario.reader)
        if again is None:
            violations.append("not sound after the third run")
        found = min((differences(contents, reference)
                     for reference in (scenario.reference, scenario.settled)), key=len)
        result = outcome(found, lost_rows(contents, scenario.reference))
        if again is not None:
            found += [f"third run: {line}" for line in differences(again, contents)
                      if line not in scenario.settling]
        return {"outcome": result, "violations": violations, "differences": found}


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
            answer = prepare(name, task["start"], task["target"], task["switches"])
        else:
            if name not in scenarios:
                scenarios[name] = pickle.loads((KEPT / name / "scenario").read_bytes())
            software_version("1.2.3")
            answer = Cases(scenarios[name]).run(task["kind"], range(*task["numbers"]))
        print(json.dumps(answer), flush=True)


if __name__ == "__main__":
    main()
