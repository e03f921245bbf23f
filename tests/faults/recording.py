"""What a run asked of the disk: a recording of the shim, its replay, and the disks that a power cut
in the middle of it can leave behind."""

import pathlib
import struct
from dataclasses import dataclass, field
from typing import NamedTuple

HEAD = struct.Struct("<cHIQ")
SECTOR = 512
PAGE = 4096
JOURNAL = "/app/databases/my.db.sqlite-journal"
LOG = "/app/databases/sqlMigrationErrorLog.txt"


class Operation(NamedTuple):
    kind: str
    path: str
    data: bytes
    offset: int
    statement: int  # the number of statements begun before
    commits: int  # the number of transactions committed before
    events: int  # the number of events before


class Event(NamedTuple):
    """A statement's text, the error of one that failed, a piece of the log or, without a text, one
    that could not be written."""

    kind: str  # S, E, L
    text: str
    statement: str = ""  # of an error, if it was begun at all


@dataclass
class Recording:
    operations: list = field(default_factory=list)
    statements: list = field(default_factory=list)
    statement_allocations: list = field(default_factory=list)  # SQLite's before each statement
    events: list = field(default_factory=list)
    number_of_operations: int = 0
    allocations: int = 0


def read_recording(file):
    content = memoryview(pathlib.Path(file).read_bytes())
    recording = Recording()
    commits, position = 0, 0
    while position < len(content):
        kind, path_size, data_size, offset = HEAD.unpack_from(content, position)
        kind = kind.decode()
        position += HEAD.size
        path = bytes(content[position:position + path_size]).decode()
        position += path_size
        data = bytes(content[position:position + data_size])
        position += data_size
        if kind == "S":
            text = data.decode("utf-16-le", errors="replace")
            recording.events.append(Event("S", text))
            recording.statements.append(text)
            recording.statement_allocations.append(offset)
        elif kind == "E":
            recording.events.append(Event("E", data.decode(errors="replace"), path))
        elif kind == "N":
            recording.number_of_operations = offset
        elif kind == "A":
            recording.allocations = offset
        elif kind != "F":
            recording.operations.append(
                Operation(kind, path, data, offset, len(recording.statements), commits,
                          len(recording.events)))
            # SQLite's transactions end where their journal goes.
            commits += kind == "U" and path == JOURNAL
        if path == LOG and kind in "WF":
            recording.events.append(Event("L", data.decode(errors="replace")))
    return recording


def without_syncs(operations):
    return [operation for operation in operations if operation.kind != "Y"]


def apply_change(content, change):
    kind, offset, data = change
    if kind == "T":
        del content[offset:]
        content.extend(bytes(offset - len(content)))
    else:
        content.extend(bytes(max(0, offset - len(content))))
        content[offset:offset + len(data)] = data


@dataclass
class File:
    content: bytearray = field(default_factory=bytearray)
    synced: bytearray = field(default_factory=bytearray)
    unsynced: list = field(default_factory=list)  # changes since the last sync


class Disk:
    """The files as the program sees them, and what of them is safely on the disk."""

    def __init__(self, files):
        self.names = {path: File(bytearray(content), bytearray(content))
                      for path, content in files.items()}
        self.synced_names = dict(self.names)
        self.unsynced_names = []

    def apply(self, operation):
        kind, path, data, offset, *_ = operation
        if kind == "C":
            self._name(path, File())
        elif kind == "U":
            self._name(path, None)
        elif kind == "R":
            self._name(data.decode(), self.names[path])
            self._name(path, None)
        elif kind in "WT":
            file = self.names[path]
            apply_change(file.content, (kind, offset, data))
            file.unsynced.append((kind, offset, data))
        elif kind == "Y" and path in self.names:
            file = self.names[path]
            for change in file.unsynced:
                apply_change(file.synced, change)
            file.unsynced.clear()
        elif kind == "Y":
            self.synced_names = dict(self.names)
            self.unsynced_names.clear()

    def _name(self, path, file):
        self.unsynced_names.append((path, file))
        if file is None:
            self.names.pop(path, None)
        else:
            self.names[path] = file

    def files(self):
        """The files as the program sees them: all that a killed process leaves behind."""
        return {path: bytes(file.content) for path, file in self.names.items()}

    def size(self):
        """The room that the files take, in whole pages."""
        return sum(-(-len(file.content) // PAGE) * PAGE for file in self.names.values())

    def files_after_power_cut(self, survival, random):
        """The files as a power cut can leave them; survival says what of the unsynced is kept."""
        names = dict(self.synced_names)
        for path, file in survival(self.unsynced_names, random):
            if file is None:
                names.pop(path, None)
            else:
                names[path] = file
        files = {}
        for path, file in names.items():
            content = bytearray(file.synced)
            for change in survival(file.unsynced, random):
                apply_change(content, change)
            files[path] = bytes(content)
        return files


def none_kept(changes, random):
    return []


def all_kept(changes, random):
    return changes


def kept_up_to_one(changes, random):
    return changes[:random.randint(0, len(changes))]


def kept_in_part(changes, random):
    return [change for change in changes if random.random() < 0.5]


def last_one_lost_first_kept(changes, random):
    """The writes reach the disk in the opposite order."""
    return changes[random.randint(0, len(changes)):]


def torn(changes, random):
    """Of the writes some sectors, of the names some."""
    survivors = []
    for change in changes:
        if len(change) == 2 or change[0] == "T":
            survivors += kept_in_part([change], random)
            continue
        kind, offset, data = change
        start = offset
        while start < offset + len(data):
            end = min(offset + len(data), (start // SECTOR + 1) * SECTOR)
            survivors += kept_in_part([(kind, start, data[start - offset:end - offset])], random)
            start = end
    return survivors


SURVIVALS = (none_kept, all_kept, kept_up_to_one, kept_in_part, last_one_lost_first_kept, torn)
