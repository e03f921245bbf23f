"""The disks that a power cut can leave where a file system has several directories."""

import posixpath

from disks import Disk, File, apply_change


class DirectoryDisk(Disk):
    """A flush of a directory makes the names in that directory safe, and no others. A rename
    happens as a whole or not at all."""

    def apply(self, operation):
        kind, path, data = operation.kind, operation.path, operation.data
        if kind == "R":
            target = data.decode()
            file = self.names.pop(path)
            self.names[target] = file
            self.unsynced_names.append((("R", path, target), file))
        elif kind == "Y" and path not in self.names:
            self.synced_names = self._with_names(
                self.synced_names,
                [entry for entry in self.unsynced_names if self._is_in(entry, path)])
            self.unsynced_names = [entry for entry in self.unsynced_names
                                   if not self._is_in(entry, path)]
        elif kind in "WTY" and path in self.names:
            file = self.names[path]
            if kind == "Y":
                for change in file.unsynced:
                    apply_change(file.synced, change)
                file.unsynced.clear()
            else:
                change = kind, operation.offset, data
                apply_change(file.content, change)
                file.unsynced.append(change)
        elif kind == "C":
            self._name(path, File())
        elif kind == "U":
            self._name(path, None)

    @staticmethod
    def _is_in(entry, directory):
        path = entry[0]
        return posixpath.dirname(path if isinstance(path, str) else path[2]) == directory

    @staticmethod
    def _with_names(names, changes):
        names = dict(names)
        for path, file in changes:
            if not isinstance(path, str):
                _, old, path = path
                # The old name may belong to another file by now, or may never have reached the
                # disk.
                if names.get(old) is file:
                    del names[old]
            if file is None:
                names.pop(path, None)
            else:
                names[path] = file
        return names

    def files_after_power_cut(self, survival, random):
        names = self._with_names(self.synced_names, survival(self.unsynced_names, random))
        files = {}
        for path, file in names.items():
            content = bytearray(file.synced)
            for change in survival(file.unsynced, random):
                apply_change(content, change)
            files[path] = bytes(content)
        return files
