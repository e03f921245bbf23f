"""Runs of the program, with the databases of before and after at rest, and their verdicts."""

import json
import os
import pathlib
import shutil
import sqlite3
import subprocess
import sys
from contextlib import closing, contextmanager
from dataclasses import dataclass, field

from support.places import ROOT, TESTS

sys.path.insert(0, str(TESTS / "fuzz"))
from devices import DATABASE, LOG, MACHINES, PLATFORM, PRODUCTS  # noqa: E402

VERSIONS_FILE = ROOT / "guard" / "schema-versions.json"


@dataclass
class Judged:
    """The paths of a run's parts."""

    before: pathlib.Path
    after: pathlib.Path
    source: int
    reached: int
    target: int
    log: pathlib.Path
    platform: str = "TORVIK"
    scripts: list = field(default_factory=list)

    def request(self, scratch, versions=VERSIONS_FILE, **others):
        return {"before": str(self.before), "after": str(self.after), "from": self.source,
                "to": self.reached, "target": self.target, "log": str(self.log),
                "platform": self.platform, "scripts": [str(path) for path in self.scripts],
                "versions": str(versions), "scratch": str(scratch), **others}


class Judge:
    """The guard's judgement, which answers one request after the other."""

    def __init__(self):
        self.process = subprocess.Popen([os.environ["VERDICT_OF"]], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.stdin.close()
        self.process.wait()
        self.process.stdout.close()

    def verdict(self, request):
        self.process.stdin.write(json.dumps(request).encode() + b"\n")
        self.process.stdin.flush()
        return json.loads(self.process.stdout.readline())


def at_rest(path, copy):
    """Copies a database as the guard does; returns whether that was possible."""
    try:
        with closing(sqlite3.connect(path, timeout=0)) as source, \
                closing(sqlite3.connect(copy)) as target:
            source.backup(target)
    except sqlite3.Error:
        return False
    return copy.stat().st_size > 0


def recorded_version(path):
    try:
        with closing(sqlite3.connect(f"file:{path}?immutable=1", uri=True)) as database:
            row = database.execute(
                "SELECT version FROM tableVersion WHERE tableName = 'mainSqlDb'").fetchone()
    except (sqlite3.Error, UnicodeDecodeError):
        return None
    return row[0] if row and isinstance(row[0], int) else None


def text_of(content):
    return content if isinstance(content, bytes) else b""


def run_to_judge(runner, device, target, folder):
    """Runs the program on a device; returns the run to judge, None without a database."""
    scratch = runner.device
    scratch.fill(device.files)
    before, after = folder / "before.sqlite", folder / "after.sqlite"
    for path in (before, after):
        path.unlink(missing_ok=True)
    source = scratch.root / DATABASE
    if not source.is_file() or not at_rest(source, before):
        return None
    device.arguments = [str(target).encode()]
    scratch.fill({**device.files, DATABASE: before.read_bytes(), LOG: b""})
    for suffix in ("-journal", "-wal", "-shm"):
        pathlib.Path(f"{source}{suffix}").unlink(missing_ok=True)
    request = f"10 1\n{target}\0".encode()
    runner.process.stdin.write(request)
    runner.process.stdin.flush()
    status, _, _, size = map(int, runner.process.stdout.readline().split())
    runner.process.stdout.read(size)
    if status or not at_rest(source, after):
        return None
    log = folder / "log.txt"
    shutil.copyfile(scratch.root / LOG, log)
    scripts = []
    for place in (MACHINES, PRODUCTS):
        script = folder / pathlib.Path(place).name
        script.write_bytes(text_of(device.files.get(place)))
        scripts.append(script)
    platform = text_of(device.files.get(PLATFORM, b"TORVIK")).split(b"\n")[0]
    return Judged(before, after, recorded_version(before), recorded_version(after), target, log,
                  platform.decode(errors="replace"), scripts)


@contextmanager
def judge():
    with Judge() as made:
        yield made
