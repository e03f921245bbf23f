"""A scenario: a database, a target, and what is known of the undisturbed run between them."""

import device
import runs
from device import COPIED_DATABASE, DATABASE
from disks import Disk
from states import Reader, identifiers

SAME_RANDOM = {"FAULT_SAME_RANDOM": "1"}


class Scenario:
    def __init__(self, name, start, switches, subject):
        """start: a database file; switches: the shim's, for every run."""
        self.name, self.switches, self.subject = name, switches, subject
        self.start = {str(DATABASE): start.read_bytes()}
        subject.prepare_device()
        device.fill(self.start)
        first = Reader().read(DATABASE)
        self.reader = Reader(identifiers(first))
        status, self.recording = runs.recorded_run(
            subject.command(), {**switches, **SAME_RANDOM, "FAULT_RECORD_ALL": "1"})
        assert status == 0, status
        self.reference = self.reader.read(DATABASE)
        self.final = DATABASE.read_bytes()
        status, operations = self.run()
        assert status == 0 and operations > 0
        self.settled = self.reader.read(DATABASE)
        subject.learn(self, first)
        self._replay()
        self.lost_for_a_time = subject.lost_for_a_time(first, self.reference)

    def run(self, switches=None):
        """A run on the device as it is; returns its exit status and the number of operations."""
        return runs.run(self.subject.command(), {**self.switches, **(switches or {})})

    def _replay(self):
        """Finds the state after each transaction, and the room that each operation takes."""
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
        state = self.reader.read(COPIED_DATABASE)
        self.subject.gather(state)
        self.states.append(state.hash)

    def statement(self, number):
        """The text of a statement; the first is 1, nothing has begun at 0."""
        return self.recording.statements[number - 1] if number else "(none)"
