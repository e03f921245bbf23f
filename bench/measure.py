"""The parts that the scripts of this directory share: build, scratch devices, measuring, table."""

import contextlib
import hashlib
import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests"))

from support import device as scratch
from support import places, versions
from support.device import SHELL

BUILD = ROOT / "build" / "bench"
PROGRAM = BUILD / "database-migrator"
MINIMAL_RUN = BUILD / "bench" / "minimal_run"
RECORD_STATEMENTS = BUILD / "bench" / "librecord_statements.so"
REBUILD = BUILD / "bench" / "rebuild"
STEP = BUILD / "bench" / "step"
RAM_DISK = places.RAM_DISK
DISK = BUILD
NEWEST = versions.NEWEST


def build():
    """Builds the program as it is shipped, and the programs of this directory."""
    def run(*command):
        result = subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if result.returncode != 0:
            sys.exit(result.stdout.decode())

    run("bash", "-euc", ". tools/packages.sh; install_packages bench")
    run("cmake", "--preset", "release", "-B", BUILD, "-DDATABASE_MIGRATOR_TESTS=ON")
    run("cmake", "--build", BUILD, "--target", "database-migrator", "minimal_run",
        "record_statements", "rebuild", "step", "duplicate_names", "migration-guard")


class Device(scratch.Device):
    """A scratch device with a database at version 1."""

    def __init__(self, root):
        super().__init__(root)
        self.make_folders()
        self.software_version.write_text("4.2.0\n")
        self.sql(versions.dump_of(1))

    def run(self, program, *arguments, options=""):
        """Runs a program. options: further options for the sandbox"""
        run = self.start(program, *arguments, options=options, stdin=subprocess.DEVNULL,
                         stdout=subprocess.DEVNULL)
        if run.wait() != 0:
            sys.exit(f"{program} ended with {run.returncode}")

    def record_statements(self, program, *arguments):
        """Runs a program; returns the file with the statements that it ran."""
        shutil.copy(RECORD_STATEMENTS, self.app)
        self.run(program, *arguments, options="--setenv RECORDED_STATEMENTS /app/statements "
                 "--setenv LD_PRELOAD /app/" + RECORD_STATEMENTS.name)
        return "/app/statements"

    def run_under(self, tool, *options_program_arguments):
        """Runs a program under a tool that writes /app/report; returns the report."""
        words = list(options_program_arguments)
        for position, word in enumerate(words):
            if isinstance(word, pathlib.Path):
                shutil.copy(word, self.app)
                words[position] = "/app/" + word.name
        self.run(tool, *words, options="--ro-bind-try /usr/libexec /usr/libexec")
        return (self.app / "report").read_text()

    def instructions(self, program, *arguments):
        report = self.run_under("/usr/bin/valgrind.bin", "--tool=callgrind", "--quiet",
                                "--callgrind-out-file=/app/report", program, *arguments)
        return int(re.search(r"^totals: (\d+)", report, re.MULTILINE)[1])

    def system_calls(self, names, program, *arguments):
        report = self.run_under("/usr/bin/strace", "-f", "-e", f"trace={names}", "-e",
                                "signal=none", "-o", "/app/report", program, *arguments)
        return len(re.findall(r"^\d+ +\w+\(", report, re.MULTILINE))

    def megabytes(self, program, *arguments):
        """The peak of a run's memory."""
        report = self.run_under("/usr/bin/time", "-f", "%M", "-o", "/app/report",
                                program, *arguments)
        return int(report) / 1024

    def seconds(self, program, *arguments):
        begin = time.monotonic()
        self.run(program, *arguments)
        return time.monotonic() - begin

    def against_shell(self, figure, runs, program, *arguments):
        """The medians of a figure of a program, and of the sqlite3 shell with the same statements.

        The two take turns. Both begin with the present database, and both must end with the same
        content.
        """
        original = self.root / "original.sqlite"
        shutil.copy(self.database, original)
        self.record_statements(program, *arguments)
        statements = (self.app / "statements").read_text(encoding="utf-8")
        script = self.app / "statements.sql"
        script.write_text(statements.replace("\0", ";\n"), encoding="utf-8")
        content = self.content()

        def measure(*run):
            shutil.copy(original, self.database)
            os.sync()
            return figure(*run)

        shell = (SHELL, "-init", "/dev/null", "-bail", "/app/databases/my.db.sqlite",
                 ".read /app/statements.sql")
        program_figures, shell_figures = [], []
        for _ in range(runs):
            program_figures.append(measure(program, *arguments))
            shell_figures.append(measure(*shell))
        if self.content() != content:
            sys.exit("The sqlite3 shell did not end with the database of the program.")
        return statistics.median(program_figures), statistics.median(shell_figures)

    def content(self):
        return hashlib.sha256(self.dump().encode()).digest()


@contextlib.contextmanager
def device(directory):
    with places.scratch_directory(directory) as root:
        yield Device(root)


class Table:
    """Figures with their bounds, printed as they come."""

    def __init__(self, title):
        self.met = True
        print(f"{title}\n\n  {'':64} {'measured':>14} {'at most':>8}")

    def add(self, name, value, digits=0, at_most=None):
        bound = verdict = ""
        if at_most is not None:
            bound = f"{at_most:.{digits}f}"
            verdict = "  met" if value <= at_most else "  MISSED"
            self.met = self.met and value <= at_most
        print(f"  {name:64} {value:14,.{digits}f} {bound:>8}{verdict}", flush=True)

    def add_seconds(self, what, program, shell):
        """The wall times that against_shell returns."""
        self.add(f"{what}: seconds of the program", program, digits=2)
        self.add(f"{what}: seconds of the sqlite3 shell", shell, digits=2)
        self.add(f"{what}: ratio", program / shell, digits=2, at_most=1.10)

    def end(self):
        """Ends the script, with exit status 1 when a bound was missed."""
        sys.exit(0 if self.met else 1)
