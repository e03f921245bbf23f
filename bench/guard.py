#!/usr/bin/python3
"""The guard compared with the program alone: flushes and bytes that reach a disk, times, memory,
staging.

It needs root: the disk is a loop device with a file system of its own, so nothing else is counted.
Arguments choose parts; "growth" is what a walk adds to the staged files (guard/limits.h)."""

import contextlib
import os
import pathlib
import re
import shutil
import sqlite3
import statistics
import subprocess
import sys
import tempfile
import time

import measure

from measure import NEWEST
from support.versions import dump_of

sys.path.insert(0, str(measure.ROOT / "tests" / "faults"))
from multiply import multiply  # noqa: E402

GUARD = measure.BUILD / "guard" / "migration-guard"
VERSIONS = measure.BUILD / "schema-versions.json"
LIMITS = (measure.ROOT / "guard" / "limits.h").read_text()
CACHE_MIB = int(re.search(r"commitCache = (\d+) \* mebibyte", LIMITS)[1])
MIB = 1 << 20
# Rows of the demonstration database, multiplied: 0.3, 3 and 80 MB.
TIMES = {"0.3 MB": 1, "3 MB": 30, "80 MB": 850}
WRITTEN_SECTORS, FLUSHES = 6, 15  # of a block device's stat, from 0
SECTOR = 512
ROWS_IN_TURN = 40


def run(*command, **options):
    return subprocess.run([str(word) for word in command], check=True, **options)


class Disk:
    """A file system on a loop device. Without a journal, each flush that a program asks for reaches
    the device once. With a journal it can be two flushes, one on each side of the commit record."""

    def __init__(self, directory, size, journal):
        self.image, self.place = directory / "image", directory / "disk"
        with open(self.image, "wb") as image:
            image.truncate(size)
        run("mkfs.ext4", "-q", "-F", *([] if journal else ["-O", "^has_journal"]), self.image)
        self.device = run("losetup", "--find", "--show", self.image, capture_output=True,
                          text=True).stdout.strip()
        self.place.mkdir()
        run("mount", self.device, self.place)

    def counters(self):
        """Flushes and bytes so far."""
        name = pathlib.Path(self.device).name
        fields = pathlib.Path("/sys/block", name, "stat").read_text().split()
        return int(fields[FLUSHES]), int(fields[WRITTEN_SECTORS]) * SECTOR

    def remove(self):
        run("umount", self.place)
        run("losetup", "--detach", self.device)


@contextlib.contextmanager
def disk(size=2 << 30, journal=True):
    with tempfile.TemporaryDirectory(prefix="guard.", dir=measure.DISK) as directory:
        made = Disk(pathlib.Path(directory), size, journal)
        try:
            yield made
        finally:
            made.remove()


class GuardedDevice:
    def __init__(self, place):
        self.root = place / "device"
        shutil.rmtree(self.root, ignore_errors=True)
        self.app = self.root / "app"
        self.databases = self.app / "databases"
        self.database = self.databases / "my.db.sqlite"
        self.databases.mkdir(parents=True)
        (self.app / "quillmoor").mkdir()
        (self.app / "quillmoor" / "softwareversion.txt").write_text("4.2.0\n")
        for file in (measure.PROGRAM, GUARD, VERSIONS):
            shutil.copy(file, self.app)

    def install(self, database):
        for path in self.databases.iterdir():
            path.unlink()
        shutil.copy(database, self.database)
        os.sync()

    @staticmethod
    def environment():
        return dict(os.environ, DEVICE_OPTIONS="--ro-bind /usr/bin/bwrap /usr/bin/bwrap")

    def command(self, program, *arguments):
        return [measure.ROOT / "tests" / "support" / "on_device.sh", self.root, self.app / program,
                *arguments]

    def run(self, way, target, *options, tool=()):
        """Runs the program alone or under the guard; returns the seconds.

        tool: the words of a command that measures it."""
        program, *arguments = {"direct": ("database-migrator", str(target)),
                               "guarded": ("migration-guard", "run", str(target), *options)}[way]
        start = self.command(program, *arguments)
        environment = self.environment()
        if tool:
            start[2:3] = [*tool, "/app/" + program]
            environment["DEVICE_OPTIONS"] += "".join(
                f" --ro-bind {path} {path}" for path in (tool[0], "/usr/libexec"))
        begin = time.monotonic()
        status = subprocess.run(start, stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                env=environment).returncode
        if status != 0:
            sys.exit(f"{way} to {target} ended with {status}")
        return time.monotonic() - begin

    def instructions(self, way, target):
        """The instructions of all processes of a run."""
        self.run(way, target, tool=(
            "/usr/bin/valgrind.bin", "--tool=callgrind", "--quiet", "--trace-children=yes",
            "--callgrind-out-file=/app/instructions.%p"))
        count = 0
        for report in self.app.glob("instructions.*"):
            count += int(re.search(r"^totals: (\d+)", report.read_text(), re.MULTILINE)[1])
            report.unlink()
        return count

    def bytes_copied(self, way, target):
        """The bytes that all processes of a run read from files and write to them."""
        self.run(way, target, tool=("/usr/bin/strace", "-f", "-e",
                                    "trace=read,pread64,write,pwrite64", "-o", "/app/calls"))
        calls = (self.app / "calls").read_text()
        return sum(map(int, re.findall(r"(?:read|write|64)\b.* = (\d+)$", calls, re.MULTILINE)))

    def peak(self, target):
        """The most memory that a process of a guarded run has used, in bytes."""
        shutil.copy("/usr/bin/time", self.app)
        run(*self.command("time", "-f", "%M", "-o", "/app/peak", "/app/migration-guard", "run",
                          str(target)), stderr=subprocess.DEVNULL, env=self.environment())
        return int((self.app / "peak").read_text()) * 1024


def make_database(path, version, times, mode="delete"):
    with contextlib.closing(sqlite3.connect(path)) as database:
        database.execute("PRAGMA synchronous = OFF")
        database.execute(f"PRAGMA journal_mode = {mode}")
        database.executescript(dump_of(version))
        multiply(database, times)
    return path


def flushes_and_bytes(table, directory):
    """The bounds hold without a journal, where each flush counts once. Most devices have a journal:
    its figures are printed too."""
    for journal, sizes in ((False, TIMES), (True, ("0.3 MB", "3 MB"))):
        with disk(journal=journal) as loop:
            for size in sizes:
                database = make_database(directory / f"{journal} {size}", 1, TIMES[size])
                label = f"{size}, {'journal' if journal else 'no journal'}: "
                flushes_of_one(table, label, loop, database, bounded=not journal)


def flushes_of_one(table, label, loop, database, bounded):
    device = GuardedDevice(loop.place)

    def cost(way, *options):
        # Twice: what the first sync leaves must not be counted.
        os.sync(), os.sync()
        before = loop.counters()
        device.run(way, NEWEST, *options)
        flushes = loop.counters()[0] - before[0]
        os.sync()
        return flushes, loop.counters()[1] - before[1]

    if database.stat().st_size < 4 * MIB:  # A larger one takes minutes.
        device.install(database)
        table.add(f"{label}flushes of the program alone, 1 to {NEWEST}", cost("direct")[0])
    for kept, options, most_flushes, most_bytes in (
            ("without the kept database", ("--no-backup",), 8, 2), ("", (), 10, 3)):
        device.install(database)
        flushes, written = cost("guarded", *options)
        size = device.database.stat().st_size
        table.add(f"{label}flushes of the guard, 1 to {NEWEST} {kept}".rstrip(), flushes,
                  at_most=int(most_flushes + 2 * size / (CACHE_MIB * MIB)) if bounded else None)
        # A quarter of a MiB is for the log, the record and the file system's own writes.
        table.add(f"{label}bytes written by the guard to those of its database {kept}".rstrip(),
                  (written - MIB // 4) / size, digits=2, at_most=most_bytes if bounded else None)
    for _ in range(2):
        device.run("guarded", NEWEST)
    content = device.database.read_bytes()
    table.add(f"{label}flushes of an ordinary boot", cost("guarded")[0], at_most=0)
    table.add(f"{label}bytes of the database that an ordinary boot changes",
              sum(a != b for a, b in zip(device.database.read_bytes(), content)), at_most=0)


def times(table, directory):
    with disk() as loop:
        device = GuardedDevice(loop.place)
        for target, label in ((NEWEST, "walk"), (NEWEST, "ordinary boot")):
            database = make_database(directory / label, 1 if label == "walk" else NEWEST, 10)
            seconds = {"direct": [], "guarded": []}
            for way, known in seconds.items():
                device.install(database)
                for _ in range(5):
                    if label == "walk":
                        device.install(database)
                    known.append(device.run(way, target))
            direct, guarded = (statistics.median(seconds[way]) for way in ("direct", "guarded"))
            if label == "walk":
                table.add("ten times the rows: time of the walk to that of the program alone",
                          guarded / direct, digits=2, at_most=0.15)
            else:
                table.add("ten times the rows: milliseconds more at an ordinary boot",
                          (guarded - direct) * 1000, at_most=60)


def work(table, directory):
    """What an ordinary boot costs on any processor."""
    device = GuardedDevice(directory)
    device.install(make_database(directory / "ten times the rows", NEWEST, 10))
    for _ in range(2):
        device.run("guarded", NEWEST)
    size = device.database.stat().st_size
    instructions, copied = ([measured(way, NEWEST) for way in ("direct", "guarded")]
                            for measured in (device.instructions, device.bytes_copied))
    table.add("ten times the rows: instructions of an ordinary boot to those of the program alone",
              instructions[1] / instructions[0], digits=2, at_most=2)
    table.add("ten times the rows: bytes that an ordinary boot copies more, to its database's",
              (copied[1] - copied[0]) / size, digits=2, at_most=8)


def spread_rows(file):
    """Writes the rows of all tables again, table by table in turn. The pages of a table are then
    spread over the whole file, as after years of work."""
    with contextlib.closing(sqlite3.connect(file)) as database:
        database.execute("PRAGMA synchronous = OFF")
        triggers = database.execute(
            "SELECT name, sql FROM sqlite_schema WHERE type = 'trigger'").fetchall()
        for name, _ in triggers:
            database.execute(f"DROP TRIGGER {name}")
        rows = {}
        for name, in database.execute("SELECT name FROM sqlite_schema WHERE type = 'table' "
                                      "AND name NOT LIKE 'sqlite_%'").fetchall():
            rows[name] = database.execute(f"SELECT * FROM {name}").fetchall()
            database.execute(f"DELETE FROM {name}")
        while rows:
            for name in list(rows):
                turn, rows[name] = rows[name][:ROWS_IN_TURN], rows[name][ROWS_IN_TURN:]
                if not turn:
                    del rows[name]
                    continue
                places = ", ".join("?" * len(turn[0]))
                database.executemany(f"INSERT INTO {name} VALUES({places})", turn)
        for _, text in triggers:
            database.execute(text)
        database.commit()


def boots(table, directory):
    """A large database whose pages are out of order, with and without the page cache."""
    database = make_database(directory / "large", NEWEST, TIMES["80 MB"])
    spread_rows(database)
    with disk() as loop:
        device = GuardedDevice(loop.place)
        device.install(database)
        for _ in range(2):
            device.run("guarded", NEWEST)
        for label, cold, bound in (("cold", True, 0.8), ("warm", False, 1.4)):
            seconds = {"direct": [], "guarded": []}
            for _ in range(3):
                for way, known in seconds.items():
                    if cold:
                        os.sync()
                        pathlib.Path("/proc/sys/vm/drop_caches").write_text("3")
                    known.append(device.run(way, NEWEST))
            direct, guarded = (statistics.median(seconds[way]) for way in ("direct", "guarded"))
            table.add(f"80 MB, {label} boot: seconds of the program alone", direct, digits=2)
            table.add(f"80 MB, {label} boot: time to that of the program alone", guarded / direct,
                      digits=2, at_most=bound)
        table.add("80 MB: MB of memory of the largest process, besides the staged files",
                  device.peak(1) / MIB, at_most=30 + CACHE_MIB)


def growth(table, directory):
    """How much a walk adds to the files that the program works on, in % of its database."""
    place = directory / "memory"
    place.mkdir()
    run("mount", "-t", "tmpfs", "-o", "size=4G", "none", place)
    try:
        for mode in ("delete", "wal"):
            for shape in ("farms", "one table"):
                if (mode, shape) == ("wal", "one table"):
                    continue
                for start, target in ((1, NEWEST), (NEWEST, 1)):
                    device = GuardedDevice(place)
                    make_database(device.database, start, 60 if shape == "farms" else 1, mode)
                    if shape == "one table":
                        with contextlib.closing(sqlite3.connect(device.database)) as database:
                            database.execute(
                                "INSERT INTO fields (displayName, farmId) WITH RECURSIVE n(i) AS "
                                "(VALUES(1) UNION ALL SELECT i + 1 FROM n WHERE i < 50000) SELECT "
                                "'field ' || i || hex(zeroblob(60)), "
                                "(SELECT min(id) FROM farms) FROM n")
                            database.commit()
                    (device.databases / "temporary").mkdir()
                    size = device.database.stat().st_size
                    most = os.statvfs(place).f_bfree
                    least = most
                    temporary = "/app/databases/temporary"
                    process = subprocess.Popen(
                        device.command("database-migrator", str(target)), stdin=subprocess.DEVNULL,
                        env=dict(os.environ, DEVICE_OPTIONS=f"--setenv TMPDIR {temporary} "
                                                            f"--setenv SQLITE_TMPDIR {temporary}"))
                    while process.poll() is None:
                        least = min(least, os.statvfs(place).f_bfree)
                    table.add(f"{mode}, {shape}, {start} to {target}: growth in % of the database",
                              round((most - least) * os.statvfs(place).f_frsize / size * 100),
                              at_most=250 if mode == "delete" else 1000)
    finally:
        run("umount", place)


def main():
    measure.build()
    table = measure.Table("The guard")
    parts = {"flushes": flushes_and_bytes, "times": times, "work": work, "boots": boots,
             "growth": growth}
    for name in sys.argv[1:] or parts:
        with tempfile.TemporaryDirectory(prefix="guard.", dir=measure.DISK) as directory:
            parts[name](table, pathlib.Path(directory))
    table.end()


if __name__ == "__main__":
    main()
