"""The replay of a recording, and the disks that a power cut in the middle of it can leave."""

from dataclasses import dataclass, field

SECTOR = 512
PAGE = 4096


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
    """The files as the program sees them, and the part of them that is safely on the disk."""

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
        """The files as the program sees them, and as it leaves them when it is killed."""
        return {path: bytes(file.content) for path, file in self.names.items()}

    def size(self):
        """The room that the files take, in whole pages."""
        return sum(-(-len(file.content) // PAGE) * PAGE for file in self.names.values())

    def files_after_power_cut(self, survival, random):
        """The files as a power cut can leave them; survival chooses what is kept of the changes
        that were not synced."""
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
    """As if the writes reached the disk in the opposite order."""
    return changes[random.randint(0, len(changes)):]


def torn(changes, random):
    """Some sectors of the writes, some of the names."""
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
