"""The guard of another processor under qemu's user emulation, on a scratch device.

Bubblewrap and its libraries are this machine's, because the emulation refuses the clone call with
which bubblewrap makes namespaces.
Bubblewrap starts the guard and the program with execvp, which hands a file that the kernel cannot
run to /bin/sh. There is the emulator, in place of a shell.
"""

import json
import os
import pathlib
import shutil
import sysconfig
from subprocess import DEVNULL, PIPE

from conftest import PROGRAM
from support.versions import NEWEST, dump_of
from walks import as_departures, device_with, expected_of_walk, left_on

GUARD = PROGRAM.parent / "guard" / "migration-guard"
KNOWN_VERSIONS = PROGRAM.parent / "schema-versions.json"
LIBRARIES = pathlib.Path("usr/lib") / sysconfig.get_config_var("MULTIARCH")
TOOLS = ("bwrap", "dash", "sqlite3")
# Runs the program, and then removes all growers.
HARMFUL = """#!/usr/bin/dash
/bin/sh /app/migrator "$@"
exec sqlite3 /app/databases/my.db.sqlite "DELETE FROM growers"
"""
SECONDS = 900


def options():
    """Bubblewrap's options that let the emulator and this machine's tools run on a device."""
    # Bubblewrap cannot make this place: the other system is mounted read-only.
    (pathlib.Path(os.environ["DEVICE_SYSTEM"]) / LIBRARIES).mkdir(exist_ok=True)
    binds = [(f"/{LIBRARIES}", f"/{LIBRARIES}"), ("/usr/lib64", "/lib64"),
             (os.environ["DEVICE_EMULATOR"], "/bin/sh"),
             *((f"/usr/bin/{tool}", f"/usr/bin/{tool}") for tool in TOOLS)]
    return " ".join(f"--ro-bind {source} {place}" for source, place in binds)


def install(device):
    for file in (PROGRAM, GUARD, KNOWN_VERSIONS):
        shutil.copy(file, device.app)


def run(device, *arguments):
    """Runs the guard; returns its exit status and its output."""
    guard = device.start(device.app / GUARD.name, *map(str, arguments), options=options(),
                         stdin=DEVNULL, stdout=PIPE, stderr=PIPE)
    output, errors = guard.communicate(timeout=SECONDS)
    return guard.returncode, output.decode() or errors.decode()


def last_run(device):
    record = json.loads((device.databases / "lastMigration.json").read_text(encoding="utf-8"))
    return record["lastRun"]


def codes(result):
    return [finding["code"] for finding in result["verdict"]["findings"] if finding["counts"]]


def version():
    with device_with(dump_of(1)) as device:
        install(device)
        status, output = run(device, "--version")
    return f"0 {NEWEST}", f"{status} {output.splitlines()[1].rpartition(' ')[2]}"


def walk(start, end):
    with device_with(dump_of(start)) as device:
        install(device)
        status, output = run(device, "run", end)
        way = last_run(device)["way"]
        outcome = as_departures(left_on(device), end)
        _, state = run(device, "status", "--json")
        recorded = json.loads(state)["database"]["version"]
    return (f"0 guarded {end}\n{expected_of_walk(start, end)}",
            f"{status} {way} {recorded}\n{outcome}")


def rehearsal(start, end):
    with device_with(dump_of(start)) as device:
        install(device)
        before = device.dump()
        status, output = run(device, "rehearse", end, "--json")
        report = json.loads(output)
        unchanged = device.dump() == before
    return (f"0 guarded {end} [] True",
            f"{status} {report['way']} {report['to']} {codes(report)} {unchanged}")


def loss():
    with device_with(dump_of(1)) as device:
        install(device)
        program = device.app / PROGRAM.name
        program.rename(device.app / "migrator")
        program.write_text(HARMFUL, encoding="utf-8")
        program.chmod(0o755)
        before = device.dump()
        status, _ = run(device, "run", NEWEST, "--strict")
        found = last_run(device)
        unchanged = device.dump() == before
    return ("3 rows-lost ['rows-lost:growers'] True",
            f"{status} {found['reason']} {codes(found)} {unchanged}")


# Each returns what is expected and what was found, as texts.
CASES = {
    "version": version,
    "run forward": lambda: walk(1, NEWEST),
    "run back": lambda: walk(NEWEST, 1),
    "rehearse": lambda: rehearsal(1, NEWEST),
    "lost rows": loss,
}
