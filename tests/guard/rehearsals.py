"""The parts that the tests of rehearsals share: a rehearsal, and a check that nothing was
touched."""

import json
import os
import stat

OLD = 1_000_000_000


class Rehearsed:
    """How a rehearsal ended."""

    def __init__(self, run):
        self.status = run.returncode
        self.errors = run.stderr
        self.reports = [json.loads(line) for line in run.stdout.splitlines()]

    @property
    def report(self):
        [only] = self.reports
        return only

    def codes(self):
        return [finding["code"] for finding in self.report["verdict"]["findings"]]


def rehearse(device, *arguments, **options):
    return Rehearsed(device.run("rehearse", *arguments, "--json", **options))


class Untouched:
    """Every file below a directory, with its content and what the system knows of it."""

    def __init__(self, root):
        self.root = root
        self.paths = sorted(root.rglob("*"))
        self.contents = self.read()
        for path in self.paths:
            if not path.is_symlink():
                # The system records a time of access only if the last one is older than the last
                # change.
                os.utime(path, (OLD, path.stat().st_mtime))
        self.states = [self.state(path) for path in self.paths]

    @staticmethod
    def state(path):
        status = path.lstat()
        found = [status.st_ino, status.st_mode, status.st_uid, status.st_gid, status.st_nlink,
                 status.st_size, status.st_mtime_ns, status.st_ctime_ns]
        # Reading through a link changes the link's time of access, and starting the guard changes
        # the guard's.
        if not path.is_symlink() and path.name != "migration-guard":
            found.append(status.st_atime_ns)
        return path, found

    def read(self):
        return {path: path.read_bytes() for path in self.paths
                if stat.S_ISREG(path.lstat().st_mode)}

    def check(self):
        """Fails if a file, a byte or a time has changed."""
        states = [self.state(path) if os.path.lexists(path) else path for path in self.paths]
        changed = [(before, after) for before, after in zip(self.states, states)
                   if before != after]
        assert changed == []
        assert sorted(self.root.rglob("*")) == self.paths
        assert self.read() == self.contents
