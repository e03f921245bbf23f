"""What a run did, as the shim recorded it."""

import struct
from dataclasses import dataclass, field
from typing import NamedTuple

from device import JOURNAL, LOG

HEAD = struct.Struct("<cHIQ")


class Operation(NamedTuple):
    kind: str
    path: str
    data: bytes
    offset: int
    statement: int  # the number of statements begun before
    commits: int  # the number of transactions committed before
    events: int  # the number of events before


class Event(NamedTuple):
    kind: str  # S: a statement, E: the error of one that failed, L: a piece of the log
    text: str  # empty for a piece of the log that could not be written
    statement: str = ""  # of an error, if the statement could be begun


@dataclass
class Recording:
    operations: list = field(default_factory=list)
    statements: list = field(default_factory=list)
    statement_allocations: list = field(default_factory=list)  # SQLite's before each statement
    events: list = field(default_factory=list)
    allocations: int = 0


def read_recording(file):
    content = memoryview(file.read_bytes())
    recording = Recording()
    commits, position = 0, 0
    while position < len(content):
        kind, path_size, data_size, offset = HEAD.unpack_from(content, position)
        kind = kind.decode()
        position += HEAD.size
        path = str(content[position:position + path_size], "utf-8")
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
        elif kind == "A":
            recording.allocations = offset
        elif kind not in "FN":
            recording.operations.append(
                Operation(kind, path, data, offset, len(recording.statements), commits,
                          len(recording.events)))
            # A transaction of SQLite ends when its journal is removed.
            commits += kind == "U" and path == str(JOURNAL)
        if path == str(LOG) and kind in "WF":
            recording.events.append(Event("L", data.decode(errors="replace")))
    return recording


def operations_of(file):
    """The number of operations of a run, 0 if it was killed before it recorded that."""
    counts = file.read_bytes()[-2 * HEAD.size:] if file.exists() else b""
    if len(counts) == 2 * HEAD.size:
        (kind, *_, operations), (last, *_) = HEAD.iter_unpack(counts)
        if (kind, last) == (b"N", b"A"):
            return operations
    return 0
